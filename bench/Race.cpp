#include "bench/Race.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <stdexcept>

namespace bench {
namespace {

double secondsOf(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

double wallNow() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double cpuOf(const rusage& usage) {
  return secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
}

double medianOf(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

// The processor time of a process that has ended but is not reaped, without its
// children, by its own clock: /proc counts in ticks of ten milliseconds.
double ownCpuOf(pid_t process) {
  clockid_t clock = 0;
  timespec time{};
  require(clock_getcpuclockid(process, &clock) == 0 && clock_gettime(clock, &time) == 0,
          "cannot read the processor time of a program that has ended");
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

std::string formatted(const char* format, double value) {
  std::array<char, 64> text{};
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  std::snprintf(text.data(), text.size(), format, value);
#pragma GCC diagnostic pop
  return text.data();
}

} // namespace

Stopwatch::Stopwatch() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  start_.cpu = cpuOf(usage);
  start_.wall = wallNow();
}

Cost Stopwatch::stop() const {
  const double wall = wallNow();
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const double cpu = cpuOf(usage) - start_.cpu;
  return {wall - start_.wall, cpu, cpu, 0};
}

Cost runProgram(const std::vector<std::string>& arguments,
                const std::vector<std::pair<std::string, std::string>>& environment,
                const std::string& output) {
  std::vector<char*> words;
  words.reserve(arguments.size() + 1);
  for (const std::string& argument : arguments) {
    words.push_back(const_cast<char*>(argument.c_str()));
  }
  words.push_back(nullptr);
  for (const auto& [name, value] : environment) {
    setenv(name.c_str(), value.c_str(), 1);
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, output.empty() ? "/dev/null" : output.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0666);
  const double start = wallNow();
  pid_t process = -1;
  const int error = posix_spawnp(&process, words[0], &actions, nullptr, words.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  require(error == 0, "cannot start " + arguments[0]);
  siginfo_t info{};
  waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOWAIT);
  Cost cost;
  cost.wall = wallNow() - start;
  cost.own = ownCpuOf(process);
  int status = 0;
  rusage usage{};
  wait4(process, &status, 0, &usage);
  cost.cpu = cpuOf(usage);
  cost.memory = static_cast<double>(usage.ru_maxrss) * 1024;
  require(status == 0, arguments[0] + " failed");
  return cost;
}

std::size_t Race::enter(Contestant contestant) {
  contestants_.push_back(std::move(contestant));
  costs_.emplace_back();
  return contestants_.size() - 1;
}

void Race::run(int rounds) {
  for (int round = -1; round < rounds; ++round) {
    for (std::size_t i = 0; i < contestants_.size(); ++i) {
      const Cost cost = contestants_[i]();
      if (round >= 0) {
        costs_[i].push_back(cost);
      }
    }
  }
}

double Race::median(std::size_t contestant, double Cost::*what) const {
  std::vector<double> values;
  for (const Cost& cost : costs_[contestant]) {
    values.push_back(cost.*what);
  }
  return medianOf(values);
}

double Race::ratio(std::size_t contestant, std::size_t limit, double Cost::*what) const {
  const std::vector<double> values = ratios(contestant, limit, what);
  return values.empty() ? 0 : medianOf(values);
}

std::vector<double> Race::ratios(std::size_t contestant, std::size_t limit, double Cost::*what) const {
  std::vector<double> values;
  for (std::size_t round = 0; round < costs_[contestant].size(); ++round) {
    if (costs_[limit][round].*what <= 0) {
      return {};
    }
    values.push_back(costs_[contestant][round].*what / costs_[limit][round].*what);
  }
  std::sort(values.begin(), values.end());
  return values;
}

std::string timeText(double seconds) {
  if (seconds >= 1) {
    return formatted("%.2f s", seconds);
  }
  if (seconds >= 1e-3) {
    return formatted(seconds >= 0.1 ? "%.0f ms" : "%.1f ms", seconds * 1e3);
  }
  return formatted(seconds >= 1e-4 ? "%.0f µs" : "%.1f µs", seconds * 1e6);
}

std::string ratioText(double ratio) {
  return formatted("%.2f", ratio);
}

std::string ratioText(const Race& race, std::size_t ours, std::size_t limit, double Cost::*what) {
  const double ratio = race.ratio(ours, limit, what);
  return ratio > 0 ? ratioText(ratio) : "-";
}

Row ratioRow(const std::string& path, const Race& race, std::size_t ours, std::size_t limit, double target) {
  const double ratio = race.ratio(ours, limit, &Cost::wall);
  const std::vector<double> ratios = race.ratios(ours, limit, &Cost::wall);
  return {path,
          timeText(race.median(limit, &Cost::wall)),
          timeText(race.median(ours, &Cost::wall)),
          ratioText(ratio) +
              (ratios.empty() ? std::string()
                              : " (" + ratioText(ratios.front()) + " to " + ratioText(ratios.back()) + ")"),
          ratioText(race, ours, limit, &Cost::cpu),
          "≤ " + ratioText(target),
          ratio <= target};
}

Row memoryRow(const std::string& path, const Race& race, std::size_t ours, double most) {
  const auto megabytes = [](double bytes) { return formatted("%.1f MB", bytes / 1e6); };
  const double memory = race.median(ours, &Cost::memory);
  return {path, "-", megabytes(memory), "-", "-", "≤ " + megabytes(most), memory <= most};
}

std::string tableText(const std::vector<Row>& rows) {
  std::vector<std::array<std::string, 7>> cells = {
      {"Path", "Limit", "Ours", "Ratio", "CPU", "Target", "Reached"},
      {"---", "---", "---", "---", "---", "---", "---"}};
  for (const Row& row : rows) {
    cells.push_back(
        {row.path, row.limit, row.ours, row.ratio, row.cpu, row.target, row.reached ? "yes" : "no"});
  }
  // Characters, not bytes: the texts hold "µ" and "≤".
  const auto width = [](const std::string& text) {
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
  };
  std::array<std::size_t, 7> widths{};
  for (const auto& line : cells) {
    for (std::size_t i = 0; i < line.size(); ++i) {
      widths[i] = std::max(widths[i], width(line[i]));
    }
  }
  std::string text;
  for (const auto& line : cells) {
    for (std::size_t i = 0; i < line.size(); ++i) {
      text += "| " + line[i] + std::string(widths[i] - width(line[i]) + 1, ' ');
    }
    text += "|\n";
  }
  return text;
}

void require(bool condition, const std::string& message) {
  if (!condition) {
    throw std::runtime_error(message);
  }
}

} // namespace bench
