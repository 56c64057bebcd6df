#include "tests/trovik/verbs/VerbTest.h"
#include "trovik/text/Json.h"
#include "trovik/verbs/Verbs.h"

#include <filesystem>

#include <unistd.h>

namespace trovik {
namespace {

class Retry : public VerbTest {};

TEST_F(Retry, OpensTheFailedWorksAgain) {
  queue.submit(jobOf("1,2,3"));
  workOff([](int frame) { return frame == 2 ? "Error line: bad" : ""; });
  const Printed printed = call(retryJobs, optionsFor({"1"}));
  EXPECT_EQ(printed.out, "job 1  1 frame to do: 2\n");
  EXPECT_EQ(printed.code, exitGood);
  EXPECT_EQ(standing(1), "2 - 1,3 - -");
}

TEST_F(Retry, SaysHowToStartAnEngineWhereNoneLives) {
  queue.submit(jobOf("1"));
  workOff([](int) { return "Error line: bad"; });
  queue.leaveEngine(engine);
  EXPECT_EQ(call(retryJobs, optionsFor({"1"})).out,
            "job 1  1 frame to do: 1\n"
            "No engine is at work; start one with \"trovik engine\"\n");
}

TEST_F(Retry, FramesTakeGoodOnesToo) {
  queue.submit(jobOf("1-9"));
  workOff();
  RetryOptions options = optionsFor({"last"});
  options.frames = "1-9x4";
  EXPECT_EQ(call(retryJobs, options).out, "job 1  3 frames to do: 1,5,9\n");
  EXPECT_EQ(standing(1), "1,5,9 - 2-4,6-8 - -");
}

TEST_F(Retry, FramesThatTheJobDoesNotHaveAreRefused) {
  queue.submit(jobOf("1-9"));
  workOff();
  RetryOptions options = optionsFor({"1"});
  options.frames = "8-12,20";
  const Printed printed = call(retryJobs, options);
  EXPECT_EQ(printed.error, "trovik: error: job 1 has no frames 10-12,20\nhint: its frames are 1-9\n");
  EXPECT_EQ(printed.code, exitUsage);
  EXPECT_EQ(standing(1), "- - 1-9 - -");
  options.frames = "1-x";
  EXPECT_EQ(refusalOf([&] { call(retryJobs, options); }).message,
            "--frames: frame range:1:3: a number is missing after \"-\"\n    1 | 1-x\n      |   ^");
  options.frames = " ";
  EXPECT_EQ(refusalOf([&] { call(retryJobs, options); }).message, "--frames: the range is empty");
}

TEST_F(Retry, MissingTakesTheFramesWhoseFilesAreGone) {
  queue.submit(jobOf("1,2,3"));
  workOff();
  std::filesystem::remove_all(directory.file("out"));
  RetryOptions options = optionsFor({"1"});
  options.missing = true;
  EXPECT_EQ(call(retryJobs, options).out, "job 1  3 frames to do: 1-3\n");
  options.frames = "1";
  EXPECT_EQ(refusalOf([&] { call(retryJobs, options); }).message,
            "--frames and --missing exclude each other");
}

TEST_F(Retry, AStoppedJobGoesOn) {
  queue.submit(jobOf("1,2"));
  queue.stop(1, "aside");
  EXPECT_EQ(call(retryJobs, optionsFor({"1"})).out, "job 1  2 frames to do: 1-2\n");
  EXPECT_EQ(stateOf(1), JobState::Waiting);
}

TEST_F(Retry, AGoodJobHasNothingToBeDone) {
  queue.submit(jobOf("1"));
  workOff();
  EXPECT_EQ(call(retryJobs, optionsFor({"1"})).out, "job 1  nothing to do\n");
  EXPECT_EQ(stateOf(1), JobState::Good);
}

TEST_F(Retry, JsonTellsEachJobAndProblem) {
  queue.submit(jobOf("1,2"));
  workOff([](int frame) { return frame == 2 ? "Error line: bad" : ""; });
  RetryOptions options = optionsFor({"1", "9", "last"});
  options.json = true;
  const Printed printed = call(retryJobs, options);
  EXPECT_EQ(Json::parse(printed.out).dump(),
            R"({"version":1,"kind":"retry","jobs":[{"job":1,"count":1,"waiting":"2","state":"running"}],)"
            R"("problems":[{"job":"9","message":"there is no job 9","hint":"\"trovik jobs\" lists them"}]})");
  EXPECT_EQ(printed.code, exitFailed);
}

