#pragma once

#include "trovik/text/UsageError.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace trovik {

/// How a program takes its frames.
enum class Framing {
  Files,  ///< a scene file for each frame
  Range,  ///< one scene, with a first and a last frame
  Single, ///< one scene, with one frame at a time
  None,   ///< no frames: one run
};

/// What has to be known of a program to write a type for it. Arguments are
/// written as one would type them, with words for what varies: SCENE, NAME
/// (of the scene, without folder and extension), FRAME, FIRST, LAST, FOLDER
/// (for the files) and OUTPUT (the file). "none" stands for no arguments.
struct TypeAnswers {
  std::string name;
  std::string program;
  std::string scene = "SCENE";
  std::string frames = "files"; ///< "files", "none", or arguments
  std::string output;           ///< arguments
  std::string extension = "png";
  std::string imageText; ///< what stands before the name of a file in the program's output
  std::vector<std::string> success;
  std::vector<std::string> errors;
};

// Each throws a UsageError for an answer that cannot be, given the ones before.

void checkTypeName(const std::string& name);
void checkProgram(const std::string& program);
void checkSceneArguments(const std::string& scene);
/// Also tells what the arguments mean.
Framing framingOf(const std::string& frames, const std::string& scene);
void checkOutputArguments(const std::string& output, Framing framing, const std::string& scene);

/// A name for files and shells: letters in lower case, digits, "-", "_", ".".
std::string shortName(const std::string& name);

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
/// takes the usual ones else. A wrong answer to a question is given to `tell`
/// and asked again. Throws a UsageError for a given answer that cannot be, and
/// where the input ends.
TypeAnswers completeAnswers(const std::string& name, const GivenAnswers& given, const AskFunction& ask,
                            const std::function<void(const UsageError&)>& tell);

} // namespace trovik
