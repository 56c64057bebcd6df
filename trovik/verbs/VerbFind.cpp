#include "trovik/jobs/ProgramSearch.h"
#include "trovik/jobs/Types.h"
#include "trovik/text/Json.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/Verbs.h"

namespace trovik {

int findProgram(Session& session, const FindOptions& options) {
  Console& console = session.console();
  const UID type = findType(*options.type);
  const SmartHandle<Job> job = JobFactory::s_JobFactory->CreateJob(type);
  auto* process = dynamic_cast<ProcessJob*>(job.Get());
  if (process == nullptr) {
    throw UsageError{"jobs of " + inQuotes(typeTitle(type)) + " do not run a program", {}};
  }
  const FoundProgram found =
      orRefuse("", "", [&] { return searchProgram(session.modules(), type, *process); });
  const bool good = !found.program.empty();
  if (options.json) {
    Json document = jsonOfKind("find");
    document["type"] = typeTitle(type);
    document["executable"] = good ? Json(found.program.Text()) : Json(nullptr);
    document["source"] = good ? Json(found.source) : Json(nullptr);
    document["searched"] = found.searched;
    console.print(jsonDocument(document));
    return good ? exitGood : exitFailed;
  }
  if (good) {
    console.print(console.shown(found.program.Text()) + "\n  " + found.told + '\n');
    return exitGood;
  }
  std::string text = console.colouredError(Colour::Red, "trovik: error:") + " there is no program for " +
                     inQuotes(typeTitle(type)) + "; looked for\n";
  for (const std::string& place : found.searched) {
    text += "  " + place + '\n';
  }
  text += "hint: install it, or name it as Executable in the section [" + type.GenString() +
          "] of the options file\n";
  console.printError(text);
  return exitFailed;
}

} // namespace trovik
