#pragma once

#include "host/application/Job.h"
#include "host/application/jobs/ExecutableSearch.h"
#include "host/application/jobs/LineAccount.h"
#include "host/application/jobs/OutputTail.h"
#include "host/foundation/Process.h"
#include "host/foundation/TextFilter.h"

#include <atomic>
#include <chrono>
#include <ctime>
#include <memory>
#include <string_view>
#include <vector>

class ErrorTexts;
class PlainLines;
class RequiredTexts;
struct LineTexts;

/// A job whose works are runs of an external program.
///
/// Execute runs a work here, blocking. An engine that runs many drives the same
/// steps itself: PrepareWork, a Process, WorkSpawned, one WorkLine a line and
/// FinishWork. Both ways call the same virtual operations in the same order.
/// A job object serves one attempt: what it saw in the output stays seen.
class ProcessJob : public Job {
public:
  ~ProcessJob() override;

  int Execute() override;
  /// Ends the work that Execute runs, or is about to run: 0 asks the program's
  /// group to end and kills it after a grace time, 1 kills it at once. Safe
  /// from any thread and from a signal handler. An engine that runs the
  /// program itself ends it itself.
  void Interrupt(int how) override;

  /// Called before anything else of a work. False, with the note set, when
  /// the work cannot begin.
  virtual bool PreExecute() = 0;
  /// The command line with its references, and the program.
  virtual String CreateCommandLine(Path& executable) = 0;
  /// The newest installed program, or empty when there is none to look for.
  virtual Path GetLatestExecutable() = 0;
  /// The program runs; its process ID is ProcessId().
  virtual void OnProcessSpawned();
  /// Looks for error texts: a line that begins with one (or holds it anywhere
  /// when the detect position is "1"), without regard to case, and holds no
  /// ignore text, makes the work fail.
  virtual void ProcessLine(const String& line);
  /// The verdict on an exit code (128 + signal for a killed program): 7 or 5.
  virtual int CheckResult(int exitCode) = 0;
  virtual Path DetermineStartDirectory() const = 0;
  /// Whether program and start directory are there. False, with the note set,
  /// if not.
  virtual bool ValidateResources();
  /// The check of the files that the work must leave; given the verdict so
  /// far, returns the verdict. Also called for works that have failed or were
  /// canceled, whose verdict and note stay as they are.
  virtual int CheckFiles(int result) = 0;
  virtual int DoCheckFile(const Path& file, int result) = 0;

  /// Searches the roots, in order of all of them together, for folders named
  /// like a base ("blender" finds blender, blender-4.1, blender4.2; "*" and
  /// "?" match) and returns the program inside the newest that exists and is
  /// executable; empty when there is none. Folders that were put aside
  /// (blender-4.2-old) do not count. Without roots and bases the program
  /// itself, looked up along PATH. See VersionOrder.h.
  ///
  /// Called from a job's GetLatestExecutable while its work is prepared, it
  /// answers from the job's memory (see ShareSearches), and finds nothing for
  /// a job whose program somebody chose.
  static Path FindLatestExecutable(const std::vector<Path>& roots, const std::vector<Path>& bases, Path exe);

  /// Lets all works of a job use one memory of what its searches found: the
  /// first work searches.
  void ShareSearches(std::shared_ptr<ExecutableMemory> memory) { m_Searches = std::move(memory); }

  /// Prepares a work: PreExecute, GetLatestExecutable, CreateCommandLine,
  /// expansion, splitting, DetermineStartDirectory, environment, limits,
  /// ValidateResources. False when the work cannot start: the status is then
  /// failed and the note says why. Raises nothing.
  ///
  /// The program is the job's own "Executable", else the engine's option, else
  /// the newest one found, else the type's default, else the first word of the
  /// command line. A bare name is looked up along this process's PATH; a
  /// relative path counts from this process's directory, not from the start
  /// directory.
  bool PrepareWork(ProcessStart& start);

  /// The same without touching the disk (neither PreExecute nor
  /// ValidateResources), for showing. Raises Exception*.
  ProcessStart DescribeWork();

  /// What the type's module raises in these makes the work fail: they raise
  /// nothing themselves.
  void WorkSpawned(pid_t id);
  void WorkLine(std::string_view line);
  /// What a line must hold to matter; null when every line is to go to
  /// WorkLine, as with the class of a job that has not said what it looks for.
  /// Changes with any line and parameter; valid until then.
  const TextFilter* WantedTexts();
  /// Whole lines with their ends that hold nothing of it: the same as WorkLine
  /// for each, in a fraction of the time. A class that declared LineTexts
  /// does not see them.
  void WorkPlainLines(std::string_view lines) { m_Output.AddLines(lines); }
  /// Whether it did. The program is to be ended then: nobody judges what it
  /// still says.
  bool HasModuleFailed() const { return !m_Failure.empty(); }

  /// Has the job account for every line from now on, for showing how a type
  /// judges. It costs time with the lines that hold a text of the type.
  void AccountForLines() { m_Account = std::make_unique<LineAccount>(); }
  /// What became of the line that WorkLine was given last; null unless it was
  /// asked for.
  const LineAccount* Account() const { return m_Account.get(); }

  /// Why a work was ended from outside; the strongest of all verdicts. Lost:
  /// whoever watched it has died, so nobody knows how it ended.
  enum class Ended { ByItself, Canceled, TimedOut, Silent, Lost };

