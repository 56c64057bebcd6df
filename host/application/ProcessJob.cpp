#include "host/application/ProcessJob.h"

#include "host/application/ErrorTexts.h"
#include "host/application/ExecutableSearch.h"
#include "host/application/JobFactory.h"
#include "host/application/NoteText.h"
#include "host/application/RequiredTexts.h"
#include "host/foundation/Exception.h"
#include "host/foundation/Log.h"
#include "host/foundation/Quoting.h"
#include "host/foundation/StringTokenizer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <system_error>

// One work from the outside: what has to be ready before the program starts,
// what every line means, and the verdict. Running the program and waiting for
// it is in ProcessExecution.cpp; engines that run many programs at once do that
// themselves.
//
// A verdict comes from whoever is strongest: the one who ended the work, then
// an error line, then a signal, then CheckResult, then the files. Each later
// judge can only make a good verdict bad. The one exception is a crash after
// all is done, which many renderers do on their way out: a success text that
// was seen, together with good files, outweighs the signal.

namespace {

// Of the module's virtual types; the host knows it only by this name.
constexpr const char* p_SuccessTexts = "SuccessTexts";

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

String SignalText(int signal) {
  const char* description = sigdescr_np(signal);
  return "Killed by signal " + std::to_string(signal) +
         (description == nullptr ? String::Null : String(" (") + description + ")");
}

String LastLineText(const OutputTail& output) {
  return output.Last().empty() ? String::Null : "; last line: " + NoteText(output.Last());
}

// What a program that failed by itself said of it.
String TellingLineText(const OutputTail& output) {
  const String line = output.Telling();
  return line.empty() || line == output.Last() ? LastLineText(output) : "; it said: " + NoteText(line);
}

// "90", "1.5", "0.25"
String SecondsText(double seconds) {
  const auto thousandths = std::llround(std::min(seconds, 1e12) * 1000);
  String text = std::to_string(thousandths / 1000);
  if (thousandths % 1000 != 0) {
    text += "." + std::to_string(1000 + thousandths % 1000).substr(1);
    text.erase(text.find_last_not_of('0') + 1);
  }
  return text;
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

// Runs a step of a work; what it raises becomes the text that is returned.
template <typename Step> String TextOfFailure(Step step) {
  try {
    step();
    return String::Null;
  } catch (...) {
    return TakeCaughtText();
  }
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
  const String value = GetParameterOrOption(name, true, true);
  return IsLiteral(Type(), name) ? value : ExpandText(value, name);
}

std::vector<String> ProcessJob::EffectiveTexts(const String& name) const {
  const bool literal = IsLiteral(Type(), name);
  std::vector<String> texts;
  for (String& text : StringTokenizer::Split(GetParameterOrOption(name, true, true), ';')) {
    if (!text.Trim().empty()) {
      texts.push_back(literal ? text : ExpandText(text, name));
    }
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

bool ProcessJob::HasSuccessTexts() const {
  return !GetParameterOrOption(p_SuccessTexts, true, true).empty();
}

// What the output of a work lacks that CheckResult had nothing against; empty
// when it is all there. No line is no success line, whatever the class makes of
// an output that it never saw.
String ProcessJob::LackNote() {
  if (!m_HasOutput && HasSuccessTexts()) {
    return "Did not see a required success line: the program printed nothing";
  }
  const String* missing = Required().Missing();
  if (missing == nullptr) {
    return String::Null;
  }
  return "Did not see the required text \"" + NoteText(*missing) + "\"" +
         (m_HasOutput ? LastLineText(m_Output) : ": the program printed nothing");
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

// The files of a work whose verdict stands. What goes wrong with the look is
// no news to anybody then.
void ProcessJob::LookAtFiles(int result) {
  const String note = Note();
  const String failure = TextOfFailure([this, result] { CheckFiles(result); });
  if (!failure.empty()) {
    LogDebug("The files of a work that did not end well: " + failure);
  }
  Set(p_Note, note);
}

bool ProcessJob::SuccessOutweighs(int exitCode, bool& looked) {
  const bool declared = HasSuccessTexts() ? CheckResult(exitCode) == k_StatusFinished : !Required().empty();
  if (!declared || !LackNote().empty()) {
    return false;
  }
  m_GoodFiles = 0;
  looked = true;
  return CheckFiles(k_StatusFinished) == k_StatusFinished && m_GoodFiles > 0;
}

int ProcessJob::JudgeEnd(Ended ended) {
  m_DecidedBy = Rule::Ended;
  LookAtFiles(ended == Ended::Canceled ? k_StatusCanceled : k_StatusFailed);
  switch (ended) {
  case Ended::Canceled:
    SetStatus(k_StatusCanceled);
    SetNote("Canceled");
    return Status();
  case Ended::TimedOut:
    return Fail(Rule::Ended, "Run-time limit of " + SecondsText(RunTimeLimit()) + " s reached");
  case Ended::Silent:
    return Fail(Rule::Ended, "No output for " + SecondsText(SilenceLimit()) + " s (silence limit)");
  default:
    return Fail(Rule::Ended, "Its engine died");
  }
}

int ProcessJob::JudgeSignal(const ProcessExit& exit) {
  m_DecidedBy = Rule::Signal;
  bool looked = false;
  if (SuccessOutweighs(exit.Code, looked)) {
    m_DecidedBy = Rule::Result;
    return SucceedWork(SignalText(exit.Signal) + " after the success text, and every file is good");
  }
  if (!looked) {
    LookAtFiles(k_StatusFailed);
  }
  return Fail(Rule::Signal, SignalText(exit.Signal) + LastLineText(m_Output));
}

int ProcessJob::JudgeResult(const ProcessExit& exit) {
  m_DecidedBy = Rule::Result;
  Set(p_Note, String::Null); // so that a note of CheckResult's own is seen, and stays as it is
  int result = CheckResult(exit.Code);
  String note = Note();
  if (result != k_StatusFinished && note.empty()) {
    note = "Exit code " + std::to_string(exit.Code) + TellingLineText(m_Output);
  } else if (result == k_StatusFinished) {
    note = LackNote();
    result = note.empty() ? result : k_StatusFailed;
  }
  if (result != k_StatusFinished) {
    LookAtFiles(result);
    return Fail(Rule::Result, note);
  }
  m_DecidedBy = Rule::Files;
  if (CheckFiles(result) != k_StatusFinished) {
    note = Note();
    return Fail(Rule::Files, note.empty() ? String("A file that the work must leave is not good") : note);
  }
  m_DecidedBy = Rule::Result;
  return SucceedWork(String::Null);
}

int ProcessJob::Judge(const ProcessExit& exit, Ended ended) {
  if (ended != Ended::ByItself) {
    return JudgeEnd(ended);
  }
  if (!m_Failure.empty()) {
    m_DecidedBy = Rule::Result;
    LookAtFiles(k_StatusFailed);
    return Fail(Rule::Result, m_Failure);
  }
  if (!m_ErrorLine.empty()) {
    m_DecidedBy = Rule::ErrorLine;
    LookAtFiles(k_StatusFailed);
    return Fail(Rule::ErrorLine, "Error line: " + NoteText(m_ErrorLine));
  }
  return exit.Signal != 0 ? JudgeSignal(exit) : JudgeResult(exit);
}

int ProcessJob::FinishWork(const ProcessExit& exit, Ended ended) {
  const String failure = TextOfFailure([this, &exit, ended] { Judge(exit, ended); });
  return failure.empty() ? Status() : Fail(m_DecidedBy, failure);
}
