#pragma once

#include "host/foundation/String.h"
#include "host/foundation/TextFilter.h"

#include <string_view>
#include <vector>

/// What makes a line of output an error line: it begins with an error text (or
/// holds one anywhere) and holds no ignore text. The case of ASCII letters does
/// not matter; empty texts are left out, since they would match anything.
class ErrorTexts {
public:
  /// Both lists are texts joined with ";" as list parameters hold them.
  ErrorTexts(const String& errors, const String& ignores, bool anywhere);

  bool IsError(std::string_view line) const { return HoldsError(line) && !m_IgnoreFilter.Occurs(line); }

  /// Has a filter find every line that may be an error.
  void AddToFilter(TextFilter& filter) const;

  /// The texts that a line matches, the first of each list, as they are
  /// written there; empty for none.
  struct Match {
    String Error;
    String Ignore;
  };
  /// Why a line is an error, or why it is none though it has an error text.
  Match Find(std::string_view line) const;

private:
  bool HoldsError(std::string_view line) const {
    return m_Anywhere ? m_ErrorFilter.Occurs(line) : Begins(line);
  }
  bool Begins(std::string_view line) const;

  LowerTable m_Lower;
  std::vector<String> m_WrittenErrors;
  std::vector<String> m_WrittenIgnores;
  std::vector<String> m_Errors; // the same in lower case
  TextFilter m_ErrorFilter;
  TextFilter m_IgnoreFilter;
  bool m_Anywhere;
};
