#include "trovik/verbs/EngineRun.h"

#include "host/foundation/Log.h"
#include "trovik/images/ImageHelper.h"
#include "trovik/machine/Slices.h"
#include "trovik/progress/JobFollower.h"
#include "trovik/progress/Progress.h"
#include "trovik/progress/ProgressText.h"
#include "trovik/reports/ForerunnerText.h"
#include "trovik/text/Json.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/ClusterRun.h"
#include "trovik/verbs/Forerunners.h"
#include "trovik/verbs/Session.h"

#include <algorithm>
#include <memory>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

namespace trovik {
namespace {

/// The most programs that can run at a time: each takes three descriptors.
std::size_t mostSlots() {
  rlimit files{};
  if (getrlimit(RLIMIT_NOFILE, &files) != 0 || files.rlim_cur == RLIM_INFINITY) {
    return 10000;
  }
  return files.rlim_cur > 64 ? static_cast<std::size_t>(files.rlim_cur - 32) / 3 : 1;
}

Json continuedJson(const NewJob& job, const EnteredJob& entered) {
  const auto frames = [&](const RunSet& set) { return job.hasFrames ? Json(set.text()) : Json(nullptr); };
  return {{"state", nameOf(entered.before->state)},
          {"underWay", entered.before->underWay},
          {"kept", frames(entered.frames.good)},
          {"again", frames(entered.again)}};
}

const char* standText(const BegunJob& job) {
  switch (job.state) {
  case JobState::Failed:
    return "had failures";
  case JobState::Stopped:
    return "was stopped";
  case JobState::Waiting:
    return "is in the queue already";
  case JobState::Good:
    return "is good";
  default:
    return job.underWay ? "is under way" : "was not finished";
  }
}

std::string continuedText(const Console& console, const EnteredJob& entered) {
  const std::size_t kept = entered.frames.good.count();
  std::string text = console.coloured(Colour::Yellow, "goes on") + "  job " + std::to_string(entered.id) +
                     ' ' + standText(*entered.before) + "; ";
  text += kept == 0 ? "--new begins another\n"
                    : counted(kept, "good frame") + (kept == 1 ? " is" : " are") +
                          " kept, --new renders all anew\n";
  if (!entered.again.empty()) {
    text += console.coloured(Colour::Yellow, "again") + "  " + goneText(entered.again) + '\n';
  }
  return text;
}

} // namespace

Path imageHelper(const Session& session) {
  Path program = session.locations().imageHelper();
  if (access(program.c_str(), X_OK) != 0) {
    throw UsageError{"there is no program " + inQuotes(program.Text()) + ", which looks into images",
                     "install it beside trovik, or name it in TROVIK_IMAGE_HELPER"};
  }
  return program;
}

void settleLost(Session& session, Queue& queue) {
  if (!queue.hasLost()) {
    return;
  }
  try {
    session.loadModules();
  } catch (const UsageError& error) {
    LogDebug(error.message); // what was left is worked again then
  }
  LocalMachine machine;
  ImageHelper images(session.locations().imageHelper());
  recoverLost(queue, machine, images);
}

EnginePlan enginePlan(const std::optional<std::string>& slots) {
  EnginePlan plan;
  if (slots) {
    plan.slots = positiveNumber("--slots", *slots, mostSlots());
  } else {
    plan.slots = std::clamp<std::size_t>(std::thread::hardware_concurrency(), 1, mostSlots());
    plan.slotsAreCpus = true;
  }
  return plan;
}

int workOff(Console& console, Queue& queue, ImageInspector& images, Machine& machine, JobId job,
            EnginePlan plan, bool json) {
  SignalInterrupts interrupts;
  const std::unique_ptr<RunEvents> progress = progressFor(console, json);
  LocalEngine engine(machine, queue, images, interrupts, *progress);
  std::unique_ptr<JobFollower> others;
  BlockTeller block(console, queue, job, json);
  plan.only = job;
  plan.whenIdle = [&] {
    if (!others) {
      others = std::make_unique<JobFollower>(queue, job, *progress, engine.id());
    }
    others->poll();
    block.poll(engine.id());
  };
  const Clock::time_point begin = machine.now();
  wishForShortSlices();
  const bool stopped = !engine.run(plan);
  RunSummary summary = queue.summary(job);
  summary.info.slots = plan.slots;
  summary.interrupted = stopped;
  summary.duration = machine.now() - begin;
  progress->runEnded(summary);
  if (const std::optional<JobRecord> record = queue.job(job); record && !json) {
    if (record->state == JobState::Stopped && !stopped) {
      console.print(console.coloured(Colour::Yellow, "stopped") + "  " + console.shown(record->note) + '\n');
    }
  }
  return summary.allGood() ? exitGood : exitFailed;
}

int workQueue(Session& session, Queue& queue, ImageInspector& images, Machine& machine,
              const EngineOptions& options) {
  Console& console = session.console();
  EnginePlan plan = enginePlan(options.slots);
  plan.untilEmpty = options.untilEmpty;
  if (options.job) {
    const JobRecord record = findJob(&queue, *options.job);
    const JobId job = record.id;
    queue.resume(job);
    if (record.runOn == RunOn::Cluster) {
      return followCluster(session, queue, job, options.json);
    }
    return workOff(console, queue, images, machine, job, plan, options.json);
  }
  SignalInterrupts interrupts;
  std::unique_ptr<RunEvents> progress;
  if (options.json) {
    progress = progressFor(console, true);
  } else {
    console.print("engine on " + counted(plan.slots, "slot") + '\n' + "queue  " +
                  console.shown(queue.directory().Text()) + '\n');
    progress = plainProgress(console, true);
  }
  LocalEngine engine(machine, queue, images, interrupts, *progress);
  const std::shared_ptr<ClusterEngine> cluster = engineBeside(session, queue, options.json);
  if (cluster) {
    plan.withCluster = true;
    plan.whenIdle = [&] { cluster->advance(); };
  }
  wishForShortSlices();
  engine.run(plan);
  return exitGood;
}

void tellGoesOn(Console& console, const NewJob& job, const EnteredJob& entered, bool asJson) {
  if (asJson) {
    Json json = jsonOfKind("run.continued");
    json["job"] = entered.id;
    json.update(continuedJson(job, entered));
    console.print(jsonLine(json));
  } else {
    console.print(continuedText(console, entered));
  }
}

void tellSubmitted(Console& console, Queue& queue, const NewJob& newJob, const EnteredJob& entered,
                   bool asJson, const std::string& title) {
  const JobId id = entered.id;
  const JobFrames& frames = entered.frames;
  const bool hasFrames = newJob.hasFrames;
  const bool onCluster = newJob.runOn == RunOn::Cluster;
  const bool engine = onCluster ? !queue.openArrays(id).empty() : queue.hasOtherEngine(0);
  const std::size_t count = hasFrames ? frames.ready.count() : frames.readyWorks;
  if (asJson) {
    Json json = jsonOfKind("job.submitted");
    json["job"] = id;
    json["section"] = title.empty() ? Json(nullptr) : Json(title);
    json["frames"] = hasFrames ? Json(frames.ready.text()) : Json(nullptr);
    json["found"] = hasFrames ? Json(frames.good.text()) : Json(nullptr);
    json["works"] = frames.readyWorks;
    json["engine"] = engine;
    json["continued"] = entered.before ? continuedJson(newJob, entered) : Json(nullptr);
    json["after"] = forerunnersJson(standsOf(queue, id));
    if (onCluster) {
      json["arrays"] = arraysJson(queue, id);
    }
    console.print(jsonLine(json));
    return;
  }
  std::string text = entered.before ? continuedText(console, entered) : std::string();
  text += (title.empty() ? std::string() : console.shown(title) + "  ") +
          console.coloured(Colour::Bold, "job " + std::to_string(id)) + "  " +
          counted(count, hasFrames ? "frame" : "work");
  if (hasFrames && count > 0) {
    text += " (" + cutToWidth(frames.ready.text(), 60) + ")";
  }
  if (!frames.good.empty()) {
    text += ", " + std::to_string(frames.good.count()) + " good already";
  }
  text += '\n';
  if (const std::vector<ForerunnerStand> stands = standsOf(queue, id); !awaitedIn(stands).empty()) {
    text += "waits  " + blockText(stands, id) + '\n';
  }
  if (const std::optional<JobRecord> job = queue.job(id); onCluster && job) {
    text += arraysText(console, queue, *job);
  } else if (!engine && title.empty()) {
    text += "No engine is at work; start one with \"trovik engine\"\n";
  }
  console.print(text);
}

int tellNothingMissing(Console& console, const NewJob& job, bool asJson) {
  RunSet found;
  for (const FrameRun& run : job.found) {
    found.add(run);
  }
  if (asJson) {
    Json json = jsonOfKind("run.complete");
    json["frames"] = job.hasFrames ? Json(found.text()) : Json(nullptr);
    console.print(jsonLine(json));
  } else {
    console.print(job.hasFrames ? "nothing is missing: " +
                                      (found.count() == 1
                                           ? std::string("the frame has a good file")
                                           : "all " + counted(found.count(), "frame") + " have good files") +
                                      '\n'
                                : std::string("nothing is missing: the files are good\n"));
  }
  return exitGood;
}

} // namespace trovik
