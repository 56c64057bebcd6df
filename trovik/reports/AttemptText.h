#pragma once

#include "trovik/machine/Machine.h"
#include "trovik/records/Records.h"
#include "trovik/text/Console.h"
#include "trovik/text/Json.h"

#include <optional>
#include <string>
#include <vector>

namespace trovik {

/// "7-9"; "work" for a job without frames.
std::string titleOf(const AttemptRecord& attempt, bool hasFrames);

/// Which of the attempt's lines the reason quotes; nothing where it quotes
/// none of them.
std::optional<std::size_t> decidingLine(const AttemptRecord& attempt);

/// The rule for people: "an error line".
std::string ruleText(VerdictRule rule);

/// Where the output of an attempt is kept; of one that runs, where it will be.
/// Empty where there is none.
Path logOf(const AttemptRecord& attempt, const JobRecord& job);

/// What it took, or takes so far.
Duration timeOf(const AttemptRecord& attempt, Moment now);

/// The end of a log, read without reading all of it.
struct LogEnd {
  bool there = false;             ///< the file can be read
  std::int64_t bytes = 0;         ///< of the whole log
  std::vector<std::string> lines; ///< the last ones that hold any text, cut like those of a failure
};
LogEnd readLogEnd(const Path& log);

/// What the JSON form of logs has of an attempt; the end is that of its log.
Json attemptJson(const JobRecord& job, const AttemptRecord& attempt, const LogEnd& end, Moment now);

/// Prints every byte of a log; on a terminal with its control characters made
/// visible. False when it cannot be read.
bool printLog(Console& console, const Path& log);

} // namespace trovik
