#include "trovik/cluster/TaskProcess.h"

#include "host/application/jobs/RenderJob.h"
#include "host/foundation/Descriptor.h"
#include "host/foundation/LineSplitter.h"
#include "trovik/machine/Locations.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace trovik {
namespace {

constexpr std::size_t logLimit = std::size_t{256} << 20U; // bytes of a log that are read again

std::string environmentText(const char* name) {
  return environmentVariable(name).value_or(std::string());
}

/// A whole number that the environment has; nothing for another text.
std::optional<int> environmentNumber(const char* name) {
  const std::string text = environmentText(name);
  int number = 0;
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), number);
  return problem == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

/// A part of a mark, which becomes part of a file's name.
std::string plain(std::string text) {
  std::replace_if(
      text.begin(), text.end(),
      [](unsigned char c) { return !(std::isalnum(c) != 0 && c < 0x80) && c != '-' && c != '_'; }, '-');
  return text;
}

/// The lines of a log, be it whose it may. Returns how many bytes it has.
std::int64_t feed(LineSplitter& splitter, const std::string& log) {
  const Descriptor descriptor(open(log.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!descriptor.IsOpen() || fstat(descriptor.Number(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return 0;
  }
  std::vector<char> buffer(std::size_t{64} << 10U);
  std::size_t done = 0;
  while (done < logLimit) {
    const ssize_t got = read(descriptor.Number(), buffer.data(), buffer.size());
    if (got <= 0) {
      break;
    }
    done += static_cast<std::size_t>(got);
    splitter.Feed(std::string_view(buffer.data(), static_cast<std::size_t>(got)));
  }
  splitter.Finish();
  return static_cast<std::int64_t>(done);
}

} // namespace

bool TaskSelf::outlived(const WorkClaim& claim) const {
  return !boot.empty() && sharesMachine(claim) &&
         (claim.process == process || (kill(claim.process, 0) != 0 && errno == ESRCH));
}

Duration Silence::since(const std::optional<WorkBeat>& beat, Clock::time_point now) {
  const std::pair seen = beat ? std::pair(beat->claim, beat->count) : std::pair(0, std::int64_t{0});
  silence_ = last_ == seen ? silence_ + std::min<Duration>(now - asked_, most_) : Duration::zero();
  last_ = seen;
  asked_ = now;
  return silence_;
}

std::string taskMark(const std::string& queue, JobId job, const ArrayFolder& array, std::size_t position,
                     int number) {
  return plain(queue) + '-' + std::to_string(job) + '.' + plain(array.directory().Leaf(true)) + '.' +
         std::to_string(position) + '.' + std::to_string(number);
}

TaskSelf taskSelf() {
  TaskSelf self;
  char text[256] = {};
  if (gethostname(text, sizeof text - 1) == 0) {
    self.host = text;
  }
  std::getline(std::ifstream("/proc/sys/kernel/random/boot_id"), self.boot);
  // Process numbers mean something within one namespace only.
  if (struct stat status{}; stat("/proc/self/ns/pid", &status) == 0) {
    self.boot += '/' + std::to_string(status.st_ino);
  }
  self.process = getpid();
  self.node = environmentText("SLURMD_NODENAME");
  if (const std::string array = environmentText("SLURM_ARRAY_JOB_ID"); !array.empty()) {
    self.task = array + '_' + environmentText("SLURM_ARRAY_TASK_ID");
  }
  self.restarts = std::max(0, environmentNumber("SLURM_RESTART_COUNT").value_or(0));
  self.cpus = environmentNumber("SLURM_CPUS_ON_NODE");
  if (self.cpus && *self.cpus < 1) {
    self.cpus.reset();
  }
  return self;
}

LeftFiles takeLeft(Job& job, bool stage, const std::string& mark, const LeftBehind& left) {
  LeftFiles found;
  StagedOutput& staged = found.staged;
  if (stage) {
    staged = StagedOutput(job, mark);
    for (const std::string& other : left.marks) {
      staged.takeOver(other);
    }
  }
  found.filesBefore = left.filesBefore;
  auto* render = dynamic_cast<RenderJob*>(&job);
  if (render == nullptr) {
    return found;
  }
  const auto present = [&staged, &left](std::string text) {
    for (const std::string& other : left.marks) {
      text = staged.nameFrom(other, text);
    }
    return text;
  };
  LineSplitter splitter([&](std::string_view line) { render->WorkLine(present(std::string(line))); });
  for (const std::string& log : left.logs) {
    found.logBytes += feed(splitter, log);
  }
  found.files = left.named;
  std::vector<std::string> names;
  for (FileRecord& file : found.files) {
    file.path = present(file.path);
    names.push_back(file.path);
  }
  for (const Path& file : render->Images()) {
    names.push_back(file.Text());
  }
  for (const Path& file : render->ExpectedFiles()) {
    names.push_back(file.Text());
  }
  FilesBefore before;
  before.FromText(left.filesBefore, left.onThisMachine);
  staged.takeBack(names, before);
  // Nothing was in a stage before.
  if (staged.isUsed() && std::all_of(names.begin(), names.end(), [&staged](const std::string& name) {
        return name.starts_with(staged.stage().Text() + "/");
      })) {
    found.filesBefore = FilesBefore().Text();
  }
  return found;
}

} // namespace trovik
