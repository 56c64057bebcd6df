#include "host/application/jobs/ProcessJob.h"

#include "host/application/Expansion.h"
#include "host/application/JobFactory.h"
#include "host/application/jobs/ErrorTexts.h"
#include "host/application/jobs/ExecutableSearch.h"
#include "host/application/jobs/NoteText.h"
#include "host/application/jobs/PlainLines.h"
#include "host/application/jobs/RequiredTexts.h"
#include "host/foundation/Exception.h"
#include "host/foundation/Log.h"
#include "host/foundation/Quoting.h"
#include "host/foundation/StringTokenizer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

// One work from the outside: what has to be ready before the program starts,
// and what every line means. The verdict is in ProcessVerdict.cpp. Running the
// program and waiting for it is in ProcessExecution.cpp; engines that run many
// programs at once do that themselves.

namespace {

std::pair<String, std::optional<String>> EnvironmentChange(const String& text) {
  const std::size_t equals = text.find('=');
  if (equals == 0) {
    RaiseException("ProcessJob::PrepareWork", k_ErrorSyntax,
                   String(p_Environment) + ": \"" + NoteText(text) +
                       "\" names no variable; write NAME=VALUE, or NAME alone to remove one");
  }
  if (equals == String::npos) {
    return {text, std::nullopt};
  }
  return {text.substr(0, equals), String(text.substr(equals + 1))};
}

bool IsLiteral(const UID& type, const String& name) {
  const ParameterInfo* info = JobFactory::s_JobFactory->GetTypeParameterInfo(type, name, false);
  return info != nullptr && info->IsLiteral();
}

// What is in the way of starting the program; empty if nothing is.
String ProgramProblem(const Path& program) {
  const String name = "Program \"" + NoteName(program) + "\"";
  if (program.Text().find('/') == String::npos) {
    return FindAlongPath(program.Text()).empty() ? name + " not found along PATH" : String::Null;
  }
  const String problem = ExecutableProblem(program);
  return problem.empty() ? problem : name + ' ' + problem;
}

String DirectoryProblem(const Path& directory) {
  const String name = "Start directory \"" + NoteName(directory) + "\"";
  struct stat status {};
  if (stat(directory.c_str(), &status) != 0) {
    return errno == ENOENT || errno == ENOTDIR
               ? name + " does not exist"
               : name + " cannot be reached: " + std::system_category().message(errno);
  }
  if (!S_ISDIR(status.st_mode)) {
    return name + " is not a folder";
  }
  return access(directory.c_str(), X_OK) == 0 ? String::Null : name + " may not be entered";
}

} // namespace

ProcessJob::ProcessJob(std::chrono::milliseconds grace) : m_Grace(grace) {}

ProcessJob::~ProcessJob() {
  const int wake = m_Wake.load();
  if (wake >= 0) {
    close(wake);
  }
}

void ProcessJob::SetNote(const String& note) {
  Set(p_Note, note);
  DoWorkParameterChange(p_Note, note);
}

int ProcessJob::Fail(Rule rule, const String& note) {
  m_DecidedBy = rule;
  const String failure = TextOfFailure([this, &note] {
    if (m_WorthRepeating && ForbidsRepeating(note)) {
      m_WorthRepeating = false;
    }
  });
  if (!failure.empty()) {
    LogDebug("The texts that forbid a retry: " + failure);
  }
  SetStatus(k_StatusFailed);
  SetNote(note);
  return Status();
}

int ProcessJob::FailWork(const String& note) {
  return Fail(Rule::Start, note);
}

int ProcessJob::SucceedWork(const String& note) {
  SetFinished();
  if (!note.empty()) {
    SetNote(note);
  }
  return Status();
}

Path ProcessJob::WorkStartDirectory() const {
  if (m_Prepared) {
    return m_StartDirectory;
  }
  const Path directory = DetermineStartDirectory();
  return directory.empty() ? directory : MakeAbsolute(directory);
}

String ProcessJob::EffectiveText(const String& name) const {
  String value = GetParameterOrOption(name, true, true);
  return IsPlainText(value) || IsLiteral(Type(), name) ? value : ExpandText(value, name);
}

