#include "host/application/JobTypeInfo.h"

#include "host/application/Definition.h"
#include "host/application/Excerpt.h"
#include "host/application/TypeFiles.h"
#include "host/foundation/Log.h"
#include "host/foundation/StringTokenizer.h"
#include "host/foundation/Suggest.h"
#include "host/foundation/WholeNumber.h"

#include <algorithm>

namespace {

struct FlagName {
  unsigned int Bit;
  const char* Name;
};

constexpr FlagName k_FlagNames[] = {
    {ParameterInfo::k_Required, "Required"},
    {ParameterInfo::k_OfJob, "OfJob"},
    {ParameterInfo::k_ReadOnly, "ReadOnly"},
    {ParameterInfo::k_OfEngine, "OfEngine"},
    {ParameterInfo::k_SubmitOnly, "SubmitOnly"},
    {ParameterInfo::k_Literal, "Literal"},
    {ParameterInfo::k_Advanced, "Advanced"},
    {ParameterInfo::k_Editable, "Editable"},
    {ParameterInfo::k_Visible, "Visible"},
    {ParameterInfo::k_Deprecated, "Deprecated"},
    {ParameterInfo::k_AffectsCommand, "AffectsCommand"},
    {ParameterInfo::k_Internal, "Internal"},
};

constexpr unsigned int k_DefaultFlags = ParameterInfo::k_OfJob | ParameterInfo::k_Editable |
                                        ParameterInfo::k_Visible | ParameterInfo::k_AffectsCommand;

using Problem = DefinitionProblem;

String DidYouMean(const String& unknown, const std::vector<String>& known) {
  const String near = SuggestName(unknown, known);
  return near.empty() ? String::Null : "did you mean \"" + near + "\"?";
}

std::optional<unsigned int> FindFlag(String name) {
  name.Trim();
  for (const FlagName& flag : k_FlagNames) {
    if (String::EqualNoCase(flag.Name, name)) {
      return flag.Bit;
    }
  }
  std::string_view digits = name;
  int base = 10;
  if (digits.size() > 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')) {
    digits.remove_prefix(2);
    base = 16;
  }
  return ReadWholeNumber<unsigned int>(digits, base);
}

Problem UnknownFlag(String name, TextPlace place, std::size_t length) {
  name.Trim();
  return {Problem::Kind::Flag, place, length, "unknown flag \"" + Shown(name) + "\"",
          DidYouMean(name, FlagNames())};
}

String UnescapeHelp(const String& text) {
  String plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size() && text[i + 1] == 'n') {
      plain.push_back('\n');
      ++i;
    } else {
      plain.push_back(text[i]);
    }
  }
  return plain;
}

// Who hears of the problems: a checker of all, the log within its budget.
enum class Audience { Checker, Log };

// One definition being read: its section's values, and what is wrong with
// them.
class Definition {
public:
  Definition(const String& name, IniFile& file, Audience audience)
      : m_Name(name), m_File(file), m_Audience(audience) {}

  // Whether a warning would only be counted. A checker wants all.
  bool IsSilent() const { return m_Audience == Audience::Log && WarningBudget::IsSpent(); }

  void Warn(Problem::Kind what, TextPlace place, std::size_t length, const String& message,
            const String& hint = String::Null) {
    m_Problems.push_back({what, place, length, message, hint});
  }
  void WarnHere(Problem::Kind what, const String& message, const String& hint = String::Null) {
    Warn(what, m_File.SectionPlace(m_Name), m_Name.size() + 2, message, hint);
  }
  void WarnValue(Problem::Kind what, const IniFile::EntryView& entry, const String& message,
                 const String& hint = String::Null) {
    Warn(what, entry.ValuePlace, entry.Value.size(), message, hint);
  }

  // The problems in the order of their places.
  std::vector<Problem> TakeProblems() {
    std::stable_sort(m_Problems.begin(), m_Problems.end(), [](const Problem& left, const Problem& right) {
      return left.Place.Line != right.Place.Line ? left.Place.Line < right.Place.Line
                                                 : left.Place.Column < right.Place.Column;
    });
    return std::move(m_Problems);
  }
  std::vector<Problem>& Problems() { return m_Problems; }

