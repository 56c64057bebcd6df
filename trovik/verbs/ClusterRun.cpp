#include "trovik/verbs/ClusterRun.h"

#include "host/foundation/Exception.h"
#include "host/foundation/Log.h"
#include "trovik/cluster/SlurmClient.h"
#include "trovik/images/ImageHelper.h"
#include "trovik/machine/Aside.h"
#include "trovik/progress/JobFollower.h"
#include "trovik/progress/Progress.h"
#include "trovik/records/Moments.h"
#include "trovik/text/Console.h"
#include "trovik/text/Json.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/Forerunners.h"
#include "trovik/verbs/Session.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <unistd.h>

namespace trovik {
namespace {

constexpr Duration submissionTime = std::chrono::seconds(90);
constexpr Duration leavingTime = std::chrono::seconds(15);
constexpr std::chrono::seconds collectingTime{4};
constexpr std::chrono::seconds collectingPatience{6}; // also where a folder hangs
constexpr Duration cancelingTime = std::chrono::seconds(25);
constexpr std::chrono::seconds freshness{5}; // of what the cluster said
constexpr Duration pollTime = std::chrono::milliseconds(500);

/// The tasks find the same types and settings as this process.
void tellTasks(const Session& session) {
  const CommonOptions& options = session.options();
  if (options.modulePath || environmentVariable("TROVIK_MODULE_PATH")) {
    std::string path;
    for (const Path& directory : session.modulePath()) {
      path += (path.empty() ? "" : ":") + directory.Text();
    }
    setenv("TROVIK_MODULE_PATH", path.c_str(), 1);
  }
  const auto pass = [](const char* variable, const std::optional<std::string>& option) {
    if (option) {
      setenv(variable, absolutePath(*option).c_str(), 1);
    }
  };
  pass("TROVIK_SETTINGS", options.settings);
  pass("TROVIK_OPTIONS", options.options);
}

void refuseWithoutSlurm() {
  if (const std::string missing = SlurmClient::missingProgram(); !missing.empty()) {
    throw UsageError{"there is no program " + inQuotes(missing) + " along PATH",
                     "jobs on a cluster need Slurm's own programs; on Debian they are in slurm-client"};
  }
}

ClusterEngine::Notices noticesTo(Console& console, bool json) {
  return [&console, json](const ClusterNotice& notice) {
    if (json) {
      Json event = jsonOfKind("cluster.notice");
      event["job"] = notice.job == 0 ? Json(nullptr) : Json(notice.job);
      event["message"] = notice.text;
      event["hint"] = notice.hint.empty() ? Json(nullptr) : Json(notice.hint);
      console.print(jsonLine(event));
      return;
    }
    std::string text = console.coloured(Colour::Yellow, "notice") + "  " + console.shown(notice.text) + '\n';
    if (!notice.hint.empty()) {
      text += "        " + console.shown(notice.hint) + '\n';
    }
    console.print(text);
  };
}

/// Whether the cluster has all of the job's works that are ready, or takes none.
bool isTaken(Queue& queue, JobId id) {
  const std::optional<JobRecord> job = queue.job(id);
  if (!job || !isOpen(job->state)) {
    return true;
  }
  const std::vector<ArrayRecord> arrays = queue.openArrays(id);
  return std::none_of(arrays.begin(), arrays.end(),
                      [](const ArrayRecord& array) { return array.cluster == 0; }) &&
         (!arrays.empty() || queue.worksToSubmit(id).empty());
}

/// The engine with all that must outlive it.
struct SlurmEngine {
  SlurmEngine(Session& session, Queue& queue, ClusterEngine::Duty duty, ClusterEngine::Notices notices)
      : images(session.locations().imageHelper()),
        engine(machine, queue, client, images, clusterSettings(session.locations(), {}), duty,
               std::move(notices)) {}

