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
    document["reason"] = good ? Json(found.description) : Json(nullptr);
    document["searched"] = found.searched;
    console.print(jsonDocument(document));
    return good ? exitGood : exitFailed;
  }
  std::string list;
  for (const std::string& text : found.searched) {
    list += "  " + text + '\n';
  }
  if (good) {
    console.print(console.shown(found.program.Text()) + "\n  " + found.description + '\n' + list);
    return exitGood;
  }
  const std::string title = inQuotes(typeTitle(type));
  const std::string option = "Executable=FILE in the section [" + type.GenString() + "] of the options file";
  console.printError(console.colouredError(Colour::Red, "trovik: error:") +
                     (list.empty() ? " nothing says which program jobs of " + title + " run\n"
                                   : " there is no program for " + title + '\n' + list) +
                     "hint: " +
                     (list.empty()       ? ""
                      : found.unreadable ? "make readable what cannot be read, or "
                                         : "install it, or ") +
                     "write " + option + '\n');
  return exitFailed;
}

} // namespace trovik
