#include "tests/cluster/fakes/FakeNode.h"

#include <chrono>

namespace trovik::fake {
namespace {

Moment momentNow() {
  return std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now());
}

std::chrono::microseconds lengthOf(Time duration) {
  return std::chrono::microseconds(static_cast<std::int64_t>(duration * 1e6));
}

} // namespace

Node::Node(Array& array, Task& task, std::size_t index)
    : array_(array), task_(task), index_(index), folder_(Path(array.folder)) {
  if (!array_.plan && array_.works > 0) {
    array_.plan = folder_.plan();
  }
}

std::optional<std::size_t> Node::place() const {
  const std::size_t at = index_ * array_.perTask + static_cast<std::size_t>(task_.place);
  return static_cast<std::size_t>(task_.place) < array_.perTask && at < array_.works ? std::optional(at)
                                                                                     : std::nullopt;
}

void Node::skipEnded() {
  while (place() && folder_.hasEnded(*place())) {
    ++task_.place;
  }
}

bool Node::isCanceled() const {
  return folder_.isCanceled();
}

void Node::claim() {
  WorkClaim claim;
  claim.number = folder_.lastClaim(*place()) + 1;
  claim.host = "n" + std::to_string(task_.node);
  claim.boot = "00000000-0000-0000-0000-000000000000";
  claim.process = 1000 + static_cast<int>(index_);
  claim.mark = "fake-" + std::to_string(array_.id) + '-' + std::to_string(*place());
  claim.node = claim.host;
  claim.task = std::to_string(array_.id) + '_' + std::to_string(index_);
  claim.restarts = task_.restarts;
  claim.started = momentNow();
  folder_.claim(*place(), claim);
  task_.claim = claim.number;
  task_.beats = 0;
}

void Node::beat() {
  WorkBeat beat;
  beat.claim = task_.claim;
  beat.count = ++task_.beats;
  beat.stage = "running";
  beat.command = "fake";
  folder_.beat(*place(), beat);
}

WorkEnd Node::endOf(Time duration) const {
  WorkEnd end;
  end.claim = task_.claim;
  end.node = "n" + std::to_string(task_.node);
  end.ended = momentNow();
  end.started = end.ended - lengthOf(duration);
  end.outcome.duration = lengthOf(duration);
  end.outcome.command = "fake";
  return end;
}

void Node::finish(Time duration) {
  WorkEnd end = endOf(duration);
  end.outcome.state = AttemptState::Good;
  end.outcome.good.add(array_.plan->works[*place()].run);
  folder_.leave(*place(), end);
}

void Node::interrupt() {
  if (!place() || task_.claim == 0) {
    return;
  }
  WorkEnd end = endOf(0);
  const bool canceled = isCanceled();
  end.by = canceled ? WorkEnd::By::Canceled : WorkEnd::By::Interrupted;
  end.outcome.state = canceled ? AttemptState::Canceled : AttemptState::Lost;
  end.outcome.rule = canceled ? VerdictRule::Canceled : VerdictRule::Cluster;
  end.outcome.reason = canceled ? "Canceled" : "The cluster ended its task";
  folder_.leave(*place(), end);
}

} // namespace trovik::fake
