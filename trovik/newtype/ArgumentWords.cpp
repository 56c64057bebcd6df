#include "trovik/newtype/ArgumentWords.h"

#include "host/application/Expansion.h"
#include "host/foundation/Quoting.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <cctype>

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

std::vector<ArgumentPiece> piecesOf(const std::string& argument, const std::set<std::string>& known) {
  std::vector<ArgumentPiece> pieces;
  const auto append = [&pieces](const std::string& text, bool isWord) {
    if (!isWord && !pieces.empty() && !pieces.back().isWord) {
      pieces.back().text += text;
    } else {
      pieces.push_back({text, isWord});
    }
  };
  for (std::size_t begin = 0; begin < argument.size();) {
    const bool letters = isLetter(argument[begin]);
    std::size_t end = begin;
    while (end < argument.size() && isLetter(argument[end]) == letters) {
      ++end;
    }
    const std::string text = argument.substr(begin, end - begin);
    append(text, known.contains(text));
    begin = end;
  }
  return pieces;
}

} // namespace

ArgumentWords::ArgumentWords(const std::string& arguments, const std::set<std::string>& known) {
  const std::vector<String> words = orRefuse("", "", [&] { return SplitCommandLine(arguments); });
  for (const String& word : words) {
    arguments_.push_back(piecesOf(word, known));
  }
}

bool ArgumentWords::has(std::string_view word) const {
  return std::any_of(arguments_.begin(), arguments_.end(), [word](const auto& pieces) {
    return std::any_of(pieces.begin(), pieces.end(),
                       [word](const ArgumentPiece& piece) { return piece.isWord && piece.text == word; });
  });
}

std::string ArgumentWords::command(const std::function<std::string(const std::string& word)>& meaning) const {
  std::string line;
  for (const std::vector<ArgumentPiece>& pieces : arguments_) {
    line += line.empty() ? "" : " ";
    line += pieces.empty() ? "\"\"" : "";
    for (const ArgumentPiece& piece : pieces) {
      line += piece.isWord ? meaning(piece.text) : quoted(piece.text);
    }
  }
  return line;
}

} // namespace trovik
