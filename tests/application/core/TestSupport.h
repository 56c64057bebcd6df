#pragma once

#include "host/Application.h"

#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

/// The message of the exception that a call raises; "nothing raised" if none.
inline String MessageOf(const std::function<void()>& call, int* code = nullptr) {
  try {
    call();
  } catch (Exception* exception) {
    String message = exception->Message();
    if (code != nullptr) {
      *code = exception->Code();
    }
    delete exception;
    return message;
  }
  return "nothing raised";
}

/// Collects the log while it lives.
class LogCapture {
public:
  LogCapture() : m_Before(SetLogSink([this](LogLevel, const String& text) { m_Lines.push_back(text); })) {}
  ~LogCapture() { SetLogSink(m_Before); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  const std::vector<String>& Lines() const { return m_Lines; }

private:
  std::vector<String> m_Lines;
  LogSink m_Before;
};

class TemporaryDirectory {
public:
  TemporaryDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "trovik-core-XXXXXX").string();
    m_Path = mkdtemp(name.data());
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(m_Path, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  std::string operator/(const std::string& leaf) const { return m_Path + "/" + leaf; }
  const std::string& Name() const { return m_Path; }

private:
  std::string m_Path;
};

inline void WriteFile(const std::string& file, std::string_view bytes) {
  std::filesystem::create_directories(std::filesystem::path(file).parent_path());
  std::ofstream(file, std::ios::binary) << bytes;
}

inline std::string ReadFile(const std::string& file) {
  std::ostringstream bytes;
  bytes << std::ifstream(file, std::ios::binary).rdbuf();
  return bytes.str();
}

/// Sets an environment variable while it lives.
class EnvironmentValue {
public:
  EnvironmentValue(const char* name, const std::string& value) : m_Name(name) {
    const char* before = std::getenv(name);
    m_Had = before != nullptr;
    m_Before = m_Had ? before : "";
    setenv(name, value.c_str(), 1);
  }
  ~EnvironmentValue() {
    if (m_Had) {
      setenv(m_Name, m_Before.c_str(), 1);
    } else {
      unsetenv(m_Name);
    }
  }
  EnvironmentValue(const EnvironmentValue&) = delete;
  EnvironmentValue& operator=(const EnvironmentValue&) = delete;

private:
  const char* m_Name;
  bool m_Had = false;
  std::string m_Before;
};

/// Path maps in force while it lives.
class Translations {
public:
  explicit Translations(std::vector<std::pair<String, String>> pairs) {
    Path::SetTranslations(std::move(pairs));
  }
  Translations(const String& source, const String& local) { Path::SetTranslations({{source, local}}); }
  ~Translations() { Path::SetTranslations({}); }
  Translations(const Translations&) = delete;
  Translations& operator=(const Translations&) = delete;
};

/// A job with nothing but what every job has.
class PlainJob : public Job {
public:
  int Execute() override { return k_StatusFinished; }
  void Interrupt(int) override {}
  std::unique_ptr<Distributor> DoGetDistributor() override { return nullptr; }
  void OnChildChange(SmartHandle<const Job>, const String&, const String&) override {}
};

/// A job class as modules have them: a text of its own, further parameters
/// held in a map that SetType fills, a stream form of its own that is read
/// with paths made local, and a computed name.
class CatalogueJob : public PlainJob {
public:
  String OwnText;
  std::map<String, String, String::ciless> Extra;

  bool GetParameter(const String& name, String& value) const override {
    if (Job::GetParameter(name, value)) {
      return true;
    }
    if (String::EqualNoCase(name, "OwnText")) {
      value = OwnText;
      return true;
    }
    if (String::EqualNoCase(name, "ActualSubRange")) {
      value.clear();
      return true;
    }
    if (String::EqualNoCase(name, "ActualScene")) {
      value = "computed $(Name)";
      return true;
    }
    const auto found = Extra.find(name);
    if (found == Extra.end()) {
      return false;
    }
    value = found->second;
    return true;
  }

  bool SetParameter(const String& name, const String& value) override {
    if (Job::SetParameter(name, value)) {
      return true;
    }
    if (String::EqualNoCase(name, "OwnText")) {
      OwnText = value;
      return true;
    }
    const auto found = Extra.find(name);
    if (found == Extra.end()) {
      return false;
    }
    found->second = value;
    return true;
  }

  void SetType(const UID& type) override {
    Job::SetType(type);
    const JobTypeInfo* info = JobFactory::s_JobFactory->GetTypeInfo(Type(), true);
    for (unsigned long i = 0; i < info->ParamCount(); ++i) {
      String ignored;
      if (!GetParameter(info->GetParam(i)->Name, ignored)) {
        Extra.emplace(info->GetParam(i)->Name, info->GetParam(i)->Default);
      }
    }
  }

  void PackObject(OutStream& out) const override {
    Job::PackObject(out);
    out.Put(OwnText);
    out.Put(static_cast<unsigned int>(Extra.size()));
    for (const auto& [name, value] : Extra) {
      out.Put(name);
      out.Put(value);
    }
  }

  void UnpackObject(InStream& in, unsigned int version) override {
    Job::UnpackObject(in, version);
    in.Get(OwnText);
    unsigned int count = 0;
    in.Get(count);
    for (unsigned int i = 0; i < count; ++i) {
      String name;
      String value;
      in.Get(name);
      in.Get(value);
      Extra.insert_or_assign(name, Path(value).TranslateToLocal().Text());
    }
  }
};

inline void DeleteTestJob(Job* job) {
  delete job;
}

/// A type that the factory knows while this lives.
class RegisteredType {
public:
  explicit RegisteredType(
      const std::function<void(JobTypeInfo&)>& fill = {},
      JobFactory::CreateFunction create = [] { return static_cast<Job*>(new CatalogueJob()); })
      : Id(true) {
    auto info = std::make_unique<JobTypeInfo>();
    if (fill) {
      fill(*info);
    }
    JobFactory::s_JobFactory->Register(Id, std::move(info), create, DeleteTestJob);
  }
  ~RegisteredType() { JobFactory::s_JobFactory->Unregister(Id); }
  RegisteredType(const RegisteredType&) = delete;
  RegisteredType& operator=(const RegisteredType&) = delete;

  const UID Id;
};

inline ParameterInfo* AddParam(JobTypeInfo& info, ParameterInfo::TYPE type, const String& name,
                               const String& defaultValue = String::Null, unsigned int flags = 0) {
  ParameterInfo* param = info.NewParam(type);
  param->Name = name;
  param->Label = name;
  param->Default = defaultValue;
  param->Flags = flags;
  return param;
}

/// An engine's option while it lives.
class Option {
public:
  Option(const UID& type, const String& name, const String& value) {
    m_Before = Application::the_Application->Options();
    Application::the_Application->Options().SetValue(UID(type).GenString(), name, value);
  }
  ~Option() { Application::the_Application->Options() = m_Before; }
  Option(const Option&) = delete;
  Option& operator=(const Option&) = delete;

private:
  IniFile m_Before;
};
