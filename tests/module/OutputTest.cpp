#include "tests/module/CodePageCase.h"
#include "tests/module/ModuleTest.h"

#include <random>

namespace {

using Texts = std::vector<String>;

class OutputTest : public ModuleTest {
protected:
  /// A job of a type with these parameters, heard by m_Observer.
  SmartHandle<Job> MakeOutputJob(std::string_view body) {
    SmartHandle<Job> job = MakeJob(LoadType(body));
    job->SetObserver(&m_Observer);
    return job;
  }

  /// Whether the host's own line handling got the line, as it was.
  static bool Reaches(const SmartHandle<Job>& job, const String& line) {
    RenderJob& render = AsRender(job);
    render.ProcessJob::ProcessLine("nothing of interest");
    render.ProcessLine(line);
    return render.LastLine() == line;
  }

  static int Verdict(const SmartHandle<Job>& job, int exitCode) {
    return AsRender(job).CheckResult(exitCode);
  }

  RecordingObserver m_Observer;
};

TEST_F(OutputTest, WithoutSuccessTextsEveryLineReachesTheHostAndTheExitCodeDecides) {
  const SmartHandle<Job> job = MakeOutputJob("ImageStartText=saved:\n");
  EXPECT_TRUE(Reaches(job, "Frame 1"));
  EXPECT_TRUE(Reaches(job, "done"));
  EXPECT_FALSE(Reaches(job, "saved: /a.png"));
  for (int code : {0, 1, 2, 139}) {
    EXPECT_EQ(Verdict(job, code), AsRender(job).RenderJob::CheckResult(code)) << code;
  }
  EXPECT_EQ(Verdict(job, 0), 7);
  EXPECT_EQ(Verdict(job, 1), 5);
}

TEST_F(OutputTest, SuccessTextMustBeginTheLineInAnyCase) {
  const std::pair<const char*, bool> cases[] = {
      {"Render Done in 12s", true}, {"render done", true},           {"RENDER DONE", true},
      {"  render done", false},     {"Frame 3: render done", false}, {"render don", false},
      {"\trender done", false},
  };
  const UID type = LoadType("[SuccessText]\n1=render done\n");
  for (const auto& [line, matches] : cases) {
    const SmartHandle<Job> job = MakeJob(type);
    EXPECT_EQ(Reaches(job, line), !matches) << line;
    EXPECT_EQ(Verdict(job, 1), matches ? 7 : 5) << line;
  }
}

TEST_F(OutputTest, OnlyTheFirstSuccessLineIsSwallowed) {
  const SmartHandle<Job> job = MakeOutputJob("[SuccessText]\n1=done\n2=ready\n");
  EXPECT_TRUE(Reaches(job, "begin"));
  EXPECT_FALSE(Reaches(job, "ready now"));
  EXPECT_TRUE(Reaches(job, "done"));
  EXPECT_TRUE(Reaches(job, "ready now"));
  EXPECT_EQ(Verdict(job, 0), 7);
}

TEST_F(OutputTest, LineWithStartAndSuccessTextIsAnImageLineOnly) {
  const SmartHandle<Job> job = MakeOutputJob("ImageStartText=saved\n[SuccessText]\n1=done\n");
  EXPECT_FALSE(Reaches(job, "done: saved /a.png"));
  EXPECT_EQ(m_Observer.Images, Texts{"/a.png"});
  EXPECT_EQ(Verdict(job, 0), 5);
}

TEST_F(OutputTest, SuccessLineOutweighsTheExitCode) {
  const SmartHandle<Job> job = MakeOutputJob("[SuccessText]\n1=done\n");
  AsRender(job).ProcessLine("done");
  EXPECT_EQ(Verdict(job, 3), 7);
  EXPECT_EQ(Verdict(job, 139), 7);
  EXPECT_TRUE(m_Observer.Changes.empty());
}

TEST_F(OutputTest, MissingSuccessLineFailsTheWorkWithANote) {
  const SmartHandle<Job> job = MakeOutputJob("[SuccessText]\n1=done\n");
  AsRender(job).ProcessLine("something else");
  EXPECT_EQ(Verdict(job, 0), 5);
  const std::vector<std::pair<String, String>> expected{{"Note", "Did not see a required success line"}};
  EXPECT_EQ(m_Observer.Changes, expected);
  EXPECT_EQ(ValueOf(job, "Note"), "Did not see a required success line");
}

TEST_F(OutputTest, ProgramThatPrintedNothingIsJudgedByItsExitCode) {
  const SmartHandle<Job> job = MakeOutputJob("[SuccessText]\n1=done\n");
  EXPECT_EQ(Verdict(job, 0), 7);
  EXPECT_EQ(Verdict(job, 1), 5);
  EXPECT_NE(ValueOf(job, "Note"), "Did not see a required success line");
}

TEST_F(OutputTest, EmptySuccessTextMatchesTheFirstLineThatIsNoImageLine) {
  const SmartHandle<Job> job =
      MakeOutputJob("ImageStartText=saved\nName=x\n[OverrideDefaults]\nSuccessTexts=a;;b\n");
  EXPECT_FALSE(Reaches(job, "saved /a.png"));
  EXPECT_FALSE(Reaches(job, "anything"));
  EXPECT_TRUE(Reaches(job, "anything"));
  EXPECT_EQ(Verdict(job, 9), 7);

  const SmartHandle<Job> other = MakeJob(ID(k_ID));
  AsRender(other).ProcessLine("");
  EXPECT_EQ(Verdict(other, 9), 7);
}

TEST_F(OutputTest, NewSuccessTextsCountFromTheNextLineOn) {
  const SmartHandle<Job> job = MakeOutputJob("Name=x\n");
  AsRender(job).ProcessLine("one");
  EXPECT_TRUE(job->SetParameter("SuccessTexts", "done"));
  EXPECT_EQ(Verdict(job, 0), 7);
  AsRender(job).ProcessLine("two");
  EXPECT_EQ(Verdict(job, 0), 5);
  AsRender(job).ProcessLine("done");
  EXPECT_EQ(Verdict(job, 1), 7);
}

TEST_F(OutputTest, SeenSuccessStaysSeen) {
  const SmartHandle<Job> job = MakeOutputJob("[SuccessText]\n1=done\n");
  AsRender(job).ProcessLine("done");
  EXPECT_TRUE(job->SetParameter("SuccessTexts", "other"));
  job->SetType(job->Type());
  OutStream out;
  job->PackObject(out);
  InStream in(out.Bytes());
  job->UnpackObject(in, 1);
  AsRender(job).ProcessLine("line");
  EXPECT_EQ(Verdict(job, 1), 7);
}

TEST_F(OutputTest, EndTextCutsTheName) {
  const SmartHandle<Job> job = MakeOutputJob("ImageStartText=saving image\nImageEndText=done\n");
  AsRender(job).ProcessLine("Saving image /out/A.0001.exr DONE");
  EXPECT_EQ(m_Observer.Images, Texts{"/out/A.0001.exr"});
}

TEST_F(OutputTest, WithoutEndTextsTheNameRunsToTheEnd) {
  const SmartHandle<Job> job = MakeOutputJob("ImageStartText=saving image\n");
  AsRender(job).ProcessLine("Saving image /out/A.0001.exr DONE");
  EXPECT_EQ(m_Observer.Images, Texts{"/out/A.0001.exr DONE"});
}

TEST_F(OutputTest, LineWithoutItsEndTextIsDropped) {
  const SmartHandle<Job> job =
      MakeOutputJob("ImageStartText=saving\nImageEndText=done\n[SuccessText]\n1=saving\n");
  EXPECT_FALSE(Reaches(job, "saving /a.png"));
  EXPECT_TRUE(AsRender(job).Images().empty());
  EXPECT_EQ(Verdict(job, 0), 5);
}

TEST_F(OutputTest, LineThatEndsWithANotEndTextIsDropped) {
  const SmartHandle<Job> job =
      MakeOutputJob("ImageStartText=saving\nImageEndText=done\nImageNotEndText=x;skipped\n");
  EXPECT_FALSE(Reaches(job, "saving /a.png done SKIPPED"));
  EXPECT_TRUE(AsRender(job).Images().empty());
  // The line's end counts, blanks included.
  EXPECT_FALSE(Reaches(job, "saving /a.png done skipped "));
  EXPECT_EQ(m_Observer.Images, Texts{"/a.png"});
}

TEST_F(OutputTest, NotEndTextCountsAlsoBeforeTheStartText) {
  const SmartHandle<Job> job = MakeOutputJob("ImageStartText=saving\nImageNotEndText=no saving\n");
  EXPECT_FALSE(Reaches(job, "no saving"));
  EXPECT_TRUE(AsRender(job).Images().empty());
}

TEST_F(OutputTest, StartTextAtTheEndOfTheLineReportsAnEmptyName) {
  const SmartHandle<Job> job = MakeOutputJob("ImageStartText=saving\n");
  EXPECT_FALSE(Reaches(job, "now saving"));
  // The host ignores an empty name; the line is finished all the same.
  EXPECT_TRUE(AsRender(job).Images().empty());
}

TEST_F(OutputTest, EndTextBeforeTheStartTextLetsTheNameRunToTheEnd) {
  const SmartHandle<Job> job = MakeOutputJob("ImageStartText=saving\nImageEndText=done\n");
  AsRender(job).ProcessLine("done saving /a.png  ");
  AsRender(job).ProcessLine("done saving /b.png done and done");
  EXPECT_EQ(m_Observer.Images, (Texts{"/a.png", "/b.png done and"}));
}

TEST_F(OutputTest, EndTextThatOverlapsTheStartTextDoesNotEndTheName) {
  const SmartHandle<Job> job = MakeOutputJob("ImageStartText=saved to\nImageEndText=to\n");
  AsRender(job).ProcessLine("saved to /a.png");
  EXPECT_EQ(m_Observer.Images, Texts{"/a.png"});
}

TEST_F(OutputTest, FirstEndTextOfTheListThatOccursEndsTheName) {
  const SmartHandle<Job> job = MakeOutputJob("ImageStartText=saving\nImageEndText=none;, b;, a\n");
  AsRender(job).ProcessLine("saving /a.png, b, a");
  EXPECT_EQ(m_Observer.Images, Texts{"/a.png"});
}

TEST_F(OutputTest, EmptyStartTextMakesEveryLineAnImageLine) {
  const SmartHandle<Job> job = MakeOutputJob("ImageStartText=saving;;x\n[SuccessText]\n1=done\n");
  EXPECT_FALSE(Reaches(job, "done"));
  EXPECT_FALSE(Reaches(job, " /b.png "));
  EXPECT_FALSE(Reaches(job, "saving /c.png"));
  EXPECT_EQ(AsRender(job).Images().size(), 3U);
  EXPECT_EQ(m_Observer.Images.back(), "/c.png");
  EXPECT_EQ(Verdict(job, 0), 5);
}

TEST_F(OutputTest, EmptyNotEndTextDropsEveryImageLine) {
  const SmartHandle<Job> job = MakeOutputJob("ImageStartText=saving\nImageNotEndText=a;;b\n");
  EXPECT_FALSE(Reaches(job, "saving /c.png"));
  EXPECT_TRUE(AsRender(job).Images().empty());
  EXPECT_TRUE(Reaches(job, "other"));
}

TEST_F(OutputTest, EarlierStartTextOfTheListWinsWhereverItStands) {
  const SmartHandle<Job> job = MakeOutputJob("ImageStartText=second;first\n");
  AsRender(job).ProcessLine("first /a.png second /b.png");
  EXPECT_EQ(m_Observer.Images, Texts{"/b.png"});
}

TEST_F(OutputTest, CaseOfTheNameIsKept) {
  const SmartHandle<Job> job = MakeOutputJob("ImageStartText=Writing\nImageEndText=;OK\n");
  AsRender(job).ProcessLine("WRITING /C/Img/Frame.TIF");
  EXPECT_EQ(m_Observer.Images, Texts{"/C/Img/Frame.TIF"});
}

TEST_F(OutputTest, PlainNamesKeepTheirCaseToo) {
  const SmartHandle<Job> job = MakeOutputJob("ImageStartText=Writing\n");
  AsRender(job).ProcessLine("WRITING C:/Img/Frame.TIF");
  ASSERT_EQ(AsRender(job).Images().size(), 1U);
  EXPECT_TRUE(AsRender(job).Images()[0].Text().ends_with("C:/Img/Frame.TIF"));
}

TEST_F(OutputTest, PiecesKeepTheirBlanksAndLoseTheirQuotes) {
  const SmartHandle<Job> job = MakeOutputJob("ImageStartText=\"a; b\"; c \n");
  EXPECT_TRUE(Reaches(job, "xc /1.png"));
  EXPECT_FALSE(Reaches(job, "x c/2.png"));
  EXPECT_FALSE(Reaches(job, "xA; B/3.png"));
  EXPECT_EQ(m_Observer.Images, (Texts{"/2.png", "/3.png"}));
}

TEST_F(OutputTest, NewStartTextCountsFromTheNextLineOn) {
  const SmartHandle<Job> job = MakeOutputJob("ImageStartText=one\n");
  EXPECT_TRUE(Reaches(job, "two /a.png"));
  EXPECT_TRUE(job->SetParameter("ImageStartText", "two"));
  EXPECT_TRUE(Reaches(job, "one /b.png"));
  EXPECT_FALSE(Reaches(job, "two /c.png"));
  EXPECT_TRUE(job->SetParameter("ImageStartText", ""));
  // The type's default counts again.
  EXPECT_FALSE(Reaches(job, "one /d.png"));
  EXPECT_EQ(m_Observer.Images, (Texts{"/c.png", "/d.png"}));
}

TEST_F(OutputTest, UnpackedTextsCountOnlyOnceTheListsAreBuiltAnew) {
  const UID type = LoadType("Name=x\n");
  const SmartHandle<Job> packed = MakeJob(type);
  packed->SetParameter("ImageStartText", "two");
  OutStream out;
  packed->PackObject(out);

  const SmartHandle<Job> job = MakeJob(type);
  job->SetParameter("ImageStartText", "one");
  EXPECT_FALSE(Reaches(job, "one /a.png"));
  InStream in(out.Bytes());
  job->UnpackObject(in, 1);
  EXPECT_FALSE(Reaches(job, "one /b.png"));
  EXPECT_TRUE(Reaches(job, "two /c.png"));
  job->SetParameter("ImageEndText", "");
  EXPECT_FALSE(Reaches(job, "two /d.png"));
}

TEST_F(OutputTest, EnginesOptionCountsBeforeTheTypesDefault) {
  const SmartHandle<Job> job = MakeOutputJob("ImageStartText=one\n");
  Application::the_Application->Options().SetValue(k_ID, "ImageStartText", "two");
  EXPECT_TRUE(Reaches(job, "one /a.png"));
  EXPECT_FALSE(Reaches(job, "two /b.png"));
}

TEST_F(OutputTest, ErrorTextsAreTheHostsToFind) {
  const SmartHandle<Job> job =
      MakeOutputJob("ImageStartText=saving\n[ErrorText]\n1=error\n[SuccessText]\n1=done\n");
  AsRender(job).ProcessLine("error saving /a.png");
  EXPECT_EQ(AsRender(job).ErrorLine(), "");
  AsRender(job).ProcessLine("ERROR: no such file");
  EXPECT_EQ(AsRender(job).ErrorLine(), "ERROR: no such file");
}

TEST_F(OutputTest, TextsAndLinesMayHoldAnyBytes) {
  const SmartHandle<Job> job = MakeOutputJob("Name=x\n");
  job->SetParameter("ImageStartText", String("a\0b", 3));
  EXPECT_TRUE(Reaches(job, "a"));
  EXPECT_TRUE(Reaches(job, String("a\0c /x.png", 10)));
  EXPECT_FALSE(Reaches(job, String("\xFF\x80"
                                   "A\0B /y.png",
                                   12)));
  EXPECT_EQ(m_Observer.Images, Texts{"/y.png"});
}

TEST_F(OutputTest, LineOfAHundredMegabytesIsJudgedLikeAnyOther) {
  const std::size_t size = std::size_t{100} << 20;
  const SmartHandle<Job> job =
      MakeOutputJob("ImageStartText=saving image\nImageEndText=over\n[SuccessText]\n1=done\n");
  String line(size, 's');
  AsRender(job).ProcessLine(line);
  EXPECT_TRUE(AsRender(job).Images().empty());
  line.replace(size - 40, 40, "Saving Image /out/last.png OVER and out.");
  AsRender(job).ProcessLine(line);
  EXPECT_EQ(m_Observer.Images, Texts{"/out/last.png"});
  line.replace(0, 4, "DONE");
  line.resize(size - 40);
  AsRender(job).ProcessLine(line);
  EXPECT_EQ(Verdict(job, 1), 7);
}

/// The rules for lines read word for word: a lower-cased copy of every line,
/// every text searched one after the other.
class LiteralRules {
public:
  LiteralRules(RenderJob& host, const Job& values) : m_Host(host) {
    Fill(values, "ImageStartText", m_Start);
    Fill(values, "ImageEndText", m_End);
    Fill(values, "ImageNotEndText", m_NotEnd);
    Fill(values, "SuccessTexts", m_Success);
  }

