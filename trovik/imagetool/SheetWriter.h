#pragma once

#include "trovik/imagetool/SheetPaint.h"

#include <string>

namespace trovik::image {

/// Why no sheet can be written under that name; empty when its extension is
/// one of .png, .jpg, .jpeg, .exr, .tif and .tiff.
std::string whyNotWritable(const std::string& file);

/// Writes the sheet beside the file and renames it when it is whole; in the
/// colours of a screen, but for .exr in light. Returns what went wrong.
std::string writeSheet(const SheetPaint& sheet, const std::string& file);

} // namespace trovik::image
