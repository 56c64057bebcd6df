#include "module/Tessivar.h"

#include "host/application/Constants.h"
#include "host/application/JobFactory.h"
#include "host/foundation/Exception.h"
#include "host/foundation/Log.h"
#include "host/foundation/StringTokenizer.h"

#include <memory>
#include <utility>

namespace {

void ReadModuleSection(const IniFile& file, TvxInfo& info) {
  file.GetValue("Command", info.Command);
  file.GetValue("Name", info.Name);
  file.GetValue("Shortcut", info.Shortcut);
  file.GetValue("Help", info.Help);
  file.GetValue("Details", info.Details);
  file.GetValue("ImageStartText", info.ImageStartText);
  file.GetValue("ImageEndText", info.ImageEndText);
  file.GetValue("ImageNotEndText", info.ImageNotEndText);
  file.GetValue("DefaultEnabled", info.DefaultEnabled);
  file.GetValue("CheckForMultipleFiles", info.CheckForMultipleFiles);
  file.GetValue(p_SceneNumberLength, info.SceneNumberLength);
  file.GetValue(p_ErrorDetectPosition, info.ErrorDetectPosition);
}

void ReadTexts(IniFile& file, const char* section, std::vector<String>& texts) {
  if (!file.SetSection(section)) {
    return;
  }
  String key;
  String value;
  while (file.GetNextValue(key, value)) {
    texts.push_back(std::move(value));
  }
}

// "Output=$(Scene).out, Range=1-10": the names and their templates.
std::map<String, String> ReadAssignments(const String& value) {
  std::map<String, String> assignments;
  for (const String& token : StringTokenizer::Split(value, ',')) {
    const std::size_t equals = token.find('=');
    if (equals == String::npos) {
      continue;
    }
    String name(token.substr(0, equals));
    String text(token.substr(equals + 1));
    assignments[name.Trim()] = text.Trim();
  }
  return assignments;
}

void ReadAutoDetect(IniFile& file, TvxInfo& info) {
  if (!file.SetSection("AutoDetect")) {
    return;
  }
  String key;
  String value;
  while (file.GetNextValue(key, value)) {
    if (value.find('=') == String::npos) {
      continue; // no token of it has one
    }
    std::map<String, String> assignments = ReadAssignments(value);
    if (!assignments.empty()) {
      info.AutoDetect[key] = std::move(assignments);
    }
  }
}

bool LoadFile(Path const& path) {
  IniFile file(false);
  file.SetFilename(path);
  file.Load(false, true);
  if (!file.SetSection("Module")) {
    return false;
  }
  TvxInfo info;
  UID type(false);
  String text;
  if (!file.GetValue("ID", text)) {
    LogWarning("No ID found in configuration file for Module " + path.Text());
    return false;
  }
  type.FromString(text);
  // Only the host's types count: of two files of one scan with the same ID the
  // later one replaces the earlier one's record.
  if (const JobTypeInfo* known = JobFactory::s_JobFactory->GetTypeInfo(type, false)) {
    LogWarning("Module '" + path.Text() + "' configuration specifices a type ID that is already in use by '" +
                   known->Name,
               LogSubject::TypeInUse);
    return false;
  }
  ReadModuleSection(file, info);
  info.Ini = new IniFile(file, false);
  ReadTexts(file, "ErrorText", info.ErrorText);
  ReadTexts(file, "ErrorIgnore", info.ErrorIgnore);
  ReadTexts(file, "SuccessText", info.SuccessText);
  ReadAutoDetect(file, info);
  // The record that a repeated ID overwrites leaves its kept file behind:
  // nobody can tell whether a host still reads it.
  g_TvxMap[type] = std::move(info);
  g_IDs.push_back(type);
  LogInfo("Loaded Virtual Module " + path.Text());
  return true;
}

} // namespace

bool LoadVirtualModuleData(Path const& file) {
  try {
    return LoadFile(file);
  } catch (Exception* exception) {
    const std::unique_ptr<Exception> owned(exception);
    LogWarning("Failed to load virtual module file: " + file.Text());
    return false;
  }
}
