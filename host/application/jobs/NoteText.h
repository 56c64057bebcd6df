#pragma once

#include "host/foundation/Path.h"
#include "host/foundation/String.h"

/// Bytes of a program's line that a note quotes.
constexpr std::size_t k_QuotedLine = 300;

/// A stranger's text as a note shows it: control characters as "?", and cut at
/// a character of UTF-8 with "…" behind where it is longer than `limit` bytes.
String NoteText(const String& text, std::size_t limit = k_QuotedLine);

/// A file's whole name as a note shows it.
inline String NoteName(const Path& file) {
  return NoteText(file.Text(), file.Text().size());
}
