#pragma once

#include "trovik/records/Records.h"
#include "trovik/records/RunSet.h"
#include "trovik/text/Json.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace trovik {

/// A program and the frames of a job that it rendered.
struct ProgramShare {
  std::string program; ///< its path, whose folder mostly tells the version
  RunSet frames;       ///< empty for a job without frames
};

/// The programs that rendered what is good of a job. More than one where another
/// version was installed meanwhile, or machines differ.
class JobPrograms {
public:
  explicit JobPrograms(bool hasFrames) : hasFrames_(hasFrames) {}

  /// The attempts of the job in their order. Of a good one twelve bytes are kept, of
  /// those that go on where the one before ended none.
  void add(const AttemptRecord& attempt);
  /// In the order of their first attempts; a frame counts for the one that
  /// rendered it last.
  std::vector<ProgramShare> shares() const;

private:
  /// As the commands begin that run it.
  struct Program {
    std::string word;
    std::string path;
  };
  struct Rendered {
    std::uint32_t program = 0; ///< its place
    FrameRun frames;
  };

  std::optional<std::uint32_t> placeOf(const std::string& command);
  bool continues(std::uint32_t program, const FrameRun& run) const;

  bool hasFrames_;
  std::vector<Program> programs_;
  std::vector<Rendered> rendered_; ///< in the order of attempts
};

/// "rendered by 2 programs: "/opt/paint-1/paint" (1-3), "/opt/paint-2/paint" (4)".
std::string programsText(const std::vector<ProgramShare>& programs);

/// An array of `program` and `frames` (null for a job without).
Json programsJson(const JobRecord& job, const std::vector<ProgramShare>& programs);

} // namespace trovik
