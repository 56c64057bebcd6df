#pragma once

#include "host/Application.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>
#include <utility>
#include <vector>

// How a failed comparison shows them.
void PrintTo(const String& text, std::ostream* out);
void PrintTo(const Path& path, std::ostream* out);

/// A job with the least that a type's own class adds: a command line, image
/// names behind a text, and success texts at the start of a line. It writes
/// down which virtual operations are called.
class TestJob : public RenderJob {
public:
  static constexpr std::chrono::milliseconds k_ShortGrace{20};

  explicit TestJob(std::chrono::milliseconds grace = k_ShortGrace);

  bool PreExecute() override;
  String CreateCommandLine(Path& executable) override;
  Path GetLatestExecutable() override;
  void OnProcessSpawned() override;
  void ProcessLine(const String& line) override;
  int CheckResult(int exitCode) override;
  Path DetermineStartDirectory() const override;
  bool ValidateResources() override;
  int CheckFiles(int result) override;
  int DoCheckFile(const Path& file, int result) override;

  using ProcessJob::EffectiveText;
  using ProcessJob::EffectiveTexts;

  Path Latest;                                    ///< the newest program found
  std::function<void(const String& line)> OnLine; ///< called before a line is judged
  mutable std::vector<String> Calls;
  std::vector<String> Lines;
  bool KeepLines = true;

private:
  bool m_SuccessSeen = false;
};

/// Hears what jobs tell, and writes it down.
class Recorder : public WorkObserver {
public:
  void OnWorkParameter(const Job& job, const String& name, const String& value) override;
  void OnImage(const Job& job, const Path& file) override;
  String OnCheckFile(const Job& job, const Path& file) override;

  std::function<String(const Path& file)> Look; ///< into a file; none finds nothing wrong
  std::vector<std::pair<String, String>> Changes;
  std::vector<Path> Images;
};

/// A registered type, a directory of its own and a fresh job of the type.
class JobTest : public testing::Test {
protected:
  JobTest();
  ~JobTest() override;

  TestJob& NewJob(std::chrono::milliseconds grace = TestJob::k_ShortGrace);

  /// A job that runs a shell's command; "$(" in it is the shell's.
  TestJob& ShellJob(const String& script);

  /// The path of a name within the test's directory.
  Path In(const String& name) const;
  Path Write(const String& name, const String& text) const;
  Path WriteProgram(const String& name, const String& text = "#!/bin/sh\n") const;
  Path MakeFolder(const String& name) const;

  /// Sets an option of the engine for the type, for this test.
  void SetOption(const String& name, const String& value);

  UID m_Type{true};
  Path m_Directory;
  JobTypeInfo* m_Info = nullptr;
  Recorder m_Recorder;

private:
  std::vector<SmartHandle<Job>> m_Handles;
  bool m_OptionsChanged = false;
};

/// What an operation raises, as text; a failure of the test when nothing.
String RaisedText(const std::function<void()>& operation);
