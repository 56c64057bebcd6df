#include "trovik/works/RunLogs.h"

#include "host/application/Application.h"
#include "host/application/Excerpt.h"
#include "host/application/JobTypeInfo.h"
#include "host/foundation/Descriptor.h"
#include "host/foundation/Log.h"
#include "host/foundation/WriteFile.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

// A log is kept in its order at every moment: when it has reached its bound,
// the bytes behind its first half are thrown away but for the newest, which
// move up behind a line that tells how many are missing. So whoever reads it,
// be it after the engine was killed, finds its start and its end.

namespace trovik {
namespace {

constexpr int usualLimit = 64;
constexpr int longestLimit = 1 << 20;
constexpr int namesTried = 1000;

// Of the disk so much is left to the queue, which must be able to write down
// that the program was ended.
constexpr std::uint64_t diskReserve = std::uint64_t{32} << 20U;
constexpr std::int64_t reserveInterval = std::int64_t{1} << 20U;

constexpr std::string_view gapStart = "[trovik: ";
constexpr std::string_view gapEnd = " bytes of output are left out here]";

/// The line in place of what is missing; always of one length.
std::string gapLine(std::int64_t bytes) {
  const std::string number = std::to_string(bytes);
  return '\n' + std::string(gapStart) + std::string(20 - std::min<std::size_t>(number.size(), 20), ' ') +
         number + std::string(gapEnd) + '\n';
}

std::string systemText(int error) {
  return std::error_code(error, std::generic_category()).message();
}

class AttemptLogFile final : public AttemptLog {
public:
  AttemptLogFile(Path file, mode_t mode, std::int64_t bound)
      : file_(std::move(file)), mode_(mode), bound_(bound) {}

  void write(std::string_view bytes) override {
    if (state_ == State::Unopened && !bytes.empty()) {
      open();
    }
    while (state_ == State::Open && !bytes.empty()) {
      if (size_ >= bound_) {
        leaveOut();
      } else if (size_ >= nextLook_) {
        lookAtDisk();
      } else {
        const std::int64_t room = std::min(bound_, nextLook_) - size_;
        const std::string_view piece = bytes.substr(0, static_cast<std::size_t>(room));
        bytes.remove_prefix(writeAt(piece, size_));
      }
    }
  }

  Path file() const override { return state_ == State::Unopened ? Path() : file_; }

private:
  enum class State { Unopened, Open, GivenUp };

  /// The log of another job, of whatever queue, is never written over.
  void open() {
    const std::string stem = file_.Text().substr(0, file_.Text().size() - logEnding.size());
    for (int number = 2; !descriptor_.IsOpen(); ++number) {
      descriptor_.Reset(::open(file_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode_));
      state_ = State::Open;
      if (!descriptor_.IsOpen()) {
        if (errno != EEXIST || number > namesTried) {
          giveUp(systemText(errno));
          return;
        }
        file_ = Path(stem + ".other" + std::to_string(number) + std::string(logEnding));
      }
    }
  }

  /// Returns how much was written; 0 after giving up.
  std::size_t writeAt(std::string_view bytes, std::int64_t place) {
    for (;;) {
      const ssize_t written = ::pwrite(descriptor_.Number(), bytes.data(), bytes.size(), place);
      if (written > 0) {
        size_ = std::max(size_, place + written);
        return static_cast<std::size_t>(written);
      }
      if (written == 0 || errno != EINTR) {
        giveUp(systemText(errno));
        return 0;
      }
    }
  }

  void leaveOut() {
    const std::int64_t head = bound_ / 2;
    const std::string before = leftOut_ == 0 ? std::string() : gapLine(leftOut_);
    const std::int64_t begin = head + static_cast<std::int64_t>(before.size());
    const std::int64_t kept = size_ - bound_ / 4;
    leftOut_ += kept - begin;
    const std::string line = gapLine(leftOut_);
    std::int64_t place = head;
    for (std::string_view rest = line; !rest.empty() && state_ == State::Open;) {
      const std::size_t written = writeAt(rest, place);
      rest.remove_prefix(written);
      place += static_cast<std::int64_t>(written);
    }
    std::vector<char> buffer(std::size_t{256} << 10U);
    for (std::int64_t from = kept; from < size_ && state_ == State::Open;) {
      const ssize_t got = ::pread(descriptor_.Number(), buffer.data(), buffer.size(), from);
      if (got <= 0) {
        giveUp(systemText(got < 0 ? errno : EIO));
        return;
      }
      const std::size_t written = writeAt({buffer.data(), static_cast<std::size_t>(got)}, place);
      from += static_cast<std::int64_t>(written);
      place += static_cast<std::int64_t>(written);
    }
    if (state_ == State::Open && ::ftruncate(descriptor_.Number(), place) != 0) {
      giveUp(systemText(errno));
    }
    size_ = place;
    nextLook_ = size_ + reserveInterval;
  }

