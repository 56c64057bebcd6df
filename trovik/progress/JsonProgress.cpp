#include "trovik/progress/Progress.h"

#include "trovik/records/Moments.h"
#include "trovik/text/Json.h"

namespace trovik {
namespace {

Json jobOrNull(JobId job) {
  return job == 0 ? Json(nullptr) : Json(job);
}

Json eventOf(const char* kind, const WorkInfo& work) {
  Json event = jsonOfKind(kind);
  event["job"] = jobOrNull(work.job);
  event["frames"] = work.hasFrames ? Json(work.title()) : Json(nullptr);
  event["attempt"] = work.attempt;
  event["attempts"] = work.attempts;
  return event;
}

class JsonProgress final : public RunEvents {
public:
  explicit JsonProgress(Console& console) : console_(console) {}

  void runStarted(const RunInfo& info) override {
    Json event = jsonOfKind("run.started");
    event["job"] = jobOrNull(info.job);
    event["name"] = textOrNull(info.name);
    event["type"] = info.type;
    event["scene"] = textOrNull(info.scene);
    event["range"] = info.hasFrames ? Json(info.range) : Json(nullptr);
    event["frames"] = info.hasFrames ? Json(info.frames) : Json(nullptr);
    event["works"] = info.works;
    event["goodBefore"] = info.goodBefore;
    event["slots"] = info.slots;
    event["logs"] = textOrNull(info.logs.Text());
    console_.print(jsonLine(event));
  }

  void workStarted(const WorkInfo& work) override { console_.print(jsonLine(eventOf("work.started", work))); }

  void image(const WorkInfo& work, const Path& file) override {
    Json event = eventOf("work.image", work);
    event["file"] = file.Text();
    console_.print(jsonLine(event));
  }

  void workEnded(const WorkInfo& work, const WorkResult& result) override {
    const char* kind = result.verdict == Verdict::Good     ? "work.finished"
                       : result.verdict == Verdict::Failed ? "work.failed"
                       : result.verdict == Verdict::Lost   ? "work.lost"
                                                           : "work.canceled";
    Json event = eventOf(kind, work);
    event["seconds"] = secondsOf(result.duration);
    event["log"] = textOrNull(result.log.Text());
    event["good"] = nullptr;
    if (work.hasFrames) {
      event["good"] = result.verdict == Verdict::Good ? work.title() : result.good.text();
    }
    if (result.verdict == Verdict::Failed || result.verdict == Verdict::Lost) {
      event["rule"] = result.rule == VerdictRule::None ? Json(nullptr) : Json(nameOf(result.rule));
      event["reason"] = result.reason;
      event["lines"] = result.lines;
      event["again"] = result.again;
    }
    console_.print(jsonLine(event));
  }

  void interrupted(int times, std::size_t running) override {
    Json event = jsonOfKind("run.interrupted");
    event["times"] = times;
    event["running"] = running;
    console_.print(jsonLine(event));
  }

  void runEnded(const RunSummary& summary) override {
    Json event = jsonOfKind("run.summary");
    event["job"] = jobOrNull(summary.info.job);
    event["interrupted"] = summary.interrupted;
    event["seconds"] = secondsOf(summary.duration);
    event["works"] = {
        {"good", summary.goodWorks}, {"failed", summary.failedWorks}, {"notDone", summary.notDoneWorks}};
    event["frames"] = nullptr;
    if (summary.info.hasFrames) {
      event["frames"] = {{"good", summary.good.text()},
                         {"failed", summary.failed.text()},
                         {"notDone", summary.notDone.text()}};
    }
    event["failures"] = Json::array();
    for (const FailureGroup& group : summary.failures) {
      event["failures"].push_back(
          {{"frames", summary.info.hasFrames ? Json(group.frames.text()) : Json(nullptr)},
           {"works", group.works},
           {"reason", group.reason},
           {"log", textOrNull(group.log.Text())}});
    }
    event["images"] = Json::array();
    for (const auto& [directory, count] : summary.images) {
      event["images"].push_back({{"directory", directory}, {"count", count}});
    }
    event["logs"] = textOrNull(summary.info.logs.Text());
    console_.print(jsonLine(event));
  }

private:
  Console& console_;
};

} // namespace

std::unique_ptr<RunEvents> jsonProgress(Console& console) {
  return std::make_unique<JsonProgress>(console);
}

} // namespace trovik
