#pragma once

#include "trovik/cluster/JobFolder.h"

#include <string>
#include <string_view>

namespace trovik {

// The texts of the files in the folder of a cluster's job; docs/formats.md has
// them all. A text that is not valid UTF-8 (file names, output) is kept as
// {"hex": "..."}, so that every byte comes back.
//
// Reading is strict, since anybody may write into a shared folder: whatever is
// missing, of another kind or out of its range is refused with a FormProblem,
// and so is nesting deeper than any of the forms has.

/// Thrown by value for a text that is not of its form.
struct FormProblem {
  std::string text; ///< what is wrong, for people
};

/// All but the stream.
std::string formOf(const FolderJob& job);
std::string formOf(const ArrayPlan& plan);
std::string formOf(const WorkClaim& claim);
/// One line. It begins and ends with the same number, so that a reader who
/// meets a writer does not take half of two beats for one.
std::string formOf(const WorkBeat& beat);
std::string formOf(const WorkEnd& end);

FolderJob jobFromForm(std::string_view text);
ArrayPlan planFromForm(std::string_view text);
WorkClaim claimFromForm(std::string_view text);
WorkBeat beatFromForm(std::string_view text);
WorkEnd endFromForm(std::string_view text);

} // namespace trovik
