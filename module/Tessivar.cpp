#include "module/Tessivar.h"

#include "host/application/JobFactory.h"
#include "host/foundation/FileFinder.h"
#include "host/foundation/Log.h"
#include "host/foundation/StringTokenizer.h"
#include "job/TessivarJob.h"

const char* p_CommandString = "CommandString";
const char* p_SuccessTexts = "SuccessTexts";
const char* p_CheckForMultipleFiles = "CheckForMultipleFiles";
const char* p_SceneNumberLength = "SceneNumberLength";
const char* p_SceneNameFormat = "SceneNameFormat";
const char* p_EnquoteActual = "EnquoteActual";
const char* p_HideSubrange = "HideSubrange";
const char* p_ImageStartText = "ImageStartText";
const char* p_ImageEndText = "ImageEndText";
const char* p_ImageNotEndText = "ImageNotEndText";
const char* p_ActualScene = "ActualScene";
const char* p_ActualSubRange = "ActualSubRange";

std::vector<UID> g_IDs;
std::map<UID, TvxInfo> g_TvxMap;
std::int32_t g_IDCount = 0;

bool OnModuleLoad(Module* module) {
  Path pattern = module->Filename().Branch(true, true);
  pattern /= "*.tvx";
  FileFinder finder;
  if (!finder.Find(pattern)) {
    return false;
  }
  bool loaded = false;
  do {
    loaded |= LoadVirtualModuleData(finder.Name());
  } while (finder.Next());
  return loaded;
}

void OnModuleUnload() {
  for (const auto& [type, info] : g_TvxMap) {
    if (info.Ini != nullptr) {
      LogDebug("Unloaded Virtual Module " + info.Ini->Filename().Text());
      delete info.Ini;
    }
  }
  g_TvxMap.clear();
  g_IDs.clear();
  g_IDCount = 0;
}

void ListTypes(std::vector<UID>& types) {
  types = g_IDs;
}

Job* CreateJob() {
  return new TessivarJob();
}

void DeleteJob(Job* job) {
  delete job;
}

namespace {

// The kept file of a type, at the named section; null when there is none.
const IniFile* FindSection(UID const& type, String const& section) {
  const auto found = g_TvxMap.find(type);
  if (found == g_TvxMap.end() || found->second.Ini == nullptr || !found->second.Ini->SetSection(section)) {
    return nullptr;
  }
  return found->second.Ini;
}

// The pieces of a comma-separated list. An empty piece is an empty path.
void AppendPaths(const IniFile& file, const char* key, std::vector<Path>& paths) {
  String list;
  if (!file.GetValue(key, list)) {
    return;
  }
  for (String& piece : StringTokenizer::Split(list, ',')) {
    paths.emplace_back(piece.Trim());
  }
}

} // namespace

String GetCommandString(UID const& type, String const& command) {
  String line;
  if (const IniFile* file = FindSection(type, command)) {
    file->GetValue("Command", line);
  }
  return line;
}

bool GetLatestExeSearch(UID const& type, std::vector<Path>& roots, std::vector<Path>& bases, Path& exe) {
  const IniFile* file = FindSection(type, "FindLatestExecutable");
  if (file == nullptr) {
    return false;
  }
  AppendPaths(*file, "LinuxRoots", roots);
  AppendPaths(*file, "LinuxBases", bases);
  String program;
  if (file->GetValue("LinuxExe", program)) {
    exe = program;
  } else if (const ParameterInfo* info =
                 JobFactory::s_JobFactory->GetTypeParameterInfo(type, p_Executable, true)) {
    exe = info->Default;
  }
  return true;
}
