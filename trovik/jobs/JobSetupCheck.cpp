#include "trovik/jobs/JobSetup.h"

#include "host/application/Expansion.h"
#include "host/application/jobs/RenderJob.h"
#include "trovik/jobs/Types.h"
#include "trovik/jobs/WorkMaker.h"
#include "trovik/machine/Locations.h"
#include "trovik/records/RunSet.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <map>
#include <optional>

// Whether a job that is set up can be started as a whole: what would make every
// work fail alike is told before any of them begins.

namespace trovik {
namespace {

constexpr const char* commandString = "CommandString";

/// Whether a command line cannot do without a value of the parameter: it
/// refers to it without one of the commands that make it optional.
bool dependsOn(const String& command, std::string_view name) {
  for (std::size_t at = command.find("$("); at != String::npos; at = command.find("$(", at + 2)) {
    if (at > 0 && command[at - 1] == '$') {
      continue;
    }
    const std::string_view rest = std::string_view(command).substr(at + 2);
    const std::size_t end = rest.find_first_of(".)");
    if (end == std::string_view::npos || !String::EqualNoCase(rest.substr(0, end), name)) {
      continue;
    }
    const std::string_view commands = rest.substr(end, rest.find("$(") - end);
    bool optional = false;
    for (const char* word : {".default(", ".prefix(", ".suffix(", ".option(", ".if("}) {
      optional = optional || String(commands).Lower().find(word) != String::npos;
    }
    if (!optional) {
      return true;
    }
  }
  return false;
}

/// Refuses a scene file whose name the type's program does not take. What its
/// folders are called is another matter.
void refuseName(const UID& type, const NameLetters& refused, const Path& scene, bool ofSequence) {
  const String name = scene.Leaf(true);
  const std::size_t place = refused.FindIn(name);
  if (place != String::npos) {
    throw UsageError{inQuotes(typeTitle(type)) + " does not take the scene file " + inQuotes(scene.Text()) +
                         ": its name holds " + printable(NameLetters::Describe(name, place), OddBytes::Show),
                     ofSequence ? "rename the files of the sequence without it"
                                : "rename the file without it"};
  }
}

} // namespace

void JobSetup::check() const {
  checkScene();
  if (!job_->IsValid()) {
    const String note = job_->Get(p_Note, true);
    if (note.starts_with(String(p_Range) + ": a value is required")) {
      throw UsageError{note, "name the frames with --range, such as 1-24"};
    }
    if (note.starts_with(String(p_OutputFolder) + ": a value is required")) {
      throw UsageError{note, "name the folder with --out"};
    }
    throw UsageError{note, "set it with --set NAME=VALUE; \"trovik type\" lists the parameters"};
  }
  orRefuse("", "", [&] { return job_->DoGetDistributor(); });
  checkFiles();
  if (const String format = job_->GetParameterOrOption(sceneNameFormat, true, true); !format.empty()) {
    checkSequence(format);
  } else {
    refuseName(type_, refusedInSceneNames(), job_->GetParameterOrOption(p_Scene, true, true), false);
    checkAlone();
  }
}

/// A scene that was taken alone though others lie beside it, with several
/// frames: each of them would be rendered from this one file, which is seldom
/// meant.
void JobSetup::checkAlone() const {
  const RunSet frames = rangeFrames(effectiveValue(*job_, p_Range));
  if (frames.empty()) {
    return;
  }
  const SequenceAccount account = sequence();
  if (!account.leftOut || (frames.count() == 1 && account.frame && frames.contains(*account.frame))) {
    return;
  }
  const std::string scene = inQuotes(Path(job_->GetParameterOrOption(p_Scene, true, true)).Leaf(true));
  throw UsageError{"no sequence was found for " + scene +
                       ", though such files lie beside it: " + account.reason,
                   account.hint + (account.hint.empty() ? "" : "; ") +
                       "--set CheckForMultipleFiles=No renders " + scene + " alone for all frames"};
}

void JobSetup::checkScene() const {
  if (!job_->GetParameterOrOption(p_Scene, true, true).empty()) {
    return;
  }
  const String command = job_->GetParameterOrOption(commandString, true, true);
  const bool sequence = !job_->GetParameterOrOption(sceneNameFormat, true, true).empty();
  if (dependsOn(command, p_Scene) || (!sequence && dependsOn(command, "ActualScene"))) {
    throw UsageError{inQuotes(typeTitle(type_)) + " needs a scene file",
                     "name it after the type: trovik run TYPE SCENE"};
  }
}

/// One frame, one file: what works of many frames would overwrite in turn is
/// told before any of them starts. What differs for the first frames and is the
/// same later on shows when an attempt ends.
void JobSetup::checkFiles() const {
  constexpr std::size_t comparedRuns = 1000;
  auto* render = dynamic_cast<RenderJob*>(job_.Get());
  String rule = effectiveValue(*job_, p_FileCheck);
  rule.Trim();
  if (render == nullptr || String::EqualNoCase(rule, "None") ||
      job_->GetParameterOrOption(p_ExpectedFiles, true, true).empty()) {
    return;
  }
  const bool perWork = String::EqualNoCase(rule, "Work");
  const std::unique_ptr<Distributor> works = orRefuse("", "", [&] { return job_->DoGetDistributor(); });
  std::map<std::string, FrameRun> owners;
  std::size_t compared = 0;
  const auto compare = [&](const FrameRun& run) {
    ++compared;
    job_->SetParameter(p_SubRange, run.Text());
    const std::vector<Path> files = orRefuse("", "", [&] { return render->ExpectedFiles(); });
    job_->SetParameter(p_SubRange, String::Null);
    for (const Path& file : files) {
      const auto [owner, isNew] = owners.emplace(file.Text(), run);
      if (!isNew) {
        refuseShared(file, owner->second, run, perWork);
      }
    }
  };
  bool hasFrames = false;
  for (FrameRun run; compared < comparedRuns && works->Next(run, hasFrames) && hasFrames;) {
    if (perWork) {
      compare(run);
      continue;
    }
    for (std::int64_t frame = run.First; frame <= run.Last && compared < comparedRuns; ++frame) {
      compare({static_cast<int>(frame), static_cast<int>(frame)});
    }
  }
}

void JobSetup::refuseShared(const Path& file, const FrameRun& one, const FrameRun& other,
                            bool perWork) const {
  const std::string both = inQuotes(file.Text());
  if (perWork) {
    throw UsageError{"the works for frames " + one.Text() + " and " + other.Text() + " would both write " +
                         both,
                     "choose frames without a gap with --range, in one packet"};
  }
  const bool byScene =
      job_->GetParameterOrOption(sceneNameFormat, true, true).empty() &&
      job_->GetParameterOrOption(p_ExpectedFiles, true, true).Lower().find("$(actualscene") != String::npos;
  throw UsageError{"frames " + std::to_string(one.First) + " and " + std::to_string(other.First) +
                       " would both write " + both,
                   byScene
                       ? "its name is that of the scene, which is one file: leave --range out, or pick a "
                         "file of a numbered sequence"
                       : "name the frame in ExpectedFiles by $(Frame.Pad(4)), or set FileCheck=Work where "
                         "one file holds them all"};
}

NameLetters JobSetup::refusedInSceneNames() const {
  const auto* render = dynamic_cast<const RenderJob*>(job_.Get());
  return render == nullptr ? NameLetters() : orRefuse("", "", [&] { return render->RefusedInSceneNames(); });
}

void JobSetup::checkSequence(const String& format) const {
  // A name with a pattern of its own can lead detection to other files.
  const Path picked(job_->GetParameterOrOption(p_Scene, true, true));
  if (!picked.empty() && !fixed_.contains(sceneNameFormat)) {
    const std::optional<int> frame = frameOfScene(picked);
    if (!frame || sequenceScene(format, *frame) != picked) {
      throw UsageError{"the sequence that was found, " + inQuotes(format) + ", does not hold the scene " +
                           inQuotes(picked.Leaf(true)),
                       "--set CheckForMultipleFiles=No takes the scene alone"};
    }
  }
  const std::unique_ptr<Distributor> works = job_->DoGetDistributor();
  const NameLetters refused = refusedInSceneNames();
  FrameRun run;
  bool hasFrames = false;
  RunSet missing;
  Path firstMissing;
  while (works->Next(run, hasFrames)) {
    if (!hasFrames) {
      throw UsageError{"the scene is a sequence of files, but there is no frame range",
                       "add --range, such as 1-24"};
    }
    if (run.First < 0) {
      throw UsageError{"a sequence of scene files cannot have negative frames such as " +
                           std::to_string(run.First) +
                           ": the range text of a work has no place for their sign",
                       "choose frames from 0 on with --range"};
    }
    for (std::int64_t frame = run.First; frame <= run.Last; ++frame) {
      const Path scene = sequenceScene(format, static_cast<int>(frame));
      refuseName(type_, refused, scene, true);
      if (!FileProblem(scene).empty() && !isToCome(scene)) {
        firstMissing = missing.empty() ? scene : firstMissing;
        missing.add({static_cast<int>(frame), static_cast<int>(frame)});
      }
    }
  }
  if (!missing.empty()) {
    const std::size_t count = missing.count();
    throw UsageError{counted(count, "frame") + " of the range " + (count == 1 ? "has" : "have") +
                         " no scene file: " + missing.text(20) + " (the first would be " +
                         inQuotes(firstMissing.Text()) + ")",
                     "choose the frames that exist with --range"};
  }
}

} // namespace trovik
