// How values are written: lists with the wrong separator, quotes, patterns and
// home folders where plain names are wanted, and letters that look like others.

#include "host/application/Constants.h"
#include "host/foundation/Characters.h"
#include "trovik/check/References.h"

#include <algorithm>
#include <array>

namespace trovik {
namespace {

/// The text with "x" for what its references give.
std::string withoutReferences(const std::string& text) {
  std::string masked = text;
  for (const Reference& reference : referencesIn(String(text))) {
    std::fill(masked.begin() + static_cast<std::ptrdiff_t>(reference.Begin),
              masked.begin() + static_cast<std::ptrdiff_t>(reference.End), 'x');
  }
  return masked;
}

std::optional<PlacedText> entryOf(const TypeCheck& check, const char* section, const char* key) {
  IniFile::EntryView entry;
  return check.source.ini().FindEntry(section, key, entry) ? std::optional(valueOf(entry)) : std::nullopt;
}

/// A list within one value.
struct ValueList {
  PlacedText value;
  char separator;
};

std::vector<ValueList> commaLists(const TypeCheck& check) {
  std::vector<ValueList> lists;
  const auto add = [&lists](const std::optional<PlacedText>& value) {
    if (value) {
      lists.push_back({*value, ','});
    }
  };
  add(entryOf(check, "Module", "Shortcut"));
  add(entryOf(check, "FindLatestExecutable", "LinuxRoots"));
  add(entryOf(check, "FindLatestExecutable", "LinuxBases"));
  for (const char* list : {"PrimaryParameters", "SecondaryParameters"}) {
    for (const IniFile::EntryView& name : check.source.ini().Entries(list)) {
      add(entryOf(check, String(name.Value).c_str(), "Choices"));
    }
  }
  return lists;
}

void checkSemicolons(const TypeCheck& check, const ValueList& list) {
  const std::size_t place = list.value.text.find(';');
  if (place != std::string::npos && list.value.text.find('"') == std::string::npos) {
    check.out.warning("wrong-separator", list.value.span.part(place, 1),
                      "this list is split at commas, so the semicolon is part of an item",
                      "write a comma, or the item in double quotes where the semicolon is meant");
  }
}

/// A variable's name and "=" behind a comma.
bool isAssignment(const std::string& text, std::size_t comma) {
  const std::size_t begin = text.find_first_not_of(' ', comma + 1);
  std::size_t end = std::min(begin, text.size());
  while (end < text.size() && (IsAsciiLetter(text[end]) || IsDigit(text[end]) || text[end] == '_')) {
    ++end;
  }
  return end > begin && end < text.size() && text[end] == '=';
}

void checkCommas(const TypeCheck& check, const char* parameter, const PlacedText& value) {
  const std::string masked = withoutReferences(value.text);
  if (masked.find_first_of(";\"\\") != std::string::npos) {
    return; // whoever writes these knows how the list is split
  }
  for (std::size_t comma = masked.find(','); comma != std::string::npos;
       comma = masked.find(',', comma + 1)) {
    if (parameter != p_Environment || isAssignment(masked, comma)) {
      check.out.warning("wrong-separator", value.span.part(comma, 1),
                        "this list is split at semicolons, so the comma is part of an item",
                        "write a semicolon, or the item in double quotes where the comma is meant");
      return;
    }
  }
}

/// A quote that opens and never closes takes the separators behind it along,
/// and vanishes itself.
void checkUnclosed(const TypeCheck& check, const PlacedText& value, char separator) {
  std::size_t open = std::string::npos;
  for (std::size_t i = 0; i < value.text.size(); ++i) {
    const char c = value.text[i];
    const char next = i + 1 < value.text.size() ? value.text[i + 1] : '\0';
    if (c == '\\' && (next == separator || next == '"' || next == '\\')) {
      ++i;
    } else if (c == '"') {
      open = open == std::string::npos ? i : std::string::npos;
    }
  }
  if (open != std::string::npos) {
    check.out.warning("unclosed-quote", value.span.part(open, 1),
                      "this quote is never closed: it is left out, and what is behind it is not split",
                      "close it, or write \\\" where a quote is meant");
  }
}

void checkPath(const TypeCheck& check, const PlacedText& value, bool mayBePattern) {
  const std::string masked = withoutReferences(value.text);
  const auto at = [&value](std::size_t place, std::size_t count) {
    return value.span.length == value.text.size() ? value.span.part(place, count) : value.span;
  };
  if (masked.size() > 1 && (masked.front() == '"' || masked.front() == '\'') &&
      masked.back() == masked.front()) {
    check.out.warning("quoted-value", value.span, "the quotes are part of this name", "leave them out");
  }
  const std::size_t home = masked.starts_with("~/") || masked == "~" ? 0 : masked.find("=~/") + 1;
  if (home != 0 || masked.starts_with('~')) {
    check.out.warning("shell-syntax", at(home, 1), "\"~\" is no home folder here", "write the whole path");
  }
  for (const char* variable : {"$HOME", "${HOME}", "$USER", "${USER}", "$PWD", "${PWD}"}) {
    if (const std::size_t place = masked.find(variable); place != std::string::npos) {
      check.out.warning("shell-syntax", at(place, std::string_view(variable).size()),
                        "no variable of the environment is put in here", "write its value");
      break;
    }
  }
  if (const std::size_t star = masked.find('*'); star != std::string::npos && !mayBePattern) {
    check.out.warning("pattern-in-name", at(star, 1), "\"*\" finds no files here: it is a letter of the name",
                      "write the whole name");
  }
  const std::size_t comment = std::min(masked.find(" ;"), masked.find(" # "));
  if (comment != std::string::npos) {
    check.out.warning("comment-in-value", at(comment + 1, masked.size() - comment - 1),
                      "this is no comment but part of the name", "write the comment in a line of its own");
  }
}

/// "%04d" and "####", by which programs number their files.
void checkNumbering(const TypeCheck& check, const PlacedText& value) {
  const std::string masked = withoutReferences(value.text);
  std::size_t place = masked.find("##");
  std::size_t end = std::min(masked.find_first_not_of('#', place), masked.size());
  for (std::size_t i = masked.find('%'); i != std::string::npos && place == std::string::npos;
       i = masked.find('%', i + 1)) {
    end = std::min(masked.find_first_not_of("0123456789", i + 1), masked.size());
    if (end < masked.size() && masked[end] == 'd') {
      place = i;
      ++end;
    }
  }
  if (place != std::string::npos) {
    check.out.warning(
        "pattern-in-name",
        value.span.length == value.text.size() ? value.span.part(place, end - place) : value.span,
        quotedText(masked.substr(place, end - place)) + " stays as it is in the name of an expected file",
        "write $(Frame.Pad(4)) for the frame");
  }
}

void checkPaths(const TypeCheck& check) {
  for (const char* parameter : {p_Executable, p_OutputFolder, p_StartDirectory}) {
    if (const std::optional<PlacedText> value = check.defaultOf(parameter)) {
      checkPath(check, *value, false);
    }
  }
  if (const std::optional<PlacedText> exe = entryOf(check, "FindLatestExecutable", "LinuxExe")) {
    checkPath(check, *exe, false);
  }
  if (const std::optional<PlacedText> roots = entryOf(check, "FindLatestExecutable", "LinuxRoots")) {
    for (const PlacedText& root : piecesOf(*roots, ',')) {
      PlacedText trimmed = root;
      const std::size_t blanks = std::min(root.text.find_first_not_of(" \t"), root.text.size());
      trimmed.text.erase(0, blanks);
      if (root.span.length == root.text.size()) {
        trimmed.span = root.span.part(blanks, trimmed.text.size());
      }
      checkPath(check, trimmed, false);
    }
  }
  if (const std::optional<PlacedText> files = check.defaultOf(p_ExpectedFiles)) {
    for (const PlacedText& file : piecesOf(*files, ';')) {
      checkPath(check, file, false);
      checkNumbering(check, file);
    }
  }
  if (const std::optional<PlacedText> variables = check.defaultOf(p_Environment)) {
    for (const PlacedText& variable : piecesOf(*variables, ';')) {
      checkPath(check, variable, true);
    }
  }
}

/// Keys whose values people read.
constexpr std::array<const char*, 5> proseKeys = {"Name", "Help", "Details", "Label", "Filter"};

struct OddCharacter {
  std::string_view bytes;
  const char* name;
  bool inCommands; ///< doubtful only where a program's options are written
};

constexpr std::array<OddCharacter, 12> oddCharacters = {{{"\xC2\xA0", "a no-break space", false},
                                                         {"\xC2\xAD", "a soft hyphen", false},
                                                         {"\xE2\x80\x8B", "a space without width", false},
                                                         {"\xE2\x80\x8E", "a mark of direction", false},
                                                         {"\xE2\x80\xAF", "a narrow no-break space", false},
                                                         {"\xEF\xBB\xBF", "a byte order mark", false},
                                                         {"\xE2\x80\x93", "an en dash", true},
                                                         {"\xE2\x80\x94", "an em dash", true},
                                                         {"\xE2\x80\x98", "a curly quote", true},
                                                         {"\xE2\x80\x99", "a curly quote", true},
                                                         {"\xE2\x80\x9C", "a curly quote", true},
                                                         {"\xE2\x80\x9D", "a curly quote", true}}};

void checkCharacters(const TypeCheck& check, const PlacedText& text, bool isCommand) {
  for (const OddCharacter& odd : oddCharacters) {
    const std::size_t place = text.text.find(odd.bytes);
    if (place != std::string::npos && (isCommand || !odd.inCommands)) {
      check.out.warning("odd-character", text.span.part(place, odd.bytes.size()),
                        std::string("this is ") + odd.name + ", not the character that it looks like",
                        "type it anew");
    }
  }
}

/// Letters that nobody can tell apart, but for texts that people read.
void checkLetters(const TypeCheck& check) {
  const IniFile& ini = check.source.ini();
  for (const String& section : ini.SectionNames()) {
    for (const IniFile::EntryView& entry : ini.Entries(section)) {
      if (check.out.full()) {
        return;
      }
      const String key(entry.Key);
      const bool isProse = std::any_of(std::begin(proseKeys), std::end(proseKeys),
                                       [&key](const char* prose) { return String::EqualNoCase(key, prose); });
      checkCharacters(check, keyOf(entry), false);
      if (!isProse) {
        checkCharacters(check, valueOf(entry),
                        String::EqualNoCase(key, "Command") || String::EqualNoCase(key, "CommandString"));
      }
    }
  }
}

} // namespace

void checkValues(const TypeCheck& check) {
  for (const ValueList& list : commaLists(check)) {
    checkSemicolons(check, list);
    checkUnclosed(check, list.value, list.separator);
  }
  for (const char* parameter : {"ImageStartText", "ImageEndText", "ImageNotEndText"}) {
    if (const std::optional<PlacedText> value = check.defaultOf(parameter)) {
      checkUnclosed(check, *value, ';');
    }
  }
  for (const char* parameter : {p_ExpectedFiles, p_Environment, p_NoRetryTexts, p_RequiredTexts,
                                p_ErrorStarts, p_ErrorIgnores, "SuccessTexts"}) {
    if (const std::optional<PlacedText> value = check.defaultOf(parameter)) {
      checkUnclosed(check, *value, ';');
      checkCommas(check, parameter, *value);
    }
  }
  checkPaths(check);
  checkLetters(check);
}

} // namespace trovik
