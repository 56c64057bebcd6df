#pragma once

#include "host/foundation/Path.h"

#include <string_view>

/// What becomes of a file that is there already.
enum class Existing {
  Replace, ///< it is replaced, and the new one has its permissions
  Keep,    ///< nothing is written
};

/// Writes a file as a whole: a temporary beside it ("FILE.new-…"), synced, then
/// renamed, so that nobody ever sees half of it and a failure leaves what was
/// there. Of several who write one with Existing::Keep, be it on several
/// machines of a network file system, one succeeds. False where it is there
/// already and is kept. Raises Exception* on failure, whose
/// text begins with `function`.
bool WriteFileWhole(const char* function, const Path& file, std::string_view bytes, Existing existing);
