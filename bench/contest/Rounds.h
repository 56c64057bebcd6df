#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace bench {

/// Programs that are run in turn, round after round, so that what else the
/// machine does meets all of them.
///
/// They are told by a file, a program a line, with tabs between the words:
///
///     also WORD...                       runs it, unmeasured, in its turn
///     time GROUP NAME UNITS WORD...      measures it; its costs are divided by UNITS
///
/// One of a group may have the name "limit": the others have their ratios to it,
/// round by round.
class Rounds {
public:
  /// What programs print is kept in `directory`, in the file `GROUP.NAME`.
  /// Throws std::runtime_error that names the line which is wrong.
  Rounds(const std::string& file, std::string directory);

  /// With more than one, one is run before that does not count. Throws
  /// std::runtime_error where a program does not end well.
  void run(int rounds);

  /// A line for each measured program, with tabs between, and one with the
  /// names of the columns above. Seconds and bytes; each as the median, the
  /// least and the most of all rounds, "-" where there is none.
  std::string table() const;

private:
  struct Program {
    bool measured = false;
    std::string group;
    std::string name;
    double units = 1;
    std::vector<std::string> words;
    std::map<std::string, std::vector<double>> costs; // by column, then round
  };

  static Program parse(const std::string& line, const std::string& place);
  void runOnce(Program& program, bool counts) const;
  const Program* limitOf(const Program& program) const;

  std::string directory_;
  std::vector<Program> programs_;
};

} // namespace bench
