#include "trovik/cluster/JobFolder.h"

#include "host/foundation/Descriptor.h"
#include "host/foundation/Exception.h"
#include "host/foundation/Log.h"
#include "host/foundation/WriteFile.h"
#include "trovik/cluster/FolderForms.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

// Files that must be whole and first (claims, results) are linked from a
// temporary, which every file system does at once and exclusively. Beats are
// written in place instead: a network file system asks the server about a file
// that it opens, while a name that was replaced may stay hidden for half a
// minute.

namespace trovik {
namespace {

constexpr std::size_t mebibyte = std::size_t{1} << 20U;
// Beyond what a job of ten thousand works, or a work of as many files, takes.
constexpr std::size_t jobFormLimit = mebibyte;
constexpr std::size_t streamLimit = 256 * mebibyte;
constexpr std::size_t planLimit = 64 * mebibyte;
constexpr std::size_t claimLimit = mebibyte;
constexpr std::size_t beatLimit = 16 * mebibyte;
constexpr std::size_t endLimit = 64 * mebibyte;

[[noreturn]] void raiseUnreadable(const Path& file, int reason) {
  RaiseException("JobFolder", k_ErrorSystem, "cannot read " + inQuotes(file.Text()), reason);
}

[[noreturn]] void raiseMalformed(const Path& file, const std::string& why) {
  RaiseException("JobFolder", k_ErrorSyntax, inQuotes(file.Text()) + ": " + why);
}

/// The bytes of a file; nothing where there is none.
std::optional<std::string> readWhole(const Path& file, std::size_t limit) {
  const Descriptor descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (!descriptor.IsOpen()) {
    if (errno == ENOENT) {
      return std::nullopt;
    }
    raiseUnreadable(file, errno);
  }
  struct stat status {};
  if (fstat(descriptor.Number(), &status) != 0) {
    raiseUnreadable(file, errno);
  }
  if (!S_ISREG(status.st_mode)) {
    raiseMalformed(file, "it is no regular file");
  }
  std::string bytes;
  constexpr std::size_t piece = std::size_t{64} << 10U;
  for (std::size_t size = 0;; size = bytes.size()) {
    if (size > limit) {
      raiseMalformed(file, "it is larger than " + std::to_string(limit / mebibyte) + " MiB");
    }
    bytes.resize(size + piece);
    const ssize_t got = read(descriptor.Number(), bytes.data() + size, piece);
    if (got < 0 && errno != EINTR) {
      raiseUnreadable(file, errno);
    }
    bytes.resize(size + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    if (got == 0) {
      return bytes;
    }
  }
}

std::string readThere(const Path& file, std::size_t limit) {
  std::optional<std::string> bytes = readWhole(file, limit);
  if (!bytes) {
    raiseUnreadable(file, ENOENT);
  }
  return *std::move(bytes);
}

template <typename Parse> auto parsedFrom(const Path& file, const std::string& text, Parse parse) {
  try {
    return parse(text);
  } catch (const FormProblem& problem) {
    raiseMalformed(file, problem.text);
  }
}

template <typename Parse> auto readForm(const Path& file, std::size_t limit, Parse parse) {
  return parsedFrom(file, readThere(file, limit), parse);
}

template <typename Parse>
auto readFormIfThere(const Path& file, std::size_t limit, Parse parse)
    -> std::optional<decltype(parse(std::string_view()))> {
  const std::optional<std::string> text = readWhole(file, limit);
  if (!text) {
    return std::nullopt;
  }
  return parsedFrom(file, *text, parse);
}

/// Writes a file that is not there yet; false where it is.
bool writeFirst(const Path& file, std::string_view bytes) {
  return WriteFileWhole("JobFolder", file, bytes, Existing::Keep);
}

void makeDirectories(const Path& directory) {
  std::error_code error;
  std::filesystem::create_directories(directory.Text().c_str(), error);
  if (error) {
    RaiseException("JobFolder", k_ErrorSystem, "cannot make the folder " + inQuotes(directory.Text()),
                   error.value());
  }
}

bool hasName(const Path& file) {
  struct stat status {};
  if (lstat(file.c_str(), &status) == 0) {
    return true;
  }
  if (errno != ENOENT) {
    raiseUnreadable(file, errno);
  }
  return false;
}

Path inside(Path directory, const std::string& name) {
  return directory /= String(name);
}

} // namespace

JobFolder::JobFolder(Path directory) : directory_(std::move(directory)) {}

Path JobFolder::logs() const {
  return inside(directory_, "logs");
}

Path JobFolder::array(int number) const {
  return inside(directory_, std::to_string(number));
}

void JobFolder::create(const FolderJob& job) const {
  makeDirectories(directory_);
  makeDirectories(logs());
  // The description last: where it is, all is.
  WriteFileWhole("JobFolder", inside(directory_, "stream"), job.packed, Existing::Replace);
  WriteFileWhole("JobFolder", inside(directory_, "job.json"), formOf(job), Existing::Replace);
}

FolderJob JobFolder::read() const {
  FolderJob job = readForm(inside(directory_, "job.json"), jobFormLimit, jobFromForm);
  job.packed = readThere(inside(directory_, "stream"), streamLimit);
  return job;
}

ArrayFolder::ArrayFolder(Path directory) : directory_(std::move(directory)) {}

Path ArrayFolder::fileOf(std::size_t position, const std::string& suffix) const {
  return inside(directory_, std::to_string(position) + suffix);
}

void ArrayFolder::create(const ArrayPlan& plan) const {
  makeDirectories(directory_);
  WriteFileWhole("JobFolder", inside(directory_, "plan.json"), formOf(plan), Existing::Replace);
}

ArrayPlan ArrayFolder::plan() const {
  return readForm(inside(directory_, "plan.json"), planLimit, planFromForm);
}

Path ArrayFolder::taskLog(const std::string& index) const {
  return inside(directory_, "task-" + index + ".log");
}

void ArrayFolder::cancel() const {
  writeFirst(inside(directory_, "cancel"), {});
}

bool ArrayFolder::isCanceled() const {
  return hasName(inside(directory_, "cancel"));
}

bool ArrayFolder::claim(std::size_t position, const WorkClaim& claim) const {
  return writeFirst(fileOf(position, ".claim." + std::to_string(claim.number)), formOf(claim));
}

std::optional<WorkClaim> ArrayFolder::claimOf(std::size_t position, int number) const {
  return readFormIfThere(fileOf(position, ".claim." + std::to_string(number)), claimLimit, claimFromForm);
}

int ArrayFolder::lastClaim(std::size_t position, int known) const {
  while (hasName(fileOf(position, ".claim." + std::to_string(known + 1)))) {
    ++known;
  }
  return known;
}

void ArrayFolder::beat(std::size_t position, const WorkBeat& beat) const {
  const Path file = fileOf(position, ".beat");
  std::string text = formOf(beat);
  if (text.size() > beatLimit) {
    WorkBeat shorter = beat;
    shorter.files.clear();
    text = formOf(shorter);
  }
  const auto refuse = [&file] {
    RaiseException("JobFolder", k_ErrorSystem, "cannot write " + inQuotes(file.Text()), errno);
  };
  const Descriptor descriptor(
      open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0666));
  if (!descriptor.IsOpen()) {
    refuse();
  }
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t count =
        pwrite(descriptor.Number(), text.data() + done, text.size() - done, static_cast<off_t>(done));
    if (count >= 0) {
      done += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      refuse();
    }
  }
  if (ftruncate(descriptor.Number(), static_cast<off_t>(text.size())) != 0) {
    refuse();
  }
}

