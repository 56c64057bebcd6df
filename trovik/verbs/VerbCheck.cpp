#include "host/foundation/FileFinder.h"
#include "trovik/check/DiagnosticText.h"
#include "trovik/check/TypeChecker.h"
#include "trovik/text/Json.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/Verbs.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <unistd.h>

namespace trovik {
namespace {

/// Problems of one file that are printed; JSON has them all.
constexpr std::size_t shownLimit = 100;

std::string readStandardInput() {
  std::string text;
  char buffer[65536];
  for (;;) {
    const ssize_t count = read(STDIN_FILENO, buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count < 0) {
      throw UsageError{"standard input cannot be read: " + std::system_category().message(errno), {}};
    }
    if (count == 0) {
      return text;
    }
    text.append(buffer, static_cast<std::size_t>(count));
    if (text.size() > IniFile::k_SizeLimit) {
      throw UsageError{"standard input is larger than any type file may be", {}};
    }
  }
}

/// The type files of a directory, named as the directory was.
std::vector<std::string> typeFilesOf(const std::string& directory) {
  std::vector<std::string> files;
  FileFinder finder;
  Path pattern{String(directory)};
  for (bool found = finder.Find(pattern /= "*.tvx"); found; found = finder.Next()) {
    files.push_back(finder.Name().Text());
  }
  return files;
}

class CheckRun {
public:
  CheckRun(Session& session, const CheckOptions& options)
      : session_(session), options_(options), modules_(session.loadLibraries()) {}

  int run() {
    if (options_.name &&
        std::find(options_.files.begin(), options_.files.end(), "-") == options_.files.end()) {
      throw UsageError{"--name is for a text from standard input", "write - as the file"};
    }
    collect();
    KnownTypes known;
    for (const TypeSource& source : sources_) {
      known.add(source);
    }
    for (const Path& directory : session_.modulePath()) {
      for (const std::string& file : typeFilesOf(directory.Text())) {
        known.add(TypeSource::read(file, absolutePath(file)));
      }
    }
    for (const Path& directory : session_.locations().installedModules()) {
      for (const std::string& file : typeFilesOf(directory.Text())) {
        known.addShipped(TypeSource::read(file, Path(file)));
      }
    }
    TypeChecker checker(modules_, !options_.noPrograms);
    for (const TypeSource& source : sources_) {
      tell(source, checker.check(source, known));
    }
    finish();
    if (unreadable_) {
      return exitUsage;
    }
    return errors_ > 0 || (options_.strict && warnings_ > 0) ? exitFailed : exitGood;
  }

private:
  void collect() {
    for (const std::string& name : options_.files) {
      if (name == "-") {
        const std::string shown = options_.name.value_or("-");
        sources_.emplace_back(shown, options_.name ? absolutePath(shown) : Path(), readStandardInput());
      } else if (std::error_code error; std::filesystem::is_directory(name, error)) {
        const std::vector<std::string> files = typeFilesOf(name);
        if (files.empty()) {
          throw UsageError{"there is no type file in " + inQuotes(name), "type files end with .tvx"};
        }
        std::for_each(files.begin(), files.end(), [this](const std::string& file) { addFile(file); });
      } else {
        addFile(name);
        unreadable_ = unreadable_ || sources_.back().problem().has_value();
      }
    }
    if (!options_.files.empty()) {
      return;
    }
    for (const Path& directory : session_.modulePath()) {
      const std::vector<std::string> files = typeFilesOf(directory.Text());
      std::for_each(files.begin(), files.end(), [this](const std::string& file) { addFile(file); });
    }
    if (sources_.empty()) {
      throw UsageError{"there is no type file along the module path", "name one: trovik check FILE"};
    }
  }

  void addFile(const std::string& name) { sources_.push_back(TypeSource::read(name, absolutePath(name))); }

  void tell(const TypeSource& source, const std::vector<Diagnostic>& problems) {
    const Console& console = session_.console();
    std::string text;
    std::size_t shown = 0;
    for (const Diagnostic& problem : problems) {
      const bool error = problem.severity == Severity::Error;
      ++(error ? errors_ : warnings_);
      if (options_.json) {
        json_.push_back({{"file", source.shown()},
                         {"line", problem.line},
                         {"column", problem.column},
                         {"endColumn", problem.endColumn},
                         {"severity", error ? "error" : "warning"},
                         {"rule", problem.rule},
                         {"message", problem.message},
                         {"hint", problem.hint.empty() ? Json(nullptr) : Json(problem.hint)}});
      } else if (shown < shownLimit) {
        ++shown;
        text += diagnosticText(console, source, problem, console.layoutWidth());
      }
    }
    if (!options_.json && shown < problems.size()) {
      text += console.shown(source.shown()) + ": " + counted(problems.size() - shown, "more problem") + '\n';
    }
    if (!text.empty()) {
      session_.console().print(text);
    }
  }

  void finish() {
    if (options_.json) {
      Json document = jsonOfKind("check");
      document["files"] = Json::array();
      for (const TypeSource& source : sources_) {
        document["files"].push_back(source.shown());
      }
      document["problems"] = json_;
      document["counts"] = {{"errors", errors_}, {"warnings", warnings_}};
      session_.console().print(jsonDocument(document));
    } else if (errors_ + warnings_ > 0) {
      session_.console().print(counted(errors_, "error") + ", " + counted(warnings_, "warning") + '\n');
    }
  }

  Session& session_;
  const CheckOptions& options_;
  ModuleLoader& modules_;
  std::vector<TypeSource> sources_;
  Json json_ = Json::array();
  std::size_t errors_ = 0;
  std::size_t warnings_ = 0;
  bool unreadable_ = false;
};

} // namespace

int checkTypes(Session& session, const CheckOptions& options) {
  return CheckRun(session, options).run();
}

} // namespace trovik
