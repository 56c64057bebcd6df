#include "trovik/commandline/Completion.h"

#include "host/application/JobFactory.h"
#include "host/foundation/Log.h"
#include "trovik/jobs/Types.h"
#include "trovik/queue/JobView.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/Verbs.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <system_error>

namespace trovik {
namespace {

constexpr std::size_t jobsOffered = 100;
constexpr std::chrono::milliseconds lockPatience{200};

/// The installation's answers. Whatever fails, there are fewer of them.
class Installation {
public:
  explicit Installation(Console& console) : console_(console) {}

  CompletionSources sources() {
    return {
        [this](const CommonOptions& options) { return types(options); },
        [this](const CommonOptions& options) { return jobs(options); },
        [this](const CommonOptions& options, const std::string& type) { return parameters(options, type); },
        [this](const CommonOptions& options, const std::string& type, const std::string& parameter) {
          return values(options, type, parameter);
        }};
  }

private:
  std::vector<Candidate> types(const CommonOptions& options) {
    load(options);
    std::vector<Candidate> candidates;
    std::set<String> names;
    const JobFactory& factory = *JobFactory::s_JobFactory;
    for (const UID& type : factory.Types()) {
      const JobTypeInfo& info = *factory.GetTypeInfo(type, false);
      if (!info.Enabled) {
        continue;
      }
      std::vector<String> answers(info.Aliases().begin(), info.Aliases().end());
      // Who can have a name without blanks need not quote one with them.
      if (answers.empty() || info.Name.find(' ') == String::npos) {
        answers.insert(answers.begin(), info.Name);
      }
      for (const String& name : answers) {
        if (!name.empty() && names.insert(name.Lower()).second) {
          candidates.push_back({name, info.Help.substr(0, info.Help.find('\n'))});
        }
      }
    }
    return candidates;
  }

  std::vector<Candidate> jobs(const CommonOptions& options) {
    open(options);
    std::vector<Candidate> candidates;
    std::error_code error;
    // A queue is only read, never made.
    if (!std::filesystem::exists(std::filesystem::path(session_->state().c_str()) / "queue.db", error)) {
      return candidates;
    }
    Queue::Settings settings;
    settings.patience = lockPatience;
    Queue queue(session_->state(), settings);
    for (const JobRecord& job : queue.jobs()) {
      if (candidates.size() == jobsOffered) {
        break;
      }
      const std::string what = job.typeName + ": " + titleOf(job) + ", " + nameOf(job.state);
      if (candidates.empty()) {
        candidates.push_back({"last", what});
      }
      candidates.push_back({std::to_string(job.id), what});
    }
    return candidates;
  }

  std::vector<Candidate> parameters(const CommonOptions& options, const std::string& type) {
    load(options);
    const JobTypeInfo& info = *JobFactory::s_JobFactory->GetTypeInfo(findType(type), false);
    std::vector<Candidate> candidates;
    for (std::size_t i = 0; i < info.ParamCount(); ++i) {
      const ParameterInfo& parameter = *info.GetParam(static_cast<unsigned long>(i));
      const unsigned int closed = ParameterInfo::k_ReadOnly | ParameterInfo::k_Internal;
      if (parameter.Type() != ParameterInfo::k_Heading && (parameter.Flags & closed) == 0 &&
          (parameter.Flags & ParameterInfo::k_Visible) != 0) {
        const String& label = parameter.Label.empty() ? parameter.Name : parameter.Label;
        candidates.push_back({parameter.Name + "=", label + ": " + kindText(parameter)});
      }
    }
    return candidates;
  }

  Completions values(const CommonOptions& options, const std::string& type, const std::string& name) {
    load(options);
    const ParameterInfo& parameter = findParameter(findType(type), name);
    Completions completions;
    switch (parameter.Type()) {
    case ParameterInfo::k_Choice:
    case ParameterInfo::k_Integer:
      for (const String& choice : parameter.Choices) {
        completions.candidates.push_back({choice, choice == parameter.Default ? "default" : ""});
      }
      break;
    case ParameterInfo::k_Boolean:
    case ParameterInfo::k_BoolOverride:
      completions.candidates = {{"Yes", ""}, {"No", ""}};
      break;
    case ParameterInfo::k_File:
      completions.wanted = Wanted::Files;
      break;
    case ParameterInfo::k_Folder:
      completions.wanted = Wanted::Folders;
      break;
    default:
      break;
    }
    return completions;
  }

  void open(const CommonOptions& options) {
    if (!session_) {
      options_ = options;
      session_.emplace(options_, console_);
    }
  }
  void load(const CommonOptions& options) {
    open(options);
    session_->loadModules();
  }

  Console& console_;
  CommonOptions options_;
  std::optional<Session> session_;
};

} // namespace

int completeWords(const std::vector<std::string>& words, Console& console) {
  SetLogSink([](LogLevel /*level*/, const String& /*text*/) {});
  Completions found;
  try {
    Installation installation(console);
    found = completionsOf(allVerbs(), words, installation.sources());
  } catch (Exception* exception) {
    takeText(exception);
  } catch (...) {
    // Nothing to offer.
  }
  std::string text;
  for (const Candidate& candidate : found.candidates) {
    // A word of several lines, or one that steers the terminal, cannot be offered.
    if (printable(candidate.word, OddBytes::Show) == candidate.word) {
      text += candidate.word + '\t' + printable(candidate.description, OddBytes::Show) + '\n';
    }
  }
  if (found.wanted != Wanted::Nothing) {
    text += (found.wanted == Wanted::Files ? ":files\t" : ":folders\t") + found.before + '\n';
  }
  console.print(text);
  return exitGood;
}

} // namespace trovik
