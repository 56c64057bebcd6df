#include "trovik/reports/JobStats.h"

#include "host/foundation/Bytes.h"
#include "trovik/records/Moments.h"
#include "trovik/reports/AttemptText.h"
#include "trovik/reports/UsageText.h"
#include "trovik/text/Text.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <numeric>
#include <optional>

namespace trovik {
namespace {

constexpr std::size_t slowestShown = 5;
constexpr std::size_t mixedShown = 5;

/// Parts of a duration; hostile ones are no reason to overflow.
Duration scaled(Duration duration, double factor) {
  return Duration(static_cast<Duration::rep>(static_cast<double>(duration.count()) * factor));
}

double share(Duration part, Duration whole) {
  return whole.count() == 0 ? 0 : static_cast<double>(part.count()) / static_cast<double>(whole.count());
}

std::string percent(double part) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f %%", part * 100);
  return text;
}

/// The numbers come from a file, which may hold any.
std::int64_t added(std::int64_t sum, std::int64_t number) {
  return __builtin_add_overflow(sum, number, &sum) ? INT64_MAX : sum;
}

/// The least number from `low` to `high` of which that holds, as it does of the
/// highest and of all above another of which it holds.
template <typename Holds> std::int64_t leastWith(std::int64_t low, std::int64_t high, const Holds& holds) {
  while (low < high) {
    const std::int64_t middle = std::midpoint(low, high); // low, where they are neighbours
    if (holds(middle)) {
      high = middle;
    } else {
      low = middle + 1;
    }
  }
  return high;
}

double rounded(double part) {
  return std::round(part * 10000) / 10000;
}

/// 1, 2 or 5 times a power of ten, at least so long.
double roundStep(double seconds) {
  const double power = std::pow(10.0, std::floor(std::log10(seconds)));
  for (const double factor : {1.0, 2.0, 5.0}) {
    if (factor * power >= seconds) {
      return factor * power;
    }
  }
  return 10 * power;
}

Duration ofSeconds(double seconds) {
  return std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds));
}

std::string entry(const std::string& label, const std::string& text) {
  return padded(label, 12) + text + '\n';
}

} // namespace

void JobStats::add(const JobRecord& job, const Attempts& attempts) {
  ++jobs_;
  JobPrograms programs(job.hasFrames);
  attempts([&](const AttemptRecord& attempt) {
    programs.add(attempt);
    if (attempt.state != AttemptState::Running) {
      count(job, attempt);
    }
  });
  if (std::vector<ProgramShare> shares = programs.shares(); shares.size() > 1) {
    mixed_.push_back({job, std::move(shares)});
  }
}

