#include "host/application/Module.h"

#include "host/application/Job.h"
#include "host/application/TypeFiles.h"
#include "host/foundation/Exception.h"
#include "host/foundation/FileFinder.h"
#include "host/foundation/Log.h"

#include <dlfcn.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <set>

// The plain entry points are looked up by name. The decorated ones carry their
// parameter types, so finding one means that it fits: a library that has
// LoadVirtualModuleData reads .tvx files, and is told of every directory that
// holds some.

namespace {

constexpr const char* k_ReadsTypeFiles = "_Z21LoadVirtualModuleDataRK4Path";
constexpr const char* k_LatestExeSearch = "_Z18GetLatestExeSearchRK3UIDRSt6vectorI4PathSaIS3_EES6_RS3_";

template <typename Function> bool LookUp(void* library, const char* name, Function*& function) {
  function = reinterpret_cast<Function*>(dlsym(library, name)); // NOLINT: the way of dlsym
  return function != nullptr;
}

Path InDirectory(const Path& directory, const String& leaf) {
  return Path(directory) /= leaf;
}

// The same for two spellings of one directory.
String Identity(const Path& directory) {
  std::error_code ignored;
  const std::filesystem::path canonical = std::filesystem::canonical(directory.Text().c_str(), ignored);
  return ignored ? directory.Text() : String(canonical.string());
}

std::vector<Path> FindFiles(const Path& directory, const String& pattern) {
  std::vector<Path> files;
  FileFinder finder;
  for (bool found = finder.Find(InDirectory(directory, pattern)); found; found = finder.Next()) {
    files.push_back(finder.Name());
  }
  return files;
}

} // namespace

struct ModuleLoader::Library {
  Path Filename;
  void* Handle = nullptr;
  bool Loaded = false; // some OnModuleLoad succeeded
  std::vector<UID> Types;
  std::set<UID> WithUnknownFlags;               // of those from type files
  std::vector<std::unique_ptr<Module>> Modules; // the library may keep what it was handed

  bool (*OnModuleLoad)(Module*) = nullptr;
  void (*OnModuleUnload)() = nullptr;
  void (*ListTypes)(std::vector<UID>&) = nullptr;
  void (*GetTypeInfo)(const UID&, JobTypeInfo*) = nullptr;
  Job* (*CreateJob)() = nullptr;
  void (*DeleteJob)(Job*) = nullptr;
  void (*AutoDetect)(const UID&, const String&, std::map<String, String>&) = nullptr;
  bool (*LoadTypeFile)(const Path&) = nullptr; // of libraries that read .tvx files
  bool (*LatestExeSearch)(const UID&, std::vector<Path>&, std::vector<Path>&, Path&) = nullptr;

  Library() = default;
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  ~Library() {
    for (const UID& type : Types) {
      JobFactory::s_JobFactory->Unregister(type);
    }
    if (Loaded) {
      OnModuleUnload();
    }
    if (Handle != nullptr) {
      dlclose(Handle);
    }
  }

  // False, with a warning, for a library that cannot be used.
  bool Open(const Path& file) {
    Filename = file;
    Handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (Handle == nullptr) {
      const char* reason = dlerror(); // NOLINT(concurrency-mt-unsafe): loading is done in one thread
      LogWarning("cannot load the module " + file.Text() + ": " +
                 (reason == nullptr ? "unknown reason" : reason));
      return false;
    }
    String missing;
    const auto require = [&missing](const char* name, bool found) {
      if (!found) {
        missing += (missing.empty() ? "" : ", ") + String(name);
      }
    };
    require("OnModuleLoad", LookUp(Handle, "OnModuleLoad", OnModuleLoad));
    require("OnModuleUnload", LookUp(Handle, "OnModuleUnload", OnModuleUnload));
    require("ListTypes", LookUp(Handle, "ListTypes", ListTypes));
    require("GetTypeInfo", LookUp(Handle, "GetTypeInfo", GetTypeInfo));
    require("CreateJob", LookUp(Handle, "CreateJob", CreateJob));
    require("DeleteJob", LookUp(Handle, "DeleteJob", DeleteJob));
    if (!missing.empty()) {
      LogWarning(file.Text() + " is no module: it lacks the entry points " + missing);
      return false;
    }
    LookUp(Handle, "AutoDetect", AutoDetect);
    LookUp(Handle, k_ReadsTypeFiles, LoadTypeFile);
    LookUp(Handle, k_LatestExeSearch, LatestExeSearch);
    return true;
  }

  bool ReadsTypeFiles() const { return LoadTypeFile != nullptr; }

  bool TryTypeFile(const Path& file, const std::function<void(const UID& type)>& look) {
    const auto forget = [this] {
      for (const UID& type : Types) {
        JobFactory::s_JobFactory->Unregister(type);
      }
      Types.clear();
      OnModuleUnload();
    };
    if (!LoadTypeFile(file)) {
      return false;
    }
    try {
      if (look) {
        RegisterTypes();
        std::for_each(Types.begin(), Types.end(), look);
      }
    } catch (...) {
      forget();
      throw;
    }
    forget();
    return true;
  }

