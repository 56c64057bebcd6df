#include "bench/contest/Tasks.h"

#include <charconv>
#include <cstdio>
#include <exception>
#include <stdexcept>

namespace bench {

int runTasks(const char* program, std::span<const Task> tasks, int count, char** arguments) {
  const Words words(arguments, arguments + count);
  for (const Task& task : tasks) {
    if (words.size() == task.arguments + 2 && words[1] == task.name) {
      try {
        task.run(Words(words.begin() + 2, words.end()));
        return 0;
      } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s: %s\n", program, failure.what());
        return 1;
      }
    }
  }
  std::fputs("usage:\n", stderr);
  for (const Task& task : tasks) {
    std::fprintf(stderr, "  %s %s\n", program, task.usage);
  }
  return 2;
}

int numberOf(const std::string& word) {
  int number = 0;
  const char* const end = word.data() + word.size();
  const auto read = std::from_chars(word.data(), end, number);
  if (read.ec != std::errc() || read.ptr != end || number < 0) {
    throw std::runtime_error('"' + word + "\" is not a number from 0 on");
  }
  return number;
}

} // namespace bench
