#include "trovik/check/TypeChecker.h"

#include "host/application/JobFactory.h"
#include "host/application/jobs/ProcessJob.h"
#include "host/foundation/Exception.h"
#include "host/foundation/Log.h"
#include "trovik/check/TypeCheck.h"
#include "trovik/jobs/ProgramSearch.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <memory>

namespace trovik {
namespace {

/// What the module logs while it reads a file is reported in another way here.
class QuietLog {
public:
  QuietLog() : usual_(SetLogSink([](LogLevel, const String&) {})) {}
  ~QuietLog() { SetLogSink(usual_); }
  QuietLog(const QuietLog&) = delete;
  QuietLog& operator=(const QuietLog&) = delete;

private:
  LogSink usual_;
};

/// A section that gives a text an ID of its own, whatever it had before: a
/// repeated section goes on, and the later value of a key counts.
std::string withFreshID(std::string_view text) {
  return std::string(text) + "\n[Module]\nID=" + UID(true).GenString() + "\n";
}

/// Whether the module's reading, which compares names with each other, stays
/// quick. No type that somebody wrote comes near these limits.
bool isReadable(const TypeSource& source) {
  if (source.text().size() > TypeChecker::deepLimit) {
    return false;
  }
  std::size_t names = 0;
  for (const char* list :
       {"PrimaryParameters", "SecondaryParameters", "PrimaryCommands", "SecondaryCommands"}) {
    names += source.ini().Entries(list).size();
  }
  return names * (names + source.ini().SectionNames().size()) <= TypeChecker::namesLimit;
}

/// The program of a type's command is its first word.
void lookForCommand(const TypeCheck& check, const CommandInfo& command) {
  const std::size_t end = std::min(command.Command.find(' '), command.Command.size());
  const String word = command.Command.substr(0, end);
  IniFile::EntryView entry;
  if (word.empty() || word.find_first_of("$\"'\\") != String::npos || programProblem(Path(word)).empty() ||
      !check.source.ini().FindEntry(command.Name, "Command", entry)) {
    return;
  }
  const bool bare = word.find('/') == String::npos;
  check.out.warning(
      "missing-program", valueOf(entry).span.part(0, end), "this machine has no program " + quotedText(word),
      bare ? "looked for it along PATH" : "check the path, which " + programProblem(Path(word)));
}

bool isRefusing(const Findings& out) {
  return out.hasRule("no-module") || out.hasRule("missing-id") || out.hasRule("bad-id");
}

} // namespace

TypeChecker::TypeChecker(ModuleLoader& modules, bool programs) : modules_(modules), programs_(programs) {
  tryFile(withFreshID({}), [this](const UID& type) {
    const JobTypeInfo* info = JobFactory::s_JobFactory->GetTypeInfo(type, false);
    for (std::size_t i = 0; i < info->ParamCount(); ++i) {
      const ParameterInfo* parameter = info->GetParam(static_cast<unsigned long>(i));
      if (parameter->Type() != ParameterInfo::k_Heading) {
        standard_.push_back(parameter->Name);
      }
    }
  });
}

bool TypeChecker::tryFile(std::string_view text, const std::function<void(const UID& type)>& use) {
  const QuietLog quiet;
  bool accepted = false;
  withTemporaryFile(text, [&](const Path& file) { accepted = modules_.TryTypeFile(file, use); });
  return accepted;
}

std::vector<Diagnostic> TypeChecker::check(const TypeSource& source, const KnownTypes& others) {
  Findings out;
  if (source.problem()) {
    out.error("unreadable", {}, *source.problem());
    return out.take();
  }
  if (source.text().starts_with("\xFF\xFE") || source.text().starts_with("\xFE\xFF")) {
    out.error("utf-16", {{1, 1}, 2}, "this file is written in UTF-16, and is not loaded", "save it as UTF-8");
    return out.take();
  }
  if (const String leaf = source.path().Leaf(true); !leaf.empty() && !leaf.ends_with(".tvx")) {
    out.warning("file-name", {}, "is never loaded from a directory: its name does not end with .tvx",
                "give it such a name");
  }
  const bool accepted = tryFile(source.text(), {});
  if (isReadable(source)) {
    // Of the types that come with the program each site has what it needs.
    deep(source, out, accepted, programs_ && !others.isShipped(source));
    others.check(source, out);
  } else {
    const TypeCheck check{source, out, standard_};
    checkLines(check);
    checkModule(check);
    out.warning("too-large", {}, "is very large, so that only its lines and its ID were checked",
                "leave out what is no part of a type");
  }
  if (!accepted && !isRefusing(out)) {
    IniFile::EntryView id;
    const bool hasID = source.ini().FindEntry("Module", "ID", id);
    out.error("refused", hasID ? valueOf(id).span : Span{}, "the module does not load this type",
              "a module's own type may have its ID already; give it another one");
  }
  return out.take();
}

void TypeChecker::deep(const TypeSource& source, Findings& out, bool accepted, bool programs) {
  TypeCheck check{source, out, standard_};
  checkLines(check);
  checkModule(check);
  checkSections(check);
  const auto describe = [&](const UID& type) {
    const SmartHandle<Job> job = JobFactory::s_JobFactory->CreateJob(type);
    check.type = &type;
    check.info = JobFactory::s_JobFactory->GetTypeInfo(type, false);
    check.job = job.Get();
    checkParameters(check);
    checkOverrides(check);
    checkAutoDetect(check);
    checkTexts(check);
    checkTextForms(check);
    checkValues(check);
    checkReferences(check);
    checkFiles(check);
    checkProgramSearch(check);
    checkScripts(check);
    checkCommandLines(check); // last: it tries what nothing was found in
    if (programs) {
      lookForProgram(check);
    }
  };
  tryFile(accepted ? source.text() : withFreshID(source.text()), describe);
}

void TypeChecker::lookForProgram(const TypeCheck& check) const {
  auto* job = dynamic_cast<ProcessJob*>(check.job);
  if (job == nullptr || check.source.ini().SectionPlace("Module").Line == 0) {
    return;
  }
  FoundProgram found;
  try {
    found = searchProgram(modules_, *check.type, *job);
  } catch (Exception* exception) {
    takeText(exception);
    return;
  }
  for (const CommandInfo& command : check.info->Commands()) {
    lookForCommand(check, command);
  }
  if (!found.program.empty() || found.searched.empty()) {
    return;
  }
  Span span = check.sectionSpan("Module");
  IniFile::EntryView entry;
  if (const std::optional<PlacedText> standard = check.defaultOf("Executable")) {
    span = standard->span;
  } else if (check.source.ini().FindEntry("FindLatestExecutable", "LinuxExe", entry)) {
    span = valueOf(entry).span;
  } else if (const std::optional<PlacedText> command = check.defaultOf("CommandString")) {
    span = command->span.part(0, std::min(command->text.find(' '), command->text.size()));
  }
  check.out.warning("missing-program", span, "this machine has no program for the type",
                    joined(found.searched, "; "));
}

} // namespace trovik
