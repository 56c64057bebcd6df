#include "trovik/reports/AttemptTable.h"

#include "trovik/records/Moments.h"
#include "trovik/text/Text.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string_view>
#include <vector>

namespace trovik {
namespace {

std::string field(std::string_view text) {
  if (text.find_first_of(",\"\r\n") == std::string_view::npos) {
    return std::string(text);
  }
  std::string quoted = "\"";
  for (const char character : text) {
    quoted += character == '"' ? "\"\"" : std::string(1, character);
  }
  return quoted + '"';
}

std::string secondsText(double seconds) {
  char text[64];
  std::snprintf(text, sizeof text, "%.3f", seconds);
  return text;
}

std::string numberText(const std::optional<std::int64_t>& number) {
  return number ? std::to_string(*number) : std::string();
}

std::string line(std::vector<std::string> fields) {
  for (std::string& each : fields) {
    each = field(each);
  }
  return joined(fields, ",") + '\n';
}

} // namespace

std::string attemptTableHead() {
  return line({"job", "name", "type", "frames", "attempt", "state", "rule", "exitCode", "signal", "started",
               "seconds", "user", "system", "memory", "read", "written", "reason"});
}

std::string attemptTableRow(const JobRecord& job, const AttemptRecord& attempt) {
  const bool hasUsage = attempt.usage.has_value();
  const ProcessUsage usage = attempt.usage.value_or(ProcessUsage{});
  const auto timeText = [hasUsage](std::int64_t microseconds) {
    return hasUsage ? secondsText(secondsOf(durationOf(std::chrono::microseconds(microseconds))))
                    : std::string();
  };
  return line({std::to_string(job.id), job.name, job.typeName,
               job.hasFrames ? runText(attempt.run) : std::string(), std::to_string(attempt.number),
               nameOf(attempt.state), nameOf(attempt.rule), std::to_string(attempt.exitCode),
               attempt.signal == 0 ? std::string() : std::to_string(attempt.signal),
               secondsText(secondsOf(attempt.started)), secondsText(secondsOf(durationOf(attempt.duration))),
               timeText(usage.UserTime), timeText(usage.SystemTime),
               hasUsage ? std::to_string(usage.PeakMemory) : std::string(), numberText(usage.BytesRead),
               numberText(usage.BytesWritten), attempt.reason});
}

} // namespace trovik
