// Takes the room from engines and renderers at random moments of real runs, and
// proves that nothing is lost. The small disks are mounts: all of this program
// runs where nobody else sees them.

#include "tests/crash/CrashTest.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sys/mount.h>

extern const char* const CRASH_OWN_FILE_SYSTEMS;

namespace trovik {
namespace {

class FullDisk : public CrashTest {
protected:
  ~FullDisk() override {
    if (!mounted.empty()) {
      EXPECT_EQ(umount2(mounted.c_str(), MNT_DETACH), 0) << std::strerror(errno);
    }
  }

  /// Makes a folder of the test's directory a disk of so many bytes.
  void mountSmall(const std::string& name, const char* size) {
    const std::string folder = directory.file(name);
    std::filesystem::create_directory(folder);
    ASSERT_EQ(mount("none", folder.c_str(), "tmpfs", 0, size), 0) << std::strerror(errno);
    mounted = folder;
  }

private:
  std::string mounted;
};

/// Takes all room that is left, and gives it back.
void fill(const std::string& file) {
  std::ofstream stream(file, std::ios::binary);
  const std::string block(4096, 'x');
  while (stream.write(block.data(), static_cast<std::streamsize>(block.size())) && stream.flush()) {
  }
}

TEST_F(FullDisk, OfTheQueueOnlyDelays) {
  mountSmall("state", "size=4m");
  for (unsigned long filled = 0; filled < kills && !HasFailure();) {
    begin(frameCount, 3);
    const pid_t engine = start(engineWords());
    // Without any room an engine does not begin at all.
    Queue queue(Path(directory.file("state")));
    while (!hasEnded(engine) && !queue.hasOtherEngine(0)) {
      randomMoment(10);
    }
    while (filled < kills && !hasEnded(engine)) {
      randomMoment(100);
      fill(directory.file("state/ballast"));
      ++filled;
      randomMoment(100);
      if (filled % 2 == 1 && !hasEnded(engine)) {
        kill(engine, SIGKILL);
        waitFor(engine);
      }
      std::filesystem::remove(directory.file("state/ballast"));
      checkQueue();
      if (!engines.contains(engine)) {
        break;
      }
    }
    if (engines.contains(engine)) {
      EXPECT_EQ(waitFor(engine), 0);
    }
    finish(frameCount);
  }
}

TEST_F(FullDisk, OfTheQueueKeepsNoEngineThatIsAskedToEnd) {
  mountSmall("state", "size=8m");
  begin(frameCount, 3, "50");
  const pid_t engine = start(engineWords());
  Queue queue(Path(directory.file("state")));
  while (!hasEnded(engine) && programs().empty()) {
    randomMoment(10);
  }
  fill(directory.file("state/ballast"));
  std::filesystem::remove(directory.file("state/reserve")); // the engine may have given it away
  fill(directory.file("state/ballast2"));
  kill(engine, SIGTERM);
  EXPECT_EQ(waitFor(engine), 128 + SIGTERM) << readFile(directory.file("output"));
  EXPECT_TRUE(programs().empty());
  std::filesystem::remove(directory.file("state/ballast"));
  std::filesystem::remove(directory.file("state/ballast2"));
  finish(frameCount);
}

TEST_F(FullDisk, OfTheImagesFailsFramesWithTheirReason) {
  mountSmall("images", "size=256k");
  submit(frameCount, 3, "10");
  fill(directory.file("images/ballast"));
  const pid_t engine = start(engineWords());
  // The renderers fail for want of room until it is there again.
  Queue queue(Path(directory.file("state")));
  const auto failed = [&queue] {
    const std::vector<AttemptRecord> attempts = queue.attempts(1);
    return std::count_if(attempts.begin(), attempts.end(), [](const AttemptRecord& attempt) {
      return attempt.reason == "Error line: fatal: cannot write";
    });
  };
  const auto deadline = std::chrono::steady_clock::now() + longest;
  while (failed() < 3 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  EXPECT_GE(failed(), 3);
  std::filesystem::remove(directory.file("images/ballast"));
  EXPECT_EQ(waitFor(engine), 0);
  finish(frameCount);
}

} // namespace
} // namespace trovik

int main(int count, char** arguments) {
  std::string script = CRASH_OWN_FILE_SYSTEMS;
  std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
  std::vector<char*> command = {script.data(), program.data()};
  command.insert(command.end(), arguments + 1, arguments + count + 1); // with the null at its end
  testing::InitGoogleTest(&count, arguments);
  if (GTEST_FLAG_GET(list_tests)) {
    return RUN_ALL_TESTS();
  }
  if (std::getenv("TROVIK_OWN_FILE_SYSTEMS") == nullptr) {
    execv(script.c_str(), command.data());
    std::cerr << "cannot start " << script << ": " << std::strerror(errno) << '\n';
    return 1;
  }
  // The first process of a system gets only the signals that it handles.
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    std::signal(number, [](int) { _exit(1); });
  }
  return RUN_ALL_TESTS();
}
