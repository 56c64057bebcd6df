#pragma once

#include "host/foundation/RecentLines.h"
#include "host/foundation/String.h"

#include <array>
#include <string_view>
#include <vector>

/// The lines of a program's output among which stands the one that tells why it
/// failed: the first few, where a program tells what it does not understand
/// before it prints its help, and the last ones. See OutputTail.cpp.
class OutputTail {
public:
  /// Lines may have a megabyte; this many bytes are enough to show and to search in.
  static constexpr std::size_t k_KeptLine = std::size_t{64} << 10;

  /// Takes a line with any text in it.
  void Add(std::string_view line);

  /// Takes whole lines with their ends; those without any text are left out.
  void AddLines(std::string_view lines);

  /// The last line; empty without any. Valid until lines are added.
  const String& Last() const;

  /// The line that most likely tells why the program failed: the first that says
  /// "error:", "unknown option" or the like, else the last one that says "cannot
  /// open" or the like; empty where neither is there.
  String Telling() const;

private:
  static constexpr std::size_t k_First = 5;
  static constexpr std::size_t k_Last = 24;

  /// All lines that are kept, in their order.
  std::vector<const String*> Lines() const;
  void Keep(std::string_view line) const;
  void Cut() const;

  std::vector<String> m_First;
  mutable RecentLines<k_Last> m_Uncut; // behind those of the ring
  mutable std::array<String, k_Last> m_Ring;
  mutable std::size_t m_Count = 0;
};
