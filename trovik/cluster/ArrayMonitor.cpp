#include "trovik/cluster/ClusterEngineImpl.h"

#include "host/foundation/Log.h"
#include "trovik/records/Moments.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <utility>

// What the cluster says of tasks. It is no verdict, and no answer says nothing.

namespace trovik {
namespace {

constexpr Duration longestPause = std::chrono::seconds(15); // between questions while nothing changes
constexpr std::size_t manyTasks = 2000;
constexpr Duration pauseForMany = std::chrono::seconds(5);
/// An answer to a submission that did not come may come late.
constexpr Duration seekingTime = std::chrono::seconds(15);
constexpr Duration cancelAgain = std::chrono::seconds(60);

} // namespace

void ArrayMonitor::cancelUnwanted() {
  for (auto& [id, array] : state_.arrays) {
    const auto job = state_.jobs.find(array.record.job);
    const bool wanted = job != state_.jobs.end() && job->second.record.state != JobState::Canceled &&
                        job->second.record.state != JobState::Stopped;
    if (wanted && !array.record.canceling) {
      continue;
    }
    if (!array.record.canceling) {
      state_.queue.cancelArray(id);
      array.record.canceling = true;
    }
    if (array.canceled && state_.machine.now() - *array.canceled < cancelAgain) {
      continue;
    }
    try {
      array.folder.cancel();
    } catch (Exception* exception) {
      LogDebug(takeText(exception));
    }
    if (array.record.cluster != 0) { // else when it is found, or abandoned
      state_.pause = ClusterEngine::questionPause;
      cancel(state_.arrays, id, array.record.name);
    }
  }
  for (const auto& [id, array] : state_.left) {
    if (array.holdsTasks && (!array.canceled || state_.machine.now() - *array.canceled >= cancelAgain)) {
      cancel(state_.left, id, array.name);
    }
  }
}

template <typename Arrays> void ArrayMonitor::cancel(Arrays& arrays, ArrayId id, const std::string& name) {
  arrays.at(id).canceled = state_.machine.now();
  state_.client.cancel({name}, [this, &arrays, id](const ClusterAnswer& answer) {
    if (answer.answered) {
      return;
    }
    state_.noteContact(answer);
    if (const auto known = arrays.find(id); known != arrays.end()) {
      known->second.canceled = state_.machine.now() - cancelAgain + pauseAfterSilence;
    }
  });
}

bool ArrayMonitor::isSettled() const {
  return state_.duty != ClusterEngine::Duty::All ||
         std::none_of(state_.left.begin(), state_.left.end(),
                      [](const auto& array) { return array.second.holdsTasks && !array.second.canceled; });
}

void ArrayMonitor::ask() {
  if (!mayAsk()) {
    return;
  }
  for (auto& [id, array] : state_.arrays) {
    if (array.record.cluster == 0 && !array.asking) {
      seek(array);
      return;
    }
  }
  askForAll();
}

bool ArrayMonitor::mayAsk() const {
  if (state_.client.isBusy() || asking_ || state_.machine.now() < state_.nextQuestion) {
    return false;
  }
  // Another process may have asked a moment ago. Clocks that were set say nothing.
  const Moment asked = state_.queue.clusterContact().asked;
  const Moment now = momentNow();
  return asked == state_.contact.asked || asked > now ||
         now - asked >= std::chrono::duration_cast<std::chrono::microseconds>(ClusterEngine::questionPause);
}

/// Looks up by its name an array of which it is not known whether the cluster
/// has it.
void ArrayMonitor::seek(OpenArray& array) {
  asking_ = true;
  state_.nextQuestion = state_.machine.now() + ClusterEngine::questionPause;
  state_.contact.asked = momentNow();
  const auto read = [this, id = array.record.id, began = state_.machine.now()](const ClusterAnswer& answer) {
    asking_ = false;
    state_.noteContact(answer);
    const auto known = state_.arrays.find(id);
    if (known == state_.arrays.end() || !answer.answered) {
      return;
    }
    OpenArray& sought = known->second;
    if (!answer.tasks.empty()) {
      sought.record.cluster = answer.tasks.front().array;
      sought.record.state = ArrayRecord::State::Submitted;
      state_.queue.noteSubmitted(id, sought.record.cluster);
      answered({id}, answer);
    } else if (sought.sought && began - *sought.sought >= seekingTime) {
      state_.abandon(sought);
    }
  };
  state_.client.query({array.record.name}, read);
}

void ArrayMonitor::askForAll() {
  std::vector<std::string> names;
  std::vector<ArrayId> asked;
  std::size_t tasks = 0;
  for (const auto& [id, array] : state_.arrays) {
    if (array.record.cluster != 0 && !array.works.empty()) {
      names.push_back(array.record.name);
      asked.push_back(id);
      tasks += array.tasks();
    }
  }
  std::vector<ArrayId> left;
  if (state_.duty == ClusterEngine::Duty::All) {
    for (const auto& [id, array] : state_.left) {
      names.push_back(array.name);
      left.push_back(id);
    }
  }
  if (names.empty()) {
    return;
  }
  asking_ = true;
  state_.changed = false;
  const Duration least = tasks > manyTasks ? pauseForMany : ClusterEngine::questionPause;
  state_.nextQuestion = state_.machine.now() + std::max(state_.pause, least);
  state_.contact.asked = momentNow();
  state_.client.query(names, [this, asked, left](const ClusterAnswer& answer) {
    asking_ = false;
    if (!answer.answered && asked.empty()) {
      state_.nextQuestion = state_.machine.now() + pauseAfterSilence;
      state_.queue.noteContact(state_.contact); // that it was asked; nobody waits for the answer
      return;
    }
    state_.noteContact(answer);
    if (answer.answered) {
      answered(asked, answer);
      answeredLeft(left, answer);
      state_.pause = state_.changed ? ClusterEngine::questionPause
                                    : std::min<Duration>(state_.pause * 3 / 2, longestPause);
    }
  });
}

void ArrayMonitor::answered(const std::vector<ArrayId>& asked, const ClusterAnswer& answer) {
  std::map<std::int64_t, OpenArray*> arrays; // by the cluster's numbers
  for (const ArrayId id : asked) {
    if (const auto known = state_.arrays.find(id); known != state_.arrays.end()) {
      arrays[known->second.record.cluster] = &known->second;
    }
  }
  std::map<std::int64_t, std::set<std::size_t>> seen;
  std::map<std::pair<const OpenArray*, std::string>, std::size_t> stuck;
  state_.queue.inTransaction([&] {
    for (const ClusterTask& task : answer.tasks) {
      const auto known = arrays.find(task.array);
      if (known == arrays.end() || task.index < 0) {
        continue;
      }
      OpenArray& array = *known->second;
      const auto index = static_cast<std::size_t>(task.index);
      seen[task.array].insert(index);
      const std::size_t end = (index + 1) * array.record.perTask;
      const auto first = array.works.lower_bound(index * array.record.perTask);
      for (auto work = first; work != array.works.end() && work->first < end; ++work) {
        take(work->second, task);
      }
      const bool open = first != array.works.end() && first->first < end;
      if (open && task.phase == TaskPhase::Waiting && waitingReason(task.state, task.reason).stuck) {
        ++stuck[{&array, task.reason}];
      }
    }
    for (const auto& [number, array] : arrays) {
      const std::set<std::size_t>& there = seen[number];
      for (auto& [position, work] : array->works) {
        if (!there.contains(position / array->record.perTask)) {
          takeVanished(work);
        }
      }
    }
  });
  for (const auto& [what, count] : stuck) {
    notifyStuck(what.first->record, what.second, count);
  }
}

/// A task that waits was put back, and one that goes on for long hangs: each of
/// its works has an end.
void ArrayMonitor::answeredLeft(const std::vector<ArrayId>& asked, const ClusterAnswer& answer) {
  std::map<std::int64_t, std::set<TaskPhase>> phases;
  for (const ClusterTask& task : answer.tasks) {
    phases[task.array].insert(task.phase);
  }
  for (const ArrayId id : asked) {
    const auto known = state_.left.find(id);
    if (known == state_.left.end()) {
      continue;
    }
    LeftArray& array = known->second;
    std::set<TaskPhase>& there = phases[array.cluster];
    there.erase(TaskPhase::Over);
    if (there.empty()) {
      state_.queue.noteGone(id);
      state_.left.erase(known);
    } else {
      const bool hangs = state_.machine.now() - array.since >= state_.settings.patience;
      array.holdsTasks = there.contains(TaskPhase::Waiting) || (hangs && there.contains(TaskPhase::Active));
    }
  }
}

void ArrayMonitor::notifyStuck(const ArrayRecord& array, const std::string& reason, std::size_t tasks) {
  const std::string number = std::to_string(array.cluster);
  const WaitingReason why = waitingReason("PENDING", reason);
  state_.notify(array.job, "stuck " + array.name + ' ' + reason,
                counted(tasks, "task") + " of array job " + number + " (job " + std::to_string(array.job) +
                    ") will not start: " + why.text,
                why.hintFor(array.cluster));
}

void ArrayMonitor::take(OpenWork& work, const ClusterTask& task) {
  ArrayWork& record = work.record;
  if (work.phase != task.phase || record.restarts != task.restarts) {
    state_.changed = true;
    work.alive = state_.machine.now(); // a new process has its time to say so
  }
  work.phase = task.phase;
  work.task = task;
  const bool over = task.phase == TaskPhase::Over || task.phase == TaskPhase::Retry;
  if (!over) {
    work.overSince.reset();
  } else if (!work.overSince) {
    work.overSince = state_.machine.now();
  }
  if (record.state != task.state || record.reason != task.reason || record.node != task.node ||
      record.restarts != task.restarts) {
    record.state = task.state;
    record.reason = task.reason;
    record.node = task.node;
    record.restarts = task.restarts;
    state_.queue.noteTask(record);
  }
}

void ArrayMonitor::takeVanished(OpenWork& work) {
  if (!work.overSince) {
    work.overSince = state_.machine.now();
    work.phase = TaskPhase::Over;
    state_.changed = true;
  }
}

} // namespace trovik
