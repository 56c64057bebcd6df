#include "trovik/works/RunLogs.h"

#include "host/foundation/Descriptor.h"
#include "host/foundation/Log.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace trovik {
namespace {

class AttemptLogFile final : public AttemptLog {
public:
  explicit AttemptLogFile(Path file) : file_(std::move(file)) {}

  void write(std::string_view bytes) override {
    if (state_ == State::Unopened && !bytes.empty()) {
      descriptor_.Reset(::open(file_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
      state_ = State::Open;
      if (!descriptor_.IsOpen()) {
        giveUp();
      }
    }
    while (state_ == State::Open && !bytes.empty()) {
      const ssize_t written = ::write(descriptor_.Number(), bytes.data(), bytes.size());
      if (written > 0) {
        bytes.remove_prefix(static_cast<std::size_t>(written));
      } else if (written == 0 || errno != EINTR) {
        giveUp();
      }
    }
  }

  Path file() const override { return state_ == State::Unopened ? Path() : file_; }

private:
  enum class State { Unopened, Open, GivenUp };

  void giveUp() {
    LogWarning("cannot write the log " + inQuotes(file_.Text()) + ": " +
               std::error_code(errno, std::generic_category()).message());
    state_ = State::GivenUp;
  }

  Path file_;
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

} // namespace

std::unique_ptr<RunLogs> noLogs() {
  return std::make_unique<NoLogs>();
}

RunLogDirectory::RunLogDirectory(Path directory) : directory_(std::move(directory)) {
  std::error_code error;
  std::filesystem::create_directories(directory_.Text().c_str(), error);
  if (error) {
    throw UsageError{"cannot make the folder for the logs " + inQuotes(directory_.Text()) + ": " +
                         error.message(),
                     "choose another with --log-dir"};
  }
}

std::unique_ptr<AttemptLog> RunLogDirectory::open(const std::string& name, int attempt) {
  return std::make_unique<AttemptLogFile>(logFile(directory_, name, attempt));
}

Path logFile(const JobRecord& job, const AttemptRecord& attempt) {
  return logFile(Path(job.logs), job.hasFrames ? std::string(attempt.run.Text()) : "work", attempt.number);
}

Path logFile(Path directory, const std::string& name, int attempt) {
  return directory /= String(name + (attempt > 1 ? ".attempt" + std::to_string(attempt) : "") + ".log");
}

} // namespace trovik
