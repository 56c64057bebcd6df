#include "trovik/cluster/ClusterRequest.h"

#include "host/application/ProcessJob.h"
#include "host/foundation/Quoting.h"
#include "trovik/cluster/ClusterValues.h"
#include "trovik/jobs/JobSetup.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace trovik {
namespace {

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

} // namespace

ClusterRequest clusterRequest(const Job& job) {
  ClusterRequest request;
  request.partition = effectiveValue(job, p_ClusterPartition);
  request.account = effectiveValue(job, p_ClusterAccount);
  request.qos = effectiveValue(job, p_ClusterQos);
  request.cpus = number(job, p_CPUs, 1);
  request.throttle = number(job, p_ClusterThrottle, 0);
  request.worksPerTask = static_cast<std::size_t>(number(job, p_WorksPerTask, 0));
  request.memory = memoryOf(effectiveValue(job, p_ClusterMemory));
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

} // namespace trovik
