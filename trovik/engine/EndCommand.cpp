#include "trovik/engine/EndCommand.h"

#include "host/application/Job.h"
#include "host/foundation/Log.h"
#include "host/foundation/Process.h"
#include "host/foundation/Quoting.h"
#include "trovik/progress/ProgressText.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

namespace trovik {

const char* const desktopNote =
    "notify-send --app-name=trovik -- \"trovik: job $(Job) is $(State)\" \"$(Name) $(Summary)\"";

std::map<String, String> endValues(const JobRecord& job, const RunSummary& summary) {
  const bool frames = job.hasFrames;
  const auto number = [frames](const RunSet& set, std::size_t works) {
    return String(std::to_string(frames ? set.count() : works));
  };
  return {{"Job", std::to_string(job.id)},
          {"Name", job.name},
          {"Type", job.typeName},
          {"Scene", job.scene},
          {"State", nameOf(job.state)},
          {"Good", number(summary.good, summary.goodWorks)},
          {"Failed", number(summary.failed, summary.failedWorks)},
          {"Left", number(summary.notDone, summary.notDoneWorks)},
          {"FailedFrames", summary.failed.text()},
          {"Summary", summaryLine(summary)},
          {"OutputFolder", job.output},
          {"Logs", summary.info.logs.Text()}};
}

std::vector<String> endWords(const std::string& command, const std::map<String, String>& values) {
  return orRefuse("end command: ", "write it as for a shell; $(Job), $(State) and others stand for the job",
                  [&] {
                    std::vector<String> words = SplitCommandLine(command);
                    for (String& word : words) {
                      word = Job::FormatStringWithParameters(word, values);
                    }
                    if (words.empty()) {
                      throw UsageError{"end command: it names no program", "write it as for a shell"};
                    }
                    return words;
                  });
}

void startEndCommands(const JobRecord& job, const RunSummary& summary) {
  if (!job.own && !job.endCommands.empty()) {
    LogWarning("job " + std::to_string(job.id) +
               ": its end command is not started, since the job came with a copy of another queue");
    return;
  }
  const std::map<String, String> values = endValues(job, summary);
  for (const std::string& command : job.endCommands) {
    try {
      std::string line;
      for (const String& word : endWords(command, values)) {
        line += (line.empty() ? "" : " ") + EnquoteWord(word);
      }
      const Process process(line, Process::k_Detached, Path(job.directory));
    } catch (const UsageError& error) {
      LogWarning("job " + std::to_string(job.id) + ": " + error.message);
    } catch (Exception* exception) {
      LogWarning("job " + std::to_string(job.id) +
                 ": its end command was not started: " + takeText(exception));
    }
  }
}

} // namespace trovik
