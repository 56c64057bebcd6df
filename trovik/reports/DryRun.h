#pragma once

#include "host/foundation/Process.h"
#include "trovik/records/Records.h"
#include "trovik/text/Console.h"

#include <string>

namespace trovik {

/// One work's program start as text for a shell: "(cd DIR && env ... PROGRAM
/// ARGUMENTS)". Pasted, it gives the program the same argument vector, start
/// directory and environment.
std::string shellText(const ProcessStart& start);

/// Prints how each of the job's works would be started, and starts nothing.
/// Throws a UsageError where a command line cannot be made.
void printDryRun(Console& console, const NewJob& job, bool json);

} // namespace trovik
