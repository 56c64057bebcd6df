#include "host/application/Job.h"

#include "host/application/Application.h"
#include "host/application/Excerpt.h"
#include "host/application/Expansion.h"
#include "host/application/JobFactory.h"
#include "host/application/ParameterCommands.h"
#include "host/foundation/Exception.h"
#include "host/foundation/WholeNumber.h"

#include <algorithm>
#include <array>
#include <typeinfo>

namespace {

constexpr const char* k_TypeKey = "Type";
constexpr const char* k_StatusKey = "Status";

const JobTypeInfo* Describe(const UID& type) {
  return JobFactory::s_JobFactory->GetTypeInfo(type, false);
}

// Names out of file dialogues and file systems: what looks like a reference in
// them is none, however the type describes the parameter.
bool IsNameFromOutside(const String& name) {
  static constexpr std::array<const char*, 4> k_Names = {"Scene", "Name", "Executable", "SceneNameFormat"};
  return std::any_of(k_Names.begin(), k_Names.end(),
                     [&name](const char* outside) { return String::EqualNoCase(name, outside); });
}

bool IsPath(const UID& type, const String& name) {
  const ParameterInfo* info = JobFactory::s_JobFactory->GetTypeParameterInfo(type, name, false);
  return info != nullptr &&
         (info->Type() == ParameterInfo::k_File || info->Type() == ParameterInfo::k_Folder);
}

bool IsOwnOfWork(const String& name) {
  return String::EqualNoCase(name, p_SubRange) || String::EqualNoCase(name, p_Note);
}

} // namespace

// What a whole job is: type and status, the values kept here, and what a
// derived class answers for the parameters of its type. The last is reached
// through the class's own PackObject, GetParameter and SetParameter.
const TrovikObject::StateTable Job::s_StateTable = {
    // Pack
    [](const TrovikObject& object, OutStream& out) {
      const auto& job = static_cast<const Job&>(object);
      out.Put(job.m_Status);
      job.PackObject(out);
    },
    // Unpack
    [](TrovikObject& object, InStream& in, unsigned int version) {
      auto& job = static_cast<Job&>(object);
      int status = k_StatusNew;
      in.Get(status);
      job.UnpackObject(in, version);
      job.m_Status = status;
    },
    // ForEach
    [](const TrovikObject& object, const StateTable::Visit& visit) {
      const auto& job = static_cast<const Job&>(object);
      visit(k_ObjectSection, k_TypeKey, job.m_Type.GenString());
      visit(k_ObjectSection, k_StatusKey, std::to_string(job.m_Status));
      for (const auto& [name, value] : job.Values()) {
        visit(k_ValueSection, name, value);
      }
      const JobTypeInfo* info = Describe(job.m_Type);
      for (unsigned long i = 0; info != nullptr && i < info->ParamCount(); ++i) {
        const ParameterInfo* param = info->GetParam(i);
        String value;
        if (param->Type() != ParameterInfo::k_Heading &&
            job.Values().find(param->Name) == job.Values().end() && job.GetParameter(param->Name, value)) {
          visit(k_ValueSection, param->Name, value);
        }
      }
    },
    // Assign
    [](TrovikObject& object, const String& section, const String& name, const String& value) {
      auto& job = static_cast<Job&>(object);
      if (section == k_ValueSection) {
        if (!job.SetParameter(name, value)) {
          job.Set(name, value);
        }
      } else if (String::EqualNoCase(name, k_TypeKey)) {
        UID type;
        type.FromString(value);
        // A derived class may rely on the description of its type.
        if (Describe(type) != nullptr) {
          job.SetType(type);
        } else {
          job.Job::SetType(type);
        }
      } else if (String::EqualNoCase(name, k_StatusKey)) {
        const auto status = ReadWholeNumber<int>(value);
        if (!status) {
          RaiseException("Job::Load", k_ErrorSyntax, "\"" + Shown(value) + "\" is no status of a job");
        }
        job.m_Status = *status;
      }
    },
};

Job::Job() : TrovikObject(s_StateTable) {}

Job::~Job() = default;

bool Job::IsValid() {
  const auto refuse = [this](const String& why) {
    Set(p_Note, why);
    DoWorkParameterChange(p_Note, why);
    return false;
  };
  const JobTypeInfo* info = Describe(m_Type);
  if (info == nullptr) {
    return refuse("the job type " + m_Type.GenString() + " is not registered");
  }
  for (unsigned long i = 0; i < info->ParamCount(); ++i) {
    const ParameterInfo* param = info->GetParam(i);
    if (param->Type() == ParameterInfo::k_Heading) {
      continue;
    }
    const String value = GetParameterOrOption(param->Name, true, true);
    if (value.empty() && (param->Flags & ParameterInfo::k_Required) != 0) {
      return refuse(param->Name + ": a value is required");
    }
    // What users cannot set is not theirs to mend.
    String why;
    if ((param->Flags & ParameterInfo::k_ReadOnly) == 0 && !param->Accepts(value, why)) {
      return refuse(param->Name + ": " + why);
    }
  }
  return true;
}

