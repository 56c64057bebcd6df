#pragma once

#include "host/application/Job.h"
#include "host/application/JobFactory.h"
#include "host/application/NameLetters.h"

#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace trovik {

/// Lets a type's module react to a changed parameter; see
/// ModuleLoader::AutoDetect.
using DetectFunction =
    std::function<void(const UID& type, const String& changed, std::map<String, String>& values)>;

/// A parameter that detection filled, by its name in the type.
struct FilledParameter {
  std::string name;
  std::string value;
};

/// Builds a job as a form would: each change of a value is followed by the
/// type's detection, which may fill others. What the user set by name stays:
/// no detection replaces it, whichever came first.
///
/// Everything that the user got wrong is thrown as UsageError.
class JobSetup {
public:
  JobSetup(const UID& type, DetectFunction detect);

  /// The scene: made absolute; it must exist.
  void setScene(const std::string& scene);

  /// A parameter by its name in any case. Picked files are made absolute.
  /// `origin` is how the user wrote it ("--range"), for messages.
  void set(const std::string& name, const std::string& value, const std::string& origin);

  /// Where the files go: made absolute, and not read for references.
  void setOutputFolder(const std::string& folder);

  /// Checks that the job as a whole can be started; see the messages.
  void check() const;

  const SmartHandle<Job>& job() const { return job_; }
  const UID& type() const { return type_; }

  /// What detection filled, in the order of the type's parameters.
  std::vector<FilledParameter> filled() const;

private:
  void queue(const ParameterInfo& info, const std::string& value, const std::string& origin);
  void detect(const String& changed);
  String fromDetection(const ParameterInfo* info, const String& name, const String& value,
                       const String& changed) const;
  void checkScene() const;
  void checkFiles() const;
  void checkSequence(const String& format) const;
  NameLetters refusedInSceneNames() const;

  UID type_;
  DetectFunction detect_;
  SmartHandle<Job> job_;
  std::set<String, String::ciless> fixed_;
  std::set<String, String::ciless> filled_;
};

/// A job's value of a parameter, or the option's or the type's, with its
/// references expanded. Throws a UsageError where one has no answer.
String effectiveValue(const Job& job, const char* name);

/// Splits NAME=VALUE at the first "=". Throws a UsageError without one.
std::pair<std::string, std::string> splitAssignment(const std::string& text);

} // namespace trovik
