#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace trovik {

/// What becomes of bytes that are not valid UTF-8.
enum class OddBytes {
  Show, ///< written as \xff: for terminals
  Keep, ///< left alone: for pipes and files, so that names stay usable
};

/// A text from outside (file name, note, log line) on one line: control
/// characters become visible (\n, \t, \x1b), so that no name can move the
/// cursor, forge a line or change colours. With OddBytes::Show the characters
/// beyond ASCII that steer terminals or reorder text become visible too.
std::string printable(std::string_view text, OddBytes odd);

/// The part of a line between blanks, tabs and carriage returns at its ends.
std::string_view trimmed(std::string_view line);

/// Whether the text is valid UTF-8.
bool isUtf8(std::string_view text);

/// The characters of a text; a byte that is not UTF-8 becomes U+FFFD.
std::u32string charactersOf(std::string_view text);

/// A text from outside between double quotes, made visible for a terminal: for
/// messages.
std::string inQuotes(std::string_view text);

/// The columns that a printable text takes on a terminal.
std::size_t displayWidth(std::string_view text);

/// The text cut to so many columns; a cut text ends with "…".
std::string cutToWidth(std::string_view text, std::size_t width);

/// The text with blanks appended up to so many columns.
std::string padded(std::string_view text, std::size_t width);

/// Wraps words into lines of at most `width` columns, each after `indent`
/// blanks. Line breaks in the text are kept, blank lines too; a word longer
/// than a line stands alone. Every line ends with a line feed.
std::string wrapped(std::string_view text, std::size_t width, std::size_t indent);

/// "1.2 s", "47 s", "3 min 20 s", "2 h 05 min".
std::string durationText(std::chrono::nanoseconds duration);

/// The same for a guess: no parts of seconds.
std::string roughText(std::chrono::nanoseconds duration);

/// "1 frame", "24 frames".
std::string counted(std::size_t count, std::string_view noun);

std::string joined(const std::vector<std::string>& texts, std::string_view separator);

} // namespace trovik
