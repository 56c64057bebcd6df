#pragma once

#include "host/application/FrameRange.h"

#include <cstdint>
#include <map>
#include <optional>

/// The state of each frame of a job. Neighbouring frames in one state cost one
/// entry, however many works they were and whether works were cut since.
class FrameStates {
public:
  /// The frames of the run are in this state from now on.
  void Set(const FrameRun& run, int state);

  /// Nothing for a frame that no run held.
  std::optional<int> Of(int frame) const;

  /// The number of frames in a state.
  std::int64_t Count(int state) const;

  /// The number of entries.
  std::size_t Size() const { return m_Runs.size(); }

private:
  struct Run {
    int Last;
    int State;
  };
  using Runs = std::map<int, Run>; // by the first frame; no two overlap

  void Cut(int frame);
  void Join(Runs::iterator right);

  Runs m_Runs;
  std::map<int, std::int64_t> m_Counts;
};
