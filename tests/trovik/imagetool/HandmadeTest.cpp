#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/imagetool/Images.h"
#include "tests/trovik/imagetool/PngBytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>

// Files that no library here writes, built byte by byte.

namespace trovik {
namespace {

std::string noise(std::size_t count) {
  std::string out;
  for (std::size_t i = 0; i < count; ++i) {
    out += static_cast<char>(noiseAt(static_cast<int>(i), 7, 1) * 255.0F);
  }
  return out;
}

/// A PNG in seven passes, its data stored without compression.
std::string interlacedPng(int width, int height) {
  constexpr std::array<std::array<int, 4>, 7> passes = {
      {{0, 0, 8, 8}, {4, 0, 8, 8}, {0, 4, 4, 8}, {2, 0, 4, 4}, {0, 2, 2, 4}, {1, 0, 2, 2}, {0, 1, 1, 2}}};
  std::string raw;
  for (const auto& [x, y, stepX, stepY] : passes) {
    const auto columns = static_cast<std::size_t>((width - x + stepX - 1) / stepX);
    for (int row = y; row < height; row += stepY) {
      raw += zeros(1) + noise(columns * 3);
    }
  }
  const PngHeader header{.width = static_cast<std::uint32_t>(width),
                         .height = static_cast<std::uint32_t>(height),
                         .interlace = 1};
  return pngSignature + pngHeader(header) + pngChunk("IDAT", zlibStream(raw)) + pngChunk("IEND", "");
}

std::string psd() {
  return "8BPS" + big(1, 2) + zeros(6) + big(3, 2) + big(97, 4) + big(129, 4) + big(8, 2) + big(3, 2) +
         zeros(12) + big(0, 2) + noise(std::size_t{129} * 97 * 3);
}

std::string dds() {
  return "DDS " + little(124, 4) + little(0x100f, 4) + little(97, 4) + little(129, 4) +
         little(std::uint64_t{129} * 3, 4) + zeros(52) + little(32, 4) + little(0x40, 4) + zeros(4) +
         little(24, 4) + little(0xff0000, 4) + little(0xff00, 4) + little(0xff, 4) + zeros(4) +
         little(0x1000, 4) + zeros(16) + noise(std::size_t{129} * 97 * 3);
}

std::string floatMap() {
  std::string out = "PF\n129 97\n-1.0\n";
  for (int i = 0; i < 129 * 97 * 3; ++i) {
    const float value = noiseAt(i, 1, 1);
    char bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    out.append(bytes, sizeof value);
  }
  return out;
}

std::string portableBits() {
  return "P4\n# a comment\n129 97\n" + noise(std::size_t{17} * 97);
}

std::string portableBitsAsText() {
  std::string out = "P1\n129 97\n";
  for (int i = 0; i < 129 * 97; ++i) {
    out += noiseAt(i, 1, 1) < 0.5F ? "0" : "1";
    out += i % 60 == 59 ? "\n" : "";
  }
  return out;
}

struct Handmade {
  std::string leaf;
  std::string bytes;
};

class HandmadeImage : public testing::TestWithParam<Handmade> {};

TEST_P(HandmadeImage, IsGoodWhenWholeAndEveryCutIsFound) {
  const TemporaryDirectory directory;
  const std::string& whole = GetParam().bytes;
  const Inspection good = inspect(directory.write(GetParam().leaf, whole));
  EXPECT_EQ(good.problem, "");
  EXPECT_TRUE(good.image);
  EXPECT_EQ(good.width, 129);
  EXPECT_EQ(good.height, 97);
  for (const std::size_t size :
       {whole.size() / 10, whole.size() / 2, whole.size() * 9 / 10, whole.size() - 1}) {
    const Inspection cut = inspect(directory.write(GetParam().leaf, whole.substr(0, size)));
    EXPECT_TRUE(cut.problem.starts_with("Truncated or damaged image (")) << size << ' ' << cut.problem;
  }
}

std::string handmadeName(const testing::TestParamInfo<Handmade>& info) {
  std::string name = info.param.leaf;
  std::replace(name.begin(), name.end(), '.', '_');
  return name;
}
INSTANTIATE_TEST_SUITE_P(Of, HandmadeImage,
                         testing::Values(Handmade{"interlaced.png", interlacedPng(129, 97)},
                                         Handmade{"a.psd", psd()}, Handmade{"a.dds", dds()},
                                         Handmade{"a.pfm", floatMap()}, Handmade{"bits.pbm", portableBits()},
                                         Handmade{"text.pbm", portableBitsAsText()}),
                         handmadeName);

TEST(Bomb, OfManyPixelsIsRefusedWithoutDecoding) {
  const TemporaryDirectory directory;
  EXPECT_EQ(inspect(directory.write("a.ppm", "P6\n1000000 1000000\n255\n")).problem,
            "Truncated or damaged image (it says that it has 1000000 x 1000000 pixels of 3 channels)");
  const std::string png =
      inspect(directory.write("a.png", pngSignature +
                                           pngHeader({.width = 1000000, .height = 1000000, .interlace = 1}) +
                                           pngChunk("IDAT", "\x78\x01") + pngChunk("IEND", "")))
          .problem;
  EXPECT_TRUE(png.starts_with("Truncated or damaged image (")) << png;
  const std::string psdBomb =
      inspect(directory.write("a.psd", psd().replace(14, 8, big(300000, 4) + big(300000, 4)))).problem;
  EXPECT_TRUE(psdBomb.starts_with("Truncated or damaged image (")) << psdBomb;
}

TEST(Bomb, OfOneLineIsRefusedBeforeItTakesMemory) {
  const TemporaryDirectory directory;
  EXPECT_EQ(inspect(directory.write("a.ppm", "P6\n500000000 2\n255\n")).problem,
            "Truncated or damaged image (it says that it has 500000000 x 2 pixels of 3 channels)");
}

std::string exrAttribute(const std::string& name, const std::string& type, const std::string& value) {
  return name + zeros(1) + type + zeros(1) + little(value.size(), 4) + value;
}

TEST(Exr, OfSubsampledChannelsIsLeftAloneSinceNobodyHereCanDecodeIt) {
  const TemporaryDirectory directory;
  std::string channels;
  for (const char* name : {"BY", "RY", "Y"}) {
    const std::uint64_t sampling = std::string(name) == "Y" ? 1 : 2;
    channels += name + zeros(1) + little(1, 4) + zeros(4) + little(sampling, 4) + little(sampling, 4);
  }
  const std::string window = zeros(8) + little(1, 4) + little(1, 4);
  std::string file =
      "\x76\x2f\x31\x01" + little(2, 4) + exrAttribute("channels", "chlist", channels + zeros(1)) +
      exrAttribute("compression", "compression", zeros(1)) + exrAttribute("dataWindow", "box2i", window) +
      exrAttribute("displayWindow", "box2i", window) + exrAttribute("lineOrder", "lineOrder", zeros(1)) +
      exrAttribute("pixelAspectRatio", "float", big(0x0000803f, 4)) +
      exrAttribute("screenWindowCenter", "v2f", zeros(8)) +
      exrAttribute("screenWindowWidth", "float", big(0x0000803f, 4)) + zeros(1);
  const std::uint64_t start = file.size() + 16;
  // Two lines: the first with one value of each colour and two of light.
  file += little(start, 8) + little(start + 16, 8) + little(0, 4) + little(8, 4) + zeros(8) + little(1, 4) +
          little(4, 4) + zeros(4);
  const Inspection inspection = inspect(directory.write("a.exr", file));
  EXPECT_EQ(inspection.problem, "");
  EXPECT_FALSE(inspection.image);
}

TEST(Structure, EndlessChainsEnd) {
  const TemporaryDirectory directory;
  // A directory of a TIFF file that names itself as the next one.
  const std::string loop = std::string("II") + little(42, 2) + little(8, 4) + little(0, 2) + little(8, 4);
  const Inspection inspection = inspect(directory.write("a.tif", loop + zeros(300)));
  EXPECT_TRUE(inspection.problem.starts_with("Truncated or damaged image (")) << inspection.problem;
}

/// Two by two grey pixels in one strip, then the directory, then a resolution.
std::string greyTiff(const std::string& strip, std::uint64_t compression, std::uint64_t fillOrder = 1) {
  const auto entry = [](int tag, int type, std::uint64_t value) {
    return little(static_cast<std::uint64_t>(tag), 2) + little(static_cast<std::uint64_t>(type), 2) +
           little(1, 4) + (type == 3 ? little(value, 2) + zeros(2) : little(value, 4));
  };
  const std::string padding = zeros(strip.size() % 2);
  const std::uint64_t directory = 8 + strip.size() + padding.size();
  const std::uint64_t fraction = directory + 2 + std::uint64_t{11} * 12 + 4;
  return std::string("II") + little(42, 2) + little(directory, 4) + strip + padding + little(11, 2) +
         entry(256, 3, 2) + entry(257, 3, 2) + entry(258, 3, 8) + entry(259, 3, compression) +
         entry(262, 3, 1) + entry(266, 3, fillOrder) + entry(273, 4, 8) + entry(277, 3, 1) +
         entry(278, 3, 2) + entry(279, 4, strip.size()) + entry(282, 5, fraction) + little(0, 4) +
         little(72, 4) + little(1, 4);
}

TEST(Structure, TiffIsHeldAgainstItsCheckSumsAlsoWhereDamageMakesMoreOfIt) {
  const TemporaryDirectory directory;
  const auto problemOf = [&](const std::string& strip, std::uint64_t compression) {
    return inspect(directory.write("a.tif", greyTiff(strip, compression))).problem;
  };
  const auto damaged = [](std::string stream) {
    stream[7] = 'x'; // the first byte behind the stream's head and the block's
    return stream;
  };
  const std::string wrongSum = "Truncated or damaged image (a strip or tile does not match its check sum)";
  const std::string tooMuch = zlibStream("abcdef");
  for (const std::uint64_t deflate : {8U, 32946U}) {
    EXPECT_EQ(problemOf(zlibStream("abcd"), deflate), "");
    EXPECT_NE(problemOf(damaged(zlibStream("abcd")), deflate), "");
    // Writers give the last strip as many lines as the others have. The decoder
    // takes the four bytes that it needs, and does not come to the sum.
    EXPECT_EQ(problemOf(tooMuch, deflate), "");
    EXPECT_EQ(problemOf(damaged(tooMuch), deflate), wrongSum);
    EXPECT_EQ(problemOf(zlibStream("abcd" + std::string(1000000, 'e')), deflate), "");
    EXPECT_EQ(problemOf(damaged(zlibStream("abcd" + std::string(1000000, 'e'))), deflate), wrongSum);
    EXPECT_EQ(problemOf(zlibStream("abcd") + "filling", deflate), "");
  }
}

TEST(Structure, TiffOfTurnedBitsIsLeftToItsDecoder) {
  const TemporaryDirectory directory;
  std::string strip = zlibStream("abcdef");
  for (char& byte : strip) {
    const unsigned straight = static_cast<unsigned char>(byte);
    unsigned turned = 0;
    for (unsigned bit = 0; bit < 8; ++bit) {
      turned |= (straight >> bit & 1U) << (7U - bit);
    }
    byte = static_cast<char>(turned);
  }
  EXPECT_EQ(inspect(directory.write("a.tif", greyTiff(strip, 8, 2))).problem, "");
}

TEST(Structure, TiffThatEndsWithinTheValuesOfItsDirectoryIsCut) {
  const TemporaryDirectory directory;
  // The resolution of 72, a fraction, is the last of the file, and no decoder needs it.
  const std::string file = greyTiff("abcd", 1);
  EXPECT_EQ(inspect(directory.write("whole.tif", file)).problem, "");
  for (std::size_t cut = 1; cut <= 8; ++cut) {
    EXPECT_EQ(inspect(directory.write("cut.tif", file.substr(0, file.size() - cut))).problem,
              "Truncated or damaged image (the file ends early)")
        << cut;
  }
}

} // namespace
} // namespace trovik
