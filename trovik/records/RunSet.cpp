#include "trovik/records/RunSet.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace trovik {

void RunSet::add(const FrameRun& run) {
  if (run.First > run.Last) {
    return;
  }
  int first = run.First;
  int last = run.Last;
  auto next = runs_.upper_bound(first);
  if (next != runs_.begin() && std::int64_t{std::prev(next)->second} + 1 >= first) {
    next = std::prev(next);
  }
  while (next != runs_.end() && next->first <= std::int64_t{last} + 1) {
    first = std::min(first, next->first);
    last = std::max(last, next->second);
    count_ -= static_cast<std::size_t>(std::int64_t{next->second} - next->first + 1);
    next = runs_.erase(next);
  }
  runs_.emplace(first, last);
  count_ += static_cast<std::size_t>(std::int64_t{last} - first + 1);
}

void RunSet::add(const RunSet& other) {
  for (const auto& [first, last] : other.runs_) {
    add({first, last});
  }
}

bool RunSet::contains(int frame) const {
  const auto next = runs_.upper_bound(frame);
  return next != runs_.begin() && std::prev(next)->second >= frame;
}

std::vector<FrameRun> RunSet::runs() const {
  std::vector<FrameRun> result;
  for (const auto& [first, last] : runs_) {
    result.push_back({first, last});
  }
  return result;
}

std::string RunSet::text(std::size_t limit) const {
  std::string out;
  std::size_t written = 0;
  std::size_t shown = 0;
  for (const auto& [first, last] : runs_) {
    if (limit != 0 && written == limit) {
      return out + " and " + std::to_string(count_ - shown) + " more";
    }
    if (written != 0) {
      out += ',';
    }
    out += runText({first, last});
    shown += static_cast<std::size_t>(std::int64_t{last} - first + 1);
    ++written;
  }
  return out;
}

namespace {

RunSet partsOf(const RunSet& set, const RunSet& other, bool inside) {
  RunSet result;
  const std::vector<FrameRun> runs = other.runs();
  for (const FrameRun& run : set.runs()) {
    for (const FramePart& part : CutFrames(run, runs)) {
      if (part.Inside == inside) {
        result.add(part.Run);
      }
    }
  }
  return result;
}

} // namespace

RunSet common(const RunSet& one, const RunSet& other) {
  return partsOf(one, other, true);
}

RunSet without(const RunSet& set, const RunSet& other) {
  return partsOf(set, other, false);
}

std::string runText(const FrameRun& run) {
  return run.First == run.Last ? std::to_string(run.First)
                               : std::to_string(run.First) + '-' + std::to_string(run.Last);
}

} // namespace trovik
