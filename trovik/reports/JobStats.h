#pragma once

#include "trovik/records/Moments.h"
#include "trovik/records/Records.h"
#include "trovik/reports/CoveredTime.h"
#include "trovik/reports/JobPrograms.h"
#include "trovik/text/Console.h"
#include "trovik/text/Json.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace trovik {

/// Reckons what rendering took, and what of it was in vain, from the attempts
/// that have ended. A work without frames counts as one frame.
///
/// There may be millions of attempts, so none is kept: of each stay what medians
/// are made of, its time and its memory, of eight bytes each.
class JobStats {
public:
  /// The slots of an engine; 0 for a cluster.
  using SlotsOf = std::function<std::size_t(EngineId engine)>;

  /// Hands the attempts of a job, in the order of their start, to what takes them.
  using Attempts = std::function<void(const std::function<void(const AttemptRecord& attempt)>& take)>;

  void add(const JobRecord& job, const Attempts& attempts);

  bool empty() const { return attempts_ == 0; }
  /// `several`: of more than one job, so that frames are told with theirs.
  std::string text(const SlotsOf& slots, bool several) const;
  /// Fills what the document of the verb holds.
  void fill(Json& document, const SlotsOf& slots) const;

private:
  struct Timed {
    TimedFrames time;
    JobId job = 0;
    std::string frames;
  };
  /// When the programs of an engine ran.
  struct Work {
    CoveredTime covered;
    Duration busy{}; ///< of all together
  };
  struct Mixed {
    JobRecord job;
    std::vector<ProgramShare> programs;
  };
  /// What the programs of all attempts have used, where that is known.
  struct Used {
    ProcessUsage sum{};              ///< of its memory the most
    Duration time{};                 ///< that they ran
    std::string most;                ///< the frames of the one with the most memory
    JobId job = 0;                   ///< and their job
    std::int64_t least = 0;          ///< of the memory
    std::deque<std::int64_t> memory; ///< of each; none where nothing is known
  };
  struct Use {
    Duration busy{};       ///< of all programs together
    Duration capacity{};   ///< slots times the time in which any of theirs ran
    Duration wall{};       ///< in which anything ran at all
    std::size_t slots = 0; ///< the most that engines had at one time
  };

  void count(const JobRecord& job, const AttemptRecord& attempt);
  void countFrames(const JobRecord& job, const AttemptRecord& attempt);
  void noteTime(const JobRecord& job, const AttemptRecord& attempt, const TimedFrames& time);
  void countUsage(const JobRecord& job, const AttemptRecord& attempt);
  std::int64_t medianMemory() const;
  /// Frames by their time, in steps of a round length; none where there are few
  /// or all took the same.
  struct Step {
    Duration from{};
    Duration to{};
    std::size_t frames = 0;
  };
  std::vector<Step> histogram() const;
  Duration median() const;
  Duration mean() const;
  Duration inVain() const { return failed_ + canceled_ + lost_; }
  Use use(const SlotsOf& slots) const;

  std::size_t jobs_ = 0;
  std::size_t attempts_ = 0;
  std::size_t frames_ = 0; // that became good
  // A frame's time in each good attempt, by how many frames that had. In deques,
  // which do not take twice their room when they grow.
  std::map<std::size_t, std::deque<Duration>> times_;
  std::size_t timed_ = 0;        // good attempts
  double timeSum_ = 0;           // of their frames
  double timedFrames_ = 0;       // the same, counted
  std::vector<Timed> slowest_;   // a few, the slowest first
  std::optional<Timed> fastest_; // the last one of several
  Duration good_{};
  Duration failed_{};
  Duration canceled_{};
  Duration lost_{};
  std::map<EngineId, Work> engines_;
  Used used_;
  std::vector<Mixed> mixed_; // jobs that several programs rendered
};

} // namespace trovik
