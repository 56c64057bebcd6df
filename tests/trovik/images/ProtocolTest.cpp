#include "trovik/images/ImageProtocol.h"

#include <gtest/gtest.h>

namespace trovik {
namespace {

TEST(ImageProtocol, FileNamesOfAnyBytesComeBack) {
  std::string all;
  for (int byte = 1; byte < 256; ++byte) {
    all += static_cast<char>(byte);
  }
  for (const std::string& file : {std::string("a.png"), std::string("Größe.png"), std::string("two\nlines"),
                                  std::string("\xff\xfe"), all}) {
    const std::string line = requestLine({file, true});
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    const auto request = requestFrom(line);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->file, file);
    EXPECT_TRUE(request->refuseFlat);
  }
  EXPECT_EQ(requestLine({"a.png", false}), "{\"file\":\"a.png\",\"flat\":false}\n");
  EXPECT_EQ(requestLine({"\xff.png", false}), "{\"file\":{\"hex\":\"ff2e706e67\"},\"flat\":false}\n");
}

TEST(ImageProtocol, APictureIsAskedForWithItsRoom) {
  const auto request = requestFrom(requestLine({"a.png", false, "/cache/\xff.jpg", 320}));
  ASSERT_TRUE(request);
  EXPECT_EQ(request->picture, "/cache/\xff.jpg");
  EXPECT_EQ(request->room, 320);
  EXPECT_EQ(requestFrom("{\"file\":\"a.png\"}")->picture, "");
  EXPECT_FALSE(requestFrom("{\"file\":\"a.png\",\"picture\":\"b\",\"room\":\"wide\"}"));
}

TEST(ImageProtocol, AnswersComeBack) {
  const auto answer = answerFrom(answerLine({"Truncated \"x\"", true, 1920, 1080}));
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->problem, "Truncated \"x\"");
  EXPECT_TRUE(answer->image);
  EXPECT_EQ(answer->width, 1920);
  EXPECT_EQ(answer->height, 1080);
}

TEST(ImageProtocol, GarbageIsNoRequestAndNoAnswer) {
  for (const char* line :
       {"", "x", "{", "[]", "7", "null", "{}", "{\"file\":7}", "{\"file\":{\"hex\":\"f\"}}",
        "{\"file\":{\"hex\":\"zz\"}}", "{\"file\":\"a\",\"flat\":3}", "{\"file\":\"\xff\"}"}) {
    EXPECT_FALSE(requestFrom(line)) << line;
    EXPECT_FALSE(answerFrom(line)) << line;
    EXPECT_FALSE(reportFrom(line)) << line;
    EXPECT_FALSE(planFrom(line)) << line;
  }
  EXPECT_FALSE(answerFrom("{\"problem\":\"\",\"image\":1,\"width\":1,\"height\":1}"));
}

TEST(ImageProtocol, PlansComeBack) {
  SheetPlan plan;
  plan.title = "Größe";
  plan.subtitle = "POV-Ray";
  plan.noun = "file";
  plan.cellWidth = 200;
  plan.columns = 3;
  plan.cells = {{"1", "/a\xff.png", CellState::Good, ""}, {"2", "", CellState::Failed, "why"}};
  const auto read = planFrom(planLine(plan));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->title, plan.title);
  EXPECT_EQ(read->subtitle, plan.subtitle);
  EXPECT_EQ(read->noun, "file");
  EXPECT_EQ(read->cellWidth, 200);
  EXPECT_EQ(read->columns, 3);
  ASSERT_EQ(read->cells.size(), 2U);
  EXPECT_EQ(read->cells[0].file, "/a\xff.png");
  EXPECT_EQ(read->cells[1].state, CellState::Failed);
  EXPECT_EQ(read->cells[1].note, "why");
}

TEST(ImageProtocol, ReportsComeBack) {
  for (const SheetReport& report :
       {SheetReport{SheetReport::Kind::Opens, 3, CellState::Good, "", 0, 0},
        SheetReport{SheetReport::Kind::Cell, 4, CellState::Damaged, "why", 0, 0},
        SheetReport{SheetReport::Kind::Warning, 0, CellState::Good, "no font", 0, 0},
        SheetReport{SheetReport::Kind::Done, 0, CellState::Good, "", 640, 480},
        SheetReport{SheetReport::Kind::Error, 0, CellState::Good, "disk full", 0, 0}}) {
    const auto read = reportFrom(reportLine(report));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->kind, report.kind);
    EXPECT_EQ(read->cell, report.cell);
    EXPECT_EQ(read->state, report.state);
    EXPECT_EQ(read->text, report.text);
    EXPECT_EQ(read->width, report.width);
    EXPECT_EQ(read->height, report.height);
  }
}

} // namespace
} // namespace trovik
