#pragma once

#include "trovik/engine/LocalEngine.h"
#include "trovik/images/ImageInspector.h"
#include "trovik/machine/Machine.h"
#include "trovik/queue/Queue.h"
#include "trovik/verbs/Verbs.h"

namespace trovik {

// What run, submit and engine share: an engine with its outputs, and what they
// tell.

/// Where trovik-image is. Throws a UsageError when it is not there: no image
/// could be checked, and every frame would fail for it.
Path imageHelper(const Session& session);

/// Recovers what dead engines left, before a verb changes jobs: a work that
/// seems to run would be in its way for ever where no engine is at work. A type
/// that is not known here is no problem.
void settleLost(Session& session, Queue& queue);

/// The slots of an engine, as the user wants them. Throws a UsageError.
EnginePlan enginePlan(const std::optional<std::string>& slots);

/// Works one job off here and shows it until it has ended, also the works that
/// other engines do. Returns the exit code.
int workOff(Console& console, Queue& queue, ImageInspector& images, Machine& machine, JobId job,
            EnginePlan plan, bool json);

/// Works off the queue. Returns the exit code.
int workQueue(Session& session, Queue& queue, ImageInspector& images, Machine& machine,
              const EngineOptions& options);

/// Says that a job goes on that the same command began, what of it is kept and
/// how all is rendered anew.
void tellGoesOn(Console& console, const NewJob& job, const EnteredJob& entered, bool json);

/// Says that a job is in the queue, with the frames as they were then, and how
/// it gets worked. One of several has a title, and nothing is said of engines.
void tellSubmitted(Console& console, Queue& queue, const NewJob& job, const EnteredJob& entered, bool json,
                   const std::string& title = {});

/// Says that no frame of a job is missing; returns the exit code.
int tellNothingMissing(Console& console, const NewJob& job, bool json);

} // namespace trovik
