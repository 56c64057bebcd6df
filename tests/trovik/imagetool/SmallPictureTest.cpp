#include "trovik/imagetool/SmallPicture.h"

#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/imagetool/Images.h"
#include "trovik/images/ImageHelper.h"
#include "trovik/imagetool/Limits.h"

#include <gtest/gtest.h>

#include <filesystem>

extern const char* const IMAGE_HELPER;

namespace trovik {
namespace {

class SmallPicture : public testing::Test {
protected:
  SmallPicture() { image::limitLibrary(); }
  Inspection draw(const std::string& file, int room) {
    return image::drawSmall({file, false, picture, room});
  }

  TemporaryDirectory directory;
  std::string picture = directory.file("small.jpg");
};

TEST_F(SmallPicture, FitsIntoItsRoom) {
  const std::string wide = writeImage(directory.path(), {.file = "wide.png"}, noiseAt, 640, 320);
  EXPECT_EQ(draw(wide, 160).problem, "");
  const ReadImage drawn = readImage(picture);
  EXPECT_EQ(drawn.width, 160);
  EXPECT_EQ(drawn.height, 80);
  const std::string high = writeImage(directory.path(), {.file = "high.png"}, noiseAt, 100, 400);
  EXPECT_EQ(draw(high, 160).problem, "");
  EXPECT_EQ(readImage(picture).width, 40);
  EXPECT_EQ(readImage(picture).height, 160);
}

TEST_F(SmallPicture, IsNeverLargerThanTheImage) {
  const std::string file = writeImage(directory.path(), {.file = "a.png"}, noiseAt, 40, 30);
  EXPECT_EQ(draw(file, 640).problem, "");
  EXPECT_EQ(readImage(picture).width, 40);
  EXPECT_EQ(readImage(picture).height, 30);
}

TEST_F(SmallPicture, ShowsSceneLightAsAScreenDoes) {
  const std::string file = writeImage(
      directory.path(), {.file = "a.exr", .type = OIIO::TypeDesc::HALF}, [](int, int, int) { return 0.18F; },
      64, 64);
  EXPECT_EQ(draw(file, 32).problem, "");
  for (const int channel : readImage(picture).at(16, 16)) {
    EXPECT_NEAR(channel, 118, 3);
  }
}

TEST_F(SmallPicture, OfADamagedFileThereIsNone) {
  const std::string file = writeImage(directory.path(), {.file = "a.png"});
  std::filesystem::resize_file(file, std::filesystem::file_size(file) / 2);
  const Inspection inspection = draw(file, 160);
  EXPECT_NE(inspection.problem, "");
  EXPECT_TRUE(inspection.image);
  EXPECT_FALSE(std::filesystem::exists(picture));
  EXPECT_FALSE(draw(directory.write("a.txt", "words"), 160).image);
  EXPECT_FALSE(std::filesystem::exists(picture));
}

TEST_F(SmallPicture, OneThatCannotBeWrittenIsAProblem) {
  picture = directory.file("none/small.jpg");
  const std::string file = writeImage(directory.path(), {.file = "a.png"});
  EXPECT_EQ(draw(file, 160).problem.substr(0, 34), "No picture of it could be made: Co");
}

TEST_F(SmallPicture, TheHelperMakesItOfAFileOfAnyName) {
  const std::string file = writeImage(directory.path(), {.file = "a.png"}, noiseAt, 640, 320);
  const std::string odd = directory.file("\xff odd.png");
  std::filesystem::rename(file, odd);
  ImageHelper helper{Path(IMAGE_HELPER)};
  std::optional<Inspection> answer;
  helper.draw(Path(odd), Path(picture), 80, [&](const Inspection& inspection) { answer = inspection; });
  EXPECT_EQ(helper.waiting(), 1U);
  const Clock::time_point end = Clock::now() + std::chrono::seconds(60);
  while (!answer && Clock::now() < end) {
    pollfd entry{helper.descriptor(), POLLIN, 0};
    poll(&entry, 1, 1000);
    helper.advance(Clock::now());
  }
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->problem, "");
  EXPECT_EQ(answer->width, 640);
  EXPECT_EQ(readImage(picture).width, 80);
  EXPECT_EQ(helper.waiting(), 0U);
  helper.rest();
  EXPECT_EQ(helper.descriptor(), -1);
}

} // namespace
} // namespace trovik
