#pragma once

#include "host/foundation/Path.h"

/// Makes a copy of a scene file in which every path that begins with a source
/// prefix of Path::Translations() begins with the local one, and returns the
/// copy's path: SceneCache()/HASH OF THE SCENE'S PATH/LEAF. A copy that is
/// there already and has the same content is used as it is.
///
/// The scene's own path comes back where there is nothing to translate: no
/// translations, no occurrence, a binary file (a NUL byte in the first 8 KiB),
/// one larger than 256 MiB, or one that cannot be read. A copy that cannot be
/// written raises Exception*: rendering with foreign paths would be worse.
Path TranslateSceneContents(const Path& scene);
