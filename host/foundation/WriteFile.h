#pragma once

#include "host/foundation/Path.h"

#include <string_view>

/// What becomes of a file that is there already.
enum class Existing {
  Replace, ///< it is replaced, and the new one has its permissions
  Keep,    ///< nothing is written
};

/// Writes a file as a whole: a temporary beside it, synced, then renamed, so
/// that nobody ever sees half of it and a failure leaves what was there. False
/// where it is there already and is kept. Raises Exception* on failure, whose
/// text begins with `function`.
bool WriteFileWhole(const char* function, const Path& file, std::string_view bytes, Existing existing);
