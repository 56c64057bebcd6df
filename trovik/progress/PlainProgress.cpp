#include "trovik/progress/Progress.h"

#include "trovik/progress/ProgressText.h"
#include "trovik/text/Json.h"

namespace trovik {
namespace {

class PlainProgress final : public RunEvents {
public:
  explicit PlainProgress(Console& console, bool severalJobs) : console_(console), severalJobs_(severalJobs) {}

  void runStarted(const RunInfo& info) override { console_.print(startText(console_, info)); }

  void workStarted(const WorkInfo& work) override {
    std::string text = "started  " + work.title();
    if (work.attempt > 1) {
      text += "  attempt " + std::to_string(work.attempt) + " of " + std::to_string(work.attempts);
    }
    print(work.job, text + '\n');
  }

  void image(const WorkInfo& work, const Path& file) override { print(work.job, imageText(console_, file)); }

  void workEnded(const WorkInfo& work, const WorkResult& result) override {
    switch (result.verdict) {
    case Verdict::Good:
      print(work.job, "finished  " + work.title() + "  " + durationText(result.duration) + '\n');
      break;
    case Verdict::Failed:
    case Verdict::Lost:
      print(work.job, failureText(console_, work, result));
      break;
    case Verdict::Canceled:
      print(work.job,
            "ended  " + work.title() +
                (result.good.empty() ? "  not done\n" : "  only " + result.good.text() + " done\n"));
      break;
    }
  }

  void interrupted(int times, std::size_t running) override {
    console_.print(interruptText(console_, times, running));
  }

  void runEnded(const RunSummary& summary) override {
    print(summary.info.job, summaryText(console_, summary));
  }

private:
  void print(JobId job, const std::string& text) {
    console_.print(severalJobs_ ? "job " + std::to_string(job) + "  " + text : text);
  }

  Console& console_;
  bool severalJobs_;
};

} // namespace

std::unique_ptr<RunEvents> plainProgress(Console& console, bool severalJobs) {
  return std::make_unique<PlainProgress>(console, severalJobs);
}

std::unique_ptr<RunEvents> progressFor(Console& console, bool json) {
  return json                        ? jsonProgress(console)
         : console.traits().terminal ? terminalProgress(console)
                                     : plainProgress(console);
}

void tellWatcher(Console& console, bool json, JobId job, const char* kind, const std::string& word,
                 const std::string& text) {
  if (json) {
    Json event = jsonOfKind(kind);
    event["job"] = job;
    console.print(jsonLine(event));
  } else {
    console.print(console.coloured(Colour::Yellow, word) + "  " + text + '\n');
  }
}

} // namespace trovik
