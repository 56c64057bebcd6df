#pragma once

#include "trovik/records/RunEvents.h"
#include "trovik/text/Console.h"

#include <string>
#include <vector>

namespace trovik {

constexpr std::size_t rangesShown = 20;  ///< runs of frames in one line
constexpr std::size_t reasonsShown = 20; ///< different reasons in a summary

// The texts that the readers for people share. Each is whole lines, ready for
// one print.

/// What is going to be done: type, frames, slots, scene and logs.
std::string startText(const Console& console, const RunInfo& info);

/// "image  /shots/a.0001.png".
std::string imageText(const Console& console, const Path& file);

/// What failed and why, with the lines of its output that tell more.
std::string failureText(const Console& console, const WorkInfo& work, const WorkResult& result);

/// The end of a run: what is good, what failed and why, what is not done,
/// where images and logs are, and what to do next.
std::string summaryText(const Console& console, const RunSummary& summary);

/// "3,5  their files are gone, damaged or changed since": frames that were good.
std::string goneText(const RunSet& frames);

/// "23 of 24 frames good, 1 failed", without colours.
std::string summaryLine(const RunSummary& summary);

/// A command that the user may give next, and what it does.
struct Advice {
  std::string command;
  std::string what;
};

/// What is known of a job that is not good.
struct RestOfJob {
  JobId job = 0;
  JobState state = JobState::Failed;
  bool failed = false; ///< works of it
  bool canceled = false;
  bool onCluster = false;
  bool blocked = false; ///< it waits for other jobs
  bool engine = false;  ///< one is at work that takes its works
};

/// How the rest of a job gets done, the first the one to give; none for a job of
/// which nothing is left.
std::vector<Advice> adviceOn(const RestOfJob& rest);

/// The answer to a first or further wish to stop.
std::string interruptText(const Console& console, int times, std::size_t running);

} // namespace trovik
