#include "trovik/cluster/ClusterEngine.h"

#include "host/foundation/Log.h"
#include "trovik/cluster/ClusterEngineImpl.h"
#include "trovik/engine/EndCommand.h"
#include "trovik/records/Moments.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <utility>

// The turns of the engine, and the state that its parts share.

namespace trovik {
namespace {

constexpr Duration chargeTime = std::chrono::seconds(1);
constexpr Duration longestWait = std::chrono::milliseconds(500);

} // namespace

ClusterState::ClusterState(Machine& itsMachine, Queue& itsQueue, ClusterClient& itsClient,
                           ImageInspector& itsInspector, ClusterSettings itsSettings,
                           ClusterEngine::Duty itsDuty, ClusterEngine::Notices itsNotices)
    : machine(itsMachine), queue(itsQueue), client(itsClient), inspector(itsInspector),
      settings(std::move(itsSettings)), duty(itsDuty), notices(std::move(itsNotices)) {}

void OpenArray::close(std::size_t position) {
  const auto work = works.find(position);
  holdsTasks = holdsTasks || (work->second.phase == TaskPhase::Waiting && work->second.record.restarts > 0);
  works.erase(work);
}

void ClusterState::reload() {
  std::map<ArrayId, OpenArray> known = std::exchange(arrays, {});
  for (ArrayRecord& record : queue.openArrays()) {
    auto old = known.extract(record.id);
    if (old.empty()) {
      const std::optional<JobRecord> job = queue.job(record.job);
      ArrayFolder folder(JobFolder(Path(job ? job->folder : std::string())).array(record.number));
      OpenArray& fresh = arrays.emplace(record.id, std::move(folder)).first->second;
      if (record.state == ArrayRecord::State::Prepared) {
        fresh.sought = machine.now(); // by a process that did not come to the answer
      }
    } else {
      arrays.insert(std::move(old));
    }
    OpenArray& array = arrays.at(record.id);
    std::map<std::size_t, OpenWork> works;
    for (ArrayWork& given : queue.openArrayWorks(record.id)) {
      auto work = array.works.extract(given.position);
      if (work.empty()) {
        works[given.position].alive = machine.now();
      } else {
        works.insert(std::move(work));
      }
      works[given.position].record = std::move(given);
    }
    array.works = std::move(works);
    array.record = std::move(record);
  }

  std::map<ArrayId, LeftArray> knownLeft = std::exchange(left, {});
  for (const ArrayRecord& record : queue.leftArrays()) {
    if (auto old = knownLeft.extract(record.id); !old.empty()) {
      left.insert(std::move(old));
    } else {
      left[record.id] = {record.name, record.cluster, machine.now(), false, {}};
    }
  }

  std::map<JobId, ClusterJob> knownJobs = std::exchange(jobs, {});
  for (JobRecord& record : queue.clusterJobs()) {
    if (auto old = knownJobs.extract(record.id); !old.empty()) {
      jobs.insert(std::move(old));
    }
    ClusterJob& job = jobs[record.id];
    job.record = std::move(record);
    job.checked = false;
  }
  for (const JobId id : queue.foreignClusterJobs()) {
    notify(id, "foreign " + std::to_string(id),
           "job " + std::to_string(id) + " cannot be submitted from here: " + foreignJobText(id), "");
  }
}

ClusterJob* ClusterState::open(JobId id) {
  const auto known = jobs.find(id);
  if (known == jobs.end()) {
    return nullptr;
  }
  ClusterJob& job = known->second;
  if (!job.works && !job.refused) {
    try {
      auto works = std::make_unique<WorkMaker>(job.record.type, queue.packed(id));
      job.request = clusterRequest(*works->makeWhole());
      job.works = std::move(works);
    } catch (Exception* exception) {
      job.refused = true;
      notify(id, "type",
             "job " + std::to_string(id) + " cannot be submitted from here: " + takeText(exception),
             "name the directory of its type: --module-path DIR:");
    } catch (const UsageError& error) {
      job.refused = true;
      notify(id, "request", "job " + std::to_string(id) + " cannot be submitted: " + error.message,
             error.hint);
    }
  }
  return &job;
}

void ClusterState::checkAgain(JobId job) {
  if (const auto known = jobs.find(job); known != jobs.end()) {
    known->second.checked = false;
  }
}

void ClusterState::refresh(JobId job) {
  if (const auto known = jobs.find(job); known != jobs.end()) {
    if (std::optional<JobRecord> record = queue.job(job)) {
      known->second.record = std::move(*record);
    }
  }
}

void ClusterState::closeArrays() {
  for (auto array = arrays.begin(); array != arrays.end();) {
    if (!array->second.works.empty()) {
      ++array;
      continue;
    }
    const ArrayRecord& record = array->second.record;
    if (record.cluster != 0) {
      left[record.id] = {record.name, record.cluster, machine.now(), array->second.holdsTasks, {}};
      changed = true;
    }
    array = arrays.erase(array);
  }
}

void ClusterState::abandon(OpenArray& array) {
  const ArrayId id = array.record.id;
  const JobId job = array.record.job;
  try {
    array.folder.cancel();
  } catch (Exception* exception) {
    LogDebug(takeText(exception)); // without the folder no task can do anything either
  }
  queue.dropArray(id);
  arrays.erase(id);
  checkAgain(job);
}

void ClusterState::noteContact(const ClusterAnswer& answer) {
  if (answer.answered) {
    contact.answered = momentNow();
    contact.problem.clear();
    notified.erase("contact");
  } else {
    contact.problem = answer.problem;
    nextQuestion = std::max(nextQuestion, machine.now() + pauseAfterSilence);
    notify(0, "contact", "the cluster does not answer: " + answer.problem,
           "what runs there goes on, and what it finishes is seen all the same");
  }
  queue.noteContact(contact);
}

void ClusterState::notify(JobId job, const std::string& key, const std::string& text,
                          const std::string& hint) {
  if (notified.insert(key).second && notices) {
    notices({job, text, hint});
  }
}

ClusterEngine::ClusterEngine(Machine& machine, Queue& queue, ClusterClient& client, ImageInspector& inspector,
                             const ClusterSettings& settings, Duty duty, Notices notices)
    : state_(std::make_unique<ClusterState>(machine, queue, client, inspector, settings, duty,
                                            std::move(notices))),
      submitter_(std::make_unique<ArraySubmitter>(*state_)),
      monitor_(std::make_unique<ArrayMonitor>(*state_)),
      collector_(std::make_unique<ResultCollector>(*state_)) {}

ClusterEngine::~ClusterEngine() {
  if (inCharge_) {
    state_->queue.releaseClusterLock();
  }
}

void ClusterEngine::advance() {
  const Clock::time_point now = state_->machine.now();
  state_->inspector.advance(now);
  try {
    state_->client.advance(now);
    if (!takeCharge()) {
      nextTurn_ = nextCharge_;
      return;
    }
    turn();
  } catch (const QueueError& error) {
    if (!error.passes()) {
      throw;
    }
    // What was seen stays in the files, and is seen again.
    LogDebug(error.message);
    state_->version = -1;
  }
  nextTurn_ = now + collector_->turnTime();
}

bool ClusterEngine::takeCharge() {
  const Clock::time_point now = state_->machine.now();
  if (!inCharge_ && now >= nextCharge_) {
    nextCharge_ = now + chargeTime;
    inCharge_ = state_->queue.takeClusterLock();
    state_->version = -1;
  }
  return inCharge_;
}

void ClusterEngine::turn() {
  if (const std::int64_t version = state_->queue.dataVersion(); version != state_->version) {
    state_->reload();
    state_->version = version;
  }
  collector_->advance();
  finishJobs();
  if (state_->duty == Duty::All) {
    monitor_->cancelUnwanted();
    submitter_->advance();
  }
  monitor_->ask();
  state_->checkedOnce = true;
}

void ClusterEngine::finishJobs() {
  for (const JobRecord& job : state_->queue.takeEnded()) {
    startEndCommands(job, state_->queue.summary(job.id));
  }
}

void ClusterEngine::addDescriptors(std::vector<pollfd>& descriptors) const {
  state_->client.addDescriptors(descriptors);
  if (state_->inspector.descriptor() >= 0) {
    descriptors.push_back({state_->inspector.descriptor(), POLLIN, 0});
  }
}

Clock::time_point ClusterEngine::deadline() const {
  return std::min(nextTurn_, state_->client.deadline().value_or(nextTurn_));
}

void ClusterEngine::wait(InterruptSource* interrupts) {
  std::vector<pollfd> descriptors;
  if (interrupts != nullptr && interrupts->descriptor() >= 0) {
    descriptors.push_back({interrupts->descriptor(), POLLIN, 0});
  }
  addDescriptors(descriptors);
  const Duration left = deadline() - state_->machine.now();
  state_->machine.wait(descriptors, std::clamp(left, Duration::zero(), longestWait));
}

bool ClusterEngine::advanceUntil(const std::function<bool()>& done, Duration limit) {
  const Clock::time_point end = state_->machine.now() + limit;
  for (;;) {
    advance();
    if (done()) {
      return true;
    }
    if (state_->machine.now() >= end) {
      return false;
    }
    wait(nullptr);
  }
}

bool ClusterEngine::isSettled() const {
  return inCharge_ && state_->checkedOnce && collector_->isIdle() && monitor_->isSettled() &&
         !state_->client.isBusy();
}

} // namespace trovik
