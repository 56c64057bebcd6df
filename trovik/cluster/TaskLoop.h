#pragma once

#include "trovik/cluster/JobFolder.h"
#include "trovik/cluster/TaskGuard.h"
#include "trovik/images/ImageInspector.h"
#include "trovik/machine/Interrupts.h"
#include "trovik/works/Attempt.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace trovik {

/// The patience of a task with everything around it.
struct TaskTimes {
  Duration beat = std::chrono::seconds(5);             ///< between two beats
  Duration leastBeat = std::chrono::seconds(1);        ///< even where there is news
  Duration watch = std::chrono::seconds(2);            ///< between two checks of another process
  Duration ending = std::chrono::milliseconds(1500);   ///< from asking a program to end to killing it
  Duration checking = std::chrono::seconds(3);         ///< from an interrupt to the verdict
  Duration aftermath = std::chrono::milliseconds(300); ///< for the interrupt that a program died of, too
  Duration orphans = std::chrono::seconds(10);         ///< for programs of a dead process to be gone
  Duration again = std::chrono::seconds(2);    ///< until a result that could not be written is tried again
  Duration shortage = std::chrono::minutes(1); ///< for a machine without processes to have one
};

/// What goes on beside the work of a task: its process waits for whatever
/// comes first, hears who wants it to end, gives signs of life, and sees
/// whether the work is still its own. For one thread.
class TaskLoop {
public:
  /// Why the work at hand is not gone on with.
  enum class Stop { No, Canceled, Interrupted, Superseded };

  /// All must outlive the loop; the guard may be null.
  TaskLoop(const ArrayFolder& folder, Machine& machine, ImageInspector& inspector,
           InterruptSource& interrupts, TaskGuard* guard, const TaskTimes& times);
  ~TaskLoop();
  TaskLoop(const TaskLoop&) = delete;
  TaskLoop& operator=(const TaskLoop&) = delete;

  /// After so long without a beat this process counts as dead.
  void setPatience(std::chrono::seconds patience);
  /// The work at this position is at hand, and not claimed by this process.
  void approach(std::size_t position);
  /// It is, by this claim: from now on there are beats. Returns the last beat
  /// of the process before.
  std::optional<WorkBeat> begin(int claim);

  /// One wait for whatever comes first, and what follows from it; at most
  /// until then.
  void turn(Attempt* attempt = nullptr, std::optional<Clock::time_point> until = std::nullopt);
  void pause(Duration time) { turn(nullptr, machine_.now() + time); }

  /// A program with this mark is about to run, and has ended.
  void beginProgram(const std::string& mark);
  void endProgram();
  /// What files were there before it was started, for whoever comes after this
  /// process; of all programs of the work the first one's counts.
  void noteFilesBefore(std::string text);
  /// A file that is named for whoever comes after this process.
  void note(FileRecord file);
  void setNoted(std::vector<FileRecord> files) { noted_ = std::move(files); }
  const std::vector<FileRecord>& noted() const { return noted_; }
  /// A beat where one is due: for what takes long without turns.
  void beatWhenDue();
  /// There is news: a beat as soon as one may be.
  void beatSoon();

  /// The cluster or a user wants the task to end.
  bool isEnding() const { return ending_; }
  Stop stopped() const { return stop_; }
  /// This process stood still for so long that it counted as dead, since the
  /// last program began.
  bool hasStalled() const { return stalled_; }
  /// Another process has the work, or it has an end: nothing is left of it
  /// for this one.
  void supersede(Attempt* attempt = nullptr);
  /// Whether this process is still the one that may write. Where that cannot
  /// be known there is no hurry; but with no time left it is not.
  bool isMine();

  /// Checks files until there is no time left; from then on each has a
  /// problem, so that the work is judged at once.
  ImageInspector& inspector();

private:
  class HurriedInspector;

  bool seemsMine() const;
  void takeInterrupts(Attempt* attempt);
  void checkClaim(Attempt* attempt);
  void stop(Stop why, Attempt* attempt);
  void noteEnd(Attempt& attempt);
  void beat(const Attempt* attempt);

  const ArrayFolder& folder_;
  Machine& machine_;
  InterruptSource& interrupts_;
  TaskGuard* guard_;
  TaskTimes times_;
  Duration patience_{};
  std::unique_ptr<HurriedInspector> inspector_;

  bool ending_ = false;
  Stop stop_ = Stop::No;
  std::optional<Clock::time_point> killAt_;
  std::optional<Clock::time_point> hurryAt_;

  // The work at hand.
  std::size_t position_ = 0;
  int claim_ = 0; // 0 until it is claimed
  WorkBeat beat_; // the last one
  std::vector<FileRecord> noted_;
  Clock::time_point nextBeat_{};
  Clock::time_point lastBeat_{};
  Clock::time_point lastTurn_{};
  bool stalled_ = false;
  bool beatFails_ = false; // and there was a warning
};

} // namespace trovik
