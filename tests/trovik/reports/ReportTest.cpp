#include "tests/trovik/verbs/VerbTest.h"
#include "trovik/text/Json.h"
#include "trovik/verbs/Verbs.h"

#include <filesystem>

namespace trovik {
namespace {

class Show : public VerbTest {};

std::string badThird(int frame) {
  return frame == 3 ? "Error line: scene_0003 is broken" : "";
}

TEST_F(Show, AFailedJobTellsWhyAndWhatToDo) {
  queue.submit(jobOf("1,2,3,4"));
  workOff(badThird);
  const Printed printed = steady(showJob, optionsFor({"1"}));
  EXPECT_EQ(printed.out, "job 1  failed  shot\n"
                         "type       Sketch\n"
                         "scene      /scenes/shot_%04d.skt\n"
                         "range      1,2,3,4\n"
                         "submitted  DATE (TIME ago), took TIME\n"
                         "frames     3 of 4 frames good, 1 failed\n"
                         "good       1-2,4\n"
                         "failed     3\n"
                         "images     3 in DIR/out\n"
                         "logs       DIR/logs/1\n"
                         "failed  3  Error line: scene_0003 is broken\n"
                         "next       trovik log 1 3  what the program said\n"
                         "           trovik retry 1  do the rest\n");
  EXPECT_EQ(printed.code, exitGood);
}

TEST_F(Show, TwoProgramsOfOneJobAreTold) {
  queue.submit(jobOf("1-2,3-4"));
  for (const char* program : {"/opt/paint-1/paint", "/opt/paint-2/paint"}) {
    Outcome outcome = good(take().attempt);
    outcome.command = std::string(program) + " -x";
    queue.settle(outcome);
  }
  const Printed printed = steady(showJob, optionsFor({"1"}));
  EXPECT_NE(printed.out.find("programs   rendered by 2 programs: \"/opt/paint-1/paint\" (1-2), "
                             "\"/opt/paint-2/paint\" (3-4)\n"),
            std::string::npos)
      << printed.out;
}

TEST_F(Show, ALongDecidingLineIsToldWhole) {
  queue.submit(jobOf("1"));
  const Claim claim = take();
  const std::string line = "fatal: " + std::string(350, 'x') + " at the end";
  Outcome outcome = failed(claim.attempt, "Error line: " + line.substr(0, 300) + "…");
  outcome.lines = {"reading", line};
  queue.settle(outcome);
  const Printed printed = steady(showJob, optionsFor({"1"}));
  EXPECT_NE(printed.out.find("…\n  | " + line + '\n'), std::string::npos) << printed.out;
}

TEST_F(Show, ARunningJobTellsItsAttemptsAndWhatIsLeft) {
  NewJob job = jobOf("1-2,3-4,5-6,7-8");
  job.retries = 1;
  queue.submit(job);
  Outcome outcome = good(take().attempt);
  outcome.duration = std::chrono::seconds(20);
  queue.settle(outcome);
  queue.settle(failed(take().attempt, "Error line: bad"));
  const Claim third = take();
  take();
  take(); // the second again
  queue.noteFile(third.attempt, file("/out/5.png"));
  const Printed printed = steady(showJob, optionsFor({"last"}));
  EXPECT_EQ(printed.out, "job 1  running  shot\n"
                         "type       Sketch\n"
                         "scene      /scenes/shot_%04d.skt\n"
                         "range      1-2,3-4,5-6,7-8\n"
                         "submitted  DATE (TIME ago), first work TIME ago\n"
                         "frames     2 of 8 frames good, 6 running\n"
                         "good       1-2\n"
                         "running    5-6  for TIME, on engine 1, 1 file so far\n"
                         "           7-8  for TIME, on engine 1\n"
                         "           3-4  for TIME, on engine 1, attempt 2\n"
                         "left       about 23 s\n"
                         "logs       DIR/logs/1\n"
                         "next       trovik watch 1  follow it\n");
}

TEST_F(Show, AWaitingJobSaysThatNoEngineIsAtWork) {
  queue.submit(jobOf("1-5"));
  queue.leaveEngine(engine);
  EXPECT_EQ(steady(showJob, optionsFor({"1"})).out, "job 1  waiting  shot\n"
                                                    "type       Sketch\n"
                                                    "scene      /scenes/shot_%04d.skt\n"
                                                    "range      1-5\n"
                                                    "submitted  DATE (TIME ago)\n"
                                                    "frames     0 of 5 frames good, 5 waiting\n"
                                                    "waiting    1-5\n"
                                                    "logs       DIR/logs/1\n"
                                                    "next       trovik engine --job 1  do the rest\n");
}

TEST_F(Show, AStoppedJobSaysWhy) {
  queue.submit(jobOf("1,2"));
  queue.stop(1, "the user put it aside");
  const std::string text = steady(showJob, optionsFor({"1"})).out;
  EXPECT_EQ(text.substr(0, text.find("type")), "job 1  stopped  shot\nwhy        the user put it aside\n");
  EXPECT_NE(text.find("frames     0 of 2 frames good, 2 not done\nnot done   1-2\n"), std::string::npos)
      << text;
  EXPECT_NE(text.find("next       trovik retry 1  do the rest\n"), std::string::npos) << text;
}

TEST_F(Show, AWorkWithoutFramesHasNone) {
  NewJob job = jobOf("0");
  job.hasFrames = false;
  job.range.clear();
  job.scene.clear();
  job.name.clear();
  queue.submit(job);
  workOff([](int) { return "Error line: bad"; });
  EXPECT_EQ(steady(showJob, optionsFor({"1"})).out, "job 1  failed  job 1\n"
                                                    "type       Sketch\n"
                                                    "submitted  DATE (TIME ago), took TIME\n"
                                                    "work       0 of 1 work good, 1 failed\n"
                                                    "logs       DIR/logs/1\n"
                                                    "failed  work  Error line: bad\n"
                                                    "next       trovik log 1    what the program said\n"
                                                    "           trovik retry 1  do the rest\n");
}

TEST_F(Show, TextsFromOutsideCannotSteerTheTerminal) {
  NewJob job = jobOf("1");
  job.name = "\x1b[2J";
  job.scene = "/s/\x1b]0;x\a.skt";
  queue.submit(job);
  workOff([](int) { return "Error line: \x1b[31mred\n"; });
  EXPECT_EQ(call(showJob, optionsFor({"1"}), true).out.find('\x1b'), std::string::npos);
}

TEST_F(Show, JsonHoldsTheSame) {
  queue.submit(jobOf("1,2,3,4"));
  workOff(badThird);
  JobOptions options = optionsFor({"1"});
  options.json = true;
  const Json document = Json::parse(call(showJob, options).out);
  EXPECT_EQ(document.at("kind"), "job");
  EXPECT_EQ(document.at("state"), "failed");
  EXPECT_EQ(document.at("engine"), true);
  EXPECT_EQ(document.at("left"), nullptr);
  EXPECT_EQ(document.at("failures").dump(),
            R"([{"frames":"3","works":1,"reason":"Error line: scene_0003 is broken","rule":"error line",)"
            R"("line":"scene_0003 is broken","log":")" +
                directory.file("logs/3-3.log") + "\"}]");
  EXPECT_EQ(document.at("images").dump(), R"([{"directory":")" + directory.file("out") + R"(","count":3}])");
}

TEST_F(Show, AJobThatIsNotThereIsRefused) {
  queue.submit(jobOf("1"));
  EXPECT_EQ(refusalOf([&] { call(showJob, optionsFor({"7"})); }).message, "there is no job 7");
  EXPECT_EQ(refusalOf([&] { call(showJob, optionsFor({"7"})); }).hint, "\"trovik jobs\" lists them");
  for (const char* text : {"x", "0", "-3", "1x", "", "99999999999999999999"}) {
    EXPECT_EQ(refusalOf([&] { call(showJob, optionsFor({text})); }).message,
              '"' + std::string(text) + "\" is not the number of a job");
  }
}

/// A whole PNG file of one pixel.
const std::string onePixel("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\0\1\0\0\0\1\b\0\0\0\0:~\x9bU\0\0\0\nIDATx\x9c"
                           "c`\0\0\0\2\0\1H\xaf\xa4q\0\0\0\0IEND\xae"
                           "B`\x82",
                           67);

class Images : public VerbTest {
protected:
  /// A good frame with the file on the disk.
  void render(int frame, const std::string& name, const std::string& content = "image") {
    const Claim claim = take();
    Outcome outcome = good(claim.attempt);
    outcome.good = setOf(std::to_string(frame));
    outcome.files = {image(frame, content.empty() ? directory.file(name) : directory.write(name, content))};
    queue.settle(outcome);
  }
};

TEST_F(Images, AreListedInTheOrderOfFrames) {
  queue.submit(jobOf("10,9,1"));
  render(10, "i/a.drw");
  render(9, "i/c.drw");
  render(1, "i/b\n.drw");
  EXPECT_EQ(steady(listImages, optionsFor({"1"})).out, "DIR/i/b\\n.drw\nDIR/i/c.drw\nDIR/i/a.drw\n");
}

TEST_F(Images, BadAndUncheckedFilesAreToldInJsonAlone) {
  queue.submit(jobOf("1,2,3"));
  render(1, "i/a.drw");
  Outcome outcome = failed(take().attempt);
  outcome.files = {image(2, "/out/2.png", "It is empty")};
  queue.settle(outcome);
  queue.noteFile(take().attempt, file("/out/3.png"));
  EXPECT_EQ(steady(listImages, optionsFor({"1"})).out, "DIR/i/a.drw\n");
  ImagesOptions options = optionsFor({"1"});
  options.json = true;
  EXPECT_EQ(Json::parse(call(listImages, options).out).at("files").dump(),
            R"([{"frame":1,"file":")" + directory.file("i/a.drw") +
                R"(","checked":true,"size":5,"problem":null},)"
                R"({"frame":2,"file":"/out/2.png","checked":true,"size":1234,"problem":"It is empty"},)"
                R"({"frame":null,"file":"/out/3.png","checked":false,"size":null,"problem":null}])");
}

