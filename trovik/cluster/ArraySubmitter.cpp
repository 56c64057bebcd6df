#include "trovik/cluster/ClusterEngineImpl.h"

#include "trovik/records/Moments.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <cmath>
#include <utility>

// How works get to the cluster.

namespace trovik {
namespace {

/// Works that come back one by one go together into one array.
constexpr Duration gatheringTime = std::chrono::seconds(5);
/// Until it is checked again whether there is room for more tasks: a long list
/// of works is not to be read at every turn.
constexpr Duration fullTime = std::chrono::seconds(5);

/// The smaller one of two numbers, where 0 means that there is no limit.
int atMost(int one, int other) {
  return one == 0 || other == 0 ? one + other : std::min(one, other);
}

/// What a frame of the job took, in seconds.
std::optional<double> secondsOfFrame(Queue& queue, JobId id) {
  double seconds = 0;
  double frames = 0;
  queue.eachTime(id, [&](AttemptId /*id*/, const AttemptTime& time) {
    if (time.state == AttemptState::Good) {
      seconds += secondsOf(durationOf(time.duration));
      frames += static_cast<double>(time.run.Count());
    }
  });
  return frames > 0 ? std::optional(seconds / frames) : std::nullopt;
}

/// What a work of so many frames took before, in seconds: in this job, else in
/// the one that rendered the scene before.
std::optional<double> secondsOfWork(Queue& queue, const JobRecord& job, double framesOfWork) {
  std::optional<double> known = secondsOfFrame(queue, job.id);
  if (!known) {
    const std::vector<JobRecord> jobs = queue.jobs();
    const auto earlier = std::find_if(jobs.begin(), jobs.end(), [&job](const JobRecord& other) {
      return other.id < job.id && other.type == job.type && other.scene == job.scene;
    });
    known = earlier == jobs.end() ? std::nullopt : secondsOfFrame(queue, earlier->id);
  }
  return known ? std::optional(*known * framesOfWork) : std::nullopt;
}

double framesOf(const std::vector<WorkRecord>& works) {
  double frames = 0;
  for (const WorkRecord& work : works) {
    frames += static_cast<double>(work.run.Count());
  }
  return frames;
}

} // namespace

void ArraySubmitter::advance() {
  for (auto& [id, job] : state_.jobs) {
    if (!isOpen(job.record.state)) {
      job.readySince.reset();
      continue;
    }
    if ((job.checked && !job.readySince) || state_.machine.now() < job.full) {
      continue;
    }
    std::vector<WorkRecord> works = state_.queue.worksToSubmit(id);
    job.checked = true;
    if (works.empty()) {
      job.readySince.reset();
      continue;
    }
    if (!job.readySince) {
      job.readySince = state_.machine.now();
    }
    state_.open(id);
    if (job.refused) {
      continue;
    }
    const bool others = std::any_of(state_.arrays.begin(), state_.arrays.end(), [id = id](const auto& array) {
      return array.second.record.job == id && !array.second.works.empty();
    });
    if ((others && state_.machine.now() - *job.readySince < gatheringTime) || state_.client.isBusy()) {
      continue;
    }
    const bool fits = !job.record.packets.automatic || fitPackets(job, works, others);
    if (!fits || job.trial) {
      job.full = state_.machine.now() + fullTime; // until some of them have ended
    }
    if (fits) {
      addArray(job, std::move(works));
    }
  }
}

/// Cuts the works of a job whose packets fit themselves. As long as it is not
/// known how long they should be, some are tried; false while those run. Frames
/// that take longer than a packet should need no trial.
bool ArraySubmitter::fitPackets(ClusterJob& job, std::vector<WorkRecord>& works, bool others) {
  constexpr std::size_t trialWorks = 8;
  const JobId id = job.record.id;
  PacketsAtOnce packets = state_.queue.packetsAtOnce(id);
  if (packets.trial && others) {
    if (!runsLongerThan(id, job.record.packets.time)) {
      return false;
    }
    packets = {1, false};
  }
  // As many as that takes, all of the same length.
  const double all = framesOf(works);
  const double frames = std::ceil(all / std::ceil(all / static_cast<double>(packets.frames)));
  state_.queue.cut(id, static_cast<int>(frames));
  works = state_.queue.worksToSubmit(id);
  job.perTask = packets.trial ? 1 : job.perTask;
  job.trial = packets.trial && works.size() > trialWorks;
  if (job.trial) {
    works.resize(trialWorks);
  }
  return true;
}

/// Whether a program of the job has run for longer than that.
bool ArraySubmitter::runsLongerThan(JobId id, std::chrono::microseconds time) {
  const std::vector<AttemptId> attempts = state_.queue.runningAttempts(id);
  return std::any_of(attempts.begin(), attempts.end(), [&](AttemptId attempt) {
    const std::optional<AttemptRecord> record = state_.queue.attempt(attempt);
    return record && momentNow() - record->started > time;
  });
}

/// Gives works to one array job; what does not fit follows with a later turn.
void ArraySubmitter::addArray(ClusterJob& job, std::vector<WorkRecord> works) {
  if (!knowsSite(*job.request)) {
    return;
  }
  std::size_t open = 0;
  for (const auto& [id, array] : state_.arrays) {
    open += array.tasks();
  }
  // Others have tasks there, too, and a full list refuses everybody's.
  const std::size_t ours = static_cast<std::size_t>(std::max(site_->jobCount, 2)) / 2;
  if (open >= ours) {
    job.full = state_.machine.now() + fullTime;
    return;
  }
  if (job.perTask == 0) {
    const double framesOfWork =
        job.record.hasFrames ? framesOf(works) / static_cast<double>(works.size()) : 1;
    job.perTask =
        worksPerTask(*job.request, works.size(), secondsOfWork(state_.queue, job.record, framesOfWork), ours);
  }
  const std::size_t perTask = job.perTask;
  const std::size_t tasks = std::min<std::size_t>(ours - open, static_cast<std::size_t>(site_->arraySize));
  const std::size_t wanted = (works.size() + perTask - 1) / perTask;
  if (tasks < std::min(wanted, std::max<std::size_t>(ours / 10, 1))) {
    job.full = state_.machine.now() + fullTime;
    return; // few at a time would make arrays without end
  }
  if (wanted > tasks) {
    works.resize(tasks * perTask);
  } else if (!std::exchange(job.trial, false)) {
    job.readySince.reset();
    job.perTask = 0;
  }
  std::vector<ArrayWork> given;
  for (const WorkRecord& work : works) {
    ArrayWork& entry = given.emplace_back();
    entry.work = work.id;
    entry.run = work.run;
    entry.number = work.attempts + 1;
  }
  ArrayRecord record = state_.queue.addArray(job.record.id, perTask, given);
  const ArrayId id = record.id;
  ArrayFolder folder(JobFolder(Path(job.record.folder)).array(record.number));
  OpenArray& array = state_.arrays.emplace(id, std::move(folder)).first->second;
  array.record = std::move(record);
  array.asking = true;
  for (ArrayWork& entry : state_.queue.openArrayWorks(id)) {
    OpenWork& work = array.works[entry.position];
    work.record = std::move(entry);
    work.phase = TaskPhase::Waiting;
  }
  submit(array, job);
}

/// Whether the limits of the site are known; asks for them where they are not.
bool ArraySubmitter::knowsSite(const ClusterRequest& request) {
  if (site_ && sitePartition_ == request.partition) {
    return true;
  }
  if (state_.machine.now() >= state_.nextQuestion) {
    state_.client.askSite(request.partition,
                          [this, partition = request.partition](const ClusterAnswer& answer) {
                            state_.noteContact(answer);
                            if (answer.answered) {
                              site_ = answer.site;
                              sitePartition_ = partition;
                            }
                          });
  }
  return false;
}

void ArraySubmitter::submit(OpenArray& array, const ClusterJob& job) {
  const ClusterRequest& request = *job.request;
  ArrayPlan plan;
  plan.perTask = array.record.perTask;
  plan.logs = job.record.logs;
  plan.stage = request.stage;
  plan.patience = state_.settings.patience;
  for (const auto& [position, work] : array.works) {
    plan.works.push_back(
        {work.record.run, work.record.number, state_.queue.imagesBefore(array.record.job, work.record.run)});
  }
  try {
    const JobFolder folder{Path(job.record.folder)};
    folder.create({state_.queue.queueId(), job.record.id, job.record.name, job.record.type,
                   job.record.typeName, job.record.hasFrames, state_.queue.packed(job.record.id)});
    array.folder.create(plan);
  } catch (Exception* exception) {
    const std::string problem = takeText(exception);
    const JobId id = job.record.id;
    state_.abandon(array);
    state_.queue.stop(id, "Stopped: " + problem);
    state_.version = -1;
    return;
  }
  ClusterSubmission submission;
  submission.name = array.record.name;
  submission.comment = job.record.name.empty() ? job.record.typeName : job.record.name;
  submission.folder = array.folder.directory();
  submission.program = state_.settings.program;
  submission.taskLog = array.folder.taskLog("%a");
  submission.tasks = static_cast<int>(plan.tasks());
  submission.throttle = atMost(request.throttle, job.record.slotsAtMost);
  for (const LimitShare& share : state_.queue.takes(job.record.id)) {
    submission.licenses +=
        (submission.licenses.empty() ? "" : ",") + share.name + ':' + std::to_string(share.amount);
  }
  submission.partition = request.partition;
  submission.account = request.account;
  submission.qos = request.qos;
  // Where nodes have no memory to be shared out, a task that asks for some is refused.
  submission.memory = request.memory > 0 ? request.memory : site_->memoryPerCpu * request.cpus;
  submission.cpus = request.cpus;
  submission.minutes = minutesOf(request.timeLimit, request.runTimeLimit, plan.perTask);
  submission.options = request.options;
  state_.client.submit(submission,
                       [this, id = array.record.id](const ClusterAnswer& answer) { submitted(id, answer); });
}

void ArraySubmitter::submitted(ArrayId id, const ClusterAnswer& answer) {
  const auto known = state_.arrays.find(id);
  if (known == state_.arrays.end()) {
    return; // another verb has changed the queue meanwhile; it is looked up when it is wanted
  }
  OpenArray& array = known->second;
  array.asking = false;
  if (answer.answered) {
    array.record.cluster = answer.array;
    array.record.state = ArrayRecord::State::Submitted;
    state_.queue.noteSubmitted(id, answer.array);
    state_.changed = true;
    state_.pause = ClusterEngine::questionPause;
    return;
  }
  if (answer.refused) {
    const JobId job = array.record.job;
    state_.abandon(array);
    state_.queue.stop(job, "Stopped: the cluster refuses it: " + answer.problem);
    state_.version = -1;
    return;
  }
  state_.noteContact(answer);
  array.sought = state_.machine.now();
}

} // namespace trovik
