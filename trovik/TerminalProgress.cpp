#include "trovik/TerminalProgress.h"

#include "trovik/ProgressText.h"
#include "trovik/Text.h"

#include <algorithm>

namespace trovik {

void TerminalProgress::runStarted(const RunInfo& info) {
  info_ = info;
  console_.print(startText(console_, info));
  draw();
}

void TerminalProgress::workStarted(const WorkInfo& work) {
  running_[{work.run.First, work.run.Last}] = work;
  draw();
}

void TerminalProgress::image(const WorkInfo& /*work*/, const Path& file) {
  console_.print(imageText(console_, file));
}

void TerminalProgress::workEnded(const WorkInfo& work, const WorkResult& result) {
  running_.erase({work.run.First, work.run.Last});
  if (result.verdict == Verdict::Good) {
    doneFrames_ += work.frames();
  } else if (result.verdict == Verdict::Failed) {
    failedFrames_ += result.again ? 0 : work.frames();
    console_.print(failureText(console_, work, result));
  }
  if (result.verdict != Verdict::Canceled) {
    timed_ += result.duration;
    timedFrames_ += work.frames();
  }
  draw();
}

void TerminalProgress::interrupted(int times, std::size_t running) {
  stopping_ = true;
  console_.print(interruptText(console_, times, running));
  draw();
}

void TerminalProgress::runEnded(const RunSummary& summary) {
  console_.setLive({});
  console_.print(summaryText(console_, summary));
}

/// From the mean time of a frame so far; half of what runs now counts as done.
std::string TerminalProgress::remaining() const {
  if (timedFrames_ == 0 || stopping_) {
    return {};
  }
  std::size_t runningFrames = 0;
  for (const auto& [key, work] : running_) {
    runningFrames += work.frames();
  }
  const std::size_t left = info_.frames - std::min(info_.frames, doneFrames_ + failedFrames_);
  if (left == 0) {
    return {};
  }
  const double mean = static_cast<double>(timed_.count()) / static_cast<double>(timedFrames_);
  const double frames = static_cast<double>(left) - static_cast<double>(runningFrames) / 2;
  const auto lanes = static_cast<double>(std::min(info_.slots, std::max<std::size_t>(left, 1)));
  const Duration time(static_cast<Duration::rep>(std::max(0.0, mean * frames / lanes)));
  const std::string text = time < std::chrono::seconds(10)
                               ? std::to_string(std::chrono::ceil<std::chrono::seconds>(time).count()) + " s"
                               : durationText(time);
  return "  about " + text + " left";
}

void TerminalProgress::draw() {
  std::string line = std::to_string(doneFrames_) + '/' + std::to_string(info_.frames) +
                     (info_.hasFrames ? " frames" : " done");
  if (failedFrames_ > 0) {
    line += "  " + std::to_string(failedFrames_) + " failed";
  }
  line += remaining();
  if (stopping_) {
    line += "  stopping";
  }
  if (!running_.empty() && info_.hasFrames) {
    line += "  running";
    for (const auto& [key, work] : running_) {
      line += ' ' + work.title();
    }
  }
  console_.setLive(line);
}

} // namespace trovik