TEST_F(Images, TheLastWordOnAFileCounts) {
  queue.submit(jobOf("1"));
  render(1, "i/a.drw");
  queue.retry(1, setOf("1"));
  Outcome outcome = failed(take().attempt);
  outcome.files = {image(1, directory.file("i/a.drw"), "It is cut off")};
  queue.settle(outcome);
  EXPECT_EQ(call(listImages, optionsFor({"1"})).out, "");
  EXPECT_EQ(call(listImages, optionsFor({"1"}), true).out, "no images yet\n");
}

TEST_F(Images, MissingFramesAreARangeOfThoseNotGoodOrGone) {
  queue.submit(jobOf("1,2,3,4,5,6-9"));
  render(1, "i/1.drw");
  render(2, "i/2.drw");
  render(3, "i/3.drw", "");
  std::filesystem::resize_file(directory.file("i/2.drw"), 0);
  queue.settle(failed(take().attempt));
  render(5, "i/5.drw");
  ImagesOptions options = optionsFor({"1"});
  options.missing = true;
  const Printed printed = call(listImages, options);
  EXPECT_EQ(printed.out, "2-4,6-9\n");
  EXPECT_EQ(printed.code, exitFailed);
  options.json = true;
  const Json document = Json::parse(call(listImages, options).out);
  EXPECT_EQ(document.at("kind"), "images.missing");
  EXPECT_EQ(document.at("frames"), "2-4,6-9");
  EXPECT_EQ(document.at("count"), 7);
}

