#pragma once

#include "host/application/Module.h"
#include "trovik/commandline/CommandForm.h"
#include "trovik/jobs/JobSetup.h"
#include "trovik/machine/Locations.h"
#include "trovik/queue/Queue.h"
#include "trovik/text/Console.h"

#include <memory>
#include <string>
#include <vector>

namespace trovik {

/// What every verb works with: settings read, modules loaded where the verb
/// needs them, and the outputs. One at a time; the modules are unloaded with
/// it, so no job may outlive it.
class Session {
public:
  /// Reads the settings. Throws a UsageError for files that the user named and
  /// that are not there.
  Session(const CommonOptions& options, Console& console);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  const CommonOptions& options() const { return options_; }
  Console& console() const { return console_; }
  const Locations& locations() const { return locations_; }
  const ModuleLoader& modules() const { return modules_; }
  const std::vector<Path>& modulePath() const { return modulePath_; }

  /// Loads the modules, so that the job types are known; the second call does
  /// nothing. Verbs that only read the queue go without: a queue can be
  /// read where a type is missing. Throws a UsageError for directories that
  /// the user named and that are not there, and where no module is found.
  void loadModules();

  /// The same for the verb that tries type files one by one: only the
  /// libraries are loaded, and no type of a file is known.
  ModuleLoader& loadLibraries();

  /// The directory of the queue: as the user named it, else the usual one.
  Path state() const;

  DetectFunction detection() const;

private:
  void loadSettings() const;
  void findModulePath();
  void loadUsualLibraries();
  [[noreturn]] void refuseNoModule() const;

  const CommonOptions& options_;
  Console& console_;
  Locations locations_;
  ModuleLoader modules_;
  std::vector<Path> modulePath_;
  bool loaded_ = false;
};

/// The queue in the directory; null where there is none yet: reading it
/// makes nothing.
std::unique_ptr<Queue> existingQueue(const Path& directory);

/// A job as users name it: its number, or 0 for "last". Throws a UsageError
/// for any other text.
JobId jobNumber(const std::string& text);

/// The job of that name, in a queue that may not be there yet. Throws a
/// UsageError for one that is not there.
JobRecord findJob(Queue* queue, const std::string& text);

/// Refuses --verify where no --missing checks files.
void refuseVerifyAlone(bool verify, bool missing);

} // namespace trovik
