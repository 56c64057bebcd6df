// The verdicts compared with what really happens: files are loaded by the
// module's own entry point, and jobs of random types expand their command
// lines, judge lines and look at their values. Each test tries both ways:
// nothing that works is called an error, and what does not work is.

#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/check/CheckTest.h"

#include "host/application/JobFactory.h"
#include "host/application/jobs/RenderJob.h"
#include "host/foundation/Log.h"
#include "host/foundation/Quoting.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <dlfcn.h>
#include <functional>
#include <random>
#include <set>

extern const char* const MODULE_FILE;

namespace trovik {
namespace {

class VerdictTest : public CheckTest {
protected:
  VerdictTest() { SetLogLevel(LogLevel::Off); }
  ~VerdictTest() override { SetLogLevel(LogLevel::Warning); }

  /// Makes a job of the type that a text describes, and hands it over.
  static bool withJob(const std::string& text, const std::function<void(RenderJob& job)>& use) {
    bool accepted = false;
    withTemporaryFile(text, [&](const Path& file) {
      accepted = modules().TryTypeFile(file, [&](const UID& type) {
        const SmartHandle<Job> job = JobFactory::s_JobFactory->CreateJob(type);
        use(dynamic_cast<RenderJob&>(*job));
      });
    });
    return accepted;
  }

  std::size_t below(std::size_t count) {
    return std::uniform_int_distribution<std::size_t>(0, count - 1)(random_);
  }
  template <typename Choices> auto oneOf(const Choices& choices) {
    return choices[below(std::size(choices))];
  }

  const unsigned int seed_ = std::random_device()();
  std::mt19937 random_{seed_};
};

bool hasErrors(const std::vector<Diagnostic>& problems) {
  return std::any_of(problems.begin(), problems.end(),
                     [](const Diagnostic& problem) { return problem.severity == Severity::Error; });
}

std::string allMessages(const std::vector<Diagnostic>& problems) {
  std::string text;
  for (const Diagnostic& problem : problems) {
    text += std::to_string(problem.line) + ": " + problem.rule + ": " + problem.message + '\n';
  }
  return text;
}

/// The module's own answer for a file on the disk.
class RealModule {
public:
  RealModule() : library_(dlopen(MODULE_FILE, RTLD_NOW | RTLD_LOCAL)) {}
  ~RealModule() { dlclose(library_); }
  RealModule(const RealModule&) = delete;
  RealModule& operator=(const RealModule&) = delete;

