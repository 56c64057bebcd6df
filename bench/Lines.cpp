// A long log through the job of a type with four image texts, six error texts
// (anywhere in a line) and a success text, one virtual call a line.

#include "bench/Inputs.h"
#include "bench/ModuleUnderTest.h"
#include "bench/Race.h"
#include "bench/limits/Limits.h"
#include "host/application/JobFactory.h"
#include "host/application/Module.h"
#include "host/application/jobs/RenderJob.h"
#include "host/foundation/LineSplitter.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace bench {
namespace {

constexpr std::size_t readSize = std::size_t{256} << 10;
constexpr const char* typeId = "5f0c9a5e-6d0b-4c86-9d0f-100000000002";

std::string typeOfTheLog() {
  std::string text =
      "[Module]\nID=" + std::string(typeId) + "\nName=Log\nErrorDetectPosition=Yes\nImageStartText=";
  for (const std::string& image : imageTexts) {
    text += '"' + image + "\";";
  }
  text.pop_back();
  text += "\nImageEndText=" + imageEndText + "\n\n[SuccessText]\n1=" + successText + "\n\n[ErrorText]\n";
  for (std::size_t i = 0; i < errorTexts.size(); ++i) {
    text += std::to_string(i) + '=' + errorTexts[i] + '\n';
  }
  return text;
}

// What an engine does with the output of one work, without log and pipe.
class Judge {
public:
  Judge()
      : job_(makeJob()), render_(dynamic_cast<RenderJob&>(*job_)),
        splitter_([this](std::string_view line) { render_.WorkLine(line); }) {}

  void feed(const char* bytes, ssize_t size) { splitter_.Feed({bytes, static_cast<std::size_t>(size)}); }

  void finish(const LogFacts& facts) {
    splitter_.Finish();
    require(render_.Images().size() == facts.images, "the job found " +
                                                         std::to_string(render_.Images().size()) +
                                                         " images of " + std::to_string(facts.images));
    require(render_.ErrorLine() == "Error: cannot read /show/cache/fx_12.vdb",
            "the job missed the error line");
    require(render_.CheckResult(1) == k_StatusFinished, "the job missed the success line");
  }

private:
  static SmartHandle<Job> makeJob() {
    UID type;
    type.FromString(typeId);
    return JobFactory::s_JobFactory->CreateJob(type);
  }

