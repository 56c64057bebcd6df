#include "trovik/records/Moments.h"

#include <algorithm>
#include <ctime>

namespace trovik {
namespace {

constexpr double longestSeconds = 100.0 * 365.25 * 24 * 3600;

Duration cutDuration(double seconds) {
  return Duration(static_cast<Duration::rep>(std::clamp(seconds, 0.0, longestSeconds) * 1e9));
}

} // namespace

Moment momentNow() {
  return std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now());
}

Duration durationOf(std::chrono::microseconds duration) {
  const auto count = duration.count();
  return count > 0 && static_cast<double>(count) < longestSeconds * 1e6
             ? Duration(count * 1000)
             : cutDuration(static_cast<double>(count));
}

Duration between(Moment from, Moment to) {
  return cutDuration((static_cast<double>(to.time_since_epoch().count()) -
                      static_cast<double>(from.time_since_epoch().count())) /
                     1e6);
}

std::string momentText(Moment moment) {
  const auto time =
      static_cast<std::time_t>(std::chrono::floor<std::chrono::seconds>(moment.time_since_epoch()).count());
  std::tm parts{};
  char text[64] = "";
  if (localtime_r(&time, &parts) != nullptr) {
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
  }
  return text;
}

std::string ageText(Moment moment, Moment now) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(between(moment, now)).count();
  if (seconds < 60) {
    return std::to_string(seconds) + " s";
  }
  if (seconds < 3600) {
    return std::to_string(seconds / 60) + " min";
  }
  constexpr std::int64_t day = std::int64_t{24} * 3600;
  if (seconds < 2 * day) {
    return std::to_string(seconds / 3600) + " h";
  }
  return std::to_string(seconds / day) + " d";
}

double secondsOf(Moment moment) {
  const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(moment.time_since_epoch());
  return static_cast<double>(milliseconds.count()) / 1000;
}

double secondsOf(Duration duration) {
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(duration);
  return static_cast<double>(milliseconds.count()) / 1000;
}

Duration medianTime(std::vector<TimedFrames> times) {
  std::sort(times.begin(), times.end(),
            [](const TimedFrames& a, const TimedFrames& b) { return a.each < b.each; });
  std::size_t frames = 0;
  for (const TimedFrames& timed : times) {
    frames += timed.frames;
  }
  std::size_t passed = 0;
  for (const TimedFrames& timed : times) {
    passed += timed.frames;
    if (2 * passed >= frames) {
      return timed.each;
    }
  }
  return {};
}

Duration timeFor(double frames, Duration each, std::size_t lanes) {
  constexpr double longest = 100.0 * 365.25 * 24 * 3600 * 1e9;
  const double time = static_cast<double>(each.count()) * std::max(0.0, frames) /
                      static_cast<double>(std::max<std::size_t>(1, lanes));
  return Duration(static_cast<Duration::rep>(std::min(time, longest)));
}

} // namespace trovik
