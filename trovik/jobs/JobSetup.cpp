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
/// called but for its number only that job knows, once it runs. `ofFrame` asks
/// for the file of a frame: a job without frames has none of those, however many
/// names somebody thinks of.
bool JobSetup::isToCome(const Path& scene, bool ofFrame) const {
  const std::optional<int> frame = frameOfScene(scene);
  return std::any_of(toCome_.begin(), toCome_.end(), [&](const ScenesToCome& scenes) {
    return scene.Branch(true, true) == scenes.folder.Text() &&
           (scenes.frames.empty() ? !ofFrame : frame && scenes.frames.contains(*frame));
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
  const FilesToCome toCome([this](const Path& file) { return isToCome(file, true); });
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

DetectedSequence JobSetup::taken() const {
  DetectedSequence taken;
  taken.format = job_->GetParameterOrOption(sceneNameFormat, true, true);
  if (!taken.format.empty()) {
    taken.frames = rangeFrames(job_->GetParameterOrOption(p_Range, true, true));
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
    sequence.frames = rangeFrames(found[p_Range]);
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
