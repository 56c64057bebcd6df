#pragma once

#include "trovik/queue/Queue.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace trovik {

/// What somebody wants to be done with a job.
struct SteeringWish {
  enum class Action { Retry, Cancel, Hold, Release, Set, Delete };
  Action action = Action::Retry;
  JobId job = 0;
  bool dryRun = false;                                        ///< change nothing; tell what would be done
  std::optional<std::string> frames;                          ///< of Retry
  bool withFollowers = false;                                 ///< of Cancel
  std::vector<std::pair<std::string, std::string>> changes{}; ///< of Set: names and values
};

/// What was done, or would be.
struct SteeringDone {
  std::string text;    ///< as the verb tells it
  std::string command; ///< the command line that does the same, as text for a shell
};

/// Does with jobs what the verbs do, by the same functions; the verb that starts
/// the page knows them.
class Steering {
public:
  virtual ~Steering() = default;
  /// Throws a UsageError for what cannot be done, and QueueError.
  virtual SteeringDone steer(const SteeringWish& wish) = 0;
};

/// "retry", as in the path of a request and on a command line; nothing for a
/// text that is no action.
std::optional<SteeringWish::Action> steeringActionOf(const std::string& name);
const char* nameOf(SteeringWish::Action action);

/// The wish that the body of a request tells. Throws a UsageError.
SteeringWish steeringWish(SteeringWish::Action action, JobId job, const std::string& body);

} // namespace trovik
