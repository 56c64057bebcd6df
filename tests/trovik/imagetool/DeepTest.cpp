#include "trovik/imagetool/Check.h"
#include "trovik/imagetool/Limits.h"
#include "trovik/imagetool/Picture.h"

#include "tests/trovik/TemporaryDirectory.h"

#include <OpenImageIO/deepdata.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace trovik {
namespace {

/// Two samples a pixel: a green one that lets half through before a red one.
std::string writeDeep(const std::string& file, int tile) {
  OIIO::ImageSpec layout(64, 48, 5, OIIO::TypeDesc::FLOAT);
  layout.channelnames = {"R", "G", "B", "A", "Z"};
  layout.alpha_channel = 3;
  layout.z_channel = 4;
  layout.deep = true;
  layout.tile_width = layout.tile_height = tile;
  OIIO::DeepData samples(layout);
  for (std::int64_t pixel = 0; pixel < std::int64_t{64} * 48; ++pixel) {
    samples.set_samples(pixel, 2);
    const float values[2][5] = {{0.0F, 0.5F, 0.0F, 0.5F, 1.0F}, {1.0F, 0.0F, 0.0F, 1.0F, 2.0F}};
    for (int sample = 0; sample < 2; ++sample) {
      for (int channel = 0; channel < 5; ++channel) {
        samples.set_deep_value(pixel, channel, sample, values[sample][channel]);
      }
    }
  }
  const auto output = OIIO::ImageOutput::create(file);
  if (output == nullptr || !output->open(file, layout) || !output->write_deep_image(samples) ||
      !output->close()) {
    throw std::runtime_error(output == nullptr ? OIIO::geterror() : output->geterror());
  }
  return file;
}

class DeepImage : public testing::TestWithParam<int> {};

TEST_P(DeepImage, IsDecodedWhole) {
  image::limitLibrary();
  const TemporaryDirectory directory;
  const std::string file = writeDeep(directory.file("a.exr"), GetParam());
  EXPECT_EQ(image::check({file, false}).problem, "");
  EXPECT_EQ(image::check({file, true}).problem, "Only one flat colour");
  const std::string whole = readFile(file);
  for (const std::size_t size : {whole.size() / 2, whole.size() - 1}) {
    const std::string cut = directory.write("b.exr", whole.substr(0, size));
    EXPECT_TRUE(image::check({cut, false}).problem.starts_with("Truncated or damaged image (")) << size;
  }
}

TEST_P(DeepImage, IsShownWithItsSamplesOverOneAnother) {
  image::limitLibrary();
  const TemporaryDirectory directory;
  image::Picture picture(32, 24);
  ASSERT_EQ(image::decode(writeDeep(directory.file("a.exr"), GetParam()), &picture).problem, "");
  const image::Pixels pixels = picture.finish();
  ASSERT_EQ(pixels.width, 32);
  EXPECT_NEAR(pixels.bytes[0], 188, 1); // half the light
  EXPECT_NEAR(pixels.bytes[1], 188, 1);
  EXPECT_EQ(pixels.bytes[2], 0);
}

INSTANTIATE_TEST_SUITE_P(OfLinesAndTiles, DeepImage, testing::Values(0, 16));

} // namespace
} // namespace trovik
