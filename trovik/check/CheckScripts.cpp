// Command lines as their authors know them from elsewhere: signs that only a
// shell reads, and arguments that are scripts of another language.

#include "host/application/Excerpt.h"
#include "host/application/ParameterCommands.h"
#include "host/foundation/Characters.h"
#include "trovik/check/References.h"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

namespace trovik {
namespace {

/// One letter of an argument, or a reference that stands for a value in it.
struct WordLetter {
  char letter = '\0';
  char quote = '\0';                    ///< the quote that it stands in; 0 for none
  bool escaped = false;                 ///< a backslash keeps it
  std::size_t place = 0;                ///< in the command line, from 0
  const Reference* reference = nullptr; ///< null for a letter
};
using CommandWord = std::vector<WordLetter>;

/// Splits a command line as a work's is split, with its references as they are
/// written. `references` must be those of the line, and outlive the words. What
/// is behind a quote that is never closed belongs to the last word.
std::vector<CommandWord> commandWords(const String& line, const std::vector<Reference>& references) {
  std::vector<CommandWord> words;
  CommandWord word;
  bool inWord = false;
  char quote = '\0';
  auto reference = references.begin();
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (reference != references.end() && i == reference->Begin) {
      word.push_back({'\0', quote, false, i, &*reference});
      inWord = true;
      i = reference->End - 1;
      ++reference;
      continue;
    }
    const char c = line[i];
    const bool keeps = c == '\\' && quote != '\'' && i + 1 < line.size() &&
                       (reference == references.end() || i + 1 != reference->Begin) &&
                       (quote == '\0' || line[i + 1] == '"' || line[i + 1] == '\\' || line[i + 1] == '$' ||
                        line[i + 1] == '`');
    if (keeps) {
      ++i;
      word.push_back({line[i], quote, true, i, nullptr});
      inWord = true;
    } else if (quote == '\0' && (c == ' ' || c == '\t')) {
      if (inWord) {
        words.push_back(std::exchange(word, {}));
        inWord = false;
      }
    } else if (c == quote) {
      quote = '\0';
    } else if (quote == '\0' && (c == '\'' || c == '"')) {
      quote = c;
      inWord = true;
    } else {
      word.push_back({c, quote, false, i, nullptr});
      inWord = true;
    }
  }
  if (inWord) {
    words.push_back(std::move(word));
  }
  return words;
}

/// The letters of a word that stand in no quotes, with a blank for every other
/// one: what a shell would read signs in.
std::string bareLetters(const CommandWord& word) {
  std::string bare;
  for (const WordLetter& letter : word) {
    const bool plain = letter.reference == nullptr && letter.quote == '\0' && !letter.escaped;
    bare += plain ? letter.letter : ' ';
  }
  return bare;
}

class Scripts {
public:
  Scripts(const TypeCheck& check, const PlacedText& line)
      : check_(check), line_(line), text_(line.text), references_(referencesIn(text_)) {}

  void run() {
    for (const CommandWord& word : commandWords(text_, references_)) {
      if (check_.out.full()) {
        return;
      }
      shell(word);
      script(word);
    }
  }

private:
  Span spanOf(const CommandWord& word, std::size_t from, std::size_t count) const {
    const std::size_t begin = word[from].place;
    return line_.span.part(begin, word[from + count - 1].place + 1 - begin);
  }

  void tellShell(const Span& span, const std::string& what, const std::string& hint) {
    check_.out.warning("shell-syntax", span, "no shell reads this line, so " + what, hint);
  }

  void shell(const CommandWord& word) {
    if (word.empty()) {
      return;
    }
    const std::string bare = bareLetters(word);
    const std::size_t digits = std::min(bare.find_first_not_of("0123456789"), bare.size());
    const std::string sign = bare.substr(digits == bare.size() ? 0 : digits);
    const auto begins = [&sign](const char* text) { return sign.starts_with(text); };
    const char* const redirect =
        "leave it out: what the program prints is kept, and \"trovik log\" shows it; "
        "in quotes it is a plain argument";
    if ((begins(">") || begins("<") || begins("&>")) && (sign.size() < 3 || sign[1] != '=')) {
      tellShell(spanOf(word, 0, word.size()), "this redirects nothing: it is an argument of the program",
                redirect);
    } else if (sign == "|" || sign == "||" || sign == "&&" || sign == "&" || sign == ";" || sign == "|&") {
      tellShell(spanOf(word, 0, word.size()),
                "no second program starts here: " + quotedText(sign) + " is an argument",
                "write sh -c '...' as the program where it takes a shell; in quotes it is a plain argument");
    } else if (bare.size() > 1 && (bare.back() == ';' || bare.back() == '|')) {
      tellShell(spanOf(word, word.size() - 1, 1), "this sign is the end of an argument",
                "leave it out, or write it in quotes where it is meant");
    }
    home(word, bare);
    for (std::size_t i = 0; i < word.size(); ++i) {
      const WordLetter& letter = word[i];
      if (letter.reference != nullptr || letter.escaped || letter.quote == '\'') {
        continue;
      }
      if (letter.letter == '`' && std::count_if(word.begin(), word.end(), [](const WordLetter& other) {
                                    return other.letter == '`' && !other.escaped && other.quote != '\'';
                                  }) > 1) {
        tellShell(spanOf(word, i, 1), "the command between backquotes is never run",
                  "write its result, or sh -c '...' as the program");
        return;
      }
      if (letter.letter == '*' && letter.quote == '\0') {
        tellShell(spanOf(word, i, 1), "\"*\" finds no files: the program gets it as it is",
                  "write it in quotes where the program itself reads patterns");
        return;
      }
    }
    environment(word);
  }

