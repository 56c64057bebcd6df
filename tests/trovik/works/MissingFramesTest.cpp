#include "trovik/works/MissingFrames.h"

#include "tests/trovik/FakeMachine.h"
#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/TestJobs.h"

#include <array>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace trovik {
namespace {

class CountedJob final : public RenderJob {
public:
  CountedJob() : RenderJob(true) { ++made; }
  static int made;
};
int CountedJob::made = 0;

class MissingFramesTest : public testing::Test {
protected:
  MissingFramesTest() {
    auto description = std::make_unique<JobTypeInfo>();
    description->Name = "Counted";
    RenderJob::FillJobTypeInfo(description.get(), true);
    JobFactory::s_JobFactory->Register(
        type, std::move(description), []() -> Job* { return new CountedJob; }, [](Job* old) { delete old; });
    job = JobFactory::s_JobFactory->CreateJob(type);
    job->SetParameter(p_ExpectedFiles, directory.file("out/$(Frame.Pad(4)).txt"));
    job->SetParameter(p_StartDirectory, directory.path());
  }
  ~MissingFramesTest() override {
    job = SmartHandle<Job>();
    JobFactory::s_JobFactory->Unregister(type);
  }

  FoundFrames find(const std::string& range, int packet = 1) {
    const WorkMaker maker(*job);
    CountedJob::made = 0;
    return findGoodFrames(maker, FrameSet::Parse(range).Split(packet), true, {}, decode, queue, inspector,
                          machine);
  }

  TemporaryDirectory directory;
  UID type{true};
  SmartHandle<Job> job;
  Queue queue{Path(directory.file("queue"))};
  /// Puts a job into the queue by which what is found is known.
  void enter(const FoundFrames& found) {
    NewJob entry;
    entry.type = type;
    entry.works = {{9, 9}};
    entry.found = found.good.runs();
    entry.foundFiles = found.files;
    queue.submit(entry);
  }
  /// The time of a file: seconds since 1970 and a part of them.
  void setTime(const std::string& name, std::int64_t seconds, std::int64_t nanoseconds) {
    const std::array<timespec, 2> times = {timespec{seconds, nanoseconds}, timespec{seconds, nanoseconds}};
    ASSERT_EQ(utimensat(AT_FDCWD, directory.file(name).c_str(), times.data(), 0), 0);
  }
  std::size_t asked(Decode how = Decode::Doubtful) {
    decode = how;
    inspector.asked.clear();
    EXPECT_EQ(find("1-2").good.text(), "1-2");
    return inspector.asked.size();
  }

