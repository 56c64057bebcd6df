#include "trovik/queue/EngineLocks.h"

#include "host/foundation/WholeNumber.h"
#include "host/foundation/WriteFile.h"
#include "trovik/queue/QueueError.h"
#include "trovik/text/Text.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace trovik {
namespace {

constexpr std::size_t noteSize = 20; // the digits of any number, and a line feed

[[noreturn]] void fail(const Path& file, const std::error_code& error) {
  const bool full = error == std::errc::no_space_on_device || error.value() == EDQUOT;
  throw QueueError{full ? QueueError::Kind::Full : QueueError::Kind::Other,
                   "Cannot lock " + inQuotes(file.Text()) + ": " + error.message(),
                   full ? "make room there" : "give yourself the right to write there"};
}

bool lock(const Path& file, const Descriptor& descriptor, int how) {
  while (flock(descriptor.Number(), how | LOCK_NB) != 0) {
    if (errno == EWOULDBLOCK) {
      return false;
    }
    if (errno != EINTR) {
      fail(file, {errno, std::generic_category()});
    }
  }
  return true;
}

} // namespace

EngineLocks::EngineLocks(Path directory) : directory_(std::move(directory)) {}

Path EngineLocks::fileOf(EngineId engine) const {
  Path file = directory_;
  file /= String(std::to_string(engine) + ".lock");
  return file;
}

Descriptor EngineLocks::lockOf(const Path& file) const {
  if (const int error = MakePrivateFolder(directory_); error != 0) {
    fail(directory_, {error, std::generic_category()});
  }
  Descriptor descriptor(open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (!descriptor.IsOpen()) {
    fail(file, {errno, std::generic_category()});
  }
  return lock(file, descriptor, LOCK_EX) ? std::move(descriptor) : Descriptor();
}

bool EngineLocks::take(EngineId engine) {
  if (holds(engine)) {
    return false;
  }
  Descriptor descriptor = lockOf(fileOf(engine));
  if (!descriptor.IsOpen()) {
    return false;
  }
  held_.emplace(engine, std::move(descriptor));
  return true;
}

void EngineLocks::note(EngineId engine, std::int64_t number) {
  const auto held = held_.find(engine);
  // Always of the same length, so that one write replaces the one before.
  std::string text = std::to_string(number);
  text.insert(0, noteSize - 1 - text.size(), '0');
  text += '\n';
  const ssize_t written =
      held == held_.end() ? -1 : pwrite(held->second.Number(), text.data(), text.size(), 0);
  if (written != static_cast<ssize_t>(text.size())) {
    const int error = written < 0 ? errno : ENOSPC;
    throw QueueError{error == ENOSPC || error == EDQUOT ? QueueError::Kind::Full : QueueError::Kind::Other,
                     "Cannot write " + inQuotes(fileOf(engine).Text()) + ": " +
                         std::error_code(error, std::generic_category()).message(),
                     "look whether its disk is full or damaged"};
  }
}

std::optional<std::int64_t> EngineLocks::noted(EngineId engine) const {
  const auto held = held_.find(engine);
  if (held == held_.end()) {
    return std::nullopt;
  }
  std::array<char, noteSize + 1> text{};
  const ssize_t count = pread(held->second.Number(), text.data(), text.size(), 0);
  if (count != static_cast<ssize_t>(noteSize) || text[noteSize - 1] != '\n') {
    return std::nullopt;
  }
  return ReadWholeNumber<std::int64_t>(std::string_view(text.data(), noteSize - 1));
}

bool EngineLocks::takeCluster() {
  if (!cluster_.IsOpen()) {
    Path file = directory_;
    file /= "cluster.lock";
    cluster_ = lockOf(file);
  }
  return cluster_.IsOpen();
}

void EngineLocks::release(EngineId engine) {
  held_.erase(engine);
}

void EngineLocks::remove(EngineId engine) {
  // Before the lock is freed: who gets it after that finds, in the queue, that
  // the engine is gone.
  unlink(fileOf(engine).c_str());
  release(engine);
}

bool EngineLocks::isHeldElsewhere(EngineId engine) const {
  if (holds(engine)) {
    return false;
  }
  const Path file = fileOf(engine);
  const Descriptor descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC));
  return descriptor.IsOpen() && !lock(file, descriptor, LOCK_SH);
}

} // namespace trovik
