#include "trovik/progress/Progress.h"

#include "trovik/progress/ProgressText.h"
#include "trovik/records/Moments.h"
#include "trovik/text/Text.h"

#include <algorithm>
#include <deque>
#include <map>
#include <string>
#include <tuple>

namespace trovik {
namespace {

constexpr std::size_t recentWorks = 25; // whose times tell what is to come

class TerminalProgress final : public RunEvents {
public:
  explicit TerminalProgress(Console& console) : console_(console) {}

  void runStarted(const RunInfo& info) override {
    info_ = info;
    doneFrames_ = info.goodBefore;
    failedFrames_ = info.failedBefore;
    console_.print(startText(console_, info));
    draw();
  }

  void workStarted(const WorkInfo& work) override {
    running_[keyOf(work)] = {work, 0};
    draw();
  }

  void image(const WorkInfo& work, const Path& file) override {
    if (const auto running = running_.find(keyOf(work)); running != running_.end()) {
      ++running->second.images;
    }
    console_.print(imageText(console_, file));
    draw();
  }

  void workEnded(const WorkInfo& work, const WorkResult& result) override {
    Running running;
    if (const auto node = running_.extract(keyOf(work)); !node.empty()) {
      running = node.mapped();
    }
    const std::size_t good = std::min(result.good.count(), work.frames());
    switch (result.verdict) {
    case Verdict::Good:
      doneFrames_ += work.frames();
      noteTime(work, running, result.duration);
      break;
    case Verdict::Failed:
    case Verdict::Lost:
      doneFrames_ += good;
      failedFrames_ += result.again ? 0 : work.frames() - good;
      console_.print(failureText(console_, work, result));
      break;
    case Verdict::Canceled:
      doneFrames_ += good;
      break;
    }
    draw();
  }

  void interrupted(int times, std::size_t running) override {
    stopping_ = true;
    console_.print(interruptText(console_, times, running));
    draw();
  }

  void runEnded(const RunSummary& summary) override {
    console_.setLive({});
    console_.print(summaryText(console_, summary));
  }

private:
  /// A work that runs; there may be several jobs in one run.
  struct Running {
    WorkInfo work;
    std::size_t images = 0;
  };
  using Key = std::tuple<JobId, int, int>;
  static Key keyOf(const WorkInfo& work) { return {work.job, work.run.First, work.run.Last}; }

  /// Only good works tell what a frame takes: what fails often does so at once.
  void noteTime(const WorkInfo& work, const Running& running, Duration duration) {
    recent_.push_back({duration / static_cast<Duration::rep>(work.frames()), work.frames()});
    if (recent_.size() > recentWorks) {
      recent_.pop_front();
    }
    imagesOfAFrame_ = std::max<std::size_t>(1, running.images / work.frames());
  }

  /// Of a running packet, as its images tell.
  std::size_t framesDone(const Running& running) const {
    return std::min(running.images / imagesOfAFrame_, running.work.frames());
  }

  /// From the time of a frame so far; half of each frame that is being worked
  /// counts as done.
  std::string remaining() const {
    if (recent_.empty() || stopping_) {
      return {};
    }
    std::size_t done = doneFrames_ + failedFrames_;
    double begun = 0;
    for (const auto& [key, running] : running_) {
      const std::size_t frames = framesDone(running);
      done += frames;
      begun += frames < running.work.frames() ? 0.5 : 0;
    }
    const std::size_t left = info_.frames - std::min(info_.frames, done);
    if (left == 0) {
      return {};
    }
    // A job that is watched may get more engines than it had in the beginning.
    const std::size_t lanes = std::min(std::max(info_.slots, running_.size()), left);
    const Duration each = medianTime({recent_.begin(), recent_.end()});
    return "  about " + roughText(timeFor(static_cast<double>(left) - begun, each, lanes)) + " left";
  }

  void draw() {
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
      for (const auto& [key, running] : running_) {
        line += ' ' + running.work.title();
        if (const std::size_t done = framesDone(running); done > 0 && running.work.frames() > 1) {
          line += " (" + std::to_string(done) + " of " + std::to_string(running.work.frames()) + ')';
        }
      }
    }
    console_.setLive(line);
  }

  Console& console_;
  RunInfo info_;
  std::map<Key, Running> running_;
  std::size_t doneFrames_ = 0;
  std::size_t failedFrames_ = 0;
  std::deque<TimedFrames> recent_;
  std::size_t imagesOfAFrame_ = 1;
  bool stopping_ = false;
};

} // namespace

std::unique_ptr<RunEvents> terminalProgress(Console& console) {
  return std::make_unique<TerminalProgress>(console);
}

} // namespace trovik
