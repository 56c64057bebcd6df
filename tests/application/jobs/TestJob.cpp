#include "tests/application/jobs/TestJob.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>

void PrintTo(const String& text, std::ostream* out) {
  *out << '"' << text << '"';
}

void PrintTo(const Path& path, std::ostream* out) {
  PrintTo(path.Text(), out);
}

TestJob::TestJob(std::chrono::milliseconds grace) : RenderJob(true, grace) {
  for (const char* name : {"CommandString", "SuccessTexts", "ImageStartText", "Quality"}) {
    Set(name, String::Null);
  }
}

bool TestJob::PreExecute() {
  Calls.emplace_back("PreExecute");
  return RenderJob::PreExecute();
}

String TestJob::CreateCommandLine(Path& executable) {
  Calls.emplace_back("CreateCommandLine");
  return RenderJob::CreateCommandLine(executable) + GetParameterOrOption("CommandString", true, true);
}

Path TestJob::GetLatestExecutable() {
  Calls.emplace_back("GetLatestExecutable");
  return Latest;
}

void TestJob::OnProcessSpawned() {
  Calls.emplace_back("OnProcessSpawned");
  RenderJob::OnProcessSpawned();
}

void TestJob::ProcessLine(const String& line) {
  if (KeepLines) {
    Calls.push_back("ProcessLine " + line);
    Lines.push_back(line);
  }
  if (OnLine) {
    OnLine(line);
  }
  const String image = GetParameterOrOption("ImageStartText", true, true);
  const String success = GetParameterOrOption("SuccessTexts", true, true);
  if (!image.empty() && line.starts_with(image)) {
    ProcessNewFilename(Path(line.substr(image.size())));
  } else if (!m_SuccessSeen && !success.empty() && line.starts_with(success)) {
    m_SuccessSeen = true;
  } else {
    RenderJob::ProcessLine(line);
  }
}

int TestJob::CheckResult(int exitCode) {
  Calls.push_back("CheckResult " + std::to_string(exitCode));
  if (GetParameterOrOption("SuccessTexts", true, true).empty()) {
    return RenderJob::CheckResult(exitCode);
  }
  if (m_SuccessSeen) {
    return k_StatusFinished;
  }
  Set(p_Note, "Did not see a required success line");
  DoWorkParameterChange(p_Note, Get(p_Note, true));
  return k_StatusFailed;
}

Path TestJob::DetermineStartDirectory() const {
  Calls.emplace_back("DetermineStartDirectory");
  return RenderJob::DetermineStartDirectory();
}

bool TestJob::ValidateResources() {
  Calls.emplace_back("ValidateResources");
  return RenderJob::ValidateResources();
}

int TestJob::CheckFiles(int result) {
  Calls.push_back("CheckFiles " + std::to_string(result));
  return RenderJob::CheckFiles(result);
}

int TestJob::DoCheckFile(const Path& file, int result) {
  Calls.push_back("DoCheckFile " + file.Leaf(true));
  return RenderJob::DoCheckFile(file, result);
}

void Recorder::OnWorkParameter(const Job& /*job*/, const String& name, const String& value) {
  Changes.emplace_back(name, value);
}

void Recorder::OnImage(const Job& /*job*/, const Path& file) {
  Images.push_back(file);
}

String Recorder::OnCheckFile(const Job& /*job*/, const Path& file) {
  return Look ? Look(file) : String::Null;
}

JobTest::JobTest() {
  // Without digits, which would be numbers in the names of images.
  const std::string base = (std::filesystem::temp_directory_path() / "trovik_jobs_XXXXXX").string();
  std::string directory = base;
  EXPECT_NE(mkdtemp(directory.data()), nullptr);
  while (std::any_of(directory.end() - 6, directory.end(), [](char c) { return c >= '0' && c <= '9'; })) {
    std::filesystem::remove(directory);
    directory = base;
    EXPECT_NE(mkdtemp(directory.data()), nullptr);
  }
  m_Directory = directory;
  auto info = std::make_unique<JobTypeInfo>();
  info->Name = "Test type";
  RenderJob::FillJobTypeInfo(info.get(), true);
  for (const char* name : {"CommandString", "SuccessTexts", "ImageStartText", "Quality"}) {
    info->NewParam(ParameterInfo::k_Text)->Name = name;
  }
  m_Info = info.get();
  EXPECT_TRUE(JobFactory::s_JobFactory->Register(
      m_Type, std::move(info), []() -> Job* { return new TestJob; }, [](Job* job) { delete job; }));
}

JobTest::~JobTest() {
  m_Handles.clear();
  JobFactory::s_JobFactory->Unregister(m_Type);
  if (m_OptionsChanged) {
    Application::the_Application->Options() = IniFile();
  }
  std::error_code ignored;
  std::filesystem::remove_all(m_Directory.Text().c_str(), ignored);
}

TestJob& JobTest::NewJob(std::chrono::milliseconds grace) {
  auto* job = new TestJob(grace);
  m_Handles.emplace_back(static_cast<Job*>(job));
  job->SetType(m_Type);
  job->SetObserver(&m_Recorder);
  return *job;
}

TestJob& JobTest::ShellJob(const String& script) {
  TestJob& job = NewJob();
  job.SetParameter(p_Executable, "/bin/sh");
  job.SetParameter(p_StartDirectory, m_Directory.Text());
  job.SetParameter("CommandString", "-c " + EscapeReferences(EnquoteWord(script)));
  return job;
}

Path JobTest::In(const String& name) const {
  Path path = m_Directory;
  return path /= name;
}

Path JobTest::Write(const String& name, const String& text) const {
  Path path = In(name);
  std::filesystem::create_directories(path.Branch(true, true).c_str());
  std::ofstream(path.c_str(), std::ios::binary) << text;
  return path;
}

Path JobTest::WriteProgram(const String& name, const String& text) const {
  Path path = Write(name, text);
  EXPECT_EQ(chmod(path.c_str(), 0755), 0);
  return path;
}

Path JobTest::MakeFolder(const String& name) const {
  Path path = In(name);
  std::filesystem::create_directories(path.c_str());
  return path;
}

void JobTest::SetOption(const String& name, const String& value) {
  m_OptionsChanged = true;
  Application::the_Application->Options().SetValue(m_Type.GenString(), name, value);
}

String RaisedText(const std::function<void()>& operation) {
  try {
    operation();
  } catch (Exception* exception) {
    const std::unique_ptr<Exception> owned(exception);
    return owned->Text();
  }
  ADD_FAILURE() << "nothing was raised";
  return String::Null;
}
