#pragma once

#include "trovik/images/ImageProtocol.h"
#include "trovik/queue/JobFiles.h"

#include <optional>

namespace trovik {

/// What a contact sheet of the job shows, as the queue knows it: a cell for
/// each frame, with the good file of its newest attempt (the first one, where
/// there are several), or what became of it. A job without frames, or whose
/// files belong to no frame, has a cell for each file. Only the frames in
/// `only` where it is given. `files` are those of the job, all of them: one that
/// is not good any more is shown before a good one of its frame. Throws a UsageError where there is nothing
/// to show, or too much.
SheetPlan sheetPlan(Queue& queue, const JobView& view, const std::vector<JobFile>& files,
                    const std::optional<RunSet>& only);

} // namespace trovik
