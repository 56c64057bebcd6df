#pragma once

#include <string>

namespace CLI {
class App;
}

namespace trovik {

struct Options;

/// Declares the program's verbs and their options, which a parse then writes
/// to `options` and (of "help") to `helpVerb`.
void declareVerbs(CLI::App& program, Options& options, std::string& helpVerb);

/// Whether help and completion name the verb; what only programs call is not.
bool isListed(const CLI::App* verb);

} // namespace trovik