  // Whether there is a section; if not, the lists that name it are searched
  // for the place to point at.
  bool HasSection(const char* what, std::initializer_list<const char*> lists) {
    if (m_File.SetSection(m_Name)) {
      m_Entries = m_File.Entries(m_Name);
      return true;
    }
    if (IsSilent()) {
      WarningBudget::Take();
      return false;
    }
    TextPlace place;
    for (const char* list : lists) {
      for (const IniFile::EntryView& entry : m_File.Entries(list)) {
        if (place.Line == 0 && entry.Value == m_Name) {
          place = entry.ValuePlace;
        }
      }
    }
    if (m_Name.empty()) {
      Warn(Problem::Kind::Unnamed, place, 0, "the name of a " + String(what) + " is missing");
    } else {
      Warn(Problem::Kind::Missing, place, m_Name.size(),
           String(what) + " \"" + Shown(m_Name) + "\" is named but has no section [" + Shown(m_Name) + "]",
           DidYouMean(m_Name, m_File.SectionNames()));
    }
    return false;
  }

  void CheckKeys(const std::vector<String>& known) {
    for (const IniFile::EntryView& entry : m_Entries) {
      if (IsSilent()) {
        return; // whatever else there is
      }
      if (std::none_of(known.begin(), known.end(),
                       [&entry](const String& name) { return String::EqualNoCase(entry.Key, name); })) {
        const String key(entry.Key);
        Warn(Problem::Kind::UnknownKey, entry.KeyPlace, key.size(), "unknown key \"" + Shown(key) + "\"",
             DidYouMean(key, known));
      }
    }
  }

  // The value of a key, with its place; false where it is missing.
  bool Value(const char* key, String& value, IniFile::EntryView& entry) const {
    const IniFile::EntryView* found = Find(key);
    if (found == nullptr) {
      return false;
    }
    entry = *found;
    value.assign(entry.Value);
    return true;
  }

  String Text(const char* key, const String& fallback = String::Null) const {
    const IniFile::EntryView* found = Find(key);
    return found == nullptr ? fallback : String(found->Value);
  }

private:
  // A definition has a handful of keys, so the file is asked for all at once.
  const IniFile::EntryView* Find(std::string_view key) const {
    const auto found =
        std::find_if(m_Entries.begin(), m_Entries.end(), [key](const IniFile::EntryView& entry) {
          return entry.Key.size() == key.size() && String::EqualNoCase(entry.Key, key);
        });
    return found == m_Entries.end() ? nullptr : &*found;
  }

  const String& m_Name;
  IniFile& m_File;
  Audience m_Audience;
  std::vector<IniFile::EntryView> m_Entries; // of the section, as in the file
  std::vector<Problem> m_Problems;
};

ParameterInfo::TYPE LoadType(Definition& definition) {
  String value;
  IniFile::EntryView entry;
  if (!definition.Value("Type", value, entry)) {
    return ParameterInfo::k_Text;
  }
  const std::optional<ParameterInfo::TYPE> type = ParameterTypeFromName(value);
  if (!type) {
    definition.WarnValue(Problem::Kind::Type, entry, "unknown parameter type \"" + Shown(value) + "\"",
                         DidYouMean(value, ParameterTypeNames()));
  }
  return type.value_or(ParameterInfo::k_Text);
}

unsigned int LoadFlags(Definition& definition) {
  unsigned int flags = k_DefaultFlags;
  String value;
  IniFile::EntryView entry;
  if (definition.Value("Flags", value, entry)) {
    flags = ReadFlags(value, entry.ValuePlace, definition.Problems());
  }
  if (definition.Value("Required", value, entry)) {
    String why;
    if (!ParameterInfo(ParameterInfo::k_Boolean).Accepts(value, why)) {
      definition.WarnValue(Problem::Kind::Boolean, entry, why);
    } else if (value.Bool()) {
      flags |= ParameterInfo::k_Required;
    }
  }
  return flags;
}

void WarnUseless(Definition& definition, const char* key, ParameterInfo::TYPE type) {
  String value;
  IniFile::EntryView entry;
  if (definition.Value(key, value, entry)) {
    definition.Warn(Problem::Kind::UselessKey, entry.KeyPlace, entry.Key.size(),
                    String(key) + " has no use for a parameter of type " + ParameterTypeName(type));
  }
}

std::optional<double> LoadLimit(Definition& definition, const char* key, ParameterInfo::TYPE type) {
  String value;
  IniFile::EntryView entry;
  if (!definition.Value(key, value, entry)) {
    return std::nullopt;
  }
  double limit = 0;
  const bool readable =
      type == ParameterInfo::k_Duration ? ParseDuration(value, limit) : ParseDecimal(value, limit);
  if (!readable) {
    definition.WarnValue(Problem::Kind::Limit, entry,
                         String(key) + " needs a number, not \"" + Shown(value) + "\"");
    return std::nullopt;
  }
  return limit;
}

