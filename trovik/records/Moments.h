#pragma once

#include "trovik/machine/Machine.h"
#include "trovik/records/Records.h"

#include <string>

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

} // namespace trovik
