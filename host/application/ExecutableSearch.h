#pragma once

#include "host/foundation/Path.h"

/// The path made absolute: a relative one counts from the directory, or from
/// this process's current one where that is empty. "./" at its front vanishes.
Path MakeAbsolute(const Path& path, const Path& directory = Path());

/// Whether this is a file (or a link to one) that this user may execute.
bool IsExecutableFile(const Path& file);

/// The program of a bare name that the system finds first along PATH; empty
/// when there is none.
Path FindAlongPath(const String& name);
