#include "host/foundation/Log.h"
#include "trovik/cluster/LeftFiles.h"
#include "trovik/cluster/TaskRun.h"
#include "trovik/records/Moments.h"

#include <algorithm>
#include <utility>

namespace trovik {
namespace {} // namespace

/// Takes up what the processes with earlier claims have left.
void TaskRun::rescue() {
  if (claim_.number == 1) {
    return;
  }
  const LeftBehind left = endOthers();
  if (stop_ != Stop::No) {
    return;
  }
  SmartHandle<Job> job = makeJob(plan_.works[place_].run);
  LeftFiles found = takeLeft(*job, plan_.stage, claim_.mark, left);
  StagedOutput& staged = found.staged;
  if (!job_.hasFrames) {
    staged.discard(); // there is no part of it that could be good
    return;
  }
  LostAttempt lost;
  lost.attempt.run = plan_.works[place_].run;
  lost.attempt.started = found.since;
  lost.sameBoot = false; // what could be ended has ended
  lost.files = std::move(found.files);
  Recovery recovery(std::move(lost), job, job_.hasFrames, inspector_);
  while (!recovery.advance(machine_)) {
    turn(nullptr);
  }
  Outcome outcome = recovery.outcome();
  std::erase_if(outcome.files, [&outcome](const FileRecord& file) {
    return !file.problem.empty() || !file.frame || !outcome.good.contains(*file.frame);
  });
  named_ = outcome.files; // whoever takes over from this process looks for them
  if (stop_ == Stop::Superseded || !isMine() || !publish(staged, outcome)) {
    stop(Stop::Superseded, nullptr);
    staged.discard();
    return;
  }
  merged_.good = outcome.good;
  merged_.files = outcome.files;
  LogInfo("taken up from a process that died: " +
          (outcome.good.empty() ? std::string("nothing") : "frames " + outcome.good.text(10)));
}

/// Ends the programs of earlier claims, as far as they run on this machine.
LeftBehind TaskRun::endOthers() {
  const PlannedWork& work = plan_.works[place_];
  LeftBehind left;
  left.named = named_;
  left.since = momentNow();
  for (int number = 1; number < claim_.number; ++number) {
    left.marks.push_back(markOf(number));
    left.logs.push_back(logFile(Path(plan_.logs), logName(work.run, number), work.attempt).Text());
    if (const std::optional<WorkClaim> claim = readClaim(number)) {
      left.since = std::min(left.since, claim->started);
      if (claim->host == self_.host && claim->boot == self_.boot) {
        killPrograms(markOf(number));
      }
    }
  }
  if (!logBefore_.empty() && std::find(left.logs.begin(), left.logs.end(), logBefore_) == left.logs.end()) {
    left.logs.push_back(logBefore_); // of a part of the work
  }
  return left;
}

void TaskRun::killPrograms(const std::string& mark) {
  const Clock::time_point until = machine_.now() + times_.orphans;
  while (machine_.killOrphans({mark, 0, {}}) > 0 && machine_.now() < until && stop_ == Stop::No) {
    turn(nullptr, machine_.now() + orphanTime);
  }
}

} // namespace trovik
