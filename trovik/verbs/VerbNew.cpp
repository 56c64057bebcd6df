#include "host/foundation/FileFinder.h"
#include "host/foundation/IniFile.h"
#include "host/foundation/Quoting.h"
#include "host/foundation/WriteFile.h"
#include "trovik/jobs/Types.h"
#include "trovik/machine/Locations.h"
#include "trovik/newtype/TypeDraft.h"
#include "trovik/text/Console.h"
#include "trovik/text/Json.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/Verbs.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <system_error>
#include <unistd.h>

namespace trovik {
namespace {

bool isThere(const Path& path) {
  std::error_code error;
  return std::filesystem::symlink_status(path.Text().c_str(), error).type() !=
         std::filesystem::file_type::not_found;
}

/// The file to be written; empty for standard output.
Path targetOf(const Session& session, const std::optional<std::string>& named, const std::string& name) {
  const std::string leaf = shortName(name) + ".tvx";
  if (!named) {
    Path file = session.locations().ownModules();
    return file /= leaf;
  }
  if (*named == "-") {
    return {};
  }
  if (named->empty()) {
    throw UsageError{"--out: the name of the file is empty", "leave it out for the usual one"};
  }
  Path file = absolutePath(*named);
  if (IsDirectory(file) || named->back() == '/') {
    return file /= leaf;
  }
  if (!String(*named).Lower().ends_with(".tvx")) {
    throw UsageError{"--out: " + inQuotes(*named) + " does not end with .tvx", "files of types do"};
  }
  return file;
}

/// The ID of the type that a file holds, as text; empty where it holds none.
String idIn(const Path& file) {
  IniFile old;
  old.SetFilename(file);
  try {
    old.Load(false, true);
  } catch (Exception* exception) {
    takeText(exception);
  }
  return old.GetValue("Module", "ID", "");
}

/// Whether another type than the one in the file that is replaced answers to
/// the name.
bool isTaken(const std::string& name, const Path& replaced) {
  const std::vector<UID> found = JobFactory::s_JobFactory->FindTypes(name);
  const String own = replaced.empty() ? String() : idIn(replaced);
  return std::any_of(found.begin(), found.end(),
                     [&](const UID& type) { return !String::EqualNoCase(type.GenString(), own); });
}

/// A program as users type it: "~/" is their home, and a relative path counts
/// from here.
std::string programPath(const std::string& program) {
  if (const auto home = environmentVariable("HOME"); home && program.starts_with("~/")) {
    return *home + program.substr(1);
  }
  return program.find('/') == std::string::npos ? program : std::string(absolutePath(program).Text());
}

AskFunction asker(Console& console) {
  return [&console](const std::string& question) -> std::optional<std::string> {
    console.printError(question);
    std::string line;
    if (!std::getline(std::cin, line)) {
      console.printError("\n");
      return std::nullopt;
    }
    return line;
  };
}

void makeDirectory(const Path& directory) {
  std::error_code error;
  std::filesystem::create_directories(directory.Text().c_str(), error);
  if (error) {
    throw UsageError{"cannot make " + inQuotes(directory.Text()) + ": " + error.message(),
                     "name another place with -o FILE"};
  }
}

/// What each frame must leave, as it was guessed from the answers.
std::string filesText(const TypeAnswers& answers) {
  const std::vector<String> files = expectedFilesOf(answers);
  return !answers.imageText.empty() ? "those that the program names behind " + inQuotes(answers.imageText)
         : files.empty()            ? "none known, so none is checked; write ExpectedFiles into the type"
                                    : joined({files.begin(), files.end()}, ", ");
}

/// Whether types of the directory are found by a program started as this one.
bool isOnModulePath(const Session& session, const Path& directory) {
  std::error_code error;
  const std::filesystem::path real = std::filesystem::canonical(directory.Text().c_str(), error);
  const auto& path = session.modulePath();
  if (std::any_of(path.begin(), path.end(),
                  [&](const Path& one) { return one.Text() == String(real.string()); })) {
    return true;
  }
  // The user's own directory may not have been there when the path was made.
  return !session.options().modulePath && !environmentVariable("TROVIK_MODULE_PATH") &&
         directory.Text() == session.locations().ownModules().Text();
}

} // namespace

int makeType(Session& session, const NewOptions& options) {
  Console& console = session.console();
  const std::string& name = *options.type;
  std::string plainName = name;
  if (String(plainName).Lower().ends_with(".tvx") && plainName.find('/') == std::string::npos) {
    plainName.resize(plainName.size() - 4);
  }
  checkTypeName(plainName);
  const Path file = targetOf(session, options.file, plainName);
  const auto refuseExisting = [&] {
    throw UsageError{inQuotes(file.Text()) + " is there already",
                     "choose another name, or another file with -o; --force replaces it"};
  };
  if (!options.force && !file.empty() && isThere(file)) {
    refuseExisting();
  }
  if (isTaken(plainName, file)) {
    throw UsageError{"there is a job type " + inQuotes(plainName) + " already",
                     "choose another name; \"trovik type " + EnquoteWord(plainName) + "\" shows it"};
  }

  const bool asks = !options.yes && isatty(STDIN_FILENO) == 1 && console.traits().errorTerminal;
  if (asks) {
    console.printError("A new job type, " + console.shownError(plainName) +
                       ". Enter takes what stands in brackets.\n\n");
  }
  TypeAnswers answers = completeAnswers(plainName, options, asks ? asker(console) : AskFunction(),
                                        [&](const UsageError& error) { printRefusal(console, error); });
  answers.program = programPath(answers.program);

  const UID id(true);
  std::string shortcut = shortName(answers.name);
  if (String::EqualNoCase(shortcut, answers.name) || isTaken(shortcut, file)) {
    shortcut.clear();
  }
  const std::string text = typeFileText(answers, id, shortcut);
  if (file.empty()) {
    console.print(text);
    return exitGood;
  }
  const Path directory = file.Branch(true, true);
  makeDirectory(directory);
  const bool written = orRefuse("", "", [&] {
    return WriteFileWhole("trovik new", file, text, options.force ? Existing::Replace : Existing::Keep);
  });
  if (!written) {
    refuseExisting();
  }
  for (const String& shared : sharedFilesOf(answers)) {
    printWarning(console,
                 {inQuotes(shared) + " is one file for all frames, and no two frames may share one",
                  "let the program number its files, or write FileCheck=Work into the type where one "
                  "file holds them all"});
  }
  const bool found = isOnModulePath(session, directory);
  if (options.json) {
    Json document = jsonOfKind("new");
    document["name"] = answers.name;
    document["id"] = id.GenString();
    document["file"] = file.Text();
    document["expectedFiles"] = Json::array();
    for (const String& expected : expectedFilesOf(answers)) {
      document["expectedFiles"].push_back(expected);
    }
    document["found"] = found;
    console.print(jsonDocument(document));
    return exitGood;
  }
  const std::string shortest = shortcut.empty() ? answers.name : shortcut;
  console.print("type   " + console.shown(file.Text()) + "\nfiles  " + console.shown(filesText(answers)) +
                "\nNext: trovik check " + console.shown(EnquoteWord(file.Text())) + "\n      trovik run " +
                console.shown(EnquoteWord(shortest)) + (answers.scene == "none" ? "" : " SCENE") +
                " --dry-run" +
                (found ? "" : " --module-path " + console.shown(EnquoteWord(directory.Text() + ":"))) + "\n");
  return exitGood;
}

} // namespace trovik
