#pragma once

#include "host/application/Module.h"
#include "host/application/jobs/ProcessJob.h"

#include <string>
#include <vector>

namespace trovik {

/// The program that jobs of a type run.
struct FoundProgram {
  Path program;            ///< empty when there is none
  std::string source;      ///< "option", "search", "default" or "command"
  std::string description; ///< the source for people
  /// What was tried in vain, each a sentence. With a program, what a search
  /// passed over before it; without one and empty, nothing says which it is.
  std::vector<std::string> searched;
  bool unreadable = false; ///< a folder of the search cannot be read
};

/// Looks for the program of a type, which is registered, as a job of it does.
FoundProgram searchProgram(const ModuleLoader& modules, const UID& type, ProcessJob& job);

/// What keeps this user from running a program, given by its path or by its
/// name along PATH; to be said behind it. Empty if nothing does.
std::string programProblem(const Path& name);

} // namespace trovik
