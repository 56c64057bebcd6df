#include "trovik/imagetool/Picture.h"
#include "trovik/imagetool/Limits.h"

#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/imagetool/Images.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace trovik {
namespace {

using image::Picture;
using image::Pixels;
using OIIO::TypeDesc;
using Values = std::vector<int>;

Pixels pictureOf(const std::string& file, int width = 64, int height = 64) {
  image::limitLibrary();
  Picture picture(width, height);
  EXPECT_EQ(image::decode(file, &picture).problem, "");
  return picture.finish();
}

Values at(const Pixels& pixels, int x, int y) {
  const std::size_t offset =
      (static_cast<std::size_t>(y) * static_cast<std::size_t>(pixels.width) + static_cast<std::size_t>(x)) *
      3;
  return {pixels.bytes.at(offset), pixels.bytes.at(offset + 1), pixels.bytes.at(offset + 2)};
}

Values middle(const Pixels& pixels) {
  return at(pixels, pixels.width / 2, pixels.height / 2);
}

PixelFunction plain(float value) {
  return [value](int, int, int) { return value; };
}

TEST(Picture, MiddleGreyOfLightIsShownAsAScreenShowsIt) {
  const TemporaryDirectory directory;
  for (const char* name : {"a.exr", "a.hdr", "a.tif"}) {
    const std::string file =
        writeImage(directory.path(),
                   {.file = name, .type = std::string(name) == "a.exr" ? TypeDesc::HALF : TypeDesc::FLOAT},
                   plain(0.18F));
    for (const int channel : middle(pictureOf(file))) {
      EXPECT_NEAR(channel, 118, 1) << name;
    }
  }
}

TEST(Picture, ScreenColoursStayAsTheyAre) {
  const TemporaryDirectory directory;
  for (const TypeDesc& type : {TypeDesc(TypeDesc::UINT8), TypeDesc(TypeDesc::UINT16)}) {
    const std::string file =
        writeImage(directory.path(), {.file = "a.png", .type = type},
                   [](int, int, int channel) { return static_cast<float>(channel) * 0.4F; });
    EXPECT_EQ(middle(pictureOf(file)), (Values{0, 102, 204}));
  }
}

TEST(Picture, TheMeanColourStaysWhenItShrinks) {
  const TemporaryDirectory directory;
  const std::string file = writeImage(
      directory.path(), {.file = "a.png"}, [](int x, int y, int) { return (x + y) % 2 == 0 ? 0.2F : 0.6F; },
      1000, 700);
  for (const int channel : middle(pictureOf(file))) {
    EXPECT_NEAR(channel, 102, 3);
  }
}

TEST(Picture, KeepsItsShapeInTheRoom) {
  const TemporaryDirectory directory;
  const auto size = [&](int width, int height) {
    const Pixels pixels =
        pictureOf(writeImage(directory.path(), {.file = "a.png"}, noiseAt, width, height), 160, 90);
    return Values{pixels.width, pixels.height};
  };
  EXPECT_EQ(size(320, 180), (Values{160, 90}));
  EXPECT_EQ(size(16, 9), (Values{160, 90}));
  EXPECT_EQ(size(400, 100), (Values{160, 40}));
  EXPECT_EQ(size(100, 400), (Values{23, 90}));
  EXPECT_EQ(size(4000, 1), (Values{160, 1}));
  EXPECT_EQ(size(1, 4000), (Values{1, 90}));
}

TEST(Picture, OfWidePixelsIsWide) {
  const TemporaryDirectory directory;
  OIIO::ImageSpec layout(64, 64, 3, TypeDesc::HALF);
  layout.attribute("PixelAspectRatio", 2.0F);
  const Pixels pixels = pictureOf(writeImage(directory.file("a.exr"), layout, noiseAt), 160, 160);
  EXPECT_EQ(pixels.width, 160);
  EXPECT_EQ(pixels.height, 80);
}

TEST(Picture, ShowsTheDisplayWindow) {
  const TemporaryDirectory directory;
  OIIO::ImageSpec layout(32, 32, 3, TypeDesc::HALF);
  layout.x = 32;
  layout.y = 32;
  layout.full_width = layout.full_height = 64;
  const Pixels inside = pictureOf(writeImage(directory.file("a.exr"), layout, plain(1.0F)));
  EXPECT_EQ(at(inside, 10, 10), (Values{0, 0, 0}));
  EXPECT_EQ(at(inside, 50, 50), (Values{255, 255, 255}));

  // Overscan is not shown.
  OIIO::ImageSpec over(96, 96, 3, TypeDesc::HALF);
  over.x = over.y = -16;
  over.full_width = over.full_height = 64;
  const Pixels cropped = pictureOf(writeImage(directory.file("b.exr"), over, [](int x, int y, int) {
    return x < 0 || y < 0 || x >= 64 || y >= 64 ? 1.0F : 0.0F;
  }));
  EXPECT_EQ(at(cropped, 1, 1), (Values{0, 0, 0}));
  EXPECT_EQ(at(cropped, 62, 62), (Values{0, 0, 0}));
}

TEST(Picture, WhatIsTransparentLiesOnADarkCheck) {
  const TemporaryDirectory directory;
  const Pixels pixels =
      pictureOf(writeImage(directory.path(), {.file = "a.png", .channels = 4}, plain(0.0F)));
  EXPECT_EQ(at(pixels, 2, 2), (Values{51, 51, 51}));
  EXPECT_EQ(at(pixels, 10, 2), (Values{64, 64, 64}));
  const Pixels light = pictureOf(
      writeImage(directory.path(), {.file = "a.exr", .type = TypeDesc::HALF, .channels = 4}, plain(0.0F)));
  EXPECT_EQ(at(light, 2, 2), (Values{51, 51, 51}));
}

TEST(Picture, OneChannelIsGrey) {
  const TemporaryDirectory directory;
  EXPECT_EQ(middle(pictureOf(writeImage(directory.path(), {.file = "a.png", .channels = 1}, plain(0.4F)))),
            (Values{102, 102, 102}));
}

TEST(Picture, ChannelsAreFoundByTheirNames) {
  const TemporaryDirectory directory;
  OIIO::ImageSpec layout(16, 16, 5, TypeDesc::HALF);
  layout.channelnames = {"Z", "beauty.B", "beauty.G", "beauty.R", "N.X"};
  const std::string file = writeImage(directory.file("a.exr"), layout, [](int, int, int channel) {
    return channel == 3 ? 1.0F : channel == 0 ? 1000.0F : 0.0F;
  });
  // The library orders them by itself; the red one is the red one.
  const Values colour = middle(pictureOf(file));
  EXPECT_EQ(colour, (Values{255, 0, 0}));
}

TEST(Picture, OddNumbersAreTamed) {
  const TemporaryDirectory directory;
  const std::string file = writeImage(
      directory.path(), {.file = "a.exr", .type = TypeDesc::FLOAT},
      [](int x, int y, int) {
        return x == 3 && y == 3   ? std::numeric_limits<float>::quiet_NaN()
               : x == 4 && y == 3 ? std::numeric_limits<float>::infinity()
               : x == 5 && y == 3 ? 1e30F
               : x == 6 && y == 3 ? -1e30F
                                  : 0.18F;
      },
      1000, 1000);
  const Pixels pixels = pictureOf(file);
  for (const int channel : middle(pixels)) {
    EXPECT_NEAR(channel, 118, 1);
  }
  // One spark among the 240 pixels below this one.
  EXPECT_LT(at(pixels, 0, 0)[0], 200);
}

} // namespace
} // namespace trovik
