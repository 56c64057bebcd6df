#pragma once

#include "host/application/JobTypeInfo.h"
#include "host/application/SmartHandle.h"

#include <map>
#include <memory>
#include <vector>

class Job;

/// The job types that the host knows, and how to make jobs of them.
///
/// Types come and go only while modules are loaded and unloaded, in one
/// thread; all else may be asked from any thread. A job may outlive its type:
/// it stays valid, but finds no description of its parameters any more.
class JobFactory {
public:
  /// The host's single factory. Never null.
  static JobFactory* const s_JobFactory;

  using CreateFunction = Job* (*)();
  using DeleteFunction = void (*)(Job*);

  /// Adds a type. False, and nothing done, when the ID is taken. `code` keeps
  /// the functions in memory: the type and each of its jobs own a share.
  bool Register(const UID& type, std::unique_ptr<JobTypeInfo> info, CreateFunction create,
                DeleteFunction destroy, std::shared_ptr<void> code = nullptr);
  void Unregister(const UID& type);

  /// The description of a type, or null. With `mustExist` an unknown type is
  /// logged as an error besides.
  JobTypeInfo* GetTypeInfo(const UID& type, bool mustExist) const;

  /// The description of one parameter of a type, or null; `mustExist` as
  /// above, for the type only.
  const ParameterInfo* GetTypeParameterInfo(const UID& type, const String& name, bool mustExist) const;

  /// All types, ordered by name without regard to case, then by ID.
  std::vector<UID> Types() const;

  /// The types that a text may mean: its ID, else the types of that name, else
  /// the types with that alias; in any case of letters.
  std::vector<UID> FindTypes(const String& text) const;

  /// A new job of the type, already told its type; deleted by its module with
  /// the last handle. Raises Exception* for an unknown type, and where the
  /// module makes none.
  SmartHandle<Job> CreateJob(const UID& type) const;

private:
  struct Type {
    std::unique_ptr<JobTypeInfo> Info;
    CreateFunction Create = nullptr;
    DeleteFunction Destroy = nullptr;
    std::shared_ptr<void> Code;
  };
  const Type* Find(const UID& type) const;

  std::map<UID, Type> m_Types;
};
