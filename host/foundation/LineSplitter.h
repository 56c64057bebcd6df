#pragma once

#include "host/foundation/String.h"

#include <functional>
#include <string_view>

/// Cuts the output of a program into the lines that a job judges.
///
/// Lines end at "\n", "\r\n" or a lone "\r" (progress lines of real programs).
/// Terminal colour, cursor and title sequences are removed. A line longer
/// than the limit is delivered in pieces of that size, so memory stays bounded
/// whatever a program prints. Finish delivers a partial last line.
class LineSplitter {
public:
  static constexpr std::size_t k_LineLimit = std::size_t{1} << 20;

  /// Called once a line; the text is valid only during the call.
  using Receiver = std::function<void(std::string_view line)>;

  explicit LineSplitter(Receiver receiver) : m_Receiver(std::move(receiver)) {}

  void Feed(std::string_view bytes);
  void Finish();

private:
  void Deliver(std::string_view line);

  Receiver m_Receiver;
  std::string m_Partial;
  std::string m_Clean;
  bool m_SkipNewline = false;
};

/// A copy of the line without terminal escape sequences (ECMA-48: CSI, OSC and
/// two-byte ones). An OSC sequence that the line does not end keeps its text.
String RemoveTerminalSequences(std::string_view line);
