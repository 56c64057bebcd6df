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
  /// Of a word that is a string of a script: the command that writes such a string
  /// of its language, PythonString, LispString or JsonString.
  std::string language;
};

/// Arguments as one would type them, with words in capitals for what varies:
/// `-s FIRST --out=FOLDER/NAME.png`. A word counts where no letter or digit
/// stands beside it. "none" stands for no arguments.
class ArgumentWords {
public:
  /// In an argument that is a script, as `-c 'load("SCENE")'` has one, the word
  /// and the quotes around it are one string of the script's language.
  ///
  /// Throws a UsageError for an unclosed quote, a sign that only a shell reads, and
  /// a word that is only a part of a script's string.
  explicit ArgumentWords(const std::string& arguments);

  /// The words that stand for something.
  static const std::set<std::string>& known();

  bool has(std::string_view word) const;
  bool empty() const { return arguments_.empty(); }
  /// The arguments, each in its pieces.
  const std::vector<std::vector<ArgumentPiece>>& arguments() const { return arguments_; }

  /// The text of a command line: words by their meanings, which are put in as
  /// they are; the rest quoted as needed, so that "$(" in it means nothing.
  std::string command(const std::function<std::string(const ArgumentPiece& word)>& meaning) const;

  /// Whether a word is a string of a script.
  bool isInScript(std::string_view word) const;

private:
  std::vector<std::vector<ArgumentPiece>> arguments_;
};

} // namespace trovik
