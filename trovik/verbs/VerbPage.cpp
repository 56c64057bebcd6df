#include "host/application/jobs/ExecutableSearch.h"
#include "host/foundation/Exception.h"
#include "host/foundation/Log.h"
#include "host/foundation/Process.h"
#include "host/foundation/Quoting.h"
#include "trovik/images/ImageHelper.h"
#include "trovik/machine/Interrupts.h"
#include "trovik/machine/Machine.h"
#include "trovik/page/PageHelper.h"
#include "trovik/page/PageServer.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/ClusterRun.h"
#include "trovik/verbs/EngineRun.h"
#include "trovik/verbs/Session.h"
#include "trovik/verbs/Steer.h"
#include "trovik/verbs/Verbs.h"

#include <csignal>
#include <sys/prctl.h>

namespace trovik {
namespace {

using Action = SteeringWish::Action;

/// Does what the page is asked for by the functions of the verbs, on a
/// connection of its own, so that the page sees it like what anybody else does.
class VerbSteering final : public Steering {
public:
  explicit VerbSteering(Session& session) : session_(session) {}

  SteeringDone steer(const SteeringWish& wish) override {
    const std::unique_ptr<Queue> queue = existingQueue(session_.state());
    const std::string number = std::to_string(wish.job);
    findJob(queue.get(), number);
    if (!wish.dryRun) {
      settleLost(session_, *queue);
    }
    const JobRecord job = findJob(queue.get(), number);
    const auto action = actionOf(wish);
    JobDone done = !wish.dryRun                    ? action(*queue, job)
                   : wish.action == Action::Delete ? deletionOf(*queue, job)
                                                   : tried(*queue, job, action);
    if (!wish.dryRun) {
      done.text += finish(*queue, wish, job);
    }
    return {done.text, commandOf(wish)};
  }

private:
  std::function<JobDone(Queue& queue, const JobRecord& job)> actionOf(const SteeringWish& wish) {
    switch (wish.action) {
    case Action::Retry:
      return [named = wish.frames ? std::optional(framesToRetry(*wish.frames)) : std::nullopt](
                 Queue& queue, const JobRecord& job) { return retryJob(queue, job, named); };
    case Action::Cancel:
      return [with = wish.withFollowers](Queue& queue, const JobRecord& job) {
        return cancelJob(queue, job, with);
      };
    case Action::Hold:
      return holdJob;
    case Action::Release:
      return releaseJob;
    case Action::Set:
      return [change = changeOf(session_, assignmentsOf(wish))](Queue& queue, const JobRecord& job) {
        return setJob(queue, job, change);
      };
    case Action::Delete:
      break;
    }
    return [this](Queue& queue, const JobRecord& job) { return deleteJob(session_, queue, job, false); };
  }

  /// What the verb does when all is done: the cluster hears of it.
  std::string finish(Queue& queue, const SteeringWish& wish, const JobRecord& job) {
    const bool opens = wish.action == Action::Retry || wish.action == Action::Release;
    const std::optional<JobRecord> now = queue.job(job.id);
    if (wish.action == Action::Cancel || wish.action == Action::Hold) {
      cancelOnCluster(session_, queue, false);
    }
    if (!opens || !now || !isOpen(now->state)) {
      return {};
    }
    if (now->runOn == RunOn::Cluster) {
      submitToCluster(session_, queue, job.id, false);
      return {};
    }
    return engineAdvice(queue);
  }

  static std::vector<std::string> assignmentsOf(const SteeringWish& wish) {
    std::vector<std::string> assignments;
    for (const auto& [name, value] : wish.changes) {
      assignments.emplace_back(name).append(1, '=').append(value);
    }
    return assignments;
  }

  std::string commandOf(const SteeringWish& wish) const {
    std::string command = std::string("trovik ") + nameOf(wish.action) + ' ' + std::to_string(wish.job);
    if (wish.frames) {
      // What begins with a minus sign would be another option.
      command += (wish.frames->starts_with('-') ? " --frames=" : " --frames ") + EnquoteWord(*wish.frames);
    }
    command += wish.withFollowers ? " --with-followers" : "";
    for (const std::string& assignment : assignmentsOf(wish)) {
      command += ' ' + EnquoteWord(assignment);
    }
    if (session_.options().state) {
      command += " --state " + EnquoteWord(session_.state().Text());
    }
    return command;
  }

