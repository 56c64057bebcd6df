#pragma once

#include "trovik/records/Records.h"

#include <string>

namespace trovik {

/// The names of the columns, as a line of comma-separated values.
std::string attemptTableHead();

/// An attempt that has ended, as such a line: what is not known is empty. A
/// field that holds a comma, a quotation mark or a line break stands in quotes.
std::string attemptTableRow(const JobRecord& job, const AttemptRecord& attempt);

} // namespace trovik
