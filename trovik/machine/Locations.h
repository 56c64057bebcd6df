#pragma once

#include "host/foundation/Path.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace trovik {

/// Looks up an environment variable; nothing where it is unset or empty.
using EnvironmentLookup = std::function<std::optional<std::string>(const char* name)>;
std::optional<std::string> environmentVariable(const char* name);

/// Whether there is anything of that name.
bool exists(const Path& path);

/// Where the program looks for things and keeps them.
class Locations {
public:
  /// `executable` is the program's own file; the installed modules are found
  /// from it.
  Locations(EnvironmentLookup environment, Path executable);

  /// $XDG_CONFIG_HOME/trovik/settings.ini and options.ini.
  Path settings() const;
  Path options() const;

  /// $TROVIK_STATE, else $XDG_STATE_HOME/trovik: the queue and its logs.
  Path state() const;

  /// $XDG_DATA_HOME/trovik/modules: the types that users write.
  Path ownModules() const;

  /// $XDG_DATA_HOME/trovik/cluster: what a cluster's nodes are given, where
  /// nobody names another folder.
  Path clusterFolder() const;

  /// The helper that decodes images: beside the program, or where
  /// $TROVIK_IMAGE_HELPER says.
  Path imageHelper() const;

  /// The files of the page that a browser shows: share/trovik/page of the
  /// installation, or where $TROVIK_PAGE says.
  Path pageFiles() const;

  /// $XDG_CACHE_HOME/trovik/pictures: small pictures of frames, made for the page.
  Path pictures() const;

  /// Where what comes with the program lies: the installed directories of
  /// modules, and that of a build tree. Only those that exist.
  std::vector<Path> installedModules() const;

  /// The directories where modules and types are looked for when nobody says
  /// otherwise: the user's own, then the installed ones. Only those that exist.
  std::vector<Path> defaultModulePath() const;

  /// A module path as users write it: directories between colons; an empty
  /// one stands for the default path. Directories that do not exist are put
  /// into `missing`.
  std::vector<Path> modulePath(const std::string& text, std::vector<Path>& missing) const;

private:
  Path home(const char* variable, const char* belowHome) const;

  EnvironmentLookup environment_;
  Path executable_;
};

/// The program's own file.
Path ownExecutable();

/// A path made absolute against the current directory; a leading "./" is
/// dropped. Links and ".." stay as they are.
Path absolutePath(const std::string& path);

} // namespace trovik
