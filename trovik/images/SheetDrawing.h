#pragma once

#include "host/foundation/Path.h"
#include "trovik/images/ImageProtocol.h"
#include "trovik/machine/Machine.h"

#include <functional>
#include <string>

namespace trovik {

/// What came of drawing a contact sheet.
struct DrawnSheet {
  SheetPlan plan; ///< its cells as they turned out to be
  int width = 0;  ///< pixels
  int height = 0;
};

/// Has trovik-image draw the plan into the file and waits for it. A file that
/// the helper dies of, or does not come to an end with, is marked as damaged
/// and the sheet drawn anew. `progress` hears the number of cells that are
/// done, `warn` what is odd about the sheet. The patience is with one file.
/// Throws a UsageError when no sheet can be drawn.
DrawnSheet drawSheet(Machine& machine, const Path& helper, SheetPlan plan, const Path& file,
                     const std::function<void(std::size_t done)>& progress,
                     const std::function<void(const std::string& warning)>& warn,
                     Duration patience = std::chrono::seconds(120));

} // namespace trovik
