#pragma once

#include "trovik/images/ImageProtocol.h"

namespace trovik::image {

struct Box {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
};

/// Where everything stands on a contact sheet, in pixels.
struct SheetLayout {
  int columns = 1;
  int rows = 1;
  int cellWidth = 0;
  int imageHeight = 0; ///< of a cell's picture; its label stands below
  int labelHeight = 0;
  int gap = 0;          ///< between cells
  int margin = 0;       ///< around all
  int headerHeight = 0; ///< with the space below
  int width = 0;        ///< of the sheet
  int height = 0;

  Box imageOf(std::size_t cell) const;
  Box labelOf(std::size_t cell) const;
};

/// Lays a sheet out for pictures of that aspect (width by height). What the
/// plan leaves open is chosen: as many columns as make the sheet about 16:9
/// with a full last row, cells as wide as such a sheet carries. The header's
/// height is added by `addHeader`, since it depends on the width.
SheetLayout layoutOf(const SheetPlan& plan, double aspect);
void addHeader(SheetLayout& layout, int height);

} // namespace trovik::image
