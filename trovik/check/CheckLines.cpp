// What is odd in the lines themselves.

#include "trovik/check/TypeCheck.h"
#include "trovik/text/Text.h"

#include <algorithm>

namespace trovik {
namespace {

bool isList(const String& section) {
  static const std::vector<String> lists = {"SuccessText",       "ErrorText",       "ErrorIgnore",
                                            "PrimaryParameters", "PrimaryCommands", "SecondaryParameters",
                                            "SecondaryCommands"};
  return std::any_of(lists.begin(), lists.end(),
                     [&section](const String& list) { return String::EqualNoCase(list, section); });
}

/// The section that a line stands in, as the file writes its name.
String sectionAt(const TypeSource& source, std::uint32_t line) {
  std::string_view before = source.line(line);
  const std::string_view all = source.text();
  before = all.substr(0, static_cast<std::size_t>(before.data() - all.data()));
  while (!before.empty()) {
    before.remove_suffix(1);
    const std::size_t begin = before.rfind('\n') + 1;
    const std::string_view text = before.substr(begin);
    before = before.substr(0, begin);
    const std::size_t open = text.find_first_not_of(" \t");
    const std::size_t close = text.find(']');
    if (open != std::string_view::npos && text[open] == '[' && close != std::string_view::npos) {
      String name(text.substr(open + 1, close - open - 1));
      return name.Trim();
    }
  }
  return String::Null;
}

void repeatedKey(const TypeCheck& check, const IniFile::Oddity& oddity, const Span& span) {
  const String section = sectionAt(check.source, oddity.Place.Line);
  IniFile::EntryView entry;
  if (!check.source.ini().FindEntry(section, oddity.Text, entry)) {
    return;
  }
  const std::string line = std::to_string(entry.KeyPlace.Line);
  if (isList(section)) {
    check.out.error("repeated-key", span, "this entry takes the place of that of line " + line,
                    "every entry of a list needs a key of its own");
  } else {
    check.out.warning("repeated-key", span, "this value takes the place of that of line " + line,
                      "leave one of them out");
  }
}

void oddLine(const TypeCheck& check, const IniFile::Oddity& oddity) {
  using Kind = IniFile::Oddity::Kind;
  Findings& out = check.out;
  const Span span{oddity.Place, oddity.Text.size()};
  switch (oddity.What) {
  case Kind::NoEquals:
    out.error("no-equals", span, "this line is no section, no entry and no comment",
              "write KEY=VALUE, or a semicolon before a comment");
    break;
  case Kind::NoSection:
    out.error("no-section", span, "this entry stands before the first section and is passed over",
              "write it below a line such as [Module]");
    break;
  case Kind::UnclosedSection:
    out.error("unclosed-section", span, "this section is never closed, and its line is passed over",
              "write " + quotedText(oddity.Text.substr(0, oddity.Text.find_first_of(" \t;#=")) + "]"));
    break;
  case Kind::TextAfterSection:
    out.warning("text-after-section", span, "what stands behind \"]\" is passed over",
                "a comment needs a line of its own, which begins with a semicolon");
    break;
  case Kind::EmptyKey:
    out.error("empty-key", {oddity.Place, 1}, "the key before \"=\" is missing", "write KEY=VALUE");
    break;
  case Kind::RepeatedKey:
    repeatedKey(check, oddity, span);
    break;
  case Kind::RepeatedSection:
    out.warning("repeated-section", {oddity.Place, oddity.Text.size() + 2},
                "the section " + quotedText(oddity.Text) + " was opened before, in line " +
                    std::to_string(check.source.ini().SectionPlace(oddity.Text).Line),
                "both are read as one; put the entries together");
    break;
  case Kind::NulByte:
    out.warning("nul-byte", {oddity.Place, 1}, "there is a byte 0 in this line", "take it out");
    break;
  }
}

void checkEncoding(const TypeCheck& check) {
  const std::string& text = check.source.text();
  if (isUtf8(text)) {
    return;
  }
  std::uint32_t number = 1;
  for (std::size_t begin = 0; begin < text.size(); ++number) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    const std::string_view line = std::string_view(text).substr(begin, end - begin);
    if (!isUtf8(line)) {
      std::size_t good = 0;
      while (good < line.size()) {
        std::size_t length = 1;
        while (length <= 4 && good + length <= line.size() && !isUtf8(line.substr(good, length))) {
          ++length;
        }
        if (length > 4 || good + length > line.size()) {
          break;
        }
        good += length;
      }
      check.out.warning("not-utf8", {{number, static_cast<std::uint32_t>(good + 1)}, 1},
                        "this byte is no UTF-8, which programs print and forms show",
                        "save the file as UTF-8");
      return; // once a file
    }
    begin = end + 1;
  }
}

} // namespace

void checkLines(const TypeCheck& check) {
  checkEncoding(check);
  std::size_t repeated = 0;
  for (const IniFile::Oddity& oddity : check.source.ini().Oddities()) {
    if (check.out.full()) {
      return;
    }
    // Their sections are searched for line by line.
    if (oddity.What == IniFile::Oddity::Kind::RepeatedKey && ++repeated > 200) {
      continue;
    }
    oddLine(check, oddity);
  }
}

} // namespace trovik
