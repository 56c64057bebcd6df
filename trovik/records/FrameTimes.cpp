#include "trovik/records/FrameTimes.h"

#include <algorithm>

namespace trovik {

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
