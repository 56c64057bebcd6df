// A job whose program is the newest of thousands of installed versions, beside
// the same job with the same program named by its path. A search takes as long
// as a hundred works, so a job must have one, and each work one call that tells
// that the program is still the same file.

#include "bench/Inputs.h"
#include "bench/ModuleUnderTest.h"
#include "bench/Race.h"
#include "tests/application/jobs/FolderReads.h"

#include <filesystem>

namespace bench {
namespace {

/// So many versions of a program, made in shuffled order; the path of the newest.
std::string install(const std::string& root, int count) {
  std::vector<int> numbers;
  for (int number = 1; number <= count; ++number) {
    numbers.push_back(number);
  }
  Random random(9);
  for (std::size_t i = numbers.size(); i > 1; --i) {
    std::swap(numbers[i - 1], numbers[random.below(i)]);
  }
  const auto folderOf = [&root](int number) {
    return root + "/paint-" + std::to_string(number / 100) + '.' + std::to_string(number / 10 % 10) + '.' +
           std::to_string(number % 10);
  };
  for (const int number : numbers) {
    std::filesystem::create_directories(folderOf(number) + "/bin");
    std::filesystem::create_symlink("/bin/true", folderOf(number) + "/bin/paint");
  }
  return folderOf(count) + "/bin/paint";
}

} // namespace

std::vector<Row> newestRows(const Setup& setup) {
  const int works = setup.quick ? 20 : 2000;
  const int versions = setup.quick ? 30 : 3000;
  constexpr double target = 1.10;
  const std::string types = setup.directory + "/types";
  const std::string root = setup.directory + "/programs";
  const std::string output = setup.directory + "/output";
  const std::string newest = install(root, versions);
  std::filesystem::create_directory(types);
  writeFile(types + "/fixed.tvx", "[Module]\nID=5f0c9a5e-6d0b-4c86-9d0f-100000000006\nName=Fixed\n"
                                  "Command=$(SubRange)\n\n[OverrideDefaults]\nExecutable=" +
                                      newest + "\n");
  writeFile(types + "/newest.tvx", "[Module]\nID=5f0c9a5e-6d0b-4c86-9d0f-100000000007\nName=Newest\n"
                                   "Command=$(SubRange)\n\n[FindLatestExecutable]\nLinuxRoots=" +
                                       root + "\nLinuxBases=paint\nLinuxExe=bin/paint\n");
  const auto command = [&](std::vector<std::string> words) {
    words.insert(words.begin(), {BENCH_PROGRAM, "--module-path", ModuleUnderTest::directory() + ":" + types});
    return runProgram(words, {{"XDG_STATE_HOME", setup.directory + "/state"}}, output);
  };
  const auto jobOf = [&](const std::string& verb, const std::string& type) {
    std::vector<std::string> words = {verb,       type, "--new", "--range", "1-" + std::to_string(works),
                                      "--packet", "1"};
    if (verb == "run") {
      words.insert(words.end(), {"--slots", "2"});
    }
    return command(words);
  };
  command({"find", "Newest"});
  require(textOf(output).starts_with(newest + "\n"), "the search did not find the newest program");
  Race race;
  const std::size_t fixed = race.enter([&] { return jobOf("run", "Fixed"); });
  const std::size_t searched = race.enter([&] { return jobOf("run", "Newest"); });
  race.run(setup.rounds);
  const std::string among = ", the newest of " + std::to_string(versions) + " programs";
  Row work = ratioRow("a work" + among, race, searched, fixed, target);
  work.limit = timeText(race.median(fixed, &Cost::wall) / works);
  work.ours = timeText(race.median(searched, &Cost::wall) / works);

  // A folder that changed two seconds ago is read again, which a quick run does
  // not wait for.
  FolderReads reads(root);
  const auto searches = [&](const std::string& what, int most) {
    const int count = reads.Count();
    require(count >= 1 && count <= most + (setup.quick ? 1 : 0),
            what + " searched " + std::to_string(count) + " times");
    return Row{"searches of " + what + among, "1", std::to_string(count), "-", "-", "1", count == 1};
  };
  std::vector<Row> rows = {work};
  jobOf("run", "Newest");
  rows.push_back(searches("trovik run", 1));
  jobOf("submit", "Newest");
  rows.push_back(searches("trovik submit", 1));
  command({"engine", "--until-empty", "--slots", "2"});
  rows.push_back(searches("trovik engine", 1));
  return rows;
}

} // namespace bench
