// The lists of parameters and commands, and their definitions.

#include "host/application/Definition.h"
#include "host/application/Excerpt.h"
#include "host/foundation/StringTokenizer.h"
#include "trovik/check/TypeCheck.h"

#include <algorithm>

namespace trovik {
namespace {

using Kind = DefinitionProblem::Kind;

struct Rule {
  const char* name;
  Severity severity;
};

Rule ruleOf(const DefinitionProblem& problem) {
  switch (problem.What) {
  case Kind::Unnamed:
    return {"no-definition-name", Severity::Error};
  case Kind::Missing:
    return {"missing-definition", Severity::Error};
  case Kind::Repeated:
    return {"doubled-name", Severity::Error};
  case Kind::UnknownKey:
    return {"unknown-key", problem.Hint.empty() ? Severity::Warning : Severity::Error};
  case Kind::UselessKey:
    return {"useless-key", Severity::Warning};
  case Kind::Type:
    return {"unknown-type", Severity::Error};
  case Kind::Flag:
    return {"unknown-flag", Severity::Error};
  case Kind::Boolean:
    return {"bad-boolean", Severity::Error};
  case Kind::Limit:
    return {"bad-limit", Severity::Error};
  case Kind::Choices:
    return {"no-choices", Severity::Error};
  case Kind::Default:
    return {"bad-default", Severity::Error};
  case Kind::Command:
    return {"no-command", Severity::Error};
  }
  return {"definition", Severity::Error};
}

bool isComputed(const String& name) {
  return String::EqualNoCase(name, "Frame") || String::EqualNoCase(name, "SubRange") ||
         String::EqualNoCase(name, "ActualScene") || String::EqualNoCase(name, "ActualSubRange");
}

void report(const TypeCheck& check, const DefinitionProblem& problem) {
  const Rule rule = ruleOf(problem);
  auto [fact, hint] = factAndHint(problem.Message);
  if (problem.What == Kind::UnknownKey || problem.What == Kind::UselessKey) {
    hint = "it is passed over; take it out";
  } else if (problem.What == Kind::Missing && problem.Hint.empty()) {
    const bool several = problem.Message.find(',') != String::npos;
    hint = several ? "write one name an entry: 1=..., 2=..."
                   : "write the section, or take the name out of the list";
  }
  check.out.add(rule.severity, rule.name, {problem.Place, problem.Length}, fact,
                problem.Hint.empty() ? hint : std::string(problem.Hint));
}

/// Reads the lists in the order in which the module does, into a description
/// that knows what came before.
class Definitions {
public:
  explicit Definitions(const TypeCheck& check) : check_(check), ini_(check.source.ini(), false) {}

  void run() {
    parameters("PrimaryParameters");
    commands("PrimaryCommands");
    for (const String& name : check_.standard) {
      info_.NewParam(ParameterInfo::k_Text)->Name = name;
    }
    second_ = true;
    parameters("SecondaryParameters");
    commands("SecondaryCommands");
  }

private:
  void parameters(const char* list) {
    forEach(list, [this](const PlacedText& name) {
      if (!isFree(name, "parameter") || !isUsable(name)) {
        return;
      }
      std::vector<DefinitionProblem> problems = ReadParameter(String(name.text), ini_, &info_);
      const auto isOf = [](Kind kind) {
        return [kind](const DefinitionProblem& problem) { return problem.What == kind; };
      };
      if (std::any_of(problems.begin(), problems.end(), isOf(Kind::Type))) {
        std::erase_if(problems, isOf(Kind::UselessKey)); // nobody knows what has a use
      }
      for (const DefinitionProblem& problem : problems) {
        this->problem(problem, name);
      }
      checkChoices(String(name.text));
      checkSettable(name);
    });
  }

  void commands(const char* list) {
    forEach(list, [this](const PlacedText& name) {
      if (!isFree(name, "command")) {
        return;
      }
      for (const DefinitionProblem& problem : ReadCommand(String(name.text), ini_, &info_)) {
        this->problem(problem, name);
      }
    });
  }

