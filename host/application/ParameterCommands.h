#pragma once

#include "host/application/Expansion.h"

#include <cstddef>
#include <vector>

/// One command of a chain such as "Leaf.Replace(a,b)".
struct CommandCall {
  const ParameterCommand* Command = nullptr;
  String Argument; ///< as written between the parentheses
  bool HasArgument = false;
  std::size_t Begin = 0; ///< the command's place in the text
  std::size_t End = 0;   ///< one past it, its argument included
};

/// What is wrong with a reference: the bytes that are, and what to do.
struct ReferenceProblem {
  std::size_t Begin = 0;
  std::size_t End = 0;
  String Message;
  String Hint; ///< may be empty

  String Text() const { return Hint.empty() ? Message : Message + "; " + Hint; }
};

/// One reference as it is written.
struct Reference {
  String Name;
  std::vector<CommandCall> Calls;
  std::size_t Begin = 0; ///< of its "$"
  std::size_t End = 0;   ///< one past its ")"
};

/// Where the next "$(" stands from a position on; npos for none. `literal`
/// tells whether a "$" before it makes it plain text.
std::size_t FindReference(const String& text, std::size_t position, bool& literal);

/// Reads the reference whose "$(" stands at `start`. False, with what is wrong
/// first, for one that is malformed.
bool ReadReference(const String& text, std::size_t start, Reference& reference, ReferenceProblem& problem);

/// Reads a chain of commands from `position`, where a command begins, to its
/// end: a ")" outside of arguments, or the end of the text. `position` is then
/// there. Raises Exception* with `where` and the column for an unknown or
/// missing command, an unclosed argument and an argument too many or too few.
std::vector<CommandCall> ReadCommands(const String& text, std::size_t& position, const String& where);

/// Applies one command to a value; the description, which may be null, tells
/// whether that is a list. Raises Exception* for a value or argument that the
/// command cannot work with.
String ApplyCommand(const CommandCall& call, const String& value, const ParameterInfo* info);

/// Whether a command does more than make a text: a copy of a file, or a link.
bool MakesFile(const CommandCall& call);
