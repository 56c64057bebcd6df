#include "trovik/cluster/SlurmAnswers.h"

#include "trovik/text/Text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <string_view>

// What Slurm's programs print. Their output and their errors come through one
// pipe, so every line may be a message. All answers are taken apart by hand:
// a site has ten thousand tasks and is asked again and again.

namespace trovik {
namespace {

constexpr std::size_t problemWidth = 300;

/// Calls `action` with each line, without its line feed; stops when that says false.
template <typename Action> void forEachLine(std::string_view text, Action action) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    if (!action(text.substr(0, end))) {
      return;
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

template <typename Number> bool readNumber(std::string_view text, Number& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() && number >= 0;
}

bool holds(std::string_view text, std::string_view part) {
  const auto same = [](char a, char b) { return (a >= 'A' && a <= 'Z' ? a - 'A' + 'a' : a) == b; };
  return std::search(text.begin(), text.end(), part.begin(), part.end(), same) != text.end();
}

template <std::size_t count>
bool holdsAny(std::string_view text, const std::array<std::string_view, count>& parts) {
  return std::any_of(parts.begin(), parts.end(), [text](std::string_view part) { return holds(text, part); });
}

TaskPhase phaseOf(std::string_view state) {
  struct Named {
    std::string_view name;
    TaskPhase phase;
  };
  static constexpr std::array<Named, 24> phases = {{
      {"PENDING", TaskPhase::Waiting},      {"CONFIGURING", TaskPhase::Waiting},
      {"REQUEUED", TaskPhase::Waiting},     {"REQUEUE_FED", TaskPhase::Waiting},
      {"REQUEUE_HOLD", TaskPhase::Waiting}, {"RESV_DEL_HOLD", TaskPhase::Waiting},
      {"SPECIAL_EXIT", TaskPhase::Waiting}, {"RUNNING", TaskPhase::Active},
      {"COMPLETING", TaskPhase::Active},    {"SUSPENDED", TaskPhase::Active},
      {"STOPPED", TaskPhase::Active},       {"SIGNALING", TaskPhase::Active},
      {"RESIZING", TaskPhase::Active},      {"STAGE_OUT", TaskPhase::Active},
      {"COMPLETED", TaskPhase::Over},       {"FAILED", TaskPhase::Over},
      {"CANCELLED", TaskPhase::Over},       {"TIMEOUT", TaskPhase::Over},
      {"OUT_OF_MEMORY", TaskPhase::Over},   {"DEADLINE", TaskPhase::Over},
      {"NODE_FAIL", TaskPhase::Retry},      {"BOOT_FAIL", TaskPhase::Retry},
      {"PREEMPTED", TaskPhase::Retry},      {"REVOKED", TaskPhase::Retry},
  }};
  const auto found =
      std::find_if(phases.begin(), phases.end(), [state](const Named& named) { return named.name == state; });
  return found == phases.end() ? TaskPhase::Unknown : found->phase;
}

/// A line of squeue: "36_4|PENDING|0|JobArrayTaskLimit|0|NODES". The reason may
/// be anything, so what stands behind it is counted from the end.
enum class LineKind { Task, Other, Odd };
LineKind readTask(std::string_view line, ClusterTask& task) {
  std::array<std::size_t, 5> bars{};
  std::size_t from = 0;
  for (std::size_t i = 0; i < 3; ++i) {
    bars[i] = line.find('|', from);
    if (bars[i] == std::string_view::npos) {
      return LineKind::Odd;
    }
    from = bars[i] + 1;
  }
  bars[4] = line.rfind('|');
  bars[3] = line.rfind('|', bars[4] - 1);
  if (bars[3] <= bars[2]) {
    return LineKind::Odd;
  }
  const auto field = [line, &bars](std::size_t i) {
    return trimmed(line.substr(bars[i] + 1, (i + 1 < bars.size() ? bars[i + 1] : line.size()) - bars[i] - 1));
  };
  const std::string_view id = trimmed(line.substr(0, bars[0]));
  const std::size_t split = id.find('_');
  std::int64_t array = 0;
  if (!readNumber(id.substr(0, split), array) || array == 0) {
    return LineKind::Odd;
  }
  const std::string_view state = field(0);
  if (state.empty() || state.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ_") != std::string_view::npos ||
      !readNumber(field(1), task.waitStatus) || !readNumber(field(3), task.restarts)) {
    return LineKind::Odd;
  }
  if (split == std::string_view::npos) {
    return LineKind::Other;
  }
  if (!readNumber(id.substr(split + 1), task.index)) {
    return LineKind::Odd;
  }
  const auto textOf = [](std::string_view text) {
    return text == "None" || text == "(null)" || text == "n/a" ? std::string() : std::string(text);
  };
  task.array = array;
  task.state = state;
  task.phase = phaseOf(state);
  task.reason = textOf(field(2));
  task.node = textOf(field(4));
  return LineKind::Task;
}

/// A message that says nothing about whether the answer is whole.
bool isRemark(std::string_view line) {
  for (const std::string_view start : {"squeue: info:", "squeue: debug", "squeue: warning:", "CLUSTER: "}) {
    if (line.starts_with(start)) {
      return true;
    }
  }
  return trimmed(line).empty();
}

/// "123", "123;cluster" or "Submitted batch job 123": the number, else 0.
std::int64_t submittedNumber(std::string_view line) {
  constexpr std::string_view words = "Submitted batch job ";
  line = trimmed(line);
  if (line.starts_with(words)) {
    line.remove_prefix(words.size());
    line = line.substr(0, line.find(' '));
  }
  std::int64_t number = 0;
  return readNumber(line.substr(0, line.find(';')), number) ? number : 0;
}

// What may be over in a while, or leaves open what became of the submission.
constexpr std::array<std::string_view, 15> passing = {
    "contact",
    "connect",
    "timed out",
    "temporarily",
    "communication",
    "receiv",
    "authentication",
    "munge",
    "standby",
    "i/o error",
    "unspecified",
    "submitjob",
    "slurm.conf",
    "configuration source",
    "unexpected message",
};

// Complaints of sbatch about its own arguments, which never reach the controller.
constexpr std::array<std::string_view, 9> complaints = {
    "batch job submission failed:",
    "invalid ",
    "unrecognized",
    "ambiguous",
    "requires an argument",
    "mutually exclusive",
    "not permitted",
    "unable to open file",
    "does not look like a batch script",
};

} // namespace

std::string slurmProblem(std::string_view output) {
  std::vector<std::string> lines;
  forEachLine(output, [&lines](std::string_view line) {
    // "sbatch: error: Invalid --mem specification": the program is named by the caller.
    for (const std::string_view program : {"sbatch: ", "squeue: ", "scancel: ", "scontrol: ", "sinfo: "}) {
      if (line.starts_with(program)) {
        line.remove_prefix(program.size());
      }
    }
    for (const std::string_view level : {"error: ", "fatal: "}) {
      if (line.starts_with(level)) {
        line.remove_prefix(level.size());
      }
    }
    std::string text = printable(trimmed(line), OddBytes::Show);
    if (!text.empty() && !text.starts_with("Try \"") &&
        std::find(lines.begin(), lines.end(), text) == lines.end()) {
      lines.push_back(std::move(text));
    }
    return lines.size() < 4;
  });
  return cutToWidth(joined(lines, "; "), problemWidth);
}

std::optional<std::vector<ClusterTask>> readTasks(std::string_view output, std::string& problem) {
  std::vector<ClusterTask> tasks;
  bool whole = true;
  forEachLine(output, [&](std::string_view line) {
    ClusterTask task;
    switch (readTask(line, task)) {
    case LineKind::Task:
      tasks.push_back(std::move(task));
      break;
    case LineKind::Other:
      // What was canceled before it began is given as one job, "36|CANCELLED",
      // without the indices: those tasks are named no more.
      break;
    case LineKind::Odd:
      whole = isRemark(line);
      if (!whole) {
        problem = "squeue said " + inQuotes(cutToWidth(line.substr(0, problemWidth * 4), problemWidth));
      }
      break;
    }
    return whole;
  });
  // The last line has its line feed, unless the output was cut.
  if (whole && !output.empty() && output.back() != '\n') {
    whole = false;
    problem = "the answer of squeue is cut";
  }
  return whole ? std::optional(std::move(tasks)) : std::nullopt;
}

void readSubmission(std::string_view output, const ProcessExit& exit, ClusterAnswer& answer) {
  if (exit.Signal != 0) {
    answer.problem = "sbatch was killed by signal " + std::to_string(exit.Signal);
    return;
  }
  const std::string said = slurmProblem(output);
  if (exit.Code == 0) {
    forEachLine(output, [&answer](std::string_view line) {
      answer.array = submittedNumber(line);
      return answer.array == 0;
    });
    answer.answered = answer.array != 0;
    if (!answer.answered) {
      // An option such as --test-only or --help.
      answer.refused = true;
      answer.problem = "sbatch submitted nothing" + (said.empty() ? std::string() : ": " + said);
    }
    return;
  }
  answer.problem = "sbatch ended with exit code " + std::to_string(exit.Code) +
                   (said.empty() ? std::string() : ": " + said);
  answer.refused = !holdsAny(output, passing) && holdsAny(output, complaints);
}

void readConfiguration(std::string_view output, ClusterSite& site) {
  forEachLine(output, [&site](std::string_view line) {
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) {
      return true;
    }
    const std::string_view key = trimmed(line.substr(0, equals));
    const std::string_view text = trimmed(line.substr(equals + 1));
    const auto take = [text](auto& value) {
      if (std::int64_t number = 0;
          readNumber(text, number) && number > 0 && number <= std::numeric_limits<int>::max()) {
        value = static_cast<std::remove_reference_t<decltype(value)>>(number);
      }
    };
    if (key == "MaxArraySize") {
      take(site.arraySize);
    } else if (key == "MaxJobCount") {
      take(site.jobCount);
    } else if (key == "DefMemPerCPU") {
      take(site.memoryPerCpu); // else "UNLIMITED"
    }
    return true;
  });
}

std::int64_t readMemoryPerCpu(std::string_view output) {
  std::int64_t smallest = 0;
  forEachLine(output, [&smallest](std::string_view line) {
    line = trimmed(line);
    const std::size_t blank = line.find(' ');
    std::array<std::int64_t, 2> numbers{};
    std::array<std::string_view, 2> fields = {line.substr(0, blank), blank == std::string_view::npos
                                                                         ? std::string_view()
                                                                         : trimmed(line.substr(blank))};
    for (std::size_t i = 0; i < fields.size(); ++i) {
      // Of nodes that differ sinfo tells the smallest: "1000+".
      if (!fields[i].empty() && fields[i].back() == '+') {
        fields[i].remove_suffix(1);
      }
      if (!readNumber(fields[i], numbers[i]) || numbers[i] == 0) {
        return true;
      }
    }
    const std::int64_t share = numbers[1] / numbers[0];
    if (share > 0 && (smallest == 0 || share < smallest)) {
      smallest = share;
    }
    return true;
  });
  return smallest;
}

} // namespace trovik
