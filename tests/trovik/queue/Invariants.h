#pragma once

#include "trovik/records/Records.h"
#include "trovik/records/RunSet.h"

#include <map>
#include <string>
#include <vector>

namespace trovik {

/// What is true of every queue at every moment, whoever was killed: SQLite
/// finds nothing wrong, no frame stands in two works, works run exactly while
/// an attempt at them does, and states of jobs agree with those of their works.
///
/// Looks into the database by itself and trusts nothing of the queue. Returns
/// a line for each breach. Where `submitted` is given, each of its jobs has
/// exactly these frames.
std::vector<std::string> brokenInvariants(const std::string& databaseFile,
                                          const std::map<JobId, RunSet>& submitted = {});

} // namespace trovik
