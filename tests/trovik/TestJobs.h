#pragma once

#include "host/application/JobFactory.h"
#include "host/application/jobs/RenderJob.h"

#include "tests/trovik/FakeMachine.h"
#include "tests/trovik/TemporaryDirectory.h"
#include "trovik/queue/Queue.h"

#include <gtest/gtest.h>

#include <string>

namespace trovik {

/// A render job of the tests' own: the command line is the parameter
/// "CommandString", a line "image NAME" names an image, one "success" is a
/// success text where "SuccessTexts" has any, and one "throw" has it throw. With
/// the scene "throw at the end" it throws when a status is asked, with "throw at
/// the folder" when its output folder is, and raises an Exception* with "raise at
/// the end". A root in the parameter "SearchRoot" is searched for the newest
/// "paint-VERSION/render".
class TestJob final : public RenderJob {
public:
  TestJob() : RenderJob(true) {}
  void SetType(const UID& type) override;
  String CreateCommandLine(Path& executable) override;
  Path GetLatestExecutable() override;
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

/// One job of the test type, a queue for it, and a machine that only seems to
/// run its programs.
class QueuedJobTest : public testing::Test {
protected:
  QueuedJobTest() {
    job->SetParameter(p_Executable, "/bin/true");
    job->SetParameter("CommandString", "$(SubRange)");
    job->SetParameter(p_StartDirectory, directory.path());
  }

  NewJob entryOf(const std::string& range, int retries) {
    job->SetParameter(p_Range, range);
    NewJob entry = type.newJob(*job);
    entry.retries = retries;
    entry.stopAfter = stopAfter;
    return entry;
  }

  TemporaryDirectory directory;
  TestType type;
  SmartHandle<Job> job = type.makeJob();
  FakeMachine machine;
  FakeInspector inspector;
  Queue queue{Path(directory.file("queue"))};
  int stopAfter = 0;
};

} // namespace trovik
