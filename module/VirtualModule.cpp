#include "module/Tessivar.h"

#include "host/application/Constants.h"
#include "host/application/JobFactory.h"
#include "host/foundation/Exception.h"
#include "host/foundation/Log.h"
#include "host/foundation/StringTokenizer.h"

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>
#include <utility>

namespace {

struct TextKey {
  std::string_view Name;
  String TvxInfo::*Text;
};

constexpr std::array<TextKey, 8> k_TextKeys = {{{"Command", &TvxInfo::Command},
                                                {"Name", &TvxInfo::Name},
                                                {"Shortcut", &TvxInfo::Shortcut},
                                                {"Help", &TvxInfo::Help},
                                                {"Details", &TvxInfo::Details},
                                                {"ImageStartText", &TvxInfo::ImageStartText},
                                                {"ImageEndText", &TvxInfo::ImageEndText},
                                                {"ImageNotEndText", &TvxInfo::ImageNotEndText}}};

// Goes through the current section once: it mostly has fewer keys than there
// are to ask for.
void ReadModuleSection(IniFile& file, TvxInfo& info) {
  std::string_view key;
  std::string_view value;
  const auto is = [&key](std::string_view name) {
    return name.size() == key.size() && String::EqualNoCase(name, key);
  };
  while (file.GetNextValue(key, value)) {
    const auto text = std::find_if(k_TextKeys.begin(), k_TextKeys.end(),
                                   [&is](const TextKey& candidate) { return is(candidate.Name); });
    if (text != k_TextKeys.end()) {
      (info.*text->Text).assign(value);
    } else if (is("DefaultEnabled")) {
      file.GetValue("DefaultEnabled", info.DefaultEnabled);
    } else if (is(p_CheckForMultipleFiles)) {
      file.GetValue(p_CheckForMultipleFiles, info.CheckForMultipleFiles);
    } else if (is(p_SceneNumberLength)) {
      file.GetValue(p_SceneNumberLength, info.SceneNumberLength);
    } else if (is(p_ErrorDetectPosition)) {
      file.GetValue(p_ErrorDetectPosition, info.ErrorDetectPosition);
    }
  }
}

void ReadTexts(IniFile& file, const char* section, std::vector<String>& texts) {
  if (!file.SetSection(section)) {
    return;
  }
  texts.reserve(file.EntryCount());
  std::string_view key;
  std::string_view value;
  while (file.GetNextValue(key, value)) {
    texts.emplace_back(value);
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
  std::string_view key;
  std::string_view value;
  while (file.GetNextValue(key, value)) {
    if (value.find('=') == std::string_view::npos) {
      continue; // no token of it has one
    }
    std::map<String, String> assignments = ReadAssignments(String(value));
    if (!assignments.empty()) {
      info.AutoDetect[String(key)] = std::move(assignments);
    }
  }
}

bool LoadFile(Path const& path) {
  auto kept = std::make_unique<IniFile>(false);
  IniFile& file = *kept;
  file.SetFilename(path);
  file.Load(false, true);
  if (!file.SetSection("Module")) {
    return false;
  }
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
  // The record is made where it stays. The one that a repeated ID overwrites
  // leaves its kept file behind: nobody can tell whether a host still reads it.
  const auto [entry, isNew] = g_TvxMap.try_emplace(type);
  TvxInfo& info = entry->second;
  if (!isNew) {
    info = TvxInfo();
  }
  ReadModuleSection(file, info);
  ReadTexts(file, "ErrorText", info.ErrorText);
  ReadTexts(file, "ErrorIgnore", info.ErrorIgnore);
  ReadTexts(file, "SuccessText", info.SuccessText);
  ReadAutoDetect(file, info);
  file.LeaveSection();
  info.Ini = kept.release();
  g_IDs.push_back(type);
  if (IsLogged(LogLevel::Info)) {
    LogInfo("Loaded Virtual Module " + path.Text());
  }
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
