#include "trovik/reports/ClusterReport.h"

#include "trovik/records/Moments.h"
#include "trovik/text/Text.h"

#include <algorithm>
#include <cmath>

namespace trovik {
namespace {

using namespace std::string_literals;

constexpr std::chrono::seconds usualSilence{30}; // a beat comes every few seconds, and is read now and then
constexpr double longSilence = 60;               // of a program, in seconds

const AttemptBeat* beatOf(const ClusterReport& report, AttemptId attempt) {
  const auto beat = std::find_if(report.beats.begin(), report.beats.end(),
                                 [&](const AttemptBeat& one) { return one.attempt == attempt; });
  return beat == report.beats.end() ? nullptr : &*beat;
}

/// A beat tells of the moment at which it was made.
double silenceOf(const AttemptBeat& beat, Moment now) {
  return beat.silent + secondsOf(between(beat.seen, now));
}

} // namespace

std::string runningOnCluster(const ClusterReport& report, AttemptId attempt, Moment now) {
  std::string text;
  if (const auto node = report.nodes.find(attempt); node != report.nodes.end() && !node->second.empty()) {
    text += ", on " + node->second;
  }
  const AttemptBeat* beat = beatOf(report, attempt);
  if (beat == nullptr) {
    return text + ", no sign of life yet";
  }
  if (now - beat->seen > usualSilence) {
    return text + ", last sign of life " + ageText(beat->seen, now) + " ago";
  }
  if (beat->stage != "running" && !beat->stage.empty()) {
    text += ", " + beat->stage;
  }
  if (const double silent = silenceOf(*beat, now); silent > longSilence && beat->stage == "running") {
    text += ", silent for " +
            durationText(std::chrono::duration_cast<Duration>(std::chrono::duration<double>(silent)));
  }
  return text +
         (beat->logBytes > 0 ? ", " + std::to_string(beat->logBytes) + " bytes of output" : std::string());
}

void fillRunning(Json& json, const ClusterReport& report, AttemptId attempt, Moment now) {
  const auto node = report.nodes.find(attempt);
  const AttemptBeat* beat = beatOf(report, attempt);
  json["node"] = node == report.nodes.end() || node->second.empty() ? Json(nullptr) : Json(node->second);
  json["sign"] = beat == nullptr ? Json(nullptr) : Json(secondsOf(between(beat->seen, now)));
  json["stage"] = beat == nullptr ? Json(nullptr) : Json(beat->stage);
  json["silent"] = beat == nullptr ? Json(nullptr) : Json(std::round(silenceOf(*beat, now) * 1000) / 1000);
  json["logBytes"] = beat == nullptr ? Json(nullptr) : Json(beat->logBytes);
}

ClusterReport clusterReport(Queue& queue, const JobRecord& job) {
  ClusterReport report;
  report.contact = queue.clusterContact();
  report.beats = queue.beats(job.id);
  report.unsubmitted = queue.worksToSubmit(job.id).size();
  for (const ArrayRecord& array : queue.openArrays(job.id)) {
    std::map<std::pair<std::string, std::string>, std::size_t> known;
    std::map<std::pair<std::string, std::string>, std::size_t> lastTask;
    for (const ArrayWork& work : queue.openArrayWorks(array.id)) {
      if (work.attempt != 0) {
        report.nodes[work.attempt] = work.node;
      }
      // One that was put back waits again, whatever it has begun.
      const bool running = work.attempt != 0 && work.state != "PENDING";
      // Of what is being ended nothing else is of interest.
      const std::pair key = array.canceling ? std::pair<std::string, std::string>()
                            : running       ? std::pair("running"s, ""s)
                                            : std::pair(work.state, work.reason);
      const auto [group, fresh] = known.emplace(key, report.groups.size());
      if (fresh) {
        report.groups.push_back(
            {array, 0, 0, running, work.state, work.reason,
             running || array.canceling ? WaitingReason() : waitingReason(work.state, work.reason)});
      }
      ClusterReport::Group& sum = report.groups[group->second];
      ++sum.works;
      const std::size_t task = work.position / array.perTask;
      const auto [last, first] = lastTask.emplace(key, task);
      if (first || last->second != task) {
        ++sum.tasks;
        last->second = task;
      }
    }
  }
  return report;
}

std::vector<std::pair<std::string, std::string>> clusterEntries(const ClusterReport& report, Moment now) {
  std::vector<std::pair<std::string, std::string>> entries;
  for (const ClusterReport::Group& group : report.groups) {
    const std::string array = group.array.cluster == 0 ? std::string("not submitted yet")
                                                       : "array job " + std::to_string(group.array.cluster);
    std::string text =
        array + ": " + counted(group.works, "work") + " in " + counted(group.tasks, "task") + ' ';
    if (group.array.canceling) {
      text += "being ended";
    } else if (group.running) {
      text += "running";
    } else if (group.state.empty()) {
      text += "waiting";
    } else {
      text += group.state + (group.reason.empty() || group.reason == "None" ? "" : ", " + group.reason);
      if (!group.why.text.empty()) {
        text += ": " + group.why.text;
      }
    }
    entries.emplace_back("cluster", std::move(text));
    if (group.why.stuck) {
      entries.emplace_back("stuck", group.why.hintFor(group.array.cluster));
    }
  }
  if (report.unsubmitted > 0) {
    entries.emplace_back("cluster", counted(report.unsubmitted, "work") + " not submitted yet");
  }
  if (!report.contact.problem.empty()) {
    entries.emplace_back("trouble", "Slurm has not answered for " + ageText(report.contact.answered, now) +
                                        ": " + report.contact.problem);
  }
  return entries;
}

Json clusterJson(const ClusterReport& report, Moment now) {
  Json json;
  json["arrays"] = Json::array();
  for (const ClusterReport::Group& group : report.groups) {
    json["arrays"].push_back({{"array", group.array.cluster == 0 ? Json(nullptr) : Json(group.array.cluster)},
                              {"name", group.array.name},
                              {"works", group.works},
                              {"tasks", group.tasks},
                              {"running", group.running},
                              {"canceling", group.array.canceling},
                              {"state", group.state.empty() ? Json(nullptr) : Json(group.state)},
                              {"reason", group.reason.empty() ? Json(nullptr) : Json(group.reason)},
                              {"stuck", group.why.stuck},
                              {"text", group.why.text.empty() ? Json(nullptr) : Json(group.why.text)},
                              {"hint", group.why.hint.empty() ? Json(nullptr) : Json(group.why.hint)}});
  }
  json["unplaced"] = report.unsubmitted;
  const bool ever = report.contact.answered != Moment{};
  json["answered"] = ever ? Json(secondsOf(between(report.contact.answered, now))) : Json(nullptr);
  json["problem"] = report.contact.problem.empty() ? Json(nullptr) : Json(report.contact.problem);
  return json;
}

} // namespace trovik
