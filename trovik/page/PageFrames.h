#pragma once

#include "trovik/page/JobCells.h"
#include "trovik/queue/JobView.h"
#include "trovik/text/Json.h"

#include <optional>

namespace trovik {

/// What is told of one frame, or of the work of a job without frames: how it
/// stands and why, its attempts, its files. Throws a PageMissing for a frame
/// that the job has not, and QueueError.
Json frameJson(Queue& queue, const JobView& view, std::optional<int> frame, const JobCells& cells);

/// A piece of an attempt's log, at most 64 KiB: from a byte on, from so many before
/// the end where that is negative, the last where nothing is said. It begins
/// and ends between characters. Throws a PageMissing where there is no such
/// attempt, and QueueError.
Json logPieceJson(Queue& queue, AttemptId attempt, std::optional<std::int64_t> from);

/// The bytes of a piece that begin and end within a character: those before its
/// first and those behind its last whole one. None of a piece that is no
/// UTF-8 anyway.
std::pair<std::size_t, std::size_t> cutCharacters(std::string_view piece);

} // namespace trovik
