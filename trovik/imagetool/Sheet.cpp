#include "trovik/imagetool/Sheet.h"

#include "trovik/imagetool/Decoder.h"
#include "trovik/imagetool/SheetPaint.h"
#include "trovik/text/Text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <sys/stat.h>

namespace trovik::image {
namespace {

constexpr std::uint64_t sheetPixelLimit = 400'000'000;

constexpr Ink ground{24, 26, 29};
constexpr Ink cellGround{12, 13, 15};
constexpr Ink bright{236, 238, 241};
constexpr Ink quiet{150, 155, 163};

/// How a state is marked: by its ground, by its pattern and by its word, so
/// that it is seen in grey, too, and without words.
struct Mark {
  CellState state;
  Ink ground;
  Ink pattern;
  Ink word;
};
constexpr std::array<Mark, 7> marks = {{
    {CellState::Good, cellGround, cellGround, {116, 200, 122}},
    {CellState::Missing, {48, 43, 30}, {64, 57, 38}, {235, 195, 92}},
    {CellState::Failed, {62, 24, 26}, {122, 42, 44}, {255, 118, 112}},
    {CellState::Damaged, {58, 35, 18}, {88, 54, 26}, {255, 160, 84}},
    {CellState::Waiting, {31, 33, 37}, {31, 33, 37}, {150, 155, 163}},
    {CellState::Running, {24, 38, 56}, {24, 38, 56}, {112, 174, 240}},
    {CellState::Canceled, {36, 32, 40}, {52, 46, 58}, {176, 158, 196}},
}};

const Mark& markOf(CellState state) {
  return *std::find_if(marks.begin(), marks.end(), [state](const Mark& mark) { return mark.state == state; });
}

/// A text from outside, ready to be drawn.
std::string shown(const std::string& text) {
  return printable(text, OddBytes::Show);
}

/// A note without what the cell's word says already.
std::string shortened(const std::string& note) {
  const std::string before = "Truncated or damaged image (";
  return note.starts_with(before) && note.ends_with(')')
             ? note.substr(before.size(), note.size() - before.size() - 1)
             : note;
}

SheetReport opens(std::size_t cell) {
  SheetReport report;
  report.kind = SheetReport::Kind::Opens;
  report.cell = cell;
  return report;
}

/// The shape that most images have; 0 when there is none to be seen.
double commonAspect(const SheetPlan& plan, const SheetListener& listener) {
  std::map<long, std::size_t> shapes; // in thousandths
  for (std::size_t i = 0; i < plan.cells.size(); ++i) {
    const SheetCell& cell = plan.cells[i];
    if (cell.state == CellState::Good && !cell.file.empty() && listener(opens(i))) {
      const double aspect = aspectOf(describe(cell.file));
      if (aspect > 0.0) {
        ++shapes[std::lround(std::min(aspect, 1000.0) * 1000.0)];
      }
    }
  }
  const auto most = std::max_element(shapes.begin(), shapes.end(),
                                     [](const auto& a, const auto& b) { return a.second < b.second; });
  return most == shapes.end() ? 0.0 : static_cast<double>(most->first) / 1000.0;
}

class Drawing {
public:
  Drawing(SheetPlan& plan, const SheetLayout& layout, SheetPaint& paint)
      : plan_(plan), layout_(layout), paint_(paint) {}

  /// Draws one cell; its state and note become what it turned out to be.
  void cell(std::size_t index) {
    SheetCell& cell = plan_.cells[index];
    const Box box = layout_.imageOf(index);
    Pixels pixels;
    if (cell.state == CellState::Good) {
      pixels = lookAt(cell, box);
    }
    const Mark& mark = markOf(cell.state);
    paint_.fill(box, mark.ground);
    if (cell.state == CellState::Good) {
      paint_.paste(pixels, box.x + (box.width - pixels.width) / 2, box.y + (box.height - pixels.height) / 2);
      if (pixels.bytes.empty()) {
        words(box, "no picture", quiet, cell.note);
      }
    } else {
      pattern(box, mark);
      words(box, nameOf(cell.state), mark.word, shortened(cell.note));
    }
    label(layout_.labelOf(index), cell, mark);
  }

