#include "host/foundation/Exception.h"
#include "host/foundation/Log.h"
#include "trovik/commandline/CommandLine.h"
#include "trovik/machine/Interrupts.h"
#include "trovik/queue/Queue.h"
#include "trovik/text/Console.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/Verbs.h"

#include <algorithm>
#include <memory>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace trovik {
namespace {

void sendLogTo(Console& console, int verbosity) {
  SetLogLevel(verbosity == 0 ? LogLevel::Warning : verbosity == 1 ? LogLevel::Info : LogLevel::Debug);
  SetLogSink([&console](LogLevel level, const String& text) {
    switch (level) {
    case LogLevel::Error:
      console.printError(messageText(console, Colour::Red, "trovik: error:", text));
      break;
    case LogLevel::Warning:
      console.printError(messageText(console, Colour::Yellow, "trovik: warning:", text));
      break;
    default:
      console.printError(
          messageText(console, Colour::Faint, level == LogLevel::Info ? "trovik:" : "trovik: debug:", text));
    }
  });
}

/// The whole program; returns its exit code.
int runProgram(int count, char** arguments) {
  surviveFailedWrites();
  int outputError = 0;
  const auto makeConsole = [&outputError](ColourChoice choice) {
    return std::make_unique<Console>(descriptorWriter(STDOUT_FILENO, &outputError),
                                     descriptorWriter(STDERR_FILENO), standardTraits(choice), standardWidth);
  };
  std::unique_ptr<Console> console = makeConsole(ColourChoice::Auto);
  if (count > 1 && std::string_view(arguments[1]) == "complete") {
    // Asked by the shells, with words that are no command line yet.
    return completeWords({arguments + 2, arguments + count}, *console);
  }
  int code = exitUsage;
  try {
    const CommandForm verbs = allVerbs();
    const ParsedLine line = parseCommandLine(verbs, {arguments + 1, arguments + count},
                                             std::min<std::size_t>(console->layoutWidth(), 100));
    console = makeConsole(line.common.colour);
    sendLogTo(*console, line.common.verbosity);
    if (line.text) {
      console->print(*line.text);
      code = exitGood;
    } else {
      code = line.verb->call(*console);
    }
  } catch (const UsageError& error) {
    printRefusal(*console, error);
  } catch (const QueueError& error) {
    printRefusal(*console, {error.message, error.hint});
  } catch (...) { // also what a module of ours threw
    printRefusal(*console, {TakeCaughtText(), {}});
  }
  SetLogSink({});
  if (outputError != 0) {
    printRefusal(
        *console,
        {"cannot write the output: " + std::error_code(outputError, std::generic_category()).message(), {}});
    code = code == exitGood ? exitFailed : code;
  }
  return code;
}

} // namespace
} // namespace trovik

int main(int count, char** arguments) {
  const int code = trovik::runProgram(count, arguments);
  trovik::endAsAsked();
  return code;
}
