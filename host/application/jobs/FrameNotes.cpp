#include "host/application/jobs/FrameNotes.h"

namespace {

// Runs of frames that a note lists.
constexpr std::size_t k_ListedRuns = 10;

} // namespace

void AppendFrame(std::vector<FrameRun>& runs, int frame) {
  if (!runs.empty() && std::int64_t{runs.back().Last} + 1 == frame) {
    runs.back().Last = frame;
  } else {
    runs.push_back({frame, frame});
  }
}

String FramesText(const std::vector<FrameRun>& runs) {
  String text;
  std::int64_t unlisted = 0;
  for (std::size_t i = 0; i < runs.size(); ++i) {
    if (i >= k_ListedRuns) {
      unlisted += runs[i].Count();
    } else {
      text += (i == 0 ? "" : ",") + (runs[i].Count() == 1 ? std::to_string(runs[i].First) : runs[i].Text());
    }
  }
  if (unlisted > 0) {
    text += " and " + std::to_string(unlisted) + " more";
  }
  return (runs.size() == 1 && runs[0].Count() == 1 ? "frame " : "frames ") + text;
}
