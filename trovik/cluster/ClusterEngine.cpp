#include "trovik/cluster/ClusterEngine.h"

#include "host/foundation/Log.h"
#include "trovik/cluster/ClusterValues.h"
#include "trovik/engine/EndCommand.h"
#include "trovik/records/Moments.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <utility>

// The turns of the engine, what it asks the cluster, and how works get there.
// What becomes of them is in ClusterCollect.cpp.

namespace trovik {
namespace {

constexpr Duration busyTurnTime = std::chrono::milliseconds(100); // files are being looked into
constexpr Duration chargeTime = std::chrono::seconds(1);
constexpr Duration longestPause = std::chrono::seconds(15); // between questions while nothing changes
constexpr Duration pauseAfterSilence = std::chrono::seconds(10);
constexpr std::size_t manyTasks = 2000;
constexpr Duration pauseForMany = std::chrono::seconds(5);
/// Works that come back one by one go together into one array.
constexpr Duration gatheringTime = std::chrono::seconds(5);
/// An answer to a submission that did not come may come late.
constexpr Duration seekingTime = std::chrono::seconds(15);
/// Until a look whether there is room for more tasks: a long list of works is
/// not to be read at every turn.
constexpr Duration fullTime = std::chrono::seconds(5);
constexpr Duration cancelAgain = std::chrono::seconds(60);

/// What a work of so many frames took before, in seconds: in this job, else in
/// the one that rendered the scene before.
std::optional<double> secondsOfWork(Queue& queue, const JobRecord& job, double framesOfWork) {
  const auto secondsOfFrame = [&](JobId id) -> std::optional<double> {
    double seconds = 0;
    double frames = 0;
    for (const AttemptRecord& attempt : queue.attempts(id)) {
      if (attempt.state == AttemptState::Good) {
        seconds += secondsOf(durationOf(attempt.duration));
        frames += static_cast<double>(attempt.run.Count());
      }
    }
    return frames > 0 ? std::optional(seconds / frames) : std::nullopt;
  };
  std::optional<double> known = secondsOfFrame(job.id);
  if (!known) {
    for (const JobRecord& earlier : queue.jobs()) {
      if (earlier.id < job.id && earlier.type == job.type && earlier.scene == job.scene) {
        known = secondsOfFrame(earlier.id);
        break;
      }
    }
  }
  return known ? std::optional(*known * framesOfWork) : std::nullopt;
}

} // namespace

ClusterEngine::ClusterEngine(Machine& machine, Queue& queue, ClusterClient& client, ImageInspector& inspector,
                             const ClusterSettings& settings, Duty duty, Notices notices)
    : machine_(machine), queue_(queue), client_(client), inspector_(inspector), settings_(settings),
      duty_(duty), notices_(std::move(notices)) {}

ClusterEngine::~ClusterEngine() {
  if (inCharge_) {
    queue_.releaseClusterLock();
  }
}

void ClusterEngine::advance() {
  const Clock::time_point now = machine_.now();
  inspector_.advance(now);
  try {
    client_.advance(now);
    if (!takeCharge()) {
      nextTurn_ = nextCharge_;
      return;
    }
    if (const std::int64_t version = queue_.dataVersion(); version != version_) {
      reload();
      version_ = version;
    }
    lookAtPlaces();
    advanceRescues();
    finishJobs();
    if (duty_ == Duty::All) {
      cancelArrays();
      place();
    }
    ask();
    lookedOnce_ = true;
  } catch (const QueueError& error) {
    if (!error.passes()) {
      throw;
    }
    // What was seen stays in the files, and is seen again.
    LogDebug(error.message);
    version_ = -1;
  }
  nextTurn_ = now + (rescues_.empty() ? turnTime_ : busyTurnTime);
}

void ClusterEngine::addDescriptors(std::vector<pollfd>& descriptors) const {
  client_.addDescriptors(descriptors);
  if (inspector_.descriptor() >= 0) {
    descriptors.push_back({inspector_.descriptor(), POLLIN, 0});
  }
}

bool ClusterEngine::isSettled() const {
  return inCharge_ && lookedOnce_ && rescues_.empty() && !client_.isBusy();
}

bool ClusterEngine::isSubmitted(JobId job) const {
  const auto known = jobs_.find(job);
  if (known == jobs_.end()) {
    return false;
  }
  if (!isOpen(known->second.record.state)) {
    return true;
  }
  bool any = false;
  for (const auto& [id, array] : arrays_) {
    if (array.record.job == job) {
      any = true;
      if (array.record.cluster == 0) {
        return false;
      }
    }
  }
  return any && !known->second.readySince;
}

bool ClusterEngine::takeCharge() {
  const Clock::time_point now = machine_.now();
  if (!inCharge_ && now >= nextCharge_) {
    nextCharge_ = now + chargeTime;
    inCharge_ = queue_.takeClusterLock();
    version_ = -1;
  }
  return inCharge_;
}

/// What the queue says, with what this process knows besides.
void ClusterEngine::reload() {
  std::map<ArrayId, Array> arrays;
  for (ArrayRecord& record : queue_.openArrays()) {
    const std::optional<JobRecord> job = queue_.job(record.job);
    auto old = arrays_.extract(record.id);
    if (old.empty()) {
      ArrayFolder folder(JobFolder(Path(job ? job->folder : std::string())).array(record.number));
      Array array{{}, std::move(folder), {}, 0, false, {}, {}, {}};
      if (record.state == ArrayRecord::State::Prepared) {
        array.sought = machine_.now(); // by a process that did not come to the answer
      }
      arrays.emplace(record.id, std::move(array));
    } else {
      arrays.insert(std::move(old));
    }
    Array& array = arrays.at(record.id);
    array.record = record;
    std::map<std::size_t, Place> places;
    for (PlacedWork& work : queue_.openPlaces(record.id)) {
      auto place = array.places.extract(work.place);
      if (place.empty()) {
        places[work.place].alive = machine_.now();
      } else {
        places.insert(std::move(place));
      }
      places[work.place].record = std::move(work);
    }
    array.places = std::move(places);
  }
  arrays_ = std::move(arrays);

  std::map<JobId, ClusterJob> jobs;
  for (JobRecord& record : queue_.clusterJobs()) {
    auto old = jobs_.extract(record.id);
    if (!old.empty()) {
      jobs.insert(std::move(old));
    }
    ClusterJob& job = jobs[record.id];
    job.record = std::move(record);
    job.looked = false;
  }
  jobs_ = std::move(jobs);
}

/// The job with its type, where that is known here.
ClusterEngine::ClusterJob* ClusterEngine::open(JobId id) {
  const auto known = jobs_.find(id);
  if (known == jobs_.end()) {
    return nullptr;
  }
  ClusterJob& job = known->second;
  if (!job.works && !job.refused) {
    try {
      auto works = std::make_unique<WorkMaker>(job.record.type, queue_.packed(id));
      job.request = clusterRequest(*works->makeWhole());
      job.works = std::move(works);
    } catch (Exception* exception) {
      job.refused = true;
      tell(id, "type", "job " + std::to_string(id) + " cannot be submitted from here: " + takeText(exception),
           "name the directory of its type: --module-path DIR:");
    } catch (const UsageError& error) {
      job.refused = true;
      tell(id, "request", "job " + std::to_string(id) + " cannot be submitted: " + error.message, error.hint);
    }
  }
  return &job;
}

void ClusterEngine::finishJobs() {
  for (const JobRecord& job : queue_.takeEnded()) {
    startEndCommands(job, queue_.summary(job.id));
  }
}

void ClusterEngine::place() {
  for (auto& [id, record] : jobs_) {
    if (!isOpen(record.record.state)) {
      record.readySince.reset();
      continue;
    }
    if ((record.looked && !record.readySince) || machine_.now() < record.full) {
      continue;
    }
    std::vector<WorkRecord> works = queue_.unplaced(id);
    record.looked = true;
    if (works.empty()) {
      record.readySince.reset();
      continue;
    }
    if (!record.readySince) {
      record.readySince = machine_.now();
    }
    ClusterJob* job = open(id);
    if (job->refused) {
      continue;
    }
    const bool others = std::any_of(arrays_.begin(), arrays_.end(), [id = id](const auto& array) {
      return array.second.record.job == id && !array.second.places.empty();
    });
    if ((!others || machine_.now() - *job->readySince >= gatheringTime) && !client_.isBusy()) {
      placeWorks(*job, std::move(works));
    }
  }
}

/// Gives works to one array job; what does not fit follows with a later turn.
void ClusterEngine::placeWorks(ClusterJob& job, std::vector<WorkRecord> works) {
  const ClusterRequest& request = *job.request;
  if (!site_ || sitePartition_ != request.partition) {
    if (machine_.now() < nextQuestion_) {
      return;
    }
    client_.askSite(request.partition, [this, partition = request.partition](const ClusterAnswer& answer) {
      noteContact(answer);
      if (answer.answered) {
        site_ = answer.site;
        sitePartition_ = partition;
      } else {
        nextQuestion_ = machine_.now() + pauseAfterSilence;
      }
    });
    return;
  }
  std::size_t open = 0;
  for (const auto& [id, array] : arrays_) {
    open += (array.places.size() + array.record.perTask - 1) / std::max<std::size_t>(array.record.perTask, 1);
  }
  // Others have tasks there, too, and a full list refuses everybody's.
  const std::size_t ours = static_cast<std::size_t>(std::max(site_->jobCount, 2)) / 2;
  if (open >= ours) {
    job.full = machine_.now() + fullTime;
    return;
  }
  if (job.perTask == 0) {
    double frames = 0;
    for (const WorkRecord& work : works) {
      frames += static_cast<double>(work.run.Count());
    }
    const double framesOfWork = job.record.hasFrames ? frames / static_cast<double>(works.size()) : 1;
    job.perTask = worksPerTask(request, works.size(), secondsOfWork(queue_, job.record, framesOfWork), ours);
  }
  const std::size_t perTask = job.perTask;
  const std::size_t tasks = std::min<std::size_t>(ours - open, static_cast<std::size_t>(site_->arraySize));
  const std::size_t wanted = (works.size() + perTask - 1) / perTask;
  if (tasks < std::min(wanted, std::max<std::size_t>(ours / 10, 1))) {
    job.full = machine_.now() + fullTime;
    return; // few at a time would make arrays without end
  }
  if (wanted > tasks) {
    works.resize(tasks * perTask);
  } else {
    job.readySince.reset();
    job.perTask = 0;
  }
  std::vector<PlacedWork> places;
  for (const WorkRecord& work : works) {
    PlacedWork place;
    place.place = places.size();
    place.work = work.id;
    place.run = work.run;
    place.number = work.attempts + 1;
    places.push_back(std::move(place));
  }
  const ArrayRecord record = queue_.addArray(job.record.id, perTask, places);
  ArrayFolder folder(JobFolder(Path(job.record.folder)).array(record.number));
  Array& array =
      arrays_.emplace(record.id, Array{record, std::move(folder), {}, 0, true, {}, {}, {}}).first->second;
  for (PlacedWork& work : queue_.openPlaces(record.id)) {
    const std::size_t place = work.place;
    array.places[place].record = std::move(work);
    array.places[place].phase = TaskPhase::Waiting;
  }
  submit(array, job);
}

void ClusterEngine::submit(Array& array, ClusterJob& job) {
  const ClusterRequest& request = *job.request;
  ArrayPlan plan;
  plan.perTask = array.record.perTask;
  plan.logs = job.record.logs;
  plan.stage = request.stage;
  plan.patience = settings_.patience;
  for (const auto& [place, work] : array.places) {
    plan.works.push_back({work.record.run, work.record.number});
  }
  try {
    const JobFolder folder{Path(job.record.folder)};
    folder.create({queue_.queueId(), job.record.id, job.record.name, job.record.type, job.record.typeName,
                   job.record.hasFrames, queue_.packed(job.record.id)});
    array.folder.create(plan);
  } catch (Exception* exception) {
    const std::string problem = takeText(exception);
    const JobId id = job.record.id;
    abandon(array);
    queue_.stop(id, "Stopped: " + problem);
    version_ = -1;
    return;
  }
  ClusterSubmission submission;
  submission.name = array.record.name;
  submission.comment = job.record.name.empty() ? job.record.typeName : job.record.name;
  submission.folder = array.folder.directory();
  submission.program = settings_.program;
  submission.taskLog = array.folder.taskLog("%a");
  submission.tasks = static_cast<int>(plan.tasks());
  submission.throttle = request.throttle;
  submission.partition = request.partition;
  submission.account = request.account;
  submission.qos = request.qos;
  // Where nodes have no memory to be shared out, a task that asks for some is refused.
  submission.memory = request.memory > 0 ? request.memory : site_->memoryPerCpu * request.cpus;
  submission.cpus = request.cpus;
  submission.minutes = minutesOf(request.timeLimit, request.runTimeLimit, plan.perTask);
  submission.options = request.options;
  client_.submit(submission,
                 [this, id = array.record.id](const ClusterAnswer& answer) { submitted(id, answer); });
}

void ClusterEngine::submitted(ArrayId id, const ClusterAnswer& answer) {
  const auto known = arrays_.find(id);
  if (known == arrays_.end()) {
    return; // another verb has changed the queue meanwhile; it is looked up when it is wanted
  }
  Array& array = known->second;
  array.asking = false;
  if (answer.answered) {
    array.record.cluster = answer.array;
    array.record.state = ArrayRecord::State::Submitted;
    array.answeredAt = machine_.now();
    queue_.noteSubmitted(id, answer.array);
    changed_ = true;
    pause_ = questionPause;
    return;
  }
  if (answer.refused) {
    const JobId job = array.record.job;
    abandon(array);
    queue_.stop(job, "Stopped: the cluster refuses it: " + answer.problem);
    version_ = -1;
    return;
  }
  noteContact(answer);
  array.sought = machine_.now();
}

/// Nothing of this array is wanted, should the cluster have it after all.
void ClusterEngine::abandon(Array& array) {
  const ArrayId id = array.record.id;
  const JobId job = array.record.job;
  try {
    array.folder.cancel();
  } catch (Exception* exception) {
    LogDebug(takeText(exception)); // without the folder no task can do anything either
  }
  queue_.dropArray(id);
  arrays_.erase(id);
  if (const auto known = jobs_.find(job); known != jobs_.end()) {
    known->second.looked = false;
  }
}

bool ClusterEngine::mayAsk() const {
  if (client_.isBusy() || asking_ || machine_.now() < nextQuestion_) {
    return false;
  }
  // Another process may have asked a moment ago. Clocks that were set say nothing.
  const Moment asked = queue_.clusterContact().asked;
  const Moment now = momentNow();
  return asked == contact_.asked || asked > now ||
         now - asked >= std::chrono::duration_cast<std::chrono::microseconds>(questionPause);
}

void ClusterEngine::ask() {
  if (!mayAsk()) {
    return;
  }
  for (auto& [id, array] : arrays_) {
    if (array.record.cluster == 0 && !array.asking) {
      seek(array);
      return;
    }
  }
  queryAll();
}

/// Looks up by its name an array of which it is not known whether the cluster
/// has it.
void ClusterEngine::seek(Array& array) {
  asking_ = true;
  nextQuestion_ = machine_.now() + questionPause;
  contact_.asked = momentNow();
  client_.query({array.record.name},
                [this, id = array.record.id, began = machine_.now()](const ClusterAnswer& answer) {
                  asking_ = false;
                  noteContact(answer);
                  const auto known = arrays_.find(id);
                  if (known == arrays_.end() || !answer.answered) {
                    return;
                  }
                  Array& sought = known->second;
                  if (!answer.tasks.empty()) {
                    sought.record.cluster = answer.tasks.front().array;
                    sought.record.state = ArrayRecord::State::Submitted;
                    sought.answeredAt = began;
                    queue_.noteSubmitted(id, sought.record.cluster);
                    answered({id}, answer);
                  } else if (sought.sought && began - *sought.sought >= seekingTime) {
                    abandon(sought);
                  }
                });
}

void ClusterEngine::queryAll() {
  std::vector<std::string> names;
  std::vector<ArrayId> asked;
  std::size_t tasks = 0;
  for (const auto& [id, array] : arrays_) {
    if (array.record.cluster != 0 && !array.places.empty()) {
      names.push_back(array.record.name);
      asked.push_back(id);
      tasks += array.places.size() / std::max<std::size_t>(array.record.perTask, 1);
    }
  }
  if (names.empty()) {
    return;
  }
  asking_ = true;
  changed_ = false;
  const Duration least = tasks > manyTasks ? pauseForMany : questionPause;
  nextQuestion_ = machine_.now() + std::max(pause_, least);
  contact_.asked = momentNow();
  client_.query(names, [this, asked](const ClusterAnswer& answer) {
    asking_ = false;
    noteContact(answer);
    if (answer.answered) {
      answered(asked, answer);
      pause_ = changed_ ? questionPause : std::min<Duration>(pause_ * 3 / 2, longestPause);
    }
  });
}

void ClusterEngine::noteContact(const ClusterAnswer& answer) {
  if (answer.answered) {
    contact_.answered = momentNow();
    contact_.problem.clear();
    told_.erase("contact");
  } else {
    contact_.problem = answer.problem;
    nextQuestion_ = std::max(nextQuestion_, machine_.now() + pauseAfterSilence);
    tell(0, "contact", "the cluster does not answer: " + answer.problem,
         "what runs there goes on, and what it finishes is seen all the same");
  }
  queue_.noteContact(contact_);
}

void ClusterEngine::answered(const std::vector<ArrayId>& asked, const ClusterAnswer& answer) {
  std::map<std::int64_t, Array*> byNumber;
  for (const ArrayId id : asked) {
    if (const auto known = arrays_.find(id); known != arrays_.end()) {
      byNumber[known->second.record.cluster] = &known->second;
    }
  }
  std::map<std::int64_t, std::set<int>> seen;
  std::map<std::pair<Array*, std::string>, std::size_t> stuck;
  queue_.inTransaction([&] {
    for (const ClusterTask& task : answer.tasks) {
      const auto array = byNumber.find(task.array);
      if (array == byNumber.end() || task.index < 0) {
        continue;
      }
      seen[task.array].insert(task.index);
      const std::size_t perTask = std::max<std::size_t>(array->second->record.perTask, 1);
      const std::size_t first = static_cast<std::size_t>(task.index) * perTask;
      auto& places = array->second->places;
      bool open = false;
      for (auto place = places.lower_bound(first); place != places.end() && place->first < first + perTask;
           ++place) {
        take(place->second, task);
        open = true;
      }
      if (open && task.phase == TaskPhase::Waiting && waitingReason(task.state, task.reason).stuck) {
        ++stuck[{array->second, task.reason}];
      }
    }
    for (const auto& [number, array] : byNumber) {
      const std::set<int>& there = seen[number];
      for (auto& [number2, place] : array->places) {
        const auto index = static_cast<int>(number2 / std::max<std::size_t>(array->record.perTask, 1));
        if (!there.contains(index)) {
          takeVanished(place);
        }
      }
    }
  });
  for (const auto& [what, count] : stuck) {
    const WaitingReason reason = waitingReason("PENDING", what.second);
    const ArrayRecord& array = what.first->record;
    std::string hint = reason.hint;
    for (std::size_t at = hint.find("ID"); at != std::string::npos; at = std::string::npos) {
      hint.replace(at, 2, std::to_string(array.cluster));
    }
    tell(array.job, "stuck " + array.name + ' ' + what.second,
         counted(count, "task") + " of array job " + std::to_string(array.cluster) + " (job " +
             std::to_string(array.job) + ") will not start: " + reason.text,
         hint);
  }
}

void ClusterEngine::take(Place& place, const ClusterTask& task) {
  if (place.phase != task.phase || place.record.restarts != task.restarts) {
    changed_ = true;
    place.alive = machine_.now(); // a new process has its time to say so
  }
  place.phase = task.phase;
  place.task = task;
  const bool over = task.phase == TaskPhase::Over || task.phase == TaskPhase::Retry;
  if (!over) {
    place.overSince.reset();
  } else if (!place.overSince) {
    place.overSince = machine_.now();
  }
  PlacedWork& record = place.record;
  if (record.state != task.state || record.reason != task.reason || record.node != task.node ||
      record.restarts != task.restarts) {
    record.state = task.state;
    record.reason = task.reason;
    record.node = task.node;
    record.restarts = task.restarts;
    queue_.noteTask(record);
  }
}

void ClusterEngine::takeVanished(Place& place) {
  if (!place.overSince) {
    place.overSince = machine_.now();
    place.phase = TaskPhase::Over;
    changed_ = true;
  }
}

void ClusterEngine::cancelArrays() {
  for (auto& [id, array] : arrays_) {
    const auto job = jobs_.find(array.record.job);
    const bool wanted = job != jobs_.end() && job->second.record.state != JobState::Canceled &&
                        job->second.record.state != JobState::Stopped;
    if (wanted && !array.record.canceling) {
      continue;
    }
    if (!array.record.canceling) {
      queue_.cancelArray(id);
      array.record.canceling = true;
    }
    const Clock::time_point now = machine_.now();
    if (array.canceled && now - *array.canceled < cancelAgain) {
      continue;
    }
    array.canceled = now;
    try {
      array.folder.cancel();
    } catch (Exception* exception) {
      LogDebug(takeText(exception));
    }
    if (array.record.cluster == 0) {
      array.canceled.reset(); // when it is found, or abandoned
      continue;
    }
    pause_ = questionPause;
    client_.cancel({array.record.name}, [this, id = id](const ClusterAnswer& answer) {
      if (!answer.answered) {
        noteContact(answer);
        if (const auto known = arrays_.find(id); known != arrays_.end()) {
          known->second.canceled = machine_.now() - cancelAgain + pauseAfterSilence;
        }
      }
    });
  }
}

void ClusterEngine::tell(JobId job, const std::string& key, const std::string& text,
                         const std::string& hint) {
  if (told_.insert(key).second && notices_) {
    notices_({job, text, hint});
  }
}

} // namespace trovik