  void ProcessLine(const String& line) {
    const std::string lowered = Lower(line);
    if (Image(line, lowered)) {
      return;
    }
    if (m_Seen || m_Success.empty()) {
      m_Host.ProcessJob::ProcessLine(line);
      return;
    }
    for (const std::string& text : m_Success) {
      if (lowered.compare(0, text.size(), text) == 0) {
        m_Seen = true;
        return;
      }
    }
    m_Host.ProcessJob::ProcessLine(line);
  }

  int CheckResult(int exitCode) const {
    return m_Success.empty() ? m_Host.RenderJob::CheckResult(exitCode) : m_Seen ? 7 : 5;
  }

private:
  static std::string Lower(std::string text) {
    const std::locale locale;
    for (char& byte : text) {
      byte = std::use_facet<std::ctype<char>>(locale).tolower(byte);
    }
    return text;
  }

  static void Fill(const Job& values, const char* name, std::vector<std::string>& texts) {
    StringTokenizer tokenizer(values.GetParameterOrOption(name, true, true), ';', false, '"', '\\');
    while (tokenizer.HasNext()) {
      const Path piece(tokenizer.GetNext());
      texts.push_back(Lower(piece.Dequote().Text()));
    }
  }

  bool Image(const String& line, const std::string& lowered) {
    int start = -1;
    int length = 0;
    for (const std::string& text : m_Start) {
      start = static_cast<int>(lowered.find(text));
      if (start != -1) {
        length = static_cast<int>(text.size());
        break;
      }
    }
    if (start == -1) {
      return false;
    }
    for (const std::string& text : m_NotEnd) {
      if (lowered.size() >= text.size() && lowered.substr(lowered.size() - text.size()) == text) {
        return true;
      }
    }
    int end = static_cast<int>(line.size());
    for (const std::string& text : m_End) {
      end = static_cast<int>(lowered.rfind(text));
      if (end != -1) {
        break;
      }
    }
    if (end == -1) {
      return true;
    }
    const int from = start + length;
    std::string name;
    if (from < static_cast<int>(line.size())) {
      name = end < from ? line.substr(static_cast<std::size_t>(from))
                        : line.substr(static_cast<std::size_t>(from), static_cast<std::size_t>(end - from));
    }
    const std::locale locale;
    while (!name.empty() && std::isspace(name.back(), locale)) {
      name.pop_back();
    }
    while (!name.empty() && std::isspace(name.front(), locale)) {
      name.erase(0, 1);
    }
    m_Host.ProcessNewFilename(Path(name));
    return true;
  }

