#include "tests/cluster/fakes/FakeSite.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string_view>
#include <unistd.h>

// Slurm's programs in front of a site that is not there; called by the names of
// links to it. They answer in the words of the real ones as far as these
// options go that trovik uses, and refuse every other.
//
// The directory of the site, FAKE_SLURM_DIR, takes files that change what they
// do: "down" (no controller), "hang" (no answer at all), "full" (no room in the
// list of jobs), "unclear" (a submission is taken, but the answer is lost) and
// "refuse" (its text is what sbatch complains of). Each call is a line of the
// file "calls": real time, the site's time, process, program and words.
//
// As "site" it steers: step, run (until the file "stop"), kill ID_INDEX,
// nodefail ID_INDEX, requeue ID_INDEX, hold ID_INDEX, release ID_INDEX, status.

namespace trovik::fake {
namespace {

using Words = std::vector<std::string>;

constexpr const char* noController = "Unable to contact slurm controller (connect failure)";
constexpr std::string_view script = "exec \"$TROVIK_PROGRAM\" task \"$TROVIK_FOLDER\"";
constexpr const char* taskFormat = "JobArrayID:|,State:|,exit_code:|,Reason:|,RestartCnt:|,NodeList:";
constexpr unsigned int runPause = 200'000; // microseconds between two steps

/// The answer of a program that failed.
struct Failure {
  std::string text;
  int code = 1;
};

/// The program never ends by itself, after this text.
struct Hang {
  std::string text;
};

std::string variable(const char* name) {
  const char* value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): there is one thread
  return value == nullptr ? std::string() : value;
}

/// The options of a call, each "--name=value" or "--name". What is not among
/// the known ones, and the values that some must have, is refused.
std::map<std::string, std::string> optionsOf(const std::string& program, const Words& words,
                                             const std::vector<std::string>& known) {
  std::map<std::string, std::string> options;
  for (const std::string& word : words) {
    const std::size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    if (std::find(known.begin(), known.end(), name) == known.end()) {
      std::string text = program;
      text.append(": unrecognized option '").append(name).append("'\nTry \"").append(program);
      throw Failure{text + " --help\" for more information", 255};
    }
    options[name] = equals == std::string::npos ? std::string() : word.substr(equals + 1);
  }
  return options;
}

void log(const Site& site, const std::string& program, const Words& words) {
  std::ostringstream line;
  line << std::fixed
       << std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count() << ' '
       << site.now() << ' ' << getpid() << ' ' << program;
  for (const std::string& word : words) {
    line << ' ' << printable(word, OddBytes::Show);
  }
  line << '\n';
  const std::string text = line.str();
  const Descriptor file(open(site.file("calls").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
  if (!file.IsOpen() ||
      ::write(file.Number(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    throw Failure{"cannot write the log of calls"};
  }
}

std::string sbatch(Site& site, const Words& words) {
  const auto options = optionsOf(
      "sbatch", words,
      {"--parsable",  "--nodes",     "--ntasks", "--cpus-per-task", "--requeue",    "--mem",   "--time",
       "--partition", "--account",   "--qos",    "--job-name",      "--comment",    "--array", "--chdir",
       "--output",    "--open-mode", "--export", "--wrap",          "--constraint", "--gres",  "--exclude"});
  const auto valueOf = [&options](const char* name) {
    const auto found = options.find(name);
    return found == options.end() ? std::string() : found->second;
  };
  if (const std::string partition = valueOf("--partition"); !partition.empty() && partition != "main") {
    throw Failure{"sbatch: error: invalid partition specified: " + partition +
                  "\nsbatch: error: Batch job submission failed: Invalid partition name specified"};
  }
  if (!options.contains("--mem") || std::stod(valueOf("--mem")) > site.setting("memory", 64000)) {
    throw Failure{"sbatch: error: Memory specification can not be satisfied\nsbatch: error: Batch job "
                  "submission failed: Requested node configuration is not available"};
  }
  Array array;
  int last = -1;
  if (std::sscanf(valueOf("--array").c_str(), "0-%d%%%d", &last, &array.throttle) < 1 ||
      last < 0 || // NOLINT(cert-err34-c)
      last >= static_cast<int>(site.setting("array_size", 1001))) {
    throw Failure{"sbatch: error: Batch job submission failed: Invalid job array specification"};
  }
  if (valueOf("--wrap") != script) {
    throw Failure{"sbatch: error: an unknown script: " + valueOf("--wrap")};
  }
  const auto tasks = static_cast<std::size_t>(last) + 1;
  if (site.hasSwitch("full") || static_cast<double>(site.size() + tasks) > site.setting("job_count", 10000)) {
    throw Hang{"sbatch: error: Slurm temporarily unable to accept job, sleeping and retrying\n"};
  }
  array.name = valueOf("--job-name");
  array.folder = variable("TROVIK_FOLDER");
  const ArrayPlan plan = ArrayFolder(Path(array.folder)).plan();
  if (plan.tasks() != tasks) {
    throw Failure{"sbatch: error: the plan has another number of tasks"};
  }
  array.perTask = plan.perTask;
  array.works = plan.works.size();
  array.tasks.resize(tasks);
  const std::int64_t id = site.add(std::move(array));
  if (site.hasSwitch("unclear")) {
    site.save();
    throw Failure{"sbatch: error: Batch job submission failed: Socket timed out on send/recv operation"};
  }
  return std::to_string(id) + '\n';
}

const char* stateName(State state) {
  switch (state) {
  case State::Pending:
    return "PENDING";
  case State::Running:
    return "RUNNING";
  case State::Completed:
    return "COMPLETED";
  case State::Failed:
    return "FAILED";
  case State::NodeFail:
    return "NODE_FAIL";
  case State::Canceled:
  case State::CanceledUnseen:
    break;
  }
  return "CANCELLED";
}

const char* reasonName(const Array& array, const Task& task, bool throttled, bool first) {
  switch (task.state) {
  case State::Pending:
    return task.held != 0                    ? "JobHeldUser"
           : throttled && array.throttle > 0 ? "JobArrayTaskLimit"
           : first                           ? "Resources"
                                             : "Priority";
  case State::Failed:
    return (task.waitStatus & 0x7f) != 0 ? "JobLaunchFailure" : "NonZeroExitCode";
  case State::NodeFail:
    return "NodeDown";
  default:
    return "None";
  }
}

std::string squeue(Site& site, const Words& words) {
  const auto options =
      optionsOf("squeue", words, {"--noheader", "--array", "--states", "--me", "--name", "--Format"});
  if (!options.contains("--noheader") || !options.contains("--array") || options.at("--states") != "all" ||
      options.at("--Format") != taskFormat) {
    throw Failure{"squeue: error: another question than is answered here"};
  }
  const std::string names = ',' + options.at("--name") + ',';
  const Time old = site.now() - site.setting("min_age", 300);
  std::string answer;
  for (const Array& array : site.arrays()) {
    if (names.find(',' + array.name + ',') == std::string::npos) {
      continue;
    }
    const auto running = std::count_if(array.tasks.begin(), array.tasks.end(),
                                       [](const Task& task) { return task.state == State::Running; });
    const bool throttled = running >= array.throttle;
    const std::string id = std::to_string(array.id);
    bool first = true;
    bool unseen = false;
    for (std::size_t i = 0; i < array.tasks.size(); ++i) {
      const Task& task = array.tasks[i];
      const bool open = task.state == State::Pending || task.state == State::Running;
      if (!open && task.ended <= old) {
        continue;
      }
      if (task.state == State::CanceledUnseen) {
        unseen = true;
        continue;
      }
      answer += id;
      answer += '_';
      answer += std::to_string(i);
      answer += '|';
      answer += stateName(task.state);
      answer += '|';
      answer += std::to_string(task.waitStatus);
      answer += '|';
      answer += reasonName(array, task, throttled, first);
      answer += '|';
      answer += std::to_string(task.restarts);
      answer += '|';
      if (task.node != 0) {
        answer += 'n';
        answer += std::to_string(task.node);
      }
      answer += '\n';
      first = first && task.state != State::Pending;
    }
    if (unseen) {
      answer += id + "|CANCELLED|0|None|0|\n";
    }
  }
  return answer;
}

std::string scancel(Site& site, const Words& words) {
  const auto options = optionsOf("scancel", words, {"--name"});
  for (Array& array : site.arrays()) {
    if (array.name == options.at("--name")) {
      for (Task& task : array.tasks) {
        site.cancel(array, task);
      }
    }
  }
  return {};
}

std::string scontrol(Site& site, const Words& words) {
  if (words != Words{"show", "config"}) {
    throw Failure{"scontrol: error: another question than is answered here"};
  }
  std::ostringstream answer;
  answer << "Configuration data as of 2031-01-05T20:11:09\n"
            "AccountingStorageEnforce = none\n"
            "DefMemPerNode           = UNLIMITED\n"
            "MaxArraySize            = "
         << site.setting("array_size", 1001)
         << "\nMaxJobCount             = " << static_cast<std::int64_t>(site.setting("job_count", 10000))
         << "\nMaxMemPerNode           = UNLIMITED\n";
  return answer.str();
}

std::string sinfo(Site& site, const Words& words) {
  const auto options = optionsOf("sinfo", words, {"--noheader", "--Node", "--format", "--partition"});
  if (!options.contains("--Node") || options.at("--format") != "%c %m") {
    throw Failure{"sinfo: error: another question than is answered here"};
  }
  const auto cpus = static_cast<int>(site.setting("cpus", 16));
  const auto memory = static_cast<std::int64_t>(site.setting("memory", 64000));
  std::string answer;
  for (int slots = static_cast<int>(site.setting("slots", 100)); slots > 0; slots -= cpus) {
    answer += std::to_string(cpus) + ' ' + std::to_string(memory) + '\n';
  }
  return answer;
}

Task& taskAt(Site& site, const std::string& name, Array*& array) {
  const std::size_t split = name.find('_');
  array = split == std::string::npos ? nullptr : site.find(std::stoll(name.substr(0, split)));
  const std::size_t index = array == nullptr ? 0 : std::stoull(name.substr(split + 1));
  if (array == nullptr || index >= array->tasks.size()) {
    throw Failure{"site: there is no task " + name};
  }
  array->changed = true;
  return array->tasks[index];
}

std::string statusOf(Site& site) {
  std::map<std::string, std::size_t> counts;
  for (const Array& array : site.arrays()) {
    for (const Task& task : array.tasks) {
      ++counts[stateName(task.state)];
    }
  }
  std::string text;
  for (const auto& [name, count] : counts) {
    text += name + ' ' + std::to_string(count) + '\n';
  }
  return text;
}

std::string steer(Site& site, const Words& words) {
  const std::string verb = words.empty() ? std::string() : words[0];
  if (verb == "step") {
    site.advance();
    return {};
  }
  if (verb == "status") {
    return statusOf(site);
  }
  if (words.size() != 2) {
    throw Failure{"site: step, run, status; kill, nodefail, requeue, hold, release ID_INDEX"};
  }
  Array* array = nullptr;
  Task& task = taskAt(site, words[1], array);
  if (verb == "hold" || verb == "release") {
    task.held = verb == "hold" ? 1 : 0;
    return {};
  }
  if (task.state != State::Running) {
    throw Failure{"site: " + words[1] + " does not run"};
  }
  if (verb == "kill") {
    task.state = State::Failed;
    task.waitStatus = 9;
  } else if (verb == "nodefail") {
    task.state = State::NodeFail;
  } else if (verb == "requeue") {
    task.state = State::Pending;
    ++task.restarts;
  } else {
    throw Failure{"site: " + verb + " is nothing that can be done"};
  }
  task.ended = site.now();
  return {};
}

void run(const Path& directory) {
  for (bool stops = false; !stops; usleep(runPause)) {
    Site site(directory, Access::Change);
    site.advance();
    site.save();
    stops = site.hasSwitch("stop");
  }
}

void heedSwitches(const Site& site, const std::string& program) {
  static const std::map<std::string, std::string> complaints = {
      {"sbatch", "sbatch: error: Batch job submission failed: "},
      {"scontrol", "slurm_load_ctl_conf error: "},
      {"sinfo", "slurm_load_partitions: "}};
  if (site.hasSwitch("hang")) {
    throw Hang{};
  }
  if (site.hasSwitch("down")) {
    const auto own = complaints.find(program);
    throw Failure{(own == complaints.end() ? "slurm_load_jobs error: " : own->second) + noController};
  }
  if (program == "sbatch" && site.hasSwitch("refuse")) {
    std::ostringstream complaint;
    complaint << std::ifstream(site.file("refuse").c_str()).rdbuf();
    throw Failure{complaint.str()};
  }
}

int answer(const std::string& program, const Words& words) {
  const Path directory(variable("FAKE_SLURM_DIR"));
  if (directory.empty()) {
    throw Failure{program + ": FAKE_SLURM_DIR names no directory"};
  }
  if (words == Words{"--version"}) {
    std::cout << "slurm 31.05.1\n"; // without a word to the controller
    return 0;
  }
  if (program == "site" && words == Words{"run"}) {
    run(directory);
    return 0;
  }
  static const std::map<std::string, std::string (*)(Site&, const Words&)> clients = {
      {"sbatch", sbatch},     {"squeue", squeue}, {"scancel", scancel},
      {"scontrol", scontrol}, {"sinfo", sinfo},   {"site", steer}};
  const auto client = clients.find(program);
  if (client == clients.end()) {
    throw Failure{"call it by the name of one of Slurm's programs, not " + program};
  }
  const bool looks = program == "squeue" || program == "scontrol" || program == "sinfo";
  Site site(directory, looks ? Access::Look : Access::Change);
  if (program != "site") {
    log(site, program, words);
    heedSwitches(site, program);
    if (!site.isApart()) {
      site.advance();
    }
  }
  const std::string text = client->second(site, words);
  if (!looks || !site.isApart()) {
    site.save();
  }
  std::cout << text << std::flush;
  return 0;
}

} // namespace
} // namespace trovik::fake

int main(int count, char** arguments) {
  const std::string_view path = arguments[0];
  const std::string program(path.substr(path.rfind('/') + 1));
  try {
    return trovik::fake::answer(program, {arguments + 1, arguments + count});
  } catch (const trovik::fake::Failure& failure) {
    std::cerr << failure.text << '\n';
    return failure.code;
  } catch (const trovik::fake::Hang& hang) {
    std::cerr << hang.text << std::flush;
    for (;;) {
      pause();
    }
  } catch (const std::exception& error) {
    std::cerr << program << ": " << error.what() << '\n';
  } catch (Exception* exception) {
    std::cerr << program << ": " << trovik::takeText(exception) << '\n';
  }
  return 1;
}
