#include "trovik/EachJob.h"
#include "trovik/JobFiles.h"
#include "trovik/Session.h"
#include "trovik/Text.h"
#include "trovik/UsageError.h"
#include "trovik/Verbs.h"

namespace trovik {
namespace {

constexpr std::size_t rangesShown = 20;

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
std::optional<RunSet> chosenFrames(Store& store, const JobRecord& job, const Options& options,
                                   const RunSet& named) {
  if (options.missing) {
    refuseWithoutFrames(job, "--missing");
    return missingFrames(viewOf(store, job), filesOf(store, job.id));
  }
  if (!options.frames) {
    return std::nullopt;
  }
  refuseWithoutFrames(job, "--frames");
  const RunSet all = allFrames(store.frames(job.id));
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

JobDone retry(Store& store, const JobRecord& job, const Options& options, const RunSet& named) {
  const std::optional<RunSet> only = chosenFrames(store, job, options, named);
  const bool nothing = only && only->empty();
  const std::size_t count = nothing ? 0 : store.retry(job.id, only);
  const std::optional<JobRecord> now = store.job(job.id);
  const JobFrames frames = store.frames(job.id);
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

int retryJobs(Session& session) {
  const Options& options = session.options();
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
  bool waiting = false;
  return forEachJob(
      session, "retry",
      [&](Store& store, const JobRecord& job) {
        JobDone done = retry(store, job, options, named);
        const std::optional<JobRecord> now = store.job(job.id);
        waiting = waiting || (now && isOpen(now->state));
        return done;
      },
      [&](Store& store) {
        return waiting && !store.hasOtherEngine(0)
                   ? std::string("No engine is at work; start one with \"trovik engine\"\n")
                   : std::string();
      });
}

} // namespace trovik
