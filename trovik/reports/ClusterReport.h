#pragma once

#include "trovik/cluster/ClusterClient.h"
#include "trovik/queue/Queue.h"
#include "trovik/text/Json.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace trovik {

/// How the parts of a job stand that the cluster has.
struct ClusterReport {
  struct Group {
    ArrayRecord array;
    std::size_t works = 0;
    std::size_t tasks = 0;
    bool running = false;
    std::string state;  ///< the cluster's word
    std::string reason; ///< the same
    WaitingReason why;  ///< of waiting ones
  };
  std::vector<Group> groups;
  std::vector<AttemptBeat> beats;
  std::map<AttemptId, std::string> nodes;
  std::size_t unsubmitted = 0; ///< works that the cluster does not have yet
  ClusterContact contact;
};

ClusterReport clusterReport(Queue& queue, const JobRecord& job);

/// What is said of a running work behind its time: its node, and the last sign
/// of life.
std::string runningOnCluster(const ClusterReport& report, AttemptId attempt, Moment now);

/// The same for JSON.
void fillRunning(Json& json, const ClusterReport& report, AttemptId attempt, Moment now);

/// The entries of it: what and how.
std::vector<std::pair<std::string, std::string>> clusterEntries(const ClusterReport& report, Moment now);
Json clusterJson(const ClusterReport& report, Moment now);

} // namespace trovik
