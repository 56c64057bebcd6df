#include "host/foundation/Exception.h"
#include "host/foundation/Log.h"
#include "host/foundation/WholeNumber.h"
#include "trovik/cluster/TaskRun.h"
#include "trovik/images/ImageHelper.h"
#include "trovik/machine/Interrupts.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/EngineRun.h"
#include "trovik/verbs/Verbs.h"

#include <cstdlib>

namespace trovik {
namespace {

std::size_t taskIndex(const TaskOptions& options) {
  const char* variable = std::getenv("SLURM_ARRAY_TASK_ID");
  if (!options.index && variable == nullptr) {
    throw UsageError{"the number of the task is not known",
                     "it is taken from SLURM_ARRAY_TASK_ID, or --index"};
  }
  const std::string text = options.index ? *options.index : std::string(variable);
  const auto index = ReadWholeNumber<std::size_t>(text);
  if (!index) {
    throw UsageError{(options.index ? "--index: " : "SLURM_ARRAY_TASK_ID: ") + inQuotes(text) +
                         " is no number of a task",
                     "write a whole number from 0"};
  }
  return *index;
}

} // namespace

int runTask(Session& session, const TaskOptions& options) {
  const std::size_t index = taskIndex(options);
  if (options.verbosity == 0) {
    SetLogLevel(LogLevel::Info); // nobody watches, and the cluster keeps what is printed
  }
  TaskGuard guard;
  // The cluster knows by itself what it asked; the code says whether all is good.
  SignalInterrupts interrupts(SignalInterrupts::Ending::ByCode);
  // What this node lacks is the reason of each of the task's works, so that
  // whoever submitted them need not search the logs of nodes for it.
  std::string problem;
  try {
    session.loadModules();
    imageHelper(session);
  } catch (const UsageError& error) {
    problem = error.message;
  } catch (...) { // a module may throw anything
    problem = TakeCaughtText();
  }
  LocalMachine machine;
  ImageHelper images(session.locations().imageHelper());
  TaskRun run(absolutePath(*options.folder), index, taskSelf(), machine, images, interrupts, &guard);
  if (!problem.empty()) {
    LogError(problem);
    run.refuse(problem);
  }
  return run.run() ? exitGood : exitFailed;
}

} // namespace trovik