std::optional<WorkBeat> ArrayFolder::beatOf(std::size_t position) const {
  const std::optional<std::string> text = readWhole(fileOf(position, ".beat"), beatLimit);
  // Behind the line may be what is left of a longer one.
  const std::size_t end = text ? text->find('\n') : std::string::npos;
  if (end == std::string::npos) {
    return std::nullopt;
  }
  try {
    return beatFromForm(std::string_view(*text).substr(0, end));
  } catch (const FormProblem& problem) {
    LogDebug("a beat: " + problem.text);
    return std::nullopt;
  }
}

bool ArrayFolder::leave(std::size_t position, const WorkEnd& end) const {
  std::string text = formOf(end);
  if (text.size() > endLimit) {
    LogWarning("the end of the work at position " + std::to_string(position) +
               " names too many files to keep them");
    WorkEnd shorter = end;
    shorter.outcome.files.clear();
    text = formOf(shorter);
  }
  return writeFirst(fileOf(position, ".result"), text);
}

std::optional<WorkEnd> ArrayFolder::endOf(std::size_t position) const {
  return readFormIfThere(fileOf(position, ".result"), endLimit, endFromForm);
}

bool ArrayFolder::hasEnded(std::size_t position) const {
  return hasName(fileOf(position, ".result"));
}

} // namespace trovik
