#include "trovik/page/PageAnswers.h"
#include "trovik/page/PageFrames.h"

#include "tests/trovik/FakeMachine.h"
#include "tests/trovik/queue/QueueTest.h"

#include <filesystem>
#include <limits>

namespace trovik {
namespace {

using Cut = std::pair<std::size_t, std::size_t>;

TEST(CutCharacters, APieceOfALogIsCutBetweenCharacters) {
  EXPECT_EQ(cutCharacters(""), Cut(0, 0));
  EXPECT_EQ(cutCharacters("abc"), Cut(0, 0));
  EXPECT_EQ(cutCharacters("\xc3\xa4"), Cut(0, 0));
  EXPECT_EQ(cutCharacters("a\xc3"), Cut(0, 1));
  EXPECT_EQ(cutCharacters("a\xe2\x82"), Cut(0, 2));
  EXPECT_EQ(cutCharacters("a\xf0\x9f\x98"), Cut(0, 3));
  EXPECT_EQ(cutCharacters("\xa4"
                          "b"),
            Cut(1, 0));
  EXPECT_EQ(cutCharacters("\x82\xac"
                          "b"),
            Cut(2, 0));
}

TEST(CutCharacters, WhatIsNoTextIsLeftAlone) {
  EXPECT_EQ(cutCharacters("\x80\x80\x80\x80\x80"), Cut(0, 0));
  EXPECT_EQ(cutCharacters("a\xff"), Cut(0, 1)); // nothing begins so, and a longer piece tells no more
  EXPECT_EQ(cutCharacters("a\x80"), Cut(0, 0));
}

class PageFramesTest : public QueueTest {
protected:
  AttemptId failedWith(const std::string& log) {
    const AttemptId attempt = take().attempt;
    Outcome outcome = failed(attempt, "Error line: fatal: <b>no</b>");
    outcome.lines = {"fatal: <b>no</b>"};
    outcome.log = log;
    queue.settle(outcome);
    return attempt;
  }
  Json piece(AttemptId attempt, std::optional<std::int64_t> from) {
    return logPieceJson(queue, attempt, from);
  }
  FakeInspector inspector;
  Json frame(JobId job, std::optional<int> number) {
    const JobView view = viewOf(queue, queue.job(job).value());
    FileStates states(inspector);
    states.begin(Clock::now(), Clock::time_point::max());
    return frameJson(queue, view, number, cellsOf(queue, view, states, Clock::now()));
  }
};

TEST_F(PageFramesTest, AFrameOfAQuickPacketHasATime) {
  const JobId id = queue.submit(jobOf("1-1000"));
  Outcome outcome = good(take().attempt);
  outcome.duration = std::chrono::milliseconds(300);
  queue.settle(outcome);
  const Revisions revisions{1, 1, {}};
  PageAnswers answers(queue, revisions, inspector);
  const Json cells = Json::parse(answers.cells(id));
  EXPECT_EQ(cells["seconds"].size(), 1000U);
  EXPECT_EQ(cells["seconds"][999], 0.0003);
}

TEST_F(PageFramesTest, ALogIsReadFromAnyByteOn) {
  queue.submit(jobOf("1"));
  const std::string text(200'000, 'x');
  const AttemptId attempt = failedWith(directory.write("1.log", text + "end"));
  const Json last = piece(attempt, std::nullopt);
  EXPECT_EQ(last["from"], 200'003 - 65536);
  EXPECT_EQ(last["next"], 200'003);
  EXPECT_EQ(last["size"], 200'003);
  EXPECT_EQ(last["text"].get<std::string>().size(), 65536U);
  EXPECT_EQ(piece(attempt, 0)["next"], 65536);
  EXPECT_EQ(piece(attempt, 200'000)["text"], "end");
  EXPECT_EQ(piece(attempt, -3)["text"], "end");
  EXPECT_EQ(piece(attempt, 200'003)["text"], "");
  EXPECT_EQ(piece(attempt, 1'000'000)["next"], 200'003);
  EXPECT_EQ(piece(attempt, std::numeric_limits<std::int64_t>::min())["from"], 0);
  EXPECT_EQ(piece(attempt, std::numeric_limits<std::int64_t>::max())["from"], 200'003);
}

TEST_F(PageFramesTest, PiecesOfALogMakeTheLog) {
  queue.submit(jobOf("1"));
  std::string text = "x";
  while (text.size() < 150'000) {
    text += "\xe2\x82\xac";
  }
  const AttemptId attempt = failedWith(directory.write("1.log", text));
  std::string read;
  std::int64_t from = 0;
  while (from < static_cast<std::int64_t>(text.size())) {
    const Json json = piece(attempt, from);
    ASSERT_TRUE(json["text"].is_string());
    ASSERT_EQ(json["from"], from);
    ASSERT_GT(json["next"].get<std::int64_t>(), from);
    read += json["text"].get<std::string>();
    from = json["next"];
  }
  EXPECT_EQ(read, text);
  EXPECT_TRUE(piece(attempt, std::nullopt)["text"].is_string());
}

TEST_F(PageFramesTest, ALogThatIsNoTextComesByteForByte) {
  queue.submit(jobOf("1"));
  const AttemptId attempt = failedWith(directory.write("1.log", "a\xff\x1b[31mb\n"));
  EXPECT_EQ(textFrom(piece(attempt, 0)["text"]), "a\xff\x1b[31mb\n");
}

TEST_F(PageFramesTest, ALogThatIsALinkIsNotRead) {
  queue.submit(jobOf("1"));
  directory.write("secret", "mine");
  std::filesystem::create_symlink(directory.file("secret"), directory.file("1.log"));
  const AttemptId attempt = failedWith(directory.file("1.log"));
  EXPECT_EQ(piece(attempt, 0)["size"], 0);
  EXPECT_EQ(piece(attempt, 0)["text"], "");
  EXPECT_EQ(frame(1, 1)["attempts"][0]["last"], Json::array());
  EXPECT_EQ(frame(1, 1)["attempts"][0]["log"], nullptr);
  EXPECT_THROW(piece(attempt + 1, 0), PageMissing);
}

TEST_F(PageFramesTest, AFrameTellsWhyItIsNotGood) {
  queue.submit(jobOf("1-2"));
  const AttemptId attempt = failedWith(directory.write("1.log", "fatal: <b>no</b>\n"));
  const Json json = frame(1, 2);
  EXPECT_EQ(json["state"], "failed");
  EXPECT_EQ(json["note"], "Error line: fatal: <b>no</b>");
  EXPECT_EQ(json["attempts"][0]["id"], attempt);
  EXPECT_EQ(json["attempts"][0]["deciding"], "fatal: <b>no</b>");
  EXPECT_EQ(json["attempts"][0]["running"], false);
  EXPECT_THROW(frame(1, 3), PageMissing);
  EXPECT_THROW(frame(1, std::nullopt), PageMissing);
}

TEST_F(PageFramesTest, AFrameTellsItsFiles) {
  queue.submit(jobOf("1-2"));
  const AttemptId attempt = take().attempt;
  Outcome outcome = good(attempt);
  outcome.files = {file(directory.write("1.png", "x")), file(directory.write("2.png", "x"))};
  outcome.files[0].frame = 1;
  outcome.files[1].frame = 2;
  queue.settle(outcome);
  const Json json = frame(1, 2);
  ASSERT_EQ(json["files"].size(), 1U);
  EXPECT_EQ(json["files"][0]["file"], directory.file("2.png"));
  EXPECT_EQ(json["files"][0]["id"], json["file"]);
  std::filesystem::remove(directory.file("2.png"));
  EXPECT_EQ(frame(1, 2)["state"], "missing");
}

} // namespace
} // namespace trovik
