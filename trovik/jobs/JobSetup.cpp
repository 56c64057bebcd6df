#include "trovik/jobs/JobSetup.h"

#include "host/application/Expansion.h"
#include "host/application/jobs/ExecutableSearch.h"
#include "host/application/jobs/RenderJob.h"
#include "host/foundation/FileFinder.h"
#include "host/foundation/Log.h"
#include "trovik/jobs/Types.h"
#include "trovik/jobs/WorkMaker.h"
#include "trovik/machine/Locations.h"
#include "trovik/records/RunSet.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <system_error>

namespace trovik {
namespace {

constexpr const char* commandString = "CommandString";

/// The frames of a range; none of a text that is none, such as one with
/// references.
RunSet framesOf(const String& range) {
  RunSet frames;
  try {
    for (const FrameRun& run : FrameSet::Parse(range).Split(static_cast<int>(FrameSet::k_CountLimit))) {
      frames.add(run);
    }
  } catch (Exception* exception) {
    LogDebug(takeText(exception));
  }
  return frames;
}

/// The names whose "$(" the host's own expansion from a map leaves alone.
bool isEscapedByHost(const String& name) {
  return String::EqualNoCase(name, p_Scene) || String::EqualNoCase(name, p_Name) ||
         String::EqualNoCase(name, p_Executable) || String::EqualNoCase(name, sceneNameFormat);
}

/// Whether references in a parameter's value are left alone: picked files, and
/// the names from outside that the host never expands.
bool isPlain(const ParameterInfo* info, const String& name) {
  if (info != nullptr && info->IsLiteral()) {
    return true;
  }
  return isEscapedByHost(name);
}

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

JobSetup::JobSetup(const UID& type, DetectFunction detect)
    : type_(type), detect_(std::move(detect)), job_(JobFactory::s_JobFactory->CreateJob(type)) {}

void JobSetup::setScene(const std::string& scene) {
  if (scene.empty()) {
    throw UsageError{"the name of the scene is empty", "name the scene file"};
  }
  const Path path = absolutePath(scene);
  // Programs that are given a folder or a pipe may wait, or work, for ever.
  const String problem = FileProblem(path);
  const bool missing = problem == "does not exist";
  if (missing && !isToCome(path)) {
    throw UsageError{"there is no scene file " + inQuotes(path.Text()), "check the name and the directory"};
  }
  if (!missing && !problem.empty()) {
    throw UsageError{"the scene " + inQuotes(path.Text()) + ' ' + printable(problem, OddBytes::Show),
                     "name the scene file"};
  }
  give(findParameter(type_, p_Scene), path.Text(), "SCENE");
}

/// Whether a job that is waited for is going to write such a file. What it is
/// called but for its number only that job knows, once it runs.
bool JobSetup::isToCome(const Path& scene) const {
  const std::optional<int> frame = frameOfScene(scene);
  return std::any_of(toCome_.begin(), toCome_.end(), [&](const ScenesToCome& scenes) {
    return scene.Branch(true, true) == scenes.folder.Text() &&
           (scenes.frames.empty() || (frame && scenes.frames.contains(*frame)));
  });
}

void JobSetup::set(const std::string& name, const std::string& value, const std::string& origin) {
  const ParameterInfo& info = findParameter(type_, name);
  if (info.Type() == ParameterInfo::k_Heading) {
    throw UsageError{origin + ": " + inQuotes(info.Name) + " is a heading and has no value",
                     "\"trovik type\" lists the parameters below it"};
  }
  if ((info.Flags & (ParameterInfo::k_ReadOnly | ParameterInfo::k_Internal)) != 0) {
    throw UsageError{origin + ": this type does not let users set " + inQuotes(info.Name), "leave it out"};
  }
  if (String::EqualNoCase(info.Name, p_Scene)) {
    setScene(value);
    return;
  }
  String why;
  if (!info.Accepts(value, why)) {
    throw UsageError{origin + ": " + why, {}};
  }
  // A program may be named without its directory; it is then looked up along PATH.
  const bool bareProgram =
      String::EqualNoCase(info.Name, p_Executable) && value.find('/') == std::string::npos;
  const bool picked = info.Type() == ParameterInfo::k_File && !value.empty() && !bareProgram;
  give(info, picked ? std::string(absolutePath(value).Text()) : value, origin);
}

void JobSetup::setAll(const std::vector<std::string>& assignments) {
  for (const std::string& text : assignments) {
    const auto [name, value] = splitAssignment(text);
    set(name, value, "--set " + printable(name, OddBytes::Show));
  }
}

void JobSetup::setOutputFolder(const std::string& folder) {
  if (folder.empty()) {
    throw UsageError{"--out: the name of the folder is empty", "name the folder for the images"};
  }
  const Path path = absolutePath(folder);
  std::error_code error;
  if (exists(path) && !std::filesystem::is_directory(path.Text().c_str(), error)) {
    throw UsageError{"--out: " + inQuotes(path.Text()) + " is no folder",
                     "name a folder; it is made where it is missing"};
  }
  give(findParameter(type_, p_OutputFolder), EscapeReferences(path.Text()), "--out");
}

void JobSetup::give(const ParameterInfo& info, const std::string& value, const std::string& origin) {
  if (!job_->SetParameter(info.Name, value)) {
    throw UsageError{origin + ": a job of this type does not take " + inQuotes(info.Name), "leave it out"};
  }
  fixed_.insert(info.Name);
  given_.push_back(info.Name);
}

void JobSetup::detect() {
  const auto isScene = [](const String& name) { return String::EqualNoCase(name, p_Scene); };
  const FilesToCome toCome([this](const Path& file) { return isToCome(file); });
  std::stable_partition(given_.begin(), given_.end(), isScene);
  for (const String& name : given_) {
    detect(name);
  }
}

/// The values in force, as the module is shown them.
std::map<String, String> JobSetup::values() const {
  const JobTypeInfo& description = *JobFactory::s_JobFactory->GetTypeInfo(type_, false);
  std::map<String, String> values;
  for (std::size_t i = 0; i < description.ParamCount(); ++i) {
    const ParameterInfo& info = *description.GetParam(static_cast<unsigned long>(i));
    if (info.Type() != ParameterInfo::k_Heading) {
      const String value = job_->GetParameterOrOption(info.Name, true, true);
      // The map tells no kinds, so picked files are written such that rules
      // that use them leave a "$(" in them alone.
      values[info.Name] =
          isPlain(&info, info.Name) && !isEscapedByHost(info.Name) ? EscapeReferences(value) : value;
    }
  }
  return values;
}

/// What the user said; jobs carry the type's defaults as well.
SequenceSettings JobSetup::ownSettings() const {
  const auto own = [this](const char* name) {
    return fixed_.contains(name) ? job_->GetParameterOrOption(name, false, false) : String();
  };
  return {own(SequenceSettings::searchKey), own(SequenceSettings::digitsKey)};
}

void JobSetup::callModule(const SequenceSettings& settings, const String& changed,
                          std::map<String, String>& values) const {
  const std::map<String, String> shown = values;
  try {
    settings.detect(detect_, type_, changed, values);
  } catch (Exception* exception) {
    const std::string why = takeText(exception);
    // A value that cannot be read is the user's to mend, not the type's.
    for (const String& name : given_) {
      orRefuse(std::string(name) + ": ", "", [&] { Job::FormatStringWithParameters(shown.at(name), shown); });
    }
    throw UsageError{"detection for " + changed + " failed: " + why,
                     "the type's [AutoDetect] section may be wrong"};
  }
}

void JobSetup::detect(const String& changed) {
  const JobTypeInfo& description = *JobFactory::s_JobFactory->GetTypeInfo(type_, false);
  const std::map<String, String> before = values();
  std::map<String, String> after = before;
  callModule(ownSettings(), changed, after);
  for (const auto& [name, value] : after) {
    const auto old = before.find(name);
    if (old != before.end() ? old->second == value : value.empty()) {
      continue;
    }
    if (fixed_.contains(name)) {
      continue;
    }
    const ParameterInfo* info = description.GetParam(name);
    const String& canonical = info == nullptr ? name : info->Name;
    if (!job_->SetParameter(canonical, fromDetection(info, canonical, value, changed))) {
      LogWarning("the [AutoDetect] rules of " + inQuotes(typeTitle(type_)) + " for " + inQuotes(changed) +
                 " fill " + inQuotes(name) + ", which the type does not have");
      continue;
    }
    if (value.empty()) {
      filled_.erase(canonical);
    } else {
      filled_.insert(canonical);
    }
  }
}

/// What detection wrote as a parameter's value. Rules write texts with
/// references, so that names from outside have "$$(" for "$("; parameters that
/// are never expanded take the plain text. The pattern and the name of a scene
/// sequence are cut from the scene itself and are plain already.
String JobSetup::fromDetection(const ParameterInfo* info, const String& name, const String& value,
                               const String& changed) const {
  if (!isPlain(info, name)) {
    return value;
  }
  if (String::EqualNoCase(changed, p_Scene)) {
    const Path scene(job_->GetParameterOrOption(p_Scene, true, true));
    const bool cutFromScene =
        String::EqualNoCase(name, p_Name)
            ? scene.Leaf(true).starts_with(value)
            : String::EqualNoCase(name, sceneNameFormat) && value.starts_with(scene.Branch(true, false));
    if (cutFromScene) {
      return value;
    }
  }
  return UnescapeReferences(value);
}

std::vector<FilledParameter> JobSetup::filled() const {
  std::vector<FilledParameter> result;
  const JobTypeInfo& description = *JobFactory::s_JobFactory->GetTypeInfo(type_, false);
  for (std::size_t i = 0; i < description.ParamCount(); ++i) {
    const String& name = description.GetParam(static_cast<unsigned long>(i))->Name;
    String value;
    if (filled_.contains(name) && job_->GetParameter(name, value)) {
      result.push_back({name, value});
    }
  }
  return result;
}

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

DetectedSequence JobSetup::taken() const {
  DetectedSequence taken;
  taken.format = job_->GetParameterOrOption(sceneNameFormat, true, true);
  if (!taken.format.empty()) {
    taken.frames = framesOf(job_->GetParameterOrOption(p_Range, true, true));
  }
  return taken;
}

DetectedSequence JobSetup::withAnyDigits() const {
  SequenceSettings settings = ownSettings();
  settings.digits = "1";
  std::map<String, String> found = values();
  callModule(settings, p_Scene, found);
  DetectedSequence sequence;
  sequence.format = found[sceneNameFormat];
  if (!sequence.format.empty()) {
    sequence.frames = framesOf(found[p_Range]);
  }
  return sequence;
}

SequenceAccount JobSetup::sequence() const {
  const String scene = job_->GetParameterOrOption(p_Scene, true, true);
  SceneQuestion question;
  question.taken = taken();
  if (scene.empty() || fixed_.contains(sceneNameFormat) ||
      (!question.taken.format.empty() && fixed_.contains(p_Range))) {
    return {};
  }
  question.scene = Path(scene);
  question.notSearched = ownSettings().whyNotSearched(type_);
  question.digitsAsked = ownSettings().whoAsksForDigits(type_);
  question.withAnyDigits = [this] { return withAnyDigits(); };
  return orRefuse("", "", [&] { return accountOf(question); });
}

/// A scene that was taken alone though others lie beside it, with several
/// frames: each of them would be rendered from this one file, which is seldom
/// meant.
void JobSetup::checkAlone() const {
  const RunSet frames = framesOf(effectiveValue(*job_, p_Range));
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

String effectiveValue(const Job& job, const char* name) {
  return orRefuse(std::string(name) + ": ", "",
                  [&] { return job.FormatStringWithParameters(job.GetParameterOrOption(name, true, true)); });
}

std::pair<std::string, std::string> splitAssignment(const std::string& text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string::npos || equals == 0) {
    throw UsageError{"--set takes NAME=VALUE, not " + inQuotes(text),
                     "write, for example, --set PacketSize=4"};
  }
  return {text.substr(0, equals), text.substr(equals + 1)};
}

} // namespace trovik
