#include "trovik/works/MissingFrames.h"

#include "host/foundation/FileFinder.h"
#include "trovik/text/UsageError.h"
#include "trovik/works/OutcomeText.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <deque>
#include <list>
#include <memory>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

namespace trovik {
namespace {

/// Coarse file systems keep the times of files to two seconds.
constexpr std::chrono::seconds stampSlack{2};

constexpr std::size_t worksAhead = 64;

/// Whether a file was written before an attempt began, which then did not leave it.
bool isOlder(const FileRecord& file, const AttemptRecord& attempt) {
  const std::chrono::sys_time<std::chrono::nanoseconds> modified{std::chrono::nanoseconds(file.modified)};
  return modified < attempt.started - stampSlack;
}

/// Whether a good looking file is what a failed attempt left. An attempt that
/// did not write it, since it failed before, says nothing of it.
bool isDistrusted(Queue& queue, const FileRecord& file) {
  for (std::optional<FileRecord> last = queue.lastOf(file.path); last;
       last = queue.lastOf(file.path, last->id)) {
    if (last->attempt == 0 || !last->checked || last->size != file.size || last->modified != file.modified) {
      return false;
    }
    const std::optional<AttemptRecord> attempt = queue.attempt(last->attempt);
    if (!attempt || attempt->state == AttemptState::Good || attempt->state == AttemptState::Running) {
      return false;
    }
    if (!isOlder(*last, *attempt)) {
      return !last->problem.empty() || !last->frame || !attempt->good.contains(*last->frame);
    }
  }
  return false;
}

/// Tells which files are there, of names in any order. A finder reads a folder
/// where it is asked for many names in it, but knows one folder at a time, and
/// the files of a frame may lie in several.
class Folders {
public:
  bool hold(const Path& file) {
    const std::string_view name = file.Text();
    const std::string_view folder = name.substr(0, name.rfind('/') + 1); // npos + 1 is 0
    if (last_ == nullptr || last_->name != folder) {
      last_ = &of(folder);
    }
    return last_->finder.FindExact(file);
  }

private:
  static constexpr std::size_t most = 16;
  struct Folder {
    explicit Folder(std::string_view folder) : name(folder) {}
    std::string name;
    FileFinder finder;
  };

  Folder& of(std::string_view folder) {
    const auto known = std::find_if(folders_.begin(), folders_.end(),
                                    [folder](const Folder& other) { return other.name == folder; });
    if (known != folders_.end()) {
      return *known;
    }
    if (folders_.size() == most) {
      folders_.pop_front(); // the names change with the frame, say
    }
    return folders_.emplace_back(folder);
  }

