#include "trovik/page/QueueChanges.h"

#include "tests/trovik/queue/QueueTest.h"

#include <algorithm>
#include <functional>
#include <poll.h>

namespace trovik {
namespace {

class QueueChangesTest : public QueueTest {
protected:
  using Jobs = std::vector<JobId>;

  /// The jobs that an action of another connection changes.
  Jobs after(const std::function<void()>& action) {
    changes.update();
    action();
    const std::int64_t before = changes.revisions().last;
    const QueueChanges::Change change = changes.update();
    EXPECT_EQ(changes.revisions().last > before, change.any());
    return change.jobs;
  }

  Queue reader{Path(directory.path())};
  QueueChanges changes{reader, 1000};
};

TEST_F(QueueChangesTest, AJobThatIsSubmittedIsTold) {
  EXPECT_EQ(changes.revisions().last, 1000);
  EXPECT_FALSE(changes.update().any());
  EXPECT_EQ(after([&] { queue.submit(jobOf("1-3")); }), Jobs{1});
  EXPECT_EQ(changes.revisions().of(1), changes.revisions().last);
  EXPECT_EQ(changes.revisions().of(77), 1000);
  EXPECT_FALSE(changes.update().any());
}

TEST_F(QueueChangesTest, EachStepOfAJobIsToldAndOfNoOther) {
  queue.submit(jobOf("1-3,4-6"));
  queue.submit(jobOf("1-9"));
  Claim claim;
  EXPECT_EQ(after([&] { claim = take(1); }), Jobs{1});
  EXPECT_EQ(after([&] { queue.noteFile(claim.attempt, file("a.png")); }), Jobs{1});
  EXPECT_EQ(after([&] { queue.settle(good(claim.attempt)); }), Jobs{1});
  EXPECT_EQ(after([&] { claim = take(1); }), Jobs{1});
  EXPECT_EQ(after([&] { queue.settle(failed(claim.attempt)); }), Jobs{1});
  EXPECT_EQ(after([&] { queue.retry(1, std::nullopt); }), Jobs{1});
  EXPECT_EQ(after([&] { queue.cancel(1); }), Jobs{1});
  EXPECT_EQ(after([&] { queue.change(2, {.priority = 80}); }), Jobs{2});
  EXPECT_EQ(after([&] { queue.change(2, {.packet = 2}); }), Jobs{2});
  EXPECT_EQ(after([&] { queue.stop(2, "held"); }), Jobs{2});
  EXPECT_EQ(after([&] { queue.resume(2); }), Jobs{2});
  EXPECT_EQ(after([&] { queue.remove(1); }), Jobs{1});
  EXPECT_EQ(changes.revisions().of(1), changes.revisions().last); // who knows the job hears that it changed
  EXPECT_EQ(stateOf(2), JobState::Waiting);
}

TEST_F(QueueChangesTest, ARetryOfGoodFramesIsToldThoughTheJobStaysOpen) {
  queue.submit(jobOf("1,2,3"));
  queue.settle(good(take().attempt));
  EXPECT_EQ(after([&] { queue.retry(1, setOf("1")); }), Jobs{1});
}

TEST_F(QueueChangesTest, AFollowerIsToldWithItsForerunner) {
  queue.submit(jobOf("1"));
  NewJob follower = jobOf("1-2");
  follower.forerunners = {{1, false, 0, 0, false}};
  queue.submit(follower);
  EXPECT_EQ(after([&] { queue.cancel(1); }), (Jobs{1, 2}));
  EXPECT_EQ(after([&] { queue.release(2); }), Jobs{2});
}

TEST_F(QueueChangesTest, EnginesThatComeAndWorkAreTold) {
  queue.submit(jobOf("1-3"));
  changes.update();
  const EngineId second = queue.enterEngine(4);
  EXPECT_TRUE(changes.update().machine);
  take();
  EXPECT_TRUE(changes.update().machine);
  queue.change(1, {.priority = 7});
  EXPECT_FALSE(changes.update().machine);
  queue.setLimits({{"licence", 2}});
  EXPECT_TRUE(changes.update().machine);
  const std::vector<EngineRecord> engines = reader.engines();
  ASSERT_EQ(engines.size(), 2U);
  EXPECT_TRUE(engines[0].lives);
  EXPECT_EQ(engines[0].running.size(), 1U);
  EXPECT_EQ(engines[1].id, second);
  EXPECT_EQ(engines[1].slots, 4U);
  queue.leaveEngine(second);
  EXPECT_TRUE(changes.update().machine);
  EXPECT_EQ(reader.engines().size(), 1U);
}

TEST_F(QueueChangesTest, AnEngineThatDiesIsToldThoughItSaysNothing) {
  {
    Queue other{Path(directory.path())};
    other.enterEngine(1);
    EXPECT_TRUE(changes.update().machine);
    EXPECT_FALSE(changes.updateWithEngines().any());
  }
  EXPECT_FALSE(changes.update().any());
  EXPECT_TRUE(changes.updateWithEngines().machine);
  EXPECT_FALSE(reader.engines().back().lives);
  EXPECT_FALSE(changes.updateWithEngines().any());
}

TEST(QueueChange, TwoMakeOne) {
  QueueChanges::Change change{{1, 3}, false};
  change.add({{2, 3, 7}, true});
  EXPECT_EQ(change.jobs, (std::vector<JobId>{1, 2, 3, 7}));
  EXPECT_TRUE(change.machine);
  change.add({});
  EXPECT_TRUE(change.machine);
  EXPECT_EQ(change.jobs.size(), 4U);
}

TEST_F(QueueChangesTest, TheKernelTellsThatTheQueueIsWritten) {
  QueueWatch watch{Path(directory.path())};
  watch.take();
  directory.write("other", "nothing of the queue");
  pollfd readable{watch.descriptor(), POLLIN, 0};
  ASSERT_EQ(poll(&readable, 1, 10'000), 1);
  EXPECT_FALSE(watch.take());
  queue.submit(jobOf("1-3"));
  ASSERT_EQ(poll(&readable, 1, 10'000), 1);
  EXPECT_TRUE(watch.take());
  EXPECT_FALSE(watch.take());
}

TEST_F(QueueChangesTest, AFileIsFoundByItsNumber) {
  queue.submit(jobOf("1"));
  const Claim claim = take();
  queue.noteFile(claim.attempt, file("/out/a.png"));
  const std::int64_t number = queue.files(1).at(0).id;
  ASSERT_TRUE(reader.file(number));
  EXPECT_EQ(reader.file(number)->path, "/out/a.png");
  EXPECT_FALSE(reader.file(number + 1));
  queue.settle(good(claim.attempt));
  queue.remove(1);
  EXPECT_FALSE(reader.file(number));
}

} // namespace
} // namespace trovik
