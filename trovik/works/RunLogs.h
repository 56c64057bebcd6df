#pragma once

#include "host/foundation/Path.h"
#include "trovik/records/Records.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace trovik {

/// The output of one attempt, kept byte for byte up to a bound. Beyond it the
/// start and the end are kept.
class AttemptLog {
public:
  virtual ~AttemptLog() = default;
  virtual void write(std::string_view bytes) = 0;
  /// Where it can be read; empty when there was nothing to keep.
  virtual Path file() const = 0;
};

/// Where the logs of a run go.
class RunLogs {
public:
  virtual ~RunLogs() = default;
  /// A log for an attempt; `name` is the work's ("7-9", "work"). Never null.
  virtual std::unique_ptr<AttemptLog> open(const std::string& name, int attempt) = 0;
};

/// Logs as files of one directory: "7-9.log", for a further attempt
/// "7-9.attempt2.log"; where there is one of that name it belongs to somebody
/// else, is left alone, and ".other2" stands before the ending. A program that
/// prints nothing has none. A log that cannot be written (a full disk) costs a
/// warning, never the work; it stops where its disk is nearly full.
class RunLogDirectory final : public RunLogs {
public:
  /// Whose the files are: of this user alone, or as the umask says.
  enum class Access { Private, Usual };

  /// Makes the directory and those above it. Throws a UsageError when it
  /// cannot.
  explicit RunLogDirectory(Path directory, Access access = Access::Usual);
  /// The same with a bound in bytes for each log in place of the settings':
  /// key Limit in the section Logs, in MiB. For tests.
  RunLogDirectory(Path directory, Access access, std::int64_t bound);

  std::unique_ptr<AttemptLog> open(const std::string& name, int attempt) override;
  const Path& directory() const { return directory_; }

private:
  Path directory_;
  Access access_;
  std::int64_t bound_;
};

/// For where no log can be written: all that is written is lost.
std::unique_ptr<RunLogs> noLogs();

inline constexpr std::string_view logEnding = ".log";

/// Whether a line of a log is the one that stands in place of what was left out
/// (or looks like it: the program may have printed it).
bool isGapLine(std::string_view line);

/// The file that such a directory has for an attempt; see there.
Path logFile(Path directory, const std::string& name, int attempt);
/// The one that an attempt of a job has, or will have.
Path logFile(const JobRecord& job, const AttemptRecord& attempt);

} // namespace trovik
