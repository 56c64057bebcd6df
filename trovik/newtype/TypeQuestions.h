#pragma once

#include "trovik/newtype/TypeDraft.h"
#include "trovik/text/UsageError.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace trovik {

/// The answers to the questions about a program that are known before any is
/// asked; nothing where nobody gave one.
struct GivenAnswers {
  std::optional<std::string> program;
  std::optional<std::string> scene;
  std::optional<std::string> frames;
  std::optional<std::string> output;
  std::optional<std::string> extension;
  std::optional<std::string> imageText;
  std::vector<std::string> success;
  std::vector<std::string> errors;
};

/// Shows a question and reads a line; nothing where there is no more input.
using AskFunction = std::function<std::optional<std::string>(const std::string& question)>;

/// Completes the given answers: asks for the others where `ask` is set, and
/// takes the usual ones else. A wrong answer to a question is told by `tell`
/// and asked again. Throws a UsageError for a given answer that cannot be, and
/// where the input ends.
TypeAnswers completeAnswers(const std::string& name, const GivenAnswers& given, const AskFunction& ask,
                            const std::function<void(const UsageError&)>& tell);

} // namespace trovik
