#include "trovik/cluster/StagedOutput.h"

#include "host/application/jobs/RenderJob.h"
#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/TestJobs.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>

namespace trovik {
namespace {

class StagedOutputTest : public testing::Test {
protected:
  StagedOutputTest() {
    job->SetParameter(p_StartDirectory, directory.path());
    job->SetParameter(p_OutputFolder, out);
  }

  String folderOfJob() const { return job->FormatStringWithParameters("$(OutputFolder)"); }

  static FileRecord record(const std::string& path, std::optional<int> frame,
                           const std::string& problem = "") {
    FileRecord file;
    file.path = path;
    file.frame = frame;
    file.problem = problem;
    return file;
  }

  std::string content(const std::string& name) const { return readFile(directory.file("out/" + name)); }
  bool exists(const std::string& name) const {
    return std::filesystem::exists(std::filesystem::symlink_status(directory.file(name)));
  }

  TemporaryDirectory directory;
  TestType type;
  SmartHandle<Job> job = type.makeJob();
  std::string out = directory.file("out");
};

TEST_F(StagedOutputTest, GoodWorkMovesAllThatItWrote) {
  StagedOutput staged(*job, "m-1");
  ASSERT_TRUE(staged.isUsed());
  EXPECT_EQ(staged.stage().Text(), out + "/.trovik-m-1");
  EXPECT_EQ(staged.output().Text(), out);
  EXPECT_EQ(folderOfJob(), staged.stage().Text());
  directory.write("out/f1", "old");
  directory.write("out/.trovik-m-1/f1", "new");
  directory.write("out/.trovik-m-1/sub/deep/side.txt", "side");
  Outcome outcome;
  outcome.reason = "saw " + out + "/.trovik-m-1/f1 and " + out + "/.trovik-m-1";
  outcome.lines = {"saved " + out + "/.trovik-m-1/f1"};
  outcome.command = "draw " + out + "/.trovik-m-1/f1";
  outcome.files = {record(out + "/.trovik-m-1/f1", 1)};
  outcome.good.add({1, 1});
  EXPECT_TRUE(staged.publish(outcome));
  EXPECT_EQ(content("f1"), "new");
  EXPECT_EQ(content("sub/deep/side.txt"), "side");
  EXPECT_FALSE(exists("out/.trovik-m-1"));
  EXPECT_EQ(outcome.state, AttemptState::Good);
  EXPECT_EQ(outcome.reason, "saw " + out + "/f1 and " + out);
  EXPECT_EQ(outcome.lines, std::vector<std::string>{"saved " + out + "/f1"});
  EXPECT_EQ(outcome.command, "draw " + out + "/f1");
  EXPECT_EQ(outcome.files.at(0).path, out + "/f1");
  EXPECT_EQ(outcome.good.text(), "1");
}

TEST_F(StagedOutputTest, BadWorkReplacesOnlyWhatItsGoodFramesHave) {
  StagedOutput staged(*job, "m");
  for (const char* name : {"f1", "f2", "side"}) {
    directory.write(std::string("out/") + name, "old");
  }
  for (const char* name : {"f1", "f2", "f3", "side"}) {
    directory.write(std::string("out/.trovik-m/") + name, "new");
  }
  const std::string stage = staged.stage().Text();
  Outcome outcome;
  outcome.state = AttemptState::Failed;
  outcome.reason = "Truncated image: " + stage + "/f2";
  outcome.alike = "something";
  outcome.files = {record(stage + "/f1", 1), record(stage + "/f2", 2, "Truncated image"),
                   record(stage + "/f3", 3, "Truncated image")};
  outcome.good.add({1, 1});
  EXPECT_TRUE(staged.publish(outcome));
  EXPECT_EQ(content("f1"), "new");
  EXPECT_EQ(content("f2"), "old");
  EXPECT_EQ(content("f3"), "new");
  EXPECT_EQ(content("side"), "old");
  EXPECT_FALSE(exists("out/.trovik-m"));
  EXPECT_EQ(outcome.reason, "Truncated image: " + out + "/f2");
  EXPECT_NE(outcome.alike, "something");
  EXPECT_EQ(outcome.files[1].path, out + "/f2");
}

TEST_F(StagedOutputTest, RelativeFolderStaysRelativeForTheProgram) {
  job->SetParameter(p_OutputFolder, "images");
  const StagedOutput staged(*job, "m");
  EXPECT_EQ(folderOfJob(), "images/.trovik-m");
  EXPECT_EQ(staged.stage().Text(), directory.file("images/.trovik-m"));
  EXPECT_EQ(staged.finalText("saved images/.trovik-m/f1"), "saved images/f1");
  EXPECT_EQ(staged.finalName(directory.file("images/.trovik-m/f1")), directory.file("images/f1"));
  EXPECT_TRUE(exists("images/.trovik-m"));
}

TEST_F(StagedOutputTest, TrailingSlashStays) {
  job->SetParameter(p_OutputFolder, out + "/");
  const StagedOutput staged(*job, "m");
  EXPECT_EQ(folderOfJob(), out + "/.trovik-m/");
  EXPECT_EQ(staged.finalText("saved " + folderOfJob() + "f1"), "saved " + out + "/f1");
}

TEST_F(StagedOutputTest, FolderMayHoldReferencesAndLiteralOnes) {
  job->SetParameter(p_SubRange, "7-9");
  job->SetParameter(p_OutputFolder, directory.file("$$(odd)") + "/$(SubRange.Start)");
  const StagedOutput staged(*job, "m");
  EXPECT_EQ(staged.output().Text(), directory.file("$(odd)/7"));
  EXPECT_EQ(folderOfJob(), directory.file("$(odd)/7/.trovik-m"));
}

TEST_F(StagedOutputTest, WorkWithoutOutputFolderIsLeftAlone) {
  job->SetParameter(p_OutputFolder, "");
  StagedOutput staged(*job, "m");
  EXPECT_FALSE(staged.isUsed());
  EXPECT_EQ(folderOfJob(), "");
  EXPECT_EQ(StagedOutput::stageOf(*job, "m").Text(), "");
  Outcome outcome;
  outcome.reason = "kept";
  EXPECT_TRUE(staged.publish(outcome));
  EXPECT_EQ(outcome.reason, "kept");
  EXPECT_EQ(staged.finalName("/x/.trovik-m/f"), "/x/.trovik-m/f");
}

TEST_F(StagedOutputTest, StartDirectoryThatFollowsARelativeFolderGoesWithoutAStage) {
  job->SetParameter(p_OutputFolder, "images");
  job->SetParameter(p_StartDirectory, directory.path() + "/$(OutputFolder)");
  const StagedOutput staged(*job, "m");
  EXPECT_FALSE(staged.isUsed());
  EXPECT_EQ(folderOfJob(), "images");
}

TEST_F(StagedOutputTest, FolderThatCannotBeMadeIsNamedAsInALocalRun) {
  directory.write("file", "");
  job->SetParameter(p_OutputFolder, directory.file("file"));
  std::string text;
  try {
    const StagedOutput staged(*job, "m");
  } catch (Exception* exception) {
    text = takeText(exception);
  }
  EXPECT_EQ(text, "Cannot create folder \"" + directory.file("file") + "\": Not a directory");
}

TEST_F(StagedOutputTest, NamesOutsideTheStageStay) {
  const StagedOutput staged(*job, "m");
  const std::string stage = staged.stage().Text();
  EXPECT_EQ(staged.finalName("/elsewhere/f"), "/elsewhere/f");
  EXPECT_EQ(staged.finalName(stage + "/../f"), out + "/f");
  EXPECT_EQ(staged.finalName(stage + "/../../x"), directory.file("x"));
  EXPECT_EQ(staged.finalName(stage + "/a/./b"), out + "/a/./b");
  EXPECT_EQ(staged.finalName(stage + "s/f"), stage + "s/f"); // another folder that begins alike
}

TEST_F(StagedOutputTest, LinksAreMovedAndNeverFollowed) {
  StagedOutput staged(*job, "m");
  directory.write("secret/file", "secret");
  std::filesystem::create_directory_symlink(directory.file("secret"), directory.file("out/.trovik-m/link"));
  directory.write("out/.trovik-m/odd\xff\nname", "odd");
  Outcome outcome;
  EXPECT_TRUE(staged.publish(outcome));
  EXPECT_TRUE(std::filesystem::is_symlink(directory.file("out/link")));
  EXPECT_EQ(content("odd\xff\nname"), "odd");
  EXPECT_EQ(readFile(directory.file("secret/file")), "secret");

  StagedOutput again(*job, "m2");
  std::filesystem::create_directory_symlink(directory.file("secret"), again.stage().Text() + "/link");
  again.discard();
  EXPECT_EQ(readFile(directory.file("secret/file")), "secret");
}

TEST_F(StagedOutputTest, FileThatCannotBeMovedSpoilsItsFrame) {
  StagedOutput staged(*job, "m");
  const std::string stage = staged.stage().Text();
  directory.makeDirectory("out/f2"); // in the way
  directory.write("out/.trovik-m/f1", "new");
  directory.write("out/.trovik-m/f2", "new");
  Outcome outcome;
  outcome.files = {record(stage + "/f1", 1), record(stage + "/f2", 2)};
  outcome.good.add({1, 2});
  EXPECT_TRUE(staged.publish(outcome));
  EXPECT_EQ(outcome.state, AttemptState::Failed);
  EXPECT_EQ(outcome.rule, VerdictRule::Files);
  EXPECT_EQ(outcome.good.text(), "1");
  EXPECT_EQ(outcome.reason, "Cannot be moved to its place (Is a directory): " + out + "/f2");
  EXPECT_EQ(outcome.files[1].problem, "Cannot be moved to its place (Is a directory)");
  EXPECT_EQ(content("f1"), "new");
  EXPECT_EQ(readFile(stage + "/f2"), "new"); // still there for its owner
}

TEST_F(StagedOutputTest, PublishingEndsWhenSomebodyTookOver) {
  StagedOutput staged(*job, "m");
  directory.write("out/.trovik-m/f1", "new");
  directory.write("out/.trovik-m/f2", "new");
  int asked = 0;
  Outcome outcome;
  EXPECT_FALSE(staged.publish(outcome, [&asked] { return ++asked == 1; }));
  EXPECT_EQ(asked, 2);
  EXPECT_NE(exists("out/f1"), exists("out/f2"));
  EXPECT_FALSE(exists("out/.trovik-m"));
}

TEST_F(StagedOutputTest, SuccessorTakesWhatItsPredecessorLeft) {
  StagedOutput first(*job, "m.1");
  directory.write("out/.trovik-m.1/f1", "one");
  directory.write("out/.trovik-m.1/sub/f2", "one");
  const SmartHandle<Job> other = type.makeJob();
  other->SetParameter(p_OutputFolder, out);
  StagedOutput second(*other, "m.2");
  EXPECT_EQ(second.nameFrom("m.1", first.stage().Text() + "/sub/f2"), second.stage().Text() + "/sub/f2");
  EXPECT_EQ(second.nameFrom("m.1", "/elsewhere"), "/elsewhere");
  second.takeOver("m.1");
  second.takeOver("m.0"); // which left nothing
  EXPECT_FALSE(exists("out/.trovik-m.1"));
  EXPECT_EQ(content(".trovik-m.2/f1"), "one");
  EXPECT_EQ(content(".trovik-m.2/sub/f2"), "one");
  // The predecessor wakes up and has nothing left that it could move.
  Outcome outcome;
  EXPECT_TRUE(first.publish(outcome));
  EXPECT_FALSE(exists("out/f1"));
}

TEST_F(StagedOutputTest, OnlyStagesAreRemoved) {
  const StagedOutput staged(*job, "m");
  directory.write("out/.trovik-m/f1", "one");
  directory.write("precious/file", "");
  StagedOutput::remove(Path(directory.file("precious")));
  StagedOutput::remove(Path(directory.file("precious/.trovik-x/..")));
  EXPECT_TRUE(exists("precious/file"));
  StagedOutput::remove(staged.stage());
  EXPECT_FALSE(exists("out/.trovik-m"));
  EXPECT_TRUE(exists("out"));
}

TEST_F(StagedOutputTest, WhatWasMovedAlreadyIsTakenBackUnlessItWasThereBefore) {
  const StagedOutput staged(*job, "m");
  const std::string stage = staged.stage().Text();
  directory.write("out/old", "old");
  FilesBefore before;
  before.Note({}, {staged.stage()}, true); // as the stage's own program was started
  directory.write("out/new", "new");
  directory.write("out/both", "final");
  directory.write("out/.trovik-m/both", "staged");
  const timespec times[2] = {{5000, 0}, {5000, 0}}; // as a program may set it
  ASSERT_EQ(utimensat(AT_FDCWD, directory.file("out/new").c_str(), times, 0), 0);
  const std::vector<std::string> names = {stage + "/new",  stage + "/old",     stage + "/both",
                                          stage + "/none", stage + "/../../x", "/etc/passwd"};
  FilesBefore unknown;
  unknown.FromText("");
  staged.takeBack(names, unknown);
  EXPECT_FALSE(exists("out/.trovik-m/new"));
  staged.takeBack(names, before);
  EXPECT_EQ(content(".trovik-m/new"), "new");
  EXPECT_EQ(content("new"), "new");
  EXPECT_FALSE(exists("out/.trovik-m/old"));
  EXPECT_EQ(content(".trovik-m/both"), "staged");
  EXPECT_FALSE(exists("out/.trovik-m/none"));
}

} // namespace
} // namespace trovik
