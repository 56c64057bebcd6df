#pragma once

#include "host/application/JobFactory.h"
#include "host/application/RenderJob.h"

#include "trovik/records/Records.h"

#include <string>

namespace trovik {

/// A render job of the tests' own: the command line is the parameter
/// "CommandString", a line "image NAME" names an image, one "success" is a
/// success text where "SuccessTexts" has any, and one "throw" has it throw. With
/// the scene "throw at the end" it throws when a status is asked, with "throw at
/// the folder" when its output folder is, and raises an Exception* with "raise at
/// the end".
class TestJob final : public RenderJob {
public:
  TestJob() : RenderJob(true) {}
  void SetType(const UID& type) override;
  String CreateCommandLine(Path& executable) override;
  void ProcessLine(const String& line) override;
  int CheckResult(int exitCode) override;
  bool IsFinished(int status) const override;
  bool GetParameter(const String& name, String& value) const override;

private:
  bool success_ = false;
};

/// A job type that is registered while the object lives: the host's standard
/// parameters, "CommandString" and "SceneNameFormat".
class TestType {
public:
  explicit TestType(const std::string& name = "Sketch");
  ~TestType();
  TestType(const TestType&) = delete;
  TestType& operator=(const TestType&) = delete;

  const UID& id() const { return id_; }
  JobTypeInfo& info() const { return *JobFactory::s_JobFactory->GetTypeInfo(id_, true); }
  ParameterInfo& add(ParameterInfo::TYPE kind, const std::string& name, const std::string& value = "") const;
  /// A job as the queue takes it.
  static NewJob newJob(Job& job);
  SmartHandle<Job> makeJob() const { return JobFactory::s_JobFactory->CreateJob(id_); }

private:
  UID id_;
};

} // namespace trovik
