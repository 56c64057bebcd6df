#pragma once

#include "host/application/Job.h"
#include "host/application/JobFactory.h"
#include "host/application/NameLetters.h"
#include "trovik/jobs/SceneSequence.h"

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace trovik {

/// A parameter that detection filled, by its name in the type.
struct FilledParameter {
  std::string name;
  std::string value;
};

/// Scene files that another job is going to leave in a folder.
struct ScenesToCome {
  Path folder; ///< absolute
  RunSet frames;
};

/// Builds a job as a form would: first all values that the user gives, then the
/// type's detection for each of them, which may fill others. What the user gave
/// stays: no detection replaces it.
///
/// Everything that the user got wrong is thrown as UsageError.
class JobSetup {
public:
  JobSetup(const UID& type, DetectFunction detect);

  /// Before anything is set: scene files that count as there.
  void expectScenes(std::vector<ScenesToCome> scenes) { toCome_ = std::move(scenes); }

  /// The scene: made absolute; it must exist, or be one of those to come.
  void setScene(const std::string& scene);

  /// A parameter by its name in any case. Picked files are made absolute.
  /// `origin` is how the user wrote it ("--range"), for messages.
  void set(const std::string& name, const std::string& value, const std::string& origin);

  /// Parameters as "--set" takes them: NAME=VALUE.
  void setAll(const std::vector<std::string>& assignments);

  /// Where the files go: made absolute, and not read for references.
  void setOutputFolder(const std::string& folder);

  /// Lets the module react to each value that was given, the scene first, then
  /// in the order of giving; so every rule sees all of them. To be called once,
  /// after the last value.
  void detect();

  /// Checks that the job as a whole can be started; see the messages.
  void check() const;

  /// Why the scene was taken alone, or its sequence only in part. Says nothing
  /// where there is no scene, or where the user named the pattern or, of a
  /// sequence, the frames.
  SequenceAccount sequence() const;

  const SmartHandle<Job>& job() const { return job_; }
  const UID& type() const { return type_; }

  /// What detection filled, in the order of the type's parameters.
  std::vector<FilledParameter> filled() const;

private:
  void give(const ParameterInfo& info, const std::string& value, const std::string& origin);
  void detect(const String& changed);
  std::map<String, String> values() const;
  SequenceSettings ownSettings() const;
  void callModule(const SequenceSettings& settings, const String& changed,
                  std::map<String, String>& values) const;
  DetectedSequence taken() const;
  DetectedSequence withAnyDigits() const;
  void checkAlone() const;
  String fromDetection(const ParameterInfo* info, const String& name, const String& value,
                       const String& changed) const;
  bool isToCome(const Path& scene, bool ofFrame = false) const;
  void checkScene() const;
  void checkFiles() const;
  [[noreturn]] void refuseShared(const Path& file, const FrameRun& one, const FrameRun& other,
                                 bool perWork) const;
  void checkSequence(const String& format) const;
  NameLetters refusedInSceneNames() const;

  UID type_;
  DetectFunction detect_;
  std::vector<ScenesToCome> toCome_;
  SmartHandle<Job> job_;
  std::vector<String> given_; ///< in the order of giving
  std::set<String, String::ciless> fixed_;
  std::set<String, String::ciless> filled_;
};

/// A job's value of a parameter, or the option's or the type's, with its
/// references expanded. Throws a UsageError where one has no answer.
String effectiveValue(const Job& job, const char* name);

/// Splits NAME=VALUE at the first "=". Throws a UsageError without one.
std::pair<std::string, std::string> splitAssignment(const std::string& text);

} // namespace trovik
