#include "bench/contest/Readers.h"

#include "bench/ModuleUnderTest.h"
#include "bench/Race.h"
#include "bench/TypeFiles.h"
#include "bench/limits/Limits.h"
#include "host/application/Module.h"

#define SI_NO_CONVERSION
#define SI_IMPLEMENTATION
#include <SimpleIni.h>
#include <ini.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <vector>

namespace bench {
namespace {

std::vector<std::string> typeFiles(const std::string& directory) {
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    if (entry.path().extension() == ".tvx") {
      files.push_back(entry.path().string());
    }
  }
  return files;
}

std::size_t byLimit(const std::string& directory) {
  return LoadingLimit(directory).entries();
}

std::size_t byIniFile(const std::string& directory) {
  return entriesOf(loadTypes(directory));
}

std::size_t byModule(const std::string& directory) {
  static const ModuleUnderTest module;
  Module from(Path(directory + "/module.so"));
  require(module.symbol<bool(Module*)>("OnModuleLoad")(&from), "the module could not be loaded");
  std::vector<UID> types;
  module.symbol<void(std::vector<UID>&)>("ListTypes")(types);
  module.symbol<void()>("OnModuleUnload")();
  return types.size();
}

std::size_t bySimpleIni(const std::string& directory) {
  std::vector<std::unique_ptr<CSimpleIniA>> files;
  for (const std::string& name : typeFiles(directory)) {
    files.push_back(std::make_unique<CSimpleIniA>());
    require(files.back()->LoadFile(name.c_str()) >= 0, "SimpleIni cannot read " + name);
  }
  std::size_t entries = 0;
  for (const auto& file : files) {
    CSimpleIniA::TNamesDepend sections;
    file->GetAllSections(sections);
    for (const CSimpleIniA::Entry& section : sections) {
      entries += static_cast<std::size_t>(file->GetSectionSize(section.pItem));
    }
  }
  return entries;
}

using Tables = std::map<std::string, std::map<std::string, std::string>>;

std::size_t byInih(const std::string& directory) {
  std::vector<Tables> files;
  for (const std::string& name : typeFiles(directory)) {
    const auto add = [](void* file, const char* section, const char* key, const char* value) {
      (*static_cast<Tables*>(file))[section][key] = value;
      return 1;
    };
    require(ini_parse(name.c_str(), add, &files.emplace_back()) == 0, "inih cannot read " + name);
  }
  std::size_t entries = 0;
  for (const Tables& file : files) {
    for (const auto& [name, section] : file) {
      entries += section.size();
    }
  }
  return entries;
}

} // namespace

void readTypes(const std::string& way, const std::string& directory) {
  static const std::map<std::string, std::size_t (*)(const std::string&)> ways = {{"limit", byLimit},
                                                                                  {"IniFile", byIniFile},
                                                                                  {"OnModuleLoad", byModule},
                                                                                  {"SimpleIni", bySimpleIni},
                                                                                  {"inih", byInih}};
  const auto found = ways.find(way);
  require(found != ways.end(), "there is no way \"" + way + "\" to read types");
  std::printf("%zu\n", found->second(directory));
}

} // namespace bench
