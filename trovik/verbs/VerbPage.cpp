#include "host/application/jobs/ExecutableSearch.h"
#include "host/foundation/Exception.h"
#include "host/foundation/Process.h"
#include "host/foundation/Quoting.h"
#include "trovik/machine/Interrupts.h"
#include "trovik/machine/Machine.h"
#include "trovik/page/PageServer.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/ClusterRun.h"
#include "trovik/verbs/Session.h"
#include "trovik/verbs/Verbs.h"

namespace trovik {
namespace {

class VerbSteering final : public Steering {
public:
  SteeringDone steer(const SteeringWish& /*wish*/) override { throw UsageError{"not yet", ""}; }
};

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
  plan.helper = session.locations().imageHelper();
  plan.program = TROVIK_VERSION;
  plan.readOnly = options.readOnly;
  VerbSteering steering;
  LocalMachine machine;
  SignalInterrupts interrupts(SignalInterrupts::Ending::ByCode);
  PageServer server(*queue, std::move(socket), plan, steering);
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

} // namespace trovik
