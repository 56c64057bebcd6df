#include "trovik/images/ImageHelper.h"
#include "trovik/progress/ProgressText.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/ClusterRun.h"
#include "trovik/verbs/EachJob.h"
#include "trovik/verbs/EngineRun.h"
#include "trovik/verbs/Session.h"
#include "trovik/verbs/Steer.h"
#include "trovik/verbs/Verbs.h"
#include "trovik/works/FilesNow.h"

namespace trovik {
namespace {

void refuseWithoutFrames(const JobRecord& job, const char* option) {
  if (!job.hasFrames) {
    throw UsageError{"job " + std::to_string(job.id) + " has no frames",
                     std::string("leave ") + option + " out to do its work again"};
  }
}

/// The frames, once it is sure that they are the job's.
RunSet framesOf(Queue& queue, const JobRecord& job, const RunSet& named) {
  refuseWithoutFrames(job, "--frames");
  const RunSet all = allFrames(queue.frames(job.id));
  const RunSet strange = without(named, all);
  if (!strange.empty()) {
    throw UsageError{"job " + std::to_string(job.id) + " has no frame" + (strange.count() == 1 ? " " : "s ") +
                         strange.text(10),
                     "its frames are " + all.text(10)};
  }
  return named;
}

/// `only` are the frames to be worked again; nothing for those that failed or
/// were canceled, which the queue knows best.
JobDone retryThese(Queue& queue, const JobRecord& job, const std::optional<RunSet>& only,
                   const char* otherwise) {
  const bool nothing = only && only->empty();
  const std::size_t count = nothing ? 0 : queue.retry(job.id, only);
  const std::optional<JobRecord> now = queue.job(job.id);
  const JobFrames frames = queue.frames(job.id);
  const std::string noun = job.hasFrames ? "frame" : "work";
  std::string text = "job " + std::to_string(job.id) + "  ";
  if (count > 0) {
    text += counted(count, noun) + " to do";
    const RunSet again = only ? common(frames.ready, *only) : frames.ready;
    text += job.hasFrames ? ": " + again.text(rangesShown) + '\n' : "\n";
  } else if (now && isOpen(now->state) && !isOpen(job.state)) {
    text += "goes on\n";
  } else {
    text += std::string(otherwise) + '\n';
  }
  return {text,
          {{"job", job.id},
           {"count", count},
           {"waiting", job.hasFrames ? Json(frames.ready.text()) : Json(nullptr)},
           {"state", now ? Json(nameOf(now->state)) : Json(nullptr)}}};
}

JobDone retryMissing(Queue& queue, const JobRecord& job, Decode decode, ImageInspector& helper) {
  refuseWithoutFrames(job, "--missing");
  const RunSet missing = filesNow(queue, viewOf(queue, job), decode, helper).missing;
  return retryThese(queue, job, missing, "nothing is missing");
}

} // namespace

RunSet framesToRetry(const std::string& text) {
  const FrameSet frames = orRefuse("--frames: ", "", [&] { return FrameSet::Parse(text); });
  RunSet runs;
  for (const FrameRun& run : frames.Split(FrameSet::k_CountLimit)) {
    runs.add(run);
  }
  if (runs.empty()) {
    throw UsageError{"--frames: the range is empty", "write frames such as 1-24"};
  }
  return runs;
}

JobDone retryJob(Queue& queue, const JobRecord& job, const std::optional<RunSet>& named) {
  const std::optional<RunSet> only = named ? std::optional(framesOf(queue, job, *named)) : std::nullopt;
  return retryThese(queue, job, only, "nothing to do");
}

int retryJobs(Session& session, const RetryOptions& options) {
  if (options.frames && options.missing) {
    throw UsageError{"--frames and --missing exclude each other", "leave one of them out"};
  }
  refuseVerifyAlone(options.verify, options.missing);
  const Decode decode = options.verify ? Decode::All : Decode::Doubtful;
  const std::optional<RunSet> named =
      options.frames ? std::optional(framesToRetry(*options.frames)) : std::nullopt;
  std::unique_ptr<ImageHelper> helper;
  if (options.missing) {
    helper = std::make_unique<ImageHelper>(imageHelper(session));
  }
  bool waiting = false;
  std::vector<JobId> onCluster;
  return forEachJob(
      session, options, "retry",
      [&](Queue& queue, const JobRecord& job) {
        JobDone done =
            options.missing ? retryMissing(queue, job, decode, *helper) : retryJob(queue, job, named);
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
        return waiting ? engineAdvice(queue) : std::string();
      });
}

} // namespace trovik
