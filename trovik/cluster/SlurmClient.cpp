#include "trovik/cluster/SlurmClient.h"

#include "host/application/jobs/ProcessJob.h"
#include "host/application/jobs/ProgramRun.h"
#include "host/foundation/Log.h"
#include "trovik/cluster/SlurmAnswers.h"
#include "trovik/machine/Locations.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <deque>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace trovik {
namespace {

constexpr std::chrono::seconds queryLimit{15};
constexpr std::chrono::seconds submitLimit{60};
constexpr std::chrono::seconds cancelLimit{20};
constexpr std::chrono::seconds siteLimit{15};
constexpr std::chrono::seconds configurationLimit{5};
constexpr std::size_t outputLimit = std::size_t{64} << 20;
constexpr std::size_t namesLimit = std::size_t{64} << 10; // bytes; the system takes 128 KiB a word
constexpr std::size_t commentWidth = 200;

constexpr const char* script = "exec \"$TROVIK_PROGRAM\" task \"$TROVIK_FOLDER\"";

// sbatch waits for two minutes for room in the list of jobs; asking anew later
// comes to the same and does not keep everything else waiting.
constexpr std::string_view fullWords = "unable to accept job, sleeping and retrying";

constexpr std::array<std::string_view, 5> programs = {"sbatch", "squeue", "scancel", "scontrol", "sinfo"};

constexpr std::array<std::string_view, 6> keptNames = {
    "SLURM_CONF", "SLURM_CONF_SERVER", "SLURM_CLUSTERS", "SLURM_JWT", "SLURM_SACK_KEY", "SLURM_SACK_SOCKET"};

constexpr std::array<std::string_view, 14> droppedFamilies = {
    "SBATCH_", "SLURM_", "SQUEUE_", "SCANCEL_",     "SCONTROL_", "SINFO_",     "SALLOC_",
    "SRUN_",   "SSH_",   "DBUS_",   "XDG_SESSION_", "TMUX",      "BASH_FUNC_", "TERM_"};

constexpr std::array<std::string_view, 23> droppedNames = {
    "DISPLAY",  "WAYLAND_DISPLAY", "XAUTHORITY", "XDG_RUNTIME_DIR",
    "XDG_SEAT", "XDG_VTNR",        "WINDOWID",   "SESSION_MANAGER",
    "TERM",     "TERMCAP",         "COLORTERM",  "STY",
    "WINDOW",   "LINES",           "COLUMNS",    "PWD",
    "OLDPWD",   "SHLVL",           "_",          "LS_COLORS",
    "TMPDIR",   "TROVIK_ATTEMPT",  "GPG_TTY"};

template <std::size_t count>
bool isAmong(std::string_view name, const std::array<std::string_view, count>& names) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

bool isDropped(std::string_view name) {
  const auto startsName = [name](std::string_view family) { return name.starts_with(family); };
  return !isAmong(name, keptNames) &&
         (isAmong(name, droppedNames) ||
          std::any_of(droppedFamilies.begin(), droppedFamilies.end(), startsName));
}

/// The pattern of a file's name for Slurm, in which only the last component's
/// "%a" means something. A name with a backslash is taken as it stands from
/// then on, so that the tasks of such a folder share one file.
std::string filePattern(const Path& taskLog) {
  const std::string& name = taskLog.Text();
  const bool plain = name.find('\\') != std::string::npos;
  const std::size_t leaf = name.rfind('/') + 1;
  std::string pattern;
  for (std::size_t i = 0; i < name.size(); ++i) {
    pattern += name[i];
    if (plain ? name[i] == '\\' : i < leaf && name[i] == '%') {
      pattern += name[i];
    }
  }
  return pattern;
}

/// Whether one of the options begins so.
bool hasOption(const std::vector<std::string>& options, std::string_view begin) {
  return std::any_of(options.begin(), options.end(),
                     [begin](const std::string& option) { return option.starts_with(begin); });
}

std::vector<String> submissionWords(const ClusterSubmission& submission) {
  // Once more behind the options, where one without its value would take it.
  const std::string shield = "--parsable";
  std::vector<String> words = {"sbatch", shield, "--nodes=1", "--ntasks=1", "--requeue"};
  // Slurm refuses two ways to say the same.
  if (!hasOption(submission.options, "--cpus-per-gpu")) {
    words.emplace_back("--cpus-per-task=" + std::to_string(std::max(submission.cpus, 1)));
  }
  if (submission.memory > 0 && !hasOption(submission.options, "--mem-per-")) {
    words.emplace_back("--mem=" + std::to_string(submission.memory));
  }
  if (submission.minutes > 0) {
    words.emplace_back("--time=" + std::to_string(submission.minutes));
  }
  for (const auto& [option, value] : {std::pair("--partition=", &submission.partition),
                                      {"--account=", &submission.account},
                                      {"--licenses=", &submission.licenses},
                                      {"--qos=", &submission.qos}}) {
    if (!value->empty()) {
      words.emplace_back(option + *value);
    }
  }
  words.insert(words.end(), submission.options.begin(), submission.options.end());
  words.emplace_back(shield);
  words.emplace_back("--job-name=" + submission.name);
  words.emplace_back("--comment=" + cutToWidth(printable(submission.comment, OddBytes::Show), commentWidth));
  words.emplace_back("--array=0-" + std::to_string(submission.tasks - 1) +
                     (submission.throttle > 0 ? '%' + std::to_string(submission.throttle) : std::string()));
  words.emplace_back("--chdir=" + submission.folder.Text());
  words.emplace_back("--output=" + filePattern(submission.taskLog));
  words.emplace_back("--open-mode=append");
  words.emplace_back("--export=ALL");
  words.emplace_back(std::string("--wrap=") + script);
  return words;
}

/// Names joined with commas, as many to a word as a word may hold.
std::vector<std::string> nameLists(const std::vector<std::string>& names) {
  std::vector<std::string> lists;
  for (const std::string& name : names) {
    if (lists.empty() || lists.back().size() + name.size() >= namesLimit) {
      lists.push_back(name);
    } else {
      lists.back() += ',' + name;
    }
  }
  return lists;
}

/// One run of a program.
struct Call {
  std::vector<String> words;
  std::vector<std::pair<String, std::optional<String>>> environment; ///< beside slurmEnvironment()
};

/// How it went.
struct Reply {
  std::string problem; ///< it did not end by itself, or not at all; empty: it did, and the rest is known
  ProcessExit exit;
  std::string output;
};

/// What it complained of when it ended with a code of failure; empty else.
std::string failureOf(const std::string& program, const Reply& reply) {
  if (!reply.problem.empty() || reply.exit.Code == 0) {
    return reply.problem;
  }
  if (reply.exit.Signal != 0) {
    return program + " was killed by signal " + std::to_string(reply.exit.Signal);
  }
  const std::string said = slurmProblem(reply.output);
  return program + " ended with exit code " + std::to_string(reply.exit.Code) +
         (said.empty() ? std::string() : ": " + said);
}

/// A question to the manager: programs that run one after the other.
struct Question {
  std::deque<Call> calls;
  Duration limit{}; ///< of each
  /// Takes what one said into the answer; false when the others are not needed.
  std::function<bool(const Reply& reply, ClusterAnswer& answer)> read;
  ClusterClient::Answer take;
  ClusterAnswer answer;
};

} // namespace

