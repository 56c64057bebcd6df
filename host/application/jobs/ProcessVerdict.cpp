#include "host/application/jobs/NoteText.h"
#include "host/application/jobs/ProcessJob.h"
#include "host/application/jobs/RequiredTexts.h"
#include "host/foundation/Bytes.h"
#include "host/foundation/Exception.h"
#include "host/foundation/Log.h"

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstring>
#include <string>

// The verdict on a work.
//
// It comes from whoever is strongest: the one who ended the work, then an error
// line, then a signal, then CheckResult, then the files. Each later judge can
// only make a good verdict bad. The one exception is a crash after all is done,
// which many renderers do on their way out: a success text that was seen,
// together with good files, outweighs the signal.

namespace {

// Of the module's virtual types; the host knows it only by this name.
constexpr const char* p_SuccessTexts = "SuccessTexts";

String SignalText(int signal) {
  const char* description = sigdescr_np(signal);
  return "Killed by signal " + std::to_string(signal) +
         (description == nullptr ? String::Null : String(" (") + description + ")");
}

// What points to a lack of memory: then the kernel kills who holds most of it,
// by the one signal that nobody can answer.
String MemoryText(const ProcessExit& exit) {
  if (exit.Signal != SIGKILL || !exit.Usage.has_value()) {
    return String::Null;
  }
  const std::int64_t machine = MachineMemory();
  const std::int64_t group = GroupMemoryLimit();
  const bool isGroup = group > 0 && (machine == 0 || group < machine);
  const std::int64_t limit = isGroup ? group : machine;
  if (limit == 0 || exit.Usage->PeakMemory < limit / 2) {
    return String::Null;
  }
  return " after " + BytesText(exit.Usage->PeakMemory) + " of memory; " +
         (isGroup ? "its control group may hold " : "the machine has ") + BytesText(limit);
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

} // namespace

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
  return Fail(Rule::Signal, SignalText(exit.Signal) + MemoryText(exit) + LastLineText(m_Output));
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
