#include "tests/application/core/TestSupport.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

int g_Destroyed = 0;

TEST(SmartHandle, DestroysTheObjectWithTheLastHandleByTheGivenFunction) {
  g_Destroyed = 0;
  {
    SmartHandle<Job> first(new PlainJob(), [](Job* job) {
      ++g_Destroyed;
      delete job;
    });
    SmartHandle<const Job> second = first;
    first = SmartHandle<Job>();
    EXPECT_TRUE(first.IsNull());
    EXPECT_FALSE(second.IsNull());
    EXPECT_EQ(g_Destroyed, 0);
  }
  EXPECT_EQ(g_Destroyed, 1);
}

TEST(SmartHandle, MakesFurtherHandlesFromTheObjectsWeakReference) {
  auto* object = new PlainJob();
  auto first = std::make_unique<SmartHandle<Job>>(object);
  {
    const SmartHandle<const Job> second(object->WeakSelf(), object);
    EXPECT_EQ(second.Get(), object);
    EXPECT_TRUE(object->WeakSelf().IsValid());
    first.reset();
    EXPECT_TRUE(second->WeakSelf().IsValid());
  }
}

TEST(SmartHandle, RefusesAnObjectThatNoHandleOwns) {
  const PlainJob job;
  int code = 0;
  EXPECT_EQ(MessageOf([&job] { const SmartHandle<const Job> handle(job.WeakSelf(), &job); }, &code),
            "Cannot construct a SmartCountedObject from and invalid WeakCountedObject");
  EXPECT_EQ(code, k_ErrorHandle);
}

TEST(SmartHandle, IsCopiedAndDroppedInSeveralThreads) {
  g_Destroyed = 0;
  {
    const SmartHandle<Job> shared(new PlainJob(), [](Job* job) {
      ++g_Destroyed;
      delete job;
    });
    std::vector<std::thread> threads(4);
    for (std::thread& thread : threads) {
      thread = std::thread([shared] {
        for (int round = 0; round < 1000; ++round) {
          const SmartHandle<const Job> copy(shared->WeakSelf(), shared.Get());
          EXPECT_FALSE(copy.IsNull());
        }
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
  }
  EXPECT_EQ(g_Destroyed, 1);
}

} // namespace
