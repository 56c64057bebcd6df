#pragma once

#include "trovik/images/ImageProtocol.h"
#include "trovik/queue/JobView.h"

#include <optional>

namespace trovik {

/// What a contact sheet of the job shows, as the queue knows it: a cell for
/// each frame, with the good file of its newest attempt (the first one, where
/// there are several), or what became of it. A job without frames, or whose
/// files belong to no frame, has a cell for each file. Only the frames in
/// `only` where it is given. Throws a UsageError where there is nothing to
/// show, or too much.
SheetPlan sheetPlan(Queue& queue, const JobView& view, const std::optional<RunSet>& only);

} // namespace trovik
