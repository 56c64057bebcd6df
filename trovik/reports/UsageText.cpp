#include "trovik/reports/UsageText.h"

#include "host/foundation/Bytes.h"
#include "trovik/records/Moments.h"
#include "trovik/text/Text.h"

#include <chrono>

namespace trovik {

std::string usageText(const ProcessUsage& usage) {
  // Cut before they are added: the numbers come from a file, which may hold any.
  const Duration time = durationOf(std::chrono::microseconds(usage.UserTime)) +
                        durationOf(std::chrono::microseconds(usage.SystemTime));
  std::string text = durationText(time) + " of processors, " + BytesText(usage.PeakMemory) + " of memory";
  if (usage.BytesRead) {
    text += ", read " + BytesText(*usage.BytesRead);
  }
  if (usage.BytesWritten) {
    text += ", wrote " + BytesText(*usage.BytesWritten);
  }
  return text;
}

Json usageJson(const std::optional<ProcessUsage>& usage) {
  if (!usage) {
    return nullptr;
  }
  const auto seconds = [](std::int64_t microseconds) {
    return secondsOf(durationOf(std::chrono::microseconds(microseconds)));
  };
  const auto bytes = [](const std::optional<std::int64_t>& number) {
    return number ? Json(*number) : Json(nullptr);
  };
  return {{"user", seconds(usage->UserTime)},
          {"system", seconds(usage->SystemTime)},
          {"memory", usage->PeakMemory},
          {"read", bytes(usage->BytesRead)},
          {"written", bytes(usage->BytesWritten)}};
}

} // namespace trovik
