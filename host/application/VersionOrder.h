#pragma once

#include <string_view>

/// Orders names with version numbers as people read them: digits as numbers
/// (4.10 after 4.9), and what looks like a pre-release (alpha, beta, rc, pre,
/// dev) before the release itself. Less than 0, 0, more than 0; names that
/// read the same but differ are ordered by their bytes.
int CompareVersions(std::string_view left, std::string_view right);
