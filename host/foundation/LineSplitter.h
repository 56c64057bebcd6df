#pragma once

#include "host/foundation/String.h"
#include "host/foundation/TextFilter.h"

#include <functional>
#include <span>
#include <string_view>

/// Takes the lines of a program's output, most of them in whole blocks.
class LineJudge {
public:
  virtual ~LineJudge() = default;

  /// What a line must hold to be worth a look of its own; null when every line
  /// is. The filter must know what AddToFilter adds. Asked for again after
  /// every call of the others; valid until then.
  virtual const TextFilter* WantedTexts() = 0;

  /// A line, without its end and terminal sequences; valid only during the call.
  virtual void OnLine(std::string_view line) = 0;

  /// One or more whole lines that hold nothing that is wanted, as they came:
  /// with their ends, of any kind. Valid only during the call.
  virtual void OnPlainLines(std::string_view lines) = 0;
};

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

  /// The judge gets every line, in the order of the output, by one of its two
  /// operations. It must outlive the splitter.
  explicit LineSplitter(LineJudge& judge)
      : m_Receiver([&judge](std::string_view line) { judge.OnLine(line); }), m_Judge(&judge) {}

  /// Has a judge's filter find the lines that the splitter alters: with an
  /// escape or a byte order mark.
  static void AddToFilter(TextFilter& filter);

  void Feed(std::string_view bytes);
  void Finish();

private:
  void FeedLines(std::string_view bytes);
  void FeedBlock(std::string_view block);
  void JudgeLines(std::string_view lines);
  void Extend(std::string_view text, bool ends);
  void DeliverWith(std::string_view text);
  void Deliver(std::string_view line);

  Receiver m_Receiver;
  LineJudge* m_Judge = nullptr; // null where each line goes to the receiver
  std::string m_Partial;        // the bytes of an unfinished line
  std::string m_Clean;          // a line without its terminal sequences
  bool m_Escape = false;        // the current line holds an escape
  bool m_SkipNewline = false;   // the last line ended with "\r"
};

/// Takes the first line off whole lines with their ends. Of "\r\n" each byte is
/// an end of its own here, as every backspace is: that makes empty lines.
std::string_view TakeFirstLine(std::string_view& lines);

/// The last lines that are not only blanks and tabs, as many as there is room
/// for, in their order, of whole lines with their ends; how many there are.
std::size_t FindLastLines(std::string_view lines, std::span<std::string_view> last);

/// A copy of the line without terminal escape sequences (ECMA-48): control
/// sequences (CSI), strings (OSC, DCS and their like, with what they hold), and
/// the short ones. A string that the line does not end keeps its text, any
/// other sequence cut off by the end of the line vanishes.
String RemoveTerminalSequences(std::string_view line);
