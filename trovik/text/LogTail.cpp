#include "trovik/text/LogTail.h"

#include <algorithm>

namespace trovik {

namespace {

bool isBlank(std::string_view line) {
  return line.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

} // namespace

void LogTail::keep(std::string_view line) const {
  if (isBlank(line)) {
    return;
  }
  std::string& place = ring_[added_ % lastLines];
  place.assign(line.substr(0, lineLimit));
  if (line.size() > lineLimit) {
    place += "…";
  }
  ++added_;
}

void LogTail::cut() const {
  uncut_.Cut([this](std::string_view line) { keep(line); });
}

void LogTail::add(std::string_view line) {
  if (wanted_ == 0) {
    uncut_.AddLine(line, [this](std::string_view last) { keep(last); });
  } else if (!isBlank(line)) {
    keep(line);
    around_.push_back(ring_[(added_ - 1) % lastLines]);
    --wanted_;
  }
}

void LogTail::addLines(std::string_view lines) {
  while (wanted_ > 0 && !lines.empty()) {
    add(TakeFirstLine(lines));
  }
  uncut_.Add(lines, [this](std::string_view line) { keep(line); });
}

void LogTail::markDeciding() {
  cut();
  if (around_.empty() && added_ > 0) {
    around_ = ring(linesBefore + 1);
    wanted_ = linesAfter;
  }
}

std::vector<std::string> LogTail::lines() const {
  cut();
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
