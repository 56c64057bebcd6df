// What bench/growth and bench/peers start: programs in turn, the inputs, the
// limits as programs of their own, and the readers of type files.

#include "bench/ImageInputs.h"
#include "bench/Inputs.h"
#include "bench/Race.h"
#include "bench/contest/Readers.h"
#include "bench/contest/Rounds.h"
#include "bench/limits/Limits.h"
#include "host/foundation/Exception.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <exception>
#include <fstream>
#include <memory>

namespace bench {
namespace {

using Words = std::vector<std::string>;

int numberOf(const std::string& word) {
  int number = 0;
  const char* const end = word.data() + word.size();
  const auto read = std::from_chars(word.data(), end, number);
  require(read.ec == std::errc() && read.ptr == end && number >= 0,
          '"' + word + "\" is not a number from 0 on");
  return number;
}

void runRounds(const Words& words) {
  Rounds rounds(words[1], words[2]);
  rounds.run(numberOf(words[0]));
  std::fputs(rounds.table().c_str(), stdout);
}

void makeLog(const Words& words) {
  const LogFacts facts = writeLog(words[0], static_cast<std::size_t>(numberOf(words[1])));
  std::printf("%zu lines, %zu images\n", facts.lines, facts.images);
}

// The error line at the end of the log is ignored, since what is measured has to
// end well.
void makeLogType(const Words& words) {
  writeFile(words[0], logType("5f0c9a5e-6d0b-4c86-9d0f-100000000002", "Log", usualTexts()) +
                          "\n[ErrorIgnore]\n1=fx_12.vdb\n"
                          "\n[OverrideDefaults]\nCommandString=$(Scene.Enquote)\n"
                          "Executable=/bin/cat\nFileCheck=None\n");
  writeFile(words[1], logPatterns(usualTexts()));
}

void makeSequence(const Words& words) {
  writeSequence(words[0], numberOf(words[1]), numberOf(words[2]));
}

void makeTypes(const Words& words) {
  std::printf("%zu\n", writeTypes(words[0], numberOf(words[1])).entries);
}

void makeImages(const Words& words) {
  const auto write = words[2] == "png" ? writePngs : writeExrs;
  require(words[2] == "png" || words[2] == "exr", "there are images of png and exr, not of " + words[2]);
  for (const ImageFile& file : write(words[0], numberOf(words[1]))) {
    std::printf("%zu\t%s\n", file.pixelBytes, file.name.c_str());
  }
}

void limitOfDispatch(const Words& words) {
  require(dispatchLimit(numberOf(words[0]), numberOf(words[1]), words[2].c_str()) == 0, words[2] + " failed");
}

void limitOfLines(const Words& words) {
  const LogTexts& texts = usualTexts();
  LineLimit limit(texts.images, texts.imageEnd, texts.errors, texts.success);
  const int log = open(words[0].c_str(), O_RDONLY | O_CLOEXEC);
  require(log >= 0, "cannot read " + words[0]);
  const LineLimit::Counts counts = limit.run(log);
  close(log);
  std::printf("%zu lines, %zu images, %zu errors, %zu successes\n", counts.lines, counts.images,
              counts.errors, counts.successes);
}

void limitOfSequence(const Words& words) {
  const auto [first, last] = sequenceLimit(words[0], "shot_a.", ".exr", 6, numberOf(words[1]));
  std::printf("%d-%d\n", first, last);
}

// The list is what make-images has printed.
void limitOfImages(const Words& words) {
  std::ifstream list(words[1]);
  PngLimit png;
  int count = 0;
  std::size_t pixelBytes = 0;
  for (std::string name; list >> pixelBytes && std::getline(list >> std::ws, name); ++count) {
    if (words[0] == "exr") {
      exrLimit(name);
    } else {
      require(png.isWhole(name, pixelBytes), name + " is damaged");
    }
  }
  std::printf("%d images\n", count);
}

void readTypesOften(const Words& words) {
  for (int repetition = numberOf(words[2]); repetition > 0; --repetition) {
    readTypes(words[0], words[1]);
  }
}

struct Task {
  const char* name;
  std::size_t arguments;
  void (*run)(const Words& words);
  const char* usage;
};

constexpr Task tasks[] = {
    {"rounds", 3, runRounds, "rounds COUNT FILE DIR"},
    {"make-log", 2, makeLog, "make-log FILE BYTES"},
    {"make-log-type", 2, makeLogType, "make-log-type TYPE PATTERNS"},
    {"make-images", 3, makeImages, "make-images DIR COUNT png|exr"},
    {"make-sequence", 3, makeSequence, "make-sequence DIR FRAMES OTHERS"},
    {"make-types", 2, makeTypes, "make-types DIR COUNT"},
    {"limit-dispatch", 3, limitOfDispatch, "limit-dispatch COUNT SLOTS PROGRAM"},
    {"limit-lines", 1, limitOfLines, "limit-lines LOG"},
    {"limit-images", 2, limitOfImages, "limit-images png|exr LIST"},
    {"limit-sequence", 2, limitOfSequence, "limit-sequence DIR FRAME"},
    {"read-types", 3, readTypesOften, "read-types WAY DIR TIMES"},
};

int runTask(const Words& words) {
  for (const Task& task : tasks) {
    if (!words.empty() && words[0] == task.name && words.size() == task.arguments + 1) {
      task.run(Words(words.begin() + 1, words.end()));
      return 0;
    }
  }
  std::fputs("usage:\n", stderr);
  for (const Task& task : tasks) {
    std::fprintf(stderr, "  trovik_bench_contest %s\n", task.usage);
  }
  return 2;
}

} // namespace
} // namespace bench

int main(int count, char** arguments) {
  try {
    return bench::runTask({arguments + std::min(count, 1), arguments + count});
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "trovik_bench_contest: %s\n", failure.what());
  } catch (Exception* exception) {
    const std::unique_ptr<Exception> owned(exception);
    std::fprintf(stderr, "trovik_bench_contest: %s\n", owned->Text().c_str());
  }
  return 1;
}
