#include "trovik/imagetool/Check.h"
#include "trovik/imagetool/Decoder.h"

#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/imagetool/Images.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sys/stat.h>

namespace trovik {
namespace {

using OIIO::TypeDesc;

float onlyAlphaDiffers(int x, int y, int channel) {
  return channel == 3 ? noiseAt(x, y, 0) : 0.25F * static_cast<float>(channel);
}

TEST(Flat, OneColourIsAProblemWhereItIsRefused) {
  const TemporaryDirectory directory;
  for (const char* name : {"a.png", "a.exr", "a.tif", "a.jpg"}) {
    const std::string file =
        writeImage(directory.path(),
                   {.file = name, .type = std::string(name) == "a.exr" ? TypeDesc::HALF : TypeDesc::UINT8},
                   [](int, int, int) { return 0.5F; });
    EXPECT_EQ(inspect(file, true).problem, "Only one flat colour") << name;
    EXPECT_EQ(inspect(file, false).problem, "") << name;
  }
}

TEST(Flat, AlphaDoesNotCount) {
  const TemporaryDirectory directory;
  const std::string file = writeImage(
      directory.path(), {.file = "a.exr", .type = TypeDesc::HALF, .channels = 4}, onlyAlphaDiffers);
  EXPECT_EQ(inspect(file, true).problem, "Only one flat colour");
}

TEST(Flat, OnePixelIsEnough) {
  const TemporaryDirectory directory;
  for (const int tile : {0, 32}) {
    const std::string file =
        writeImage(directory.path(), {.file = "a.tif", .tile = tile}, [](int x, int y, int channel) {
          return x == imageWidth - 1 && y == imageHeight - 1 && channel == 2 ? 1.0F : 0.0F;
        });
    EXPECT_EQ(inspect(file, true).problem, "");
  }
}

TEST(Flat, DamageIsToldFirst) {
  const TemporaryDirectory directory;
  const std::string file =
      writeImage(directory.path(), {.file = "a.png"}, [](int, int, int) { return 0.5F; });
  const std::string bytes = readFile(file);
  const Inspection inspection = inspect(directory.write("b.png", bytes.substr(0, bytes.size() - 4)), true);
  EXPECT_EQ(inspection.problem, "Truncated or damaged image (the file ends early)");
}

TEST(Check, ChannelsOfSeveralTypesAreDecodedAsTheyAreStored) {
  const TemporaryDirectory directory;
  for (const int tile : {0, 32}) {
    OIIO::ImageSpec layout(imageWidth, imageHeight, 6, TypeDesc::FLOAT);
    layout.channelnames = {"R", "G", "B", "A", "Z", "id"};
    layout.channelformats = {TypeDesc::HALF, TypeDesc::HALF,  TypeDesc::HALF,
                             TypeDesc::HALF, TypeDesc::FLOAT, TypeDesc::UINT32};
    layout.tile_width = layout.tile_height = tile;
    const std::string file = writeImage(directory.file("a.exr"), layout, noiseAt);
    const Inspection whole = inspect(file);
    EXPECT_EQ(whole.problem, "") << tile;
    EXPECT_EQ(whole.width, imageWidth);
    const std::string bytes = readFile(file);
    const std::string cut = directory.write("b.exr", bytes.substr(0, bytes.size() - 1));
    EXPECT_TRUE(inspect(cut).problem.starts_with("Truncated or damaged image (")) << tile;
  }
}

TEST(NoImage, HasNoProblem) {
  const TemporaryDirectory directory;
  for (const char* name : {"a.txt", "a", "a.mp4", "a.mov", "a.vdb", "a.null", "a.term", "a.raw", "a.cap",
                           "a.abc", "a.cin", "a.zfile"}) {
    const Inspection inspection = inspect(directory.write(name, "no picture at all"));
    EXPECT_EQ(inspection.problem, "") << name;
    EXPECT_FALSE(inspection.image) << name;
  }
}

TEST(NoImage, IsAFileWithASharedExtensionThatDoesNotBeginLikeOne) {
  const TemporaryDirectory directory;
  for (const char* name : {"a.z", "a.int", "a.env", "a.sm", "a.pic", "a.bw"}) {
    const Inspection inspection = inspect(directory.write(name, "KEY=value\n"));
    EXPECT_EQ(inspection.problem, "") << name;
    EXPECT_FALSE(inspection.image) << name;
  }
}

TEST(Image, WithTheExtensionOfAnotherFormatIsJudgedByItsContent) {
  const TemporaryDirectory directory;
  const std::string jpeg = readFile(writeImage(directory.path(), {.file = "a.jpg"}));
  EXPECT_EQ(inspect(directory.write("b.png", jpeg)).problem, "");
  EXPECT_EQ(inspect(directory.write("b.png", jpeg.substr(0, jpeg.size() / 2))).problem,
            "Truncated or damaged image (JPEG error: Premature end of JPEG file)");
  // Radiance files are often called so, and so are those of Softimage.
  const std::string radiance =
      readFile(writeImage(directory.path(), {.file = "a.hdr", .type = TypeDesc::FLOAT}));
  const Inspection pic = inspect(directory.write("b.pic", radiance));
  EXPECT_EQ(pic.problem, "");
  EXPECT_TRUE(pic.image);
}

TEST(Image, ThatHoldsAnythingElseIsDamaged) {
  const TemporaryDirectory directory;
  for (const char* name :
       {"a.png", "a.exr", "a.jpg", "a.tif", "a.tga", "a.hdr", "a.dpx", "a.webp", "a.psd", "a.PNG"}) {
    const Inspection inspection = inspect(directory.write(name, "<html>500 Internal Server Error</html>"));
    EXPECT_TRUE(inspection.problem.starts_with("Truncated or damaged image (")) << name << inspection.problem;
    EXPECT_TRUE(inspection.image) << name;
  }
}

TEST(Image, ThatCannotBeReadIsAProblem) {
  const TemporaryDirectory directory;
  EXPECT_EQ(inspect(directory.file("gone.png")).problem, "Cannot be read (No such file or directory)");
  EXPECT_EQ(inspect(directory.makeDirectory("folder.png")).problem, "Is no regular file");
  EXPECT_EQ(inspect(directory.write("empty.png", "")).problem, "Is empty");
  const std::string pipe = directory.file("pipe.png");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(inspect(pipe).problem, "Is no regular file"); // and does not wait for a writer
}

TEST(Image, MayBeCalledAnything) {
  const TemporaryDirectory directory;
  const std::string bytes = readFile(writeImage(directory.path(), {.file = "a.png"}));
  const std::string exr = readFile(writeImage(directory.path(), {.file = "a.exr", .type = TypeDesc::HALF}));
  for (const char* name : {"\xff\xfe", "two\nlines", "a?b=c&d", "%s%n%04d", "$(rm -r x)", "-o", "\"", "'",
                           " ", "#", "\\", "<udim>", "a.exr?x"}) {
    EXPECT_EQ(inspect(directory.write(std::string(name) + ".png", bytes)).problem, "") << name;
    EXPECT_EQ(inspect(directory.write(std::string(name) + ".exr", exr)).problem, "") << name;
  }
}

TEST(Image, IsDecodedInAllItsPartsAndLevels) {
  const TemporaryDirectory directory;
  const std::string file = writeImage(
      directory.path(), {.file = "a.exr", .type = TypeDesc::HALF, .compression = "zip", .parts = 3});
  std::string bytes = readFile(file);
  EXPECT_EQ(inspect(file).problem, "");
  // Somewhere in the pixels of the last part.
  bytes.replace(bytes.size() * 95 / 100, 40, std::string(40, '\0'));
  EXPECT_TRUE(inspect(directory.write("b.exr", bytes)).problem.starts_with("Truncated or damaged image ("));
}

TEST(Image, MayHaveADataWindowBeyondItsDisplayWindow) {
  const TemporaryDirectory directory;
  OIIO::ImageSpec layout(60, 40, 3, TypeDesc::HALF);
  layout.x = -10;
  layout.y = -5;
  layout.full_width = 32;
  layout.full_height = 24;
  const Inspection inspection = inspect(writeImage(directory.file("a.exr"), layout, noiseAt));
  EXPECT_EQ(inspection.problem, "");
  EXPECT_EQ(inspection.width, 60);
}

TEST(DamageText, IsOneLineOfBoundedLengthWithoutTheFilesName) {
  EXPECT_EQ(image::damageText("Cannot read \"/a/b.exr\". Sorry.\nmore", "/a/b.exr"),
            "Truncated or damaged image (Cannot read. Sorry)");
  EXPECT_EQ(image::damageText("/a/b.webp is not a WebP image file", "/a/b.webp"),
            "Truncated or damaged image (is not a WebP image file)");
  EXPECT_EQ(image::damageText("\x1b[2J", "/a"), "Truncated or damaged image (\\x1b[2J)");
  EXPECT_EQ(image::damageText("", "/a"), "Truncated or damaged image (no reason is given)");
  EXPECT_LT(image::damageText(std::string(100000, 'x'), "/a").size(), 300U);
}

} // namespace
} // namespace trovik
