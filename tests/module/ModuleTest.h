#pragma once

// The contract between module and host, tried as a host does: the library is
// loaded by dlopen and everything is called through looked-up symbols.

#include "host/Application.h"
#include "module/Tessivar.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <string_view>
#include <vector>

/// The entry points of one loaded library, under their exported names.
struct ModuleSymbols {
  bool (*OnModuleLoad)(Module*) = nullptr;
  void (*OnModuleUnload)() = nullptr;
  void (*ListTypes)(std::vector<UID>&) = nullptr;
  void (*GetTypeInfo)(UID const&, JobTypeInfo*) = nullptr;
  Job* (*CreateJob)() = nullptr;
  void (*DeleteJob)(Job*) = nullptr;
  void (*AutoDetect)(UID const&, String const&, std::map<String, String>&) = nullptr;
  bool (*LoadVirtualModuleData)(Path const&) = nullptr;
  String (*GetCommandString)(UID const&, String const&) = nullptr;
  bool (*GetLatestExeSearch)(UID const&, std::vector<Path>&, std::vector<Path>&, Path&) = nullptr;
  bool (*DetectMultipleFiles)(Path const&, int, std::map<String, String>&) = nullptr;
  std::map<UID, TvxInfo>* TvxMap = nullptr;
  std::vector<UID>* IDs = nullptr;
  std::int32_t* IDCount = nullptr;
};

/// Remembers what a job tells the host.
class RecordingObserver : public WorkObserver {
public:
  void OnWorkParameter(const Job& job, const String& name, const String& value) override;
  void OnImage(const Job& job, const Path& file) override;

  std::vector<std::pair<String, String>> Changes;
  std::vector<String> Images;
};

/// A fresh directory and a freshly loaded module for every test. Log lines are
/// kept as "level: text".
class ModuleTest : public testing::Test {
protected:
  static constexpr const char* k_ID = "11111111-2222-3333-4444-555555555555";
  static constexpr const char* k_OtherID = "22222222-2222-3333-4444-555555555555";

  void SetUp() override;
  void TearDown() override;

  /// Writes a file below the test's directory, making folders as needed.
  Path Write(const String& name, std::string_view content);
  Path InDirectory(const String& name) const;

  /// Scans the test's directory, or one below it.
  bool Load(const String& folder = String::Null);

  /// Registers the listed types with the host, as its loader does.
  void RegisterTypes();
  void UnregisterTypes();

  /// Writes "type.tvx" with `body` behind the ID line of section "Module",
  /// loads and registers it.
  UID LoadType(std::string_view body, const char* id = k_ID);

  /// Registers a description of the test's own, without a file.
  void RegisterPlain(const UID& type, std::unique_ptr<JobTypeInfo> info);

  SmartHandle<Job> MakeJob(const UID& type) const;

  /// The job's class of the host, for what modules do not override.
  static RenderJob& AsRender(const SmartHandle<Job>& job);

  /// A parameter's value; fails the test when nobody answers.
  static String ValueOf(const SmartHandle<Job>& job, const String& name);

  /// The text of the Exception* that an action raises; fails without one.
  template <typename Action> static String RaisedText(Action action) {
    try {
      action();
    } catch (Exception* exception) {
      const std::unique_ptr<Exception> owned(exception);
      return owned->Message();
    }
    ADD_FAILURE() << "nothing was raised";
    return String::Null;
  }

  void* Symbol(const char* name) const;

  ModuleSymbols m_Module;
  std::vector<String> m_Log;

private:
  String m_Directory;
  void* m_Library = nullptr;
  LogSink m_OldSink;
  std::vector<UID> m_Registered;
};

UID ID(const char* text);
