#pragma once

#include "trovik/queue/Queue.h"
#include "trovik/text/Console.h"

#include <functional>
#include <string>
#include <vector>

namespace trovik {

/// The jobs that a new one waits for, as --after and --after-frames name them,
/// in that order. "last" is the newest job that `mayBe` takes. Throws a
/// UsageError for a text that is no such thing, a job that is not there and one
/// that is named twice. The queue may be null: there is none yet.
std::vector<Forerunner> namedForerunners(Queue* queue, const std::vector<std::string>& after,
                                         const std::vector<std::string>& afterFrames,
                                         const std::function<bool(const JobRecord& job)>& mayBe);

/// Throws a UsageError where a frame of the job would wait for frames that its
/// forerunner does not have.
void requireFrames(Queue& queue, const NewJob& job);

/// Tells who watches a job what it waits for, as often as that changes.
class BlockTeller {
public:
  /// All must outlive it.
  BlockTeller(Console& console, Queue& queue, JobId job, bool json);
  /// `own` is the engine of who asks: it works at that job alone.
  void poll(EngineId own = 0);

private:
  Console& console_;
  Queue& queue_;
  JobId job_;
  bool json_;
  std::string told_;
};

} // namespace trovik
