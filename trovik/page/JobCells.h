#pragma once

#include "trovik/images/ImageInspector.h"
#include "trovik/machine/Machine.h"
#include "trovik/page/ServedFile.h"
#include "trovik/queue/JobFiles.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace trovik {

// How the frames of a job stand, as one letter each:
//
//   g good      m good, but its file is gone    d good, but its file is damaged
//   f failed    w waiting   c canceled          r running
//   R running, and the program has named its file already

/// The letters of a job's frames, at most `cells` of them: where there are more
/// frames than cells, each letter is the one of its share that matters most, in
/// the order f d r m w g c. Files are not asked about.
std::string stripOf(const JobView& view, std::size_t cells);

/// What has become of files since they were good, kept for a while: a page asks
/// again and again, and a folder may lie on a slow server. A file that is not
/// what it was then is checked whole, once for each of its changes, as long as
/// there is time; until then it counts as good.
class FileStates {
public:
  enum class State { There, Gone, Damaged };
  struct Fact {
    State state = State::There;
    std::string problem; ///< of a damaged one
  };
  explicit FileStates(ImageInspector& inspector, Duration patience = std::chrono::seconds(10))
      : inspector_(inspector), patience_(patience) {}

  /// Forgets what was asked too long ago, and says until when files may be checked.
  void begin(Clock::time_point now, Clock::time_point checkUntil);
  Fact of(const FileRecord& file, Clock::time_point now);

private:
  struct Known {
    Fact fact;
    Clock::time_point asked;
  };
  struct Checked {
    FileIdentity identity;
    Fact fact;
  };
  Fact check(const FileRecord& file, const FileIdentity& identity);

  ImageInspector& inspector_;
  Duration patience_;
  Clock::time_point checkUntil_{};
  std::map<std::int64_t, Known> known_;
  std::map<std::int64_t, Checked> checked_; ///< of files that are not what they were
};

/// One cell a frame, in ascending order; of a job without frames one.
struct JobCells {
  std::vector<int> frames; ///< none of a job without
  std::string states;
  std::vector<std::int64_t> files; ///< the number of the file that shows it; 0 for none
  std::vector<double> seconds;     ///< that the frame took in the attempt that made it good; 0 for none
  std::map<std::size_t, std::string> problems; ///< of damaged files, by their cell
};
JobCells cellsOf(Queue& queue, const JobView& view, FileStates& states, Clock::time_point now);

/// The frames of a job that failed or were canceled, or whose file is not there
/// or not good any more. What waits or runs is being done.
RunSet missingFrames(const JobCells& cells);

} // namespace trovik