  Session& session_;
};

/// Arguments of this program for the same queue and types: to be started beside it.
std::vector<String> commandFor(const Session& session, const char* verb) {
  std::vector<String> command = {ownExecutable().Text()};
  const CommonOptions& options = session.options();
  for (const auto& [name, value] :
       {std::pair("--state", options.state), std::pair("--module-path", options.modulePath),
        std::pair("--settings", options.settings), std::pair("--options", options.options)}) {
    if (value) {
      command.emplace_back(name);
      command.emplace_back(*value);
    }
  }
  command.emplace_back(verb);
  return command;
}

/// What does it may hang with the folder of a job, and is bounded; not here.
void collectBeside(const Session& session, Queue& queue) {
  if (queue.clusterJobs().empty()) {
    return;
  }
  std::string command;
  for (const String& argument : commandFor(session, "jobs")) {
    command += EnquoteWord(argument) + ' ';
  }
  try {
    const Process process(command + "--limit 1", Process::k_Detached, {});
  } catch (Exception* exception) {
    LogDebug("page: " + takeText(exception));
  }
}

constexpr const char* opener = "xdg-open";

/// Opens an address in the user's browser.
void openInBrowser(Console& console, const std::string& address) {
  if (FindAlongPath(opener).empty()) {
    printWarning(console,
                 {std::string("there is no program \"") + opener + "\" along PATH to open a browser with",
                  "open the address by hand"});
    return;
  }
  try {
    const Process process(opener + (' ' + EnquoteWord(address)), Process::k_Detached, {});
  } catch (Exception* exception) {
    printWarning(console, {"cannot open a browser: " + takeText(exception), "open the address by hand"});
  }
}

} // namespace

int servePage(Session& session, const PageOptions& options) {
  Console& console = session.console();
  std::optional<unsigned> port;
  if (options.port) {
    port = static_cast<unsigned>(positiveNumber("--port", *options.port, 65535));
  }
  std::unique_ptr<Queue> queue = collectedQueue(session);
  if (queue == nullptr) {
    queue = std::make_unique<Queue>(session.state());
  }
  PageSocket socket = listenForPages(options.listen, port);
  const bool onlyHere = socket.onlyHere;
  const unsigned served = socket.port;
  PagePlan plan;
  plan.site = session.locations().pageFiles();
  plan.pictures = session.locations().pictures();
  plan.imageHelper = session.locations().imageHelper();
  plan.helper = commandFor(session, "page-helper");
  plan.collect = [&session](Queue& own) { collectBeside(session, own); };
  plan.say = [&console](const std::string& text) { console.printError(text); };
  plan.program = TROVIK_VERSION;
  plan.readOnly = options.readOnly;
  LocalMachine machine;
  SignalInterrupts interrupts(SignalInterrupts::Ending::ByCode);
  PageServer server(*queue, std::move(socket), std::move(plan));
  if (!onlyHere) {
    printWarning(console,
                 {"other machines can reach this page, and its token goes over the network in clear text: "
                  "whoever has it sees every frame and steers every job",
                  "put a proxy with TLS before it, see docs/page.md"});
  }
  if (options.json) {
    Json document = jsonOfKind("page");
    document["address"] = server.address();
    document["port"] = served;
    document["readOnly"] = options.readOnly;
    console.print(jsonLine(document));
  } else {
    console.print(server.address() + '\n');
  }
  if (options.open) {
    openInBrowser(console, server.address());
  }
  server.serve(machine, interrupts);
  return exitGood;
}

int helpPage(Session& session, const CommonOptions& /*options*/) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const std::unique_ptr<Queue> queue = existingQueue(session.state());
  if (queue == nullptr) {
    throw UsageError{"there is no queue in " + inQuotes(session.state().Text()), ""};
  }
  VerbSteering steering(session);
  ImageHelper images(session.locations().imageHelper());
  PageHelper helper(*queue, steering, images);
  answerQuestions(helper);
  return exitGood;
}

} // namespace trovik
