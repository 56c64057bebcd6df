#pragma once

#include "host/foundation/Path.h"

#include <optional>
#include <string>

/// The bytes of a regular file of settings or of a type, or nothing with the
/// system's reason where it cannot be read. Never waits, also where the name is
/// that of a pipe. Raises Exception* of the code k_ErrorLimit for more than
/// IniFile::k_SizeLimit bytes.
std::optional<std::string> ReadFileText(const Path& file, int& reason);