  void home(const CommandWord& word, const std::string& bare) {
    const std::size_t place = bare.starts_with("~/") ? 0 : bare.find("=~/") + 1;
    if (bare == "~" || place != 0 || bare.starts_with("~/")) {
      tellShell(spanOf(word, place, 1), "\"~\" is no home folder here", "write the whole path");
    }
  }

  /// "$HOME" and "${TMPDIR}": capital letters, which no parameter of the type has.
  void environment(const CommandWord& word) {
    for (std::size_t i = 0; i + 1 < word.size(); ++i) {
      if (word[i].letter != '$' || word[i].escaped || word[i].quote == '\'') {
        continue;
      }
      const bool braces = word[i + 1].letter == '{';
      const std::size_t begin = i + (braces ? 2 : 1);
      String name;
      for (std::size_t at = begin; at < word.size(); ++at) {
        const char c = word[at].letter;
        if (c != '_' && (c < 'A' || c > 'Z') && !(IsDigit(c) && !name.empty())) {
          break;
        }
        name.push_back(c);
      }
      if (name.size() > 1 && !check_.isAnswered(name)) {
        tellShell(spanOf(word, i, name.size() + (braces ? 2 : 1)),
                  "no variable of the environment is put in here", "write its value, or sh -c '...'");
        return;
      }
    }
  }

  /// Values within a script: a quote or a parenthesis of a name ends what the
  /// author wrote around it, and the rest of the name is run.
  void script(const CommandWord& word) {
    char string = '\0'; // the quote of the other language's string
    int depth = 0;      // of parentheses
    String literal;
    for (std::size_t i = 0; i < word.size(); ++i) {
      const WordLetter& letter = word[i];
      if (letter.reference != nullptr) {
        value(*letter.reference, string, depth, literal);
        continue;
      }
      literal.push_back(letter.letter);
      if (string != '\0') {
        if (letter.letter == '\\') {
          ++i;
        } else if (letter.letter == string) {
          string = '\0';
        }
      } else if (letter.letter == '"' || letter.letter == '\'') {
        string = letter.letter;
      } else if (letter.letter == '(' || letter.letter == ')') {
        depth += letter.letter == '(' ? 1 : -1;
      }
    }
  }

  static bool isString(const CommandCall& call) {
    const String name(call.Command->Name);
    return name == "PythonString" || name == "LispString" || name == "JsonString";
  }

  /// Whether a command of the chain deals with the quote.
  static bool minds(const Reference& reference, char quote) {
    return std::any_of(reference.Calls.begin(), reference.Calls.end(), [quote](const CommandCall& call) {
      const String name(call.Command->Name);
      return (name == "Replace" || name == "PlainPath") && call.Argument.find(quote) != String::npos;
    });
  }

  void value(const Reference& reference, char string, int depth, const String& literal) {
    const bool plain = kindOf(check_, reference.Name) == ValueKind::Plain ||
                       std::any_of(reference.Calls.begin(), reference.Calls.end(), givesPlain);
    const bool literalString = std::any_of(reference.Calls.begin(), reference.Calls.end(), isString);
    const Span span = line_.span.part(reference.Begin, reference.End - reference.Begin);
    if (literalString && string != '\0') {
      check_.out.warning("script-string", span,
                         "this writes a string with its quotes, but stands within the quotes of one already",
                         "leave out the quotes around it");
      return;
    }
    if (plain || literalString || (string == '\0' && depth <= 0)) {
      return;
    }
    if (string != '\0' ? minds(reference, string) : minds(reference, '"') || minds(reference, '\'')) {
      return;
    }
    const std::size_t first = std::min(literal.find_first_not_of(' '), literal.size());
    const char* command = literal.substr(first, 1) == "(" ? "LispString"
                          : literal.substr(first, 1) == "{" || literal.substr(first, 1) == "["
                              ? "JsonString"
                              : "PythonString";
    check_.out.warning(
        "script-string", span,
        string != '\0'
            ? "a quote in the value ends the string that it stands in, and the rest of it is read as a script"
            : "the value is read as a part of a script",
        "write $(" + Shown(reference.Name) + chain(reference) + "." + command +
            ".Enquote) without quotes of the script around it");
  }

  /// The commands before Enquote, as they are written.
  String chain(const Reference& reference) const {
    String written;
    for (const CommandCall& call : reference.Calls) {
      if (!String::EqualNoCase(call.Command->Name, "Enquote")) {
        written += "." + Shown(text_.substr(call.Begin, call.End - call.Begin));
      }
    }
    return written;
  }

  const TypeCheck& check_;
  const PlacedText& line_;
  String text_;
  std::vector<Reference> references_;
};

} // namespace

void checkScripts(const TypeCheck& check) {
  for (const CommandInfo& command : check.info->Commands()) {
    IniFile::EntryView entry;
    if (check.source.ini().FindEntry(command.Name, "Command", entry) && !check.out.full()) {
      const PlacedText line = valueOf(entry);
      Scripts(check, line).run();
    }
  }
  if (const std::optional<PlacedText> command = check.defaultOf("CommandString")) {
    Scripts(check, *command).run();
  }
}

} // namespace trovik
