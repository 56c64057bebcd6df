#include "host/application/ParameterInfo.h"

#include "host/application/Excerpt.h"
#include "host/application/FrameRange.h"
#include "host/foundation/Exception.h"
#include "host/foundation/StringTokenizer.h"
#include "host/foundation/Suggest.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>

namespace {

struct TypeName {
  ParameterInfo::TYPE Type;
  const char* Name;
};

constexpr TypeName k_TypeNames[] = {
    {ParameterInfo::k_Text, "Text"},
    {ParameterInfo::k_Integer, "Integer"},
    {ParameterInfo::k_Decimal, "Decimal"},
    {ParameterInfo::k_Choice, "Choice"},
    {ParameterInfo::k_Range, "Range"},
    {ParameterInfo::k_Multiline, "Multiline"},
    {ParameterInfo::k_Duration, "Duration"},
    {ParameterInfo::k_Boolean, "Boolean"},
    {ParameterInfo::k_BoolOverride, "BoolOverride"},
    {ParameterInfo::k_File, "File"},
    {ParameterInfo::k_Folder, "Folder"},
    {ParameterInfo::k_Heading, "Heading"},
    {ParameterInfo::k_List, "List"},
};

// 100 as "100" and 0.5 as "0.5": the shortest text that reads back the same.
String NumberText(double number) {
  std::array<char, 64> text{};
  const auto result = std::to_chars(text.data(), text.data() + text.size(), number);
  return {text.data(), static_cast<std::size_t>(result.ptr - text.data())};
}

bool IsWholeNumber(const String& value) {
  const std::size_t start = !value.empty() && (value[0] == '-' || value[0] == '+') ? 1 : 0;
  return value.size() > start && value.find_first_not_of("0123456789", start) == String::npos;
}

bool IsBooleanWord(const String& value) {
  static constexpr std::array<std::string_view, 12> k_Words = {"yes", "true",  "on",  "y", "t", "1",
                                                               "no",  "false", "off", "n", "f", "0"};
  String word = value;
  word.Trim();
  return std::any_of(k_Words.begin(), k_Words.end(),
                     [&word](std::string_view candidate) { return String::EqualNoCase(word, candidate); });
}

// In quotes what is no number, so that blanks show.
String Quoted(const String& value) {
  return "\"" + Shown(value) + "\"";
}

bool IsWithin(const ParameterInfo& info, const String& value, double number, String& why) {
  if (info.Minimum && number < *info.Minimum) {
    why = Shown(value) + " is below the minimum of " + NumberText(*info.Minimum);
    return false;
  }
  if (info.Maximum && number > *info.Maximum) {
    why = Shown(value) + " is above the maximum of " + NumberText(*info.Maximum);
    return false;
  }
  return true;
}

bool IsOneOf(const std::vector<String>& choices, const String& value) {
  return std::any_of(choices.begin(), choices.end(),
                     [&value](const String& choice) { return String::EqualNoCase(choice, value); });
}

bool AcceptsInteger(const ParameterInfo& info, const String& value, String& why) {
  double number = 0;
  if (IsOneOf(info.Choices, value)) {
    return true;
  }
  if (!IsWholeNumber(value) || !ParseDecimal(value, number)) {
    why = Quoted(value) + " is no whole number";
    for (const String& choice : info.Choices) {
      why += ", nor " + choice;
    }
    return false;
  }
  if (number < std::numeric_limits<int>::min() || number > std::numeric_limits<int>::max()) {
    why = Shown(value) + " is beyond the 32 bits of a whole number";
    return false;
  }
  return IsWithin(info, value, number, why);
}

bool AcceptsDecimal(const ParameterInfo& info, const String& value, String& why) {
  double number = 0;
  if (!ParseDecimal(value, number)) {
    why = Quoted(value) + " is no number";
    String pointed = value;
    std::replace(pointed.begin(), pointed.end(), ',', '.');
    if (ParseDecimal(pointed, number)) {
      why += "; write " + pointed;
    }
    return false;
  }
  return IsWithin(info, value, number, why);
}

bool AcceptsDuration(const ParameterInfo& info, const String& value, String& why) {
  double seconds = 0;
  if (!ParseDuration(value, seconds)) {
    why = Quoted(value) + " is no duration; write seconds, or a number with s, m, h or d as in 90s or 2h";
    return false;
  }
  return IsWithin(info, value, seconds, why);
}

bool AcceptsChoice(const ParameterInfo& info, const String& value, String& why) {
  if (IsOneOf(info.Choices, value)) {
    return true;
  }
  String list;
  for (const String& choice : info.Choices) {
    list += (list.empty() ? "" : ", ") + choice;
  }
  why = Quoted(value) + " is none of " + list;
  const String near = SuggestName(value, info.Choices);
  if (!near.empty()) {
    why += "; did you mean \"" + near + "\"?";
  }
  return false;
}

bool AcceptsRange(const String& value, String& why) {
  try {
    FrameSet::Parse(value);
    return true;
  } catch (Exception* exception) {
    why = exception->Message();
    delete exception;
    return false;
  }
}

} // namespace