  /// A name that is missing stands in the list, whichever list names it first.
  void problem(const DefinitionProblem& found, const PlacedText& name) {
    DefinitionProblem placed = found;
    if (found.What == Kind::Missing || found.What == Kind::Unnamed) {
      placed.Place = name.span.place;
    }
    report(check_, placed);
  }

  template <typename Action> void forEach(const char* list, Action action) {
    IniFile& ini = check_.source.ini();
    if (!ini.SetSection(list)) {
      return;
    }
    checkOrder(list);
    String key;
    String value;
    std::vector<PlacedText> names;
    while (ini.GetNextValue(key, value)) {
      IniFile::EntryView entry;
      ini.FindEntry(list, key, entry);
      names.push_back(valueOf(entry));
      if (entry.Value.empty()) {
        names.back().span = keyOf(entry).span;
      }
    }
    std::for_each(names.begin(), names.end(), action);
  }

  /// Keys 1 to 10 are taken in the order 1, 10, 2.
  void checkOrder(const char* list) {
    const auto isNumber = [](std::string_view key) {
      return key.size() < 10 && key.find_first_not_of("0123456789") == std::string_view::npos;
    };
    IniFile::EntryView before;
    std::vector<IniFile::EntryView> entries = check_.source.ini().Entries(list);
    if (!std::all_of(entries.begin(), entries.end(),
                     [&](const IniFile::EntryView& entry) { return isNumber(entry.Key); })) {
      return;
    }
    std::stable_sort(entries.begin(), entries.end(), [](const auto& left, const auto& right) {
      return String::CompareNoCase(left.Key, right.Key) < 0;
    });
    for (const IniFile::EntryView& entry : entries) {
      if (!before.Key.empty() && std::stol(std::string(before.Key)) > std::stol(std::string(entry.Key))) {
        check_.out.warning("list-order", keyOf(before).span,
                           "the entry " + std::string(before.Key) + " comes before the entry " +
                               std::string(entry.Key) + ": keys are sorted as texts",
                           "number them 01, 02, ... with as many digits each");
        return;
      }
      before = entry;
    }
  }

  bool isFree(const PlacedText& name, const char* what) {
    const std::string key = lowered(name.text);
    const auto is = [&key](const String& known) { return lowered(known) == key; };
    const std::vector<String>& fixed = fixedSections();
    if (!name.text.empty() && std::any_of(fixed.begin(), fixed.end(), is)) {
      check_.out.error("reserved-name", name.span,
                       "a " + std::string(what) + " cannot be named " + quotedText(name.text) +
                           ": that section has a meaning of its own",
                       "choose another name");
      return false;
    }
    const auto [known, isNew] = places_.try_emplace(key, what, name.span.place.Line);
    if (isNew || name.text.empty()) {
      return true;
    }
    check_.out.error("doubled-name", name.span,
                     quotedText(name.text) + " is named in line " + std::to_string(known->second.second) +
                         " already" + (known->second.first == what ? "" : ", as a " + known->second.first),
                     "take one of them out");
    return false;
  }

  bool isUsable(const PlacedText& name) {
    const String text(name.text);
    if (name.text.find_first_of(".()$") != std::string::npos) {
      check_.out.error("bad-name", name.span, "no reference can name the parameter " + quotedText(name.text),
                       "choose a name without \".\", \"(\", \")\" and \"$\"");
    }
    if (isComputed(text)) {
      check_.out.error("shadowed-name", name.span,
                       "$(" + text + ") is computed, and never has the value of a parameter",
                       "choose another name");
      return false;
    }
    if (check_.isStandard(text)) {
      if (second_) {
        check_.out.error("shadowed-name", name.span,
                         "every type has a parameter " + quotedText(name.text) +
                             ", so this definition is not used",
                         "change it with [OverrideDefaults] and its like, or choose another name");
        return false;
      }
      check_.out.warning("shadowed-name", name.span,
                         "this takes the place of the parameter " + quotedText(name.text) +
                             " that every type has",
                         "change it with [OverrideDefaults] and its like, or choose another name");
    }
    return true;
  }

