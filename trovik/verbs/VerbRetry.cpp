#include "trovik/images/ImageHelper.h"
#include "trovik/progress/ProgressText.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/ClusterRun.h"
#include "trovik/verbs/EachJob.h"
#include "trovik/verbs/EngineRun.h"
#include "trovik/verbs/Session.h"
#include "trovik/verbs/Verbs.h"
#include "trovik/works/FilesNow.h"

namespace trovik {
namespace {

RunSet runsOf(const FrameSet& frames) {
  RunSet runs;
  for (const FrameRun& run : frames.Split(FrameSet::k_CountLimit)) {
    runs.add(run);
  }
  return runs;
}

void refuseWithoutFrames(const JobRecord& job, const char* option) {
  if (!job.hasFrames) {
    throw UsageError{"job " + std::to_string(job.id) + " has no frames",
                     std::string("leave ") + option + " out to do its work again"};
  }
}

/// The frames to be worked again; nothing for those that failed or were
/// canceled, which the queue knows best.
std::optional<RunSet> chosenFrames(Queue& queue, const JobRecord& job, const RetryOptions& options,
                                   const RunSet& named, ImageInspector* helper) {
  if (options.missing) {
    refuseWithoutFrames(job, "--missing");
    return filesNow(queue, viewOf(queue, job), Decode::All, *helper).missing;
  }
  if (!options.frames) {
    return std::nullopt;
  }
  refuseWithoutFrames(job, "--frames");
  const RunSet all = allFrames(queue.frames(job.id));
  RunSet strange;
  for (const FrameRun& run : named.runs()) {
    for (std::int64_t frame = run.First; frame <= run.Last; ++frame) {
      if (!all.contains(static_cast<int>(frame))) {
        strange.add({static_cast<int>(frame), static_cast<int>(frame)});
      }
    }
  }
  if (!strange.empty()) {
    throw UsageError{"job " + std::to_string(job.id) + " has no frame" + (strange.count() == 1 ? " " : "s ") +
                         strange.text(10),
                     "its frames are " + all.text(10)};
  }
  return named;
}

JobDone retry(Queue& queue, const JobRecord& job, const RetryOptions& options, const RunSet& named,
              ImageInspector* helper) {
  const std::optional<RunSet> only = chosenFrames(queue, job, options, named, helper);
  const bool nothing = only && only->empty();
  const std::size_t count = nothing ? 0 : queue.retry(job.id, only);
  const std::optional<JobRecord> now = queue.job(job.id);
  const JobFrames frames = queue.frames(job.id);
  const std::string noun = job.hasFrames ? "frame" : "work";
  std::string text = "job " + std::to_string(job.id) + "  ";
  if (count > 0) {
    text += counted(count, noun) + " to do";
    text += job.hasFrames ? ": " + frames.ready.text(rangesShown) + '\n' : "\n";
  } else if (now && isOpen(now->state) && !isOpen(job.state)) {
    text += "goes on\n";
  } else {
    text += options.missing ? "nothing is missing\n" : "nothing to do\n";
  }
  return {text,
          {{"job", job.id},
           {"count", count},
           {"waiting", job.hasFrames ? Json(frames.ready.text()) : Json(nullptr)},
           {"state", now ? Json(nameOf(now->state)) : Json(nullptr)}}};
}

} // namespace

int retryJobs(Session& session, const RetryOptions& options) {
  if (options.frames && options.missing) {
    throw UsageError{"--frames and --missing exclude each other", "leave one of them out"};
  }
  RunSet named;
  if (options.frames) {
    named = runsOf(orRefuse("--frames: ", "", [&] { return FrameSet::Parse(*options.frames); }));
    if (named.empty()) {
      throw UsageError{"--frames: the range is empty", "write frames such as 1-24"};
    }
  }
  std::unique_ptr<ImageHelper> helper;
  if (options.missing) {
    helper = std::make_unique<ImageHelper>(imageHelper(session));
  }
  bool waiting = false;
  std::vector<JobId> onCluster;
  return forEachJob(
      session, options, "retry",
      [&](Queue& queue, const JobRecord& job) {
        JobDone done = retry(queue, job, options, named, helper.get());
        const std::optional<JobRecord> now = queue.job(job.id);
        if (now && isOpen(now->state) && now->runOn == RunOn::Cluster) {
          onCluster.push_back(job.id);
        } else {
          waiting = waiting || (now && isOpen(now->state));
        }
        return done;
      },
      [&](Queue& queue) {
        for (const JobId job : onCluster) {
          submitToCluster(session, queue, job, options.json);
        }
        return waiting && !queue.hasOtherEngine(0)
                   ? std::string("No engine is at work; start one with \"trovik engine\"\n")
                   : std::string();
      });
}

} // namespace trovik
