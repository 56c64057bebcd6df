#pragma once

#include "host/foundation/Path.h"

/// Whether a file can have this name. The system would take what stands before a
/// zero byte for the whole of it, and tell of another file.
inline bool CanBeAName(const Path& file) {
  return file.Text().find('\0') == String::npos;
}
