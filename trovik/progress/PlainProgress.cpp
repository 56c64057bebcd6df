#include "trovik/progress/PlainProgress.h"

#include "trovik/progress/ProgressText.h"

namespace trovik {

void PlainProgress::print(JobId job, const std::string& text) {
  console_.print(severalJobs_ ? "job " + std::to_string(job) + "  " + text : text);
}

void PlainProgress::runStarted(const RunInfo& info) {
  console_.print(startText(console_, info));
}

void PlainProgress::workStarted(const WorkInfo& work) {
  std::string text = "started  " + work.title();
  if (work.attempt > 1) {
    text += "  attempt " + std::to_string(work.attempt) + " of " + std::to_string(work.attempts);
  }
  print(work.job, text + '\n');
}

void PlainProgress::image(const WorkInfo& work, const Path& file) {
  print(work.job, imageText(console_, file));
}

void PlainProgress::workEnded(const WorkInfo& work, const WorkResult& result) {
  switch (result.verdict) {
  case Verdict::Good:
    print(work.job, "finished  " + work.title() + "  " + durationText(result.duration) + '\n');
    break;
  case Verdict::Failed:
  case Verdict::Lost:
    print(work.job, failureText(console_, work, result));
    break;
  case Verdict::Canceled:
    print(work.job, "ended  " + work.title() +
                        (result.good.empty() ? "  not done\n" : "  only " + result.good.text() + " done\n"));
    break;
  }
}

void PlainProgress::interrupted(int times, std::size_t running) {
  console_.print(interruptText(console_, times, running));
}

void PlainProgress::runEnded(const RunSummary& summary) {
  print(summary.info.job, summaryText(console_, summary));
}

} // namespace trovik
