#pragma once

#include "host/application/jobs/ProcessJob.h"

#include <cstdint>
#include <functional>

/// Watches over a program from its start until nothing of it is left: reads
/// its output, ends it when it takes too long, says nothing for too long or is
/// not wanted any more, and ends what it leaves behind.
///
/// It never waits. Its owner sleeps until one of the descriptors is readable or
/// the deadline has come, and then calls ReadOutput and Advance. Belongs to one
/// thread.
class ProgramRun {
public:
  using Clock = std::chrono::steady_clock;
  using Moment = Clock::time_point;
  using Ended = ProcessJob::Ended;
  /// Takes a piece of the output.
  using Output = std::function<void(std::string_view)>;

  /// Between asking a program to end and killing it.
  static constexpr std::chrono::seconds k_Grace{5};
  /// How long a program that has ended by itself may leave something behind:
  /// what it started, and an output that somebody holds open.
  static constexpr std::chrono::seconds k_RestPatience{1};

  /// How long a killed program may take before it is named.
  static constexpr std::chrono::seconds k_StuckPatience{5};

  struct Patience {
    double RunTime = 0; ///< the longest run, in seconds; 0 for any
    double Silence = 0; ///< the longest time without output, in seconds; 0 for any
    Clock::duration Grace = k_Grace;
  };

  /// The program has just been started.
  ProgramRun(std::unique_ptr<Program> program, const Patience& patience, Moment now, Output output);

  /// Warns of processes that were killed and have not ended: of each by name,
  /// and what it waits for.
  static void NameStuck(const std::vector<pid_t>& processes);

  pid_t Id() const { return m_Program->Id(); }
  /// -1 where there is nothing to wait for.
  int OutputDescriptor() const { return m_OutputOver ? -1 : m_Program->OutputDescriptor(); }
  int ExitDescriptor() const { return m_Program->ExitDescriptor(); }
  /// When Advance is to be called at the latest.
  std::optional<Moment> Deadline() const;

  /// Reads what waits, but not for ever: a program that never stops printing
  /// must not keep others from being looked after.
  void ReadOutput(Moment now);
  /// Notices the program's end, and deadlines that have passed.
  void Advance(Moment now);
  /// Asks the program to end, and kills it after the grace, or at once. Does
  /// nothing to one that has ended by itself, but hastens what it left behind.
  void Cancel(Moment now, bool kill);

  /// Asks the program to end since its verdict is known: it still counts as
  /// ended by itself.
  void Dismiss(Moment now);

  /// Whether the program has ended, though something of it may be left.
  bool HasExited() const { return m_Exited; }
  /// Whether nothing of it is left and its output has been read. A program that
  /// cannot end keeps this from coming; a warning names it.
  bool IsOver() const { return m_Over; }
  const ProcessExit& Exit() const { return m_Exit; }
  Ended HowEnded() const { return m_Ended; }
  Moment LastOutput() const { return m_LastOutput; }

private:
  void EnforceLimits(Moment now);
  void AwaitRest(Moment now);
  void End(Ended why, Moment now);
  void Kill(Moment now);
  void NameStuckOnes(Moment now);

  std::unique_ptr<Program> m_Program;
  Output m_Output;
  std::optional<Clock::duration> m_RunTime;
  std::optional<Clock::duration> m_Silence;
  Clock::duration m_Grace;
  Moment m_Start;
  Moment m_LastOutput;
  std::optional<Moment> m_KillAt; // it was asked to end
  std::optional<Moment> m_KilledAt;
  std::optional<Moment> m_RestUntil; // the program has ended
  Moment m_Looked;                   // for what is left
  Ended m_Ended = Ended::ByItself;
  ProcessExit m_Exit;
  bool m_Exited = false;
  bool m_OutputOver = false;
  bool m_SomeLeft = false;
  bool m_StuckNamed = false;
  bool m_Over = false;
};
