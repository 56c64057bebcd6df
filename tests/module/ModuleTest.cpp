#include "tests/module/ModuleTest.h"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

extern const char* const TESSIVAR_LIBRARY;

namespace {

const char* LevelName(LogLevel level) {
  switch (level) {
  case LogLevel::Debug:
    return "debug";
  case LogLevel::Info:
    return "info";
  case LogLevel::Warning:
    return "warning";
  default:
    return "error";
  }
}

} // namespace

UID ID(const char* text) {
  UID id(false);
  id.FromString(text);
  return id;
}

void RecordingObserver::OnWorkParameter(const Job&, const String& name, const String& value) {
  Changes.emplace_back(name, value);
}

void RecordingObserver::OnImage(const Job&, const Path& file) {
  Images.push_back(file.Text());
}

void* ModuleTest::Symbol(const char* name) const {
  void* symbol = dlsym(m_Library, name);
  EXPECT_NE(symbol, nullptr) << name;
  return symbol;
}

void ModuleTest::SetUp() {
  std::string pattern = (std::filesystem::temp_directory_path() / "tessivar.XXXXXX").string();
  ASSERT_NE(mkdtemp(pattern.data()), nullptr);
  m_Directory = pattern;
  SetLogLevel(LogLevel::Debug);
  m_OldSink = SetLogSink([this](LogLevel level, const String& text) {
    m_Log.emplace_back(std::string(LevelName(level)) + ": " + text);
  });

  m_Library = dlopen(TESSIVAR_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(m_Library, nullptr) << dlerror();
  const auto bind = [this](auto& pointer, const char* name) {
    pointer = reinterpret_cast<std::remove_reference_t<decltype(pointer)>>(Symbol(name));
  };
  bind(m_Module.OnModuleLoad, "OnModuleLoad");
  bind(m_Module.OnModuleUnload, "OnModuleUnload");
  bind(m_Module.ListTypes, "ListTypes");
  bind(m_Module.GetTypeInfo, "GetTypeInfo");
  bind(m_Module.CreateJob, "CreateJob");
  bind(m_Module.DeleteJob, "DeleteJob");
  bind(m_Module.AutoDetect, "AutoDetect");
  bind(m_Module.LoadVirtualModuleData, "_Z21LoadVirtualModuleDataRK4Path");
  bind(m_Module.GetCommandString, "_Z16GetCommandStringRK3UIDRK6String");
  bind(m_Module.GetLatestExeSearch, "_Z18GetLatestExeSearchRK3UIDRSt6vectorI4PathSaIS3_EES6_RS3_");
  bind(m_Module.DetectMultipleFiles,
       "_Z19DetectMultipleFilesRK4PathiRSt3mapI6StringS3_St4lessIS3_ESaISt4pairIKS3_S3_EEE");
  bind(m_Module.TvxMap, "g_TvxMap");
  bind(m_Module.IDs, "g_IDs");
  bind(m_Module.IDCount, "g_IDCount");
}

void ModuleTest::UnregisterTypes() {
  for (const UID& type : m_Registered) {
    JobFactory::s_JobFactory->Unregister(type);
  }
  m_Registered.clear();
}

void ModuleTest::TearDown() {
  UnregisterTypes();
  if (m_Library != nullptr) {
    m_Module.OnModuleUnload();
    dlclose(m_Library);
  }
  Application::the_Application->Settings() = IniFile();
  Application::the_Application->Options() = IniFile();
  Path::SetTranslations({});
  SetLogSink(m_OldSink);
  SetLogLevel(LogLevel::Warning);
  std::filesystem::remove_all(m_Directory.c_str());
}

Path ModuleTest::InDirectory(const String& name) const {
  Path path(m_Directory);
  path /= name;
  return path;
}

Path ModuleTest::Write(const String& name, std::string_view content) {
  Path path = InDirectory(name);
  std::filesystem::create_directories(std::filesystem::path(path.c_str()).parent_path());
  std::ofstream out(path.c_str(), std::ios::binary);
  out << content;
  out.close();
  EXPECT_TRUE(out) << path.c_str();
  return path;
}

bool ModuleTest::Load(const String& folder) {
  Path library(m_Directory);
  if (!folder.empty()) {
    library /= folder;
  }
  library /= "Tessivar.so";
  Module module(library);
  return m_Module.OnModuleLoad(&module);
}

void ModuleTest::RegisterTypes() {
  std::vector<UID> types;
  m_Module.ListTypes(types);
  for (const UID& type : types) {
    if (std::find(m_Registered.begin(), m_Registered.end(), type) == m_Registered.end()) {
      auto info = std::make_unique<JobTypeInfo>();
      m_Module.GetTypeInfo(type, info.get());
      RegisterPlain(type, std::move(info));
    }
  }
}

void ModuleTest::RegisterPlain(const UID& type, std::unique_ptr<JobTypeInfo> info) {
  ASSERT_TRUE(
      JobFactory::s_JobFactory->Register(type, std::move(info), m_Module.CreateJob, m_Module.DeleteJob));
  m_Registered.push_back(type);
}

UID ModuleTest::LoadType(std::string_view body, const char* id) {
  const String name = String(id) + ".tvx";
  const Path file = Write(name, std::string("[Module]\nID=") + id + "\n" + std::string(body));
  EXPECT_TRUE(m_Module.LoadVirtualModuleData(file));
  RegisterTypes();
  m_Log.clear();
  return ID(id);
}

SmartHandle<Job> ModuleTest::MakeJob(const UID& type) const {
  return JobFactory::s_JobFactory->CreateJob(type);
}

RenderJob& ModuleTest::AsRender(const SmartHandle<Job>& job) {
  return dynamic_cast<RenderJob&>(*job);
}

String ModuleTest::ValueOf(const SmartHandle<Job>& job, const String& name) {
  String value;
  EXPECT_TRUE(job->GetParameter(name, value)) << name;
  return value;
}