  std::list<Folder> folders_;
  Folder* last_ = nullptr;
};

String fileCheckOf(const Job& job) {
  return job.GetParameterOrOption(p_FileCheck, true, true);
}

/// A work whose files are looked into.
struct Look {
  FrameRun run;
  SmartHandle<Job> job;
  std::unique_ptr<FileInspection> inspection;
};

/// Adds to what is found what the files of a work tell.
void judge(const Look& look, bool hasFrames, Queue& queue, FoundFrames& found) {
  auto* render = dynamic_cast<RenderJob*>(look.job.Get());
  render->SetObserver(look.inspection.get());
  const int status = render->CheckFiles(k_StatusFinished);
  render->SetObserver(nullptr);

  std::vector<FileRecord> files = fileRecords(*render);
  if (!hasFrames || String::EqualNoCase(fileCheckOf(*look.job), "Work")) {
    const bool trusted = std::none_of(files.begin(), files.end(),
                                      [&](const FileRecord& file) { return isDistrusted(queue, file); });
    found.whole = status == k_StatusFinished && !files.empty() && trusted;
    if (!found.whole) {
      return;
    }
    if (hasFrames) {
      found.good.add(look.run);
    }
    found.files.insert(found.files.end(), files.begin(), files.end());
    return;
  }
  RunSet good;
  for (const FrameRun& frames : render->FramesWithGoodFiles()) {
    good.add(frames);
  }
  RunSet distrusted;
  for (const FileRecord& file : files) {
    if (file.frame && good.contains(*file.frame) && isDistrusted(queue, file)) {
      distrusted.add({*file.frame, *file.frame});
    }
  }
  for (const FrameRun& frames : good.runs()) {
    for (const FrameRun& trusted : FramesOutside(frames, distrusted.runs())) {
      found.good.add(trusted);
    }
  }
  std::copy_if(files.begin(), files.end(), std::back_inserter(found.files),
               [&](const FileRecord& file) { return file.frame && found.good.contains(*file.frame); });
}

} // namespace

KnownFiles knownFiles(Queue& queue, JobId job) {
  std::map<int, std::pair<AttemptId, std::vector<std::string>>> newest;
  for (const FileRecord& file : queue.files(job)) {
    if (!file.frame || !file.checked || !file.problem.empty()) {
      continue;
    }
    auto& [attempt, paths] = newest[*file.frame];
    if (attempt != file.attempt) {
      attempt = file.attempt;
      paths.clear();
    }
    paths.push_back(file.path);
  }
  std::map<std::string_view, std::size_t> owners;
  for (const auto& [frame, files] : newest) {
    for (const std::string_view path : std::set<std::string_view>(files.second.begin(), files.second.end())) {
      ++owners[path];
    }
  }
  KnownFiles known;
  for (const auto& [frame, files] : newest) {
    for (const std::string& path : files.second) {
      if (owners[path] == 1) {
        known.emplace(frame, path);
      }
    }
  }
  return known;
}

FoundFrames findGoodFrames(const WorkMaker& works, const std::vector<FrameRun>& runs, bool hasFrames,
                           const KnownFiles& known, Decode decode, Queue& queue, ImageInspector& inspector,
                           Machine& machine) {
  const SmartHandle<Job> whole = works.makeWhole();
  auto* all = dynamic_cast<RenderJob*>(whole.Get());
  if (all == nullptr || String::EqualNoCase(fileCheckOf(*whole), "None")) {
    throw UsageError{"--missing: no file of this type is checked (FileCheck is None)", "leave --missing out"};
  }
  // Whether an image of one colour was refused then is not known.
  const Decode spared =
      whole->GetParameterOrOption(p_RefuseFlatImages, true, true).Bool() ? Decode::All : decode;
  const auto wasGood = [&](const std::string& file) {
    const std::optional<FileRecord> last = spared == Decode::All ? std::nullopt : queue.lastOf(file);
    return last && last->checked && last->problem.empty() && isSpared(*last, spared);
  };
  RenderJob::ExpectedFileReader names(*all);
  Folders folders;
  FoundFrames found;
  bool isFirst = true; // of which all is done, since the job may be refused
  // Several works are looked into at a time, so that files wait for each program
  // that looks into them, whatever the packets; they are judged in their order.
  std::deque<Look> looks;
  const auto judgeFirst = [&] {
    waitFor(*looks.front().inspection, inspector, machine);
    judge(looks.front(), hasFrames, queue, found);
    looks.pop_front();
  };
  for (const FrameRun& run : runs) {
    if (hasFrames) {
      whole->SetParameter(p_SubRange, run.Text());
    }
    const std::vector<Path> expected = names.Read();
    if (!expected.empty() && std::none_of(expected.begin(), expected.end(),
                                          [&](const Path& file) { return folders.hold(file); })) {
      continue; // nothing to be checked
    }
    const auto firstKnown = known.lower_bound(run.First);
    if (expected.empty() && (firstKnown == known.end() || firstKnown->first > run.Last) &&
        !std::exchange(isFirst, false)) {
      continue; // the same
    }
    WorkInfo work;
    work.run = run;
    work.hasFrames = hasFrames;
    const SmartHandle<Job> job = works.make(work);
    auto* render = dynamic_cast<RenderJob*>(job.Get());
    if (expected.empty()) {
      for (auto file = firstKnown; file != known.end() && file->first <= run.Last; ++file) {
        render->ProcessNewFilename(Path(file->second));
      }
    }
    looks.push_back({run, job, std::make_unique<FileInspection>(inspector, *render, wasGood)});
    if (looks.size() > worksAhead) {
      judgeFirst();
    }
  }
  while (!looks.empty()) {
    judgeFirst();
  }
  return found;
}

} // namespace trovik
