#pragma once

#include "trovik/machine/Machine.h"
#include "trovik/records/Records.h"

#include <cstddef>
#include <string>
#include <vector>

namespace trovik {

// Moments and durations of the queue's records. Those come from a file, so
// none is taken to be within any bounds: what no clock could have given is cut
// to a hundred years.

Moment momentNow();

Duration durationOf(std::chrono::microseconds duration);
/// 0 where `to` is before `from`.
Duration between(Moment from, Moment to);

/// In the machine's own time zone: "2026-11-21 04:52:42".
std::string momentText(Moment moment);
/// How long ago, in one unit: "40 s", "5 min", "3 h", "12 d".
std::string ageText(Moment moment, Moment now);

/// For JSON, to the millisecond: since 1970, and how long.
double secondsOf(Moment moment);
double secondsOf(Duration duration);

/// Frames that took the same time: those of one work, which is only measured
/// as a whole.
struct TimedFrames {
  Duration each{};
  std::size_t frames = 1;
};

/// The median over all frames; 0 for none. One that hung does not count for
/// more than it is, unlike in a mean.
Duration medianTime(std::vector<TimedFrames> times);

/// What so many frames (parts of one count) take side by side in `lanes`
/// slots, at least one.
Duration timeFor(double frames, Duration each, std::size_t lanes);

} // namespace trovik
