#pragma once

#include "trovik/images/ImageProtocol.h"
#include "trovik/imagetool/Lettering.h"

#include <cstdio>
#include <functional>
#include <string>

namespace trovik::image {

/// Hears how the drawing goes; false: nobody listens any more, give up.
using SheetListener = std::function<bool(const SheetReport& report)>;

/// Draws a contact sheet: a title, and a cell for each entry of the plan. The
/// file of a cell that is to be good is checked now: it may have gone or be
/// damaged. Images are decoded one after the other, so that memory holds the
/// sheet and one of them. The file's extension says how the sheet is written
/// (.png, .jpg, .exr, .tif), and it appears under its name when it is whole.
/// Without fonts there are no words on it, which a warning says. The last
/// report tells the size or the error; whether it was written.
bool drawSheet(SheetPlan plan, const std::string& file, Lettering& letters, const SheetListener& listener);

/// The same, with the plan read from a stream to its end and a line written
/// for each report.
bool drawSheet(std::FILE* plan, std::FILE* reports, const std::string& file);

} // namespace trovik::image
