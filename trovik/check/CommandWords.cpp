#include "trovik/check/CommandWords.h"

#include <utility>

namespace trovik {

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

} // namespace trovik
