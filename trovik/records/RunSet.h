#pragma once

#include "host/application/FrameRange.h"

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace trovik {

/// A set of frames, kept as runs: ten million neighbouring frames cost no more
/// than one. Runs may be added in any order.
class RunSet {
public:
  void add(const FrameRun& run);
  void add(const RunSet& other);

  bool contains(int frame) const;
  /// The runs in ascending order.
  std::vector<FrameRun> runs() const;

  bool empty() const { return runs_.empty(); }
  std::size_t count() const { return count_; }

  /// The frames in ascending order, "1-5,9"; beyond `limit` runs the rest is
  /// only counted: "1,3,5 and 7 more". 0 means all.
  std::string text(std::size_t limit = 0) const;

private:
  std::map<int, int> runs_; // first to last; never touching
  std::size_t count_ = 0;
};

/// The frames that both sets have.
RunSet common(const RunSet& one, const RunSet& other);
/// The frames of the first set that the other one lacks.
RunSet without(const RunSet& set, const RunSet& other);

/// One run as people write it: "7" or "7-9".
std::string runText(const FrameRun& run);

} // namespace trovik
