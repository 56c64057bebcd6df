#include "host/application/jobs/FrameStates.h"

#include <iterator>
#include <limits>

// Makes the frame the first of its run, where a run holds it.
void FrameStates::Cut(int frame) {
  auto run = m_Runs.upper_bound(frame);
  if (run == m_Runs.begin()) {
    return;
  }
  --run;
  if (run->first < frame && run->second.Last >= frame) {
    m_Runs.emplace_hint(std::next(run), frame, run->second);
    run->second.Last = frame - 1;
  }
}

// Makes one run of this and the one before, where they are neighbours in one
// state.
void FrameStates::Join(Runs::iterator right) {
  if (right == m_Runs.end() || right == m_Runs.begin()) {
    return;
  }
  const auto left = std::prev(right);
  if (left->second.State == right->second.State && left->second.Last == right->first - 1) {
    left->second.Last = right->second.Last;
    m_Runs.erase(right);
  }
}

void FrameStates::Set(const FrameRun& run, int state) {
  if (run.Count() < 1) {
    return;
  }
  Cut(run.First);
  if (run.Last < std::numeric_limits<int>::max()) {
    Cut(run.Last + 1);
  }
  auto held = m_Runs.lower_bound(run.First);
  while (held != m_Runs.end() && held->first <= run.Last) {
    m_Counts[held->second.State] -= FrameRun{held->first, held->second.Last}.Count();
    held = m_Runs.erase(held);
  }
  m_Counts[state] += run.Count();
  const auto added = m_Runs.emplace_hint(held, run.First, Run{run.Last, state});
  Join(std::next(added));
  Join(added);
}

std::optional<int> FrameStates::Of(int frame) const {
  auto run = m_Runs.upper_bound(frame);
  if (run == m_Runs.begin() || (--run)->second.Last < frame) {
    return std::nullopt;
  }
  return run->second.State;
}

std::int64_t FrameStates::Count(int state) const {
  const auto found = m_Counts.find(state);
  return found == m_Counts.end() ? 0 : found->second;
}
