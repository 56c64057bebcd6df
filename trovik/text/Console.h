#pragma once

#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <functional>
#include <string>
#include <string_view>

namespace trovik {

enum class Colour { Plain, Red, Green, Yellow, Bold, Faint };

/// What the output goes to.
struct ConsoleTraits {
  bool terminal = false; ///< standard output is a terminal that can move its cursor
  bool errorTerminal = false;
  bool colour = false;
  bool errorColour = false;
};

/// The program's two outputs. Every message is one write, so that lines of
/// several writers never interleave; on a terminal one live line may stand
/// below everything that was printed. An output that was closed by its reader
/// is given up quietly, and one that fails is given up too: a run must not die
/// of it. For one thread.
class Console {
public:
  using Writer = std::function<void(std::string_view bytes)>;

  Console(Writer out, Writer error, ConsoleTraits traits, std::function<std::size_t()> width);
  ~Console();
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  const ConsoleTraits& traits() const { return traits_; }
  /// The columns of the terminal now; 80 where nobody knows.
  std::size_t width() const { return width_(); }
  /// The columns to lay text out in: 80 in a pipe.
  std::size_t layoutWidth() const { return traits_.terminal ? width() : 80; }

  /// Prints one message, which ends with a line feed, to standard output.
  void print(std::string_view text);
  void printError(std::string_view text);

  /// Shows a line below all output in place of the one before; the empty text
  /// takes it away. Nothing happens without a terminal. It is cut so that it
  /// never reaches the last column.
  void setLive(const std::string& line);

  /// A text from outside for standard output, see printable().
  std::string shown(std::string_view text) const;
  /// The same for standard error.
  std::string shownError(std::string_view text) const;

  /// The text in a colour where standard output has colours.
  std::string coloured(Colour colour, std::string_view text) const;
  /// The same for standard error.
  std::string colouredError(Colour colour, std::string_view text) const;

private:
  Writer out_;
  Writer error_;
  ConsoleTraits traits_;
  std::function<std::size_t()> width_;
  std::string live_;
};

/// Writes to a descriptor until all is written, the reader has gone or the
/// disk is full; then never again. What went wrong is put into `error` (errno);
/// a reader that has gone is nothing wrong.
Console::Writer descriptorWriter(int descriptor, int* error = nullptr);

enum class ColourChoice { Auto, Always, Never };

/// What the process's own outputs are. Colours: as chosen; by itself where the
/// output is a terminal, TERM is not "dumb" and NO_COLOR is not set.
ConsoleTraits standardTraits(ColourChoice choice);

/// The width of the terminal on standard output, else COLUMNS, else 80.
std::size_t standardWidth();

/// A message for standard error with a head such as "trovik: warning:" before
/// its first line; every line of the text, which may hold names from outside,
/// is made visible.
std::string messageText(const Console& console, Colour colour, const std::string& head,
                        const std::string& text);

/// Something that the user should know, though it goes on, and the hint below.
void printWarning(Console& console, const UsageError& warning);

/// What was refused, and the hint below it.
void printRefusal(Console& console, const UsageError& error);

} // namespace trovik
