#include "trovik/cluster/ClusterClient.h"
#include "trovik/text/Text.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>
#include <optional>
#include <string_view>
#include <sys/wait.h>

// What Slurm says about a task, in words for people. The reasons of waiting
// tasks are words, words with something behind them ("ReqNodeNotAvail,
// UnavailableNodes:n3") and whole sentences. Those about limits of accounting
// come by the hundred and are put together from parts: whose limit it is, of
// what, and for whom.

namespace trovik {
namespace {

constexpr std::size_t quoteWidth = 200;

constexpr const char* askAdministrator = "ask the administrator of the cluster";
constexpr const char* brokenNodes = "\"sinfo -R\" tells of nodes with problems";
constexpr const char* releaseIt = "\"scontrol release ID\" lets it go";
constexpr const char* releaseByAdministrator =
    "ask the administrator of the cluster, who can let it go with \"scontrol release ID\"";
constexpr const char* otherPartition =
    "wait, or cancel it and submit it anew with --set ClusterPartition=NAME";
constexpr const char* otherAccount =
    "cancel it, and submit it anew with --set ClusterAccount=NAME or --set ClusterPartition=NAME";
constexpr const char* otherQos =
    "cancel it, and submit it anew with --set ClusterQos=NAME or --set ClusterPartition=NAME";
constexpr const char* lessTime =
    "cancel it, and submit it anew with --set ClusterTimeLimit=… or --set WorksPerTask=1";

struct KnownReason {
  std::string_view word; ///< the whole, or all up to a comma or bracket
  bool stuck;
  std::string_view text;
  std::string_view hint;
};

constexpr std::array<KnownReason, 53> knownReasons = {{
    {"", false, "Slurm has not considered it yet", ""},
    {"Resources", false, "the CPUs and the memory that it needs are taken", ""},
    {"Priority", false, "jobs of higher priority come first", ""},
    {"JobArrayTaskLimit", false, "no more tasks of its array job may run at a time",
     "\"scontrol update JobId=ID ArrayTaskThrottle=N\" lets N run; for new jobs --set ClusterThrottle=N"},
    {"Dependency", false, "a job that it depends on has not ended", ""},
    {"DependencyNeverSatisfied", true, "a job that it depends on has failed",
     "cancel it, and submit it anew without the dependency in ClusterOptions"},
    {"JobHeldUser", true, "its user holds it", releaseIt},
    {"JobHeldAdmin", true, "an administrator holds it", releaseByAdministrator},
    {"JobHoldMaxRequeue", true, "Slurm holds it: it was put back too often", releaseIt},
    {"launch failed requeued held", true, "Slurm holds it: it could not be started on its node",
     "\"sinfo -R\" tells of nodes with problems; then \"scontrol release ID\" lets it go"},
    {"job requeued in held state", true, "it was put back and is held", releaseIt},
    {"Job is in held state", true, "it is held", releaseIt},
    {"BeginTime", false, "its time has not come; a task whose node was lost waits for two minutes", ""},
    {"SchedDefer", false, "Slurm considers it with the next turn", ""},
    {"Prolog", false, "its node is made ready", ""},
    {"Cleaning", false, "the rest of its last start is cleared away", ""},
    {"Licenses", false, "the licenses that it needs are taken", ""},
    {"Reservation", false, "its reservation has not begun", ""},
    {"ReservationDeleted", true, "its reservation was deleted",
     "cancel it, and submit it anew without the reservation in ClusterOptions"},
    {"PartitionDown", true, "its partition is down", otherPartition},
    {"PartitionInactive", true, "its partition is inactive", otherPartition},
    {"PartitionTimeLimit", true, "it asks for more time than its partition allows", lessTime},
    {"PartitionNodeLimit", true, "its partition allows no job of its size", otherPartition},
    {"PartitionConfig", true, "no node of its partition is large enough",
     "cancel it, and submit it anew with less: --set CPUs=…, --set ClusterMemory=…"},
    {"MaxMemPerLimit", true, "it asks for more memory than its partition allows",
     "cancel it, and submit it anew with less: --set ClusterMemory=…"},
    {"ReqNodeNotAvail", false, "a node that it needs is down, drained or reserved", brokenNodes},
    {"Nodes required for job are DOWN", false, "the nodes that it could run on are down, drained or reserved",
     brokenNodes},
    {"Required node not available", false, "a node that it needs is down, drained or reserved", brokenNodes},
    {"NodeDown", false, "a node that it needs is down", brokenNodes},
    {"FrontEndDown", false, "the front end node is down", askAdministrator},
    {"BadConstraints", true, "no node has what it asks for",
     "cancel it, and submit it anew; check --constraint and its like in ClusterOptions"},
    {"InvalidAccount", true, "its account is not valid", otherAccount},
    {"AccountNotAllowed", true, "its account may not use its partition", otherAccount},
    {"Job's account not known", true, "its account may not use its partition", otherAccount},
    {"Job's account not permitted to use this partition", true, "its account may not use its partition",
     otherAccount},
    {"InvalidQOS", true, "its QOS is not valid", otherQos},
    {"QOSNotAllowed", true, "its QOS may not be used with its partition or account", otherQos},
    {"Job's QOS not known", true, "its QOS may not be used with its partition", otherQos},
    {"Job's QOS not permitted to use this partition", true, "its QOS may not be used with its partition",
     otherQos},
    {"QOSUsageThreshold", true, "its QOS was used too much", askAdministrator},
    {"QOSJobLimit", false, "its QOS may run no more jobs at a time", ""},
    {"QOSResourceLimit", false, "its QOS may use no more at a time", ""},
    {"QOSTimeLimit", true, "it asks for more time than its QOS allows", lessTime},
    {"AssociationJobLimit", false, "its account may run no more jobs at a time", ""},
    {"AssociationResourceLimit", false, "its account may use no more at a time", ""},
    {"AssociationTimeLimit", true, "it asks for more time than its account allows", lessTime},
    {"AccountingPolicy", true, "it is against a limit of accounting", askAdministrator},
    {"DeadLine", true, "it cannot end before its deadline",
     "cancel it, and submit it anew without the deadline in ClusterOptions"},
    {"BurstBufferResources", false, "there is no room in the burst buffer", ""},
    {"BurstBufferStageIn", false, "its files come into the burst buffer", ""},
    {"BurstBufferOperation", true, "the burst buffer failed", askAdministrator},
    {"SystemFailure", true, "Slurm failed with it", askAdministrator},
    {"JobLaunchFailure", true, "it could not be started on its node",
     "\"sinfo -R\" tells of nodes with problems; then \"scontrol release ID\" lets it go"},
}};

bool isWord(std::string_view reason, std::string_view word) {
  if (word.empty()) {
    return reason.empty();
  }
  return reason.starts_with(word) &&
         (reason.size() == word.size() ||
          std::string_view(",(: ").find(reason[word.size()]) != std::string_view::npos);
}

bool takePrefix(std::string_view& text, std::string_view prefix) {
  if (!text.starts_with(prefix)) {
    return false;
  }
  text.remove_prefix(prefix.size());
  return true;
}

struct LimitedThing {
  std::string_view word;
  std::string_view name;
  std::string_view hint; ///< how to ask for less
};
constexpr std::array<LimitedThing, 15> limitedThings = {{
    {"CPU", "CPUs", "--set CPUs=…"},
    {"Cpu", "CPUs", "--set CPUs=…"},
    {"Memory", "memory", "--set ClusterMemory=…"},
    {"Mem", "memory", "--set ClusterMemory=…"},
    {"Node", "nodes", ""},
    {"GRES", "GPUs or other devices", "--gres in ClusterOptions"},
    {"License", "licenses", "--licenses in ClusterOptions"},
    {"WallDuration", "time", "--set ClusterTimeLimit=…"},
    {"Wall", "time", "--set ClusterTimeLimit=…"},
    {"SubmitJobs", "submitted jobs", ""},
    {"SubmitJob", "submitted jobs", ""},
    {"Jobs", "jobs", ""},
    {"BB", "burst buffer", ""},
    {"Billing", "billing units", ""},
    {"Energy", "energy", ""},
}};

/// "AssocGrpCPUMinutesLimit", "QOSMaxMemoryPerUser", "MaxJobsPerAccount".
std::optional<WaitingReason> limitReason(std::string_view reason) {
  const bool account = takePrefix(reason, "Assoc");
  const bool qos = !account && takePrefix(reason, "QOS");
  const bool group = (account || qos) && takePrefix(reason, "Grp");
  const bool least = !group && qos && takePrefix(reason, "Min");
  if (!group && !least && !takePrefix(reason, "Max")) {
    return std::nullopt;
  }
  const auto thing = std::find_if(limitedThings.begin(), limitedThings.end(),
                                  [&](const LimitedThing& each) { return reason.starts_with(each.word); });
  const bool named = thing != limitedThings.end();
  if (named) {
    reason.remove_prefix(thing->word.size());
  } else if (!takePrefix(reason, "Unknown")) {
    return std::nullopt;
  }
  const bool inUse = takePrefix(reason, "RunMinutes");
  // Of time there is only a budget.
  const bool budget = !inUse && (takePrefix(reason, "Minutes") || (group && named && thing->word == "Wall"));
  const bool perUser = takePrefix(reason, "PerUser");
  const bool perAccount = !perUser && takePrefix(reason, "PerAccount");
  const bool perJob =
      !perUser && !perAccount && (takePrefix(reason, "PerJob") || takePrefix(reason, "PerNode"));
  takePrefix(reason, "NotSatisfied");
  takePrefix(reason, "Limit");
  if (!reason.empty() || (!account && !qos && !perAccount)) {
    return std::nullopt;
  }
  const std::string what(named ? thing->name : "resources");
  const std::string minutes = (inUse || budget) && what != "time" ? "minutes of " + what : what;
  const std::string whose = account ? "its account" : "its QOS";
  if (least) {
    return WaitingReason{true, "its QOS demands more " + what + " than it asks for",
                         "cancel it, and submit it anew with more, or with --set ClusterQos=NAME"};
  }
  if (group && budget) {
    return WaitingReason{true, whose + " has used up its " + minutes, askAdministrator};
  }
  if (perJob) {
    const std::string less =
        named && !thing->hint.empty() ? " with less: " + std::string(thing->hint) : " with less";
    return WaitingReason{true, "it asks for more " + minutes + " than " + whose + " allows a job",
                         "cancel it, and submit it anew" + less};
  }
  return WaitingReason{false,
                       (perUser      ? "a user of its QOS"
                        : perAccount ? "its account in its QOS"
                                     : whose) +
                           " may have no more " + minutes + " at a time",
                       {}};
}

std::string shortQuote(const std::string& text) {
  return inQuotes(text.size() > quoteWidth ? text.substr(0, quoteWidth) + "…" : text);
}

std::string onNode(const ClusterTask& task) {
  return task.node.empty() ? std::string() : " on node " + printable(task.node, OddBytes::Show);
}

// Slurm's own number for a task whose output file could not be opened.
constexpr int outputSignal = 53;

constexpr int exitUsageOfTask = 2;
constexpr int exitNotExecutable = 126;
constexpr int exitNotFound = 127;

TaskDeath failure(const ClusterTask& task) {
  TaskDeath death;
  const std::string taskLogHint = "the task's own log may tell why: task-INDEX.log in the folder of the job";
  // Slurm keeps some of the submissions that it refuses as failed tasks.
  if (task.reason == "BadConstraints") {
    death.neverBegan = true;
    death.text = "No node has what the task asks for";
    death.hint =
        "submit the job anew with less: --set CPUs=…, --set ClusterMemory=…; check ClusterOptions, too";
    return death;
  }
  if (WIFSIGNALED(task.waitStatus)) {
    const int signal = WTERMSIG(task.waitStatus);
    if (signal == outputSignal) {
      death.neverBegan = true;
      death.text = "Slurm could not open the task's log" + onNode(task);
      death.hint = "the folder of the job must be mounted there, and writable for you";
      return death;
    }
    death.text = "The task was killed by signal " + std::to_string(signal) + " (" + strsignal(signal) + ')' +
                 onNode(task);
    death.hint = signal == SIGKILL
                     ? "by somebody, or by the node when it ran out of memory: --set ClusterMemory=…"
                     : taskLogHint;
    return death;
  }
  const int code = WEXITSTATUS(task.waitStatus);
  if (code == exitNotFound) {
    death.neverBegan = true;
    death.text = "trovik was not found" + onNode(task);
    death.hint = "it must be there on every node; the key Program in the section [Slurm] of the settings "
                 "names its path";
  } else if (code == exitNotExecutable) {
    death.neverBegan = true;
    death.text = "trovik cannot be executed" + onNode(task);
    death.hint = "check its permissions and its kind of machine there";
  } else if (code == exitUsageOfTask) {
    death.neverBegan = true;
    death.text = "The task could not be read" + onNode(task);
    death.hint = taskLogHint;
  } else if (code == 0) {
    death.neverBegan = true;
    death.text = "Slurm could not start the task" + onNode(task);
    death.hint = "\"sinfo -R\" tells of nodes with problems";
  } else {
    death.text = "The task ended with exit code " + std::to_string(code) + onNode(task);
    death.hint = taskLogHint;
  }
  return death;
}

} // namespace

std::string WaitingReason::hintFor(std::int64_t array) const {
  std::string result = hint;
  if (const std::size_t at = result.find("ID"); at != std::string::npos) {
    result.replace(at, 2, std::to_string(array));
  }
  return result;
}

WaitingReason waitingReason(const std::string& state, const std::string& reason) {
  const auto known = std::find_if(knownReasons.begin(), knownReasons.end(),
                                  [&reason](const KnownReason& each) { return isWord(reason, each.word); });
  if (known != knownReasons.end() && !(reason.empty() && state != "PENDING")) {
    return {known->stuck, std::string(known->text), std::string(known->hint)};
  }
  if (const std::optional<WaitingReason> limit = limitReason(reason)) {
    return *limit;
  }
  if (state == "CONFIGURING") {
    return {false, "its node is being started", {}};
  }
  if (state == "REQUEUE_HOLD" || state == "SPECIAL_EXIT" || state == "RESV_DEL_HOLD") {
    return {true, "it is held", releaseIt};
  }
  if (reason.empty()) {
    return {false, "Slurm says " + shortQuote(state), {}};
  }
  return {false, "Slurm says " + shortQuote(reason), {}};
}

TaskDeath taskDeath(const ClusterTask& task) {
  TaskDeath death;
  const std::string& state = task.state;
  if (state == "FAILED") {
    return failure(task);
  }
  if (state == "TIMEOUT") {
    death.limits = true;
    death.text = "The task ran into its time limit";
    death.hint = "give it more with --set ClusterTimeLimit=…, or fewer works with --set WorksPerTask=1";
  } else if (state == "OUT_OF_MEMORY") {
    death.limits = true;
    death.text = "The task took more memory than it was given";
    death.hint = "give it more with --set ClusterMemory=…";
  } else if (state == "CANCELLED") {
    death.byHand = true;
    death.text = "The task was canceled in Slurm, not with trovik";
    death.hint = "\"trovik retry JOB\" submits it anew";
  } else if (state == "NODE_FAIL") {
    death.text =
        task.node.empty() ? "Its node failed" : "Node " + printable(task.node, OddBytes::Show) + " failed";
  } else if (state == "BOOT_FAIL") {
    death.neverBegan = true;
    death.text = "Its node could not be started";
  } else if (state == "PREEMPTED") {
    death.text = "The task had to make room for a job of higher priority";
  } else if (state == "REVOKED") {
    death.text = "The task was taken away by another cluster";
  } else if (state == "DEADLINE") {
    death.limits = true;
    death.text = "The deadline of the task is over";
    death.hint = "submit the job anew without the deadline in ClusterOptions";
  } else if (state == "COMPLETED") {
    death.text = "The task ended but left no result" + onNode(task);
    death.hint = "the folder of the job must be the same one there as here";
  } else if (state.empty()) {
    death.text = "Slurm knows nothing of the task any more";
  } else {
    death.text = "The task ended" + onNode(task) + ", Slurm says " + shortQuote(state);
  }
  return death;
}

} // namespace trovik