void Job::PackObject(OutStream& out) const {
  out.PutBytes(m_Type.Bytes().data(), m_Type.Bytes().size());
  PackValues(out);
}

void Job::UnpackObject(InStream& in, unsigned int version) {
  if (version != k_StateVersion) {
    RaiseException("Job::UnpackObject", k_ErrorStream,
                   "the job's stream has version " + std::to_string(version) + "; this host reads version " +
                       std::to_string(k_StateVersion));
  }
  std::array<unsigned char, 16> type{};
  in.GetBytes(type.data(), type.size());
  ValueMap values = UnpackValues(in);
  m_Type.SetBytes(type);
  if (!Path::Translations().empty()) {
    // It may have been packed on a machine that knows the files by other names.
    for (auto& [name, value] : values) {
      if (IsPath(m_Type, name)) {
        value = Path(value).TranslateToLocal();
      }
    }
  }
  Values() = std::move(values);
}

bool Job::GetParameter(const String& name, String& value) const {
  const auto found = Values().find(name);
  if (found != Values().end()) {
    value = found->second;
    return true;
  }
  if (IsOwnOfWork(name)) {
    value.clear();
    return true;
  }
  return false;
}

bool Job::SetParameter(const String& name, const String& value) {
  if (!IsOwnOfWork(name) && Values().find(name) == Values().end()) {
    return false;
  }
  Set(name, value);
  return true;
}

// The handle comes by value: the operation's form is a contract with modules.
void Job::Copy(SmartHandle<const Job> other, // NOLINT(performance-unnecessary-value-param)
               bool withState) {
  if (!other) {
    RaiseException("Job::Copy", k_ErrorHandle, "there is no job to copy from");
  }
  if (other.Get() == this) {
    return;
  }
  const int status = m_Status;
  ValueMap own;
  for (const char* name : {p_SubRange, p_Note}) {
    const auto found = Values().find(name);
    if (found != Values().end()) {
      own.insert(*found);
    }
  }
  if (typeid(*other) == typeid(*this)) {
    Clone(*other);
  } else {
    // Another class knows other things in another form; what both answer by
    // name goes over.
    if (Describe(other->m_Type) != nullptr) {
      SetType(other->m_Type);
    } else {
      Job::SetType(other->m_Type);
    }
    Values().clear();
    s_StateTable.ForEach(*other, [this](const String& section, const String& name, const String& value) {
      if (section == k_ValueSection) {
        s_StateTable.Assign(*this, section, name, value);
      }
    });
    m_Status = other->m_Status;
  }
  if (!withState) {
    m_Status = status;
    for (const char* name : {p_SubRange, p_Note}) {
      Values().erase(name);
    }
    Values().insert(own.begin(), own.end());
  }
}

void Job::UpdateFromParent(SmartHandle<const Job> parent) {
  Copy(std::move(parent), false);
}

void Job::ConvertWorkToParent(SmartHandle<const Job> parent) {
  Copy(std::move(parent), false);
  for (const char* name : {p_SubRange, p_Note}) {
    Values().erase(name);
  }
  m_Status = k_StatusReady;
}

bool Job::ProcessCommand(const String& /*command*/, void* /*context*/) {
  return false;
}

bool Job::IsStarted(int status) const {
  return status == k_StatusRunning || status == k_StatusPaused || status == k_StatusFailed ||
         status == k_StatusCanceled || status == k_StatusFinished;
}

bool Job::IsFinished(int status) const {
  return status == k_StatusFinished;
}
bool Job::IsFailed(int status) const {
  return status == k_StatusFailed;
}
bool Job::IsCanceled(int status) const {
  return status == k_StatusCanceled;
}
bool Job::IsPaused(int status) const {
  return status == k_StatusPaused;
}

String Job::StatusAsString(int status) const {
  switch (status) {
  case k_StatusNew:
    return "New";
  case k_StatusReady:
    return "Ready";
  case k_StatusRunning:
    return "Running";
  case k_StatusPaused:
    return "Paused";
  case k_StatusFailed:
    return "Failed";
  case k_StatusCanceled:
    return "Canceled";
  case k_StatusFinished:
    return "Finished";
  default:
    return "Unknown";
  }
}

void Job::SetFinished() {
  m_Status = k_StatusFinished;
}

void Job::SetType(const UID& type) {
  m_Type = type;
}

