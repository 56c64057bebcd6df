#pragma once

#include "host/foundation/String.h"

#include <vector>

/// The host's one quoting language: the words of the POSIX shell with every
/// expansion switched off.
///
/// Blanks (space, tab, line feed) separate words. Single quotes keep
/// everything; double quotes keep everything but a backslash before one of
/// " \ $ ` or a line feed; outside quotes a backslash keeps the next byte. A
/// backslash before a line feed vanishes with it. Every other character is
/// plain: ; | > & $ ( ) * ? # ~ do nothing. No shell ever runs.

/// Splits a command line into its words. Raises Exception* for an unclosed
/// quote, with the column where it opens and what to do.
std::vector<String> SplitCommandLine(const String& line);

/// Where the quote opens that SplitCommandLine would refuse; npos where there
/// is none.
std::size_t FindUnclosedQuote(const String& line);

/// One word that SplitCommandLine and /bin/sh both read back as `text`: bare
/// where every byte is a letter, a digit or one of _ - . / : @ % + , and
/// otherwise in double quotes. The empty text gives "".
String EnquoteWord(const String& text);

/// Undoes EnquoteWord: a text that is wholly one double-quoted word loses its
/// quotes and escapes; every other text comes back as it is.
String DequoteWord(const String& text);

/// The words of an argument vector, each enquoted, joined with blanks: text
/// that can be pasted into a shell.
String JoinCommandLine(const std::vector<String>& words);