void LoadLimits(Definition& definition, ParameterInfo* param) {
  const ParameterInfo::TYPE type = param->Type();
  if (type != ParameterInfo::k_Integer && type != ParameterInfo::k_Decimal &&
      type != ParameterInfo::k_Duration) {
    WarnUseless(definition, "Minimum", type);
    WarnUseless(definition, "Maximum", type);
    return;
  }
  param->Minimum = LoadLimit(definition, "Minimum", type);
  param->Maximum = LoadLimit(definition, "Maximum", type);
  if (param->Minimum && param->Maximum && *param->Maximum < *param->Minimum) {
    String value;
    IniFile::EntryView entry;
    definition.Value("Maximum", value, entry);
    definition.WarnValue(Problem::Kind::Limit, entry,
                         "the maximum of " + Shown(value) + " is below the minimum of " +
                             Shown(definition.Text("Minimum")));
    param->Maximum.reset();
  }
}

void LogProblems(const IniFile& file, const std::vector<Problem>& problems) {
  for (const Problem& problem : problems) {
    LogWarning(PlacedMessage(file.Filename(), problem.Place, "warning", problem.Text()));
  }
}

void LoadChoices(Definition& definition, ParameterInfo* param) {
  if (param->Type() != ParameterInfo::k_Choice) {
    WarnUseless(definition, "Choices", param->Type());
    return;
  }
  String value;
  IniFile::EntryView entry;
  if (definition.Value("Choices", value, entry)) {
    for (String& choice : StringTokenizer::Split(value, ',')) {
      if (!choice.Trim().empty()) {
        param->Choices.push_back(choice);
      }
    }
  }
  if (param->Choices.empty()) {
    const char* message = "a choice needs Choices, as in Choices=low,medium,high";
    if (entry.Value.data() != nullptr) {
      definition.WarnValue(Problem::Kind::Choices, entry, message);
    } else {
      definition.WarnHere(Problem::Kind::Choices, message);
    }
  }
}

} // namespace

ParameterInfo* JobTypeInfo::NewParam(ParameterInfo::TYPE type) {
  m_Params.push_back(ParameterInfo::Create(type));
  return m_Params.back().get();
}

// Asked for each parameter of each work, and few names have the same length.
ParameterInfo* JobTypeInfo::GetParam(const String& name) const {
  const auto found = std::find_if(m_Params.begin(), m_Params.end(), [&name](const auto& param) {
    return param->Name.size() == name.size() && String::EqualNoCase(param->Name, name);
  });
  return found == m_Params.end() ? nullptr : found->get();
}

ParameterInfo* JobTypeInfo::GetParam(unsigned long position) const {
  return position < m_Params.size() ? m_Params[position].get() : nullptr;
}

const CommandInfo* JobTypeInfo::GetCommand(const String& name) const {
  const auto found = std::find_if(m_Commands.begin(), m_Commands.end(), [&name](const CommandInfo& command) {
    return String::EqualNoCase(command.Name, name);
  });
  return found == m_Commands.end() ? nullptr : &*found;
}

namespace {

std::vector<Problem> ReadParameterFor(Audience audience, const String& name, IniFile& file,
                                      JobTypeInfo* info) {
  Definition definition(name, file, audience);
  if (!definition.HasSection("parameter", {"PrimaryParameters", "SecondaryParameters"})) {
    return definition.TakeProblems();
  }
  static const std::vector<String> s_Keys = ParameterKeys();
  definition.CheckKeys(s_Keys);
  if (info->GetParam(name) != nullptr) {
    definition.WarnHere(Problem::Kind::Repeated, "the type has a parameter \"" + Shown(name) + "\" already",
                        "this definition is not used");
    return definition.TakeProblems();
  }
  ParameterInfo* param = info->NewParam(LoadType(definition));
  param->Name = name;
  param->Label = definition.Text("Label", name);
  param->Help = UnescapeHelp(definition.Text("Help"));
  param->Flags = LoadFlags(definition);
  if (FileParameterInfo* picked = FileParameterInfo::CastFrom(param)) {
    picked->Filter = definition.Text("Filter");
  } else {
    WarnUseless(definition, "Filter", param->Type());
  }
  LoadLimits(definition, param);
  LoadChoices(definition, param);

  String value;
  IniFile::EntryView entry;
  String why;
  if (definition.Value("Default", value, entry)) {
    // Without choices every default would be refused; one warning will do.
    const bool cannotTell = param->Type() == ParameterInfo::k_Choice && param->Choices.empty();
    if (cannotTell || param->Accepts(value, why)) {
      param->Default = value;
    } else {
      definition.WarnValue(Problem::Kind::Default, entry,
                           "this default is refused: " + why.substr(0, why.find('\n')));
    }
  }
  return definition.TakeProblems();
}

std::vector<Problem> ReadCommandFor(Audience audience, const String& name, IniFile& file, JobTypeInfo* info) {
  Definition definition(name, file, audience);
  if (!definition.HasSection("command", {"PrimaryCommands", "SecondaryCommands"})) {
    return definition.TakeProblems();
  }
  static const std::vector<String> s_Keys = CommandKeys();
  definition.CheckKeys(s_Keys);
  if (info->GetCommand(name) != nullptr) {
    definition.WarnHere(Problem::Kind::Repeated, "the type has a command \"" + Shown(name) + "\" already",
                        "this definition is not used");
    return definition.TakeProblems();
  }
  CommandInfo command;
  command.Name = name;
  command.Label = definition.Text("Label", name);
  command.Help = UnescapeHelp(definition.Text("Help"));
  command.Command = definition.Text("Command");
  if (command.Command.empty()) {
    definition.WarnHere(Problem::Kind::Command, "command \"" + Shown(name) + "\" has no Command line to run");
  }
  info->AddCommand(std::move(command));
  return definition.TakeProblems();
}

} // namespace

