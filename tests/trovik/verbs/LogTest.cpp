#include "tests/trovik/verbs/VerbTest.h"
#include "trovik/text/Json.h"
#include "trovik/verbs/Verbs.h"

namespace trovik {
namespace {

class Log : public VerbTest {
protected:
  LogOptions optionsAt(const std::string& frame) const {
    LogOptions options = optionsFor({"1"});
    options.frame = frame;
    return options;
  }

  std::optional<ProcessUsage> usage; // of the next program

  /// The next work fails, and leaves a log.
  void fail(const std::string& log) {
    const Claim claim = take();
    Outcome outcome = failed(claim.attempt, "Error line: fatal: bad scene");
    outcome.lines = {"reading", "fatal: bad scene", "giving up"};
    outcome.exitCode = 3;
    outcome.usage = usage;
    outcome.command = "sketch --frames " + std::string(claim.run.Text());
    outcome.duration = std::chrono::seconds(12);
    outcome.log = directory.write("logs/1/" + std::string(claim.run.Text()) + ".log", log);
    queue.settle(outcome);
  }
};

TEST_F(Log, AFailureTellsVerdictDecidingLinesAndTheEndOfTheLog) {
  queue.submit(jobOf("1,2"));
  fail("starting\nreading\nfatal: bad scene\ngiving up\nremoving temporary files\n");
  EXPECT_EQ(steady(showLog, optionsFor({"1"})).out, "failed  1  job 1, attempt 1, started DATE, took 12 s\n"
                                                    "reason   Error line: fatal: bad scene\n"
                                                    "rule     an error line\n"
                                                    "command  sketch --frames 1-1\n"
                                                    "ended    with exit code 3\n"
                                                    "  | reading\n"
                                                    "  > fatal: bad scene\n"
                                                    "  | giving up\n"
                                                    "log      DIR/logs/1/1-1.log  69 bytes\n"
                                                    "  | starting\n"
                                                    "  | reading\n"
                                                    "  | fatal: bad scene\n"
                                                    "  | giving up\n"
                                                    "  | removing temporary files\n");
}

TEST_F(Log, WhatTheProgramHasUsedIsTold) {
  queue.submit(jobOf("1,3,2"));
  usage = ProcessUsage{62000000, 1400000, 1830000000, 3100000000, 20000};
  fail("giving up\n");
  LogOptions options = optionsAt("1");
  const std::string text = call(showLog, options).out;
  EXPECT_NE(text.find("ended    with exit code 3\n"
                      "used     1 min 03 s of processors, 1.8 GB of memory, read 3.1 GB, wrote 20 kB\n"),
            std::string::npos)
      << text;
  options.json = true;
  const Json document = Json::parse(call(showLog, options).out);
  EXPECT_EQ(document.at("attempts").at(0).at("usage").dump(),
            R"({"user":62.0,"system":1.4,"memory":1830000000,"read":3100000000,"written":20000})");

  usage = ProcessUsage{INT64_MAX, INT64_MAX, INT64_MAX, std::nullopt, std::nullopt};
  fail("giving up\n");
  options = optionsAt("3");
  EXPECT_NE(call(showLog, options).out.find(" of processors, 9.2 EB of memory\n"), std::string::npos);

  usage = ProcessUsage{0, 0, 999, std::nullopt, std::nullopt};
  fail("giving up\n");
  options = optionsAt("2");
  EXPECT_NE(call(showLog, options).out.find("used     0.0 s of processors, 999 bytes of memory\n"),
            std::string::npos);
}

TEST_F(Log, WhatEndsWithTheDecidingLinesIsNotToldTwice) {
  queue.submit(jobOf("1"));
  fail("reading\nfatal: bad scene\ngiving up\n");
  const std::string text = steady(showLog, optionsFor({"1"})).out;
  EXPECT_EQ(text.substr(text.find("log ")), "log      DIR/logs/1/1-1.log  35 bytes\n");
}

TEST_F(Log, AllPrintsEveryByteBehindIt) {
  queue.submit(jobOf("1"));
  const std::string log = std::string("a\0b\xff\x1b[31m\r\n", 11) + "giving up\n";
  fail(log);
  LogOptions options = optionsFor({"1"});
  options.all = true;
  const std::string text = call(showLog, options).out;
  ASSERT_GT(text.size(), log.size());
  EXPECT_EQ(text.substr(text.size() - log.size()), log);
  const std::string shown = call(showLog, options, true).out;
  EXPECT_EQ(shown.find('\x1b'), std::string::npos);
  EXPECT_NE(shown.find("a\\x00b\\xff\\x1b[31m\\r\ngiving up\n"), std::string::npos) << shown;
}

TEST_F(Log, AHugeCommandDoesNotFillATerminal) {
  queue.submit(jobOf("1"));
  Outcome outcome = failed(take().attempt);
  outcome.command = "sketch " + std::string(5000, 'x');
  queue.settle(outcome);
  EXPECT_LT(call(showLog, optionsFor({"1"}), true).out.size(), 600U);
  LogOptions options = optionsFor({"1"});
  EXPECT_NE(call(showLog, options).out.find(outcome.command + '\n'), std::string::npos);
  options.all = true;
  EXPECT_NE(call(showLog, options, true).out.find(outcome.command + '\n'), std::string::npos);
}

TEST_F(Log, ManyFailuresAreBoundedAndTheRestNamed) {
  queue.submit(jobOf("1,2,3,4,5,6,7,9"));
  for (int i = 0; i < 8; ++i) {
    fail("giving up\n");
  }
  const std::string text = steady(showLog, optionsFor({"1"})).out;
  EXPECT_NE(text.find("\nfailed  5  job 1"), std::string::npos);
  EXPECT_EQ(text.find("\nfailed  6  job 1"), std::string::npos);
  EXPECT_EQ(text.substr(text.find("\nand ")), "\nand 3 more failed works: 6-7,9; name one to see it\n");
}

TEST_F(Log, AFrameHasItsLastAttemptOrTheOneThatIsNamed) {
  NewJob job = jobOf("1-2,3");
  job.retries = 1;
  queue.submit(job);
  fail("first\n");
  queue.settle(good(take().attempt));
  Outcome outcome = good(take().attempt);
  outcome.good = setOf("1-2");
  queue.settle(outcome);
  EXPECT_EQ(steady(showLog, optionsAt("2")).out, "good  1-2  job 1, attempt 2, started DATE, took 0.0 s\n"
                                                 "rule     success texts, else the exit code\n"
                                                 "log      it printed nothing\n");
  LogOptions options = optionsAt("2");
  options.attempt = "1";
  EXPECT_EQ(steady(showLog, options).out.substr(0, 31), "failed  1-2  job 1, attempt 1, ");
  options.attempt = "3";
  const Refusal refused = refusalOf([&] { call(showLog, options); });
  EXPECT_EQ(refused.message, "frame 2 of job 1 had no attempt 3");
  EXPECT_EQ(refused.hint, "its attempts are 1, 2");
}

TEST_F(Log, WithoutFailuresTheLastAttemptIsShown) {
  queue.submit(jobOf("1,2"));
  workOff();
  EXPECT_EQ(steady(showLog, optionsFor({"1"})).out.substr(0, 17), "good  2  job 1, a");
}

TEST_F(Log, ARunningAttemptShowsItsLogSoFar) {
  queue.submit(jobOf("1"));
  take();
  EXPECT_EQ(steady(showLog, optionsAt("1")).out, "running  1  job 1, attempt 1, started DATE, for TIME\n"
                                                 "log      it has printed nothing yet\n");
  directory.write("logs/1/1-1.log", "10 %\n20 %\n");
  EXPECT_EQ(steady(showLog, optionsAt("1")).out, "running  1  job 1, attempt 1, started DATE, for TIME\n"
                                                 "log      DIR/logs/1/1-1.log  10 bytes\n"
                                                 "  | 10 %\n"
                                                 "  | 20 %\n");
}

TEST_F(Log, ALogThatIsGoneIsToldAsSuch) {
  queue.submit(jobOf("1"));
  fail("x\n");
  std::remove(directory.file("logs/1/1-1.log").c_str());
  const std::string text = steady(showLog, optionsFor({"1"})).out;
  EXPECT_EQ(text.substr(text.find("log ")), "log      DIR/logs/1/1-1.log  (cannot be read)\n");
}

TEST_F(Log, WrongFramesAreRefusedWithWhatThereIs) {
  NewJob job = jobOf("5-8");
  job.found = runsOf("1-2");
  queue.submit(job);
  const auto refused = [&](const std::string& frame) {
    return refusalOf([&] { call(showLog, optionsAt(frame)); });
  };
  EXPECT_EQ(refused("3").message, "job 1 has no frame 3");
  EXPECT_EQ(refused("3").hint, "its frames are 1-2,5-8");
  EXPECT_EQ(refused("x").message, "\"x\" is not the number of a frame");
  EXPECT_EQ(refused("5").message, "frame 5 of job 1 was not started yet");
  EXPECT_EQ(refused("1").message, "frame 1 of job 1 was good before; nothing was started for it");
  EXPECT_EQ(refusalOf([&] { call(showLog, optionsFor({"1"})); }).message, "nothing of job 1 was started yet");
}

TEST_F(Log, OptionsThatDoNotGoTogetherAreRefused) {
  queue.submit(jobOf("4"));
  workOff();
  LogOptions options = optionsFor({"1"});
  options.attempt = "1";
  const Refusal refused = refusalOf([&] { call(showLog, options); });
  EXPECT_EQ(refused.message, "--attempt needs a frame");
  EXPECT_EQ(refused.hint, "such as \"trovik log 1 4 --attempt 1\"");
  options = optionsFor({"1"});
  options.all = options.json = true;
  EXPECT_EQ(refusalOf([&] { call(showLog, options); }).message, "--all and --json exclude each other");
}

TEST_F(Log, JsonHoldsTheSame) {
  queue.submit(jobOf("1"));
  fail("giving up\n");
  LogOptions options = optionsFor({"1"});
  options.json = true;
  const Json document = Json::parse(call(showLog, options).out);
  EXPECT_EQ(document.at("kind"), "log");
  Json attempt = document.at("attempts").at(0);
  EXPECT_TRUE(attempt.at("started").is_number());
  attempt.erase("started");
  EXPECT_EQ(attempt.dump(),
            R"({"frames":"1","attempt":1,"state":"failed","rule":"error line",)"
            R"("reason":"Error line: fatal: bad scene","lines":["reading","fatal: bad scene","giving up"],)"
            R"("deciding":"fatal: bad scene","good":"","command":"sketch --frames 1-1","exitCode":3,)"
            R"("signal":null,"seconds":12.0,"usage":null,"log":")" +
                directory.file("logs/1/1-1.log") + R"(","bytes":10,"last":["giving up"]})");
}

} // namespace
} // namespace trovik
