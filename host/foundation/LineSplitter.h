#pragma once

#include "host/foundation/String.h"

#include <functional>
#include <string_view>

/// Cuts the output of a program into the lines that a job judges.
///
/// Lines end at "\n", "\r\n" or a lone "\r" (progress lines of real programs).
/// Backspaces end one as well, where there is one to end: a progress bar that
/// goes back writes anew, and what it wrote before was said all the same.
/// A line is delivered as soon as its end is seen. Terminal colour, cursor and
/// title sequences are removed, and a UTF-8 byte order mark before the line. A line longer than the limit is
/// delivered in pieces of that size (counted with the sequences), so memory stays bounded whatever a program
/// prints. Finish delivers a partial last line and makes the splitter ready for another program.
class LineSplitter {
public:
  static constexpr std::size_t k_LineLimit = std::size_t{1} << 20;

  /// Called once a line; the text is valid only during the call.
  using Receiver = std::function<void(std::string_view line)>;

  explicit LineSplitter(Receiver receiver) : m_Receiver(std::move(receiver)) {}

  void Feed(std::string_view bytes);
  void Finish();

private:
  void Extend(std::string_view text, bool ends);
  void DeliverWith(std::string_view text);
  void Deliver(std::string_view line);

  Receiver m_Receiver;
  std::string m_Partial;      // the bytes of an unfinished line
  std::string m_Clean;        // a line without its terminal sequences
  bool m_Escape = false;      // the current line holds an escape
  bool m_SkipNewline = false; // the last line ended with "\r"
};

/// A copy of the line without terminal escape sequences (ECMA-48): control
/// sequences (CSI), strings (OSC, DCS and their like, with what they hold), and
/// the short ones. A string that the line does not end keeps its text, any
/// other sequence cut off by the end of the line vanishes.
String RemoveTerminalSequences(std::string_view line);