class Cancel : public VerbTest {};

TEST_F(Cancel, SeveralJobsAreCanceledAndEveryProblemTold) {
  queue.submit(jobOf("1"));
  queue.submit(jobOf("1,2,3"));
  queue.submit(jobOf("1"));
  queue.settle(good(take(1).attempt));
  take(2);
  const Printed printed = call(cancelJobs, optionsFor({"1", "2", "7", "3"}));
  EXPECT_EQ(printed.out, "job 2  canceled; 1 program is asked to end\njob 3  canceled\n");
  EXPECT_EQ(printed.error, "trovik: error: job 1 is good already; there is nothing to cancel\n"
                           "hint: \"trovik delete 1\" removes it\n"
                           "trovik: error: there is no job 7\nhint: \"trovik jobs\" lists them\n");
  EXPECT_EQ(printed.code, exitFailed);
  EXPECT_EQ(stateOf(3), JobState::Canceled);
}

TEST_F(Cancel, AMistypedNumberIsRefusedBeforeAnythingIsDone) {
  queue.submit(jobOf("1"));
  EXPECT_EQ(refusalOf([&] {
              call(cancelJobs, optionsFor({"1", "x"}));
            }).message,
            "\"x\" is not the number of a job");
  EXPECT_EQ(stateOf(1), JobState::Waiting);
}

class Delete : public VerbTest {};

TEST_F(Delete, TakesTheJobWithItsLogs) {
  queue.submit(jobOf("1"));
  workOff();
  directory.write("logs/1/1-1.log", "x");
  directory.write("logs/2/keep.log", "x");
  const Printed printed = call(deleteJobs, optionsFor({"1"}));
  EXPECT_EQ(printed.out, "job 1  deleted\n");
  EXPECT_EQ(printed.code, exitGood);
  EXPECT_FALSE(queue.job(1).has_value());
  EXPECT_EQ(access(directory.file("logs/1").c_str(), F_OK), -1);
  EXPECT_EQ(access(directory.file("logs/2/keep.log").c_str(), F_OK), 0);
}

TEST_F(Delete, LeavesLogsThatTheUserPutElsewhere) {
  NewJob job = jobOf("1");
  job.logs = directory.file("mine");
  directory.write("mine/other.txt", "x");
  queue.submit(job);
  workOff();
  const Printed printed = steady(deleteJobs, optionsFor({"1"}));
  EXPECT_EQ(printed.out, "job 1  deleted; its logs stay in DIR/mine\n");
  EXPECT_EQ(access(directory.file("mine/other.txt").c_str(), F_OK), 0);
}

TEST_F(Delete, ALinkInTheLogsIsNotFollowed) {
  queue.submit(jobOf("1"));
  workOff();
  directory.write("treasure/keep", "x");
  directory.makeDirectory("logs/1");
  ASSERT_EQ(symlink(directory.file("treasure").c_str(), directory.file("logs/1/link").c_str()), 0);
  call(deleteJobs, optionsFor({"1"}));
  EXPECT_EQ(access(directory.file("logs/1").c_str(), F_OK), -1);
  EXPECT_EQ(access(directory.file("treasure/keep").c_str(), F_OK), 0);
}

TEST_F(Delete, AJobThatRunsIsRefused) {
  queue.submit(jobOf("1"));
  take();
  const Printed printed = call(deleteJobs, optionsFor({"1"}));
  EXPECT_EQ(printed.error, "trovik: error: works of job 1 are running\n"
                           "hint: \"trovik cancel 1\" ends them; then delete it\n");
  EXPECT_EQ(printed.code, exitUsage);
  EXPECT_TRUE(queue.job(1).has_value());
}

TEST_F(Delete, LastIsTheOneThatWasTheLastInTheBeginning) {
  queue.submit(jobOf("1"));
  queue.submit(jobOf("1"));
  EXPECT_EQ(call(deleteJobs, optionsFor({"2", "last"})).out, "job 2  deleted\n");
  EXPECT_TRUE(queue.job(1).has_value());
}

} // namespace
} // namespace trovik
