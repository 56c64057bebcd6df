// Output that goes to a job in whole blocks leaves just what it leaves line by line.

#include "host/application/jobs/PlainLines.h"
#include "tests/module/CodePageCase.h"
#include "tests/module/ModuleTest.h"

#include <array>
#include <random>

namespace {

using namespace std::string_view_literals;

constexpr std::array k_Lists = {"ImageStartText", "ImageEndText", "ImageNotEndText", "SuccessTexts",
                                "ErrorStarts",    "ErrorIgnores", "RequiredTexts",   "NoRetryTexts"};

class PlainLinesTest : public ModuleTest {
protected:
  void TearDown() override {
    std::locale::global(m_Old);
    ModuleTest::TearDown();
  }

  std::size_t Pick(std::size_t count) { return m_Random() % count; }

  /// Few different bytes make matches frequent, all of them make them rare.
  String Text(std::size_t longest) {
    static constexpr std::string_view k_Bytes = "aAbBcC  \t.1\0\xC3\x84\xE4\xC4\xFF[{/"sv;
    const std::size_t kinds = 2 + Pick(k_Bytes.size() - 1);
    String text;
    for (std::size_t i = Pick(longest + 1); i > 0; --i) {
      text += k_Bytes[Pick(kinds)];
    }
    return text;
  }

  String List() {
    String list;
    for (std::size_t i = Pick(5); i > 0; --i) {
      // Short pieces match nearly everything; keep them rare.
      const std::size_t longest = Pick(12) == 0 ? 1 : 6;
      list += (longest == 1 ? "" : "bc") + Text(longest) + ";";
    }
    return list;
  }

  std::string Output() {
    static constexpr std::array k_Ends = {"\n"sv, "\n"sv, "\n"sv, "\r\n"sv, "\r"sv, "\b"sv, "\n\n"sv};
    std::string output;
    for (std::size_t i = Pick(60); i > 0; --i) {
      if (Pick(12) == 0) {
        output += Pick(2) == 0 ? "\x1b[31m" : "\xEF\xBB\xBF";
      }
      output += Text(Pick(10) == 0 ? 300 : 60);
      output += Pick(15) == 0 ? "\x1b[0m" : "";
      output += k_Ends[Pick(k_Ends.size())];
    }
    return output;
  }

  unsigned m_Seed = std::random_device()();
  std::mt19937 m_Random{m_Seed};
  std::locale m_Old;
};

TEST_F(PlainLinesTest, BlocksOfOutputLeaveWhatTheirLinesLeave) {
  SCOPED_TRACE("seed " + std::to_string(m_Seed));
  const std::locale codePage(std::locale::classic(), new CodePageCase());
  const UID type = LoadType("Name=Lines\n[OverrideDefaults]\nStartDirectory=/start\n");
  std::size_t images = 0;
  std::size_t errors = 0;
  std::size_t filtered = 0;
  for (int round = 0; round < 600; ++round) {
    const std::array<SmartHandle<Job>, 2> jobs = {MakeJob(type), MakeJob(type)};
    RenderJob& whole = AsRender(jobs[0]);
    RenderJob& single = AsRender(jobs[1]);
    const auto set = [&jobs](const char* name, const String& value) {
      for (const SmartHandle<Job>& job : jobs) {
        job->SetParameter(name, value);
      }
    };
    for (const char* name : k_Lists) {
      set(name, Pick(3) == 0 ? String::Null : List());
    }
    set("ErrorDetectPosition", Pick(2) == 0 ? "1" : "0");
    WorkLines lines(whole);
    LineSplitter blocks(lines);
    LineSplitter cutter([&single](std::string_view line) { single.WorkLine(line); });
    for (std::size_t turn = Pick(8); turn > 0; --turn) {
      const std::string output = Output();
      std::string_view rest = output;
      while (!rest.empty()) {
        const std::string_view part = rest.substr(0, 1 + Pick(Pick(2) == 0 ? 40 : 4000));
        blocks.Feed(part);
        cutter.Feed(part);
        rest.remove_prefix(part.size());
        ASSERT_EQ(whole.Images(), single.Images()) << testing::PrintToString(output);
        ASSERT_EQ(whole.LastLine(), single.LastLine()) << testing::PrintToString(output);
        ASSERT_EQ(whole.ErrorLine(), single.ErrorLine()) << testing::PrintToString(output);
        ASSERT_EQ(whole.IsWorthRepeating(), single.IsWorthRepeating()) << testing::PrintToString(output);
        filtered += whole.WantedTexts() == nullptr ? 0U : 1U;
      }
      if (Pick(4) == 0) {
        set(k_Lists[Pick(4)], List());
      }
      if (Pick(4) == 0) {
        std::locale::global(Pick(2) == 0 ? codePage : std::locale::classic());
      }
    }
    blocks.Finish();
    cutter.Finish();
    const int code = static_cast<int>(Pick(2));
    ASSERT_EQ(whole.FinishWork({code, 0}), single.FinishWork({code, 0}));
    ASSERT_EQ(whole.Note(), single.Note());
    ASSERT_EQ(whole.DecidedBy(), single.DecidedBy());
    ASSERT_EQ(whole.IsWorthRepeating(), single.IsWorthRepeating());
    ASSERT_EQ(whole.Images(), single.Images());
    images += whole.Images().size();
    errors += whole.ErrorLine().empty() ? 0U : 1U;
  }
  EXPECT_GT(images, 100U);
  EXPECT_GT(errors, 20U);
  EXPECT_GT(filtered, 500U);
}

TEST_F(PlainLinesTest, TypeThatIsAskedForAnAccountSeesEveryLine) {
  const SmartHandle<Job> job = MakeJob(LoadType("ImageStartText=saved:\n"));
  RenderJob& render = AsRender(job);
  EXPECT_EQ(render.WantedTexts(), nullptr) << "before the first line";
  render.WorkLine("begin");
  EXPECT_NE(render.WantedTexts(), nullptr);
  render.AccountForLines();
  EXPECT_EQ(render.WantedTexts(), nullptr);
}

TEST_F(PlainLinesTest, ValueOfATextMakesTheNextLineMatterWhateverItHolds) {
  const SmartHandle<Job> job = MakeJob(LoadType("ImageStartText=saved:\n"));
  RenderJob& render = AsRender(job);
  WorkLines lines(render);
  LineSplitter splitter(lines);
  splitter.Feed("begin\nwrote: /a.png\n");
  job->SetParameter("ImageStartText", "wrote:");
  EXPECT_EQ(render.WantedTexts(), nullptr);
  splitter.Feed("wrote: /b.png\nsaved: /c.png\nx\nwrote: /d.png\n");
  EXPECT_EQ(render.Images(), (std::vector<Path>{Path("/b.png"), Path("/d.png")}));
}

TEST_F(PlainLinesTest, TextThatATerminalSequenceInterruptsIsFound) {
  const SmartHandle<Job> job = MakeJob(LoadType("ImageStartText=saved:\n[ErrorText]\n1=error\n"));
  RenderJob& render = AsRender(job);
  WorkLines lines(render);
  LineSplitter splitter(lines);
  splitter.Feed("begin\nplain\nsa\x1b[1mved: /a.png\x1b[0m\n\xEF\xBB\xBF"
                "error: no\n");
  EXPECT_EQ(render.Images(), std::vector<Path>{Path("/a.png")});
  EXPECT_EQ(render.ErrorLine(), "error: no");
}

} // namespace
