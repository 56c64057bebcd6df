#pragma once

#include "trovik/verbs/Session.h"

namespace trovik {

// One function a verb. Each prints to the session's console and returns the
// program's exit code; what the user got wrong is thrown as UsageError.

int checkTypes(Session& session);
int listTypes(Session& session);
int describeType(Session& session);
int detectScene(Session& session);
int findProgram(Session& session);
int makeType(Session& session);
int replayLog(Session& session);
int runJob(Session& session);
int submitJob(Session& session);
int runEngine(Session& session);
int listJobs(Session& session);
int showJob(Session& session);
int showLog(Session& session);
int listImages(Session& session);
int watchJob(Session& session);
int retryJobs(Session& session);
int cancelJobs(Session& session);
int deleteJobs(Session& session);
int showStats(Session& session);
int drawSheet(Session& session);
int runTask(Session& session);

} // namespace trovik
