#pragma once

#include "host/foundation/Path.h"

/// The path made absolute against this process's current directory.
Path MakeAbsolute(const Path& path);

/// Whether this is a file (or a link to one) that this user may execute.
bool IsExecutableFile(const Path& file);

/// The program of a bare name that the system finds first along PATH; empty
/// when there is none.
Path FindAlongPath(const String& name);
