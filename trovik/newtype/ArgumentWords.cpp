#include "trovik/newtype/ArgumentWords.h"

#include "host/application/Expansion.h"
#include "host/foundation/Quoting.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <cctype>
#include <sstream>

namespace trovik {
namespace {

bool isLetter(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0;
}

/// A plain piece quoted where needed; "=" needs nothing.
std::string quoted(const std::string& text) {
  std::string other = text;
  std::replace(other.begin(), other.end(), '=', '-');
  return other == std::string(EnquoteWord(other)) ? text : std::string(EscapeReferences(EnquoteWord(text)));
}

std::vector<ArgumentPiece> piecesOf(const std::string& argument) {
  std::vector<ArgumentPiece> pieces;
  const auto append = [&pieces](const std::string& text, bool isWord) {
    if (!isWord && !pieces.empty() && !pieces.back().isWord) {
      pieces.back().text += text;
    } else {
      pieces.push_back({text, isWord, {}});
    }
  };
  for (std::size_t begin = 0; begin < argument.size();) {
    const bool letters = isLetter(argument[begin]);
    std::size_t end = begin;
    while (end < argument.size() && isLetter(argument[end]) == letters) {
      ++end;
    }
    const std::string text = argument.substr(begin, end - begin);
    append(text, ArgumentWords::known().contains(text));
    begin = end;
  }
  return pieces;
}

/// Refuses the signs of a shell: no program would know what to do with them. In
/// quotes they are plain arguments.
void refuseShell(const std::string& arguments) {
  std::istringstream stream(arguments);
  for (std::string word; stream >> word;) {
    const std::string sign = word.substr(std::min(word.find_first_not_of("0123456789"), word.size()));
    if (sign.starts_with('>') || sign.starts_with('<') || sign == "&>") {
      throw UsageError{"no shell reads the arguments, so " + inQuotes(word) + " redirects nothing",
                       "leave it out: what the program prints is kept, and \"trovik log\" shows it"};
    }
    if (sign == "|" || sign == "||" || sign == "&&" || sign == "&") {
      throw UsageError{"no shell reads the arguments, so " + inQuotes(word) + " starts no second program",
                       "write a script of them all, and name that as the program"};
    }
  }
}

bool isNumber(const std::string& word) {
  return word == "FRAME" || word == "FIRST" || word == "LAST";
}

/// The command that writes a string as the script in an argument does; empty for
/// an argument that is none.
std::string languageOf(const std::vector<ArgumentPiece>& pieces) {
  const std::string& begin = pieces.front().text;
  const char first = begin[std::min(begin.find_first_not_of(' '), begin.size() - 1)];
  if (first == '(') {
    return "LispString";
  }
  if (first == '{' || first == '[') {
    return "JsonString";
  }
  const bool calls = std::any_of(pieces.begin(), pieces.end(), [](const ArgumentPiece& piece) {
    return !piece.isWord && piece.text.find('(') != std::string::npos;
  });
  return calls ? "PythonString" : "";
}

/// Where a place in a script stands.
struct ScriptPlace {
  char string = '\0'; ///< the quote of the string that is open; 0 for none
  int depth = 0;      ///< of the parentheses

  void read(std::string_view text) {
    for (const char c : text) {
      if (string != '\0') {
        string = c == string ? '\0' : string;
      } else if (c == '"' || c == '\'') {
        string = c;
      } else {
        depth += c == '(' ? 1 : c == ')' ? -1 : 0;
      }
    }
  }
};

/// The pieces of an argument, with the words of a script known as its strings and
/// the quotes around these left out.
std::vector<ArgumentPiece> withScripts(const std::vector<ArgumentPiece>& pieces) {
  std::vector<ArgumentPiece> result = pieces;
  const std::string language = pieces.empty() ? std::string() : languageOf(pieces);
  ScriptPlace place;
  for (std::size_t i = 0; i < result.size() && !language.empty(); ++i) {
    ArgumentPiece& piece = result[i];
    if (!piece.isWord) {
      place.read(pieces[i].text);
    } else if (!isNumber(piece.text) && place.string != '\0') {
      const bool alone = i > 0 && !pieces[i - 1].isWord && pieces[i - 1].text.ends_with(place.string) &&
                         i + 1 < pieces.size() && pieces[i + 1].text.starts_with(place.string);
      if (!alone) {
        throw UsageError{
            piece.text + " is only a part of a string here, and a quote in its value would end it",
            "write the word alone between the quotes, as in load(\"SCENE\") or save(\"OUTPUT\")"};
      }
      result[i - 1].text.pop_back();
      result[i + 1].text.erase(0, 1);
      piece.language = language;
    } else if (!isNumber(piece.text) && place.depth > 0) {
      piece.language = language;
    }
  }
  return result;
}

} // namespace

const std::set<std::string>& ArgumentWords::known() {
  static const std::set<std::string> words = {"SCENE", "NAME", "FRAME", "FIRST", "LAST", "FOLDER", "OUTPUT"};
  return words;
}

ArgumentWords::ArgumentWords(const std::string& arguments) {
  if (arguments == "none") {
    return;
  }
  refuseShell(arguments);
  const std::vector<String> words = orRefuse("", "", [&] { return SplitCommandLine(arguments); });
  for (const String& word : words) {
    arguments_.push_back(withScripts(piecesOf(word)));
  }
}

bool ArgumentWords::has(std::string_view word) const {
  return std::any_of(arguments_.begin(), arguments_.end(), [word](const auto& pieces) {
    return std::any_of(pieces.begin(), pieces.end(),
                       [word](const ArgumentPiece& piece) { return piece.isWord && piece.text == word; });
  });
}

std::string
ArgumentWords::command(const std::function<std::string(const ArgumentPiece& word)>& meaning) const {
  std::string line;
  for (const std::vector<ArgumentPiece>& pieces : arguments_) {
    line += line.empty() ? "" : " ";
    line += pieces.empty() ? "\"\"" : "";
    for (const ArgumentPiece& piece : pieces) {
      line += piece.isWord ? meaning(piece) : piece.text.empty() ? std::string() : quoted(piece.text);
    }
  }
  return line;
}

bool ArgumentWords::isInScript(std::string_view word) const {
  return std::any_of(arguments_.begin(), arguments_.end(), [word](const auto& pieces) {
    return std::any_of(pieces.begin(), pieces.end(), [word](const ArgumentPiece& piece) {
      return piece.text == word && !piece.language.empty();
    });
  });
}

} // namespace trovik
