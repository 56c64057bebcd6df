#include "trovik/verbs/Submission.h"

#include "host/application/jobs/ExecutableSearch.h"
#include "host/application/jobs/RenderJob.h"
#include "host/foundation/Log.h"
#include "host/foundation/WholeNumber.h"
#include "trovik/engine/EndCommand.h"
#include "trovik/jobs/JobSetup.h"
#include "trovik/jobs/ProgramSearch.h"
#include "trovik/jobs/Types.h"
#include "trovik/machine/Locations.h"
#include "trovik/queue/JobFiles.h"
#include "trovik/text/Console.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/ClusterRun.h"
#include "trovik/verbs/Forerunners.h"
#include "trovik/verbs/Limits.h"
#include "trovik/works/MissingFrames.h"
#include "trovik/works/RunLogs.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <unistd.h>

namespace trovik {
namespace {

/// The output folder, for finding the job again; some types let it depend on
/// the frame, and then there is none.
std::string outputOf(const Job& job) {
  try {
    return job.FormatStringWithParameters(job.GetParameterOrOption(p_OutputFolder, true, true));
  } catch (Exception* exception) {
    LogDebug(takeText(exception));
    return {};
  }
}

int effectiveNumber(const Job& job, const char* name) {
  return ReadWholeNumber<int>(trimmed(effectiveValue(job, name))).value_or(0);
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

/// The packet size that an option names.
std::string packetFrom(const std::string& text) {
  if (isAutoPacket(text)) {
    return k_AutoPacket;
  }
  try {
    return std::to_string(positiveNumber("--packet", text, 10'000'000));
  } catch (UsageError& error) {
    error.hint = "write auto, and as many frames as suit go into a packet";
    throw;
  }
}

/// Refuses a command line that the system does not take: every attempt would
/// fail alike.
void refuseLength(const ProcessStart& start, bool hasPacket) {
  constexpr std::size_t longestWord = 128 << 10; // bytes with the end mark, whatever the limit of all
  const long limit = sysconf(_SC_ARG_MAX);
  std::size_t bytes = 0;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    bytes += std::strlen(*variable) + 1 + sizeof(char*);
  }
  bool tooLong = false;
  for (const String& word : start.Arguments) {
    bytes += word.size() + 1 + sizeof(char*);
    tooLong = tooLong || word.size() + 1 > longestWord;
  }
  if (tooLong || (limit > 0 && bytes > static_cast<std::size_t>(limit))) {
    throw UsageError{"the command is longer than this system takes",
                     hasPacket ? "give fewer frames to one start of the program with --packet"
                               : "\"--dry-run\" shows it"};
  }
}

} // namespace

Submission::Submission(Session& session, const MakingOptions& options)
    : session_(session), options_(options), setup_(findType(*options.type), session.detection()) {
  prepare();
}

Submission::Submission(Session& session, const MakingOptions& options, Queue& queue)
    : session_(session), options_(options), given_(&queue),
      setup_(findType(*options.type), session.detection()) {
  newJob_.ofShot = true;
  prepare();
}

Queue* Submission::queue() {
  if (given_ == nullptr && opened_ == nullptr) {
    opened_ = existingQueue(session_.state());
  }
  return given_ != nullptr ? given_ : opened_.get();
}

void Submission::prepare() {
  findForerunners();
  setUp();
  setup_.check();
  describe();
  warnOfLeftOut();
}

/// Who picks one scene of many should not have to count them.
void Submission::warnOfLeftOut() const {
  const SequenceAccount account = setup_.sequence();
  if (!account.leftOut) {
    return;
  }
  const Path scene(setup_.job()->GetParameterOrOption(p_Scene, true, true));
  const bool alone = setup_.job()->GetParameterOrOption(sceneNameFormat, true, true).empty();
  printWarning(
      session_.console(),
      {(alone ? inQuotes(scene.Leaf(true)) + " alone: " : std::string()) + account.reason, account.hint});
}

void Submission::setUp() {
  const MakingOptions& options = options_;
  refuseVerifyAlone(options.verify, options.missing);
  std::vector<std::pair<std::string, std::string>> sets;
  for (const std::string& text : options.sets) {
    sets.push_back(splitAssignment(text));
  }
  if (options.scene) {
    refuseTwice(sets, p_Scene, "SCENE");
    setup_.setScene(*options.scene);
  }
  setup_.setAll(options.sets);
  if (options.range) {
    refuseTwice(sets, p_Range, "--range");
    if (options.range->empty()) {
      throw UsageError{"--range: the range is empty", "write frames such as 1-24"};
    }
    setup_.set(p_Range, *options.range, "--range");
  }
  if (options.packet) {
    refuseTwice(sets, p_PacketSize, "--packet");
    setup_.set(p_PacketSize, packetFrom(*options.packet), "--packet");
  }
  if (options.out) {
    refuseTwice(sets, p_OutputFolder, "--out");
    setup_.setOutputFolder(*options.out);
  }
  if (options.engine) {
    refuseTwice(sets, p_RunOn, "--engine");
    const bool slurm = String::EqualNoCase(*options.engine, "slurm");
    if (!slurm && !String::EqualNoCase(*options.engine, "local")) {
      throw UsageError{"--engine: there is no engine " + inQuotes(*options.engine), "write local or slurm"};
    }
    setup_.set(p_RunOn, slurm ? "Slurm" : "Local", "--engine");
  }
  if (options.priority) {
    refuseTwice(sets, p_Priority, "--priority");
    setup_.set(p_Priority, *options.priority, "--priority");
  }
  setup_.detect();
}

/// They are known before all else, since that may refer to the first of them,
/// and to files that they are going to leave.
void Submission::findForerunners() {
  if (options_.after.empty() && options_.afterFrames.empty()) {
    return;
  }
  // The same command may be given again: its own job is then the newest.
  const std::string output = options_.out ? std::string(absolutePath(*options_.out).Text()) : std::string();
  const auto isOther = [&](const JobRecord& record) {
    return record.type != setup_.type() || (options_.out && record.output != output);
  };
  Queue* queue = this->queue();
  newJob_.forerunners = namedForerunners(queue, options_.after, options_.afterFrames, isOther);
  std::vector<ScenesToCome> scenes;
  for (const Forerunner& one : newJob_.forerunners) {
    if (const std::optional<JobRecord> job = queue->job(one.job); job && !job->output.empty()) {
      scenes.push_back({Path(job->output), job->hasFrames ? allFrames(queue->frames(one.job)) : RunSet()});
    }
  }
  setup_.job()->Set(p_AfterOutputFolder,
                    queue->job(newJob_.forerunners.front().job).value_or(JobRecord()).output);
  setup_.expectScenes(std::move(scenes));
  std::sort(newJob_.forerunners.begin(), newJob_.forerunners.end(),
            [](const Forerunner& one, const Forerunner& other) { return one.job < other.job; });
}

void Submission::describe() {
  const MakingOptions& options = options_;
  Job& job = *setup_.job();
  newJob_.name = job.GetParameterOrOption(p_Name, true, true);
  newJob_.type = setup_.type();
  newJob_.typeName = typeTitle(setup_.type());
  const String format = job.GetParameterOrOption(sceneNameFormat, true, true);
  newJob_.scene = format.empty() ? job.GetParameterOrOption(p_Scene, true, true) : format;
  newJob_.range = effectiveValue(job, p_Range);
  const std::unique_ptr<Distributor> works = orRefuse("", "", [&] { return job.DoGetDistributor(); });
  for (FrameRun run; works->Next(run, newJob_.hasFrames);) {
    newJob_.works.push_back(run);
  }
  if (newJob_.works.empty()) {
    throw UsageError{"there are no frames to work", "name them with --range, such as --range 1-24"};
  }
  if (!newJob_.forerunners.empty()) {
    requireFrames(*queue(), newJob_);
  }
  newJob_.packed = packedJob(job);
  newJob_.priority = effectiveNumber(job, p_Priority);
  newJob_.retries = std::clamp(effectiveNumber(job, p_Retries), 0, 1'000'000);
  newJob_.stopAfter = std::max(0, effectiveNumber(job, p_StopAfter));
  newJob_.slotsAtMost = std::clamp(effectiveNumber(job, p_SlotsAtMost), 0, 1'000'000);
  newJob_.packets = packetRuleOf(job);
  newJob_.memory = neededMemory(effectiveValue(job, p_Memory));
  newJob_.takes = sharesOf(effectiveValue(job, p_Limits), knownLimits(queue()));
  std::error_code error;
  newJob_.directory = std::filesystem::current_path(error).string();
  newJob_.output = outputOf(job);
  const ClusterSettings cluster = clusterSettings(session_.locations(), options_.shared);
  newJob_.runOn = runOnOf(job, cluster.isDefault ? RunOn::Cluster : RunOn::Local);
  if (newJob_.runOn == RunOn::Cluster) {
    newJob_.folder = cluster.folder.Text();
  }
  if (options.logDirectory) {
    newJob_.logs = absolutePath(*options.logDirectory).Text();
  }
  if (options.endCommand) {
    endWords(*options.endCommand, endValues(JobRecord(), RunSummary()));
    newJob_.endCommands.push_back(*options.endCommand);
  }
  if (options.notify) {
    if (FindAlongPath("notify-send").empty()) {
      throw UsageError{"--notify: there is no program \"notify-send\" along PATH",
                       "install it (on Debian the package libnotify-bin), or use --on-end"};
    }
    newJob_.endCommands.emplace_back(desktopNote);
  }
}

void Submission::checkFiles(Queue& queue, ImageInspector& inspector, Machine& machine) {
  if (!options_.fresh) {
    begun_ = queue.begun(newJob_);
  }
  if (options_.missing) {
    leaveOutGood(queue, inspector, machine);
  }
  if (begun_ && options_.missing) {
    RunSet found;
    for (const FrameRun& run : newJob_.found) {
      found.add(run);
    }
    gone_ = without(begun_->frames.good, found);
  } else if (begun_) {
    if (const std::optional<JobRecord> job = queue.job(begun_->id)) {
      gone_ = framesThatLostFiles(filesOf(queue, {*job, begun_->frames}), newJob_.runOn);
    }
  }
}

EnteredJob Submission::enter(Queue& queue) const {
  if (!options_.fresh) {
    return queue.enter(newJob_, begun_, gone_);
  }
  EnteredJob entered;
  if (!newJob_.works.empty()) {
    entered.id = queue.submit(newJob_);
    entered.frames = queue.frames(entered.id);
  }
  return entered;
}

void Submission::leaveOutGood(Queue& queue, ImageInspector& inspector, Machine& machine) {
  const WorkMaker maker(newJob_.type, newJob_.packed);
  KnownFiles known;
  if (begun_) {
    known = knownFiles(queue, begun_->id);
  }
  if (const auto latest = queue.latest(newJob_.type, newJob_.scene, newJob_.output)) {
    KnownFiles others = knownFiles(queue, *latest);
    std::erase_if(others, [&](const auto& file) { return known.contains(file.first); });
    known.merge(others);
  }
  const FoundFrames found = orRefuse("", "", [&] {
    return findGoodFrames(maker, newJob_.works, newJob_.hasFrames, known,
                          options_.verify ? Decode::All : Decode::Doubtful, queue, inspector, machine);
  });
  std::vector<FrameRun> works;
  for (const FrameRun& run : newJob_.works) {
    if (!newJob_.hasFrames) {
      if (!found.whole) {
        works.push_back(run);
      }
      continue;
    }
    RunSet left;
    for (const FrameRun& rest : FramesOutside(run, found.good.runs())) {
      left.add(rest);
      works.push_back(rest);
    }
    // Good frames keep to the works that they would have been: a retry must not
    // start the program for more frames than a packet.
    const std::vector<FrameRun> good = FramesOutside(run, left.runs());
    newJob_.found.insert(newJob_.found.end(), good.begin(), good.end());
  }
  newJob_.works = works;
  newJob_.foundFiles = found.files;
}

void Submission::tryFolders() const {
  if (options_.dryRun) {
    return; // makes nothing
  }
  if (!newJob_.logs.empty()) {
    const RunLogDirectory made{Path(newJob_.logs)};
  }
  if (!options_.out || newJob_.runOn == RunOn::Cluster) {
    return; // nodes may see other folders
  }
  const Path folder = absolutePath(*options_.out);
  std::error_code error;
  std::filesystem::create_directories(folder.Text().c_str(), error);
  if (!error && access(folder.c_str(), W_OK | X_OK) != 0) {
    error = std::error_code(errno, std::generic_category());
  }
  if (error) {
    throw UsageError{"--out: nothing can be written to " + inQuotes(folder.Text()) + ": " + error.message(),
                     "name another folder"};
  }
}

void Submission::tryFirstWork() const {
  tryFolders();
  WorkInfo work;
  work.run = newJob_.works.front();
  work.hasFrames = newJob_.hasFrames;
  const SmartHandle<Job> first = WorkMaker(newJob_.type, newJob_.packed, searches_).make(work);
  auto* process = dynamic_cast<ProcessJob*>(first.Get());
  if (process == nullptr) {
    throw UsageError{"jobs of " + inQuotes(newJob_.typeName) + " do not run a program", {}};
  }
  const ProcessStart start = orRefuse("", "", [&] { return process->DescribeWork(); });
  if (const auto* render = dynamic_cast<const RenderJob*>(process)) {
    orRefuse("", "", [&] { return render->ExpectedFiles(); });
  }
  refuseLength(start, work.hasFrames && work.frames() > 1);
  if (newJob_.runOn == RunOn::Cluster) {
    tryCluster(session_, *first, options_.shared);
    return; // the program need not be on this machine
  }
  const Path program(start.Arguments.empty() ? String() : start.Arguments.front());
  const std::string problem = programProblem(program);
  if (problem.empty()) {
    return;
  }
  const bool bare = program.Text().find('/') == String::npos;
  const bool missing = bare || problem == "does not exist";
  throw UsageError{missing ? "there is no program " + inQuotes(program.Text()) + (bare ? " along PATH" : "")
                           : "the program " + inQuotes(program.Text()) + ' ' + problem,
                   missing ? "install it, or name it with --set Executable=FILE"
                           : "name the program's file with --set Executable=FILE"};
}

} // namespace trovik
