#include "trovik/imagetool/Sheet.h"
#include "trovik/imagetool/Limits.h"
#include "trovik/imagetool/SheetLayout.h"

#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/imagetool/Images.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sys/stat.h>

namespace trovik {
namespace {

using image::addHeader;
using image::Box;
using image::layoutOf;
using image::SheetLayout;
using OIIO::TypeDesc;
using Colour = std::vector<int>;

SheetPlan planOf(std::size_t cells) {
  SheetPlan plan;
  plan.title = "shot";
  plan.subtitle = "POV-Ray";
  for (std::size_t i = 0; i < cells; ++i) {
    plan.cells.push_back({std::to_string(i + 1), "", CellState::Waiting, ""});
  }
  return plan;
}

Colour sizes(std::size_t cells, double aspect) {
  const SheetLayout layout = layoutOf(planOf(cells), aspect);
  return {layout.columns, layout.rows, layout.cellWidth};
}

TEST(SheetLayout, IsAboutAsWideAsAScreen) {
  EXPECT_EQ(sizes(1, 16.0 / 9.0), (Colour{1, 1, 480}));
  EXPECT_EQ(sizes(4, 16.0 / 9.0), (Colour{2, 2, 480}));
  EXPECT_EQ(sizes(24, 16.0 / 9.0), (Colour{6, 4, 320}));
  EXPECT_EQ(sizes(36, 16.0 / 9.0), (Colour{6, 6, 320}));
  EXPECT_EQ(sizes(100, 1.0), (Colour{15, 7, 128}));
  EXPECT_EQ(layoutOf(planOf(10000), 1.78).cellWidth, 96);
}

TEST(SheetLayout, EveryCellHasItsOwnPlaceOnTheSheet) {
  SheetPlan plan = planOf(7);
  plan.columns = 3;
  plan.cellWidth = 100;
  SheetLayout layout = layoutOf(plan, 2.0);
  addHeader(layout, 40);
  EXPECT_EQ(layout.rows, 3);
  EXPECT_EQ(layout.imageHeight, 50);
  for (std::size_t i = 0; i < 7; ++i) {
    const Box image = layout.imageOf(i);
    const Box label = layout.labelOf(i);
    EXPECT_GE(image.y, 40 + layout.margin);
    EXPECT_LE(image.x + image.width, layout.width - layout.margin);
    EXPECT_LE(label.y + label.height, layout.height - layout.margin);
    if (i >= 3) {
      const Box above = layout.labelOf(i - 3);
      EXPECT_GE(image.y, above.y + above.height + layout.gap);
    }
  }
}

TEST(SheetLayout, OddWishesAreTamed) {
  SheetPlan plan = planOf(3);
  plan.columns = 1000000;
  plan.cellWidth = 1000000;
  EXPECT_EQ(layoutOf(plan, 1e9).columns, 3);
  EXPECT_EQ(layoutOf(plan, 1e9).cellWidth, cellWidthMaximum);
  plan.cellWidth = 1;
  EXPECT_EQ(layoutOf(plan, -1.0).cellWidth, cellWidthMinimum);
}

/// Draws a plan and keeps what is told.
class SheetTest : public testing::Test {
protected:
  TemporaryDirectory directory;
  image::Fonts fonts = image::findFonts();
  std::vector<SheetReport> cells;
  std::vector<std::string> warnings;
  SheetReport last;
  SheetLayout layout;

  bool draw(const SheetPlan& plan, const std::string& file) {
    image::limitLibrary();
    image::Lettering letters(fonts);
    return image::drawSheet(plan, file, letters, [this](const SheetReport& report) {
      if (report.kind == SheetReport::Kind::Cell) {
        cells.push_back(report);
      } else if (report.kind == SheetReport::Kind::Warning) {
        warnings.push_back(report.text);
      }
      last = report;
      return true;
    });
  }

  ReadImage drawn(const SheetPlan& plan, double aspect) {
    const std::string file = directory.file("sheet.png");
    EXPECT_TRUE(draw(plan, file)) << last.text;
    layout = layoutOf(plan, aspect);
    ReadImage image = readImage(file);
    addHeader(layout, image.height - layout.height);
    return image;
  }

