#include "host/foundation/Quoting.h"

#include "host/foundation/Exception.h"

#include <string_view>
#include <utility>

namespace {

// Bytes that stay bare. "=" is not among them: as the first word of a shell
// command it would make an assignment. Bytes beyond ASCII are quoted, since
// some shells use a few of them for marks of their own.
constexpr std::string_view k_BareBytes =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./:@%+,";

bool IsEscapedInQuotes(char c) {
  return c == '"' || c == '\\' || c == '$' || c == '`';
}

[[noreturn]] void RaiseUnclosed(const String& line, std::size_t quote) {
  RaiseException(
      "SplitCommandLine", k_ErrorSyntax,
      "command line:" + std::to_string(quote + 1) + ": the quote " + line[quote] +
          " is never closed; close it, or write a backslash before it where it is meant as it stands");
}

// Reads the words of a line. False, with the place of the quote, where one is
// never closed.
bool ReadWords(const String& line, std::vector<String>& words, std::size_t& quote) {
  String word;
  bool inWord = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (c == ' ' || c == '\t' || c == '\n') {
      if (inWord) {
        words.push_back(std::exchange(word, String()));
        inWord = false;
      }
    } else if (c == '\'') {
      const std::size_t end = line.find('\'', i + 1);
      if (end == String::npos) {
        quote = i;
        return false;
      }
      word.append(line, i + 1, end - i - 1);
      inWord = true;
      i = end;
    } else if (c == '"') {
      const std::size_t start = i;
      inWord = true;
      for (++i; i < line.size() && line[i] != '"'; ++i) {
        if (line[i] == '\\' && i + 1 < line.size()) {
          if (line[i + 1] == '\n') {
            ++i;
            continue;
          }
          if (IsEscapedInQuotes(line[i + 1])) {
            ++i;
          }
        }
        word.push_back(line[i]);
      }
      if (i >= line.size()) {
        quote = start;
        return false;
      }
    } else if (c == '\\' && i + 1 < line.size()) {
      ++i;
      if (line[i] != '\n') {
        word.push_back(line[i]);
        inWord = true;
      }
    } else {
      word.push_back(c);
      inWord = true;
    }
  }
  if (inWord) {
    words.push_back(std::move(word));
  }
  return true;
}

} // namespace

std::vector<String> SplitCommandLine(const String& line) {
  std::vector<String> words;
  std::size_t quote = 0;
  if (!ReadWords(line, words, quote)) {
    RaiseUnclosed(line, quote);
  }
  return words;
}

std::size_t FindUnclosedQuote(const String& line) {
  std::vector<String> words;
  std::size_t quote = 0;
  return ReadWords(line, words, quote) ? String::npos : quote;
}

String EnquoteWord(const String& text) {
  if (!text.empty() && text.find_first_not_of(k_BareBytes) == String::npos) {
    return text;
  }
  String word = "\"";
  for (const char c : text) {
    if (IsEscapedInQuotes(c)) {
      word.push_back('\\');
    }
    word.push_back(c);
  }
  word.push_back('"');
  return word;
}

String DequoteWord(const String& text) {
  if (text.size() < 2 || text.front() != '"' || text.back() != '"') {
    return text;
  }
  String inner;
  for (std::size_t i = 1; i + 1 < text.size(); ++i) {
    if (text[i] == '"') {
      return text; // the quotes at the ends do not belong together
    }
    if (text[i] == '\\' && text[i + 1] == '\n') {
      ++i;
      continue;
    }
    if (text[i] == '\\' && IsEscapedInQuotes(text[i + 1])) {
      ++i;
      if (i + 1 >= text.size()) {
        return text; // the last quote is escaped
      }
    }
    inner.push_back(text[i]);
  }
  return inner;
}

String JoinCommandLine(const std::vector<String>& words) {
  String line;
  for (const String& word : words) {
    if (!line.empty()) {
      line.push_back(' ');
    }
    line += EnquoteWord(word);
  }
  return line;
}
