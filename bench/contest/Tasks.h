#pragma once

#include <span>
#include <string>
#include <vector>

namespace bench {

using Words = std::vector<std::string>;

/// What a program does when its first word is `name`, with the words behind it.
struct Task {
  const char* name;
  std::size_t arguments; ///< so many, no more and no fewer
  void (*run)(const Words& words);
  const char* usage;
};

/// Does the task that the arguments of `main` name. Gives the exit code: 2 and
/// the usage where there is no such task, 1 and the reason where it throws a
/// std::exception.
int runTasks(const char* program, std::span<const Task> tasks, int count, char** arguments);

/// A number from 0 on. Throws std::runtime_error.
int numberOf(const std::string& word);

} // namespace bench
