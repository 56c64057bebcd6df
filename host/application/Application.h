#pragma once

#include "host/foundation/IniFile.h"

/// The running host: its settings (of the installation: path maps, detection)
/// and the engine's options (by job type).
class Application {
public:
  /// The program's single application. Never null.
  static Application* const the_Application;

  /// Reads both files and takes over the path maps of the settings' section
  /// "PathMaps": each value is "source;local". A missing file is empty; one
  /// that cannot be read raises Exception*.
  void LoadSettings(const Path& settings, const Path& options);

  IniFile& Settings() { return m_Settings; }
  IniFile& Options() { return m_Options; }

  /// Where translated scenes are kept: $XDG_CACHE_HOME/trovik/scenes.
  static Path SceneCache();

private:
  IniFile m_Settings;
  IniFile m_Options;
};
