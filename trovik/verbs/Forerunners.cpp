#include "trovik/verbs/Forerunners.h"

#include "host/foundation/Quoting.h"
#include "host/foundation/WholeNumber.h"
#include "trovik/reports/ForerunnerText.h"
#include "trovik/text/Json.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/Session.h"

#include <algorithm>
#include <utility>

namespace trovik {
namespace {

constexpr int farthest = 1'000'000; // frames, either way

[[noreturn]] void refuseWindow(const std::string& text) {
  throw UsageError{"--after-frames: " + inQuotes(text) + " is not a job and how far from its frame to look",
                   "write a job such as 4, with an offset 4:-1, or with its neighbours 4:-1..1"};
}

int offsetIn(std::string text, const std::string& whole) {
  if (text.starts_with('+')) {
    text.erase(0, 1);
  }
  const auto offset = ReadWholeNumber<int>(text);
  if (!offset || *offset < -farthest || *offset > farthest) {
    refuseWindow(whole);
  }
  return *offset;
}

Forerunner withWindow(const std::string& text, std::string& job) {
  Forerunner result;
  result.byFrame = true;
  const std::size_t colon = text.find(':');
  job = text.substr(0, colon);
  if (colon != std::string::npos) {
    const std::string window = text.substr(colon + 1);
    const std::size_t dots = window.find("..");
    result.low = offsetIn(window.substr(0, dots), text);
    result.high = dots == std::string::npos ? result.low : offsetIn(window.substr(dots + 2), text);
    if (result.low > result.high) {
      refuseWindow(text);
    }
  }
  return result;
}

std::vector<std::string> pieces(const std::vector<std::string>& texts) {
  std::vector<std::string> result;
  for (const std::string& text : texts) {
    for (std::size_t at = 0; at <= text.size();) {
      const std::size_t end = std::min(text.find(',', at), text.size());
      result.emplace_back(trimmed(std::string_view(text).substr(at, end - at)));
      at = end + 1;
    }
  }
  return result;
}

JobRecord newestOf(Queue* queue, const std::function<bool(const JobRecord& job)>& mayBe) {
  if (queue != nullptr) {
    for (JobRecord& job : queue->jobs()) {
      if (mayBe(job)) {
        return std::move(job);
      }
    }
  }
  return findJob(nullptr, "last"); // refuses
}

} // namespace

std::vector<Forerunner> namedForerunners(Queue* queue, const std::vector<std::string>& after,
                                         const std::vector<std::string>& afterFrames,
                                         const std::function<bool(const JobRecord& job)>& mayBe) {
  std::vector<Forerunner> result;
  const auto add = [&](Forerunner forerunner, const std::string& name, const char* option) {
    try {
      const JobRecord job = jobNumber(name) == 0 ? newestOf(queue, mayBe) : findJob(queue, name);
      forerunner.job = job.id;
      if (forerunner.byFrame && !job.hasFrames) {
        throw UsageError{"job " + std::to_string(job.id) + " has no frames",
                         "wait for all of it with --after"};
      }
    } catch (const UsageError& error) {
      throw UsageError{std::string(option) + ": " + error.message, error.hint};
    }
    for (const Forerunner& other : result) {
      if (other.job == forerunner.job) {
        throw UsageError{std::string(option) + ": job " + std::to_string(other.job) + " is named twice",
                         "leave one of them out"};
      }
    }
    result.push_back(forerunner);
  };
  for (const std::string& name : pieces(after)) {
    add({}, name, "--after");
  }
  for (const std::string& text : pieces(afterFrames)) {
    std::string name;
    const Forerunner forerunner = withWindow(text, name);
    add(forerunner, name, "--after-frames");
  }
  return result;
}

void requireFrames(Queue& queue, const NewJob& job) {
  for (const Forerunner& forerunner : job.forerunners) {
    if (!forerunner.byFrame) {
      continue;
    }
    const std::string title = "--after-frames: ";
    if (!job.hasFrames) {
      throw UsageError{title + "a job of this type has no frames",
                       "wait for all of job " + std::to_string(forerunner.job) + " with --after"};
    }
    const JobFrames frames = queue.frames(forerunner.job);
    RunSet theirs;
    for (const RunSet* set :
         {&frames.ready, &frames.running, &frames.good, &frames.failed, &frames.canceled}) {
      theirs.add(*set);
    }
    // The frames that find at least one of theirs in their window.
    RunSet found;
    for (const FrameRun& run : theirs.runs()) {
      found.add({run.First - forerunner.high, run.Last - forerunner.low});
    }
    RunSet wanted;
    for (const FrameRun& run : job.works) {
      wanted.add(run);
    }
    if (const RunSet alone = without(wanted, found); !alone.empty()) {
      throw UsageError{title + "for frame" + (alone.count() == 1 ? " " : "s ") + alone.text(10) + " job " +
                           std::to_string(forerunner.job) + " has none to wait for",
                       "its frames are " + theirs.text(10) + "; choose others with --range or the offset"};
    }
  }
}

BlockTeller::BlockTeller(Console& console, Queue& queue, JobId job, bool json)
    : console_(console), queue_(queue), job_(job), json_(json) {}

void BlockTeller::poll(EngineId own) {
  const std::optional<JobRecord> job = queue_.job(job_);
  const bool waits = job && isOpen(job->state) && job->blocked;
  const std::vector<ForerunnerStand> stands = waits ? standsOf(queue_, job_) : std::vector<ForerunnerStand>();
  std::string text = blockText(stands, job_);
  const bool needsEngine = std::any_of(stands.begin(), stands.end(), [&](const ForerunnerStand& stand) {
    const std::optional<JobRecord> forerunner = queue_.job(stand.forerunner.job);
    return stand.isAwaited() && !stand.isStuck() && forerunner && forerunner->runOn == RunOn::Local;
  });
  if (needsEngine && !queue_.hasOtherEngine(own)) {
    text += "; no engine is at work that could take it: start one with \"trovik engine\"";
  }
  if (std::exchange(told_, text) == text || text.empty()) {
    return;
  }
  if (json_) {
    Json event = jsonOfKind("watch.blocked");
    event["job"] = job_;
    event["after"] = forerunnersJson(stands);
    console_.print(jsonLine(event));
  } else {
    console_.print(console_.coloured(Colour::Yellow, "waits") + "  " + text + '\n');
  }
}

} // namespace trovik