std::vector<std::pair<String, std::optional<String>>> slurmEnvironment() {
  std::vector<std::pair<String, std::optional<String>>> changes;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view text = *entry;
    const std::size_t equals = text.find('=');
    if (equals != 0 && equals != std::string_view::npos && isDropped(text.substr(0, equals))) {
      changes.emplace_back(String(text.substr(0, equals)), std::nullopt);
    }
  }
  return changes;
}

class SlurmClient::Impl {
public:
  explicit Impl(Machine& machine) : machine_(machine) {}

  void ask(Question question) { questions_.push_back(std::move(question)); }
  bool isBusy() const { return !questions_.empty(); }
  void addDescriptors(std::vector<pollfd>& descriptors) const;
  std::optional<Clock::time_point> deadline() const;
  void advance(Clock::time_point now);

private:
  bool isAsked() const { return until_.has_value(); }
  void begin(Clock::time_point now);
  void start(Clock::time_point now);
  void finish(Clock::time_point now, std::string problem, const ProcessExit& exit = {});

  Machine& machine_;
  std::deque<Question> questions_;
  std::optional<Clock::time_point>
      until_; ///< the first question's call must have ended; none before it began
  std::optional<ProgramRun> run_;
  bool abandoned_ = false; ///< the program was killed and nobody waits for it but the next one
  std::string output_;
};

void SlurmClient::Impl::addDescriptors(std::vector<pollfd>& descriptors) const {
  if (run_) {
    descriptors.push_back({run_->ExitDescriptor(), POLLIN, 0});
    descriptors.push_back({run_->OutputDescriptor(), POLLIN, 0});
  }
}