  SmartHandle<Job> job_;
  RenderJob& render_;
  LineSplitter splitter_;
};

Cost judgeFile(const std::string& file, const LogFacts& facts) {
  static char buffer[readSize];
  const Stopwatch watch;
  Judge judge;
  const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  for (ssize_t size = 0; (size = read(descriptor, buffer, sizeof(buffer))) > 0;) {
    judge.feed(buffer, size);
  }
  close(descriptor);
  judge.finish(facts);
  return watch.stop();
}

Cost judgePipe(const std::string& file, const LogFacts& facts) {
  static char buffer[readSize];
  const Stopwatch watch;
  Judge judge;
  ProcessStart start;
  start.Arguments = {"cat", file};
  Process process(start);
  for (ssize_t size = 0; (size = process.ReadOutput(buffer, sizeof(buffer))) != 0;) {
    if (size > 0) {
      judge.feed(buffer, size);
    } else {
      pollfd wait{process.OutputDescriptor(), POLLIN, 0};
      poll(&wait, 1, -1);
    }
  }
  ProcessExit exit;
  process.Wait(exit, true);
  judge.finish(facts);
  return watch.stop();
}

void check(const LineLimit::Counts& counts, const LogFacts& facts) {
  require(counts.lines == facts.lines && counts.images == facts.images && counts.errors == 1 &&
              counts.successes == 1,
          "the limit program read the log wrongly");
}

LineLimit makeLimit() {
  return {imageTexts, imageEndText, errorTexts, successText};
}

Cost limitOfFile(const std::string& file, const LogFacts& facts) {
  const Stopwatch watch;
  LineLimit limit = makeLimit();
  const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  const LineLimit::Counts counts = limit.run(descriptor);
  close(descriptor);
  const Cost cost = watch.stop();
  check(counts, facts);
  return cost;
}

Cost limitOfPipe(const std::string& file, const LogFacts& facts) {
  const Stopwatch watch;
  int ends[2];
  require(pipe2(ends, O_CLOEXEC) == 0, "no pipe");
  fcntl(ends[0], F_SETPIPE_SZ, 1 << 20);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
  std::string program = "cat";
  std::string argument = file;
  char* const arguments[] = {program.data(), argument.data(), nullptr};
  pid_t writer = -1;
  const int error = posix_spawnp(&writer, "cat", &actions, nullptr, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  require(error == 0, "cannot start cat");
  LineLimit limit = makeLimit();
  const LineLimit::Counts counts = limit.run(ends[0]);
  close(ends[0]);
  waitpid(writer, nullptr, 0);
  const Cost cost = watch.stop();
  check(counts, facts);
  return cost;
}

std::string speedText(std::size_t bytes, double seconds) {
  return std::to_string(static_cast<long>(static_cast<double>(bytes) / seconds / 1e6)) + " MB/s";
}

Row speedRow(const std::string& path, const Race& race, std::size_t ours, std::size_t limit,
             std::size_t bytes, double target) {
  const double speed = static_cast<double>(bytes) / race.median(ours, &Cost::wall) / 1e6;
  return {path,
          speedText(bytes, race.median(limit, &Cost::wall)),
          speedText(bytes, race.median(ours, &Cost::wall)),
          ratioText(race, ours, limit, &Cost::wall),
          ratioText(race, ours, limit, &Cost::cpu),
          "≥ " + std::to_string(static_cast<long>(target)) + " MB/s",
          speed >= target};
}

} // namespace

std::vector<Row> lineRows(const Setup& setup) {
  const std::string types = setup.directory + "/types";
  const std::string log = setup.directory + "/log";
  const std::string patterns = setup.directory + "/patterns";
  std::filesystem::create_directory(types);
  writeFile(types + "/log.tvx", typeOfTheLog());
  std::string lines = successText + '\n';
  for (const auto* texts : {&imageTexts, &errorTexts}) {
    for (const std::string& text : *texts) {
      lines += text + '\n';
    }
  }
  writeFile(patterns, lines);
  const LogFacts facts = writeLog(log, setup.quick ? 2'000'000 : 200'000'000);
  ModuleLoader loader;
  loader.Load({Path(ModuleUnderTest::directory()), Path(types)});

  Race race;
  const std::size_t fileLimit = race.enter([&] { return limitOfFile(log, facts); });
  const std::size_t file = race.enter([&] { return judgeFile(log, facts); });
  // Counting: with its output in /dev/null, grep would stop at the first match.
  const std::size_t grep = race.enter([&] {
    return runProgram({"grep", "-c", "-i", "-F", "-f", patterns, log}, {{"LC_ALL", "C"}},
                      setup.directory + "/count");
  });
  const std::size_t pipeLimit = race.enter([&] { return limitOfPipe(log, facts); });
  const std::size_t pipe = race.enter([&] { return judgePipe(log, facts); });
  race.run(setup.rounds);

  return {speedRow("output lines from a file", race, file, fileLimit, facts.bytes, 1200),
          {"the same beside grep -i -F", speedText(facts.bytes, race.median(grep, &Cost::wall)),
           speedText(facts.bytes, race.median(file, &Cost::wall)), ratioText(race, file, grep, &Cost::wall),
           ratioText(race, file, grep, &Cost::cpu), "≤ 0.50", race.ratio(file, grep, &Cost::wall) <= 0.5},
          speedRow("output lines from a pipe", race, pipe, pipeLimit, facts.bytes, 900)};
}

} // namespace bench
