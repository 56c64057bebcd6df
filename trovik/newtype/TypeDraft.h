#pragma once

#include "host/foundation/UID.h"

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
  std::string output;           ///< see defaultOutput()
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
void checkExtension(const std::string& extension);
/// A text that lines of output are compared with.
void checkOutputText(const std::string& text);

/// The output arguments that most programs of that kind take.
std::string defaultOutput(Framing framing);
/// Whether the arguments name the file, so that its extension matters.
bool namesOutputFile(const std::string& output);

/// A name for files and shells: letters in lower case, digits, "-", "_", ".".
std::string shortName(const std::string& name);

/// The files that each frame must leave as far as the answers tell, as templates
/// of the parameter ExpectedFiles. None where the program names its images.
std::vector<String> expectedFilesOf(const TypeAnswers& answers);

/// Of these, the ones that would be one file for all frames of a job.
std::vector<String> sharedFilesOf(const TypeAnswers& answers);

/// A commented type file of the answers, which must have passed the checks.
/// `shortcut` may be empty.
std::string typeFileText(const TypeAnswers& answers, const UID& id, const std::string& shortcut);

} // namespace trovik
