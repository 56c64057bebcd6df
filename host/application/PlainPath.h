#pragma once

#include "host/application/NameLetters.h"
#include "host/foundation/Path.h"

/// The same file or folder under a name without certain letters, for programs
/// that refuse them: the path as far as its last component that holds one is
/// replaced by a symbolic link to there,
///
///     /home/ada/Entwürfe/orrery/scene.pov
///     /tmp/trovik-1000/5f2c0e9a7b3d4416/orrery/scene.pov
///
/// A path without such letters comes back as it is. Links lie in the folder of
/// temporary files, in one of this user's own, and are named by what they lead
/// to: making one twice, on any thread or machine, gives the same. A link to a
/// file keeps its extension.
///
/// Raises Exception* for a relative path with such a letter, and where no link
/// can be made.
Path PlainPath(const Path& path, const NameLetters& refused);
