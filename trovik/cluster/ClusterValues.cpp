#include "trovik/cluster/ClusterValues.h"

#include "host/application/Constants.h"
#include "host/application/ParameterInfo.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace trovik {
namespace {

constexpr double mostMemory = 1024.0 * 1024 * 1024; // mebibytes: a pebibyte
constexpr double mostMinutes = 366.0 * 24 * 60;
constexpr double checkSeconds = 60;  // for each work's start and the check of its files
constexpr double startSeconds = 240; // for the task

/// Mebibytes of the unit; 0 for an unknown one.
double unitOf(const String& unit) {
  const auto is = [&unit](const char* letter) {
    return unit == letter || unit == String(letter) + "b" || unit == String(letter) + "ib";
  };
  if (unit.empty() || is("m")) {
    return 1;
  }
  return is("g") ? 1024 : is("t") ? 1024 * 1024 : 0;
}

int minutes(double seconds) {
  return static_cast<int>(std::min(std::ceil(seconds / 60), mostMinutes));
}

} // namespace

std::int64_t memoryOf(const std::string& text) {
  const String trimmed = String(text).Trim();
  if (trimmed.empty()) {
    return 0;
  }
  double number = 0;
  const char* const end = trimmed.data() + trimmed.size();
  const auto [rest, error] = std::from_chars(trimmed.data(), end, number, std::chars_format::fixed);
  const double unit = unitOf(String(std::string(rest, end)).Trim().Lower());
  const double memory = std::ceil(number * unit);
  // A word such as "inf" is a number, too.
  if (error != std::errc() || unit == 0 || !(memory <= mostMemory) || !(memory >= 0)) {
    throw UsageError{std::string(p_ClusterMemory) + ": " + inQuotes(text) + " is no amount of memory",
                     "write 500M, 4G or 1T; a number alone is MiB"};
  }
  if (memory == 0) {
    // The cluster would give all that a node has.
    throw UsageError{std::string(p_ClusterMemory) + ": " + inQuotes(text) + " is no memory at all",
                     "leave it empty for the share that belongs to the CPUs of a work"};
  }
  return static_cast<std::int64_t>(memory);
}

int minutesOf(const std::string& timeLimit, double workSeconds, std::size_t worksPerTask) {
  if (const String limit = String(timeLimit).Trim(); !limit.empty()) {
    double seconds = 0;
    if (!ParseDuration(limit, seconds)) {
      throw UsageError{std::string(p_ClusterTimeLimit) + ": " + inQuotes(timeLimit) + " is no duration",
                       "write seconds, or a number with s, m, h or d"};
    }
    return minutes(seconds);
  }
  if (!(workSeconds > 0)) {
    return 0;
  }
  return minutes(static_cast<double>(worksPerTask) * (workSeconds + checkSeconds) + startSeconds);
}

} // namespace trovik
