#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace bench {

/// What something took, in seconds.
struct Cost {
  double wall = 0;
  double cpu = 0;    ///< user and system time, of the children too where it is a program
  double own = 0;    ///< without the children
  double memory = 0; ///< the most that a program or one of its children held, in bytes
};

/// Measures this process from its construction on.
class Stopwatch {
public:
  Stopwatch();
  Cost stop() const;

private:
  Cost start_;
};

/// Runs a program to its end, with the variables set and its output in a file
/// (or /dev/null where the name is empty). Throws unless it exits with 0.
Cost runProgram(const std::vector<std::string>& arguments,
                const std::vector<std::pair<std::string, std::string>>& environment = {},
                const std::string& output = {});

/// Runs contestants in turn, round after round, so that what else happens on
/// the machine meets all of them.
class Race {
public:
  using Contestant = std::function<Cost()>;

  /// Returns the contestant's number.
  std::size_t enter(Contestant contestant);

  /// One round to warm up, then those that count.
  void run(int rounds);

  double median(std::size_t contestant, double Cost::*what) const;
  /// The median of the ratios of every single round; 0 where the limit took
  /// less than can be told.
  double ratio(std::size_t contestant, std::size_t limit, double Cost::*what) const;
  /// Those ratios, from the smallest on; none then.
  std::vector<double> ratios(std::size_t contestant, std::size_t limit, double Cost::*what) const;

private:
  std::vector<Contestant> contestants_;
  std::vector<std::vector<Cost>> costs_; // by contestant, then round
};

/// A line of the table.
struct Row {
  std::string path;
  std::string limit;
  std::string ours;
  std::string ratio; ///< of wall times, with its bounds
  std::string cpu;   ///< of CPU times: what other load disturbs least
  std::string target;
  bool reached = false;
};

/// "12.3 ms", "1.25": as few digits as tell something.
std::string timeText(double seconds);
std::string ratioText(double ratio);
std::string ratioText(const Race& race, std::size_t ours, std::size_t limit, double Cost::*what);

/// The row of a race whose target is a ratio of wall time. What the ratios were
/// at least and at most goes to standard error.
Row ratioRow(const std::string& path, const Race& race, std::size_t ours, std::size_t limit, double target);

/// The row of a memory: its median of a race, in place of a time.
Row memoryRow(const std::string& path, const Race& race, std::size_t ours, double most);

/// The table as text that is also Markdown.
std::string tableText(const std::vector<Row>& rows);

/// How the whole is measured.
struct Setup {
  std::string directory; ///< for inputs; empty at first
  int rounds = 7;
  /// Inputs of a hundredth: tells that everything works, measures nothing.
  bool quick = false;
};

// The hot paths; each makes its inputs, races and returns its rows. They throw
// std::runtime_error when an answer is wrong.
std::vector<Row> dispatchRows(const Setup& setup);
std::vector<Row> lineRows(const Setup& setup);
std::vector<Row> lineCurveRows(const Setup& setup);
std::vector<Row> sequenceRows(const Setup& setup);
std::vector<Row> coldSequenceRows(const Setup& setup); ///< with caches emptied; for the administrator
std::vector<Row> loadingRows(const Setup& setup);
std::vector<Row> expansionRows(const Setup& setup);
std::vector<Row> missingRows(const Setup& setup);
std::vector<Row> memoryRows(const Setup& setup);
std::vector<Row> newestRows(const Setup& setup);
std::vector<Row> startRows(const Setup& setup);
std::vector<Row> unchangedRows(const Setup& setup);
std::vector<Row> imageRows(const Setup& setup);
std::vector<Row> imageCoreRows(const Setup& setup);

/// Throws std::runtime_error with the message unless the condition holds.
void require(bool condition, const std::string& message);

} // namespace bench
