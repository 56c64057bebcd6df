#include "trovik/verbs/EachJob.h"

#include "trovik/queue/JobView.h"
#include "trovik/text/Console.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/ClusterRun.h"
#include "trovik/verbs/EngineRun.h"

#include <algorithm>
#include <fnmatch.h>
#include <iostream>
#include <set>
#include <unistd.h>

namespace trovik {
namespace {

/// Whether a text is like a pattern, in which "*" and "?" stand for letters; by
/// any case.
bool isLike(const std::string& text, const std::string& pattern) {
  return fnmatch(String(pattern).Lower().c_str(), String(text).Lower().c_str(), 0) == 0;
}

bool isChosen(Queue& queue, const JobRecord& job, const EachJobOptions& options) {
  return (!options.type || isLike(job.typeName, *options.type)) &&
         (!options.name || isLike(titleOf(job), *options.name)) &&
         (!options.status || *options.status == nameOf(job.state) ||
          *options.status == nameOf(shownState(viewOf(queue, job))));
}

/// The numbers of the jobs that the options choose, the oldest first, once the
/// user has agreed to them.
std::vector<std::string> chosenJobs(Console& console, Queue* queue, const EachJobOptions& options,
                                    const std::string& verb) {
  JobState state{};
  if (options.status && !fromName(*options.status, state)) {
    throw UsageError{"--status: there is no state " + inQuotes(*options.status),
                     "write waiting, running, good, failed, canceled or stopped"};
  }
  std::vector<std::string> numbers;
  for (const JobRecord& job : queue == nullptr ? std::vector<JobRecord>() : queue->jobs()) {
    if (isChosen(*queue, job, options)) {
      numbers.insert(numbers.begin(), std::to_string(job.id));
    }
  }
  if (numbers.empty() || options.yes || options.dryRun) {
    return numbers;
  }
  constexpr std::size_t shown = 20;
  std::string list;
  for (std::size_t i = 0; i < std::min(numbers.size(), shown); ++i) {
    list += (i == 0 ? "" : " ") + numbers[i];
  }
  list += numbers.size() > shown ? " and " + std::to_string(numbers.size() - shown) + " more" : "";
  const std::string what = verb + ' ' + counted(numbers.size(), "job") + " (" + list + ")";
  if (isatty(STDIN_FILENO) != 1 || !console.traits().errorTerminal || options.json) {
    throw UsageError{"to " + what + ", give --yes",
                     "--dry-run tells what would be done, where the verb has it"};
  }
  console.printError(what + "? [y/N] ");
  std::string answer;
  std::getline(std::cin, answer);
  if (answer != "y" && answer != "Y" && answer != "yes") {
    throw UsageError{"nothing was done", ""};
  }
  return numbers;
}

} // namespace

JobDone tried(Queue& queue, const JobRecord& job,
              const std::function<JobDone(Queue& queue, const JobRecord& job)>& action) {
  struct Undo {};
  JobDone done;
  try {
    queue.inTransaction([&] {
      done = action(queue, job);
      throw Undo{};
    });
  } catch (const Undo&) {
  }
  return done;
}

std::string engineAdvice(Queue& queue) {
  return queue.hasOtherEngine(0) ? std::string() : "No engine is at work; start one with \"trovik engine\"\n";
}

int forEachJob(Session& session, const EachJobOptions& options, const char* kind,
               const std::function<JobDone(Queue& queue, const JobRecord& job)>& action,
               const std::function<std::string(Queue& queue)>& finally) {
  Console& console = session.console();
  if (options.jobs.empty() && !options.areChosen()) {
    throw UsageError{"\"trovik " + std::string(kind) +
                         "\" needs the number of a job, or \"last\" for the newest",
                     "\"trovik jobs\" lists them; --status, --type and --name choose several"};
  }
  if (!options.jobs.empty() && options.areChosen()) {
    throw UsageError{"numbers of jobs and --status, --type or --name exclude each other",
                     "leave one of them out"};
  }
  for (const std::string& text : options.jobs) {
    jobNumber(text);
  }
  const std::unique_ptr<Queue> queue = collectedQueue(session);
  if (queue != nullptr) {
    settleLost(session, *queue);
  }
  std::vector<std::string> names = options.jobs;
  if (options.areChosen()) {
    names = chosenJobs(console, queue.get(), options, kind);
    if (names.empty() && !options.json) {
      console.print("no job is like that\n");
    }
  }
  // "last" means the job that was the newest when all began.
  std::string newest = "last";
  if (queue != nullptr) {
    if (const std::vector<JobRecord> jobs = queue->jobs(); !jobs.empty()) {
      newest = std::to_string(jobs.front().id);
    }
  }
  Json document = jsonOfKind(kind);
  document["jobs"] = Json::array();
  document["problems"] = Json::array();
  std::string text;
  std::set<JobId> seen;
  for (const std::string& name : names) {
    const auto refuse = [&](const UsageError& error) {
      printRefusal(console, error);
      document["problems"].push_back({{"job", name},
                                      {"message", error.message},
                                      {"hint", error.hint.empty() ? Json(nullptr) : Json(error.hint)}});
    };
    try {
      const std::string known = name == "last" ? newest : name;
      if (!seen.insert(jobNumber(known)).second) {
        continue;
      }
      const JobRecord job = findJob(queue.get(), known);
      JobDone done = options.dryRun ? tried(*queue, job, action) : action(*queue, job);
      document["jobs"].push_back(std::move(done.json));
      text += done.text;
    } catch (const UsageError& error) {
      refuse(error);
    } catch (const QueueError& error) {
      refuse({error.message, error.hint});
    }
  }
  const bool some = !document["jobs"].empty();
  if (options.dryRun) {
    document["dryRun"] = true;
    text += some ? "nothing was changed: this was a dry run\n" : "";
  } else if (some && finally) {
    text += finally(*queue);
  }
  if (options.json) {
    console.print(jsonDocument(document));
  } else if (!text.empty()) {
    console.print(text);
  }
  return document["problems"].empty() ? exitGood : some ? exitFailed : exitUsage;
}

} // namespace trovik
