#include "trovik/check/TypeCheck.h"

#include "host/application/Constants.h"
#include "host/application/Excerpt.h"
#include "host/foundation/StringTokenizer.h"
#include "trovik/text/Text.h"

#include <algorithm>
#include <cstdlib>

namespace trovik {

PlacedText valueOf(const IniFile::EntryView& entry) {
  return {String(entry.Value), {entry.ValuePlace, entry.Value.size()}};
}

PlacedText keyOf(const IniFile::EntryView& entry) {
  return {String(entry.Key), {entry.KeyPlace, entry.Key.size()}};
}

bool TypeCheck::isStandard(const String& name) const {
  return std::any_of(standard.begin(), standard.end(),
                     [&name](const String& known) { return String::EqualNoCase(known, name); });
}

bool TypeCheck::isAnswered(const String& name) const {
  if (String::EqualNoCase(name, p_AfterOutputFolder) || String::EqualNoCase(name, p_AfterImages)) {
    return true; // where the job waits for another one
  }
  String value;
  return info->GetParam(name) != nullptr || (job != nullptr && job->GetParameter(name, value));
}

std::optional<PlacedText> TypeCheck::defaultOf(const String& name) const {
  static const std::map<std::string, const char*> moduleKeys = {{"commandstring", "Command"},
                                                                {"imagestarttext", "ImageStartText"},
                                                                {"imageendtext", "ImageEndText"},
                                                                {"imagenotendtext", "ImageNotEndText"}};
  IniFile::EntryView entry;
  const IniFile& ini = source.ini();
  const auto key = moduleKeys.find(lowered(name));
  if (ini.FindEntry("OverrideDefaults", name, entry) || ini.FindEntry(name, "Default", entry) ||
      (key != moduleKeys.end() && ini.FindEntry("Module", key->second, entry))) {
    return valueOf(entry);
  }
  return std::nullopt;
}

String TypeCheck::effective(const String& name) const {
  const ParameterInfo* parameter = info->GetParam(name);
  return parameter == nullptr ? String::Null : parameter->Default;
}

std::string TypeCheck::severalFrames() const {
  const String packet = effective(p_PacketSize).Trim();
  if (String::EqualNoCase(packet, k_AutoPacket)) {
    return "several frames";
  }
  const int frames = std::atoi(packet.c_str());
  return frames > 1 ? std::to_string(frames) : std::string();
}

Span TypeCheck::sectionSpan(const String& section) const {
  return {source.ini().SectionPlace(section), section.size() + 2};
}

const std::vector<String>& fixedSections() {
  static const std::vector<String> names = {"Module",
                                            "SuccessText",
                                            "ErrorText",
                                            "ErrorIgnore",
                                            "PrimaryParameters",
                                            "SecondaryParameters",
                                            "PrimaryCommands",
                                            "SecondaryCommands",
                                            "OverrideDefaults",
                                            "OverrideFlags",
                                            "OverrideFilters",
                                            "AutoDetect",
                                            "FindLatestExecutable"};
  return names;
}

const std::vector<String>& moduleKeys() {
  static const std::vector<String> keys = {"ID",
                                           "Name",
                                           "Shortcut",
                                           "Help",
                                           "Details",
                                           "Command",
                                           "ImageStartText",
                                           "ImageEndText",
                                           "ImageNotEndText",
                                           "DefaultEnabled",
                                           "CheckForMultipleFiles",
                                           "SceneNumberLength",
                                           "ErrorDetectPosition"};
  return keys;
}

const std::vector<String>& searchKeys() {
  static const std::vector<String> keys = {"LinuxRoots", "LinuxBases", "LinuxExe"};
  return keys;
}

std::string homeOfKey(const TypeCheck& check, const String& key) {
  const auto holds = [&key](const std::vector<String>& names) {
    return std::any_of(names.begin(), names.end(),
                       [&key](const String& known) { return String::EqualNoCase(known, key); });
  };
  return holds(moduleKeys())     ? "Module"
         : holds(searchKeys())   ? "FindLatestExecutable"
         : check.isStandard(key) ? "OverrideDefaults"
                                 : "";
}

std::string quotedText(std::string_view text) {
  return '"' + Shown(String(text)) + '"';
}

std::pair<std::string, std::string> factAndHint(const std::string& text) {
  const std::string line = text.substr(0, text.find('\n'));
  for (const char* mark : {"; did you mean \"", "; write ", "; close it", "; add "}) {
    if (const std::size_t place = line.rfind(mark); place != std::string::npos) {
      return {line.substr(0, place), line.substr(place + 2)};
    }
  }
  return {line, {}};
}

std::string lowered(std::string_view text) {
  return String(text).Lower();
}

std::vector<PlacedText> piecesOf(const PlacedText& list, char separator) {
  std::vector<PlacedText> pieces;
  for (StringTokenizer::Piece& piece : StringTokenizer::SplitPlaced(list.text, separator)) {
    pieces.push_back({std::move(piece.Text), list.span.part(piece.Begin, piece.End - piece.Begin)});
  }
  return pieces;
}

} // namespace trovik
