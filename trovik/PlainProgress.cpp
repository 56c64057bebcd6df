#include "trovik/PlainProgress.h"

#include "trovik/ProgressText.h"

namespace trovik {

void PlainProgress::runStarted(const RunInfo& info) {
  console_.print(startText(console_, info));
}

void PlainProgress::workStarted(const WorkInfo& work) {
  std::string text = "started  " + work.title();
  if (work.attempt > 1) {
    text += "  attempt " + std::to_string(work.attempt) + " of " + std::to_string(work.attempts);
  }
  console_.print(text + '\n');
}

void PlainProgress::image(const WorkInfo& /*work*/, const Path& file) {
  console_.print(imageText(console_, file));
}

void PlainProgress::workEnded(const WorkInfo& work, const WorkResult& result) {
  switch (result.verdict) {
  case Verdict::Good:
    console_.print("finished  " + work.title() + "  " + durationText(result.duration) + '\n');
    break;
  case Verdict::Failed:
    console_.print(failureText(console_, work, result));
    break;
  case Verdict::Canceled:
    console_.print("ended  " + work.title() + "  not done\n");
    break;
  }
}

void PlainProgress::interrupted(int times, std::size_t running) {
  console_.print(interruptText(console_, times, running));
}

void PlainProgress::runEnded(const RunSummary& summary) {
  console_.print(summaryText(console_, summary));
}

} // namespace trovik
