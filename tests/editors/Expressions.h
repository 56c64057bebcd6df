#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

/// Where a match and its groups lie: first byte and the one behind the last;
/// -1 for a group that took no part.
using Match = std::vector<std::pair<int, int>>;

/// The first match of an expression in a text between two places; empty where
/// there is none. Throws std::runtime_error for one that does not compile.
Match searchExpression(const std::string& expression, const std::string& text, std::size_t begin,
                       std::size_t end);
