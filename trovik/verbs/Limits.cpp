#include "trovik/verbs/Limits.h"

#include "host/application/Application.h"
#include "host/application/Constants.h"
#include "host/application/jobs/ProcessJob.h"
#include "host/foundation/WholeNumber.h"
#include "trovik/jobs/JobSetup.h"
#include "trovik/text/Amounts.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <algorithm>

namespace trovik {
namespace {

constexpr const char* limitsSection = "Limits";
constexpr double mostPacketTime = 100.0 * 24 * 3600; // seconds

void sortByName(std::vector<LimitShare>& shares) {
  std::sort(shares.begin(), shares.end(),
            [](const LimitShare& one, const LimitShare& other) { return one.name < other.name; });
}

const LimitShare* find(const std::vector<LimitShare>& shares, const std::string& name) {
  const auto found =
      std::find_if(shares.begin(), shares.end(), [&](const LimitShare& one) { return one.name == name; });
  return found == shares.end() ? nullptr : &*found;
}

} // namespace

std::vector<LimitShare> limitsInSettings() {
  std::vector<LimitShare> limits;
  for (const IniFile::EntryView& entry : Application::the_Application->Settings().Entries(limitsSection)) {
    LimitShare limit;
    limit.name = String(entry.Key).Lower();
    const std::string text(trimmed(std::string(entry.Value)));
    const auto amount = ReadWholeNumber<int>(text);
    if (!isLimitName(limit.name) || !amount || *amount < 0 || *amount > mostOfALimit) {
      throw UsageError{"settings, section [Limits]: " + inQuotes(std::string(entry.Key) + '=' + text) +
                           " is no limit",
                       "write a name and how much there is of it: renderer=2"};
    }
    limit.amount = *amount;
    if (find(limits, limit.name) == nullptr) {
      limits.push_back(std::move(limit));
    }
  }
  sortByName(limits);
  return limits;
}

void tellLimits(Queue& queue) {
  if (const std::vector<LimitShare> limits = limitsInSettings(); !limits.empty()) {
    queue.setLimits(limits);
  }
}

std::vector<LimitShare> knownLimits(Queue* queue) {
  std::vector<LimitShare> known = limitsInSettings();
  if (known.empty() && queue != nullptr) {
    for (const LimitStand& limit : queue->limits()) {
      known.push_back({limit.name, limit.amount});
    }
  }
  return known;
}

std::vector<LimitShare> sharesOf(const std::string& text, const std::vector<LimitShare>& known) {
  std::vector<LimitShare> shares;
  const std::string title = std::string(p_Limits) + ": ";
  for (const auto& [name, amount] : amountsOf(p_Limits, text)) {
    const LimitShare* limit = find(known, name);
    if (limit == nullptr) {
      throw UsageError{title + "there is no limit " + inQuotes(name),
                       "the settings tell how much there is: " + name + "=2 in the section [Limits]"};
    }
    if (amount > limit->amount) {
      throw UsageError{title + "a work takes " + std::to_string(amount) + " of " + inQuotes(name) +
                           ", of which there " + (limit->amount == 1 ? "is " : "are ") +
                           std::to_string(limit->amount),
                       "no work could ever begin"};
    }
    shares.push_back({name, amount});
  }
  return shares;
}

PacketRule packetRuleOf(const Job& job) {
  PacketRule rule;
  rule.automatic = isAutoPacket(effectiveValue(job, p_PacketSize));
  const auto microseconds = [](double seconds) {
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::duration<double>(seconds));
  };
  double seconds = 0;
  const std::string time(trimmed(effectiveValue(job, p_PacketTime)));
  if (!time.empty() && ParseDuration(time, seconds) && seconds >= 1) {
    rule.time = microseconds(std::min(seconds, mostPacketTime));
  } else if (!time.empty() && rule.automatic) {
    throw UsageError{std::string(p_PacketTime) + ": " + inQuotes(time) + " is no time from a second on",
                     "write seconds, or a number with s, m, h or d"};
  }
  if (const auto* process = dynamic_cast<const ProcessJob*>(&job); process != nullptr && rule.automatic) {
    const double limit = orRefuse("", "", [&] { return process->RunTimeLimit(); });
    rule.most = microseconds(std::min(limit, mostPacketTime) / 2);
  }
  return rule;
}

bool isAutoPacket(const std::string& text) {
  return String::EqualNoCase(trimmed(text), k_AutoPacket);
}

std::int64_t neededMemory(const std::string& text) {
  return memoryOf(p_Memory, text, "to have it learned") << 20;
}

} // namespace trovik
