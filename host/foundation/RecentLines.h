#pragma once

#include "host/foundation/LineSplitter.h"

#include <array>
#include <string>
#include <string_view>

/// Lines of an output of which somebody may ask for the last `Count`, as they came.
///
/// Where many lines matter, the others come in thousands of blocks of a few lines.
/// To cut and copy each of these, nearly always to be replaced by later ones, takes
/// longer than all else that is done with them. So short blocks are only put one
/// behind the other, and the last lines of them are cut when somebody asks for them
/// or they have become many.
///
/// `take` gets the last lines, without their ends, in the order of the output; those
/// of blanks and tabs alone are left out. Lines before the last ones may be missing.
template <std::size_t Count> class RecentLines {
public:
  /// Whole lines with their ends.
  template <typename Take> void Add(std::string_view lines, Take take) {
    if (!Fits(lines)) {
      Cut(take);
    }
    if (Fits(lines)) {
      m_Lines.append(lines);
    } else {
      TakeLast(lines, take);
    }
  }

  /// A line without its end.
  template <typename Take> void AddLine(std::string_view line, Take take) {
    if (!Fits(line)) {
      Cut(take);
    }
    if (Fits(line)) {
      m_Lines.append(line).push_back('\n');
    } else {
      TakeLast(line, take);
    }
  }

  /// Hands over what is still here.
  template <typename Take> void Cut(Take take) {
    if (!m_Lines.empty()) {
      TakeLast(m_Lines, take);
      m_Lines.clear();
    }
  }

private:
  static constexpr std::size_t k_ShortBlock = std::size_t{8} << 10;
  static constexpr std::size_t k_MostBytes = std::size_t{32} << 10;

  bool Fits(std::string_view lines) const {
    return lines.size() <= k_ShortBlock && m_Lines.size() + lines.size() <= k_MostBytes;
  }

  template <typename Take> static void TakeLast(std::string_view lines, Take take) {
    std::array<std::string_view, Count> last;
    const std::size_t count = FindLastLines(lines, last);
    for (std::size_t i = 0; i < count; ++i) {
      take(last[i]);
    }
  }

  std::string m_Lines;
};