std::vector<String> ProcessJob::TextsOf(const String& name) const {
  std::vector<String> texts;
  for (String& text : StringTokenizer::Split(GetParameterOrOption(name, true, true), ';')) {
    if (!text.Trim().empty()) {
      texts.push_back(std::move(text));
    }
  }
  return texts;
}

std::vector<String> ProcessJob::EffectiveTexts(const String& name) const {
  std::vector<String> texts = TextsOf(name);
  if (std::all_of(texts.begin(), texts.end(), IsPlainText) || IsLiteral(Type(), name)) {
    return texts;
  }
  for (String& text : texts) {
    text = ExpandText(text, name);
  }
  return texts;
}

std::vector<String> ProcessJob::TextsToExpand(const String& name) const {
  std::vector<String> texts = TextsOf(name);
  if (IsLiteral(Type(), name)) {
    std::transform(texts.begin(), texts.end(), texts.begin(), EscapeReferences);
  }
  return texts;
}

double ProcessJob::Limit(const String& name) const {
  String text = CallModule(name, [&] { return EffectiveText(name); });
  double seconds = 0;
  if (!text.Trim().empty() && !ParseDuration(text, seconds)) {
    RaiseException("ProcessJob::Limit", k_ErrorSyntax,
                   name + ": \"" + NoteText(text) +
                       "\" is no duration; write seconds, or a number with s, m, h or d");
  }
  return seconds;
}

double ProcessJob::RunTimeLimit() const {
  return Limit(p_RunTimeLimit);
}

double ProcessJob::SilenceLimit() const {
  return Limit(p_SilenceLimit);
}

// The command line behind the program, and the program; empty when the line
// itself begins with it.
String ProcessJob::BuildCommandLine(Path& executable) {
  // The newest program wins over what the type's author could only guess, but
  // not over what somebody chose for this job or this machine.
  const bool chosen = !GetParameterOrOption(p_Executable, true, false).empty();
  Path latest;
  {
    const ExecutableMemory::Use use(m_Searches.get(), !chosen);
    latest = GetLatestExecutable();
  }
  String line = CreateCommandLine(executable);
  if (!executable.empty()) {
    // A picked name: what looks like a reference in it is none.
    const String head = executable.Enquote() + " ";
    if (!line.starts_with(head)) {
      executable = Path();
      return line;
    }
    line.erase(0, head.size());
  }
  if (!latest.empty() && !chosen) {
    executable = latest;
  }
  return line;
}

void ProcessJob::BuildStart(ProcessStart& start) {
  Path executable;
  const String line = BuildCommandLine(executable);
  start.Arguments = SplitCommandLine(ExpandText(line, "command line"));
  if (!executable.empty()) {
    start.Arguments.insert(start.Arguments.begin(), executable.Text());
  } else if (start.Arguments.empty() || start.Arguments[0].empty()) {
    RaiseException(
        "ProcessJob::PrepareWork", k_ErrorSyntax,
        "No program to start: set the parameter \"Executable\", or begin the command line with one");
  }
  if (start.Arguments[0].find('/') != String::npos) {
    start.Arguments[0] = MakeAbsolute(start.Arguments[0]).Text();
  }
  m_Executable = start.Arguments[0];
  m_Prepared = false;
  m_StartDirectory = WorkStartDirectory();
  m_Prepared = true;
  start.StartDirectory = m_StartDirectory;
  start.Environment.clear();
  for (const String& text : EffectiveTexts(p_Environment)) {
    start.Environment.push_back(EnvironmentChange(text));
  }
}

ProcessStart ProcessJob::DescribeWork() {
  ProcessStart start;
  BuildStart(start);
  return start;
}

bool ProcessJob::PrepareWork(ProcessStart& start) {
  Set(p_Note, String::Null);
  bool ready = false;
  const String failure = TextOfFailure([this, &start, &ready] {
    if (!PreExecute()) {
      return;
    }
    BuildStart(start);
    RunTimeLimit();
    SilenceLimit();
    Required();
    ready = ValidateResources();
  });
  if (ready && failure.empty()) {
    return true;
  }
  const String note = failure.empty() ? Note() : failure;
  if (m_Searches != nullptr) {
    m_Searches->Forget(); // what is installed meanwhile serves the next attempt
  }
  m_WorthRepeating = false;
  FailWork(note.empty() ? String("The work could not be prepared") : note);
  return false;
}

