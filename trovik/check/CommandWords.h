#pragma once

#include "host/application/ParameterCommands.h"

#include <vector>

namespace trovik {

/// One letter of an argument, or a reference that stands for a value in it.
struct WordLetter {
  char letter = '\0';
  char quote = '\0';                    ///< the quote that it stands in; 0 for none
  bool escaped = false;                 ///< a backslash keeps it
  std::size_t place = 0;                ///< in the command line, from 0
  const Reference* reference = nullptr; ///< null for a letter
};
using CommandWord = std::vector<WordLetter>;

/// Splits a command line as a work's is split, with its references as they are
/// written. `references` must be those of the line, and outlive the words. What
/// is behind a quote that is never closed belongs to the last word.
std::vector<CommandWord> commandWords(const String& line, const std::vector<Reference>& references);

} // namespace trovik
