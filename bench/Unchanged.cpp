// Frames that were rendered and found good, and that nobody has changed since:
// what is asked of them again. Beside it is a program that asks the system for
// each file and compares size and time, which is all that has to be done. A sheet
// has to read the files to draw them: beside it is the helper that draws, given
// the same plan, so that the difference is what telling good from bad takes.
//
// The frames are small, since ten thousand large ones do not fit: none of what is
// measured reads them, but for the drawing, which is the same on both sides.

#include "bench/ImageInputs.h"
#include "bench/Inputs.h"
#include "bench/ModuleUnderTest.h"
#include "bench/Race.h"
#include "trovik/images/ImageProtocol.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace bench {
namespace {

constexpr int firstFrame = 1000; // as the files are numbered

struct Known {
  std::string name;
  struct stat status {};
};

/// Whether every file is what it was.
bool areAsKnown(const std::vector<Known>& files) {
  return std::all_of(files.begin(), files.end(), [](const Known& file) {
    struct stat now {};
    return stat(file.name.c_str(), &now) == 0 && now.st_size == file.status.st_size &&
           now.st_mtim.tv_sec == file.status.st_mtim.tv_sec &&
           now.st_mtim.tv_nsec == file.status.st_mtim.tv_nsec;
  });
}

/// Damages the pixels of a file, whose size and time stay.
void damage(const Known& file) {
  {
    std::fstream stream(file.name, std::ios::binary | std::ios::in | std::ios::out);
    const auto middle = file.status.st_size / 2;
    stream.seekg(middle);
    const auto byte = static_cast<char>(stream.get());
    stream.seekp(middle);
    stream.put(static_cast<char>(byte ^ 0x55));
  }
  const timespec times[] = {file.status.st_atim, file.status.st_mtim};
  require(utimensat(AT_FDCWD, file.name.c_str(), times, 0) == 0, "cannot set the time of " + file.name);
}

/// What a sheet of these frames is made of.
std::string sheetPlan(const std::vector<Known>& files, int cellWidth) {
  trovik::SheetPlan plan;
  plan.title = "1000";
  plan.subtitle = "Copy";
  plan.cellWidth = cellWidth;
  for (std::size_t i = 0; i < files.size(); ++i) {
    trovik::SheetCell cell;
    cell.label = std::to_string(static_cast<std::size_t>(firstFrame) + i);
    cell.file = files[i].name;
    plan.cells.push_back(cell);
  }
  return planLine(plan);
}

} // namespace

