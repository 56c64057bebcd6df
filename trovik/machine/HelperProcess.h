#pragma once

#include "host/foundation/Descriptor.h"
#include "host/foundation/String.h"

#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace trovik {

/// A program of our own that is given lines and answers with lines. It runs in
/// a process group of its own with one socket for its input, output and
/// errors, and none of our other descriptors; its input ends when this process
/// does. Nothing here blocks, and its death raises no SIGPIPE. For one thread.
class HelperProcess {
public:
  /// Which cores it runs on: like any program, or only where nobody else wants
  /// to. The latter may come to a standstill.
  enum class Cores { Any, Idle };

  /// Starts it; the first argument is the path of the program. Throws
  /// std::system_error with the system's reason.
  explicit HelperProcess(const std::vector<String>& arguments, Cores cores = Cores::Any);
  /// Kills what is left of it.
  ~HelperProcess();
  HelperProcess(const HelperProcess&) = delete;
  HelperProcess& operator=(const HelperProcess&) = delete;

  /// Sends as much as is taken now; the rest goes with `advance`.
  void send(std::string_view text);
  /// The input ends behind what was sent.
  void endInput();

  /// Readable (poll) when a line or the end waits; -1 after the end.
  int descriptor() const { return socket_.Number(); }
  /// Whether text waits to be taken: poll for writing, too.
  bool sending() const { return !pending_.empty(); }

  /// Sends and reads what can be without waiting. False when the helper has
  /// ended, or says no line but something without end.
  bool advance();
  /// The next whole line, without its line feed.
  std::optional<std::string> line();
  /// What was received and not taken, at most so many bytes: for what a line
  /// has announced.
  std::string bytes(std::size_t most);

  struct End {
    int signal = 0;   ///< that killed it; 0 for none
    int code = 0;     ///< its exit code
    std::string text; ///< "was killed by signal 11 (Segmentation fault)", "ended with exit code 127: WORDS"
  };
  /// How it ended; one that still runs is killed. Its last words are what was
  /// received and is no whole line, or was not taken. One that cannot be killed,
  /// since the system waits for a network folder on its behalf, is left behind.
  End end();
  /// Lets it go on where somebody has stopped it.
  void wake() const;

private:
  void flush();

  Descriptor socket_;
  pid_t id_ = -1;
  std::string pending_;
  bool inputEnds_ = false;
  std::string received_;
};

} // namespace trovik
