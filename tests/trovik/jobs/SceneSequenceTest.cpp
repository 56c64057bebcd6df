#include "trovik/jobs/SceneSequence.h"

#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/TestJobs.h"

#include <gtest/gtest.h>

namespace trovik {
namespace {

class WhyNoSequence : public testing::Test {
protected:
  std::string why(const std::string& scene) {
    directory.write(scene, "x");
    return whyNoSequence(type.id(), Path(directory.file(scene)));
  }
  WhyNoSequence() { type.add(ParameterInfo::k_Boolean, "CheckForMultipleFiles", "Yes"); }

  TemporaryDirectory directory;
  TestType type;
};

TEST(SequenceScene, IsMadeFromThePattern) {
  EXPECT_EQ(sequenceScene("/s/a_%04d.pov", 7).Text(), "/s/a_0007.pov");
}

TEST(SequenceScene, HostilePatternIsHarmless) {
  EXPECT_EQ(sequenceScene("/s/%n%s_%04d.pov", 7).Text().find("/s/"), 0U);
}

TEST_F(WhyNoSequence, TypeThatDoesNotLook) {
  const TestType other;
  EXPECT_EQ(whyNoSequence(other.id(), Path("/a_0001.pov")), "the type does not look for scene sequences");
}

TEST_F(WhyNoSequence, NameWithoutANumber) {
  EXPECT_EQ(why("scene.pov"), "\"scene.pov\" has no number in its name");
}

TEST_F(WhyNoSequence, NumberWithoutNeighbours) {
  EXPECT_EQ(why("scene_0007.pov"),
            "it has no neighbour: there is neither \"scene_0006.pov\" nor \"scene_0008.pov\"");
  EXPECT_EQ(why("first_000.pov"), "it has no neighbour: there is no \"first_001.pov\"");
}

TEST_F(WhyNoSequence, NumberWithTooFewDigits) {
  directory.write("scene_8.pov", "x");
  EXPECT_EQ(why("scene_7.pov"), "the number 7 has 1 digit; the type asks for more");
}

TEST_F(WhyNoSequence, HugeNumber) {
  EXPECT_EQ(why("scene_12345678901234567890.pov"),
            "the number 12345678901234567890 is too large for a frame");
}

} // namespace
} // namespace trovik
