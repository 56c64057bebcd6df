#include "trovik/imagetool/SheetLayout.h"

#include <algorithm>
#include <cmath>

namespace trovik::image {
namespace {

constexpr double sheetAspect = 16.0 / 9.0;
constexpr int sheetWidth = 1920; ///< of a sheet whose cells may be chosen freely
constexpr int leastWidth = 96;   ///< of a cell that is chosen
constexpr int mostWidth = 480;

int rowsOf(std::size_t cells, int columns) {
  const auto wide = static_cast<std::size_t>(columns);
  return static_cast<int>((cells + wide - 1) / wide);
}

int columnsFor(std::size_t cells, double cellAspect) {
  int best = 1;
  double bestScore = 0.0;
  for (int columns = 1; static_cast<std::size_t>(columns) <= cells; ++columns) {
    const int rows = rowsOf(cells, columns);
    const double aspect = columns * cellAspect / rows;
    const double places = static_cast<double>(columns) * rows;
    const double empty = (places - static_cast<double>(cells)) / places;
    const double score = std::abs(std::log(aspect / sheetAspect)) + 2.0 * empty;
    if (columns == 1 || score < bestScore) {
      best = columns;
      bestScore = score;
    }
  }
  return best;
}

} // namespace

Box SheetLayout::imageOf(std::size_t cell) const {
  const int column = static_cast<int>(cell % static_cast<std::size_t>(columns));
  const int row = static_cast<int>(cell / static_cast<std::size_t>(columns));
  return {margin + column * (cellWidth + gap),
          margin + headerHeight + row * (imageHeight + labelHeight + gap), cellWidth, imageHeight};
}

Box SheetLayout::labelOf(std::size_t cell) const {
  const Box image = imageOf(cell);
  return {image.x, image.y + image.height, image.width, labelHeight};
}

SheetLayout layoutOf(const SheetPlan& plan, double aspect) {
  SheetLayout layout;
  const std::size_t cells = std::max<std::size_t>(plan.cells.size(), 1);
  const double shape = std::clamp(aspect > 0.0 ? aspect : sheetAspect, 0.25, 4.0);
  // The label takes some height: about a tenth of the cell's width.
  const double cellShape = 1.0 / (1.0 / shape + 0.1);
  layout.columns =
      plan.columns > 0
          ? static_cast<int>(std::min<std::size_t>(static_cast<std::size_t>(plan.columns), cells))
          : columnsFor(cells, cellShape);
  layout.rows = rowsOf(cells, layout.columns);
  layout.cellWidth = plan.cellWidth > 0 ? std::clamp(plan.cellWidth, cellWidthMinimum, cellWidthMaximum)
                                        : std::clamp(sheetWidth / layout.columns, leastWidth, mostWidth);
  layout.imageHeight = std::max(8, static_cast<int>(std::lround(layout.cellWidth / shape)));
  layout.labelHeight = std::clamp(layout.cellWidth / 10, 12, 28);
  layout.gap = std::clamp(layout.cellWidth / 24, 3, 14);
  layout.margin = std::max(16, layout.gap * 2);
  layout.width = 2 * layout.margin + layout.columns * (layout.cellWidth + layout.gap) - layout.gap;
  layout.height =
      2 * layout.margin + layout.rows * (layout.imageHeight + layout.labelHeight + layout.gap) - layout.gap;
  return layout;
}

void addHeader(SheetLayout& layout, int height) {
  layout.headerHeight = height;
  layout.height += height;
}

} // namespace trovik::image