bool ParameterInfo::Accepts(const String& value, String& why) const {
  if (value.empty()) {
    return true;
  }
  if (value.find('\0') != String::npos) {
    why = "a value cannot hold the byte 0, which ends every argument of a program";
    return false;
  }
  if (!IsLiteral() && value.find("$(") != String::npos) {
    return true; // what it comes to is not known yet
  }
  switch (m_Type) {
  case k_Integer:
    return AcceptsInteger(*this, value, why);
  case k_Decimal:
    return AcceptsDecimal(*this, value, why);
  case k_Duration:
    return AcceptsDuration(*this, value, why);
  case k_Choice:
    return AcceptsChoice(*this, value, why);
  case k_Range:
    return AcceptsRange(value, why);
  case k_Boolean:
  case k_BoolOverride:
    if (!IsBooleanWord(value)) {
      why = Quoted(value) + " is neither yes nor no";
      return false;
    }
    return true;
  case k_Heading:
    why = "a heading has no value";
    return false;
  case k_Text:
  case k_Multiline:
  case k_File:
  case k_Folder:
  case k_List:
    break;
  }
  return true;
}

std::unique_ptr<ParameterInfo> ParameterInfo::Create(TYPE type) {
  switch (type) {
  case k_File:
  case k_Folder:
    return std::make_unique<FileParameterInfo>(type);
  case k_BoolOverride:
    return std::make_unique<BoolOverrideInfo>();
  case k_List:
    return std::make_unique<ListParameterInfo>();
  default:
    return std::make_unique<ParameterInfo>(type);
  }
}

String ParameterTypeName(ParameterInfo::TYPE type) {
  const auto* found = std::find_if(std::begin(k_TypeNames), std::end(k_TypeNames),
                                   [type](const TypeName& entry) { return entry.Type == type; });
  return found == std::end(k_TypeNames) ? String::Null : String(found->Name);
}

std::optional<ParameterInfo::TYPE> ParameterTypeFromName(const String& name) {
  const auto* found =
      std::find_if(std::begin(k_TypeNames), std::end(k_TypeNames),
                   [&name](const TypeName& entry) { return String::EqualNoCase(entry.Name, name); });
  return found == std::end(k_TypeNames) ? std::nullopt : std::optional(found->Type);
}

std::vector<String> ParameterTypeNames() {
  std::vector<String> names;
  for (const TypeName& entry : k_TypeNames) {
    names.emplace_back(entry.Name);
  }
  return names;
}

bool ParseDecimal(std::string_view text, double& number) {
  if (!text.empty() && text[0] == '+' && text.size() > 1 && text[1] != '-') {
    text.remove_prefix(1);
  }
  double read = 0;
  const auto result =
      std::from_chars(text.data(), text.data() + text.size(), read, std::chars_format::general);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size() || !std::isfinite(read)) {
    return false;
  }
  number = read;
  return true;
}

bool ParseDuration(const String& text, double& seconds) {
  static constexpr std::array<std::pair<std::string_view, int>, 4> k_Units = {
      {{"s", 1}, {"m", 60}, {"h", 60 * 60}, {"d", 24 * 60 * 60}}};
  std::string_view number = text;
  double unit = 1;
  for (const auto& [letter, factor] : k_Units) {
    if (!text.empty() && String::EqualNoCase(std::string_view(text).substr(text.size() - 1), letter)) {
      unit = factor;
      number.remove_suffix(1);
    }
  }
  while (!number.empty() && number.back() == ' ') {
    number.remove_suffix(1);
  }
  double value = 0;
  if (!ParseDecimal(number, value) || value < 0 || !std::isfinite(value * unit)) {
    return false;
  }
  seconds = value * unit;
  return true;
}

// Unpack reads a backslash as an escape only before a separator, a quote or a
// backslash, so only those places need another one; C:\renders stays readable.
// A backslash at the end comes before the separator of the next text.
String ListParameterInfo::Pack(const std::vector<String>& texts) const {
  String packed;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    const String& text = texts[i];
    if (i > 0) {
      packed.push_back(k_Separator);
    }
    if (text.empty()) {
      packed += "\"\""; // an empty end would be no piece
    }
    for (std::size_t j = 0; j < text.size(); ++j) {
      const auto isSpecial = [](char c) { return c == k_Separator || c == '"' || c == '\\'; };
      const bool escapes = text[j] == '\\' && (j + 1 == text.size() || isSpecial(text[j + 1]));
      if (escapes || text[j] == k_Separator || text[j] == '"') {
        packed.push_back('\\');
      }
      packed.push_back(text[j]);
    }
  }
  return packed;
}

std::vector<String> ListParameterInfo::Unpack(const String& value) const {
  return StringTokenizer::Split(value, k_Separator);
}

String BoolOverrideInfo::ToString(BoolOverride value) const {
  switch (value) {
  case k_OverrideYes:
    return "Yes";
  case k_OverrideNo:
    return "No";
  default:
    return String::Null;
  }
}

BoolOverride BoolOverrideInfo::FromString(String text) const {
  text.Trim();
  if (text.empty()) {
    return k_NoOverride;
  }
  return text.Bool() ? k_OverrideYes : k_OverrideNo;
}