  // Lets the library load as a module of that name and registers the types
  // that it lists newly. False when it failed.
  bool LoadAs(const Path& name) {
    Modules.push_back(std::make_unique<Module>(name));
    try {
      if (!OnModuleLoad(Modules.back().get())) {
        return false;
      }
      Loaded = true;
      RegisterTypes();
    } catch (Exception* exception) {
      LogWarning("the module " + name.Text() + " failed to load: " + exception->Text());
      delete exception;
      return false;
    }
    return true;
  }

  void RegisterTypes() {
    std::vector<UID> listed;
    ListTypes(listed);
    for (const UID& type : listed) {
      if (std::find(Types.begin(), Types.end(), type) != Types.end()) {
        continue;
      }
      auto info = std::make_unique<JobTypeInfo>();
      try {
        std::optional<UnknownFlags> unknown;
        if (ReadsTypeFiles() && !Modules.empty()) {
          unknown.emplace();
        }
        GetTypeInfo(type, info.get());
        if (unknown && unknown->Any()) {
          WithUnknownFlags.insert(type);
        }
      } catch (Exception* exception) {
        LogWarning("the module " + Filename.Text() + " cannot describe its type " + UID(type).GenString() +
                   ": " + exception->Text());
        delete exception;
        continue;
      }
      const String name = info->Name;
      if (JobFactory::s_JobFactory->Register(type, std::move(info), CreateJob, DeleteJob)) {
        Types.push_back(type);
      } else {
        LogWarning("the type \"" + name + "\" of " + Filename.Text() + " has the ID " +
                   UID(type).GenString() + " of the type \"" +
                   JobFactory::s_JobFactory->GetTypeInfo(type, true)->Name + "\" and is not used");
      }
    }
  }
};

ModuleLoader::ModuleLoader() = default;

ModuleLoader::~ModuleLoader() {
  Unload();
}

int ModuleLoader::Load(const std::vector<Path>& path) {
  return Load(path, TypeFiles::Read);
}

int ModuleLoader::LoadWithoutTypeFiles(const std::vector<Path>& path) {
  return Load(path, TypeFiles::Leave);
}

bool ModuleLoader::TryTypeFile(const Path& file, const std::function<void(const UID& type)>& look) {
  Library* reader = TypeFileReader();
  return reader != nullptr && reader->TryTypeFile(file, look);
}

bool ModuleLoader::ReadsTypeFiles() const {
  return TypeFileReader() != nullptr;
}

ModuleLoader::Library* ModuleLoader::TypeFileReader() const {
  const auto reader = std::find_if(m_Libraries.begin(), m_Libraries.end(),
                                   [](const auto& library) { return library->ReadsTypeFiles(); });
  return reader == m_Libraries.end() ? nullptr : reader->get();
}

int ModuleLoader::Load(const std::vector<Path>& path, TypeFiles typeFiles) {
  std::vector<Path> typeDirectories;
  std::size_t typeFileCount = 0;
  std::set<String> seen;
  for (const Path& directory : path) {
    const std::size_t files = typeFiles == TypeFiles::Read ? FindFiles(directory, "*.tvx").size() : 0;
    if (files > 0 && seen.insert(Identity(directory)).second) {
      typeDirectories.push_back(directory);
      typeFileCount += files;
    }
  }
  std::set<String> leaves;
  for (const auto& library : m_Libraries) {
    leaves.insert(library->Filename.Leaf(true));
  }
  int count = 0;
  for (const Path& directory : path) {
    for (const Path& file : FindFiles(directory, "*.so")) {
      if (!leaves.insert(file.Leaf(true)).second) {
        continue;
      }
      auto library = std::make_unique<Library>();
      if (!library->Open(file)) {
        continue;
      }
      if (library->ReadsTypeFiles()) {
        for (const Path& types : typeDirectories) {
          library->LoadAs(InDirectory(types, file.Leaf(true)));
        }
        if (library->Types.size() < typeFileCount || !library->WithUnknownFlags.empty()) {
          ReportTypeFiles(typeDirectories, library->WithUnknownFlags);
        }
      } else if (!library->LoadAs(file)) {
        LogWarning("the module " + file.Text() + " refused to load");
        continue;
      }
      m_Libraries.push_back(std::move(library));
      ++count;
    }
  }
  return count;
}

void ModuleLoader::Unload() {
  while (!m_Libraries.empty()) {
    m_Libraries.pop_back();
  }
}

std::vector<Path> ModuleLoader::Libraries() const {
  std::vector<Path> files;
  for (const auto& library : m_Libraries) {
    files.push_back(library->Filename);
  }
  return files;
}

const ModuleLoader::Library* ModuleLoader::Owner(const UID& type) const {
  for (const auto& library : m_Libraries) {
    if (std::find(library->Types.begin(), library->Types.end(), type) != library->Types.end()) {
      return library.get();
    }
  }
  return nullptr;
}

void ModuleLoader::AutoDetect(const UID& type, const String& changed,
                              std::map<String, String>& parameters) const {
  const Library* library = Owner(type);
  if (library != nullptr && library->AutoDetect != nullptr) {
    library->AutoDetect(type, changed, parameters);
  }
}

bool ModuleLoader::LatestExecutableSearch(const UID& type, std::vector<Path>& roots, std::vector<Path>& bases,
                                          Path& exe) const {
  const Library* library = Owner(type);
  return library != nullptr && library->LatestExeSearch != nullptr &&
         library->LatestExeSearch(type, roots, bases, exe);
}
