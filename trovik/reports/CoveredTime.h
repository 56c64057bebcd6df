#pragma once

#include "trovik/records/Moments.h"

#include <cstddef>
#include <deque>
#include <vector>

namespace trovik {

/// The time in which anything ran, of intervals in any order that may overlap.
/// Those that touch become one now and then, so that what is kept grows with
/// the gaps between them, not with their number.
class CoveredTime {
public:
  /// An interval that ends before it begins is empty.
  void add(Moment begin, Moment end);

  /// Of what was added; nothing before anything was.
  Moment begin() const { return begin_; }
  Moment end() const { return end_; }
  /// How long at least one of the intervals lasted.
  Duration length() const { return length({this}); }
  /// The same for the intervals of several.
  static Duration length(const std::vector<const CoveredTime*>& times);

private:
  struct Interval {
    Moment begin;
    Moment end;
  };
  static constexpr std::size_t fewestToJoin = 1024;
  void join() const;

  // A deque does not take twice its room when it grows.
  mutable std::deque<Interval> intervals_;
  std::size_t joinAt_ = fewestToJoin;
  Moment begin_ = Moment::max();
  Moment end_ = Moment::min();
};

} // namespace trovik
