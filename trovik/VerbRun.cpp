#include "host/application/RenderJob.h"
#include "trovik/DryRun.h"
#include "trovik/JsonProgress.h"
#include "trovik/LocalEngine.h"
#include "trovik/PlainProgress.h"
#include "trovik/TerminalProgress.h"
#include "trovik/Text.h"
#include "trovik/Types.h"
#include "trovik/UsageError.h"
#include "trovik/Verbs.h"

#include <algorithm>
#include <charconv>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

namespace trovik {
namespace {

/// A number of at least 1 behind an option.
std::size_t positiveNumber(const std::string& option, const std::string& text, std::size_t limit) {
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number == 0) {
    throw UsageError{option + ": " + inQuotes(text) + " is not a whole number from 1 on", {}};
  }
  if (number > limit) {
    throw UsageError{option + ": " + text + " is too many; here it can be " + std::to_string(limit), {}};
  }
  return number;
}

/// A parameter's effective value with its references expanded.
String effective(const Job& job, const char* name) {
  return orRefuse(std::string(name) + ": ", "",
                  [&] { return job.FormatStringWithParameters(job.GetParameterOrOption(name, true, true)); });
}

int effectiveNumber(const Job& job, const char* name) {
  const String text = effective(job, name);
  int number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

/// Each running program takes three descriptors: output, end and log.
std::size_t mostSlots() {
  rlimit files{};
  if (getrlimit(RLIMIT_NOFILE, &files) != 0 || files.rlim_cur == RLIM_INFINITY) {
    return 10000;
  }
  return files.rlim_cur > 64 ? static_cast<std::size_t>(files.rlim_cur - 32) / 3 : 1;
}

std::size_t slotsFor(const Options& options, const Job& job) {
  if (options.slots) {
    return positiveNumber("--slots", *options.slots, mostSlots());
  }
  const auto cpus = static_cast<std::size_t>(std::max(1, effectiveNumber(job, p_CPUs)));
  const std::size_t machine = std::max(1U, std::thread::hardware_concurrency());
  return std::clamp<std::size_t>(machine / cpus, 1, mostSlots());
}

/// Refuses a parameter that is given by its option and by --set as well: one
/// of them would be ignored.
void refuseTwice(const std::vector<std::pair<std::string, std::string>>& sets, const char* parameter,
                 const char* option) {
  for (const auto& [name, value] : sets) {
    if (String::EqualNoCase(name, parameter)) {
      throw UsageError{inQuotes(parameter) + " is given twice: by " + option + " and by --set",
                       "leave one of them out"};
    }
  }
}

void setUp(JobSetup& setup, const Options& options) {
  std::vector<std::pair<std::string, std::string>> sets;
  for (const std::string& text : options.sets) {
    sets.push_back(splitAssignment(text));
  }
  if (options.scene) {
    refuseTwice(sets, p_Scene, "SCENE");
    setup.setScene(*options.scene);
  }
  for (const auto& [name, value] : sets) {
    setup.set(name, value, "--set " + printable(name, OddBytes::Show));
  }
  if (options.range) {
    refuseTwice(sets, p_Range, "--range");
    if (options.range->empty()) {
      throw UsageError{"--range: the range is empty", "write frames such as 1-24"};
    }
    setup.set(p_Range, *options.range, "--range");
  }
  if (options.packet) {
    refuseTwice(sets, p_PacketSize, "--packet");
    const std::size_t packet = positiveNumber("--packet", *options.packet, 10'000'000);
    setup.set(p_PacketSize, std::to_string(packet), "--packet");
  }
  if (options.out) {
    refuseTwice(sets, p_OutputFolder, "--out");
    setup.setOutputFolder(*options.out);
  }
}

/// What would make every work fail alike is told once, before any starts.
void tryFirstWork(const Job& job) {
  const std::unique_ptr<Distributor> works = const_cast<Job&>(job).DoGetDistributor();
  WorkInfo work;
  if (!works->Next(work.run, work.hasFrames)) {
    throw UsageError{"there are no frames to work", "name them with --range, such as --range 1-24"};
  }
  const SmartHandle<Job> first = WorkMaker(job).make(work);
  auto* process = dynamic_cast<ProcessJob*>(first.Get());
  if (process == nullptr) {
    throw UsageError{"jobs of " + inQuotes(typeTitle(job.Type())) + " do not run a program", {}};
  }
  const ProcessStart start = orRefuse("", "", [&] { return process->DescribeWork(); });
  const Path program(start.Arguments.empty() ? String() : start.Arguments.front());
  const bool bare = program.Text().find('/') == String::npos;
  const bool there =
      bare ? !ProcessJob::FindLatestExecutable({}, {}, program).empty() : access(program.c_str(), X_OK) == 0;
  if (!there && (bare || program.IsAbsolute())) {
    throw UsageError{"there is no program " + inQuotes(program.Text()) + (bare ? " along PATH" : ""),
                     "install it, or name it with --set Executable=FILE"};
  }
}

std::unique_ptr<RunEvents> progressFor(Console& console, const Options& options) {
  if (options.json) {
    return std::make_unique<JsonProgress>(console);
  }
  if (console.traits().terminal) {
    return std::make_unique<TerminalProgress>(console);
  }
  return std::make_unique<PlainProgress>(console);
}

RunPlan planFor(const Options& options, const SmartHandle<Job>& job) {
  RunPlan plan;
  plan.job = job;
  plan.slots = slotsFor(options, *job);
  plan.retries = std::clamp(effectiveNumber(*job, p_Retries), 0, 1'000'000);
  return plan;
}

} // namespace

int runJob(Session& session) {
  const Options& options = session.options();
  Console& console = session.console();
  const UID type = findType(*options.type);
  JobSetup setup(type, session.detection());
  setUp(setup, options);
  setup.check();
  if (options.dryRun) {
    printDryRun(console, setup.job(), options.json);
    return exitGood;
  }
  tryFirstWork(*setup.job());
  const RunPlan plan = planFor(options, setup.job());

  RunInfo info;
  info.type = typeTitle(type);
  const String format = setup.job()->GetParameterOrOption("SceneNameFormat", true, true);
  info.scene = format.empty() ? setup.job()->GetParameterOrOption(p_Scene, true, true) : format;
  Path directory = session.locations().runs();
  directory /= String(runDirectoryName());
  RunLogDirectory logs(options.logDirectory ? absolutePath(*options.logDirectory) : directory);
  info.logs = logs.directory();

  LocalMachine machine;
  SignalInterrupts interrupts;
  const std::unique_ptr<RunEvents> progress = progressFor(console, options);
  LocalEngine engine(machine, logs, interrupts, *progress);
  const RunSummary summary = orRefuse("", "", [&] { return engine.run(plan, info); });
  return summary.allGood() ? exitGood : exitFailed;
}

} // namespace trovik
