#pragma once

#include "trovik/replay/Replay.h"
#include "trovik/text/Console.h"

#include <memory>
#include <string>

namespace trovik {

/// What is known of a replay before it begins.
struct ReplayFacts {
  std::string type; ///< its title
  std::string typeId;
  std::string log;    ///< as the user named it
  std::string frames; ///< of the work; empty for none
  ProcessExit exit;
  bool exitTold = false; ///< false: nobody said how the program ended
  bool files = false;    ///< whether files are checked
};

/// Shows a replay while it goes on. The log may be larger than memory, so
/// nothing but a few lines is kept.
class ReplayPrinter {
public:
  virtual ~ReplayPrinter() = default;
  virtual void line(const ReplayedLine& line) = 0;
  virtual void end(const ReplayResult& result) = 0;

protected:
  /// What is to be shown is collected up to about so many bytes.
  static constexpr std::size_t flushSize = std::size_t{64} << 10;
};

/// For people: the lines that the type's texts speak of, an error with the
/// lines around it, or with `all` every line; then images, files and verdict.
std::unique_ptr<ReplayPrinter> replayText(Console& console, const ReplayFacts& facts, bool all);

/// One JSON document, written as the lines come.
std::unique_ptr<ReplayPrinter> replayJson(Console& console, const ReplayFacts& facts);

} // namespace trovik
