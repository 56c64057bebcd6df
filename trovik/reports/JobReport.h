#pragma once

#include "trovik/images/ImageInspector.h"
#include "trovik/reports/ClusterReport.h"
#include "trovik/reports/JobPrograms.h"
#include "trovik/reports/JobTable.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace trovik {

/// All that one wants to know of a job at a glance.
struct JobReport {
  struct Running {
    AttemptRecord attempt;
    std::size_t files = 0; ///< that it has named so far
  };
  struct Failure {
    FailureGroup group;
    std::optional<AttemptRecord> attempt; ///< one that failed for this reason
  };

  JobView view;
  std::vector<Running> running;
  std::vector<AttemptRecord> lost; ///< their engine died
  std::vector<Failure> failures;
  std::vector<ProgramShare> programs;
  std::map<std::string, std::size_t> images;             ///< by directory
  std::vector<std::pair<LimitShare, LimitStand>> limits; ///< what a work takes, and how that stands
  std::optional<ProcessUsage> usage;                     ///< of all programs so far
  std::vector<JobId> followers;                          ///< jobs that wait for it
  RunSet gone;                          ///< frames that were good, with a file that is not good now
  std::optional<Duration> left;         ///< a guess, while works run
  bool engine = false;                  ///< one lives that may work off the job
  std::optional<ClusterReport> cluster; ///< of a job on one
};

/// How long the rest of a job takes, from what its good frames took so far and
/// the slots of the engines at work; nothing where no work runs, or none is good.
std::optional<Duration> timeLeft(Queue& queue, const JobView& view);

/// Its images are those that are good now; see filesNow.
JobReport reportOn(Queue& queue, JobRecord job, ImageInspector& inspector);

std::string reportText(const Console& console, const JobReport& report, Moment now);
Json reportJson(const JobReport& report, Moment now);

} // namespace trovik
