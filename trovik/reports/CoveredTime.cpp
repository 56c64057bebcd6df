#include "trovik/reports/CoveredTime.h"

#include <algorithm>
#include <chrono>
#include <queue>

namespace trovik {

/// Sorts them, and makes one of those that touch.
void CoveredTime::join() const {
  std::sort(intervals_.begin(), intervals_.end(),
            [](const Interval& a, const Interval& b) { return a.begin < b.begin; });
  std::size_t joined = 0;
  for (const Interval& interval : intervals_) {
    if (joined > 0 && interval.begin <= intervals_[joined - 1].end) {
      intervals_[joined - 1].end = std::max(intervals_[joined - 1].end, interval.end);
    } else {
      intervals_[joined++] = interval;
    }
  }
  intervals_.resize(joined);
}

void CoveredTime::add(Moment begin, Moment end) {
  end = std::max(begin, end);
  begin_ = std::min(begin_, begin);
  end_ = std::max(end_, end);
  // Mostly it begins within the one before.
  if (!intervals_.empty() && begin >= intervals_.back().begin && begin <= intervals_.back().end) {
    intervals_.back().end = std::max(intervals_.back().end, end);
    return;
  }
  if (intervals_.size() >= joinAt_) {
    join();
    // Where that did not help, it is tried again only among twice as many.
    joinAt_ = std::max(fewestToJoin, 2 * intervals_.size());
  }
  intervals_.push_back({begin, end});
}

Duration CoveredTime::length(const std::vector<const CoveredTime*>& times) {
  struct Next {
    const std::deque<Interval>* intervals;
    std::size_t place;
    const Interval& interval() const { return (*intervals)[place]; }
  };
  const auto isLater = [](const Next& a, const Next& b) { return a.interval().begin > b.interval().begin; };
  std::priority_queue<Next, std::vector<Next>, decltype(isLater)> next(isLater);
  for (const CoveredTime* time : times) {
    if (!time->intervals_.empty()) {
      time->join();
      next.push({&time->intervals_, 0});
    }
  }
  // In microseconds, of which no number of years is too many.
  std::chrono::microseconds sum{};
  Moment end = Moment::min();
  while (!next.empty()) {
    Next first = next.top();
    next.pop();
    const Interval interval = first.interval();
    if (interval.end > end) {
      sum += interval.end - std::max(interval.begin, end);
      end = interval.end;
    }
    if (++first.place < first.intervals->size()) {
      next.push(first);
    }
  }
  return std::min(sum, std::chrono::duration_cast<std::chrono::microseconds>(Duration::max()));
}

} // namespace trovik
