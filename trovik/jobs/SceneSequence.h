#pragma once

#include "host/application/FrameRange.h"
#include "host/foundation/Path.h"
#include "host/foundation/String.h"
#include "host/foundation/UID.h"
#include "trovik/records/RunSet.h"

#include <functional>
#include <map>
#include <optional>
#include <string>

namespace trovik {

/// The scene file of one frame, from a printf-style pattern.
Path sequenceScene(const String& format, int frame);

/// The number in a scene's name that detection takes for its frame; nothing
/// without one, or beyond 32 bits.
std::optional<int> frameOfScene(const Path& scene);

/// The frames of a range; none of a text that is none, such as one with
/// references.
RunSet rangeFrames(const String& range);

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
  std::string notSearched;
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

/// Lets a type's module react to a changed parameter; see
/// ModuleLoader::AutoDetect.
using DetectFunction =
    std::function<void(const UID& type, const String& changed, std::map<String, String>& values)>;

/// What a job says of the search for its scene's sequence. The module asks the
/// settings of the installation and the type's file, never the job; so what a
/// job says takes the place of the settings while its module detects.
struct SequenceSettings {
  static constexpr const char* searchKey = "CheckForMultipleFiles";
  static constexpr const char* digitsKey = "SceneNumberLength";

  String search; ///< whether a sequence is looked for; empty: as the installation and the type say
  String digits; ///< the least digits of a scene's number; empty: the same

  /// Lets the module detect. Raises what it raises; the settings are then as
  /// before, too. Not for two threads at once.
  void detect(const DetectFunction& module, const UID& type, const String& changed,
              std::map<String, String>& values) const;

  /// Why no sequence is looked for; empty where one is.
  std::string whyNotSearched(const UID& type) const;
  /// "the type asks for more", "SceneNumberLength asks for 4".
  std::string whoAsksForDigits(const UID& type) const;
};

} // namespace trovik
