#include "trovik/page/PageRoute.h"

#include "host/foundation/WholeNumber.h"

#include <array>
#include <string_view>
#include <utility>
#include <vector>

namespace trovik {
namespace {

using Kind = PageRoute::Kind;

std::vector<std::string_view> partsOf(std::string_view path) {
  std::vector<std::string_view> parts;
  std::size_t begin = 1;
  while (begin <= path.size()) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    parts.push_back(path.substr(begin, end - begin));
    begin = end + 1;
  }
  return parts;
}

constexpr std::array<std::pair<std::string_view, Kind>, 4> alone = {
    {{"about", Kind::About}, {"jobs", Kind::Jobs}, {"machine", Kind::Machine}, {"events", Kind::Events}}};

constexpr std::array<std::string_view, 7> actions = {"retry",   "missing", "cancel", "hold",
                                                     "release", "set",     "delete"};

/// "jobs", "files" and "attempts" with a number, and what is behind it.
Kind kindOf(const std::vector<std::string_view>& parts) {
  const std::string_view what = parts[1];
  if (what == "jobs") {
    if (parts.size() == 3) {
      return Kind::Job;
    }
    if (parts.size() == 5 && parts[3] == "frames") {
      return Kind::Frame;
    }
    if (parts.size() == 4) {
      for (const std::string_view action : actions) {
        if (parts[3] == action) {
          return Kind::Steer;
        }
      }
      return parts[3] == "cells" ? Kind::Cells : Kind::Unknown;
    }
  } else if (what == "files" && parts.size() == 4) {
    return parts[3] == "picture" ? Kind::Picture : parts[3] == "original" ? Kind::Original : Kind::Unknown;
  } else if (what == "attempts" && parts.size() == 4 && parts[3] == "log") {
    return Kind::Log;
  }
  return Kind::Unknown;
}

} // namespace

PageRoute routeOf(const std::string& path) {
  const std::vector<std::string_view> parts = partsOf(path);
  if (parts.empty() || parts[0] != "api") {
    return {};
  }
  if (parts.size() == 2) {
    for (const auto& [name, kind] : alone) {
      if (parts[1] == name) {
        return {kind, 0, std::nullopt, {}};
      }
    }
  }
  PageRoute route{Kind::Unknown, 0, std::nullopt, {}};
  if (parts.size() < 3) {
    return route;
  }
  const Kind kind = kindOf(parts);
  const auto number = ReadWholeNumber<std::int64_t>(parts[2]);
  if (!number || *number <= 0) {
    return route;
  }
  if (kind == Kind::Frame && parts[4] != "work") {
    route.frame = ReadWholeNumber<int>(parts[4]);
    if (!route.frame) {
      return route;
    }
  }
  route.kind = kind;
  route.number = *number;
  route.action = kind == Kind::Steer ? std::string(parts[3]) : std::string();
  return route;
}

} // namespace trovik
