// Looking into images, through the class that has the helper program do it.

#include "bench/ImageInputs.h"
#include "bench/Race.h"
#include "bench/limits/Limits.h"
#include "trovik/images/ImageHelper.h"

#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <string>

namespace bench {
namespace {

using trovik::ImageHelper;
using trovik::Inspection;

/// Another helper program can be measured in the place of the built one.
std::string helperProgram() {
  const char* const named = std::getenv("TROVIK_IMAGE_HELPER");
  return named == nullptr ? BENCH_IMAGE_HELPER : named;
}

double childrenCpu() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

void requireGood(const std::vector<Inspection>& inspections) {
  for (const Inspection& inspection : inspections) {
    require(inspection.image && inspection.problem.empty() && inspection.width == 1920,
            "a good image is not good: " + inspection.problem);
  }
}

std::vector<Path> pathsOf(const std::vector<ImageFile>& files) {
  std::vector<Path> paths;
  paths.reserve(files.size());
  for (const ImageFile& file : files) {
    paths.emplace_back(file.name);
  }
  return paths;
}

/// By one helper that has had a file before, so that it has all that it loads.
/// What it takes of the processor is known only when it ends.
Cost inspectRunning(const std::vector<ImageFile>& files) {
  const std::vector<Path> paths = pathsOf(files);
  ImageHelper helper(Path(helperProgram()), trovik::Clock::now, ImageHelper::defaultPatience,
                     ImageHelper::oneAtATime);
  requireGood(inspectAll(helper, {paths.front()}, false));
  const Stopwatch watch;
  const std::vector<Inspection> inspections = inspectAll(helper, paths, false);
  const Cost cost = watch.stop();
  requireGood(inspections);
  return {cost.wall, 0, 0, 0};
}

/// From the start of the helpers to their end.
Cost inspect(const std::vector<ImageFile>& files, const ImageHelper::Room& room) {
  const std::vector<Path> paths = pathsOf(files);
  const double before = childrenCpu();
  const Stopwatch watch;
  std::vector<Inspection> inspections;
  {
    ImageHelper helper(Path(helperProgram()), trovik::Clock::now, ImageHelper::defaultPatience, room);
    inspections = inspectAll(helper, paths, false);
  }
  Cost cost = watch.stop();
  cost.cpu += childrenCpu() - before;
  requireGood(inspections);
  return cost;
}

template <typename Look> Cost costOf(const std::vector<ImageFile>& files, const Look& look) {
  const Stopwatch watch;
  for (const ImageFile& file : files) {
    look(file);
  }
  return watch.stop();
}

/// A program of others, with the names of all files behind its own arguments.
Cost runWith(std::vector<std::string> arguments, const std::vector<ImageFile>& files) {
  for (const ImageFile& file : files) {
    arguments.push_back(file.name);
  }
  return runProgram(arguments);
}

/// The row of one file.
Row imageRow(const std::string& path, const Race& race, std::size_t ours, std::size_t limit, double target,
             std::size_t files) {
  Row row = ratioRow(path, race, ours, limit, target);
  row.limit = timeText(race.median(limit, &Cost::wall) / static_cast<double>(files));
  row.ours = timeText(race.median(ours, &Cost::wall) / static_cast<double>(files));
  return row;
}

/// A row beside a program of others that decodes files whole, where it is installed.
void addPeer(std::vector<Row>& rows, const Setup& setup, const std::vector<std::string>& peer,
             const std::string& path, const std::vector<ImageFile>& files) {
  const std::string& program = peer.front();
  if (std::system(("command -v " + program + " >/dev/null").c_str()) != 0) {
    return;
  }
  Race race;
  const std::size_t theirs = race.enter([&] { return runWith(peer, files); });
  const std::size_t ours = race.enter([&] { return inspect(files, ImageHelper::oneAtATime); });
  race.run(std::min(setup.rounds, 3));
  rows.push_back(imageRow(path + " beside " + program, race, ours, theirs, 1.0, files.size()));
}

} // namespace

std::vector<Row> imageRows(const Setup& setup) {
  const int count = setup.quick ? 2 : 40;
  std::vector<Row> rows;
  {
    const std::vector<ImageFile> files = writePngs(setup.directory, count);
    PngLimit png;
    Race race;
    const std::size_t limit = race.enter([&] {
      return costOf(files, [&](const ImageFile& file) {
        require(png.isWhole(file.name, file.pixelBytes), "the limit program found a good file damaged");
      });
    });
    const std::size_t ours = race.enter([&] { return inspectRunning(files); });
    race.run(setup.rounds);
    rows.push_back(imageRow("a PNG file", race, ours, limit, 1.3, files.size()));
    addPeer(rows, setup, {"oiiotool", "--threads", "1", "--hash"}, "a PNG file", files);
    addPeer(rows, setup, {"identify", "-regard-warnings"}, "a PNG file", files);
  }
  {
    const std::vector<ImageFile> files = writeExrs(setup.directory, count / 2);
    Race race;
    const std::size_t limit =
        race.enter([&] { return costOf(files, [](const ImageFile& file) { exrLimit(file.name); }); });
    const std::size_t ours = race.enter([&] { return inspectRunning(files); });
    race.run(setup.rounds);
    rows.push_back(imageRow("an EXR file", race, ours, limit, 1.05, files.size()));
    addPeer(rows, setup, {"oiiotool", "--threads", "1", "--hash"}, "an EXR file", files);
  }
  return rows;
}

std::vector<Row> imageCoreRows(const Setup& setup) {
  const int count = setup.quick ? 12 : 200;
  std::vector<Row> rows;
  for (const bool isPng : {true, false}) {
    const std::vector<ImageFile> files =
        isPng ? writePngs(setup.directory, count) : writeExrs(setup.directory, count / 2);
    Race race;
    const std::size_t one = race.enter([&] { return inspect(files, ImageHelper::oneAtATime); });
    const std::size_t all = race.enter([&] { return inspect(files, ImageHelper::onIdleCores); });
    race.run(setup.rounds);
    rows.push_back(imageRow(std::to_string(files.size()) + (isPng ? " PNG" : " EXR") +
                                " files, one core and all idle ones",
                            race, all, one, 0.6, 1));
  }
  return rows;
}

} // namespace bench
