#pragma once

#include "host/foundation/String.h"
#include "host/foundation/UID.h"

#include <functional>
#include <map>
#include <string>

namespace trovik {

/// Lets a type's module react to a changed parameter; see
/// ModuleLoader::AutoDetect.
using DetectFunction =
    std::function<void(const UID& type, const String& changed, std::map<String, String>& values)>;

/// What a job says of the search for its scene's sequence. The module asks the
/// settings of the installation and the type's file, never the job; so what a
/// job says takes the place of the settings while its module detects.
struct SequenceSettings {
  static constexpr const char* lookKey = "CheckForMultipleFiles";
  static constexpr const char* digitsKey = "SceneNumberLength";

  String look;   ///< whether a sequence is looked for; empty: as the installation and the type say
  String digits; ///< the least digits of a scene's number; empty: the same

  /// Lets the module detect. Raises what it raises; the settings are then as
  /// before, too. Not for two threads at once.
  void detect(const DetectFunction& module, const UID& type, const String& changed,
              std::map<String, String>& values) const;

  /// Why no sequence is looked for; empty where one is.
  std::string whyNotLooked(const UID& type) const;
  /// "the type asks for more", "SceneNumberLength asks for 4".
  std::string whoAsksForDigits(const UID& type) const;
};

} // namespace trovik
