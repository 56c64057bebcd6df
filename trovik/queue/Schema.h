#pragma once

#include <span>

namespace trovik {

class Database;

/// "TrvQ", by which a file of ours is told from other databases.
inline constexpr int applicationId = 0x54727651;

/// The steps from an empty file to today's schema: the first makes version 1,
/// and each further one makes version n + 1 of version n. A step that was ever
/// released is never changed again.
std::span<const char* const> schemaSteps();

/// Brings the database up to the version that the steps lead to, in one
/// transaction. Throws QueueError for a database of a newer version or of
/// another program, which stays as it was. False where nothing was to be done.
bool bringUpToDate(Database& database, std::span<const char* const> steps);

} // namespace trovik
