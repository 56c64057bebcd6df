#include "trovik/jobs/ProgramSearch.h"

#include "host/application/Application.h"
#include "host/foundation/Quoting.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <unistd.h>

namespace trovik {
namespace {

std::string along(const Path& name) {
  return name.Text().find('/') == String::npos ? inQuotes(name.Text()) + " along PATH"
                                               : inQuotes(name.Text());
}

/// The first word of the command line, for types without an executable.
Path firstWord(const Job& job) {
  const String command = job.GetParameterOrOption("CommandString", true, true);
  try {
    const std::vector<String> words = SplitCommandLine(command);
    return words.empty() || words.front().find("$(") != String::npos ? Path() : Path(words.front());
  } catch (Exception* exception) {
    takeText(exception);
    return {};
  }
}

} // namespace

Path programAt(const Path& name) {
  if (name.Text().find('/') == String::npos) {
    return ProcessJob::FindLatestExecutable({}, {}, name);
  }
  return access(name.c_str(), X_OK) == 0 ? name : Path();
}

FoundProgram searchProgram(const ModuleLoader& modules, const UID& type, ProcessJob& job) {
  FoundProgram found;
  const auto tryProgram = [&](const Path& name, const char* source, const std::string& what) {
    found.program = programAt(name);
    found.source = source;
    found.told = what + ' ' + inQuotes(name.Text()) +
                 (name.Text().find('/') == String::npos ? ", found along PATH" : "");
    if (found.program.empty()) {
      found.searched.push_back(what + ' ' + along(name));
    }
    return !found.program.empty();
  };
  const Path option(Application::the_Application->Options().GetValue(type.GenString(), p_Executable, ""));
  if (!option.empty()) {
    tryProgram(option, "option", "the engine's option");
    return found;
  }
  found.program = job.GetLatestExecutable();
  if (!found.program.empty()) {
    found.source = "search";
    found.told = "the newest that the type's search found";
    return found;
  }
  std::vector<Path> roots;
  std::vector<Path> bases;
  Path exe;
  if (modules.LatestExecutableSearch(type, roots, bases, exe)) {
    for (const Path& root : roots) {
      for (const Path& base : bases) {
        Path pattern = root;
        pattern /= base.Text() + "*";
        pattern /= exe.Text();
        found.searched.push_back("the type's search " + inQuotes(pattern.Text()));
      }
    }
  }
  const Path standard(job.GetParameterOrOption(p_Executable, true, true));
  if (!standard.empty()) {
    tryProgram(standard, "default", "the type's default");
  } else if (const Path word = firstWord(job); !word.empty()) {
    tryProgram(word, "command", "the first word of the type's command line");
  }
  return found;
}

} // namespace trovik
