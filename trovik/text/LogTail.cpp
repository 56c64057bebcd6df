#include "trovik/text/LogTail.h"

#include "host/foundation/LineSplitter.h"

#include <algorithm>

namespace trovik {

void LogTail::add(std::string_view line) {
  if (line.find_first_not_of(" \t\r\n") == std::string_view::npos) {
    return;
  }
  std::string& place = ring_[added_ % lastLines];
  place.assign(line.substr(0, lineLimit));
  if (line.size() > lineLimit) {
    place += "…";
  }
  ++added_;
  if (wanted_ > 0) {
    around_.push_back(place);
    --wanted_;
  }
}

void LogTail::addLines(std::string_view lines) {
  while (wanted_ > 0 && !lines.empty()) {
    add(TakeFirstLine(lines));
  }
  std::array<std::string_view, lastLines> last;
  const std::size_t count = FindLastLines(lines, last);
  for (std::size_t i = 0; i < count; ++i) {
    add(last[i]);
  }
}

void LogTail::markDeciding() {
  if (around_.empty() && added_ > 0) {
    around_ = ring(linesBefore + 1);
    wanted_ = linesAfter;
  }
}

std::vector<std::string> LogTail::lines() const {
  return around_.empty() ? ring(lastLines) : around_;
}

std::vector<std::string> LogTail::ring(std::size_t count) const {
  std::vector<std::string> result;
  for (std::size_t i = added_ - std::min({count, added_, lastLines}); i < added_; ++i) {
    result.push_back(ring_[i % lastLines]);
  }
  return result;
}

} // namespace trovik
