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

  bool IsError(std::string_view line) const {
    return (m_Anywhere ? m_ErrorFilter.Occurs(line, m_Lower) : Begins(line)) &&
           !m_IgnoreFilter.Occurs(line, m_Lower);
  }

private:
  bool Begins(std::string_view line) const;

  LowerTable m_Lower;
  std::vector<String> m_Errors;
  TextFilter m_ErrorFilter;
  TextFilter m_IgnoreFilter;
  bool m_Anywhere;
};