std::optional<Clock::time_point> SlurmClient::Impl::deadline() const {
  std::optional<Clock::time_point> earliest = run_ ? run_->Deadline() : std::nullopt;
  if (!questions_.empty()) {
    const Clock::time_point own = until_.value_or(Clock::time_point());
    earliest = std::min(earliest.value_or(own), own);
  }
  return earliest;
}

void SlurmClient::Impl::advance(Clock::time_point now) {
  if (run_) {
    run_->ReadOutput(now);
    run_->Advance(now);
    if (abandoned_ && run_->IsOver()) {
      run_.reset();
    }
  }
  if (questions_.empty()) {
    return;
  }
  if (!isAsked()) {
    begin(now);
    return;
  }
  if (!run_) {
    start(now); // the program before it has ended at last
    return;
  }
  if (abandoned_) {
    if (now >= *until_) {
      finish(now, "the program before it cannot be ended");
    }
    return;
  }
  const std::string name = questions_.front().calls.front().words.front();
  if (output_.size() > outputLimit) {
    finish(now, name + " said more than " + std::to_string(outputLimit >> 20) + " MiB");
  } else if (run_->HasExited()) {
    finish(now, {}, run_->Exit()); // whatever it left behind has no say
  } else if (name == "sbatch" && output_.find(fullWords) != std::string::npos) {
    finish(now, "Slurm's list of jobs is full: " + slurmProblem(output_));
  } else if (now >= *until_) {
    const std::string said = slurmProblem(output_);
    finish(now, name + " did not answer within " +
                    std::to_string(
                        std::chrono::duration_cast<std::chrono::seconds>(questions_.front().limit).count()) +
                    " s" + (said.empty() ? std::string() : ": " + said));
  }
}

void SlurmClient::Impl::begin(Clock::time_point now) {
  Question& question = questions_.front();
  if (question.calls.empty()) {
    const Question done = std::move(question);
    questions_.pop_front();
    done.take(done.answer);
    return;
  }
  until_ = now + question.limit;
  if (!run_) {
    start(now);
  }
}

void SlurmClient::Impl::start(Clock::time_point now) {
  const Call& call = questions_.front().calls.front();
  ProcessStart start;
  start.Arguments = call.words;
  start.StartDirectory = Path("/"); // the user's own may be gone
  start.Environment = slurmEnvironment();
  start.Environment.emplace_back("PWD", std::nullopt);
  start.Environment.insert(start.Environment.end(), call.environment.begin(), call.environment.end());
  output_.clear();
  abandoned_ = false;
  try {
    run_.emplace(machine_.start(start), ProgramRun::Patience(), now, [this](std::string_view text) {
      if (!abandoned_) {
        output_.append(text);
      }
    });
  } catch (Exception* exception) {
    finish(now, takeText(exception));
  }
}

void SlurmClient::Impl::finish(Clock::time_point now, std::string problem, const ProcessExit& exit) {
  if (run_ && !abandoned_) {
    run_->Cancel(now, true);
    abandoned_ = true;
    run_->Advance(now);
    if (run_->IsOver()) {
      run_.reset();
    }
  }
  until_.reset();
  Question& question = questions_.front();
  const Reply reply{std::move(problem), exit, std::move(output_)};
  output_ = {};
  const bool goesOn = question.read(reply, question.answer);
  question.calls.pop_front();
  if (goesOn && !question.calls.empty()) {
    return; // with the next turn
  }
  if (!question.answer.answered) {
    LogDebug("cluster: " + question.answer.problem);
  }
  const Question done = std::move(question);
  questions_.pop_front();
  done.take(done.answer); // which may ask
}

SlurmClient::SlurmClient(Machine& machine) : impl_(std::make_unique<Impl>(machine)) {}
SlurmClient::~SlurmClient() = default;

void SlurmClient::submit(const ClusterSubmission& submission, Answer answer) {
  Question question;
  question.limit = submitLimit;
  question.calls.push_back(
      {submissionWords(submission),
       {{"TROVIK_PROGRAM", submission.program.Text()}, {"TROVIK_FOLDER", submission.folder.Text()}}});
  question.take = std::move(answer);
  question.read = [](const Reply& reply, ClusterAnswer& result) {
    result.problem = reply.problem;
    if (reply.problem.empty()) {
      readSubmission(reply.output, reply.exit, result);
    }
    return false;
  };
  impl_->ask(std::move(question));
}

