#pragma once

#include "trovik/machine/Machine.h"
#include "trovik/page/JobCells.h"
#include "trovik/page/QueueChanges.h"
#include "trovik/queue/JobView.h"
#include "trovik/text/Json.h"

#include <map>
#include <string>

namespace trovik {

/// What the page tells of jobs. What is costly to find out is kept until the
/// job changes. All calls throw a PageMissing for what is not there, and
/// QueueError.
class PageAnswers {
public:
  /// The revisions are those that somebody else keeps up to date.
  PageAnswers(Queue& queue, const Revisions& revisions, ImageInspector& inspector)
      : queue_(queue), revisions_(revisions), inspector_(inspector), states_(inspector) {}

  Json jobs();
  Json job(JobId id);
  /// The text of the document: a million cells make a large one.
  std::string cells(JobId id);
  const JobView& view(JobId id);
  /// As they were at most two seconds ago; they hold until the next call.
  const JobCells& cellsNow(JobId id);
  /// Whose files are looked at anew.
  RunSet missingNow(JobId id);

private:
  struct Kept {
    std::int64_t revision = 0;
    JobView view;
    std::string strip;
    std::optional<Duration> left; ///< a guess
  };
  struct LatestJob {
    JobId job = 0;
    std::int64_t revision = 0;
    Clock::time_point asked;
    Json document;
  };
  struct Latest {
    JobId job = 0;
    std::int64_t revision = 0;
    Clock::time_point asked;
    JobCells cells;
  };
  const Kept& kept(JobId id, JobRecord record);
  Json versionsOf(const JobRecord& job);

  Queue& queue_;
  const Revisions& revisions_;
  ImageInspector& inspector_;
  std::map<JobId, Kept> kept_;
  FileStates states_;
  Latest latest_;
  LatestJob latestJob_;
};

/// Thrown where there is nothing of that number.
struct PageMissing {
  std::string message;
};

} // namespace trovik