  RenderJob& m_Host;
  std::vector<std::string> m_Start;
  std::vector<std::string> m_End;
  std::vector<std::string> m_NotEnd;
  std::vector<std::string> m_Success;
  bool m_Seen = false;
};

class RandomOutput {
public:
  explicit RandomOutput(unsigned seed) : m_Random(seed) {}

  std::size_t Pick(std::size_t count) { return m_Random() % count; }

  String Text(std::size_t longest) {
    using namespace std::string_view_literals;
    static constexpr std::string_view k_Bytes = "aAbBcC  \t;\"\\/.\0\xC3\x84\xE4\xFF[{"sv;
    // Few different bytes make matches frequent, all of them make them rare.
    const std::size_t kinds = 2 + Pick(k_Bytes.size() - 1);
    String text;
    for (std::size_t i = Pick(longest + 1); i > 0; --i) {
      text += k_Bytes[Pick(kinds)];
    }
    return text;
  }

  String List() {
    String list;
    for (std::size_t i = Pick(6); i > 0; --i) {
      // Single bytes and empty pieces match nearly everything; keep them rare.
      list += Pick(12) == 0 ? Text(1) : Text(5);
      list += ';';
    }
    return list;
  }

private:
  std::mt19937 m_Random;
};

class RandomOutputTest : public OutputTest {
protected:
  void Compare() {
    const auto seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    RandomOutput random(seed);
    const UID type = LoadType("[OverrideDefaults]\nStartDirectory=/start\n[ErrorText]\n1=ab\n");
    std::size_t images = 0;
    std::size_t forwarded = 0;
    for (int round = 0; round < 400; ++round) {
      const SmartHandle<Job> job = MakeJob(type);
      const SmartHandle<Job> other = MakeJob(type);
      for (const char* name : {"ImageStartText", "ImageEndText", "ImageNotEndText", "SuccessTexts"}) {
        const String list = random.List();
        job->SetParameter(name, list);
        other->SetParameter(name, list);
      }
      RenderJob& actual = AsRender(job);
      RenderJob& expected = AsRender(other);
      LiteralRules rules(expected, *other);
      for (int i = 0; i < 60; ++i) {
        const String line = random.Text(i % 10 == 0 ? 200 : 70);
        for (RenderJob* host : {&actual, &expected}) {
          host->ProcessJob::ProcessLine("-");
        }
        actual.ProcessLine(line);
        rules.ProcessLine(line);
        ASSERT_EQ(actual.Images(), expected.Images()) << testing::PrintToString(line);
        ASSERT_EQ(actual.LastLine(), expected.LastLine()) << testing::PrintToString(line);
        ASSERT_EQ(actual.ErrorLine(), expected.ErrorLine()) << testing::PrintToString(line);
        forwarded += actual.LastLine() == "-" ? 0U : 1U;
      }
      ASSERT_EQ(actual.CheckResult(1), rules.CheckResult(1));
      images += actual.Images().size();
    }
    EXPECT_GT(images, 100U);
    EXPECT_GT(forwarded, 100U);
  }
};

TEST_F(RandomOutputTest, LinesAreJudgedAsALiteralReadingOfTheRulesJudgesThem) {
  Compare();
}

class CodePageTest : public RandomOutputTest {
protected:
  void SetUp() override {
    RandomOutputTest::SetUp();
    m_Old = std::locale::global(std::locale(std::locale::classic(), new CodePageCase()));
  }
  void TearDown() override {
    std::locale::global(m_Old);
    RandomOutputTest::TearDown();
  }

  std::locale m_Old;
};

TEST_F(CodePageTest, LinesAreJudgedByTheGlobalLocalesCase) {
  Compare();
}

TEST_F(CodePageTest, LineIsLowerCasedByTheLocaleOfItsOwnTime) {
  const SmartHandle<Job> job = MakeOutputJob("ImageStartText=\xE4:\n");
  EXPECT_FALSE(Reaches(job, "\xC4: /a.png"));
  std::locale::global(std::locale::classic());
  EXPECT_TRUE(Reaches(job, "\xC4: /b.png"));
  EXPECT_FALSE(Reaches(job, "\xE4: /c.png"));
  EXPECT_EQ(m_Observer.Images, (Texts{"/a.png", "/c.png"}));
}

} // namespace
