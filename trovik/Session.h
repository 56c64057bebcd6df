#pragma once

#include "host/application/Module.h"
#include "trovik/Console.h"
#include "trovik/JobSetup.h"
#include "trovik/Locations.h"
#include "trovik/Options.h"

#include <vector>

namespace trovik {

/// What every verb works with: settings read, modules loaded, and the outputs.
/// One at a time; the modules are unloaded with it, so no job may outlive it.
class Session {
public:
  /// Throws a UsageError for files and directories that the user named and
  /// that are not there.
  Session(const Options& options, Console& console);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  const Options& options() const { return options_; }
  Console& console() const { return console_; }
  const Locations& locations() const { return locations_; }
  const ModuleLoader& modules() const { return modules_; }
  const std::vector<Path>& modulePath() const { return modulePath_; }

  DetectFunction detection() const;

private:
  void loadSettings() const;
  void loadModules();
  int loadQuietly();

  const Options& options_;
  Console& console_;
  Locations locations_;
  ModuleLoader modules_;
  std::vector<Path> modulePath_;
};

} // namespace trovik
