#pragma once

#include "trovik/Session.h"

namespace trovik {

// One function a verb. Each prints to the session's console and returns the
// program's exit code; what the user got wrong is thrown as UsageError.

int listTypes(Session& session);
int describeType(Session& session);
int detectScene(Session& session);
int findProgram(Session& session);
int runJob(Session& session);

} // namespace trovik
