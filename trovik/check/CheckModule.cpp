// The section [Module], and sections that nobody knows.

#include "host/application/Definition.h"
#include "host/application/Excerpt.h"
#include "host/foundation/Exception.h"
#include "host/foundation/WholeNumber.h"
#include "trovik/check/TypeCheck.h"
#include "trovik/text/UsageError.h"

#include <algorithm>

namespace trovik {
namespace {

bool holds(const std::vector<String>& names, std::string_view name) {
  return std::any_of(names.begin(), names.end(),
                     [name](const String& known) { return String::EqualNoCase(known, name); });
}

std::string freshID() {
  return "such as ID=" + UID(true).GenString();
}

void checkID(const TypeCheck& check) {
  IniFile::EntryView entry;
  if (!check.source.ini().FindEntry("Module", "ID", entry)) {
    check.out.error("missing-id", check.sectionSpan("Module"), "the type has no ID, so it is not loaded",
                    "write one below, " + freshID());
    return;
  }
  const PlacedText id = valueOf(entry);
  UID type;
  try {
    type.FromString(String(id.text));
  } catch (Exception* exception) {
    takeText(exception);
    check.out.error("bad-id", id.span, quotedText(id.text) + " is no ID, so the type is not loaded",
                    "write 36 characters, " + freshID());
    return;
  }
  if (type.IsNull()) {
    check.out.warning("null-id", id.span, "this is the ID that stands for no type",
                      "write one of its own, " + freshID());
  }
}

/// A key or section that means nothing here: an error where a known one was
/// meant, else perhaps somebody's own note.
void unknown(const TypeCheck& check, const char* rule, const Span& span, const std::string& message,
             const std::string& hint, const std::string& otherwise) {
  if (hint.empty()) {
    check.out.warning(rule, span, message, otherwise);
  } else {
    check.out.error(rule, span, message, hint);
  }
}

void checkKeys(const TypeCheck& check, const char* section, const std::vector<String>& known) {
  for (const IniFile::EntryView& entry : check.source.ini().Entries(section)) {
    if (check.out.full()) {
      return;
    }
    const std::string home = homeOfKey(check, String(entry.Key));
    if (!holds(known, entry.Key) && !home.empty()) {
      check.out.error("misplaced-key", keyOf(entry).span,
                      quotedText(entry.Key) + " sets nothing in the section [" + std::string(section) + "]",
                      "write it in [" + home + "]");
    } else if (!holds(known, entry.Key)) {
      unknown(check, "unknown-key", keyOf(entry).span,
              "unknown key " + quotedText(entry.Key) + " in the section [" + std::string(section) + "]",
              didYouMean(entry.Key, known), "it is passed over; take it out");
    }
  }
}

void checkBooleans(const TypeCheck& check) {
  for (const char* key : {"DefaultEnabled", "CheckForMultipleFiles", "ErrorDetectPosition"}) {
    IniFile::EntryView entry;
    if (!check.source.ini().FindEntry("Module", key, entry)) {
      continue;
    }
    String why;
    if (entry.Value.empty()) {
      check.out.warning("bad-boolean", keyOf(entry).span, std::string(key) + " is empty, which means no",
                        "write Yes or No");
    } else if (!ParameterInfo(ParameterInfo::k_Boolean).Accepts(String(entry.Value), why)) {
      const std::string near = didYouMean(entry.Value, {"Yes", "No", "True", "False", "On", "Off"});
      // What looks like another word was meant otherwise.
      check.out.add(near.empty() ? Severity::Warning : Severity::Error, "bad-boolean", valueOf(entry).span,
                    Shown(why) + ", and is read as no", near.empty() ? "write Yes or No" : near);
    }
  }
}

void checkNumberLength(const TypeCheck& check) {
  IniFile::EntryView entry;
  if (!check.source.ini().FindEntry("Module", "SceneNumberLength", entry)) {
    return;
  }
  const PlacedText value = valueOf(entry);
  const auto digits = ReadWholeNumber<int>(value.text);
  const char* const hint = "write how many digits a scene's number has at least, such as 3";
  if (value.text.empty()) {
    check.out.warning("bad-number", keyOf(entry).span, "SceneNumberLength is empty, which means 0", hint);
  } else if (!digits) {
    check.out.error("bad-number", value.span,
                    "SceneNumberLength needs a whole number, not " + quotedText(value.text), hint);
  } else if (*digits < 1) {
    check.out.warning(
        "bad-number", value.span,
        "SceneNumberLength is " + std::to_string(*digits) + ", but a number has one digit at least", hint);
  }
}

/// Quotes are part of a value, except within its lists.
void checkQuotes(const TypeCheck& check) {
  const auto tell = [&](const IniFile::EntryView& entry, const std::string& what) {
    const std::string_view value = entry.Value;
    if (value.size() > 1 && value.front() == '"' && value.back() == '"' &&
        value.substr(1, value.size() - 2).find('"') == std::string_view::npos) {
      check.out.warning("quoted-value", valueOf(entry).span, what, "leave them out");
    }
  };
  IniFile::EntryView entry;
  for (const char* key : {"Name", "Help", "Details"}) {
    if (check.source.ini().FindEntry("Module", key, entry)) {
      tell(entry, "the quotes are part of this " + String(key).Lower());
    }
  }
  for (const IniFile::EntryView& text : check.source.ini().Entries("SuccessText")) {
    // Else they keep blanks at the ends of the text.
    if (text.Value.size() > 2 && text.Value[1] != ' ' && text.Value[text.Value.size() - 2] != ' ') {
      tell(text, "a success text is compared without its quotes, an error text with them");
    }
  }
  for (const char* section : {"ErrorText", "ErrorIgnore"}) {
    for (const IniFile::EntryView& text : check.source.ini().Entries(section)) {
      tell(text, "the quotes are part of this text, and of the line that it is looked for in");
    }
  }
}

void checkAliases(const TypeCheck& check) {
  IniFile::EntryView entry;
  if (!check.source.ini().FindEntry("Module", "Shortcut", entry)) {
    return;
  }
  std::vector<String> seen;
  for (const PlacedText& piece : piecesOf(valueOf(entry), ',')) {
    String alias(piece.text);
    const std::size_t blanks = std::min(piece.text.find_first_not_of(" \t"), piece.text.size());
    alias.Trim();
    if (alias.empty()) {
      check.out.warning("empty-alias", piece.span, "there is an empty name in this list",
                        "leave out a comma");
    } else if (seen.size() < 100 && holds(seen, alias)) {
      check.out.warning("doubled-name", piece.span.part(blanks, alias.size()),
                        "the name " + quotedText(alias) + " stands in this list twice",
                        "leave one of them out");
    }
    seen.push_back(alias);
  }
}

std::set<std::string> namedSections(const TypeCheck& check) {
  std::set<std::string> named;
  for (const char* list :
       {"PrimaryParameters", "SecondaryParameters", "PrimaryCommands", "SecondaryCommands"}) {
    for (const IniFile::EntryView& entry : check.source.ini().Entries(list)) {
      named.insert(lowered(entry.Value));
    }
  }
  return named;
}

/// A section that no list names: a definition that was forgotten, or a name
/// that was mistyped.
void unknownSection(const TypeCheck& check, const String& name) {
  const Span span = check.sectionSpan(name);
  const std::string near = didYouMean(name, fixedSections());
  if (!near.empty()) {
    check.out.error("unknown-section", span, "unknown section [" + Shown(name) + "]", near);
    return;
  }
  bool parameter = false;
  bool command = false;
  for (const IniFile::EntryView& entry : check.source.ini().Entries(name)) {
    command = command || String::EqualNoCase(entry.Key, "Command");
    parameter = parameter || holds(ParameterKeys(), entry.Key);
  }
  if (command || parameter) {
    const char* list = command ? "PrimaryCommands" : "PrimaryParameters";
    check.out.warning("unused-definition", span,
                      "no list names " + quotedText(name) + ", so its definition is not used",
                      "name it in [" + std::string(list) + "], or take it out");
  } else {
    check.out.warning("unknown-section", span, "unknown section [" + Shown(name) + "]",
                      "it is passed over; take it out");
  }
}

} // namespace

void checkModule(const TypeCheck& check) {
  const IniFile& ini = check.source.ini();
  if (ini.SectionPlace("Module").Line == 0) {
    Span span{{1, 1}, 0};
    std::string hint = "begin with the line [Module]";
    for (const String& name : ini.SectionNames()) {
      if (!didYouMean(name, {"Module"}).empty()) {
        span = check.sectionSpan(name);
        hint = didYouMean(name, {"Module"});
        break;
      }
    }
    check.out.error("no-module", span, "there is no section [Module], so the file is passed over", hint);
    return;
  }
  checkID(check);
  checkKeys(check, "Module", moduleKeys());
  checkKeys(check, "FindLatestExecutable", searchKeys());
  checkBooleans(check);
  checkNumberLength(check);
  checkQuotes(check);
  checkAliases(check);
  if (ini.GetValue("Module", "Name", "").empty()) {
    check.out.warning("no-name", check.sectionSpan("Module"), "the type has no name",
                      "write Name=... as users shall see it");
  }
}

void checkSections(const TypeCheck& check) {
  const std::vector<String> names = check.source.ini().SectionNames();
  const bool hasModule = check.source.ini().SectionPlace("Module").Line != 0;
  const std::set<std::string> named = namedSections(check);
  std::size_t checked = 0;
  for (const String& name : names) {
    // Each is compared with every name that is known.
    if (check.out.full() || ++checked > 5000) {
      return;
    }
    const bool meansModule = !hasModule && !didYouMean(name, {"Module"}).empty();
    if (!holds(fixedSections(), name) && !named.contains(lowered(name)) && !meansModule) {
      unknownSection(check, name);
    }
  }
}

} // namespace trovik
