#pragma once

#include "host/foundation/String.h"

/// Parts of messages that show a stranger's text.

/// The line of the text that holds the position (in bytes from 0), under its
/// number, and a caret below the place:
///
///     1 | 10-
///       |    ^
///
/// Both lines begin with a line feed, so that the excerpt can be appended to
/// a message. Control characters are shown as "?" and a long line is cut on
/// both sides, so a hostile text can neither disturb a terminal nor flood it.
String CaretExcerpt(const String& text, std::size_t position);

/// A text for use within a message: the same precautions, for a single word.
String Shown(const String& text);

/// Raises Exception* "WHERE: MESSAGE" and the excerpt.
[[noreturn]] void RaisePlaced(const char* function, int code, const String& where, const String& message,
                              const String& text, std::size_t position);