  FakeInspector inspector;
  FakeMachine machine;
  Decode decode = Decode::Doubtful;
};

TEST_F(MissingFramesTest, FramesWithoutAnyFileCostNoJobOfTheirOwn) {
  EXPECT_TRUE(find("1-5000").good.empty());
  EXPECT_LE(CountedJob::made, 1);
  directory.write("out/0007.txt", "x");
  const FoundFrames found = find("1-5000");
  EXPECT_EQ(found.good.text(), "7");
  EXPECT_EQ(found.files.size(), 1U);
  EXPECT_LE(CountedJob::made, 2);
}

TEST_F(MissingFramesTest, FilesInManyFoldersAreFound) {
  job->SetParameter(p_ExpectedFiles, directory.file("a/$(Frame).txt") + ";" +
                                         directory.file("$(Frame)/b.txt") + ";" +
                                         directory.file("none/$(Frame).txt"));
  for (const char* name : {"a/3.txt", "30/b.txt", "a/41.txt", "41/b.txt"}) {
    directory.write(name, "x");
  }
  EXPECT_EQ(find("1-60").good.text(), ""); // each lacks one
  EXPECT_EQ(CountedJob::made, 4);          // the whole, and those with a file
  job->SetParameter(p_ExpectedFiles,
                    directory.file("a/$(Frame).txt") + ";" + directory.file("$(Frame)/b.txt"));
  EXPECT_EQ(find("1-60").good.text(), "41");
}

TEST_F(MissingFramesTest, WorksThatExpectNoFileCostOneJobTogether) {
  job->SetParameter(p_ExpectedFiles, "");
  EXPECT_EQ(find("1-500").good.text(), "");
  EXPECT_EQ(CountedJob::made, 2); // the whole, and the first work
}

TEST_F(MissingFramesTest, APacketWithOneFileIsCheckedAsAWhole) {
  directory.write("out/0002.txt", "x");
  directory.write("out/0005.txt", "");
  EXPECT_EQ(find("1-9", 3).good.text(), "2");
}

TEST_F(MissingFramesTest, FilesOfManyWorksWaitTogetherAndAreJudgedInTheirOrder) {
  for (int frame = 1; frame <= 300; ++frame) {
    const std::string number = std::to_string(frame + 10000).substr(1);
    directory.write("out/" + number + ".txt", "x");
    if (frame % 7 == 0) {
      inspector.problems[directory.file("out/" + number + ".txt")] = "Truncated";
    }
  }
  const FoundFrames found = find("1-300");
  EXPECT_EQ(found.good.count(), 300U - 42U);
  ASSERT_EQ(found.files.size(), 300U - 42U);
  for (std::size_t i = 1; i < found.files.size(); ++i) {
    EXPECT_LT(found.files[i - 1].frame, found.files[i].frame);
  }
  EXPECT_EQ(inspector.asked.size(), 300U);
  EXPECT_GE(inspector.mostWaiting, 32U) << "so that others can help";
  EXPECT_LE(inspector.mostWaiting, 128U) << "since each holds its job";
}

TEST_F(MissingFramesTest, AFolderInTheFilesPlaceIsNoFile) {
  directory.makeDirectory("out/0003.txt");
  EXPECT_TRUE(find("1-4").good.empty());
}

TEST_F(MissingFramesTest, WhatTheQueueKnowsToBeGoodIsNotDecodedUnlessThatIsAsked) {
  for (const char* name : {"out/0001.txt", "out/0002.txt"}) {
    directory.write(name, "x");
    setTime(name, 1'000'000'000, 5);
  }
  EXPECT_EQ(asked(), 2U);
  enter(find("1-2"));
  EXPECT_EQ(asked(), 0U);
  EXPECT_EQ(asked(Decode::All), 2U);
  inspector.problems[directory.file("out/0001.txt")] = "Truncated";
  EXPECT_EQ(find("1-2").good.text(), "2"); // Decode::All
}

TEST_F(MissingFramesTest, WhatWasWrittenSinceIsDecoded) {
  for (const char* name : {"out/0001.txt", "out/0002.txt"}) {
    directory.write(name, "x");
    setTime(name, 1'000'000'000, 5);
  }
  enter(find("1-2"));
  setTime("out/0001.txt", 1'000'000'000, 6);
  EXPECT_EQ(asked(), 1U);
  directory.write("out/0002.txt", "longer");
  setTime("out/0002.txt", 1'000'000'000, 5);
  EXPECT_EQ(asked(), 2U);
}

TEST_F(MissingFramesTest, ATimeInWholeSecondsProvesNothing) {
  for (const char* name : {"out/0001.txt", "out/0002.txt"}) {
    directory.write(name, "x");
    setTime(name, 1'000'000'000, name[7] == '1' ? 0 : 1);
  }
  enter(find("1-2"));
  EXPECT_EQ(asked(), 1U);
  EXPECT_EQ(inspector.asked.front(), directory.file("out/0001.txt"));
}

TEST_F(MissingFramesTest, WhatWasDamagedWhenItWasCheckedIsDecodedAgain) {
  for (const char* name : {"out/0001.txt", "out/0002.txt"}) {
    directory.write(name, "x");
    setTime(name, 1'000'000'000, 5);
  }
  FoundFrames found = find("1-2");
  found.files.back().problem = "Truncated";
  enter(found);
  EXPECT_EQ(asked(), 1U);
}

TEST_F(MissingFramesTest, WhereFlatImagesAreRefusedEveryFileIsDecoded) {
  for (const char* name : {"out/0001.txt", "out/0002.txt"}) {
    directory.write(name, "x");
    setTime(name, 1'000'000'000, 5);
  }
  enter(find("1-2"));
  job->SetParameter(p_RefuseFlatImages, "Yes");
  EXPECT_EQ(asked(), 2U);
}

TEST_F(MissingFramesTest, TypeWhoseFilesNobodyChecksIsRefused) {
  job->SetParameter(p_FileCheck, "None");
  EXPECT_EQ(refusalOf([&] { find("1-3"); }).message,
            "--missing: no file of this type is checked (FileCheck is None)");
}

} // namespace
} // namespace trovik