std::vector<DefinitionProblem> ReadParameter(const String& name, IniFile& file, JobTypeInfo* info) {
  return ReadParameterFor(Audience::Checker, name, file, info);
}

std::vector<DefinitionProblem> ReadCommand(const String& name, IniFile& file, JobTypeInfo* info) {
  return ReadCommandFor(Audience::Checker, name, file, info);
}

void SLoadParameter(const String& name, IniFile& file, JobTypeInfo* info) {
  LogProblems(file, ReadParameterFor(Audience::Log, name, file, info));
}

void SLoadCommand(const String& name, IniFile& file, JobTypeInfo* info) {
  LogProblems(file, ReadCommandFor(Audience::Log, name, file, info));
}

unsigned int ReadFlags(std::string_view list, TextPlace place, std::vector<DefinitionProblem>& problems) {
  unsigned int flags = 0;
  for (const StringTokenizer::Piece& piece : StringTokenizer::SplitPlaced(String(list), ',')) {
    const std::optional<unsigned int> bits = FindFlag(piece.Text);
    if (bits) {
      flags |= *bits & ~ParameterInfo::k_Internal;
      continue;
    }
    const std::string_view written = list.substr(piece.Begin, piece.End - piece.Begin);
    const std::size_t blanks = std::min(written.find_first_not_of(' '), written.size());
    const std::size_t length = written.substr(blanks).find_last_not_of(' ') + 1;
    const TextPlace at{place.Line, place.Column + static_cast<std::uint32_t>(piece.Begin + blanks)};
    problems.push_back(UnknownFlag(piece.Text, at, length));
  }
  return flags;
}

std::vector<String> ParameterKeys() {
  return {"Type", "Label", "Help", "Default", "Flags", "Filter", "Minimum", "Maximum", "Choices", "Required"};
}

std::vector<String> CommandKeys() {
  return {"Label", "Help", "Command"};
}

unsigned int STranslateFlag(const String& name) {
  const std::optional<unsigned int> flag = FindFlag(name);
  if (flag || UnknownFlags::Note()) {
    return flag.value_or(0);
  }
  if (WarningBudget::IsSpent()) {
    WarningBudget::Take();
  } else {
    LogWarning(UnknownFlag(name, {}, 0).Text());
  }
  return flag.value_or(0);
}

std::vector<String> FlagNames() {
  std::vector<String> names;
  for (const FlagName& flag : k_FlagNames) {
    names.emplace_back(flag.Name);
  }
  return names;
}

String FlagsAsText(unsigned int flags) {
  String text;
  const auto add = [&text](const String& name) { text += (text.empty() ? "" : ", ") + name; };
  for (const FlagName& flag : k_FlagNames) {
    if ((flags & flag.Bit) != 0) {
      add(flag.Name);
      flags &= ~flag.Bit;
    }
  }
  if (flags != 0) {
    add(SFormat("0x%X", flags)); // bits that have no name
  }
  return text;
}

String PlacedMessage(const Path& file, TextPlace place, const String& severity, const String& text) {
  const String where = place.Line == 0
                           ? String::Null
                           : String(std::to_string(place.Line) + ":" + std::to_string(place.Column) + ":");
  return file.Text() + ":" + where + " " + severity + ": " + text;
}
