// What bench/growth and bench/peers start: programs in turn, the inputs, the
// limit of images, and the readers of type files.

#include "bench/ImageInputs.h"
#include "bench/Inputs.h"
#include "bench/Race.h"
#include "bench/contest/Readers.h"
#include "bench/contest/Rounds.h"
#include "bench/contest/Tasks.h"
#include "bench/limits/Limits.h"
#include "host/foundation/Exception.h"

#include <cstdio>
#include <fstream>
#include <memory>

namespace bench {
namespace {

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

constexpr Task tasks[] = {
    {"rounds", 3, runRounds, "rounds COUNT FILE DIR"},
    {"make-log", 2, makeLog, "make-log FILE BYTES"},
    {"make-log-type", 2, makeLogType, "make-log-type TYPE PATTERNS"},
    {"make-images", 3, makeImages, "make-images DIR COUNT png|exr"},
    {"make-sequence", 3, makeSequence, "make-sequence DIR FRAMES OTHERS"},
    {"make-types", 2, makeTypes, "make-types DIR COUNT"},
    {"limit-images", 2, limitOfImages, "limit-images png|exr LIST"},
    {"read-types", 3, readTypesOften, "read-types WAY DIR TIMES"},
};

} // namespace
} // namespace bench

int main(int count, char** arguments) {
  try {
    return bench::runTasks("trovik_bench_contest", bench::tasks, count, arguments);
  } catch (Exception* exception) {
    const std::unique_ptr<Exception> owned(exception);
    std::fprintf(stderr, "trovik_bench_contest: %s\n", owned->Text().c_str());
  }
  return 1;
}
