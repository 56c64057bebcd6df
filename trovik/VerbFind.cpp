#include "host/application/Application.h"
#include "host/application/ProcessJob.h"
#include "host/foundation/Quoting.h"
#include "trovik/Json.h"
#include "trovik/Text.h"
#include "trovik/Types.h"
#include "trovik/UsageError.h"
#include "trovik/Verbs.h"

#include <unistd.h>

namespace trovik {
namespace {

struct Found {
  Path program;                      ///< empty when there is none
  std::string source;                ///< "option", "search", "default" or "command"
  std::string told;                  ///< the source for people
  std::vector<std::string> searched; ///< what was looked at in vain
};

/// A program by its path, or by its name along PATH; empty when it is not
/// there or not executable.
Path programAt(const Path& name) {
  if (name.Text().find('/') == String::npos) {
    return ProcessJob::FindLatestExecutable({}, {}, name);
  }
  return access(name.c_str(), X_OK) == 0 ? name : Path();
}

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

Found find(const Session& session, const UID& type, ProcessJob& job) {
  Found found;
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
  if (session.modules().LatestExecutableSearch(type, roots, bases, exe)) {
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

} // namespace

int findProgram(Session& session) {
  const Options& options = session.options();
  Console& console = session.console();
  const UID type = findType(*options.type);
  const SmartHandle<Job> job = JobFactory::s_JobFactory->CreateJob(type);
  auto* process = dynamic_cast<ProcessJob*>(job.Get());
  if (process == nullptr) {
    throw UsageError{"jobs of " + inQuotes(typeTitle(type)) + " do not run a program", {}};
  }
  const Found found = orRefuse("", "", [&] { return find(session, type, *process); });
  const bool good = !found.program.empty();
  if (options.json) {
    Json document = jsonOfKind("find");
    document["type"] = typeTitle(type);
    document["executable"] = good ? Json(found.program.Text()) : Json(nullptr);
    document["source"] = good ? Json(found.source) : Json(nullptr);
    document["searched"] = found.searched;
    console.print(jsonDocument(document));
    return good ? exitGood : exitFailed;
  }
  if (good) {
    console.print(console.shown(found.program.Text()) + "\n  " + found.told + '\n');
    return exitGood;
  }
  std::string text = console.colouredError(Colour::Red, "trovik: error:") + " there is no program for " +
                     inQuotes(typeTitle(type)) + "; looked for\n";
  for (const std::string& place : found.searched) {
    text += "  " + place + '\n';
  }
  text += "hint: install it, or name it as Executable in the section [" + type.GenString() +
          "] of the options file\n";
  console.printError(text);
  return exitFailed;
}

} // namespace trovik
