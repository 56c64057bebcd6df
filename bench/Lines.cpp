// A long log through the job of a type with four image texts, six error texts
// (anywhere in a line) and a success text, one virtual call a line.

#include "bench/Inputs.h"
#include "bench/ModuleUnderTest.h"
#include "bench/Race.h"
#include "bench/limits/Limits.h"
#include "host/application/JobFactory.h"
#include "host/application/Module.h"
#include "host/application/jobs/PlainLines.h"
#include "host/application/jobs/RenderJob.h"
#include "host/foundation/LineSplitter.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace bench {
namespace {

constexpr std::size_t readSize = std::size_t{256} << 10;
// The ID of a type, by a number of its own.
std::string typeId(int number) {
  return "5f0c9a5e-6d0b-4c86-9d0f-" + std::to_string(100000000000 + number);
}

std::string typeOfTheLog(int number, const LogTexts& texts) {
  return logType(typeId(number), "Log " + std::to_string(number), texts);
}

// A log, its texts and the type of them.
struct Log {
  std::string file;
  LogFacts facts;
  LogTexts texts;
  int type;
};

// What an engine does with the output of one work, without log and pipe.
class Judge {
public:
  explicit Judge(int type)
      : job_(makeJob(type)), render_(dynamic_cast<RenderJob&>(*job_)), lines_(render_), splitter_(lines_) {}

  void feed(const char* bytes, ssize_t size) { splitter_.Feed({bytes, static_cast<std::size_t>(size)}); }

  void finish(const LogFacts& facts) {
    splitter_.Finish();
    require(render_.Images().size() == facts.images, "the job found " +
                                                         std::to_string(render_.Images().size()) +
                                                         " images of " + std::to_string(facts.images));
    require(render_.ErrorLine() == facts.firstError, "the job missed the first error line");
    require(render_.CheckResult(1) == k_StatusFinished, "the job missed the success line");
  }

private:
  static SmartHandle<Job> makeJob(int number) {
    UID type;
    type.FromString(typeId(number).c_str());
    return JobFactory::s_JobFactory->CreateJob(type);
  }

