#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace trovik {

/// What a path asks for. Its numbers are looked up; nothing else of it is used.
struct PageRoute {
  enum class Kind {
    Site, ///< perhaps a file of the page
    About,
    Jobs,
    Job,
    Cells,
    Frame,
    Picture,
    Original,
    Log,
    Machine,
    Events,
    Steer,
    Unknown, ///< below /api, and nothing of that name
  };
  Kind kind = Kind::Site;
  std::int64_t number = 0;  ///< of the job, file or attempt
  std::optional<int> frame; ///< nothing for the work of a job without frames
  std::string action;       ///< of Steer
};

PageRoute routeOf(const std::string& path);

} // namespace trovik
