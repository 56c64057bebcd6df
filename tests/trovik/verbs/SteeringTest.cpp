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

TEST_F(Retry, TellsTheFramesThatAreDoneAgainAndNotAllThatWait) {
  queue.submit(jobOf("1,2,3"));
  Outcome outcome;
  outcome.attempt = queue.claim(engine, 1, std::nullopt).at(0).attempt;
  outcome.state = AttemptState::Good;
  queue.settle(outcome);
  RetryOptions options = optionsFor({"1"});
  options.frames = "1";
  EXPECT_EQ(call(retryJobs, options).out, "job 1  1 frame to do: 1\n");
  EXPECT_EQ(queue.frames(1).ready.text(), "1-3");
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

class Steering : public VerbTest {
protected:
  static std::string jobsIn(const Printed& printed) {
    std::string text;
    const Json document = Json::parse(printed.out);
    for (const Json& job : document.at("jobs")) {
      text += (text.empty() ? "" : " ") + job.at("job").dump();
    }
    return text;
  }
};

TEST_F(Steering, WithoutJobsOneIsAskedFor) {
  const auto refused = refusalOf([&] { call(retryJobs, optionsFor()); });
  EXPECT_EQ(refused.message, "\"trovik retry\" needs the number of a job, or \"last\" for the newest");
  EXPECT_EQ(refused.hint, "\"trovik jobs\" lists them; --status, --type and --name choose several");
  EachJobOptions both = optionsFor({"1"});
  both.name = "a";
  EXPECT_EQ(refusalOf([&] { call(holdJobs, both); }).message,
            "numbers of jobs and --status, --type or --name exclude each other");
}

TEST_F(Steering, JobsAreChosenByStateTypeAndName) {
  for (const char* name : {"shot a", "shot b", "other"}) {
    NewJob job = jobOf("1");
    job.name = name;
    queue.submit(job);
  }
  queue.cancel(3);
  EachJobOptions options = optionsFor();
  options.json = options.yes = true;
  options.status = "waiting";
  EXPECT_EQ(jobsIn(call(holdJobs, options)), "1 2");
  options.status = "stopped";
  options.name = "SHOT ?";
  options.type = "sk*";
  EXPECT_EQ(jobsIn(call(releaseJobs, options)), "1 2");
  options.name = "shot c";
  const Printed none = call(releaseJobs, options);
  EXPECT_EQ(jobsIn(none), "");
  EXPECT_EQ(none.code, exitGood);
  options.json = false;
  EXPECT_EQ(call(releaseJobs, options).out, "no job is like that\n");
  options.status = "waitin";
  EXPECT_EQ(refusalOf([&] { call(releaseJobs, options); }).message, "--status: there is no state \"waitin\"");
}

TEST_F(Steering, ManyJobsAreOnlyTakenWhereTheUserHasAgreed) {
  queue.submit(jobOf("1"));
  queue.submit(jobOf("1"));
  CancelOptions options = optionsFor();
  options.type = "*";
  const auto refused = refusalOf([&] { call(cancelJobs, options); });
  EXPECT_EQ(refused.message, "to cancel 2 jobs (1 2), give --yes");
  EXPECT_EQ(stateOf(1), JobState::Waiting);
  options.dryRun = true;
  EXPECT_EQ(call(cancelJobs, options).out, "job 1  canceled\n"
                                           "job 2  canceled\n"
                                           "nothing was changed: this was a dry run\n");
  EXPECT_EQ(stateOf(1), JobState::Waiting);
  options.dryRun = false;
  options.yes = true;
  call(cancelJobs, options);
  EXPECT_EQ(stateOf(2), JobState::Canceled);
}

TEST_F(Steering, WhatMayChangeIsChangedAndTold) {
  queue.submit(jobOf("1,2,3,4,5,8"));
  take();
  const Printed printed = call(setJobs, optionsFor({"1", "priority=80", "Retries=2", "SlotsAtMost=1"}));
  EXPECT_EQ(printed.out, "job 1  Priority 50 -> 80, Retries 0 -> 2, SlotsAtMost 0 -> 1\n");
  const JobRecord job = queue.job(1).value();
  EXPECT_EQ(job.priority, 80);
  EXPECT_EQ(job.retries, 2);
  EXPECT_EQ(job.slotsAtMost, 1);
  EachJobOptions options = optionsFor({"1", "PacketSize=3"});
  options.dryRun = true;
  EXPECT_EQ(call(setJobs, options).out, "job 1  PacketSize 3: 5 works that have not begun become 3\n"
                                        "nothing was changed: this was a dry run\n");
  EXPECT_EQ(queue.frames(1).readyWorks, 5U);
  options.dryRun = false;
  options.json = true;
  EXPECT_EQ(Json::parse(call(setJobs, options).out).at("jobs").dump(),
            R"([{"job":1,"changed":{"PacketSize":3}}])");
  EXPECT_EQ(queue.frames(1).readyWorks, 3U);
  EXPECT_EQ(standing(1), "2-5,8 1 - - -");
}

TEST_F(Steering, WhatCannotChangeIsRefused) {
  queue.submit(jobOf("1"));
  const auto refused = [&](const std::string& assignment) {
    return refusalOf([&] { call(setJobs, optionsFor({"1", assignment})); }).message;
  };
  EXPECT_EQ(refused("Scene=x"), "\"Scene\" cannot change once a job is in the queue");
  EXPECT_EQ(refused("Priority=101"), "Priority: \"101\" is not a whole number from 0 to 100");
  EXPECT_EQ(refused("Priority="), "Priority: \"\" is not a whole number from 0 to 100");
  EXPECT_EQ(refused("PacketSize=0"), "PacketSize: \"0\" is not a whole number from 1 to 10000000, or auto");
  EXPECT_EQ(refused("Limits=renderer"), "Limits: there is no limit \"renderer\"");
  EXPECT_EQ(refusalOf([&] { call(setJobs, optionsFor({"1"})); }).message,
            "\"trovik set\" needs what is to change");
  EXPECT_EQ(refusalOf([&] {
              call(setJobs, optionsFor({"1", "Retries=1", "retries=2"}));
            }).message,
            "Retries is given twice");
  workOff();
  EXPECT_EQ(call(setJobs, optionsFor({"1", "Retries=1"})).error,
            "trovik: error: job 1 is good; nothing of it is left to do\n"
            "hint: \"trovik retry 1\" opens it again\n");
}

TEST_F(Steering, LimitsOfTheQueueMayBeTaken) {
  queue.submit(jobOf("1"));
  queue.setLimits({{"floating", 3}, {"renderer", 2}});
  EXPECT_EQ(call(setJobs, optionsFor({"1", "Limits=Renderer; floating=3"})).out,
            "job 1  Limits none -> floating=3;renderer\n");
  EXPECT_EQ(queue.takes(1), (std::vector<LimitShare>{{"floating", 3}, {"renderer", 1}}));
  const auto refused = [&](const std::string& limits) {
    return refusalOf([&] { call(setJobs, optionsFor({"1", "Limits=" + limits})); }).message;
  };
  EXPECT_EQ(refused("renderer=3"), "Limits: a work takes 3 of \"renderer\", of which there are 2");
  EXPECT_EQ(refused("renderer=0"), "Limits: \"renderer=0\" is no part of a limit");
  EXPECT_EQ(refused("a,b"), "Limits: there is no limit \"a\"");
  EXPECT_EQ(refused("b:c"), "Limits: \"b:c\" is no part of a limit");
  EXPECT_EQ(refused("renderer;RENDERER"), "Limits: \"renderer\" is named twice");
  EXPECT_EQ(call(setJobs, optionsFor({"1", "Limits="})).out, "job 1  Limits floating=3;renderer -> none\n");
}

TEST_F(Steering, HeldJobsAndThoseThatWaitAreReleased) {
  const JobId first = queue.submit(jobOf("1"));
  NewJob waits = jobOf("1");
  waits.forerunners = {{.job = first}};
  queue.submit(waits);
  EXPECT_EQ(call(holdJobs, optionsFor({"2"})).out, "job 2  held\n");
  EXPECT_EQ(stateOf(2), JobState::Stopped);
  EXPECT_EQ(call(releaseJobs, optionsFor({"2"})).out, "job 2  released; it waits for job 1 all the same\n");
  EachJobOptions options = optionsFor({"2"});
  options.dryRun = true;
  EXPECT_EQ(call(releaseJobs, options).out, "job 2  released; it waits for job 1 no more\n"
                                            "nothing was changed: this was a dry run\n");
  EXPECT_TRUE(queue.job(2)->blocked);
}

} // namespace
} // namespace trovik