  SmartHandle<Job> job_;
  RenderJob& render_;
  WorkLines lines_;
  LineSplitter splitter_;
};

Cost judgeFile(const Log& log) {
  static char buffer[readSize];
  const Stopwatch watch;
  Judge judge(log.type);
  const int descriptor = open(log.file.c_str(), O_RDONLY | O_CLOEXEC);
  for (ssize_t size = 0; (size = read(descriptor, buffer, sizeof(buffer))) > 0;) {
    judge.feed(buffer, size);
  }
  close(descriptor);
  judge.finish(log.facts);
  return watch.stop();
}

Cost judgePipe(const Log& log) {
  static char buffer[readSize];
  const Stopwatch watch;
  Judge judge(log.type);
  ProcessStart start;
  start.Arguments = {"cat", log.file};
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
  judge.finish(log.facts);
  return watch.stop();
}

void check(const LineLimit::Counts& counts, const LogFacts& facts) {
  require(counts.lines == facts.lines && counts.imageLines == facts.imageLines &&
              counts.images == facts.images && counts.errors == facts.errors &&
              counts.successes == facts.successes,
          "the limit program read the log wrongly");
}

LineLimit makeLimit(const LogTexts& texts) {
  return {texts.images, texts.imageEnd, texts.errors, texts.success};
}

Cost limitOfFile(const Log& log) {
  const Stopwatch watch;
  LineLimit limit = makeLimit(log.texts);
  const int descriptor = open(log.file.c_str(), O_RDONLY | O_CLOEXEC);
  const LineLimit::Counts counts = limit.run(descriptor);
  close(descriptor);
  const Cost cost = watch.stop();
  check(counts, log.facts);
  return cost;
}

Cost limitOfPipe(const Log& log) {
  const Stopwatch watch;
  int ends[2];
  require(pipe2(ends, O_CLOEXEC) == 0, "no pipe");
  fcntl(ends[0], F_SETPIPE_SZ, 1 << 20);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
  std::string program = "cat";
  std::string argument = log.file;
  char* const arguments[] = {program.data(), argument.data(), nullptr};
  pid_t writer = -1;
  const int error = posix_spawnp(&writer, "cat", &actions, nullptr, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  require(error == 0, "cannot start cat");
  LineLimit limit = makeLimit(log.texts);
  const LineLimit::Counts counts = limit.run(ends[0]);
  close(ends[0]);
  waitpid(writer, nullptr, 0);
  const Cost cost = watch.stop();
  check(counts, log.facts);
  return cost;
}

std::string speedText(std::size_t bytes, double seconds) {
  return std::to_string(static_cast<long>(static_cast<double>(bytes) / seconds / 1e6)) + " MB/s";
}

Row speedRow(const std::string& path, const Race& race, std::size_t ours, std::size_t limit,
             std::size_t bytes, double target) {
  Row row = ratioRow(path, race, ours, limit, target);
  row.limit = speedText(bytes, race.median(limit, &Cost::wall));
  row.ours = speedText(bytes, race.median(ours, &Cost::wall));
  return row;
}

} // namespace

std::vector<Row> lineRows(const Setup& setup) {
  const std::string types = setup.directory + "/types";
  const std::string patterns = setup.directory + "/patterns";
  std::filesystem::create_directory(types);
  const LogTexts& texts = usualTexts();
  writeFile(types + "/log.tvx", typeOfTheLog(1, texts));
  writeFile(patterns, logPatterns(texts));
  const std::string file = setup.directory + "/log";
  const Log log{file, writeLog(file, setup.quick ? 2'000'000 : 200'000'000), texts, 1};
  ModuleLoader loader;
  loader.Load({Path(ModuleUnderTest::directory()), Path(types)});

  Race race;
  const std::size_t fileLimit = race.enter([&] { return limitOfFile(log); });
  const std::size_t ours = race.enter([&] { return judgeFile(log); });
  // Counting: with its output in /dev/null, grep would stop at the first match.
  const std::size_t grep = race.enter([&] {
    return runProgram({"grep", "-c", "-i", "-F", "-f", patterns, log.file}, {{"LC_ALL", "C"}},
                      setup.directory + "/count");
  });
  const std::size_t pipeLimit = race.enter([&] { return limitOfPipe(log); });
  const std::size_t pipe = race.enter([&] { return judgePipe(log); });
  race.run(setup.rounds);

  const std::size_t bytes = log.facts.bytes;
  return {speedRow("output lines from a file", race, ours, fileLimit, bytes, 1.5),
          {"the same beside grep -i -F", speedText(bytes, race.median(grep, &Cost::wall)),
           speedText(bytes, race.median(ours, &Cost::wall)), ratioText(race, ours, grep, &Cost::wall),
           ratioText(race, ours, grep, &Cost::cpu), "≤ 0.50", race.ratio(ours, grep, &Cost::wall) <= 0.5},
          speedRow("output lines from a pipe", race, pipe, pipeLimit, bytes, 1.4)};
}

std::vector<Row> lineCurveRows(const Setup& setup) {
  const std::string types = setup.directory + "/types";
  std::filesystem::create_directory(types);
  constexpr std::array counts = {1, 10, 60};
  for (const int count : counts) {
    writeFile(types + "/log" + std::to_string(count) + ".tvx", typeOfTheLog(count, someTexts(count)));
  }
  ModuleLoader loader;
  loader.Load({Path(ModuleUnderTest::directory()), Path(types)});

  std::vector<Row> rows;
  for (const int count : counts) {
    for (const std::size_t perMille : {0U, 10U, 50U, 200U, 1000U}) {
      const LogTexts texts = someTexts(count);
      const std::string file = setup.directory + "/log";
      const std::size_t size = setup.quick ? 200'000 : 20'000'000;
      const Log log{file, writeMatchingLog(file, size, texts, perMille), texts, count};
      Race race;
      const std::size_t limit = race.enter([&] { return limitOfFile(log); });
      const std::size_t ours = race.enter([&] { return judgeFile(log); });
      race.run(setup.rounds);
      rows.push_back(
          speedRow(std::to_string(count) + " texts, " + std::to_string(perMille / 10) + " % of lines match",
                   race, ours, limit, log.facts.bytes, 1.5));
    }
  }
  return rows;
}

} // namespace bench
