#include "trovik/reports/ForerunnerText.h"

namespace trovik {
namespace {

std::string windowText(const Forerunner& forerunner) {
  if (!forerunner.byFrame) {
    return {};
  }
  const auto offset = [](int number) { return (number > 0 ? "+" : "") + std::to_string(number); };
  if (forerunner.low == 0 && forerunner.high == 0) {
    return ", frame by frame";
  }
  return ", each frame after those at " + offset(forerunner.low) +
         (forerunner.low == forerunner.high ? std::string() : " to " + offset(forerunner.high));
}

} // namespace

std::string jobsText(const std::vector<JobId>& jobs) {
  std::string text = jobs.size() == 1 ? "job" : "jobs";
  for (std::size_t i = 0; i < jobs.size(); ++i) {
    text += (i == 0 ? " " : i + 1 == jobs.size() ? " and " : ", ") + std::to_string(jobs[i]);
  }
  return text;
}

std::string numbersText(const std::vector<JobId>& jobs) {
  std::string text;
  for (const JobId job : jobs) {
    text += ' ' + std::to_string(job);
  }
  return text;
}

std::string standText(const ForerunnerStand& stand) {
  const std::string title = "job " + std::to_string(stand.forerunner.job);
  const std::string window = windowText(stand.forerunner);
  if (stand.forerunner.released) {
    return title + window + "; released";
  }
  if (!stand.state) {
    return title + " was deleted" + window;
  }
  switch (*stand.state) {
  case JobState::Failed:
    return title + " failed" + window;
  case JobState::Canceled:
  case JobState::Stopped:
    return title + " was " + nameOf(*stand.state) + window;
  default:
    return title + " is " + nameOf(*stand.state) + window;
  }
}

std::string remedyText(const ForerunnerStand& stand, JobId follower) {
  if (!stand.isStuck()) {
    return {};
  }
  const std::string forerunner = std::to_string(stand.forerunner.job);
  const std::string command = !stand.state ? std::string()
                              : *stand.state == JobState::Stopped
                                  ? "\"trovik release " + forerunner + "\" or "
                                  : "\"trovik retry " + forerunner + "\" or ";
  return command + "\"trovik release " + std::to_string(follower) + "\" lets this one go";
}

std::string blockText(const std::vector<ForerunnerStand>& stands, JobId follower) {
  std::string text;
  std::string remedy;
  for (const ForerunnerStand& stand : stands) {
    if (stand.isAwaited()) {
      text += (text.empty() ? "" : "; ") + standText(stand);
      remedy = remedy.empty() ? remedyText(stand, follower) : remedy;
    }
  }
  return remedy.empty() ? text : text + ": " + remedy;
}

Json forerunnersJson(const std::vector<ForerunnerStand>& stands) {
  Json json = Json::array();
  for (const ForerunnerStand& stand : stands) {
    json.push_back({{"job", stand.forerunner.job},
                    {"state", stand.state ? Json(nameOf(*stand.state)) : Json(nullptr)},
                    {"byFrame", stand.forerunner.byFrame},
                    {"low", stand.forerunner.low},
                    {"high", stand.forerunner.high},
                    {"released", stand.forerunner.released},
                    {"awaited", stand.isAwaited()}});
  }
  return json;
}

} // namespace trovik