void JobStats::count(const JobRecord& job, const AttemptRecord& attempt) {
  ++attempts_;
  countFrames(job, attempt);
  countUsage(job, attempt);
  const Duration duration = durationOf(attempt.duration);
  const auto length = std::chrono::duration_cast<std::chrono::microseconds>(duration);
  // Beyond what clocks give, adding could overflow.
  const auto year10000 = Moment(std::chrono::microseconds(std::int64_t{253'402'300'800} * 1'000'000));
  const Moment begin = std::clamp(attempt.started, Moment(), year10000);
  Work& work = engines_[attempt.engine];
  work.covered.add(begin, begin + length);
  work.busy += between(begin, begin + length);
}

/// The time of an attempt that left some of its frames good is shared among
/// its frames: what went into the others was in vain.
void JobStats::countFrames(const JobRecord& job, const AttemptRecord& attempt) {
  const Duration duration = durationOf(attempt.duration);
  const std::size_t all =
      job.hasFrames ? static_cast<std::size_t>(std::max<std::int64_t>(1, attempt.run.Count())) : 1;
  const std::size_t good = attempt.state == AttemptState::Good ? all : std::min(all, attempt.good.count());
  const Duration used = scaled(duration, static_cast<double>(good) / static_cast<double>(all));
  frames_ += good;
  good_ += used;
  if (attempt.state == AttemptState::Good) {
    noteTime(job, attempt, {duration / static_cast<Duration::rep>(all), all});
  } else if (attempt.state == AttemptState::Failed) {
    failed_ += duration - used;
  } else if (attempt.state == AttemptState::Canceled) {
    canceled_ += duration - used;
  } else {
    lost_ += duration - used;
  }
}

void JobStats::noteTime(const JobRecord& job, const AttemptRecord& attempt, const TimedFrames& time) {
  times_[time.frames].push_back(time.each);
  ++timed_;
  timeSum_ += static_cast<double>(time.each.count()) * static_cast<double>(time.frames);
  timedFrames_ += static_cast<double>(time.frames);
  const auto timed = [&] { return Timed{time, job.id, titleOf(attempt, job.hasFrames)}; };
  if (!fastest_ || time.each <= fastest_->time.each) {
    fastest_ = timed();
  }
  if (slowest_.size() < slowestShown || time.each > slowest_.back().time.each) {
    const auto place =
        std::upper_bound(slowest_.begin(), slowest_.end(), time.each,
                         [](Duration each, const Timed& other) { return each > other.time.each; });
    slowest_.insert(place, timed());
    slowest_.resize(std::min(slowest_.size(), slowestShown));
  }
}

void JobStats::countUsage(const JobRecord& job, const AttemptRecord& attempt) {
  if (!attempt.usage) {
    return;
  }
  const ProcessUsage& usage = *attempt.usage;
  ProcessUsage& sum = used_.sum;
  sum.UserTime = added(sum.UserTime, usage.UserTime);
  sum.SystemTime = added(sum.SystemTime, usage.SystemTime);
  if (usage.BytesRead) {
    sum.BytesRead = added(sum.BytesRead.value_or(0), *usage.BytesRead);
  }
  if (usage.BytesWritten) {
    sum.BytesWritten = added(sum.BytesWritten.value_or(0), *usage.BytesWritten);
  }
  if (used_.memory.empty() || usage.PeakMemory > sum.PeakMemory) {
    sum.PeakMemory = usage.PeakMemory;
    used_.most = titleOf(attempt, job.hasFrames);
    used_.job = job.id;
  }
  used_.least = used_.memory.empty() ? usage.PeakMemory : std::min(used_.least, usage.PeakMemory);
  used_.memory.push_back(usage.PeakMemory);
  used_.time += durationOf(attempt.duration);
}

std::int64_t JobStats::medianMemory() const {
  return leastWith(used_.least, used_.sum.PeakMemory, [this](std::int64_t memory) {
    const auto upTo = std::count_if(used_.memory.begin(), used_.memory.end(),
                                    [memory](std::int64_t one) { return one <= memory; });
    return static_cast<std::size_t>(upTo) > used_.memory.size() / 2;
  });
}

std::vector<JobStats::Step> JobStats::histogram() const {
  constexpr std::size_t fewest = 8; // attempts that tell something of a distribution
  constexpr double stepsWanted = 8;
  std::vector<Step> steps;
  if (timed_ < fewest) {
    return steps;
  }
  const double low = secondsOf(fastest_->time.each);
  const double high = secondsOf(slowest_.front().time.each);
  const double length = roundStep(std::max((high - low) / stepsWanted, 1e-6));
  const double first = std::floor(low / length);
  if (high - low < 1e-3) {
    return steps;
  }
  for (const auto& [frames, times] : times_) {
    for (const Duration each : times) {
      const auto place = static_cast<std::size_t>(std::floor(secondsOf(each) / length) - first);
      while (steps.size() <= place) {
        const double from = (first + static_cast<double>(steps.size())) * length;
        steps.push_back({ofSeconds(from), ofSeconds(from + length)});
      }
      steps[place].frames += frames;
    }
  }
  return steps;
}

/// As medianTime gives it.
Duration JobStats::median() const {
  std::size_t all = 0;
  for (const auto& [frames, times] : times_) {
    all += frames * times.size();
  }
  return Duration(
      leastWith(fastest_->time.each.count(), slowest_.front().time.each.count(), [&](Duration::rep count) {
        std::size_t upTo = 0;
        for (const auto& [frames, times] : times_) {
          upTo += frames *
                  static_cast<std::size_t>(std::count_if(
                      times.begin(), times.end(), [count](Duration each) { return each.count() <= count; }));
        }
        return 2 * upTo >= all;
      }));
}

Duration JobStats::mean() const {
  return timedFrames_ == 0 ? Duration() : Duration(static_cast<Duration::rep>(timeSum_ / timedFrames_));
}

JobStats::Use JobStats::use(const SlotsOf& slots) const {
  Use use;
  std::vector<const CoveredTime*> all;
  std::map<Moment, std::int64_t> changes; // of the slots that engines had at work
  for (const auto& [engine, work] : engines_) {
    // A cluster has none: what else it does is not known here.
    if (const std::size_t count = slots(engine); count > 0) {
      changes[work.covered.begin()] += static_cast<std::int64_t>(count);
      changes[work.covered.end()] -= static_cast<std::int64_t>(count);
      use.capacity += scaled(work.covered.length(), static_cast<double>(count));
      use.busy += work.busy;
    }
    all.push_back(&work.covered);
  }
  std::int64_t now = 0;
  std::int64_t most = 0;
  for (const auto& [moment, change] : changes) {
    now += change;
    most = std::max(most, now);
  }
  use.slots = static_cast<std::size_t>(most);
  use.wall = CoveredTime::length(all);
  return use;
}

std::string JobStats::text(const SlotsOf& slots, bool several) const {
  const auto oneText = [several](const Timed& timed) {
    return durationText(timed.time.each) + (timed.time.frames > 1 ? " each" : "") + "  " + timed.frames +
           (several ? " of job " + std::to_string(timed.job) : "");
  };
  std::string text;
  if (several) {
    text += entry("jobs", std::to_string(jobs_));
  }
  text += entry("frames", std::to_string(frames_) + " good, from " + counted(attempts_, "attempt"));
  if (fastest_) {
    text += entry("median", durationText(median()) + " a frame");
    text += entry("mean", durationText(mean()) + " a frame");
    text += entry("fastest", oneText(*fastest_));
    for (std::size_t i = 0; i < slowest_.size(); ++i) {
      text += entry(i == 0 ? "slowest" : "", oneText(slowest_[i]));
    }
  }
  const std::vector<Step> steps = histogram();
  std::size_t most = 0;
  std::size_t widest = 0;
  for (const Step& step : steps) {
    most = std::max(most, step.frames);
    widest = std::max(widest, displayWidth(durationText(step.from)));
  }
  for (std::size_t i = 0; i < steps.size(); ++i) {
    constexpr std::size_t longest = 40; // of a bar
    const std::size_t bar = (steps[i].frames * longest + most - 1) / most;
    const std::string from = durationText(steps[i].from);
    text += entry(i == 0   ? "frames by"
                  : i == 1 ? "their time"
                           : "",
                  "from " + std::string(widest - displayWidth(from), ' ') + from + "  " +
                      std::string(bar, '#') + (bar == 0 ? "" : " ") + std::to_string(steps[i].frames));
  }
  const Duration whole = good_ + inVain();
  text += entry("good", durationText(good_) + "  " + percent(share(good_, whole)) + " of all rendering");
  const auto addLoss = [&](const char* label, Duration loss) {
    if (loss.count() > 0) {
      text += entry(label, durationText(loss) + "  " + percent(share(loss, whole)));
    }
  };
  addLoss("failed", failed_);
  addLoss("canceled", canceled_);
  addLoss("lost", lost_);
  if (!used_.memory.empty()) {
    const ProcessUsage& sum = used_.sum;
    const Duration processors = durationOf(std::chrono::microseconds(added(sum.UserTime, sum.SystemTime)));
    char many[32];
    std::snprintf(many, sizeof many, "%.1f", share(processors, used_.time));
    text += entry("processors", durationText(processors) + "  " + many + " busy while a program ran");
    text += entry("memory", "median " + BytesText(medianMemory()) + ", most " + BytesText(sum.PeakMemory) +
                                "  " + used_.most + (several ? " of job " + std::to_string(used_.job) : ""));
    if (sum.BytesRead || sum.BytesWritten) {
      text += entry("files", "read " + BytesText(sum.BytesRead.value_or(0)) + ", wrote " +
                                 BytesText(sum.BytesWritten.value_or(0)));
    }
  }
  const Use used = use(slots);
  if (used.slots > 0) {
    text += entry("slots", percent(std::min(1.0, share(used.busy, used.capacity))) + " used, of " +
                               counted(used.slots, "slot"));
  }
  const double hours = std::chrono::duration<double>(used.wall).count() / 3600;
  if (frames_ > 0 && hours > 0) {
    const double perHour = static_cast<double>(frames_) / hours;
    char rate[64];
    std::snprintf(rate, sizeof rate, "%.*f", perHour < 10 ? 1 : 0, perHour);
    text += entry("throughput", std::string(rate) + " frames an hour, in " + durationText(used.wall));
  }
  for (std::size_t i = 0; i < std::min(mixedShown, mixed_.size()); ++i) {
    text += entry(i == 0 ? "programs" : "", (several ? "job " + std::to_string(mixed_[i].job.id) + ' ' : "") +
                                                programsText(mixed_[i].programs));
  }
  if (mixed_.size() > mixedShown) {
    text += entry("", "and " + counted(mixed_.size() - mixedShown, "further job") + " by several");
  }
  return text;
}

void JobStats::fill(Json& document, const SlotsOf& slots) const {
  const auto oneJson = [](const Timed& timed) {
    return Json{{"job", timed.job}, {"frames", timed.frames}, {"seconds", secondsOf(timed.time.each)}};
  };
  document["jobs"] = jobs_;
  document["attempts"] = attempts_;
  document["frames"] = frames_;
  document["median"] = fastest_ ? Json(secondsOf(median())) : Json(nullptr);
  document["mean"] = fastest_ ? Json(secondsOf(mean())) : Json(nullptr);
  document["fastest"] = fastest_ ? oneJson(*fastest_) : Json(nullptr);
  document["slowest"] = Json::array();
  for (const Timed& timed : slowest_) {
    document["slowest"].push_back(oneJson(timed));
  }
  document["histogram"] = Json::array();
  for (const Step& step : histogram()) {
    document["histogram"].push_back(
        {{"from", secondsOf(step.from)}, {"to", secondsOf(step.to)}, {"frames", step.frames}});
  }
  document["programs"] = Json::array();
  for (const Mixed& mixed : mixed_) {
    document["programs"].push_back({{"job", mixed.job.id}, {"by", programsJson(mixed.job, mixed.programs)}});
  }
  const Duration whole = good_ + inVain();
  document["time"] = {{"good", secondsOf(good_)},
                      {"failed", secondsOf(failed_)},
                      {"canceled", secondsOf(canceled_)},
                      {"lost", secondsOf(lost_)}};
  document["usage"] = used_.memory.empty() ? Json(nullptr) : usageJson(used_.sum);
  document["medianMemory"] = used_.memory.empty() ? Json(nullptr) : Json(medianMemory());
  document["lostShare"] = rounded(share(inVain(), whole));
  const Use used = use(slots);
  document["slots"] = used.slots > 0 ? Json(used.slots) : Json(nullptr);
  document["slotsUsed"] =
      used.slots > 0 ? Json(rounded(std::min(1.0, share(used.busy, used.capacity)))) : Json(nullptr);
  document["wall"] = secondsOf(used.wall);
  const double hours = std::chrono::duration<double>(used.wall).count() / 3600;
  document["framesPerHour"] = hours > 0 ? Json(rounded(static_cast<double>(frames_) / hours)) : Json(nullptr);
}

} // namespace trovik