  /// Draws the header, or (without `draw`) only reckons its height.
  int header(bool draw) {
    const int size = std::clamp(layout_.width / 60, 15, 30);
    const int room = layout_.width - 2 * layout_.margin;
    if (!paint_.hasWords()) {
      return 0;
    }
    int baseline = layout_.margin + size;
    if (draw) {
      paint_.text(shown(plan_.title), layout_.margin, baseline, room, {size, true, bright});
    }
    // The rest stands in as many lines as it needs.
    const int small = std::max(12, size * 5 / 8);
    const int space = small;
    baseline += small * 2;
    int x = layout_.margin;
    const auto put = [&](const std::string& text, const Mark* chip) {
      const SheetPaint::Style style{small, false, chip == nullptr ? quiet : bright};
      const int square = chip == nullptr ? 0 : small;
      const int width = square + paint_.textWidth(text, style);
      if (x > layout_.margin && x + width > layout_.margin + room) {
        x = layout_.margin;
        baseline += small * 3 / 2;
      }
      if (draw) {
        if (chip != nullptr) {
          paint_.fill({x, baseline - small * 5 / 8, small * 5 / 8, small * 5 / 8}, chip->word);
        }
        paint_.text(text, x + square, baseline, room - square, style);
      }
      x += std::min(width, room) + space;
    };
    if (!plan_.subtitle.empty()) {
      put(shown(plan_.subtitle), nullptr);
    }
    put(counted(plan_.cells.size(), plan_.noun), nullptr);
    for (const Mark& mark : marks) {
      if (const std::size_t count = countOf(mark.state, draw); count > 0) {
        put(std::to_string(count) + ' ' + nameOf(mark.state), &mark);
      }
    }
    return baseline + small - layout_.margin + layout_.gap;
  }

private:
  /// The cells of a state, or (before they are checked) the most there may be.
  std::size_t countOf(CellState state, bool checked) const {
    const bool open = !checked && (state == CellState::Missing || state == CellState::Damaged);
    return static_cast<std::size_t>(
        std::count_if(plan_.cells.begin(), plan_.cells.end(), [&](const SheetCell& cell) {
          return cell.state == state || (open && cell.state == CellState::Good);
        }));
  }

  Pixels lookAt(SheetCell& cell, const Box& box) const {
    struct stat status {};
    if (cell.file.empty() || stat(cell.file.c_str(), &status) != 0) {
      cell.state = CellState::Missing;
      return {};
    }
    Picture picture(box.width, box.height);
    const Inspection inspection = decode(cell.file, &picture);
    if (!inspection.problem.empty()) {
      cell.state = CellState::Damaged;
      cell.note = inspection.problem;
      return {};
    }
    if (!inspection.image) {
      cell.note = cell.file.substr(cell.file.rfind('/') + 1);
      return {};
    }
    return picture.finish();
  }

  void pattern(const Box& box, const Mark& mark) {
    switch (mark.state) {
    case CellState::Failed:
      paint_.cross(box, mark.pattern);
      break;
    case CellState::Missing:
    case CellState::Damaged:
    case CellState::Canceled:
      paint_.hatch(box, mark.pattern);
      break;
    default:
      break;
    }
    if (mark.state == CellState::Damaged) {
      paint_.cross(box, mark.pattern);
    }
    paint_.outline(box, mark.pattern);
  }

  /// A word in the middle of a box, and a note below it on up to three lines.
  void words(const Box& box, const std::string& word, Ink ink, const std::string& note) {
    const int size = std::clamp(box.width / 12, 10, 30);
    const int small = std::clamp(box.width / 22, 9, 16);
    const int lineHeight = small * 4 / 3;
    const int room = box.width - box.width / 8;
    const SheetPaint::Style wordStyle{size, true, ink};
    const SheetPaint::Style noteStyle{small, false, ink};
    const int most = std::min(3, (box.height / 2 - size) / lineHeight);
    const std::vector<std::string> lines = noteLines(shown(note), room, std::max(most, 0), noteStyle);
    const int height = size + static_cast<int>(lines.size()) * lineHeight + (lines.empty() ? 0 : small / 2);
    int baseline = box.y + (box.height - height) / 2 + size * 4 / 5;
    centred(word, box, baseline, room, wordStyle);
    baseline += small / 2;
    for (const std::string& line : lines) {
      baseline += lineHeight;
      centred(line, box, baseline, room, noteStyle);
    }
  }

  void centred(const std::string& text, const Box& box, int baseline, int room,
               const SheetPaint::Style& style) {
    const std::string cut = paint_.fitted(text, room, style);
    paint_.text(cut, box.x + (box.width - paint_.textWidth(cut, style)) / 2, baseline, box.width, style);
  }

