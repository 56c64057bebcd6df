#pragma once

#include "host/foundation/Path.h"

#include <string>

namespace trovik {

/// The secret by which the page is opened: 256 bits of the system's random
/// source as hexadecimal digits. It is kept in the folder, for this user alone,
/// so that a page that is open goes on after the server was started anew.
/// Whatever else lies there under that name is replaced. Throws a UsageError
/// where it cannot be kept.
std::string pageToken(const Path& directory);

} // namespace trovik