std::vector<Row> unchangedRows(const Setup& setup) {
  const int frames = setup.quick ? 100 : 10'000;
  constexpr double target = 50e-6; // a frame
  constexpr double wholeTarget = 1;
  constexpr int cellWidth = 32;
  const std::string source = setup.directory + "/source";
  const std::string out = setup.directory + "/out";
  const std::string types = setup.directory + "/types";
  const std::string state = setup.directory + "/state";
  const std::string output = setup.directory + "/output";
  std::filesystem::create_directory(source);
  std::filesystem::create_directory(types);
  writeSmallPngs(source, frames);
  writeFile(
      setup.directory + "/copy.sh",
      "i=$1 names=\nwhile [ \"$i\" -le \"$2\" ]; do names=\"$names $3/frame.$i.png\"; i=$((i + 1)); done\n"
      "exec cp $names \"$4\"\n");
  writeFile(types + "/copy.tvx",
            "[Module]\nID=5f0c9a5e-6d0b-4c86-9d0f-100000000008\nName=Copy\nCommand=" + setup.directory +
                "/copy.sh $(SubRange.Start) $(SubRange.End) " + source +
                " $(OutputFolder)\n\n[OverrideDefaults]\nExecutable=/bin/sh\n"
                "ExpectedFiles=$(OutputFolder)/frame.$(Frame).png\n");
  const std::string range = std::to_string(firstFrame) + "-" + std::to_string(firstFrame + frames - 1);
  const auto command = [&](std::vector<std::string> words) {
    words.insert(words.begin(), {BENCH_PROGRAM, "--module-path", ModuleUnderTest::directory() + ":" + types});
    return runProgram(words, {{"XDG_STATE_HOME", state}, {"TROVIK_IMAGE_HELPER", BENCH_IMAGE_HELPER}},
                      output);
  };
  const auto tells = [&](const std::vector<std::string>& words, const std::string& text) {
    const Cost cost = command(words);
    require(textOf(output).find(text) != std::string::npos, words.front() + " does not tell: " + text);
    return cost;
  };
  const std::vector<std::string> job = {"Copy", "--range", range, "--out", out};
  const auto withJob = [&job](const std::string& verb, const std::vector<std::string>& more) {
    std::vector<std::string> words = {verb};
    words.insert(words.end(), job.begin(), job.end());
    words.insert(words.end(), more.begin(), more.end());
    return words;
  };
  command(withJob("run", {"--packet", "500"}));
  std::vector<Known> files;
  for (int frame = 0; frame < frames; ++frame) {
    Known file{out + "/frame." + std::to_string(firstFrame + frame) + ".png", {}};
    require(stat(file.name.c_str(), &file.status) == 0, "there is no " + file.name);
    files.push_back(file);
  }
  const std::string all = "all " + std::to_string(frames) + " frames have good files";
  const std::string plan = setup.directory + "/plan";
  writeFile(plan, sheetPlan(files, cellWidth));

  Race race;
  const std::size_t limit = race.enter([&] {
    const Stopwatch watch;
    require(areAsKnown(files), "a file has changed");
    return watch.stop();
  });
  const std::size_t submit = race.enter([&] { return tells(withJob("submit", {"--missing"}), all); });
  const std::size_t list = race.enter([&] { return tells({"images", "last"}, files.back().name); });
  const std::size_t missing = race.enter([&] {
    const Cost cost = command({"images", "last", "--missing"}); // which would not exit with 0 else
    require(textOf(output).empty(), "trovik images --missing tells of some");
    return cost;
  });
  race.run(setup.rounds);
  Race drawing;
  const std::string picture = setup.directory + "/sheet.png";
  const std::size_t helper = drawing.enter([&] {
    return runProgram(
        {"/bin/sh", "-c", "exec \"$0\" sheet -o \"$1\" <\"$2\"", BENCH_IMAGE_HELPER, picture, plan});
  });
  const std::size_t sheet = drawing.enter([&] {
    return tells({"sheet", "last", "-o", picture, "--width", std::to_string(cellWidth)},
                 std::to_string(frames) + " good");
  });
  drawing.run(std::min(setup.rounds, 5));

  std::vector<Row> rows;
  const auto add = [&](const std::string& what, const Race& of, std::size_t ours, std::size_t beside,
                       double whole) {
    Row row = ratioRow(what + ", a frame of " + std::to_string(frames), of, ours, beside, 0);
    row.limit = timeText(of.median(beside, &Cost::wall) / frames);
    row.ours = timeText(of.median(ours, &Cost::wall) / frames);
    row.target = "≤ " + timeText(target);
    row.reached = whole <= wholeTarget && whole / frames <= target;
    rows.push_back(row);
  };
  add("submit --missing", race, submit, limit, race.median(submit, &Cost::wall));
  add("images", race, list, limit, race.median(list, &Cost::wall));
  add("images --missing", race, missing, limit, race.median(missing, &Cost::wall));
  add("sheet beside its drawing", drawing, sheet, helper,
      drawing.median(sheet, &Cost::wall) - drawing.median(helper, &Cost::wall));
  rows.back().target += " more";

  // A file whose content is another one, but not its size and time: only what
  // looks into all again finds it.
  const Known& damaged = files[files.size() / 2];
  damage(damaged);
  tells(withJob("submit", {"--missing"}), all);
  tells({"images", "last"}, damaged.name);
  command({"images", "last", "--verify"});
  require(textOf(output).find(damaged.name) == std::string::npos,
          "images --verify has not looked into a file");
  const std::string frame = std::to_string(static_cast<std::size_t>(firstFrame) + files.size() / 2);
  tells(withJob("submit", {"--missing", "--verify", "--dry-run"}), frame);
  tells({"sheet", "last", "-o", picture, "--verify", "--width", std::to_string(cellWidth)}, "1 damaged");
  return rows;
}

} // namespace bench
