// How the texts that judge the output are written. They are compared letter by
// letter, so what means something in other programs' files means nothing here.

#include "host/application/Constants.h"
#include "host/foundation/Characters.h"
#include "trovik/check/References.h"

#include <algorithm>
#include <array>

namespace trovik {
namespace {

struct WrittenText {
  PlacedText value;
  std::string section; ///< that it is an entry of; empty for a text of a list
  bool expands = false;
};

std::vector<WrittenText> writtenTexts(const TypeCheck& check) {
  std::vector<WrittenText> texts;
  for (const char* section : {"SuccessText", "ErrorText", "ErrorIgnore"}) {
    for (const IniFile::EntryView& entry : check.source.ini().Entries(section)) {
      texts.push_back({valueOf(entry), section});
    }
  }
  for (const char* list : {"ImageStartText", "ImageEndText", "ImageNotEndText", "SuccessTexts", p_ErrorStarts,
                           p_ErrorIgnores, p_NoRetryTexts, p_RequiredTexts}) {
    if (const std::optional<PlacedText> value = check.defaultOf(list)) {
      for (const PlacedText& piece : piecesOf(*value, ';')) {
        texts.push_back({piece, {}, String(list) == p_RequiredTexts});
      }
    }
  }
  return texts;
}

bool isWordLetter(char c) {
  return IsAsciiLetter(c) || IsDigit(c);
}

/// A piece of the text that is a pattern elsewhere; its place, and its length,
/// which is 0 for none.
std::pair<std::size_t, std::size_t> patternIn(const std::string& text) {
  const std::size_t size = text.size();
  if (size > 1 && text[0] == '^' && (isWordLetter(text[1]) || text[1] == '.' || text[1] == '\\')) {
    return {0, 1};
  }
  if (size > 1 && text[0] == '*' && isWordLetter(text[1])) {
    return {0, 1};
  }
  for (const char* piece : {".*", ".+", "\\d", "\\s", "\\w", "\\.", "[0-9]", "[a-z]", "[A-Z]", "[^"}) {
    if (const std::size_t place = text.find(piece); place != std::string::npos) {
      return {place, std::string_view(piece).size()};
    }
  }
  for (std::size_t i = 1; i + 1 < size; ++i) {
    if (text[i] == '|' && isWordLetter(text[i - 1]) && isWordLetter(text[i + 1])) {
      return {i, 1};
    }
  }
  for (std::size_t i = text.find('%'); i != std::string::npos; i = text.find('%', i + 1)) {
    const std::size_t end = std::min(text.find_first_not_of("0123456789", i + 1), size);
    if (end < size && (text[end] == 'd' || text[end] == 's') &&
        (end + 1 == size || !isWordLetter(text[end + 1])) && (i == 0 || !IsDigit(text[i - 1]))) {
      return {i, end + 1 - i};
    }
  }
  if (size > 1 && (text.back() == '$' || text.back() == '*') && isWordLetter(text[size - 2])) {
    return {size - 1, 1};
  }
  return {0, 0};
}

void checkPattern(const TypeCheck& check, const WrittenText& text) {
  const auto [place, length] = patternIn(text.value.text);
  if (length > 0) {
    const bool exact = text.value.span.length == text.value.text.size();
    check.out.warning("pattern-in-text", exact ? text.value.span.part(place, length) : text.value.span,
                      quotedText(text.value.text.substr(place, length)) +
                          " is no pattern here: texts are compared letter by letter",
                      "write a phrase that the line holds; with ErrorDetectPosition=Yes an error text counts "
                      "anywhere in it");
  }
}

/// Semicolons of a section, where each text has an entry of its own.
void checkSemicolon(const TypeCheck& check, const WrittenText& text) {
  const std::string& value = text.value.text;
  for (std::size_t i = value.find_first_of(";#"); i != std::string::npos;
       i = value.find_first_of(";#", i + 1)) {
    const bool blankBefore = i > 0 && (value[i - 1] == ' ' || value[i - 1] == '\t');
    const bool blankBehind = i + 1 == value.size() || value[i + 1] == ' ' || value[i + 1] == '\t';
    const bool hash = value[i] == '#' && blankBehind && i + 1 < value.size();
    if (blankBefore && (value[i] == ';' || hash)) {
      check.out.error("comment-in-value", text.value.span.part(i, value.size() - i),
                      "this is no comment but part of the text, which no line will hold",
                      "write the comment in a line of its own");
      return;
    }
    if (value[i] == ';' && !blankBefore && (!blankBehind || i + 1 == value.size())) {
      check.out.warning("semicolon-in-text", text.value.span.part(i, 1),
                        "the semicolon is part of this text: a section has one text an entry",
                        "write the texts in lines of their own: 1=..., 2=...");
      return;
    }
  }
}

void checkReference(const TypeCheck& check, const WrittenText& text) {
  const std::vector<Reference> references = referencesIn(String(text.value.text));
  if (text.expands || references.empty()) {
    return;
  }
  const bool success = text.section == "SuccessText";
  check.out.warning(
      "plain-reference", text.value.span,
      "nothing is put in for " +
          quotedText(text.value.text.substr(references[0].Begin, references[0].End - references[0].Begin)) +
          " in a text that lines are compared with",
      success ? "write it in RequiredTexts of [OverrideDefaults], whose texts may hold references"
              : "write only what is the same in every run");
}

/// Keys that were meant for another section: their values are texts here.
void checkMisplaced(const TypeCheck& check, const char* section) {
  for (const IniFile::EntryView& entry : check.source.ini().Entries(section)) {
    const std::string home = homeOfKey(check, String(entry.Key));
    if (!home.empty()) {
      check.out.error("misplaced-key", keyOf(entry).span,
                      quotedText(entry.Key) + " sets nothing in [" + section +
                          "]: its value is one more text",
                      "write it in [" + home + "]");
    }
  }
}

} // namespace

void checkTextForms(const TypeCheck& check) {
  for (const WrittenText& text : writtenTexts(check)) {
    if (check.out.full()) {
      return;
    }
    checkPattern(check, text);
    checkReference(check, text);
    if (!text.section.empty()) {
      checkSemicolon(check, text);
    }
  }
  for (const char* section : {"SuccessText", "ErrorText", "ErrorIgnore"}) {
    checkMisplaced(check, section);
  }
}

} // namespace trovik
