#include "host/foundation/Bytes.h"

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

} // namespace
