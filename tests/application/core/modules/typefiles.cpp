// A module that makes a type of every .tvx file, with the entry points whose
// names carry their parameters.

#include "host/Application.h"

namespace {

std::vector<UID> g_Types;
std::map<UID, String> g_Names;
std::map<UID, Path> g_Files;

} // namespace

bool LoadVirtualModuleData(const Path& file) {
  IniFile ini;
  ini.SetFilename(file);
  ini.Load(true, true);
  UID id;
  id.FromString(ini.GetValue("Module", "ID", ""));
  if (JobFactory::s_JobFactory->GetTypeInfo(id, false) != nullptr) {
    LogWarning("typefiles: refused " + file.Leaf(true));
    return false;
  }
  g_Types.push_back(id);
  g_Names[id] = ini.GetValue("Module", "Name", "");
  g_Files[id] = file;
  return true;
}

bool GetLatestExeSearch(const UID& type, std::vector<Path>& roots, std::vector<Path>& bases, Path& exe) {
  roots.emplace_back("/opt");
  bases.emplace_back(g_Names[type]);
  exe = "bin/run";
  return true;
}

extern "C" bool OnModuleLoad(Module* module) {
  LogWarning("typefiles: load " + module->Filename().Text());
  bool any = false;
  Path pattern = module->Filename().Branch(true, true);
  pattern /= "*.tvx";
  FileFinder finder;
  for (bool found = finder.Find(pattern); found; found = finder.Next()) {
    any = LoadVirtualModuleData(finder.Name()) || any;
  }
  return any;
}

extern "C" void OnModuleUnload() {
  LogWarning("typefiles: unload");
  g_Types.clear();
  g_Names.clear();
}

extern "C" void ListTypes(std::vector<UID>& types) {
  types = g_Types;
}

extern "C" void GetTypeInfo(const UID& type, JobTypeInfo* info) {
  info->Name = g_Names[type];
  IniFile file;
  file.SetFilename(g_Files[type]);
  file.Load(true, true);
  IniFile definitions(file, false);
  file.SetSection("PrimaryParameters");
  String key;
  String name;
  while (file.GetNextValue(key, name)) {
    SLoadParameter(name, definitions, info);
  }
  file.SetSection("OverrideFlags");
  while (file.GetNextValue(key, name)) {
    STranslateFlag(name);
  }
}

extern "C" Job* CreateJob() {
  return nullptr;
}

extern "C" void DeleteJob(Job*) {}

extern "C" void AutoDetect(const UID& type, const String& changed, std::map<String, String>& parameters) {
  if (changed == "Bad") {
    throw new Exception("typefiles", "AutoDetect", 1, "a bad change", 0, String::Null, 1);
  }
  parameters["Seen"] = g_Names[type] + " " + changed;
}
