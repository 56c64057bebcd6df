#include "host/application/JobFactory.h"

#include "host/application/Job.h"
#include "host/foundation/Exception.h"
#include "host/foundation/Log.h"

#include <algorithm>

namespace {

// Made when it is first asked for and never destroyed: modules unregister
// their types as late as they like.
JobFactory* TheFactory() {
  static auto* instance = new JobFactory();
  return instance;
}

// GenString keeps its text in the ID, so a shared ID is copied first.
String TextOf(const UID& type) {
  const UID own = type; // NOLINT(performance-unnecessary-copy-initialization)
  return own.GenString();
}

// What a job ends with: its module's function, whose code must still be there.
// Nobody could catch what that throws.
struct JobEnd {
  JobFactory::DeleteFunction Destroy;
  std::shared_ptr<void> Code;

  void operator()(Job* job) const noexcept {
    try {
      Destroy(job);
    } catch (...) {
      LogError("a module failed to delete a job: " + TakeCaughtText());
    }
  }
};

} // namespace

JobFactory* const JobFactory::s_JobFactory = TheFactory();

bool JobFactory::Register(const UID& type, std::unique_ptr<JobTypeInfo> info, CreateFunction create,
                          DeleteFunction destroy, std::shared_ptr<void> code) {
  return m_Types.try_emplace(type, Type{std::move(info), create, destroy, std::move(code)}).second;
}

void JobFactory::Unregister(const UID& type) {
  m_Types.erase(type);
}

const JobFactory::Type* JobFactory::Find(const UID& type) const {
  const auto found = m_Types.find(type);
  return found == m_Types.end() ? nullptr : &found->second;
}

JobTypeInfo* JobFactory::GetTypeInfo(const UID& type, bool mustExist) const {
  const Type* found = Find(type);
  if (found == nullptr && mustExist) {
    LogError("no job type has the ID " + TextOf(type));
  }
  return found == nullptr ? nullptr : found->Info.get();
}

const ParameterInfo* JobFactory::GetTypeParameterInfo(const UID& type, const String& name,
                                                      bool mustExist) const {
  const JobTypeInfo* info = GetTypeInfo(type, mustExist);
  return info == nullptr ? nullptr : info->GetParam(name);
}

std::vector<UID> JobFactory::Types() const {
  std::vector<const decltype(m_Types)::value_type*> sorted;
  sorted.reserve(m_Types.size());
  for (const auto& entry : m_Types) {
    sorted.push_back(&entry);
  }
  std::stable_sort(sorted.begin(), sorted.end(), [](const auto* left, const auto* right) {
    return String::CompareNoCase(left->second.Info->Name, right->second.Info->Name) < 0;
  });
  std::vector<UID> types;
  types.reserve(sorted.size());
  for (const auto* entry : sorted) {
    types.push_back(entry->first);
  }
  return types;
}

std::vector<UID> JobFactory::FindTypes(const String& text) const {
  UID id;
  try {
    id.FromString(text);
    if (Find(id) != nullptr) {
      return {id};
    }
  } catch (Exception* exception) {
    delete exception; // then it is a name
  }
  std::vector<UID> named;
  std::vector<UID> aliased;
  for (const UID& type : Types()) {
    const JobTypeInfo& info = *Find(type)->Info;
    if (String::EqualNoCase(info.Name, text)) {
      named.push_back(type);
    }
    if (std::any_of(info.Aliases().begin(), info.Aliases().end(),
                    [&text](const String& alias) { return String::EqualNoCase(alias, text); })) {
      aliased.push_back(type);
    }
  }
  return named.empty() ? aliased : named;
}

SmartHandle<Job> JobFactory::CreateJob(const UID& type) const {
  const Type* found = Find(type);
  if (found == nullptr) {
    RaiseException("JobFactory::CreateJob", k_ErrorReference, "no job type has the ID " + TextOf(type));
  }
  const String failure = "the module of the type \"" + found->Info->Name + "\" made no job";
  return CallModule(failure, [&] {
    Job* job = found->Create();
    if (job == nullptr) {
      RaiseException("JobFactory::CreateJob", k_ErrorReference, failure);
    }
    SmartHandle<Job> handle(job, JobEnd{found->Destroy, found->Code});
    job->SetType(type);
    return handle;
  });
}
