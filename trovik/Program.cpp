#include "trovik/Program.h"

#include "host/foundation/Exception.h"
#include "host/foundation/Log.h"
#include "trovik/commandline/Completion.h"
#include "trovik/commandline/Options.h"
#include "trovik/machine/Interrupts.h"
#include "trovik/queue/Queue.h"
#include "trovik/text/Messages.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/Verbs.h"

#include <algorithm>
#include <exception>
#include <map>
#include <memory>
#include <stdexcept>
#include <string_view>
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

/// Whether a verb works with job types, or with the queue alone.
enum class Types { Needed, NotNeeded };

struct Verb {
  int (*function)(Session&);
  Types types;
};

int callVerb(const Options& options, Console& console) {
  static const std::map<std::string, Verb> verbs = {
      {"cancel", {cancelJobs, Types::NotNeeded}}, {"check", {checkTypes, Types::NotNeeded}},
      {"delete", {deleteJobs, Types::NotNeeded}}, {"detect", {detectScene, Types::Needed}},
      {"engine", {runEngine, Types::Needed}},     {"find", {findProgram, Types::Needed}},
      {"images", {listImages, Types::NotNeeded}}, {"jobs", {listJobs, Types::NotNeeded}},
      {"log", {showLog, Types::NotNeeded}},       {"new", {makeType, Types::Needed}},
      {"replay", {replayLog, Types::NotNeeded}},  {"retry", {retryJobs, Types::NotNeeded}},
      {"run", {runJob, Types::Needed}},           {"sheet", {drawSheet, Types::NotNeeded}},
      {"show", {showJob, Types::NotNeeded}},      {"stats", {showStats, Types::NotNeeded}},
      {"submit", {submitJob, Types::Needed}},     {"type", {describeType, Types::Needed}},
      {"task", {runTask, Types::NotNeeded}},      {"types", {listTypes, Types::Needed}},
      {"watch", {watchJob, Types::NotNeeded}},
  };
  const auto verb = verbs.find(options.verb);
  if (verb == verbs.end()) {
    throw std::logic_error("no function for the verb " + options.verb);
  }
  Session session(options, console);
  if (verb->second.types == Types::Needed) {
    session.loadModules();
  }
  return verb->second.function(session);
}

} // namespace

int runProgram(int count, char** arguments) {
  survivePipeEnd();
  const auto makeConsole = [](ColourChoice choice) {
    return std::make_unique<Console>(descriptorWriter(STDOUT_FILENO), descriptorWriter(STDERR_FILENO),
                                     standardTraits(choice), standardWidth);
  };
  std::unique_ptr<Console> console = makeConsole(ColourChoice::Auto);
  if (count > 1 && std::string_view(arguments[1]) == "complete") {
    // Asked by the shells, with words that are no command line yet.
    return completeWords({arguments + 2, arguments + count}, *console);
  }
  int code = exitUsage;
  try {
    const ParsedLine line = parseCommandLine({arguments + 1, arguments + count},
                                             std::min<std::size_t>(console->layoutWidth(), 100));
    console = makeConsole(line.options.colour);
    sendLogTo(*console, line.options.verbosity);
    if (line.text) {
      console->print(*line.text);
      code = exitGood;
    } else {
      code = callVerb(line.options, *console);
    }
  } catch (const UsageError& error) {
    printRefusal(*console, error);
  } catch (const QueueError& error) {
    printRefusal(*console, {error.message, error.hint});
  } catch (Exception* exception) {
    printRefusal(*console, {takeText(exception), {}});
  } catch (const std::exception& exception) {
    printRefusal(*console, {exception.what(), {}});
  }
  SetLogSink({});
  return code;
}

} // namespace trovik
