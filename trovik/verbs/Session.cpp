#include "trovik/verbs/Session.h"

#include "host/application/Application.h"
#include "host/foundation/FileFinder.h"
#include "host/foundation/Log.h"
#include "host/foundation/WholeNumber.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

namespace trovik {
namespace {

/// The file that a flag or variable names, which must then exist, or the
/// usual one, which need not.
Path chosenFile(const char* flag, const std::optional<std::string>& fromFlag, const char* variable,
                const Path& usual) {
  std::string origin = flag;
  std::optional<std::string> named = fromFlag;
  if (!named) {
    origin = variable;
    named = environmentVariable(variable);
  }
  if (!named) {
    return usual;
  }
  Path file = absolutePath(*named);
  std::error_code error;
  if (!std::filesystem::is_regular_file(file.Text().c_str(), error)) {
    throw UsageError{origin + ": there is no file " + inQuotes(file.Text()),
                     "check the name, or leave it out"};
  }
  return file;
}

} // namespace

Session::Session(const CommonOptions& options, Console& console)
    : options_(options), console_(console), locations_(environmentVariable, ownExecutable()) {
  loadSettings();
}

Session::~Session() {
  modules_.Unload();
}

void Session::loadSettings() const {
  const Path settings = chosenFile("--settings", options_.settings, "TROVIK_SETTINGS", locations_.settings());
  const Path options = chosenFile("--options", options_.options, "TROVIK_OPTIONS", locations_.options());
  orRefuse("", "", [&] { Application::the_Application->LoadSettings(settings, options); });
}

Path Session::state() const {
  if (!options_.state) {
    return locations_.state();
  }
  if (options_.state->empty()) {
    throw UsageError{"--state: the name of the directory is empty", "leave it out for the usual one"};
  }
  return absolutePath(*options_.state);
}

void Session::loadModules() {
  if (loaded_) {
    return;
  }
  loaded_ = true;
  findModulePath();
  // A type file of the user's own directory takes the place of an installed one
  // with the same ID. Who did that on purpose need not hear it each time.
  SetSubjectLevel(LogSubject::TypeInUse, LogLevel::Info);
  if (orRefuse("", "", [&] { return modules_.Load(modulePath_); }) == 0) {
    loadUsualLibraries();
  }
}

ModuleLoader& Session::loadLibraries() {
  loaded_ = true;
  findModulePath();
  if (orRefuse("", "", [&] { return modules_.LoadWithoutTypeFiles(modulePath_); }) == 0) {
    loadUsualLibraries();
  }
  if (!modules_.ReadsTypeFiles()) {
    refuseNoModule();
  }
  return modules_;
}

/// Where the module path has type files and no module to read them, as a folder
/// of somebody's own types has not, the usual one does.
void Session::loadUsualLibraries() {
  FileFinder finder;
  const bool types = std::any_of(modulePath_.begin(), modulePath_.end(), [&finder](const Path& directory) {
    return finder.Find(Path(directory) /= String("*.tvx"));
  });
  if (!types ||
      orRefuse("", "", [&] { return modules_.LoadWithoutTypeFiles(locations_.defaultModulePath()); }) == 0) {
    refuseNoModule();
  }
}

void Session::findModulePath() {
  std::vector<Path> missing;
  if (options_.modulePath) {
    modulePath_ = locations_.modulePath(*options_.modulePath, missing);
    if (!missing.empty()) {
      throw UsageError{"--module-path: there is no directory " + inQuotes(missing.front().Text()),
                       "check the name"};
    }
  } else if (const auto path = environmentVariable("TROVIK_MODULE_PATH")) {
    modulePath_ = locations_.modulePath(*path, missing);
    for (const Path& directory : missing) {
      LogWarning("TROVIK_MODULE_PATH: there is no directory " + inQuotes(directory.Text()));
    }
  } else {
    modulePath_ = locations_.defaultModulePath();
  }
  for (const Path& directory : modulePath_) {
    LogInfo("modules and types are looked for in " + directory.Text());
  }
}

void Session::refuseNoModule() const {
  std::vector<std::string> searched;
  for (const Path& directory : modulePath_) {
    searched.push_back(inQuotes(directory.Text()));
  }
  throw UsageError{"no module was found" + (searched.empty() ? "" : " in " + joined(searched, ", ")),
                   "an empty directory in the module path stands for the usual ones: --module-path DIR:"};
}

DetectFunction Session::detection() const {
  return [this](const UID& type, const String& changed, std::map<String, String>& values) {
    modules_.AutoDetect(type, changed, values);
  };
}

std::unique_ptr<Queue> existingQueue(const Path& directory) {
  std::error_code error;
  const std::filesystem::path database = std::filesystem::path(directory.c_str()) / "queue.db";
  const auto kind = std::filesystem::symlink_status(database, error).type();
  return kind == std::filesystem::file_type::not_found ? nullptr : std::make_unique<Queue>(directory);
}

JobId jobNumber(const std::string& text) {
  if (text == "last") {
    return 0;
  }
  const JobId number = ReadWholeNumber<JobId>(text).value_or(0);
  if (number <= 0) {
    throw UsageError{inQuotes(text) + " is not the number of a job",
                     "jobs have whole numbers from 1 on, and the newest is \"last\"; \"trovik jobs\" lists "
                     "them"};
  }
  return number;
}

JobRecord findJob(Queue* queue, const std::string& text) {
  const JobId number = jobNumber(text);
  if (queue != nullptr) {
    if (number == 0) {
      if (std::vector<JobRecord> jobs = queue->jobs(); !jobs.empty()) {
        return std::move(jobs.front());
      }
    } else if (std::optional<JobRecord> job = queue->job(number)) {
      return std::move(*job);
    }
  }
  if (number == 0) {
    throw UsageError{"there is no job yet", "\"trovik run\" and \"trovik submit\" make one"};
  }
  throw UsageError{"there is no job " + std::to_string(number), "\"trovik jobs\" lists them"};
}

void refuseVerifyAlone(bool verify, bool missing) {
  if (verify && !missing) {
    throw UsageError{"--verify is for --missing", "add --missing, or leave --verify out"};
  }
}

} // namespace trovik
