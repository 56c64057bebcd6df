#include "trovik/cluster/StagedOutput.h"

#include "host/application/Expansion.h"
#include "host/application/FileName.h"
#include "host/application/JobFactory.h"
#include "host/application/jobs/ExecutableSearch.h"
#include "host/application/jobs/NoteText.h"
#include "host/application/jobs/ProcessJob.h"
#include "host/foundation/Exception.h"
#include "host/foundation/Log.h"
#include "host/foundation/WriteFile.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/works/MissingFrames.h"
#include "trovik/works/OutcomeText.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <set>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace trovik {
namespace {

constexpr const char* stagePrefix = ".trovik-";

/// The output folder of a work, as its job has it.
struct OutputFolder {
  String text; ///< as the program is given it; empty for none
  bool literal = false;
  Path start; ///< what a relative one counts from
  Path path;  ///< absolute
};

OutputFolder outputFolderOf(const Job& job) {
  OutputFolder folder;
  try {
    const ParameterInfo* info =
        JobFactory::s_JobFactory->GetTypeParameterInfo(job.Type(), p_OutputFolder, false);
    folder.literal = info != nullptr && info->IsLiteral();
    const String value = job.GetParameterOrOption(p_OutputFolder, true, true);
    folder.text = folder.literal ? value : job.FormatStringWithParameters(value);
    if (const auto* process = dynamic_cast<const ProcessJob*>(&job); process != nullptr) {
      folder.start = process->DetermineStartDirectory();
    }
  } catch (Exception* exception) {
    LogDebug(takeText(exception));
    folder.text.clear();
  }
  if (!folder.text.empty()) {
    folder.path = MakeAbsolute(folder.text, folder.start.empty() ? Path() : MakeAbsolute(folder.start));
  }
  return folder;
}

std::string componentOf(const std::string& mark) {
  return std::string("/") + stagePrefix + mark;
}

Path stageIn(const OutputFolder& folder, const std::string& mark) {
  Path stage = folder.path;
  return folder.text.empty() ? Path() : stage /= String(stagePrefix + mark);
}

std::string textOf(int error) {
  return std::error_code(error, std::generic_category()).message();
}

/// The names of all files and links below a folder, relative to it.
std::vector<std::string> filesBelow(const Path& folder) {
  std::vector<std::string> files;
  std::error_code error;
  const std::filesystem::path root(folder.Text().c_str());
  for (std::filesystem::recursive_directory_iterator entry(root, error), end; !error && entry != end;
       entry.increment(error)) {
    struct stat status {};
    const std::string path = entry->path().string();
    if (lstat(path.c_str(), &status) == 0 && (S_ISREG(status.st_mode) || S_ISLNK(status.st_mode))) {
      files.push_back(path.substr(root.native().size() + (root.native().ends_with('/') ? 0 : 1)));
    }
  }
  return files;
}

/// 0, or the reason.
int makeFolderOf(const Path& file) {
  std::error_code error;
  std::filesystem::create_directories(file.Branch(true, true).c_str(), error);
  return error.value();
}

/// For a folder that leads to another file system.
int copyOver(const Path& from, const Path& to, const struct stat& status) {
  FileDraft draft(to, Existing::Replace);
  if (draft.Error() != 0) {
    return draft.Error();
  }
  std::error_code error;
  std::filesystem::copy_file(from.Text().c_str(), draft.Name().Text().c_str(),
                             std::filesystem::copy_options::overwrite_existing, error);
  const timespec times[2] = {status.st_atim, status.st_mtim};
  if (!error && utimensat(AT_FDCWD, draft.Name().c_str(), times, 0) != 0) {
    error.assign(errno, std::generic_category());
  }
  if (error || draft.Publish() != 0) {
    return error ? error.value() : draft.Error();
  }
  unlink(from.c_str());
  return 0;
}

/// Whether a text begins with what a mark can hold, but for a point.
bool isPartOfMark(std::string_view text) {
  return !text.empty() && ((text[0] >= '0' && text[0] <= '9') || (text[0] >= 'a' && text[0] <= 'z') ||
                           (text[0] >= 'A' && text[0] <= 'Z') || text[0] == '-' || text[0] == '_');
}

enum class Present { Replace, Keep };

/// Gives a file its other name; 0, or the reason.
int moveFile(const Path& from, const Path& to, Present present) {
  if (const int reason = makeFolderOf(to); reason != 0) {
    return reason;
  }
  struct stat status {};
  if (present == Present::Keep && lstat(to.c_str(), &status) == 0) {
    return EEXIST;
  }
  if (std::rename(from.c_str(), to.c_str()) == 0) {
    return 0;
  }
  const int reason = errno;
  if (reason == EXDEV && lstat(from.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
    return copyOver(from, to, status);
  }
  return reason;
}

void takeFrames(Outcome& outcome, const RunSet& bad) {
  RunSet good;
  for (const FrameRun& run : outcome.good.runs()) {
    for (const FrameRun& left : FramesOutside(run, bad.runs())) {
      good.add(left);
    }
  }
  outcome.good = good;
}

} // namespace

StagedOutput::StagedOutput(Job& job, const std::string& mark) {
  const OutputFolder folder = outputFolderOf(job);
  if (folder.text.empty()) {
    return;
  }
  String before;
  job.GetParameter(p_OutputFolder, before);
  // In the form that the user wrote, so that what the program says of its files
  // is what it would say without a stage.
  const bool slash = folder.text.ends_with('/');
  const String text = folder.text + (slash ? "" : "/") + stagePrefix + mark + (slash ? "/" : "");
  job.SetParameter(p_OutputFolder, folder.literal ? text : EscapeReferences(text));
  if (!Path(folder.text).IsAbsolute() && outputFolderOf(job).start != folder.start) {
    job.SetParameter(p_OutputFolder, before); // where it starts follows the output folder
    return;
  }
  const Path stage = stageIn(folder, mark);
  std::error_code error;
  std::filesystem::create_directories(stage.Text().c_str(), error);
  struct stat status {};
  if (!error && lstat(stage.c_str(), &status) != 0) {
    error = std::error_code(errno, std::generic_category());
  } else if (!error && !S_ISDIR(status.st_mode)) {
    error = std::make_error_code(std::errc::not_a_directory);
  }
  if (error) {
    RaiseException("StagedOutput", k_ErrorSystem,
                   "Cannot create folder \"" + NoteName(folder.path) + "\": " + error.message());
  }
  stage_ = stage;
  output_ = folder.path;
  component_ = componentOf(mark);
}

Path StagedOutput::stageOf(const Job& job, const std::string& mark) {
  return stageIn(outputFolderOf(job), mark);
}

void StagedOutput::takeOver(const std::string& mark) {
  const Path stage(output_.Text() + componentOf(mark));
  struct stat status {};
  if (!isUsed() || stage == stage_ || lstat(stage.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
    return;
  }
  // Not the folder as a whole: on a network file system a process may still
  // hold on to it under its old name.
  for (const std::string& name : filesBelow(stage)) {
    const Path from(stage.Text() + "/" + name);
    if (const int reason = moveFile(from, Path(stage_.Text() + "/" + name), Present::Replace); reason != 0) {
      LogWarning("cannot take over " + inQuotes(from.Text()) + ": " + textOf(reason));
    }
  }
  std::error_code ignored;
  std::filesystem::remove_all(stage.Text().c_str(), ignored);
}

std::string StagedOutput::nameFrom(const std::string& mark, const std::string& file) const {
  std::string name = file;
  const std::string component = componentOf(mark);
  if (const std::size_t at = name.find(component + "/"); isUsed() && at != std::string::npos) {
    name.replace(at, component.size(), component_);
  }
  return name;
}

void StagedOutput::takeBack(const std::vector<std::string>& names, const FilesBefore& before) const {
  for (const std::string& name : names) {
    const std::string part = partIn(name);
    struct stat status {};
    if (part.empty() || !CanBeAName(Path(name)) || lstat(name.c_str(), &status) == 0) {
      continue;
    }
    const Path inStage(stage_.Text() + "/" + part);
    const Path moved(output_.Text() + "/" + part);
    if (lstat(moved.c_str(), &status) == 0 && S_ISREG(status.st_mode) && before.IsWritten(moved, status) &&
        makeFolderOf(inStage) == 0 && link(moved.c_str(), inStage.c_str()) != 0) {
      LogDebug("cannot take back " + moved.Text() + ": " + textOf(errno));
    }
  }
}

/// What follows the stage in the name of a file; empty for one elsewhere.
std::string StagedOutput::partIn(const std::string& file) const {
  const std::size_t at = isUsed() ? file.find(component_ + "/") : std::string::npos;
  if (at == std::string::npos) {
    return {};
  }
  std::string part =
      std::filesystem::path(file.substr(at + component_.size() + 1)).lexically_normal().string();
  part.erase(0, part.find_first_not_of('/'));
  return part == "." || part == ".." || part.starts_with("../") ? std::string() : part;
}

std::string StagedOutput::finalName(const std::string& file) const {
  if (isUsed() && file.find(component_ + "/") != std::string::npos && partIn(file).empty()) {
    return std::filesystem::path(file).lexically_normal().string(); // "STAGE/../x" is elsewhere
  }
  return finalText(file);
}

std::string StagedOutput::finalText(std::string text) const {
  for (std::size_t at = 0; isUsed() && (at = text.find(component_, at)) != std::string::npos;) {
    const std::string_view rest = std::string_view(text).substr(at + component_.size());
    if (isPartOfMark(rest) || (rest.starts_with('.') && isPartOfMark(rest.substr(1)))) {
      at += component_.size(); // another stage, whose mark begins alike
    } else {
      text.erase(at, component_.size());
    }
  }
  return text;
}

void StagedOutput::rename(Outcome& outcome) const {
  outcome.reason = finalText(std::move(outcome.reason));
  for (std::string& line : outcome.lines) {
    line = finalText(std::move(line));
  }
  outcome.command = finalText(std::move(outcome.command));
  if (!outcome.alike.empty()) {
    outcome.alike = alikeKey(outcome.reason);
  }
  for (FileRecord& file : outcome.files) {
    file.path = finalName(file.path);
    file.problem = finalText(std::move(file.problem));
  }
}

bool StagedOutput::publish(Outcome& outcome, const std::function<bool()>& mayGoOn) {
  if (!isUsed()) {
    return true;
  }
  std::multimap<std::string, FileRecord*> records;
  for (FileRecord& file : outcome.files) {
    if (std::string part = partIn(file.path); !part.empty()) {
      records.emplace(std::move(part), &file);
    }
  }
  const bool whole = outcome.state == AttemptState::Good;
  bool stuck = false;
  RunSet bad;
  std::string problem;
  for (const std::string& name : filesBelow(stage_)) {
    if (mayGoOn && !mayGoOn()) {
      discard();
      return false;
    }
    const auto [first, last] = records.equal_range(name);
    bool replaces = whole;
    for (auto record = first; record != last; ++record) {
      const FileRecord& file = *record->second;
      replaces = replaces || (file.problem.empty() && file.frame && outcome.good.contains(*file.frame));
    }
    const Path final(output_.Text() + "/" + name);
    const int reason =
        moveFile(Path(stage_.Text() + "/" + name), final, replaces ? Present::Replace : Present::Keep);
    if (reason == 0 || (reason == EEXIST && !replaces)) {
      continue;
    }
    stuck = true;
    LogWarning("cannot move " + inQuotes(stage_.Text() + "/" + name) + " to " + inQuotes(final.Text()) +
               ": " + textOf(reason));
    for (auto record = first; record != last && replaces; ++record) {
      FileRecord& file = *record->second;
      file.problem = "Cannot be moved to its place (" + textOf(reason) + ")";
      if (problem.empty()) {
        problem = file.problem + ": " + NoteName(final);
      }
      if (file.frame) {
        bad.add({*file.frame, *file.frame});
      } else {
        bad.add(outcome.good);
      }
    }
  }
  takeFrames(outcome, bad);
  if (!problem.empty() && whole) {
    outcome.state = AttemptState::Failed;
    outcome.rule = VerdictRule::Files;
    outcome.reason = problem;
    outcome.alike = alikeKey(problem);
  }
  rename(outcome);
  if (!stuck) {
    discard();
  }
  return true;
}

void StagedOutput::discard() {
  remove(stage_);
}

void StagedOutput::remove(const Path& stage) {
  if (stage.IsAbsolute() && stage.Leaf(true).starts_with(stagePrefix)) {
    std::error_code ignored;
    std::filesystem::remove_all(stage.Text().c_str(), ignored);
  }
}

} // namespace trovik