  LocalMachine machine;
  SlurmClient client{machine};
  ImageHelper images;
  ClusterEngine engine;
};

/// Loads the modules, where they can be: a cluster's jobs can be followed where
/// their type is not known, but not submitted. Throws a UsageError for settings
/// that cannot be, and, for Duty::All, where Slurm's programs are missing.
std::shared_ptr<ClusterEngine> clusterEngine(Session& session, Queue& queue, ClusterEngine::Duty duty,
                                             ClusterEngine::Notices notices = {}) {
  if (duty == ClusterEngine::Duty::All) {
    refuseWithoutSlurm();
  }
  try {
    session.loadModules();
  } catch (const UsageError& error) {
    LogDebug(error.message);
  }
  tellTasks(session);
  const auto whole = std::make_shared<SlurmEngine>(session, queue, duty, std::move(notices));
  return {whole, &whole->engine};
}

/// The same for a verb that changes jobs, with notices for its user.
std::shared_ptr<ClusterEngine> clusterEngine(Session& session, Queue& queue, bool json) {
  return clusterEngine(session, queue, ClusterEngine::Duty::All, noticesTo(session.console(), json));
}

/// Writes down what has become of the works of all jobs on a cluster; nothing
/// where another process does it.
void collectFromCluster(Session& session, Queue& queue) {
  const auto engine = clusterEngine(session, queue, ClusterEngine::Duty::Collect);
  const bool answers = SlurmClient::missingProgram().empty();
  engine->advanceUntil(
      [&] {
        const bool fresh = !answers || momentNow() - queue.clusterContact().answered < freshness ||
                           !queue.clusterContact().problem.empty();
        return !engine->isInCharge() || (engine->isSettled() && fresh);
      },
      collectingTime);
}

/// The same in a process of its own: a verb that shows jobs is not to hang with
/// the folder of one of them, nor to fail for what only concerns the cluster.
void collectAside(Session& session) {
  const auto collect = [&session] {
    try {
      Queue queue(session.state());
      collectFromCluster(session, queue);
    } catch (const UsageError& error) {
      printWarning(session.console(), error);
    } catch (const QueueError& error) {
      printWarning(session.console(), {error.message, error.hint});
    } catch (...) {
      printWarning(session.console(), {TakeCaughtText(), ""});
    }
  };
  if (!runAside(collect, collectingPatience)) {
    printWarning(session.console(),
                 {"the jobs on the cluster gave no answer within " +
                      std::to_string(collectingPatience.count()) + " s; what is shown was recorded before",
                  "look whether their folder can be reached"});
  }
}

} // namespace

void tryCluster(Session& session, const Job& job, const std::optional<std::string>& shared) {
  refuseWithoutSlurm();
  LocalMachine machine;
  if (const std::string problem = SlurmClient::configurationProblem(machine); !problem.empty()) {
    throw UsageError{"Slurm's programs know of no cluster: " + problem,
                     "log in where jobs can be submitted; Slurm's configuration is /etc/slurm/slurm.conf, or "
                     "the file that SLURM_CONF names"};
  }
  clusterRequest(job);
  const ClusterSettings settings = clusterSettings(session.locations(), shared);
  std::error_code error;
  std::filesystem::create_directories(settings.folder.c_str(), error);
  if (error || access(settings.folder.c_str(), W_OK) != 0) {
    throw UsageError{"cannot write the folder " + inQuotes(settings.folder.Text()) +
                         ", which the nodes are to read: " +
                         (error ? error.message() : std::generic_category().message(errno)),
                     "name one that this machine and all nodes see: --shared DIR"};
  }
}

void submitToCluster(Session& session, Queue& queue, JobId job, bool json) {
  clusterEngine(session, queue, json)->advanceUntil([&] { return isTaken(queue, job); }, submissionTime);
}

std::string arraysText(Console& console, Queue& queue, const JobRecord& job) {
  std::string text;
  if (!isOpen(job.state)) {
    text += console.coloured(Colour::Yellow, nameOf(job.state)) + "  " + console.shown(job.note) + '\n';
  }
  for (const ArrayRecord& array : queue.openArrays(job.id)) {
    const std::size_t works = queue.openArrayWorks(array.id).size();
    text += (array.cluster == 0 ? "not submitted yet: "
                                : "Slurm array job " + std::to_string(array.cluster) + ": ") +
            counted((works + array.perTask - 1) / array.perTask, "task") +
            (array.perTask > 1 ? " of up to " + counted(array.perTask, "work") : std::string()) + '\n';
  }
  if (const std::size_t rest = queue.worksToSubmit(job.id).size(); rest > 0) {
    text +=
        counted(rest, "work") + " to be submitted; \"trovik watch " + std::to_string(job.id) + "\" does it\n";
  }
  return text;
}

Json arraysJson(Queue& queue, JobId job) {
  Json json = Json::array();
  for (const ArrayRecord& array : queue.openArrays(job)) {
    json.push_back(array.cluster == 0 ? Json(nullptr) : Json(array.cluster));
  }
  return json;
}

int followCluster(Session& session, Queue& queue, JobId job, bool json) {
  Console& console = session.console();
  const std::unique_ptr<RunEvents> progress = progressFor(console, json);
  const std::shared_ptr<ClusterEngine> engine = clusterEngine(session, queue, json);
  // What the engine writes is seen as a change only by another connection.
  Queue view(session.state());
  SignalInterrupts interrupts;
  JobFollower follower(view, job, *progress);
  follower.beginRun();
  BlockTeller block(console, view, job, json);
  std::optional<Clock::time_point> leaving;
  bool left = false;
  Clock::time_point nextPoll = Clock::now();
  while (!follower.isOver()) {
    engine->advance();
    if (Clock::now() >= nextPoll) {
      nextPoll = Clock::now() + pollTime;
      follower.poll();
      block.poll();
    }
    if (const int asked = interrupts.take(); asked > 0) {
      left = leaving.has_value() || asked > 1;
      leaving = leaving.value_or(Clock::now() + leavingTime);
    }
    left = left || (leaving && (isTaken(view, job) || Clock::now() >= *leaving));
    if (left) {
      break;
    }
    engine->wait(&interrupts);
  }
  const std::string id = std::to_string(job);
  if (left) {
    console.setLive({});
    const bool taken = isTaken(view, job);
    tellWatcher(console, json, job, "watch.left", "left",
                "job " + id + (taken ? " goes on in Slurm" : ": not all of it was submitted yet") +
                    "; \"trovik watch " + id + "\" comes back to it, \"trovik cancel " + id + "\" ends it");
    return exitFailed;
  }
  if (!view.job(job)) {
    console.setLive({});
    tellWatcher(console, json, job, "watch.deleted", "gone", "job " + id + " was deleted");
    return exitFailed;
  }
  // The tasks of a job that ended before them.
  engine->advanceUntil([&] { return engine->isSettled(); }, leavingTime);
  const RunSummary summary = queue.summary(job);
  progress->runEnded(summary);
  if (const std::optional<JobRecord> record = queue.job(job);
      record && record->state == JobState::Stopped && !json) {
    console.print(console.coloured(Colour::Yellow, "stopped") + "  " + console.shown(record->note) + '\n');
  }
  return summary.allGood() ? exitGood : exitFailed;
}

std::shared_ptr<ClusterEngine> engineBeside(Session& session, Queue& queue, bool json) {
  return SlurmClient::missingProgram().empty() ? clusterEngine(session, queue, json) : nullptr;
}

std::unique_ptr<Queue> collectedQueue(Session& session) {
  std::unique_ptr<Queue> queue = existingQueue(session.state());
  if (queue == nullptr) {
    if (session.options().state) { // no name of a queue, most likely
      throw UsageError{"--state: there is no queue in " + inQuotes(session.state().Text()),
                       "the usual one is in " + inQuotes(session.locations().state().Text())};
    }
  } else if (!queue->clusterJobs().empty()) {
    queue.reset();
    collectAside(session);
    queue = existingQueue(session.state());
  }
  return queue;
}

void cancelOnCluster(Session& session, Queue& queue, bool json) {
  if (queue.openArrays().empty()) {
    return;
  }
  const std::shared_ptr<ClusterEngine> engine = clusterEngine(session, queue, json);
  engine->advanceUntil([&] { return !engine->isInCharge() || engine->isSettled(); }, cancelingTime);
}

} // namespace trovik
