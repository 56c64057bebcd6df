#include "trovik/reports/DryRun.h"

#include "host/application/jobs/RenderJob.h"
#include "host/foundation/Quoting.h"
#include "trovik/jobs/WorkMaker.h"
#include "trovik/text/Json.h"
#include "trovik/text/UsageError.h"

#include <map>
#include <optional>

namespace trovik {
namespace {

/// The changes as they come out in the end: the value that each variable gets,
/// or nothing where it is removed.
std::map<String, std::optional<String>> environmentChanges(const ProcessStart& start) {
  std::map<String, std::optional<String>> changes = {{"LC_ALL", String("C.UTF-8")},
                                                     {"LANGUAGE", std::nullopt}};
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

/// One word for a shell at a prompt: as the host quotes, but names with "!" in
/// single quotes, since interactive shells look for events in double ones.
std::string shellWord(const String& word) {
  if (word.find('!') == String::npos) {
    return EnquoteWord(word);
  }
  std::string quoted = "'";
  for (const char c : word) {
    quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  return quoted + '\'';
}

/// The text made visible for a terminal, which must obey no name.
std::string visibleText(const Console& console, const std::string& text) {
  return console.traits().terminal ? console.shown(text) : text;
}

} // namespace

std::string shellText(const ProcessStart& start) {
  std::string unset;
  std::string set;
  for (const auto& [name, value] : environmentChanges(start)) {
    if (value) {
      set += ' ' + shellWord(name) + '=' + shellWord(*value);
    } else {
      unset += " -u " + shellWord(name);
    }
  }
  std::string command = "env" + unset + set;
  if (!start.Arguments.empty() && start.Arguments.front().find('=') != String::npos) {
    // env would take such a program for one more variable.
    command += " sh -c 'exec \"$0\" \"$@\"'";
  }
  for (const String& word : start.Arguments) {
    command += ' ' + shellWord(word);
  }
  return start.StartDirectory.empty()
             ? command
             : "(cd " + shellWord(start.StartDirectory.Text()) + " && " + command + ")";
}

void printDryRun(Console& console, const NewJob& job, bool json) {
  const WorkMaker maker(job.type, job.packed);
  WorkInfo work;
  work.hasFrames = job.hasFrames;
  for (const FrameRun& run : job.works) {
    work.run = run;
    const ProcessStart start = orRefuse("", "", [&] {
      const SmartHandle<Job> attempt = maker.make(work);
      return dynamic_cast<ProcessJob&>(*attempt).DescribeWork();
    });
    console.print(json ? jsonLine(commandJson(start, work)) : visibleText(console, shellText(start)) + '\n');
  }
}

} // namespace trovik
