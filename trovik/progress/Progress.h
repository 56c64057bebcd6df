#pragma once

#include "trovik/records/RunEvents.h"
#include "trovik/text/Console.h"

#include <memory>
#include <string>

namespace trovik {

// The readers of a run's events. The console must outlive them.

/// One line an event, for pipes and files: started, image, finished, failed.
/// With several jobs in one run, every message begins with its job.
std::unique_ptr<RunEvents> plainProgress(Console& console, bool severalJobs = false);

/// Images and failures as lines, and below them one live line with the state
/// of the run. It is drawn anew at events only: nothing wakes an idle program.
std::unique_ptr<RunEvents> terminalProgress(Console& console);

/// One JSON object a line: "run.started", "work.started", "work.image",
/// "work.finished", "work.failed", "work.canceled", "run.interrupted" and, as
/// the last line, "run.summary".
std::unique_ptr<RunEvents> jsonProgress(Console& console);

/// The one that fits what the output goes to: JSON where it is wanted, a live
/// line on a terminal, plain lines elsewhere.
std::unique_ptr<RunEvents> progressFor(Console& console, bool json);

/// Tells who watches a job what no event of its run says: a line that begins
/// with the word, or as JSON an event of that kind.
void tellWatcher(Console& console, bool json, JobId job, const char* kind, const std::string& word,
                 const std::string& text);

} // namespace trovik
