#pragma once

#include "host/foundation/String.h"

#include <string_view>
#include <vector>

/// The number of insertions, deletions, replacements and swaps of neighbours
/// between two words, without regard to case. Words that differ over more than
/// 200 letters count as different in all of these.
int EditDistance(std::string_view left, std::string_view right);

/// The known name nearest to an unknown one, or the empty text when none is
/// near enough to be meant.
String SuggestName(std::string_view unknown, const std::vector<String>& known);