  Colour middleOf(const ReadImage& image, std::size_t cell) const {
    const Box box = layout.imageOf(cell);
    return image.at(box.x + box.width / 2, box.y + box.height / 2);
  }

  /// How many pixels of a box have another colour than its corner.
  static std::size_t marked(const ReadImage& image, const Box& box) {
    const Colour ground = image.at(box.x + 4, box.y + 2);
    std::size_t count = 0;
    for (int y = box.y + 1; y < box.y + box.height - 1; ++y) {
      for (int x = box.x + 1; x < box.x + box.width - 1; ++x) {
        count += image.at(x, y) == ground ? 0U : 1U;
      }
    }
    return count;
  }

  std::string plainImage(const std::string& name, float value, int width = 160, int height = 90) {
    return writeImage(
        directory.path(), {.file = name, .type = name.ends_with("exr") ? TypeDesc::HALF : TypeDesc::UINT8},
        [value](int, int, int) { return value; }, width, height);
  }
};

TEST_F(SheetTest, GoodCellsShowTheirImages) {
  SheetPlan plan = planOf(0);
  plan.cells = {{"1", plainImage("a.png", 0.4F), CellState::Good, ""},
                {"2", plainImage("b.exr", 0.18F), CellState::Good, ""}};
  const ReadImage image = drawn(plan, 16.0 / 9.0);
  EXPECT_EQ(middleOf(image, 0), (Colour{102, 102, 102}));
  for (const int channel : middleOf(image, 1)) {
    EXPECT_NEAR(channel, 118, 1);
  }
  EXPECT_EQ(image.at(1, 1), (Colour{24, 26, 29}));
  EXPECT_GT(marked(image, layout.labelOf(0)), 5U);
  EXPECT_TRUE(warnings.empty());
  EXPECT_EQ(last.kind, SheetReport::Kind::Done);
  EXPECT_EQ(last.width, image.width);
  EXPECT_EQ(last.height, image.height);
}

TEST_F(SheetTest, EveryStateLooksDifferentEvenWithoutWords) {
  fonts = {};
  SheetPlan plan = planOf(7);
  const std::vector<CellState> states = {CellState::Good,    CellState::Missing, CellState::Failed,
                                         CellState::Damaged, CellState::Waiting, CellState::Running,
                                         CellState::Canceled};
  for (std::size_t i = 0; i < states.size(); ++i) {
    plan.cells[i].state = states[i];
    plan.cells[i].note = "why";
  }
  plan.cells[0].file = plainImage("a.png", 0.4F);
  const ReadImage image = drawn(plan, 16.0 / 9.0);
  std::set<Colour> grounds;
  for (std::size_t i = 0; i < states.size(); ++i) {
    const Box box = layout.imageOf(i);
    grounds.insert(image.at(box.x + 4, box.y + box.height / 2));
    const bool pattern = states[i] == CellState::Missing || states[i] == CellState::Failed ||
                         states[i] == CellState::Damaged || states[i] == CellState::Canceled;
    EXPECT_EQ(marked(image, box) > 100, pattern) << i;
  }
  EXPECT_EQ(grounds.size(), states.size());
  EXPECT_EQ(warnings, std::vector<std::string>{
                          "there is no font DejaVu Sans on this machine, so the sheet has no words"});
}

TEST_F(SheetTest, FilesAreLookedAtNow) {
  const std::string whole = readFile(writeImage(directory.path(), {.file = "a.png"}));
  SheetPlan plan = planOf(0);
  plan.cells = {{"1", directory.file("a.png"), CellState::Good, ""},
                {"2", directory.file("gone.png"), CellState::Good, ""},
                {"3", directory.write("b.png", whole.substr(0, 9000)), CellState::Good, ""},
                {"4", "", CellState::Good, ""},
                {"5", directory.write("notes.txt", "text"), CellState::Good, ""},
                {"6", directory.file("a.png"), CellState::Failed, "Error line: boom"}};
  const ReadImage image = drawn(plan, static_cast<double>(imageWidth) / imageHeight);
  ASSERT_EQ(cells.size(), 6U);
  EXPECT_EQ(cells[0].state, CellState::Good);
  EXPECT_EQ(cells[1].state, CellState::Missing);
  EXPECT_EQ(cells[2].state, CellState::Damaged);
  EXPECT_EQ(cells[2].text, "Truncated or damaged image (Read error: hit end of file)");
  EXPECT_EQ(cells[3].state, CellState::Missing);
  EXPECT_EQ(cells[4].state, CellState::Good);
  EXPECT_EQ(cells[5].state, CellState::Failed);
  EXPECT_EQ(cells[5].text, "Error line: boom");
  const Box failed = layout.imageOf(5);
  EXPECT_EQ(image.at(failed.x + 4, failed.y + failed.height / 2), (Colour{62, 24, 26}));
}

TEST_F(SheetTest, MostImagesDecideOnTheShape) {
  SheetPlan plan = planOf(0);
  plan.columns = 3;
  plan.cellWidth = 200;
  plan.cells = {{"1", plainImage("a.png", 0.4F, 100, 400), CellState::Good, ""},
                {"2", plainImage("b.png", 0.4F, 400, 200), CellState::Good, ""},
                {"3", plainImage("c.png", 0.4F, 200, 100), CellState::Good, ""}};
  const ReadImage image = drawn(plan, 2.0);
  EXPECT_EQ(layout.imageHeight, 100);
  EXPECT_EQ(middleOf(image, 1), (Colour{102, 102, 102}));
  // The tall one stands in the middle of its cell.
  const Box tall = layout.imageOf(0);
  EXPECT_EQ(middleOf(image, 0), (Colour{102, 102, 102}));
  EXPECT_EQ(image.at(tall.x + 20, tall.y + 50), (Colour{12, 13, 15}));
}

TEST_F(SheetTest, TextsFromOutsideDoNoHarm) {
  SheetPlan plan = planOf(4);
  plan.title = std::string(5000, 'W') + "\x1b[2J\n\xff Größe 日本";
  plan.subtitle = std::string(3000, 'i');
  plan.cells[0].label = std::string(2000, '8');
  plan.cells[1] = {"2", "", CellState::Failed, std::string(3000, 'm')};
  plan.cells[2] = {"3", "", CellState::Failed, std::string(300, ' ') + "a b c\n\n\x01"};
  plan.cells[3] = {"", "", CellState::Damaged, ""};
  const ReadImage image = drawn(plan, 16.0 / 9.0);
  // Nothing is drawn into the margin or into the neighbour.
  for (int y = 0; y < image.height; ++y) {
    EXPECT_EQ(image.at(image.width - 3, y), (Colour{24, 26, 29}));
  }
  const Box first = layout.labelOf(0);
  EXPECT_EQ(image.at(first.x + first.width + layout.gap / 2, first.y + first.height / 2),
            (Colour{24, 26, 29}));
}

TEST_F(SheetTest, IsWrittenInTheFormatOfItsName) {
  SheetPlan plan = planOf(2);
  plan.cells[0] = {"1", plainImage("a.png", 0.4F), CellState::Good, ""};
  for (const char* name : {"s.png", "s.jpg", "s.JPEG", "s.tif", "s.exr"}) {
    const std::string file = directory.file(name);
    ASSERT_TRUE(draw(plan, file)) << name << ": " << last.text;
    const auto input = OIIO::ImageInput::open(file);
    ASSERT_NE(input, nullptr) << name;
    EXPECT_EQ(input->spec().width, last.width) << name;
    const bool light = file.ends_with("exr");
    EXPECT_EQ(input->spec().format, light ? TypeDesc::HALF : TypeDesc::UINT8) << name;
    std::vector<float> pixels(input->spec().image_pixels() * 3);
    ASSERT_TRUE(input->read_image(0, 0, 0, 3, TypeDesc::FLOAT, pixels.data()));
    EXPECT_NEAR(pixels[0], light ? 0.0091F : 24.0F / 255.0F, 0.004F) << name;
  }
}

TEST_F(SheetTest, ReplacesAFileAndLeavesNothingElse) {
  const std::string file = directory.write("out/sheet.png", "old");
  ASSERT_TRUE(draw(planOf(2), file));
  EXPECT_GT(readFile(file).size(), 100U);
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(directory.file("out"))) {
    EXPECT_EQ(entry.path().filename(), "sheet.png");
    ++count;
  }
  EXPECT_EQ(count, 1U);
  struct stat status {};
  ASSERT_EQ(stat(file.c_str(), &status), 0);
  const mode_t mask = umask(0);
  umask(mask);
  EXPECT_EQ(status.st_mode & 0777U, 0666U & ~mask);
}

TEST_F(SheetTest, ThatCannotBeWrittenIsRefused) {
  EXPECT_FALSE(draw(planOf(1), directory.file("sheet.txt")));
  EXPECT_EQ(last.text, "cannot write \"" + directory.file("sheet.txt") +
                           "\": its name must end with .png, .jpg, .exr or .tif");
  EXPECT_TRUE(cells.empty());
  EXPECT_FALSE(draw(planOf(1), directory.file("none/sheet.png")));
  EXPECT_EQ(last.text,
            "cannot write \"" + directory.file("none/sheet.png") + "\": No such file or directory");
  directory.makeDirectory("folder.png");
  EXPECT_FALSE(draw(planOf(1), directory.file("folder.png")));
  EXPECT_EQ(last.text, "cannot write \"" + directory.file("folder.png") + "\": Is a directory");
  EXPECT_TRUE(std::filesystem::is_empty(directory.file("folder.png")));
}

TEST_F(SheetTest, TooMuchIsRefused) {
  EXPECT_FALSE(draw(planOf(0), directory.file("sheet.png")));
  EXPECT_EQ(last.text, "there is nothing to draw");
  EXPECT_FALSE(draw(planOf(sheetCellLimit + 1), directory.file("sheet.png")));
  EXPECT_EQ(last.text, "a sheet holds at most 10000 cells");
  SheetPlan plan = planOf(1000);
  plan.cellWidth = cellWidthMaximum;
  EXPECT_FALSE(draw(plan, directory.file("sheet.png")));
  EXPECT_TRUE(last.text.ends_with(" pixels, which is too much")) << last.text;
}

TEST_F(SheetTest, IsGivenUpWhenNobodyListens) {
  image::Lettering letters(fonts);
  std::size_t reports = 0;
  EXPECT_FALSE(image::drawSheet(planOf(5), directory.file("sheet.png"), letters,
                                [&](const SheetReport&) { return ++reports < 3; }));
  EXPECT_EQ(reports, 3U);
  EXPECT_FALSE(std::filesystem::exists(directory.file("sheet.png")));
}

TEST(Lettering, MeasuresWhatItDraws) {
  image::Lettering letters(image::findFonts());
  ASSERT_TRUE(letters.present());
  for (const char* text : {"frame 12", "Größe", "☀—…"}) {
    int right = 0;
    letters.draw(text, 20, false, [&](int column, int, float part) {
      EXPECT_GT(part, 0.0F);
      right = std::max(right, column + 1);
    });
    EXPECT_GT(right, 10);
    EXPECT_NEAR(right, letters.width(text, 20, false), 3) << text;
  }
  EXPECT_EQ(letters.width("", 20, false), 0);
}

TEST(Lettering, KnowsCharactersBeyondAscii) {
  image::Lettering letters(image::findFonts());
  std::set<std::string> shapes;
  for (const char* text : {"é", "ü", "Ж", "—", "\xef\xbf\xbd"}) {
    std::string shape;
    letters.draw(text, 40, false, [&](int column, int line, float) {
      shape += std::to_string(column) + ',' + std::to_string(line) + ' ';
    });
    shapes.insert(shape);
  }
  EXPECT_EQ(shapes.size(), 5U);
}

} // namespace
} // namespace trovik