  std::vector<std::string> noteLines(const std::string& note, int room, int most,
                                     const SheetPaint::Style& style) const {
    std::vector<std::string> lines;
    std::size_t begin = 0;
    while (begin < note.size() && static_cast<int>(lines.size()) < most) {
      std::size_t end = note.size();
      // The last line takes the rest, and is cut.
      if (static_cast<int>(lines.size()) + 1 < most) {
        while (end != std::string::npos && end > begin &&
               paint_.textWidth(note.substr(begin, end - begin), style) > room) {
          end = note.rfind(' ', end - 1);
        }
        if (end == std::string::npos || end <= begin) {
          end = std::min(note.find(' ', begin), note.size());
        }
      }
      lines.push_back(note.substr(begin, end - begin));
      begin = end + 1;
    }
    return lines;
  }

  void label(const Box& box, const SheetCell& cell, const Mark& mark) {
    const int size = std::max(9, box.height * 5 / 8);
    const int baseline = box.y + box.height * 3 / 4;
    const bool good = cell.state == CellState::Good;
    paint_.text(shown(cell.label), box.x + 1, baseline, box.width - 2,
                {size, !good, good ? quiet : mark.word});
  }

  SheetPlan& plan_;
  const SheetLayout& layout_;
  SheetPaint& paint_;
};

SheetReport failure(const std::string& text) {
  SheetReport report;
  report.kind = SheetReport::Kind::Error;
  report.text = text;
  return report;
}

} // namespace

bool drawSheet(SheetPlan plan, const std::string& file, Lettering& letters, const SheetListener& listener) {
  const std::string refused = whyNotWritable(file);
  if (!refused.empty()) {
    listener(failure(refused));
    return false;
  }
  if (plan.cells.empty() || plan.cells.size() > sheetCellLimit) {
    listener(failure(plan.cells.empty()
                         ? "there is nothing to draw"
                         : "a sheet holds at most " + std::to_string(sheetCellLimit) + " cells"));
    return false;
  }
  SheetLayout layout = layoutOf(plan, commonAspect(plan, listener));
  SheetPaint measure(1, 1, ground, letters);
  addHeader(layout, Drawing(plan, layout, measure).header(false));
  if (static_cast<std::uint64_t>(layout.width) * static_cast<std::uint64_t>(layout.height) >
      sheetPixelLimit) {
    listener(failure("the sheet would have " + std::to_string(layout.width) + " x " +
                     std::to_string(layout.height) + " pixels, which is too much"));
    return false;
  }
  SheetPaint paint(layout.width, layout.height, ground, letters);
  SheetReport report;
  if (!paint.hasWords()) {
    report.kind = SheetReport::Kind::Warning;
    report.text = "there is no font DejaVu Sans on this machine, so the sheet has no words";
    listener(report);
  }
  Drawing drawing(plan, layout, paint);
  for (std::size_t i = 0; i < plan.cells.size(); ++i) {
    if (!listener(opens(i))) {
      return false;
    }
    drawing.cell(i);
    report.kind = SheetReport::Kind::Cell;
    report.cell = i;
    report.state = plan.cells[i].state;
    report.text = plan.cells[i].note;
    if (!listener(report)) {
      return false;
    }
  }
  drawing.header(true);
  const std::string problem = writeSheet(paint, file);
  if (!problem.empty()) {
    listener(failure(problem));
    return false;
  }
  report.kind = SheetReport::Kind::Done;
  report.width = layout.width;
  report.height = layout.height;
  listener(report);
  return true;
}

bool drawSheet(std::FILE* plan, std::FILE* reports, const std::string& file) {
  const SheetListener listener = [reports](const SheetReport& report) {
    const std::string line = reportLine(report);
    return std::fwrite(line.data(), 1, line.size(), reports) == line.size() && std::fflush(reports) == 0;
  };
  std::string text;
  std::array<char, 65536> buffer{};
  std::size_t got = 0;
  while ((got = std::fread(buffer.data(), 1, buffer.size(), plan)) > 0) {
    text.append(buffer.data(), got);
  }
  std::optional<SheetPlan> read = planFrom(text);
  if (!read) {
    listener(failure("standard input holds no plan of a sheet"));
    return false;
  }
  Lettering letters(findFonts());
  return drawSheet(std::move(*read), file, letters, listener);
}

} // namespace trovik::image
