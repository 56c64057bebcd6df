// Races the hot paths against programs that do only the unavoidable work,
// and prints one table. See README.md.

#include "bench/Race.h"
#include "bench/limits/Limits.h"
#include "host/foundation/Exception.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <memory>

namespace {

constexpr const char* usage =
    "usage: trovik_bench [--rounds N] [--quick]\n"
    "       [dispatch|start|newest|lines|curve|sequences|loading|expansion|missing|unchanged|memory|images|\n"
    "        cores|cold]...\n";

class TemporaryDirectory {
public:
  TemporaryDirectory() {
    text_ = (std::filesystem::temp_directory_path() / "trovik-bench-XXXXXX").string();
    bench::require(mkdtemp(text_.data()) != nullptr, "cannot make a directory in " + text_);
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(text_, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  const std::string& text() const { return text_; }

private:
  std::string text_;
};

struct Path {
  const char* name;
  std::vector<bench::Row> (*rows)(const bench::Setup& setup);
  bool wanted;
};

int runTable(int count, char** arguments) {
  Path paths[] = {{"dispatch", bench::dispatchRows, false}, {"start", bench::startRows, false},
                  {"newest", bench::newestRows, false},     {"lines", bench::lineRows, false},
                  {"curve", bench::lineCurveRows, false},   {"sequences", bench::sequenceRows, false},
                  {"loading", bench::loadingRows, false},   {"expansion", bench::expansionRows, false},
                  {"missing", bench::missingRows, false},   {"unchanged", bench::unchangedRows, false},
                  {"memory", bench::memoryRows, false},     {"images", bench::imageRows, false},
                  {"cores", bench::imageCoreRows, false},   {"cold", bench::coldSequenceRows, false}};
  const auto isExtra = [](const Path& path) {
    return path.rows == bench::lineCurveRows || path.rows == bench::coldSequenceRows;
  };
  bench::Setup setup;
  bool all = true;
  for (int i = 1; i < count; ++i) {
    const std::string argument = arguments[i];
    bool known = true;
    if (argument == "--quick") {
      setup.quick = true;
      setup.rounds = 1;
    } else if (argument == "--rounds" && i + 1 < count) {
      setup.rounds = std::max(1, std::atoi(arguments[++i]));
    } else {
      known = false;
      for (Path& path : paths) {
        if (argument == path.name) {
          path.wanted = known = true;
          all = false;
        }
      }
    }
    if (!known) {
      std::fputs(usage, stderr);
      return 2;
    }
  }
  std::vector<bench::Row> table;
  for (const Path& path : paths) {
    if (path.wanted || (all && !isExtra(path))) {
      std::fprintf(stderr, "%s ...\n", path.name);
      const TemporaryDirectory directory;
      setup.directory = directory.text();
      const std::vector<bench::Row> rows = path.rows(setup);
      table.insert(table.end(), rows.begin(), rows.end());
    }
  }
  std::fputs(setup.quick ? "all answers are right\n" : bench::tableText(table).c_str(), stdout);
  return 0;
}

} // namespace

int main(int count, char** arguments) {
  // The limit of dispatch is a program of its own: this one, called by itself.
  if (count >= 5 && std::strcmp(arguments[1], "limit-dispatch") == 0) {
    return bench::dispatchLimit(std::atoi(arguments[2]), std::atoi(arguments[3]), arguments + 4);
  }
  if (__builtin_cpu_supports("avx2") == 0) {
    std::fputs("trovik_bench: a limit program needs a processor with AVX2\n", stderr);
    return 1;
  }
  try {
    return runTable(count, arguments);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "trovik_bench: %s\n", failure.what());
  } catch (Exception* exception) {
    const std::unique_ptr<Exception> owned(exception);
    std::fprintf(stderr, "trovik_bench: %s\n", owned->Text().c_str());
  }
  return 1;
}
