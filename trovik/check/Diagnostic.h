#pragma once

#include "host/foundation/IniFile.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace trovik {

enum class Severity { Warning, Error };

/// One thing that is wrong or doubtful in a type file.
struct Diagnostic {
  Severity severity = Severity::Error;
  std::string rule;            ///< a short name that stays, for tools
  std::uint32_t line = 0;      ///< from 1; 0 where it concerns the whole file
  std::uint32_t column = 0;    ///< of its first byte, from 1
  std::uint32_t endColumn = 0; ///< one past its last byte
  std::string message;
  std::string hint; ///< what to do; may be empty
};

/// Bytes of one line.
struct Span {
  TextPlace place;
  std::size_t length = 0;

  /// A part of it, which lies `offset` bytes behind its start.
  Span part(std::size_t offset, std::size_t count) const {
    return {{place.Line, place.Column + static_cast<std::uint32_t>(offset)}, count};
  }
};

/// The problems of one file as they are found. A hostile file may hold
/// millions; those beyond a limit are only counted.
class Findings {
public:
  static constexpr std::size_t limit = 2000;

  void error(const char* rule, const Span& span, const std::string& message, const std::string& hint = {}) {
    add(Severity::Error, rule, span, message, hint);
  }
  void warning(const char* rule, const Span& span, const std::string& message, const std::string& hint = {}) {
    add(Severity::Warning, rule, span, message, hint);
  }
  void add(Severity severity, const char* rule, const Span& span, const std::string& message,
           const std::string& hint);

  /// Whether looking for more is in vain.
  bool full() const { return found_.size() >= limit; }
  std::size_t errors() const { return errors_; }
  bool hasRule(std::string_view rule) const;

  /// All of them in the order of their places; none is left.
  std::vector<Diagnostic> take();

private:
  std::vector<Diagnostic> found_;
  std::size_t errors_ = 0;
};

} // namespace trovik
