#include "host/foundation/Bytes.h"

#include "tests/foundation/os/TestDirectory.h"

#include <gtest/gtest.h>

namespace {

TEST(Bytes, AreToldInTheUnitThatSuitsThem) {
  EXPECT_EQ(BytesText(0), "0 bytes");
  EXPECT_EQ(BytesText(-1), "0 bytes");
  EXPECT_EQ(BytesText(999), "999 bytes");
  EXPECT_EQ(BytesText(1000), "1 kB");
  EXPECT_EQ(BytesText(1500), "1.5 kB");
  EXPECT_EQ(BytesText(999'499), "999 kB");
  EXPECT_EQ(BytesText(999'500), "1 MB");
  EXPECT_EQ(BytesText(64'000'000), "64 MB");
  EXPECT_EQ(BytesText(812'345'678), "812 MB");
  EXPECT_EQ(BytesText(11'800'000'000), "11.8 GB");
  EXPECT_EQ(BytesText(INT64_MAX), "9.2 EB");
}

TEST(Bytes, MemoryOfThisMachineIsKnown) {
  EXPECT_GT(MachineMemory(), 64'000'000);
}

class GroupMemory : public testing::Test {
protected:
  std::int64_t Limit(const std::string& groups) {
    directory.Write("groups", groups);
    return GroupMemoryLimit(Path(directory.File("groups")), Path(directory.Text()));
  }
  TestDirectory directory;
};

TEST_F(GroupMemory, IsTheLeastOfAllThatThisOneIsIn) {
  directory.MakeDirectory("site");
  directory.MakeDirectory("site/job");
  directory.Write("site/memory.max", "4000000000\n");
  directory.Write("site/job/memory.max", "max\n");
  EXPECT_EQ(Limit("0::/site/job\n"), 4'000'000'000);
  directory.Write("site/job/memory.max", "1000000000\n");
  EXPECT_EQ(Limit("0::/site/job\n"), 1'000'000'000);
  EXPECT_EQ(Limit("0::/\n"), 0);
}

TEST_F(GroupMemory, OfTheOlderFormIsKnownAsWell) {
  directory.MakeDirectory("memory");
  directory.MakeDirectory("memory/job");
  directory.Write("memory/memory.limit_in_bytes", "9223372036854771712\n");
  directory.Write("memory/job/memory.limit_in_bytes", "500000000\n");
  EXPECT_EQ(Limit("5:devices:/x\n4:memory,cpu:/job\n0::/\n"), 500'000'000);
  EXPECT_EQ(Limit("4:memory:/gone\n"), 0);
}

TEST_F(GroupMemory, IsNoneWhereNothingIsTold) {
  EXPECT_EQ(Limit(""), 0);
  EXPECT_EQ(Limit("nonsense\n:::\n0::\n4:memory\n"), 0);
  EXPECT_EQ(GroupMemoryLimit(Path(directory.File("none")), Path(directory.Text())), 0);
}

} // namespace