  /// Which rule decided on the work, from strongest to weakest.
  enum class Rule { None, Ended, Start, ErrorLine, Signal, Result, Files };
  /// Valid after FinishWork, FailWork, or PrepareWork that gave false. Result
  /// for a work that ended well.
  Rule DecidedBy() const { return m_DecidedBy; }

  /// False when the note or a line of the output held one of the type's
  /// "NoRetryTexts" (anywhere, without regard to case), or the work could not
  /// be prepared: a further attempt would end the same.
  bool IsWorthRepeating() const { return m_WorthRepeating; }

  /// Judges the work by, in this order: an end from outside; an error line;
  /// death by a signal (unless the declared success texts and required texts
  /// were seen and every file is good); CheckResult, and what the output lacks:
  /// a text of "RequiredTexts", or any line at all where success texts are
  /// declared; CheckFiles. Sets status and note; the note says which one spoke
  /// and quotes the deciding line. Returns the status.
  /// CheckFiles is called whatever the verdict, so that what is good is known;
  /// it makes no bad verdict good and alters none's note.
  int FinishWork(const ProcessExit& exit, Ended ended = Ended::ByItself);

  /// A work that could not be started at all: failed, with this note; decided
  /// by Rule::Start.
  int FailWork(const String& note);

  /// How long the work may run, and say nothing, in seconds; 0 for no limit.
  /// Raise Exception* for a value that is no duration.
  double RunTimeLimit() const;
  double SilenceLimit() const;

  pid_t ProcessId() const { return m_ProcessId; }
  /// The line that made the work fail, or empty.
  const String& ErrorLine() const { return m_ErrorLine; }
  /// When it came: no file that was written before has a later stamp.
  const timespec& ErrorTime() const { return m_ErrorTime; }
  /// The last ordinary line with any text: what a program that died said last.
  const String& LastLine() const { return m_Output.Last(); }
  String Note() const { return Get(p_Note, true); }
  void SetNote(const String& note);

protected:
  /// How long a program that was asked to end may take before it is killed.
  static constexpr std::chrono::milliseconds k_Grace{5000};
  explicit ProcessJob(std::chrono::milliseconds grace = k_Grace);

  /// The program of the work being prepared.
  const Path& WorkExecutable() const { return m_Executable; }
  /// The directory that the work starts in; before it was prepared, the one
  /// that it would start in. Absolute, or empty for this process's own.
  Path WorkStartDirectory() const;

  /// From now on ProcessLine need not be called for lines that hold none of these
  /// texts. To be called by a class whose ProcessLine does with such a line
  /// nothing but call ProcessJob's, and only for objects of just that class: one
  /// that is derived from it may override ProcessLine once more.
  void WantLinesWith(const LineTexts& texts);
  /// Takes that back, until the next WantLinesWith.
  void WantEveryLine();

  /// Where ProcessLine tells what became of the line at hand; null unless
  /// somebody asked.
  LineAccount* AccountToFill() { return m_Account.get(); }

  /// CheckFiles tells how many files it found when all were good: only files
  /// prove that a program that crashed on its way out had done its work.
  void SetGoodFiles(std::size_t count) { m_GoodFiles = count; }

  /// A parameter's effective value with its references replaced; messages
  /// name the parameter. Raises Exception*.
  String EffectiveText(const String& name) const;
  /// The same for a list: each of its texts by itself, so that a ";" in a
  /// value does not split it.
  std::vector<String> EffectiveTexts(const String& name) const;
  /// Its texts before their references are replaced.
  std::vector<String> TextsToExpand(const String& name) const;

private:
  std::vector<String> TextsOf(const String& name) const;
  void BuildStart(ProcessStart& start);
  String BuildCommandLine(Path& executable);
  int Judge(const ProcessExit& exit, Ended ended);
  template <typename Step> void Guard(const char* name, Step step);
  int JudgeEnd(Ended ended);
  int JudgeSignal(const ProcessExit& exit);
  int JudgeResult(const ProcessExit& exit);
  bool SuccessOutweighs(int exitCode, bool& looked);
  void LookAtFiles(int result);
  int Fail(Rule rule, const String& note);
  bool ForbidsRepeating(std::string_view text);
  RequiredTexts& Required();
  bool HasSuccessTexts() const;
  String LackNote();
  void AccountForError(const String& line);
  int SucceedWork(const String& note);
  int RunWork();
  double Limit(const String& name) const;

  std::chrono::milliseconds m_Grace;
  std::shared_ptr<ExecutableMemory> m_Searches; // may be null
  Path m_Executable;
  Path m_StartDirectory;
  bool m_Prepared = false;
  pid_t m_ProcessId = -1;
  std::size_t m_GoodFiles = 0;
  Rule m_DecidedBy = Rule::None;
  bool m_WorthRepeating = true;
  std::unique_ptr<ErrorTexts> m_ErrorTexts;   // built with the first line
  std::unique_ptr<ErrorTexts> m_NoRetryTexts; // the same; null for a type without any
  bool m_NoRetryTextsRead = false;
  String m_Line;                          // the line at hand; kept for its memory
  std::unique_ptr<LineAccount> m_Account; // of the line at hand
  String m_Failure;                       // of the type's module while the program ran
  String m_ErrorLine;
  timespec m_ErrorTime{};
  OutputTail m_Output;
  bool m_HasOutput = false;                       // any line at all
  std::unique_ptr<RequiredTexts> m_RequiredTexts; // built with the first line
  std::unique_ptr<PlainLines> m_PlainLines;       // null while ProcessLine is to see every line
  std::atomic<int> m_Interrupt{-1};
  std::atomic<int> m_Wake{-1}; // eventfd by which Interrupt reaches Execute
};