String Job::GetParameterOrOption(const String& name, bool allowOption, bool allowDefault) const {
  String value;
  if (GetParameter(name, value) && !value.empty()) {
    return value;
  }
  return OptionOrDefault(name, allowOption, allowDefault);
}

String Job::OptionOrDefault(const String& name, bool allowOption, bool allowDefault) const {
  if (allowOption) {
    String value = Application::the_Application->Options().GetValue(m_Type.GenString(), name, String::Null);
    if (!value.empty()) {
      return value;
    }
  }
  const ParameterInfo* info =
      allowDefault ? JobFactory::s_JobFactory->GetTypeParameterInfo(m_Type, name, false) : nullptr;
  return info == nullptr ? String::Null : info->Default;
}

String Job::FormatStringWithParameters(const String& text) const {
  return ExpandText(text, "command line");
}

String Job::ExpandText(const String& text, const String& what) const {
  return IsPlainText(text) ? text : ExpandReferences(text, References(what));
}

ExpansionSource Job::References(const String& what) const {
  ExpansionSource source;
  source.What = what;
  source.Ask = [this](const String& name, String& value) { return GetParameter(name, value); };
  source.Find = [this](const String& name) -> std::optional<ParameterAnswer> {
    const ParameterInfo* info = JobFactory::s_JobFactory->GetTypeParameterInfo(m_Type, name, false);
    String value;
    if (!GetParameter(name, value) && info == nullptr) {
      return std::nullopt;
    }
    const bool own = !value.empty();
    if (!own) {
      value = OptionOrDefault(name, true, true);
    }
    // What the type does not describe is computed: the texts of others, put
    // together already.
    const bool expands = info != nullptr && !info->IsLiteral() && !IsNameFromOutside(name);
    return ParameterAnswer{std::move(value), expands, info, own};
  };
  source.Names = [this] { return ParameterNames(); };
  return source;
}

String Job::FormatStringWithParameters(const String& text, const std::map<String, String>& parameters) {
  ExpansionSource source;
  source.ForLater = true;
  source.Find = [&parameters](const String& name) -> std::optional<ParameterAnswer> {
    auto found = parameters.find(name);
    if (found == parameters.end()) {
      found = std::find_if(parameters.begin(), parameters.end(),
                           [&name](const auto& entry) { return String::EqualNoCase(entry.first, name); });
    }
    if (found == parameters.end()) {
      return std::nullopt;
    }
    return ParameterAnswer{found->second, !IsNameFromOutside(name), nullptr};
  };
  source.Names = [&parameters] {
    std::vector<String> names;
    names.reserve(parameters.size());
    for (const auto& entry : parameters) {
      names.push_back(entry.first);
    }
    return names;
  };
  return ExpandReferences(text, source);
}

// The handle comes by value: modules know the operation by that form.
String Job::ProcessParameterNameCommands(
    const String& value, const String& commands,
    SmartHandle<const Job> /*job*/, // NOLINT(performance-unnecessary-value-param)
    const ParameterInfo* info) {
  const String where = "parameter commands";
  std::size_t position = 0;
  const std::vector<CommandCall> calls = ReadCommands(commands, position, where);
  if (position < commands.size()) {
    RaisePlaced("Job::ProcessParameterNameCommands", k_ErrorReference,
                where + ":" + std::to_string(position + 1), "this \")\" closes nothing", commands, position);
  }
  String result = value;
  for (const CommandCall& call : calls) {
    result = ApplyCommand(call, result, info);
  }
  return result;
}

void Job::DoWorkParameterChange(const String& name, const String& value) {
  if (m_Observer != nullptr) {
    m_Observer->OnWorkParameter(*this, name, value);
  }
}

std::vector<String> Job::ParameterNames() const {
  std::vector<String> names;
  const auto add = [&names](const String& name) {
    const bool known = std::any_of(names.begin(), names.end(),
                                   [&name](const String& other) { return String::EqualNoCase(name, other); });
    if (!known) {
      names.push_back(name);
    }
  };
  const JobTypeInfo* info = Describe(m_Type);
  for (unsigned long i = 0; info != nullptr && i < info->ParamCount(); ++i) {
    if (info->GetParam(i)->Type() != ParameterInfo::k_Heading) {
      add(info->GetParam(i)->Name);
    }
  }
  for (const auto& entry : Values()) {
    add(entry.first);
  }
  // Computed when asked for, so no list has them.
  const auto answers = [this](const char* name) {
    String ignored;
    return GetParameter(name, ignored);
  };
  for (const char* name : {p_SubRange, p_Frame}) {
    if (answers(name)) {
      add(name);
    }
  }
  // Who answers one name of a scene sequence answers the other, which is not
  // asked for: its value is the names of all scenes, and may cost a copy of each.
  if (answers("ActualSubRange")) {
    add("ActualSubRange");
    add("ActualScene");
  }
  return names;
}
