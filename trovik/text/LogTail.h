#pragma once

#include "host/foundation/RecentLines.h"

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace trovik {

/// The lines of a program's output that are worth quoting when its work
/// failed: those around the line that decided, else the last ones. Takes the
/// same few kilobytes whatever a program prints.
class LogTail {
public:
  static constexpr std::size_t lastLines = 10;
  static constexpr std::size_t linesBefore = 3; ///< before the deciding line
  static constexpr std::size_t linesAfter = 3;
  static constexpr std::size_t lineLimit = 400; ///< bytes kept of a line

  /// Takes a line without its end; one without any text is left out.
  void add(std::string_view line);
  /// Takes whole lines with their ends, in which are no terminal sequences.
  void addLines(std::string_view lines);
  /// The line added last decided; the first such call counts.
  void markDeciding();

  std::vector<std::string> lines() const;

private:
  void keep(std::string_view line) const;
  void cut() const;
  std::vector<std::string> ring(std::size_t count) const;

  mutable RecentLines<lastLines> uncut_; // behind those of the ring; none while a line is wanted
  mutable std::array<std::string, lastLines> ring_;
  mutable std::size_t added_ = 0;
  std::vector<std::string> around_;
  std::size_t wanted_ = 0; // lines still to come behind the deciding one
};

} // namespace trovik
