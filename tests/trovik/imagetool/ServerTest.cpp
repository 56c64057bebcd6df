#include "trovik/images/ImageHelper.h"
#include "trovik/images/ImageProtocol.h"
#include "trovik/machine/HelperProcess.h"

#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/imagetool/Images.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <poll.h>

extern const char* const IMAGE_HELPER;
extern const char* const HOST_LIBRARIES;

// The real trovik-image, as trovik talks to it.

namespace trovik {
namespace {

/// All lines that the helper says to an input, and how it ended.
struct Talk {
  std::vector<std::string> lines;
  HelperProcess::End end;
};

Talk talk(const std::vector<String>& arguments, const std::string& input) {
  HelperProcess process(arguments);
  process.send(input);
  process.endInput();
  Talk talk;
  const Clock::time_point end = Clock::now() + std::chrono::seconds(60);
  for (bool runs = true; runs && Clock::now() < end;) {
    pollfd entry{process.descriptor(), static_cast<short>(POLLIN | (process.sending() ? POLLOUT : 0)), 0};
    poll(&entry, 1, 1000);
    runs = process.advance();
    while (const auto line = process.line()) {
      talk.lines.push_back(*line);
    }
  }
  talk.end = process.end();
  return talk;
}

TEST(TrovikImage, AnswersEachRequestInOrderAndEndsWithItsInput) {
  const TemporaryDirectory directory;
  const std::string good = writeImage(directory.path(), {.file = "a.png"});
  const std::string broken =
      directory.write("b.png", readFile(good).substr(0, 9000)); // the library prints, too
  const std::string text = directory.write("c.txt", "no picture");
  const Talk result =
      talk({IMAGE_HELPER, "check"}, requestLine({good, false}) + requestLine({broken, false}) +
                                        requestLine({text, true}) + requestLine({good, true}));
  EXPECT_EQ(
      result.lines,
      (std::vector<std::string>{
          R"({"problem":"","image":true,"width":129,"height":97})",
          R"~({"problem":"Truncated or damaged image (Read error: hit end of file)","image":true,"width":129,"height":97})~",
          R"({"problem":"","image":false,"width":0,"height":0})",
          R"({"problem":"","image":true,"width":129,"height":97})"}));
  EXPECT_EQ(result.end.text, "ended with exit code 0");
}

TEST(TrovikImage, GarbageIsAnsweredAndTheNextRequestWorks) {
  const TemporaryDirectory directory;
  const std::string file = writeImage(directory.path(), {.file = "a.png"});
  const Talk result =
      talk({IMAGE_HELPER, "check"}, "\n{\"file\":3}\n" + std::string(100000, '[') + "\n\xff\xfe\n" +
                                        std::string("\0\0\n", 3) + requestLine({file, false}));
  ASSERT_EQ(result.lines.size(), 6U);
  for (std::size_t i = 0; i < 5; ++i) {
    EXPECT_EQ(result.lines[i], R"({"problem":"Is no request","image":false,"width":0,"height":0})");
  }
  EXPECT_EQ(result.lines[5], R"({"problem":"","image":true,"width":129,"height":97})");
}

// It takes longer to load than most files take to be checked.
TEST(TrovikImage, OnlyWhatNeedsTheImageLibraryLoadsIt) {
  const TemporaryDirectory directory;
  const std::string alone = directory.makeDirectory("bin") + "/trovik-image";
  std::filesystem::copy_file(IMAGE_HELPER, alone);
  const std::string png = writeImage(directory.path(), {.file = "a.png"});
  const std::string exr = writeImage(directory.path(), {.file = "a.exr", .type = OIIO::TypeDesc::HALF});
  const std::string text = directory.write("c.txt", "no picture");
  const Talk result = talk({"/usr/bin/env", String("LD_LIBRARY_PATH=") + HOST_LIBRARIES, alone, "check"},
                           requestLine({png, false}) + requestLine({text, true}) + requestLine({exr, false}));
  ASSERT_EQ(result.lines.size(), 3U);
  EXPECT_EQ(result.lines[0], R"({"problem":"","image":true,"width":129,"height":97})");
  EXPECT_EQ(result.lines[1], R"({"problem":"","image":false,"width":0,"height":0})");
  const auto refused = answerFrom(result.lines[2]);
  ASSERT_TRUE(refused);
  EXPECT_TRUE(refused->problem.starts_with("Cannot be looked into: trovik-image: " + directory.path()))
      << refused->problem;
  EXPECT_TRUE(refused->problem.ends_with(
      "libTrovikImages.so: cannot open shared object file: No such file or directory"))
      << refused->problem;
  EXPECT_EQ(result.end.code, 1);
}

TEST(TrovikImage, RefusesWhatItDoesNotKnow) {
  for (const std::vector<String>& arguments :
       {std::vector<String>{IMAGE_HELPER}, {IMAGE_HELPER, "draw"}, {IMAGE_HELPER, "sheet", "-o"}}) {
    const Talk result = talk(arguments, "");
    EXPECT_EQ(result.end.code, 2);
    ASSERT_FALSE(result.lines.empty());
    EXPECT_EQ(result.lines[0], "usage: trovik-image check");
  }
}

TEST(TrovikImage, WorksForTheInspector) {
  const TemporaryDirectory directory;
  const std::string good =
      writeImage(directory.path(), {.file = "odd \xff name.exr", .type = OIIO::TypeDesc::HALF});
  const std::string cut = directory.write("cut.exr", readFile(good).substr(0, 20000));
  ImageHelper helper{Path(IMAGE_HELPER)};
  const std::vector<Inspection> inspections = inspectAll(helper, {Path(good), Path(cut)}, false);
  EXPECT_EQ(inspections[0].problem, "");
  EXPECT_TRUE(inspections[0].image);
  EXPECT_EQ(inspections[0].width, 129);
  EXPECT_EQ(inspections[1].problem,
            "Truncated or damaged image (Failed OpenEXR read: Error reading pixel data "
            "from image file. Unexpected end of file)");
}

TEST(TrovikImage, DrawsASheetFromAPlan) {
  const TemporaryDirectory directory;
  SheetPlan plan;
  plan.title = "shot";
  plan.cells = {{"1", writeImage(directory.path(), {.file = "a.png"}), CellState::Good, ""},
                {"2", directory.file("gone.png"), CellState::Good, ""}};
  const std::string sheet = directory.file("sheet.png");
  const Talk result = talk({IMAGE_HELPER, "sheet", "-o", sheet}, planLine(plan));
  ASSERT_FALSE(result.lines.empty());
  const auto report = reportFrom(result.lines.back());
  ASSERT_TRUE(report);
  EXPECT_EQ(report->kind, SheetReport::Kind::Done);
  EXPECT_EQ(readImage(sheet).width, report->width);
  EXPECT_EQ(result.end.text, "ended with exit code 0");

  const Talk refused = talk({IMAGE_HELPER, "sheet", "-o", sheet}, "no plan");
  EXPECT_EQ(refused.lines, std::vector<std::string>{
                               R"({"report":"error","text":"standard input holds no plan of a sheet"})"});
  EXPECT_EQ(refused.end.code, 1);
}

} // namespace
} // namespace trovik