TEST_F(Images, NothingMissingPrintsNothing) {
  queue.submit(jobOf("1"));
  render(1, "i/1.drw");
  ImagesOptions options = optionsFor({"1"});
  options.missing = true;
  const Printed printed = call(listImages, options);
  EXPECT_EQ(printed.out, "");
  EXPECT_EQ(printed.code, exitGood);
}

TEST_F(Images, AFileThatWasCutSinceIsMissingForAllThatAsk) {
  queue.submit(jobOf("1,2"));
  render(1, "i/1.png", onePixel);
  render(2, "i/2.png", onePixel);
  EXPECT_EQ(steady(listImages, optionsFor({"1"})).out, "DIR/i/1.png\nDIR/i/2.png\n");
  std::filesystem::resize_file(directory.file("i/2.png"), onePixel.size() - 20);
  EXPECT_EQ(steady(listImages, optionsFor({"1"})).out, "DIR/i/1.png\n");
  ImagesOptions options = optionsFor({"1"});
  options.missing = true;
  EXPECT_EQ(call(listImages, options).out, "2\n");
  EXPECT_NE(steady(showJob, optionsFor({"1"})).out.find("images     1 in DIR/i\n"), std::string::npos);
  options.missing = false;
  options.json = true;
  const Json files = Json::parse(call(listImages, options).out).at("files");
  EXPECT_EQ(files.at(0).at("problem"), nullptr);
  EXPECT_EQ(files.at(1).at("problem").get<std::string>().find("Truncated or damaged image"), 0U) << files;
}

} // namespace
} // namespace trovik
