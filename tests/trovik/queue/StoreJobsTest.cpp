#include "tests/trovik/queue/QueueTest.h"

namespace trovik {
namespace {

class StoreJobs : public QueueTest {};

TEST_F(StoreJobs, TheRecordHasAllThatWasSubmitted) {
  NewJob wanted = jobOf("1-3");
  wanted.name = "odd \xff\n\"name\"";
  wanted.priority = 70;
  wanted.retries = 2;
  wanted.stopAfter = 10;
  wanted.logs = "/logs";
  wanted.packed = std::string("\0\xff stream", 9);
  wanted.endCommand = {"/bin/tell", "", "it's\n\"over\" \\ $(x)", "\xfe"};
  const JobId id = store.submit(wanted);
  const JobRecord job = store.job(id).value();
  EXPECT_EQ(job.id, id);
  EXPECT_EQ(job.name, wanted.name);
  EXPECT_EQ(job.type, wanted.type);
  EXPECT_EQ(job.typeName, "Sketch");
  EXPECT_EQ(job.scene, "/scenes/shot_%04d.skt");
  EXPECT_EQ(job.range, "1-3");
  EXPECT_TRUE(job.hasFrames);
  EXPECT_EQ(job.state, JobState::Waiting);
  EXPECT_EQ(job.note, "");
  EXPECT_EQ(job.priority, 70);
  EXPECT_EQ(job.retries, 2);
  EXPECT_EQ(job.stopAfter, 10);
  EXPECT_EQ(job.directory, "/home/ada");
  EXPECT_EQ(job.output, "/home/ada/out");
  EXPECT_EQ(job.logs, "/logs");
  EXPECT_EQ(job.endCommand, wanted.endCommand);
  EXPECT_FALSE(job.started.has_value());
  EXPECT_FALSE(job.ended.has_value());
  EXPECT_EQ(store.packed(id), wanted.packed);
}

TEST_F(StoreJobs, LogsLieInTheQueuesFolderWhenNobodySaysOtherwise) {
  const JobId job = store.submit(jobOf("1"));
  EXPECT_EQ(store.job(job)->logs, directory.file("logs/" + std::to_string(job)));
}

TEST_F(StoreJobs, JobsComeTheNewestFirst) {
  const JobId first = store.submit(jobOf("1"));
  const JobId second = store.submit(jobOf("1"));
  const std::vector<JobRecord> jobs = store.jobs();
  ASSERT_EQ(jobs.size(), 2U);
  EXPECT_EQ(jobs[0].id, second);
  EXPECT_EQ(jobs[1].id, first);
}

TEST_F(StoreJobs, AnUnknownJobIsNothing) {
  EXPECT_FALSE(store.job(7).has_value());
  EXPECT_EQ(store.packed(7), "");
  EXPECT_EQ(store.frames(7).works(), 0U);
  EXPECT_TRUE(store.works(7).empty());
}

} // namespace
} // namespace trovik
