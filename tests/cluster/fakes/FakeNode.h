#pragma once

#include "tests/cluster/fakes/FakeSite.h"

namespace trovik::fake {

/// What a task leaves in the folder of its array job, as a real one does.
class Node {
public:
  Node(Array& array, Task& task, std::size_t index);

  /// The place in the plan that the task is at; none when it has done all.
  std::optional<std::size_t> place() const;
  /// Goes past places that have an end.
  void skipEnded();
  bool isCanceled() const;
  void claim();
  void beat();
  /// Leaves a good end of the work, as if it had taken so long.
  void finish(Time duration);
  /// Leaves what a task leaves that is told to end.
  void interrupt();

private:
  WorkEnd endOf(Time duration) const;

  Array& array_;
  Task& task_;
  std::size_t index_;
  ArrayFolder folder_;
};

} // namespace trovik::fake
