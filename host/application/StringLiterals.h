#pragma once

#include "host/foundation/String.h"

#include <optional>

/// A text as a literal of another language, its quotes included, for arguments
/// that are scripts.

/// A string of Python 3, in single quotes. Bytes that are no UTF-8 are written as
/// the half characters by which Python's own file functions know them.
String PythonLiteral(const String& text);

/// A string of Lisp and Scheme, in double quotes. Line ends and all other bytes
/// stay as they are, since those languages share no other way to write them.
String LispLiteral(const String& text);

/// A string of JSON, in double quotes; nothing for a text that is no UTF-8, which
/// no such string can hold.
std::optional<String> JsonLiteral(const String& text);
