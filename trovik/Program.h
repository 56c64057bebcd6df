#pragma once

namespace trovik {

/// The whole program; returns its exit code.
int runProgram(int count, char** arguments);

} // namespace trovik
