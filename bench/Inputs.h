#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

// Generators of the inputs. They always make the same bytes.

/// A small generator of even numbers; the standard library's distributions may
/// differ from one version to the next.
class Random {
public:
  explicit Random(std::uint64_t seed) : state_(seed) {}
  std::uint64_t next();
  /// From 0 to limit - 1.
  std::size_t below(std::size_t limit) { return static_cast<std::size_t>(next() % limit); }

private:
  std::uint64_t state_;
};

/// What a log is judged by.
struct LogTexts {
  std::vector<std::string> images;
  std::string imageEnd;
  std::vector<std::string> errors;
  std::string success;
};

/// Four image texts, six error texts and a success text.
const LogTexts& usualTexts();

/// This many image and error texts, all different: 1 (an image text), 10 (the
/// usual ones) or 60.
LogTexts someTexts(int count);

/// A type file that judges a log by these texts.
std::string logType(const std::string& id, const std::string& name, const LogTexts& texts);

/// The texts, a line each.
std::string logPatterns(const LogTexts& texts);

/// What a right reading finds in a log.
struct LogFacts {
  std::size_t bytes = 0;
  std::size_t lines = 0;
  std::size_t imageLines = 0;
  std::size_t images = 0; ///< different ones
  std::size_t errors = 0;
  std::size_t successes = 0;
  std::string firstError;
};

/// A log of at least `size` bytes: progress lines of 60 to 170 bytes, an image
/// line and an indented one after it every 500 lines, and at the very end the
/// first error line and the success line.
LogFacts writeLog(const std::string& file, std::size_t size);

/// The same progress lines, of which `perMille` in a thousand (but the first)
/// hold one of the texts in their middle: of a thousand images, or of an error.
LogFacts writeMatchingLog(const std::string& file, std::size_t size, const LogTexts& texts,
                          std::size_t perMille);

/// Empty files `shot_a.000001.exr` and so on for `frames` frames, a block of
/// ten more after a gap of five, and `others` unrelated ones, made in shuffled
/// order. Makes the directory.
void writeSequence(const std::string& directory, int frames, int others);
std::string frameName(int frame);

/// Type files of about 60 lines in a directory that is made: eight sections
/// each, comments, empty lines, short and long values.
struct TypeFacts {
  std::size_t sections = 0;
  std::size_t entries = 0;
};
TypeFacts writeTypes(const std::string& directory, int count);

/// The text of one such file.
std::string typeText(int number, TypeFacts& facts);

/// Writes a file whole. Throws std::runtime_error.
void writeFile(const std::string& file, const std::string& text);

/// What a file holds; nothing of one that cannot be read.
std::string textOf(const std::string& file);

} // namespace bench
