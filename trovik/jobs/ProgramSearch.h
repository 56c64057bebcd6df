#pragma once

#include "host/application/Module.h"
#include "host/application/ProcessJob.h"

#include <string>
#include <vector>

namespace trovik {

/// The program that jobs of a type run.
struct FoundProgram {
  Path program;                      ///< empty when there is none
  std::string source;                ///< "option", "search", "default" or "command"
  std::string told;                  ///< the source for people
  std::vector<std::string> searched; ///< what was looked at in vain
};

/// Looks for the program of a type, which is registered, as a job of it does.
FoundProgram searchProgram(const ModuleLoader& modules, const UID& type, ProcessJob& job);

/// A program by its path, or by its name along PATH; empty when it is not
/// there or not executable.
Path programAt(const Path& name);

} // namespace trovik
