// Many works of a program that does nothing: what is left is the cost of
// handing them out. Ours is the whole program, from the reading of the type's
// file over the durable queue to the summary.

#include "bench/Inputs.h"
#include "bench/ModuleUnderTest.h"
#include "bench/Race.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace bench {
namespace {

class DiskDirectory {
public:
  DiskDirectory() { require(mkdtemp(text_.data()) != nullptr, "cannot make a directory in /var/tmp"); }
  ~DiskDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(text_, ignored);
  }
  DiskDirectory(const DiskDirectory&) = delete;
  DiskDirectory& operator=(const DiskDirectory&) = delete;
  const std::string& text() const { return text_; }

private:
  std::string text_ = "/var/tmp/trovik-bench-XXXXXX";
};

} // namespace

std::vector<Row> dispatchRows(const Setup& setup) {
  const int works = setup.quick ? 20 : 2000;
  constexpr double ownTarget = 100e-6;
  const std::string types = setup.directory + "/types";
  const std::string state = setup.directory + "/state";
  std::filesystem::create_directory(types);
  writeFile(types + "/tiny.tvx", "[Module]\nID=5f0c9a5e-6d0b-4c86-9d0f-100000000001\nName=Tiny\n\n"
                                 "[OverrideDefaults]\nExecutable=/bin/true\n");
  writeFile(types + "/argument.tvx", "[Module]\nID=5f0c9a5e-6d0b-4c86-9d0f-100000000002\nName=Argument\n"
                                     "Command=$(SubRange)\n\n"
                                     "[OverrideDefaults]\nExecutable=/bin/true\n");
  const auto command = [&types](int count, const char* type = "Tiny") {
    return std::vector<std::string>{BENCH_PROGRAM,
                                    "--module-path",
                                    ModuleUnderTest::directory() + ":" + types,
                                    "run",
                                    type,
                                    "--new",
                                    "--range",
                                    "1-" + std::to_string(count),
                                    "--packet",
                                    "1",
                                    "--slots",
                                    "2"};
  };
  Race race;
  // With the words and the locale that the programs get from us: with an argument
  // /bin/true reads the files of its locale, which takes a fifth longer.
  const auto limitOf = [works](const std::vector<std::string>& words) {
    std::vector<std::string> all = {"/proc/self/exe", "limit-dispatch", std::to_string(works), "2"};
    all.insert(all.end(), words.begin(), words.end());
    return runProgram(all, {{"LC_ALL", "C.UTF-8"}});
  };
  const std::size_t limit = race.enter([&] { return limitOf({"/bin/true"}); });
  const std::size_t ours = race.enter([&] {
    return runProgram(command(works), {{"XDG_STATE_HOME", state}}, setup.directory + "/output");
  });
  // With an argument to be expanded, and the queue on the disk of the machine
  // instead of where temporary files go, which may be memory.
  const DiskDirectory disk;
  const std::size_t argumentLimit = race.enter([&] { return limitOf({"/bin/true", "1-1"}); });
  const std::size_t argument = race.enter([&] {
    return runProgram(command(works, "Argument"), {{"XDG_STATE_HOME", disk.text()}},
                      setup.directory + "/output");
  });
  race.run(setup.rounds);

  const std::string path = std::to_string(works) + " works on 2 slots";
  const auto both = [&race](const std::string& what, std::size_t contestant, std::size_t own) {
    constexpr double most = 1.10;
    Row row = ratioRow(what, race, contestant, own, most);
    row.target = "both " + row.target;
    row.reached = row.reached && race.ratio(contestant, own, &Cost::cpu) <= most;
    return row;
  };
  const double own = race.median(ours, &Cost::own) / works;

  // The same with ten times as many works: what is kept of a work that is over
  // would show. The queue's page cache fills to its bound on the way, and the
  // list of works takes a few bytes each.
  Race memory;
  const std::size_t few = memory.enter([&] {
    return runProgram(command(works), {{"XDG_STATE_HOME", state}}, setup.directory + "/output");
  });
  const std::size_t many = memory.enter([&] {
    return runProgram(command(works * 10), {{"XDG_STATE_HOME", state}}, setup.directory + "/output");
  });
  memory.run(1);
  const double growth = memory.ratio(many, few, &Cost::memory);
  constexpr double mostGrowth = 1.25;
  const auto megabytes = [&memory](std::size_t contestant) {
    return ratioText(memory.median(contestant, &Cost::memory) / 1e6) + " MB";
  };
  return {both(path, ours, limit),
          both(path + ", one argument, on disk", argument, argumentLimit),
          {"memory at " + std::to_string(works * 10) + " works", megabytes(few), megabytes(many),
           ratioText(growth), "-", "≤ " + ratioText(mostGrowth), growth <= mostGrowth},
          {"own CPU time a work", timeText(race.median(limit, &Cost::own) / works), timeText(own), "-",
           ratioText(race, ours, limit, &Cost::own), "≤ " + timeText(ownTarget), own <= ownTarget}};
}

} // namespace bench