  bool loads(const std::string& file) const {
    auto* load = reinterpret_cast<bool (*)(const Path&)>(dlsym(library_, "_Z21LoadVirtualModuleDataRK4Path"));
    auto* unload = reinterpret_cast<void (*)()>(dlsym(library_, "OnModuleUnload"));
    const bool loaded = load(Path(String(file)));
    unload();
    return loaded;
  }

private:
  void* library_;
};

constexpr const char* example =
    "[Module]\nID=11111111-2222-3333-4444-555555555555\nName=Sketch\nShortcut=a, \"b, c\"\n"
    "Command=-s $(ActualScene) $(Width.Pad(4)) '$(Frame)'\n"
    "ImageStartText=saved;\"x;y\"\nImageEndText=;done\nCheckForMultipleFiles=Yes\nSceneNumberLength=2\n"
    "[SuccessText]\n1=ok\n[ErrorText]\n1=bad\n[AutoDetect]\nScene=OutputFolder=$(Scene.Branch)/o, Note=b\n"
    "[PrimaryParameters]\n1=Width\n[Width]\nType=Integer\nMinimum=1\nMaximum=9\nDefault=3\n"
    "[PrimaryCommands]\n1=Open\n[Open]\nCommand=view $(Scene.Enquote)\n"
    "[FindLatestExecutable]\nLinuxRoots=/opt,/x\nLinuxBases=sketch\nLinuxExe=sketch\n"
    "[OverrideFlags]\nWidth=Required, Literal\n[OverrideDefaults]\nPacketSize=1\n";

TEST_F(VerdictTest, AFileIsCalledRefusedExactlyWhereTheModuleRefusesIt) {
  SCOPED_TRACE("seed " + std::to_string(seed_));
  static const std::set<std::string> refusing = {"no-module", "missing-id", "bad-id", "utf-16", "unreadable"};
  const RealModule module;
  const TemporaryDirectory directory;
  int loaded = 0;
  int refused = 0;
  for (int round = 0; round < 800; ++round) {
    std::string text = example;
    if (round % 20 == 0) {
      text.resize(below(300));
      std::generate(text.begin(), text.end(), [this] { return static_cast<char>(below(256)); });
    }
    // Mostly near the beginning, where what decides stands.
    for (std::size_t i = below(6); i > 0 && !text.empty(); --i) {
      const std::size_t place = below(round % 2 == 0 ? text.size() : std::min<std::size_t>(text.size(), 60));
      switch (below(4)) {
      case 0:
        text[place] = static_cast<char>(below(256));
        break;
      case 1:
        text.erase(place, below(12));
        break;
      case 2:
        text.insert(place, text.substr(below(text.size()), below(40)));
        break;
      default:
        text[place] = oneOf(std::string("[]=\"\\;,\n$()%0-"));
      }
    }
    const bool real = module.loads(directory.write("sketch.tvx", text));
    const std::vector<Diagnostic> problems = CheckTest::problems(text);
    const bool called = std::none_of(problems.begin(), problems.end(), [](const Diagnostic& problem) {
      return problem.severity == Severity::Error && refusing.contains(problem.rule);
    });
    ASSERT_EQ(called, real) << text << '\n' << allMessages(problems);
    for (const Diagnostic& problem : problems) {
      ASSERT_NE(problem.rule, "refused") << text;
    }
    ASSERT_EQ(printed(text).empty(), problems.empty()) << text;
    ++(real ? loaded : refused);
  }
  EXPECT_GT(loaded, 100);
  EXPECT_GT(refused, 100);
}

TEST_F(VerdictTest, ACommandLineIsAnErrorExactlyWhereNoWorkCanStartByIt) {
  SCOPED_TRACE("seed " + std::to_string(seed_));
  static const std::vector<std::string> pieces = {"$(ActualScene)",
                                                  "$(Scene.Enquote)",
                                                  "$(Frame.Pad(4))",
                                                  "$(SubRange.Start)",
                                                  "$(Depth)",
                                                  "$(Name.Upper.Enquote)",
                                                  "$(Look.Prefix(--look=))",
                                                  "$(Sceen)",
                                                  "$(Frame.Pad)",
                                                  "$(Frame.Pda(4))",
                                                  "$(Frame.Upper(x))",
                                                  "$(Frame.Prefix(\"))",
                                                  "$(Frame.Prefix(\\)))",
                                                  "$(Look.Pad(2))",
                                                  "$(",
                                                  "$$(",
                                                  "${Depth}",
                                                  "$()",
                                                  ")",
                                                  ".",
                                                  "'",
                                                  "'",
                                                  "\"",
                                                  "\"",
                                                  "\\",
                                                  " ",
                                                  " -x ",
                                                  "y"};
  int good = 0;
  int bad = 0;
  for (int round = 0; round < 2000; ++round) {
    std::string command = "-a ";
    for (std::size_t i = below(5) + 1; i > 0; --i) {
      // Else nearly every line would be an error.
      command += pieces[below(below(3) == 0 ? pieces.size() : 7)];
    }
    const std::string text = std::string(head) + "Command=" + command +
                             "\nImageStartText=saved:\n[PrimaryParameters]\n1=Depth\n2=Look\n"
                             "[Depth]\nType=Integer\nDefault=3\nFlags=OfJob\n"
                             "[Look]\nType=Choice\nChoices=fine\nDefault=fine\nFlags=OfJob\n";
    bool works = true;
    ASSERT_TRUE(withJob(text, [&](RenderJob& job) {
      job.SetParameter("Scene", "/data/some where/b_0007.pov");
      job.SetParameter("Name", "b");
      job.SetParameter("SubRange", "7-9");
      try {
        Path executable;
        SplitCommandLine(job.FormatStringWithParameters(job.CreateCommandLine(executable)));
      } catch (Exception* exception) {
        takeText(exception);
        works = false;
      }
    }));
    const std::vector<Diagnostic> problems = CheckTest::problems(text);
    // Quotes around a quoted name, and a backslash before one, make an odd line
    // of an even one: doubtful, as it is told, but not by itself an error.
    const bool doubtful = std::any_of(problems.begin(), problems.end(), [](const Diagnostic& problem) {
      return problem.rule == "quoted-twice" || problem.rule == "escaped-reference";
    });
    if (doubtful && hasErrors(problems) == works) {
      continue;
    }
    ASSERT_EQ(hasErrors(problems), !works) << command << '\n' << allMessages(problems);
    ++(works ? good : bad);
  }
  EXPECT_GT(good, 300);
  EXPECT_GT(bad, 300);
}

TEST_F(VerdictTest, ATextIsCalledInVainExactlyWhereNoJobIsMovedByIt) {
  SCOPED_TRACE("seed " + std::to_string(seed_));
  int moved = 0;
  int vain = 0;
  for (int round = 0; round < 1500; ++round) {
    const auto text = [this] {
      std::string made;
      for (std::size_t i = below(3) + 1; i > 0; --i) {
        made += oneOf(std::string("abABc"));
      }
      return made;
    };
    const auto texts = [&](std::size_t most) {
      std::vector<std::string> made(below(most + 1));
      std::generate(made.begin(), made.end(), text);
      return made;
    };
    const bool anywhere = below(2) == 0;
    std::string file = std::string(head) + "Command=x\nErrorDetectPosition=" + (anywhere ? "Yes" : "No") +
                       "\nImageStartText=";
    for (const std::string& start : texts(1)) {
      file += start + ';';
    }
    file += "\n[OverrideDefaults]\nFileCheck=None\n";
    std::vector<std::pair<std::string, std::uint32_t>> successes;
    std::vector<std::pair<std::string, std::uint32_t>> errors;
    const auto write = [&](const char* section, const std::vector<std::string>& list,
                           std::vector<std::pair<std::string, std::uint32_t>>* lines) {
      file += std::string("[") + section + "]\n";
      for (std::size_t i = 0; i < list.size(); ++i) {
        file += std::to_string(i) + '=' + list[i] + '\n';
        if (lines != nullptr) {
          lines->emplace_back(list[i], std::count(file.begin(), file.end(), '\n'));
        }
      }
    };
    write("SuccessText", texts(2), &successes);
    write("ErrorText", texts(3), &errors);
    write("ErrorIgnore", texts(1), nullptr);

    std::set<std::uint32_t> told;
    for (const Diagnostic& problem : problems(file)) {
      if (problem.rule == "never-reached" || problem.rule == "always-ignored") {
        told.insert(problem.line);
      }
    }
    const auto compare = [&](const std::string& what, std::uint32_t line, bool moves) {
      EXPECT_EQ(told.contains(line), !moves) << what << " in\n" << file;
      ++(moves ? moved : vain);
    };
    for (const auto& [success, line] : successes) {
      ASSERT_TRUE(withJob(file, [&, wanted = success, place = line](RenderJob& job) {
        job.ProcessLine(String(wanted));
        compare(wanted, place, job.CheckResult(1) == k_StatusFinished);
      }));
    }
    for (const auto& [error, line] : errors) {
      ASSERT_TRUE(withJob(file, [&, wanted = error, place = line](RenderJob& job) {
        job.ProcessLine(String((anywhere ? "~" : "") + wanted));
        compare(wanted, place, !job.ErrorLine().empty());
      }));
    }
    if (HasFailure()) {
      return;
    }
  }
  EXPECT_GT(moved, 300);
  EXPECT_GT(vain, 300);
}

TEST_F(VerdictTest, ADefaultIsAnErrorExactlyWhereNoJobWithItIsValid) {
  static const std::vector<std::pair<const char*, const char*>> values = {{"PacketSize", "1"},
                                                                          {"PacketSize", "0"},
                                                                          {"PacketSize", "x"},
                                                                          {"PacketSize", "1.5"},
                                                                          {"PacketSize", ""},
                                                                          {"PacketSize", "$(CPUs)"},
                                                                          {"FileCheck", "Work"},
                                                                          {"FileCheck", "work"},
                                                                          {"FileCheck", "Each"},
                                                                          {"RunTimeLimit", "5m"},
                                                                          {"RunTimeLimit", "soon"},
                                                                          {"RunTimeLimit", "-5"},
                                                                          {"Range", "1-5x2"},
                                                                          {"Range", "1-"},
                                                                          {"Retries", "101"},
                                                                          {"Priority", "100"},
                                                                          {"RefuseFlatImages", "Ye"},
                                                                          {"RefuseFlatImages", "on"},
                                                                          {"EnquoteActual", "maybe"},
                                                                          {"EnquoteActual", ""},
                                                                          {"CheckForMultipleFiles", "2"},
                                                                          {"SceneNumberLength", "a"},
                                                                          {"CPUs", "99999999999"}};
  for (const auto& [name, value] : values) {
    const std::string text = std::string(head) + "Command=x\nImageStartText=saved:\n[OverrideDefaults]\n" +
                             name + '=' + value + '\n';
    bool valid = false;
    ASSERT_TRUE(withJob(text, [&](RenderJob& job) { valid = job.IsValid(); }));
    const std::vector<Diagnostic> problems = CheckTest::problems(text);
    EXPECT_EQ(hasErrors(problems), !valid) << name << '=' << value << '\n' << allMessages(problems);
  }
}

} // namespace
} // namespace trovik
