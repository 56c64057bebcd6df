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

void JobStats::add(const JobRecord& job, const std::vector<AttemptRecord>& attempts) {
  ++jobs_;
  JobPrograms programs(job.hasFrames);
  for (const AttemptRecord& attempt : attempts) {
    programs.add(attempt);
    if (attempt.state == AttemptState::Running) {
      continue;
    }
    ++attempts_;
    countFrames(job, attempt);
    countUsage(job, attempt);
    const Duration duration = durationOf(attempt.duration);
    const auto length = std::chrono::duration_cast<std::chrono::microseconds>(duration);
    // Beyond what clocks give, adding could overflow.
    const auto year10000 = Moment(std::chrono::microseconds(std::int64_t{253'402'300'800} * 1'000'000));
    const Moment begin = std::clamp(attempt.started, Moment(), year10000);
    intervals_[attempt.engine].push_back({begin, begin + length});
  }
  if (std::vector<ProgramShare> shares = programs.shares(); shares.size() > 1) {
    mixed_.push_back({job, std::move(shares)});
  }
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
    times_.push_back(
        {{duration / static_cast<Duration::rep>(all), all}, job.id, titleOf(attempt, job.hasFrames)});
  } else if (attempt.state == AttemptState::Failed) {
    failed_ += duration - used;
  } else if (attempt.state == AttemptState::Canceled) {
    canceled_ += duration - used;
  } else {
    lost_ += duration - used;
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
  used_.memory.push_back(usage.PeakMemory);
  used_.time += durationOf(attempt.duration);
}

std::int64_t JobStats::medianMemory() const {
  std::vector<std::int64_t> memory = used_.memory;
  const auto middle = memory.begin() + static_cast<std::ptrdiff_t>(memory.size() / 2);
  std::nth_element(memory.begin(), middle, memory.end());
  return *middle;
}

std::vector<JobStats::Timed> JobStats::sortedTimes() const {
  std::vector<Timed> times = times_;
  std::stable_sort(times.begin(), times.end(),
                   [](const Timed& a, const Timed& b) { return a.time.each > b.time.each; });
  return times;
}

std::vector<JobStats::Step> JobStats::histogram() const {
  constexpr std::size_t fewest = 8; // attempts that tell something of a distribution
  constexpr double stepsWanted = 8;
  std::vector<Step> steps;
  if (times_.size() < fewest) {
    return steps;
  }
  const auto [fastest, slowest] = std::minmax_element(
      times_.begin(), times_.end(), [](const Timed& a, const Timed& b) { return a.time.each < b.time.each; });
  const double low = secondsOf(fastest->time.each);
  const double high = secondsOf(slowest->time.each);
  const double length = roundStep(std::max((high - low) / stepsWanted, 1e-6));
  const double first = std::floor(low / length);
  if (high - low < 1e-3) {
    return steps;
  }
  for (const Timed& timed : times_) {
    const auto place = static_cast<std::size_t>(std::floor(secondsOf(timed.time.each) / length) - first);
    while (steps.size() <= place) {
      const double from = (first + static_cast<double>(steps.size())) * length;
      steps.push_back({ofSeconds(from), ofSeconds(from + length)});
    }
    steps[place].frames += timed.time.frames;
  }
  return steps;
}

Duration JobStats::median() const {
  std::vector<TimedFrames> times;
  times.reserve(times_.size());
  for (const Timed& timed : times_) {
    times.push_back(timed.time);
  }
  return medianTime(std::move(times));
}

Duration JobStats::mean() const {
  double sum = 0;
  double frames = 0;
  for (const Timed& timed : times_) {
    sum += static_cast<double>(timed.time.each.count()) * static_cast<double>(timed.time.frames);
    frames += static_cast<double>(timed.time.frames);
  }
  return frames == 0 ? Duration() : Duration(static_cast<Duration::rep>(sum / frames));
}

JobStats::Use JobStats::use(const SlotsOf& slots) const {
  /// How long at least one of the intervals lasted.
  const auto covered = [](std::vector<Interval> intervals) {
    std::sort(intervals.begin(), intervals.end(),
              [](const Interval& a, const Interval& b) { return a.begin < b.begin; });
    Duration sum{};
    std::optional<Moment> end;
    for (const Interval& interval : intervals) {
      const Moment begin = end ? std::max(*end, interval.begin) : interval.begin;
      sum += between(begin, interval.end);
      end = end ? std::max(*end, interval.end) : interval.end;
    }
    return sum;
  };
  Use use;
  std::vector<Interval> all;
  std::map<Moment, std::int64_t> changes; // of the slots that engines had at work
  for (const auto& [engine, intervals] : intervals_) {
    // A cluster has none: what else it does is not known here.
    if (const std::size_t count = slots(engine); count > 0) {
      Moment begin = Moment::max();
      Moment end = Moment::min();
      for (const Interval& interval : intervals) {
        begin = std::min(begin, interval.begin);
        end = std::max(end, interval.end);
      }
      changes[begin] += static_cast<std::int64_t>(count);
      changes[end] -= static_cast<std::int64_t>(count);
      use.capacity += scaled(covered(intervals), static_cast<double>(count));
      for (const Interval& interval : intervals) {
        use.busy += between(interval.begin, interval.end);
      }
    }
    all.insert(all.end(), intervals.begin(), intervals.end());
  }
  std::int64_t now = 0;
  std::int64_t most = 0;
  for (const auto& [moment, change] : changes) {
    now += change;
    most = std::max(most, now);
  }
  use.slots = static_cast<std::size_t>(most);
  use.wall = covered(std::move(all));
  return use;
}

std::string JobStats::text(const SlotsOf& slots, bool several) const {
  const std::vector<Timed> times = sortedTimes();
  const auto oneText = [several](const Timed& timed) {
    return durationText(timed.time.each) + (timed.time.frames > 1 ? " each" : "") + "  " + timed.frames +
           (several ? " of job " + std::to_string(timed.job) : "");
  };
  std::string text;
  if (several) {
    text += entry("jobs", std::to_string(jobs_));
  }
  text += entry("frames", std::to_string(frames_) + " good, from " + counted(attempts_, "attempt"));
  if (!times.empty()) {
    text += entry("median", durationText(median()) + " a frame");
    text += entry("mean", durationText(mean()) + " a frame");
    text += entry("fastest", oneText(times.back()));
    for (std::size_t i = 0; i < std::min(slowestShown, times.size()); ++i) {
      text += entry(i == 0 ? "slowest" : "", oneText(times[i]));
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
  const std::vector<Timed> times = sortedTimes();
  const auto oneJson = [](const Timed& timed) {
    return Json{{"job", timed.job}, {"frames", timed.frames}, {"seconds", secondsOf(timed.time.each)}};
  };
  document["jobs"] = jobs_;
  document["attempts"] = attempts_;
  document["frames"] = frames_;
  document["median"] = times.empty() ? Json(nullptr) : Json(secondsOf(median()));
  document["mean"] = times.empty() ? Json(nullptr) : Json(secondsOf(mean()));
  document["fastest"] = times.empty() ? Json(nullptr) : oneJson(times.back());
  document["slowest"] = Json::array();
  for (std::size_t i = 0; i < std::min(slowestShown, times.size()); ++i) {
    document["slowest"].push_back(oneJson(times[i]));
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
