#pragma once

#include "host/application/FrameRange.h"
#include "host/foundation/Path.h"
#include "trovik/records/RunSet.h"

#include <functional>
#include <optional>
#include <string>

namespace trovik {

/// The scene file of one frame, from a printf-style pattern.
Path sequenceScene(const String& format, int frame);

/// The number in a scene's name that detection takes for its frame; nothing
/// without one, or beyond 32 bits.
std::optional<int> frameOfScene(const Path& scene);

/// What the module's detection makes of a scene: the pattern, empty where it
/// takes the scene for a single file, and the frames.
struct DetectedSequence {
  String format;
  RunSet frames;
};

/// A scene as detection saw it, for the account below.
struct SceneQuestion {
  Path scene; ///< absolute
  DetectedSequence taken;
  /// Why nobody looked for a sequence at all; empty where somebody did.
  std::string notLooked;
  /// Who asks for how many digits: "the type asks for more".
  std::string digitsAsked;
  /// What detection would find if it took numbers of one digit, too.
  std::function<DetectedSequence()> withAnyDigits;
};

/// Why a scene was taken for a single file, or its sequence for a part of what
/// lies beside it.
struct SequenceAccount {
  std::string reason;       ///< empty where all that lies there was taken
  std::string hint;         ///< what takes more; may be empty
  std::optional<int> frame; ///< the scene's own number
  /// Files that are named like the scene but for its number were left out,
  /// though a sequence was looked for.
  bool leftOut = false;
};

/// Asks the disk. What it says is about files that are there now.
SequenceAccount accountOf(const SceneQuestion& question);

} // namespace trovik
