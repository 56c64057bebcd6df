#pragma once

#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace trovik {

/// A piece of an argument: plain text, or a word in capitals that stands for
/// something that varies.
struct ArgumentPiece {
  std::string text;
  bool isWord = false;
};

/// Arguments as one would type them, with words in capitals for what varies:
/// `-s FIRST --out=FOLDER/NAME.png`. A word counts where no letter or digit
/// stands beside it.
class ArgumentWords {
public:
  /// Throws a UsageError for an unclosed quote.
  ArgumentWords(const std::string& arguments, const std::set<std::string>& known);

  bool has(std::string_view word) const;
  bool empty() const { return arguments_.empty(); }
  /// The arguments, each in its pieces.
  const std::vector<std::vector<ArgumentPiece>>& arguments() const { return arguments_; }

  /// The text of a command line: words by their meanings, which are put in as
  /// they are; the rest quoted as needed, so that "$(" in it means nothing.
  std::string command(const std::function<std::string(const std::string& word)>& meaning) const;

private:
  std::vector<std::vector<ArgumentPiece>> arguments_;
};

} // namespace trovik
