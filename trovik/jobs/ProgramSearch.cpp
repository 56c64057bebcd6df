#include "trovik/jobs/ProgramSearch.h"

#include "host/application/Application.h"
#include "host/application/jobs/ExecutableSearch.h"
#include "host/foundation/Quoting.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <iterator>

namespace trovik {
namespace {

/// Searches come by thousands of folders.
constexpr std::size_t foldersShown = 10;

bool isBare(const Path& name) {
  return name.Text().find('/') == String::npos;
}

/// What the search of the type's file says.
struct TypeSearch {
  std::vector<Path> roots;
  std::vector<Path> bases;
  Path exe;

  bool readsFolders() const { return !exe.empty() && !exe.IsAbsolute() && !(roots.empty() && bases.empty()); }
};

std::string basesText(const TypeSearch& search) {
  std::vector<std::string> names;
  for (const Path& base : search.bases) {
    names.push_back(inQuotes(base.Text()));
  }
  return joined(names, " or ");
}

/// The folders that were passed over for a reason.
std::vector<std::string> passedOver(const ExecutableSearchResult& result) {
  std::vector<std::string> texts;
  std::size_t more = 0;
  for (const SearchedFolder& folder : result.Folders) {
    if (folder.Problem.empty()) {
      continue;
    }
    if (texts.size() < foldersShown) {
      texts.push_back(inQuotes(folder.Folder.Text()) + ' ' + printable(folder.Problem, OddBytes::Show));
    } else {
      ++more;
    }
  }
  if (more > 0) {
    texts.push_back("and " + counted(more, "further folder"));
  }
  return texts;
}

/// Why the search found nothing.
std::vector<std::string> searchedInVain(const TypeSearch& search, bool& unreadable) {
  const std::string what = "the type's search: ";
  if (search.exe.empty()) {
    return {what + "it names no program, so nothing was searched"};
  }
  if (!search.readsFolders()) {
    return {what + inQuotes(search.exe.Text()) + ' ' + programProblem(search.exe)};
  }
  if (search.roots.empty()) {
    return {what + "it names no folder to search in, so nothing was searched"};
  }
  std::vector<std::string> texts;
  const ExecutableSearchResult result = SearchNewestExecutable(search.roots, search.bases, search.exe);
  for (const SearchedFolder& root : result.Roots) {
    unreadable = unreadable || root.IsUnreadable;
    texts.push_back(what + inQuotes(root.Folder.Text()) + ' ' +
                    (root.Problem.empty() ? "holds no folder named like " + basesText(search)
                                          : std::string(root.Problem)));
  }
  for (const std::string& folder : passedOver(result)) {
    texts.push_back(what + folder);
  }
  return texts;
}

/// Why the search took what it found, and what it passed over.
void describeFind(const TypeSearch& search, FoundProgram& found) {
  if (!search.readsFolders()) {
    found.description =
        "the program of the type's search, " +
        (isBare(search.exe) ? inQuotes(search.exe.Text()) + " along PATH" : std::string("a whole path"));
    return;
  }
  found.description = "the newest that the type's search found";
  const ExecutableSearchResult result = SearchNewestExecutable(search.roots, search.bases, search.exe);
  found.searched = passedOver(result);
  const auto serves = [](const SearchedFolder& folder) { return folder.Problem.empty(); };
  const auto newest = std::find_if(result.Folders.begin(), result.Folders.end(), serves);
  if (newest == result.Folders.end()) {
    return; // it was removed right now
  }
  const auto next = std::find_if(std::next(newest), result.Folders.end(), serves);
  const bool alone = next == result.Folders.end();
  found.description += ": " + inQuotes(newest->Folder.Leaf(true)) +
                       (alone ? ", the only one" : " before " + inQuotes(next->Folder.Leaf(true)));
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

std::string programProblem(const Path& name) {
  if (!isBare(name)) {
    return printable(ExecutableProblem(name), OddBytes::Show);
  }
  return FindAlongPath(name.Text()).empty() ? "is not along PATH" : "";
}

FoundProgram searchProgram(const ModuleLoader& modules, const UID& type, ProcessJob& job) {
  FoundProgram found;
  const auto tryProgram = [&](const Path& name, const char* source, const std::string& what) {
    const std::string problem = programProblem(name);
    if (!problem.empty()) {
      found.searched.push_back(what + ": " + inQuotes(name.Text()) + ' ' + problem);
      return;
    }
    found.program = isBare(name) ? FindAlongPath(name.Text()) : name;
    found.source = source;
    found.description = what + ' ' + inQuotes(name.Text()) + (isBare(name) ? ", found along PATH" : "");
    found.searched.clear();
  };
  const Path option(Application::the_Application->Options().GetValue(type.GenString(), p_Executable, ""));
  if (!option.empty()) {
    tryProgram(option, "option", "the engine's option");
    return found;
  }
  TypeSearch search;
  const bool searches = modules.LatestExecutableSearch(type, search.roots, search.bases, search.exe);
  found.program = job.GetLatestExecutable();
  if (!found.program.empty()) {
    found.source = "search";
    describeFind(search, found);
    return found;
  }
  if (searches) {
    found.searched = searchedInVain(search, found.unreadable);
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
