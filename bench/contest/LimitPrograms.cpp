// The limits as a program of their own, which starts as fast as one can: what
// is beside it is measured from its start, too.

#include "bench/Inputs.h"
#include "bench/contest/Tasks.h"
#include "bench/limits/Limits.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

namespace bench {
namespace {

void limitOfDispatch(const Words& words) {
  char* const program[] = {const_cast<char*>(words[2].c_str()), nullptr};
  if (dispatchLimit(numberOf(words[0]), numberOf(words[1]), program) != 0) {
    throw std::runtime_error(words[2] + " failed");
  }
}

void limitOfLines(const Words& words) {
  const LogTexts& texts = usualTexts();
  LineLimit limit(texts.images, texts.imageEnd, texts.errors, texts.success);
  const int log = open(words[0].c_str(), O_RDONLY | O_CLOEXEC);
  if (log < 0) {
    throw std::runtime_error("cannot read " + words[0]);
  }
  const LineLimit::Counts counts = limit.run(log);
  close(log);
  std::printf("%zu lines, %zu images, %zu errors, %zu successes\n", counts.lines, counts.images,
              counts.errors, counts.successes);
}

void limitOfSequence(const Words& words) {
  const auto [first, last] = sequenceLimit(words[0], "shot_a.", ".exr", 6, numberOf(words[1]));
  std::printf("%d-%d\n", first, last);
}

void limitOfTypes(const Words& words) {
  std::printf("%zu\n", LoadingLimit(words[0]).entries());
}

constexpr Task tasks[] = {
    {"dispatch", 3, limitOfDispatch, "dispatch COUNT SLOTS PROGRAM"},
    {"lines", 1, limitOfLines, "lines LOG"},
    {"sequence", 2, limitOfSequence, "sequence DIR FRAME"},
    {"types", 1, limitOfTypes, "types DIR"},
};

} // namespace
} // namespace bench

int main(int count, char** arguments) {
  return bench::runTasks("trovik_bench_limits", bench::tasks, count, arguments);
}
