#include "trovik/images/SheetDrawing.h"

#include "tests/trovik/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <poll.h>

extern const char* const FAKE_IMAGE_HELPER;
extern const char* const IMAGE_HELPER;

namespace trovik {
namespace {

SheetPlan planOf(const std::vector<std::string>& files) {
  SheetPlan plan;
  for (const std::string& file : files) {
    plan.cells.push_back({file, file, CellState::Good, {}});
  }
  return plan;
}

/// This machine, whose clock stands still until a file of the name that is
/// given is there and nothing is left to be read.
class PatientMachine final : public Machine {
public:
  explicit PatientMachine(std::string sign = {}) : sign_(std::move(sign)) {}
  Clock::time_point now() override { return now_; }
  std::unique_ptr<Program> start(const ProcessStart& /*start*/) override { return nullptr; }
  std::vector<pid_t> killOrphans(const Orphans& /*orphans*/) override { return {}; }
  MemoryNow memory(const std::vector<int>& /*groups*/) override { return {}; }
  void wait(std::vector<pollfd>& descriptors, std::optional<Duration> timeout) override {
    const bool stuck = !sign_.empty() && std::filesystem::remove(sign_);
    if (poll(descriptors.data(), descriptors.size(), stuck ? 0 : 10) == 0 && stuck) {
      now_ += *timeout;
    }
  }

private:
  std::string sign_;
  Clock::time_point now_{std::chrono::seconds(1000)};
};

DrawnSheet draw(const SheetPlan& plan, const char* helper = FAKE_IMAGE_HELPER, const std::string& sign = {}) {
  PatientMachine machine(sign);
  return drawSheet(
      machine, Path(helper), plan, Path("sheet.png"), [](std::size_t) {}, [](const std::string&) {});
}

TEST(SheetDrawing, TellsHowFarItIs) {
  PatientMachine machine;
  std::vector<std::size_t> progress;
  const DrawnSheet sheet = drawSheet(
      machine, Path(FAKE_IMAGE_HELPER), planOf({"a", "b", "c"}), Path("sheet.png"),
      [&](std::size_t done) { progress.push_back(done); }, [](const std::string&) {});
  EXPECT_EQ(sheet.width, 640);
  EXPECT_EQ(sheet.height, 480);
  EXPECT_EQ(progress, (std::vector<std::size_t>{1, 2, 3}));
}

TEST(SheetDrawing, AFileThatTheHelperDiesOfIsDamaged) {
  const DrawnSheet sheet = draw(planOf({"a", "crash", "b", "crash too"}));
  EXPECT_EQ(sheet.width, 640);
  EXPECT_EQ(sheet.plan.cells[0].state, CellState::Good);
  EXPECT_EQ(sheet.plan.cells[1].state, CellState::Damaged);
  EXPECT_EQ(sheet.plan.cells[1].note, "The image library crashed on it");
  EXPECT_EQ(sheet.plan.cells[2].state, CellState::Good);
  EXPECT_EQ(sheet.plan.cells[3].state, CellState::Damaged);
}

TEST(SheetDrawing, AFileThatTakesForEverIsDamaged) {
  const TemporaryDirectory directory;
  const std::string file = directory.file("hang");
  const DrawnSheet sheet = draw(planOf({file, "b"}), FAKE_IMAGE_HELPER, file + ".met");
  EXPECT_EQ(sheet.plan.cells[0].state, CellState::Damaged);
  EXPECT_EQ(sheet.plan.cells[0].note, "Could not be decoded within 120 s");
  EXPECT_EQ(sheet.plan.cells[1].state, CellState::Good);
}

TEST(SheetDrawing, TooManyDeathsEndIt) {
  const Refusal refusal = refusalOf([] { draw(planOf(std::vector<std::string>(30, "crash"))); });
  EXPECT_EQ(refusal.message, std::string("\"") + FAKE_IMAGE_HELPER + "\" came to no end with 21 files");
  EXPECT_EQ(refusal.hint, "name frames that are good: --frames");
}

TEST(SheetDrawing, AHelperThatSaysSomethingElseIsQuoted) {
  const Refusal refusal = refusalOf([] { draw(planOf({"garbage"})); });
  EXPECT_EQ(refusal.message, std::string("\"") + FAKE_IMAGE_HELPER +
                                 "\" said \"error while loading shared libraries: libpicture.so\"");
}

TEST(SheetDrawing, AHelperThatIsNotThereIsNamed) {
  const Refusal refusal = refusalOf([] { draw(planOf({"a"}), "/nowhere/trovik-image"); });
  EXPECT_EQ(refusal.message, "cannot start \"/nowhere/trovik-image\": No such file or directory");
  EXPECT_EQ(refusal.hint, "it is installed beside trovik");
}

TEST(SheetDrawing, AHelperThatOnlyEndsIsNamed) {
  const Refusal refusal = refusalOf([] { draw(planOf({"a"}), "/bin/true"); });
  EXPECT_EQ(refusal.message, "\"/bin/true\" ended with exit code 0");
}

TEST(SheetDrawing, TheHelpersOwnErrorIsPassedOn) {
  const TemporaryDirectory directory;
  const Refusal refused = refusalOf([&] {
    LocalMachine machine;
    drawSheet(
        machine, Path(IMAGE_HELPER), planOf({"a"}), Path(directory.file("a.txt")), [](std::size_t) {},
        [](const std::string&) {});
  });
  EXPECT_EQ(refused.message, "cannot write \"" + directory.file("a.txt") +
                                 "\": its name must end with .png, .jpg, .exr or .tif");
}

} // namespace
} // namespace trovik
