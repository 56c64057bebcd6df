#include "trovik/DryRun.h"

#include "host/application/RenderJob.h"
#include "host/foundation/Quoting.h"
#include "trovik/Json.h"
#include "trovik/UsageError.h"
#include "trovik/WorkJob.h"

#include <map>
#include <optional>

namespace trovik {
namespace {

/// The changes as they come out in the end: the value that each variable gets,
/// or nothing where it is removed.
std::map<String, std::optional<String>> environmentChanges(const ProcessStart& start) {
  std::map<String, std::optional<String>> changes = {{"LC_ALL", String("C.UTF-8")}, {"LANGUAGE", std::nullopt}};
  for (const auto& [name, value] : start.Environment) {
    changes[name] = value;
  }
  return changes;
}

Json commandJson(const ProcessStart& start, const WorkInfo& work) {
  Json json = jsonOfKind("work.command");
  json["frames"] = work.hasFrames ? Json(work.title()) : Json(nullptr);
  json["arguments"] = std::vector<std::string>(start.Arguments.begin(), start.Arguments.end());
  json["directory"] = start.StartDirectory.empty() ? Json(nullptr) : Json(start.StartDirectory.Text());
  json["environment"] = {{"set", Json::object()}, {"unset", Json::array()}};
  for (const auto& [name, value] : environmentChanges(start)) {
    if (value) {
      json["environment"]["set"][name] = *value;
    } else {
      json["environment"]["unset"].push_back(name);
    }
  }
  return json;
}

/// Each line of the text made visible for a terminal, which must obey no name.
std::string visibleLines(const Console& console, const std::string& text) {
  return console.traits().terminal ? console.shown(text) : text;
}

} // namespace

std::string shellText(const ProcessStart& start) {
  std::vector<String> words = {"env"};
  std::vector<String> assignments;
  for (const auto& [name, value] : environmentChanges(start)) {
    if (value) {
      assignments.push_back(name + "=" + *value);
    } else {
      words.insert(words.end(), {"-u", name});
    }
  }
  words.insert(words.end(), assignments.begin(), assignments.end());
  if (!start.Arguments.empty() && start.Arguments.front().find('=') != String::npos) {
    // env would take such a program for one more variable.
    words.insert(words.end(), {"sh", "-c", "exec \"$0\" \"$@\""});
  }
  words.insert(words.end(), start.Arguments.begin(), start.Arguments.end());
  const std::string command = JoinCommandLine(words);
  return start.StartDirectory.empty() ? command
                                      : "(cd " + start.StartDirectory.Enquote() + " && " + command + ")";
}

void printDryRun(Console& console, const SmartHandle<Job>& job, bool json) {
  const WorkMaker maker(*job);
  const std::unique_ptr<Distributor> works = job->DoGetDistributor();
  WorkInfo work;
  while (works->Next(work.run, work.hasFrames)) {
    const SmartHandle<Job> attempt = maker.make(work);
    auto& process = dynamic_cast<ProcessJob&>(*attempt);
    const ProcessStart start = orRefuse("", "", [&] { return process.DescribeWork(); });
    console.print(json ? jsonLine(commandJson(start, work)) : visibleLines(console, shellText(start)) + '\n');
  }
}

} // namespace trovik
