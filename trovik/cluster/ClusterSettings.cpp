#include "trovik/cluster/ClusterSettings.h"

#include "host/application/Application.h"
#include "host/application/Constants.h"
#include "host/application/ParameterInfo.h"
#include "host/application/jobs/ProcessJob.h"
#include "host/foundation/Quoting.h"
#include "trovik/jobs/JobSetup.h"
#include "trovik/text/Amounts.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace trovik {
namespace {

constexpr int leastPatience = 1;
constexpr int mostPatience = 86400;

std::chrono::seconds patienceFrom(const std::string& text) {
  int seconds = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  if (error != std::errc() || end != text.data() + text.size() || seconds < leastPatience ||
      seconds > mostPatience) {
    throw UsageError{"settings, section [Slurm]: Patience " + inQuotes(text) + " is no number of seconds",
                     "write a whole number from 1 to 86400; 90 is usual"};
  }
  return std::chrono::seconds(seconds);
}

void take(ClusterSettings& settings, const String& key, const String& value) {
  if (String::EqualNoCase(key, "Default")) {
    settings.isDefault = value.Bool();
  } else if (String::EqualNoCase(key, "Folder")) {
    settings.folder = Path(value);
  } else if (String::EqualNoCase(key, "Program")) {
    settings.program = Path(value);
  } else if (String::EqualNoCase(key, "Patience")) {
    settings.patience = patienceFrom(value);
  } else {
    throw UsageError{"settings, section [Slurm]: there is no key " + inQuotes(key),
                     "its keys are Default, Folder, Program and Patience"};
  }
}

constexpr double secondsWanted = 60;    // of a task
constexpr std::size_t tasksWanted = 64; // a job may use so many nodes before its works share tasks

int number(const Job& job, const char* name, int least) {
  const String text = effectiveValue(job, name);
  int result = least;
  std::from_chars(text.data(), text.data() + text.size(), result);
  return std::max(result, least);
}

std::vector<std::string> optionWords(const String& text) {
  const std::vector<String> words =
      orRefuse(std::string(p_ClusterOptions) + ": ", "write them as for a shell",
               [&] { return SplitCommandLine(text); });
  for (const String& word : words) {
    if (word.empty() || word.front() != '-') {
      throw UsageError{std::string(p_ClusterOptions) + ": \"" + word + "\" is no option",
                       "write each as one word, such as --constraint=fast or --exclude=n3"};
    }
  }
  return {words.begin(), words.end()};
}

constexpr double mostMinutes = 366.0 * 24 * 60;
constexpr double checkSeconds = 60;  // for each work's start and the check of its files
constexpr double startSeconds = 240; // for the task

int minutes(double seconds) {
  return static_cast<int>(std::min(std::ceil(seconds / 60), mostMinutes));
}

} // namespace

ClusterSettings clusterSettings(const Locations& locations, const std::optional<std::string>& shared) {
  ClusterSettings result;
  result.folder = locations.clusterFolder();
  result.program = ownExecutable();
  for (const IniFile::EntryView& entry : Application::the_Application->Settings().Entries("Slurm")) {
    take(result, String(entry.Key), String(entry.Value));
  }
  if (const auto named = environmentVariable("TROVIK_SHARED")) {
    result.folder = absolutePath(*named);
  }
  if (shared) {
    if (shared->empty()) {
      throw UsageError{"--shared: the name of the folder is empty", "leave it out for the usual one"};
    }
    result.folder = absolutePath(*shared);
  }
  for (const auto& [key, path] : {std::pair("Folder", result.folder), std::pair("Program", result.program)}) {
    if (!path.IsAbsolute()) {
      throw UsageError{"settings, section [Slurm]: " + std::string(key) + ' ' + inQuotes(path.Text()) +
                           " is no absolute path",
                       "write it from the root on, as the nodes see it"};
    }
  }
  return result;
}

ClusterRequest clusterRequest(const Job& job) {
  ClusterRequest request;
  request.partition = effectiveValue(job, p_ClusterPartition);
  request.account = effectiveValue(job, p_ClusterAccount);
  request.qos = effectiveValue(job, p_ClusterQos);
  request.cpus = number(job, p_CPUs, 1);
  request.throttle = number(job, p_ClusterThrottle, 0);
  request.worksPerTask = static_cast<std::size_t>(number(job, p_WorksPerTask, 0));
  request.memory = memoryOf(p_ClusterMemory, effectiveValue(job, p_ClusterMemory),
                            "for the share that belongs to the CPUs of a work");
  if (request.memory == 0) {
    request.memory = memoryOf(p_Memory, effectiveValue(job, p_Memory), "to have it learned");
  }
  request.options = optionWords(effectiveValue(job, p_ClusterOptions));
  request.stage = effectiveValue(job, p_StageOutput).Bool();
  request.timeLimit = effectiveValue(job, p_ClusterTimeLimit);
  if (const auto* process = dynamic_cast<const ProcessJob*>(&job)) {
    request.runTimeLimit = orRefuse("", "", [&] { return process->RunTimeLimit(); });
  }
  minutesOf(request.timeLimit, request.runTimeLimit, 1); // refuses what is no duration
  return request;
}

RunOn runOnOf(const Job& job, RunOn usual) {
  String wanted = job.GetParameterOrOption(p_RunOn, true, false);
  if (wanted.empty() && usual == RunOn::Cluster) {
    return usual;
  }
  if (wanted.empty()) {
    wanted = job.GetParameterOrOption(p_RunOn, true, true);
  }
  return String::EqualNoCase(wanted, "Slurm") ? RunOn::Cluster : RunOn::Local;
}

std::size_t worksPerTask(const ClusterRequest& request, std::size_t works, std::optional<double> seconds,
                         std::size_t tasksAllowed) {
  std::size_t wanted = request.worksPerTask;
  if (wanted == 0) {
    wanted = (works + tasksAllowed - 1) / std::max<std::size_t>(tasksAllowed, 1);
    if (seconds && *seconds < secondsWanted) {
      const double many = std::ceil(secondsWanted / std::max(*seconds, 0.1));
      wanted = std::max(
          wanted, std::min(static_cast<std::size_t>(many), std::max<std::size_t>(1, works / tasksWanted)));
    }
  }
  return std::clamp<std::size_t>(wanted, 1, std::max<std::size_t>(works, 1));
}

int minutesOf(const std::string& timeLimit, double workSeconds, std::size_t worksPerTask) {
  if (const String limit = String(timeLimit).Trim(); !limit.empty()) {
    double seconds = 0;
    if (!ParseDuration(limit, seconds)) {
      throw UsageError{std::string(p_ClusterTimeLimit) + ": " + inQuotes(timeLimit) + " is no duration",
                       "write seconds, or a number with s, m, h or d"};
    }
    return minutes(seconds);
  }
  if (!(workSeconds > 0)) {
    return 0;
  }
  return minutes(static_cast<double>(worksPerTask) * (workSeconds + checkSeconds) + startSeconds);
}

} // namespace trovik