  void checkChoices(const String& name) {
    IniFile::EntryView entry;
    if (!check_.source.ini().FindEntry(name, "Choices", entry)) {
      return;
    }
    std::set<std::string> seen;
    for (const PlacedText& piece : piecesOf(valueOf(entry), ',')) {
      String choice(piece.text);
      choice.Trim();
      if (choice.empty()) {
        check_.out.warning("empty-choice", piece.span, "there is an empty choice in this list",
                           "leave out a comma");
      } else if (!seen.insert(lowered(choice)).second) {
        check_.out.warning("doubled-choice", piece.span,
                           "the choice " + quotedText(choice) + " stands here twice",
                           "leave one of them out");
      }
    }
  }

  /// Required, but no user can give it a value.
  void checkSettable(const PlacedText& name) {
    const ParameterInfo* parameter = check_.info->GetParam(String(name.text));
    if (parameter != nullptr && parameter->Default.empty() &&
        (parameter->Flags & ParameterInfo::k_Required) != 0 &&
        (parameter->Flags & ParameterInfo::k_ReadOnly) != 0) {
      check_.out.error("never-valid", name.span,
                       "the parameter " + quotedText(name.text) +
                           " is required and read-only, but has no default: no job is valid",
                       "give it a default, or take off one of the flags");
    }
  }

  const TypeCheck& check_;
  IniFile ini_; // a copy, whose current section the reading moves
  JobTypeInfo info_;
  bool second_ = false; // the standard parameters stand already
  std::map<std::string, std::pair<std::string, std::uint32_t>> places_;
};

/// Parameters with a limit on commands that nothing hands on.
void checkUnused(const TypeCheck& check) {
  const auto hasMeaning = [&check](const String& name) {
    const auto is = [&name](const String& known) { return String::EqualNoCase(known, name); };
    return check.isStandard(name) || std::any_of(fixedSections().begin(), fixedSections().end(), is);
  };
  std::set<std::string> used;
  const auto take = [&used](const String& text) {
    for (std::size_t at = text.find("$("); at != String::npos; at = text.find("$(", at + 2)) {
      const std::size_t end = text.find_first_of(".)", at + 2);
      used.insert(lowered(std::string_view(text).substr(at + 2, end - at - 2)));
    }
  };
  for (std::size_t i = 0; i < check.info->ParamCount(); ++i) {
    take(check.info->GetParam(static_cast<unsigned long>(i))->Default);
  }
  for (const CommandInfo& command : check.info->Commands()) {
    take(command.Command);
  }
  for (const IniFile::EntryView& entry : check.source.ini().Entries("AutoDetect")) {
    take(String(entry.Value));
  }
  for (const char* list : {"PrimaryParameters", "SecondaryParameters"}) {
    for (const IniFile::EntryView& entry : check.source.ini().Entries(list)) {
      const String name(entry.Value);
      const ParameterInfo* parameter = check.info->GetParam(name);
      if (check.out.full()) {
        return;
      }
      if (parameter != nullptr && parameter->Type() != ParameterInfo::k_Heading &&
          (parameter->Flags & ParameterInfo::k_AffectsCommand) != 0 && !hasMeaning(name) &&
          !isComputed(name) && !used.contains(lowered(name))) {
        check.out.warning("unused-parameter", check.sectionSpan(name),
                          "no command line has $(" + Shown(name) + "), so the parameter does nothing",
                          "use it in Command, or leave AffectsCommand out of its flags");
      }
    }
  }
}

} // namespace

void checkParameters(const TypeCheck& check) {
  Definitions(check).run();
  checkUnused(check);
}

} // namespace trovik
