#pragma once

#include <cstddef>
#include <string>

namespace CLI {
class App;
}

namespace trovik {

/// The help of the program or of a verb: usage, description, arguments,
/// options by group and worked examples, wrapped to the width.
std::string helpText(const CLI::App& app, std::size_t width);

} // namespace trovik