  void lookAtDisk() {
    nextLook_ = size_ + reserveInterval;
    struct statvfs disk {};
    if (::fstatvfs(descriptor_.Number(), &disk) != 0) {
      return;
    }
    const std::uint64_t total = std::uint64_t{disk.f_blocks} * disk.f_frsize;
    const std::uint64_t reserve = std::min(diskReserve, total / 32);
    if (std::uint64_t{disk.f_bavail} * disk.f_frsize < reserve) {
      giveUp("its disk is nearly full; what is left of it is kept for the queue");
    }
  }

  void giveUp(const std::string& reason) {
    LogWarning("cannot write the log " + inQuotes(file_.Text()) + ": " + reason);
    state_ = State::GivenUp;
  }

  Path file_;
  mode_t mode_;
  std::int64_t bound_;
  std::int64_t size_ = 0;
  std::int64_t leftOut_ = 0;
  std::int64_t nextLook_ = 0;
  State state_ = State::Unopened;
  Descriptor descriptor_;
};

class NoLogs final : public RunLogs {
  class NoLog final : public AttemptLog {
    void write(std::string_view /*bytes*/) override {}
    Path file() const override { return {}; }
  };
  std::unique_ptr<AttemptLog> open(const std::string& /*name*/, int /*attempt*/) override {
    return std::make_unique<NoLog>();
  }
};

std::int64_t boundFromSettings() {
  int limit = usualLimit;
  const IniFile& settings = Application::the_Application->Settings();
  IniFile::EntryView entry;
  if (settings.FindEntry("Logs", "Limit", entry)) {
    int number = 0;
    const char* end = entry.Value.data() + entry.Value.size();
    const auto [last, error] = std::from_chars(entry.Value.data(), end, number);
    if (error == std::errc() && last == end && number >= 1 && number <= longestLimit) {
      limit = number;
    } else {
      LogWarning(PlacedMessage(settings.Filename(), entry.ValuePlace, "warning",
                               "\"" + Shown(String(entry.Value)) +
                                   "\" is no size of a log in MiB; write a whole " + "number from 1 on, " +
                                   std::to_string(usualLimit) + " is usual"));
    }
  }
  return std::int64_t{limit} << 20U;
}

} // namespace

bool isGapLine(std::string_view line) {
  return line.starts_with(gapStart) && line.ends_with(gapEnd);
}

std::unique_ptr<RunLogs> noLogs() {
  return std::make_unique<NoLogs>();
}

RunLogDirectory::RunLogDirectory(Path directory, Access access)
    : RunLogDirectory(std::move(directory), access, boundFromSettings()) {}

RunLogDirectory::RunLogDirectory(Path directory, Access access, std::int64_t bound)
    : directory_(std::move(directory)), access_(access), bound_(bound) {
  std::error_code error;
  if (access == Access::Private) {
    error = {MakePrivateFolder(directory_), std::generic_category()};
  } else {
    std::filesystem::create_directories(directory_.Text().c_str(), error);
  }
  if (error) {
    throw UsageError{"cannot make the folder for the logs " + inQuotes(directory_.Text()) + ": " +
                         error.message(),
                     "choose another with --log-dir"};
  }
}

std::unique_ptr<AttemptLog> RunLogDirectory::open(const std::string& name, int attempt) {
  return std::make_unique<AttemptLogFile>(logFile(directory_, name, attempt),
                                          access_ == Access::Private ? 0600 : 0666, bound_);
}

Path logFile(const JobRecord& job, const AttemptRecord& attempt) {
  return logFile(Path(job.logs), job.hasFrames ? std::string(attempt.run.Text()) : "work", attempt.number);
}

Path logFile(Path directory, const std::string& name, int attempt) {
  return directory /=
         String(name + (attempt > 1 ? ".attempt" + std::to_string(attempt) : "") + std::string(logEnding));
}

} // namespace trovik
