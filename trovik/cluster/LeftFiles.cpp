#include "trovik/cluster/LeftFiles.h"

#include "host/application/RenderJob.h"
#include "host/foundation/Descriptor.h"
#include "host/foundation/LineSplitter.h"

#include <algorithm>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace trovik {
namespace {

constexpr std::size_t logLimit = std::size_t{256} << 20U; // bytes of a log that are read again

/// The lines of a log, be it whose it may.
void feed(LineSplitter& splitter, const std::string& log) {
  const Descriptor descriptor(open(log.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!descriptor.IsOpen() || fstat(descriptor.Number(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return;
  }
  std::vector<char> buffer(std::size_t{64} << 10U);
  for (std::size_t done = 0; done < logLimit;) {
    const ssize_t got = read(descriptor.Number(), buffer.data(), buffer.size());
    if (got <= 0) {
      break;
    }
    done += static_cast<std::size_t>(got);
    splitter.Feed(std::string_view(buffer.data(), static_cast<std::size_t>(got)));
  }
  splitter.Finish();
}

} // namespace

LeftFiles takeLeft(Job& job, bool stage, const std::string& mark, const LeftBehind& left) {
  LeftFiles found;
  StagedOutput& staged = found.staged;
  if (stage) {
    staged = StagedOutput(job, mark);
    for (const std::string& other : left.marks) {
      staged.takeOver(other);
    }
  }
  found.since = left.since;
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
    feed(splitter, log);
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
  const auto seconds = std::chrono::floor<std::chrono::seconds>(left.since).time_since_epoch();
  staged.takeBack(names, static_cast<std::time_t>(seconds.count()));
  // What is in a stage is fresh, whatever the clocks of node and file server say.
  if (staged.isUsed() && std::all_of(names.begin(), names.end(), [&staged](const std::string& name) {
        return name.starts_with(staged.stage().Text() + "/");
      })) {
    found.since = Moment();
  }
  return found;
}

} // namespace trovik