bool ProcessJob::ValidateResources() {
  String problem = ProgramProblem(m_Executable);
  if (problem.empty() && !m_StartDirectory.empty()) {
    problem = DirectoryProblem(m_StartDirectory);
  }
  Set(p_Note, problem);
  return problem.empty();
}

void ProcessJob::WorkSpawned(pid_t id) {
  m_ProcessId = id;
  SetStatus(k_StatusRunning);
  Guard("OnProcessSpawned", [this] { OnProcessSpawned(); });
}

// Runs a step while the program runs. Where the type's module fails in it
// nobody can tell any more what the output means, so the work has failed, and
// the reason is kept for the verdict.
template <typename Step> void ProcessJob::Guard(const char* name, Step step) {
  if (!m_Failure.empty()) {
    return;
  }
  const String failure = TextOfFailure(step);
  if (!failure.empty()) {
    const JobTypeInfo* info = JobFactory::s_JobFactory->GetTypeInfo(Type(), false);
    m_Failure = "The module of the type \"" + (info == nullptr ? String::Null : info->Name) +
                "\" failed in " + name + ": " + failure;
    LogWarning(m_Failure);
  }
}

void ProcessJob::OnProcessSpawned() {
  if (!IsLogged(LogLevel::Debug)) {
    return;
  }
  LogDebug("Started \"" + m_Executable.Text() + "\" as process " + std::to_string(m_ProcessId));
}

void ProcessJob::WorkLine(std::string_view line) {
  m_Line.assign(line);
  m_HasOutput = true;
  if (m_Account != nullptr) {
    *m_Account = LineAccount();
  }
  Guard("ProcessLine", [this] {
    if (m_WorthRepeating && ForbidsRepeating(m_Line)) {
      m_WorthRepeating = false;
    }
    ProcessLine(m_Line);
  });
  const String* required = Required().See(line);
  if (required != nullptr && m_Account != nullptr && m_Account->What == LineAccount::Fate::Ordinary) {
    m_Account->What = LineAccount::Fate::Success;
    m_Account->List = p_RequiredTexts;
    m_Account->Text = *required;
  }
}

RequiredTexts& ProcessJob::Required() {
  if (m_RequiredTexts == nullptr) {
    m_RequiredTexts = std::make_unique<RequiredTexts>(EffectiveTexts(p_RequiredTexts));
  }
  return *m_RequiredTexts;
}

bool ProcessJob::ForbidsRepeating(std::string_view text) {
  if (!m_NoRetryTextsRead) {
    m_NoRetryTextsRead = true;
    const String texts = GetParameterOrOption(p_NoRetryTexts, true, true);
    if (!texts.empty()) {
      m_NoRetryTexts = std::make_unique<ErrorTexts>(texts, String::Null, true);
    }
  }
  return m_NoRetryTexts != nullptr && m_NoRetryTexts->IsError(text);
}

void ProcessJob::ProcessLine(const String& line) {
  if (m_ErrorTexts == nullptr) {
    m_ErrorTexts = std::make_unique<ErrorTexts>(
        GetParameterOrOption(p_ErrorStarts, true, true), GetParameterOrOption(p_ErrorIgnores, true, true),
        GetParameterOrOption(p_ErrorDetectPosition, true, true).Bool());
  }
  if (line.find_first_not_of(" \t") != String::npos) {
    m_Output.Add(line);
  }
  if (m_Account != nullptr) {
    AccountForError(line);
  }
  if (m_ErrorLine.empty() && m_ErrorTexts->IsError(line)) {
    m_ErrorLine.assign(line, 0, OutputTail::k_KeptLine); // the first one is the cause of the others
    clock_gettime(CLOCK_REALTIME, &m_ErrorTime);
  }
}

void ProcessJob::AccountForError(const String& line) {
  const bool error = m_ErrorTexts->IsError(line);
  const ErrorTexts::Match match = m_ErrorTexts->Find(line);
  if (error) {
    m_Account->What = LineAccount::Fate::Error;
    m_Account->List = p_ErrorStarts;
    m_Account->Text = match.Error;
  } else if (!match.Error.empty()) {
    m_Account->What = LineAccount::Fate::IgnoredError;
    m_Account->List = p_ErrorIgnores;
    m_Account->Text = match.Ignore;
    m_Account->Other = match.Error;
  }
}
