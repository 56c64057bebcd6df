#include "trovik/records/Records.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace trovik {
namespace {

// In the order of the enumerations.
constexpr std::array jobStates = {"waiting", "running", "good", "failed", "canceled", "stopped"};
constexpr std::array workStates = {"ready", "running", "good", "failed", "canceled", "waiting"};
constexpr std::array attemptStates = {"running", "good", "failed", "canceled", "lost"};
constexpr std::array rules = {"none",   "canceled", "run time limit", "silence limit", "start",  "error line",
                              "signal", "result",   "files",          "engine",        "cluster"};
constexpr std::array arrayStates = {"prepared", "submitted", "over"};
constexpr std::array runOns = {"local", "cluster"};

template <typename Names, typename Value> bool find(const Names& names, std::string_view name, Value& value) {
  for (std::size_t place = 0; place < names.size(); ++place) {
    if (names[place] == name) {
      value = static_cast<Value>(place);
      return true;
    }
  }
  return false;
}

template <typename Names, typename Value> const char* nameIn(const Names& names, Value value) {
  return names.at(static_cast<std::size_t>(value));
}

} // namespace

const char* nameOf(JobState state) {
  return nameIn(jobStates, state);
}
const char* nameOf(WorkState state) {
  return nameIn(workStates, state);
}
const char* nameOf(AttemptState state) {
  return nameIn(attemptStates, state);
}
const char* nameOf(VerdictRule rule) {
  return nameIn(rules, rule);
}
const char* nameOf(RunOn runOn) {
  return nameIn(runOns, runOn);
}

bool fromName(std::string_view name, JobState& state) {
  return find(jobStates, name, state);
}
bool fromName(std::string_view name, WorkState& state) {
  return find(workStates, name, state);
}
bool fromName(std::string_view name, AttemptState& state) {
  return find(attemptStates, name, state);
}
bool fromName(std::string_view name, VerdictRule& rule) {
  return find(rules, name, rule);
}
bool fromName(std::string_view name, RunOn& runOn) {
  return find(runOns, name, runOn);
}
bool fromName(std::string_view name, ArrayRecord::State& state) {
  return find(arrayStates, name, state);
}

std::vector<FrameRun> cutAnew(const std::vector<FrameRun>& works, int packet) {
  std::vector<FrameRun> result;
  for (const FrameRun& run : works) {
    // As far as the one before has room for them, what follows it joins it.
    std::int64_t first = run.First;
    while (first <= run.Last) {
      const bool joins =
          !result.empty() && std::int64_t{result.back().Last} + 1 == first && result.back().Count() < packet;
      if (!joins) {
        result.push_back({static_cast<int>(first), static_cast<int>(first)});
      }
      FrameRun& last = result.back();
      const std::int64_t end = std::min<std::int64_t>(run.Last, std::int64_t{last.First} + packet - 1);
      last.Last = static_cast<int>(end);
      first = end + 1;
    }
  }
  return result;
}

std::string foreignJobText(JobId job) {
  return "it came with a copy of another queue, or of an older trovik; if you know what it starts, \"trovik "
         "retry " +
         std::to_string(job) + "\" makes it your own";
}

} // namespace trovik
