#include "tests/trovik/TestJobs.h"

#include "trovik/jobs/WorkMaker.h"

#include <memory>
#include <stdexcept>
#include <utility>

namespace trovik {

void TestJob::SetType(const UID& type) {
  RenderJob::SetType(type);
  const JobTypeInfo& info = *JobFactory::s_JobFactory->GetTypeInfo(type, true);
  for (unsigned long i = 0; i < info.ParamCount(); ++i) {
    String ignored;
    if (!GetParameter(info.GetParam(i)->Name, ignored)) {
      Set(info.GetParam(i)->Name, "");
    }
  }
}

String TestJob::CreateCommandLine(Path& executable) {
  return RenderJob::CreateCommandLine(executable) + GetParameterOrOption("CommandString", true, true);
}

Path TestJob::GetLatestExecutable() {
  String root;
  return GetParameter("SearchRoot", root) && !root.empty()
             ? FindLatestExecutable({Path(root)}, {"paint"}, "render")
             : Path();
}

void TestJob::ProcessLine(const String& line) {
  if (line.starts_with("image ")) {
    ProcessNewFilename(Path(line.substr(6)));
  } else if (line == "throw") {
    throw std::runtime_error("thrown at a line");
  } else {
    success_ = success_ || line == "success";
    RenderJob::ProcessLine(line);
  }
}

int TestJob::CheckResult(int exitCode) {
  if (GetParameterOrOption("SuccessTexts", true, true).empty()) {
    return RenderJob::CheckResult(exitCode);
  }
  return success_ ? k_StatusFinished : k_StatusFailed;
}

bool TestJob::IsFinished(int status) const {
  if (StoredScene() == "throw at the end") {
    throw std::runtime_error("thrown at the end");
  }
  if (StoredScene() == "raise at the end") {
    RaiseException("TestJob::IsFinished", k_ErrorModule, "raised at the end");
  }
  return RenderJob::IsFinished(status);
}

bool TestJob::GetParameter(const String& name, String& value) const {
  if (name == p_OutputFolder && StoredScene() == "throw at the folder") {
    throw std::runtime_error("thrown at the folder");
  }
  return RenderJob::GetParameter(name, value);
}

TestType::TestType(const std::string& name) : id_(true) {
  auto description = std::make_unique<JobTypeInfo>();
  description->Name = name;
  RenderJob::FillJobTypeInfo(description.get(), true);
  JobFactory::s_JobFactory->Register(
      id_, std::move(description), []() -> Job* { return new TestJob; }, [](Job* job) { delete job; });
  add(ParameterInfo::k_Text, "CommandString");
  add(ParameterInfo::k_Text, "SuccessTexts");
  add(ParameterInfo::k_File, "SceneNameFormat");
}

TestType::~TestType() {
  JobFactory::s_JobFactory->Unregister(id_);
}

ParameterInfo& TestType::add(ParameterInfo::TYPE kind, const std::string& name,
                             const std::string& value) const {
  ParameterInfo* parameter = info().NewParam(kind);
  parameter->Name = name;
  parameter->Label = name;
  parameter->Default = value;
  parameter->Flags = ParameterInfo::k_OfJob | ParameterInfo::k_Visible;
  return *parameter;
}

NewJob TestType::newJob(Job& job) {
  NewJob entry;
  entry.type = job.Type();
  entry.typeName = "Sketch";
  entry.range = job.GetParameterOrOption(p_Range, true, true);
  const std::unique_ptr<Distributor> works = job.DoGetDistributor();
  for (FrameRun frames; works->Next(frames, entry.hasFrames);) {
    entry.works.push_back(frames);
  }
  entry.packed = packedJob(job);
  return entry;
}

} // namespace trovik
