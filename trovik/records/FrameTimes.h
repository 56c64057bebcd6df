#pragma once

#include "trovik/machine/Machine.h"

#include <cstddef>
#include <vector>

namespace trovik {

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
