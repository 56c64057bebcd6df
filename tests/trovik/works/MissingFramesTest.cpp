#include "trovik/works/MissingFrames.h"

#include "tests/trovik/FakeMachine.h"
#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/TestJobs.h"

#include <gtest/gtest.h>

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
    return findGoodFrames(maker, FrameSet::Parse(range).Split(packet), true, {}, queue, inspector, machine);
  }

  TemporaryDirectory directory;
  UID type{true};
  SmartHandle<Job> job;
  Queue queue{Path(directory.file("queue"))};
  FakeInspector inspector;
  FakeMachine machine;
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

TEST_F(MissingFramesTest, APacketWithOneFileIsCheckedAsAWhole) {
  directory.write("out/0002.txt", "x");
  directory.write("out/0005.txt", "");
  EXPECT_EQ(find("1-9", 3).good.text(), "2");
}

TEST_F(MissingFramesTest, AFolderInTheFilesPlaceIsNoFile) {
  directory.makeDirectory("out/0003.txt");
  EXPECT_TRUE(find("1-4").good.empty());
}

TEST_F(MissingFramesTest, TypeWhoseFilesNobodyChecksIsRefused) {
  job->SetParameter(p_FileCheck, "None");
  EXPECT_EQ(refusalOf([&] { find("1-3"); }).message,
            "--missing: no file of this type is checked (FileCheck is None)");
}

} // namespace
} // namespace trovik