void SlurmClient::query(const std::vector<std::string>& names, Answer answer) {
  Question question;
  question.limit = queryLimit;
  question.answer.answered = true;
  question.take = std::move(answer);
  for (const std::string& list : nameLists(names)) {
    // Without -r lists of indices would be cut.
    question.calls.push_back({{"squeue", "--noheader", "--array", "--states=all", "--me", "--name=" + list,
                               "--Format=JobArrayID:|,State:|,exit_code:|,Reason:|,RestartCnt:|,NodeList:"},
                              {}});
  }
  question.read = [](const Reply& reply, ClusterAnswer& result) {
    result.problem = failureOf("squeue", reply);
    std::optional<std::vector<ClusterTask>> tasks;
    if (result.problem.empty()) {
      tasks = readTasks(reply.output, result.problem);
    }
    result.answered = tasks.has_value();
    if (!tasks) {
      result.tasks.clear();
      return false;
    }
    result.tasks.insert(result.tasks.end(), std::make_move_iterator(tasks->begin()),
                        std::make_move_iterator(tasks->end()));
    return true;
  };
  impl_->ask(std::move(question));
}

void SlurmClient::cancel(const std::vector<std::string>& names, Answer answer) {
  Question question;
  question.limit = cancelLimit;
  question.answer.answered = true;
  question.take = std::move(answer);
  for (const std::string& name : names) {
    question.calls.push_back({{"scancel", "--name=" + name}, {}}); // it takes one name only
  }
  question.read = [](const Reply& reply, ClusterAnswer& result) {
    result.problem = failureOf("scancel", reply);
    result.answered = result.problem.empty();
    return result.answered;
  };
  impl_->ask(std::move(question));
}

void SlurmClient::askSite(const std::string& partition, Answer answer) {
  Question question;
  question.limit = siteLimit;
  question.take = std::move(answer);
  question.calls.push_back({{"scontrol", "show", "config"}, {}});
  Call nodes{{"sinfo", "--noheader", "--Node", "--format=%c %m"}, {}};
  if (!partition.empty()) {
    nodes.words.emplace_back("--partition=" + partition);
  }
  question.calls.push_back(std::move(nodes));
  question.read = [asked = std::size_t{0}](const Reply& reply, ClusterAnswer& result) mutable {
    const bool configuration = asked++ == 0;
    result.problem = failureOf(configuration ? "scontrol" : "sinfo", reply);
    if (!result.problem.empty()) {
      return false;
    }
    if (configuration) {
      readConfiguration(reply.output, result.site);
      return true;
    }
    if (result.site.memoryPerCpu == 0) {
      result.site.memoryPerCpu = readMemoryPerCpu(reply.output);
    }
    result.answered = true;
    return true;
  };
  impl_->ask(std::move(question));
}

std::string SlurmClient::configurationProblem(Machine& machine) {
  // They try for a minute to find the file that it names.
  if (const std::optional<std::string> file = environmentVariable("SLURM_CONF");
      file && access(file->c_str(), R_OK) != 0) {
    return "SLURM_CONF names " + inQuotes(*file) + ": " + std::generic_category().message(errno);
  }
  std::string problem;
  Question question;
  question.limit = configurationLimit;
  question.calls.push_back({{"scontrol", "--version"}, {}});
  question.take = [](const ClusterAnswer&) {};
  question.read = [&problem](const Reply& reply, ClusterAnswer& /*answer*/) {
    const std::string failure = failureOf("scontrol", reply);
    // One that says nothing may be slow, and no more.
    problem = failure.empty() || slurmProblem(reply.output).empty() ? std::string() : failure;
    return false;
  };
  Impl client(machine);
  client.ask(std::move(question));
  while (client.isBusy()) {
    std::vector<pollfd> descriptors;
    client.addDescriptors(descriptors);
    machine.wait(descriptors,
                 std::max(client.deadline().value_or(machine.now()) - machine.now(), Duration::zero()));
    client.advance(machine.now());
  }
  return problem;
}

bool SlurmClient::isBusy() const {
  return impl_->isBusy();
}

void SlurmClient::addDescriptors(std::vector<pollfd>& descriptors) const {
  impl_->addDescriptors(descriptors);
}

std::optional<Clock::time_point> SlurmClient::deadline() const {
  return impl_->deadline();
}

void SlurmClient::advance(Clock::time_point now) {
  impl_->advance(now);
}

std::string SlurmClient::missingProgram() {
  for (const std::string_view program : programs) {
    if (ProcessJob::FindLatestExecutable({}, {}, Path(std::string(program))).empty()) {
      return std::string(program);
    }
  }
  return {};
}

} // namespace trovik
