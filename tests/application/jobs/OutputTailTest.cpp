// Which line tells why a program failed. The outputs are those of real programs,
// shortened.

#include "host/application/jobs/OutputTail.h"
#include "tests/application/jobs/TestJob.h"

#include <random>

namespace {

String Telling(const std::vector<String>& lines) {
  OutputTail output;
  for (const String& line : lines) {
    output.Add(line);
  }
  return output.Telling();
}

std::vector<String> WithHelp(std::vector<String> lines, int count) {
  for (int i = 0; i < count; ++i) {
    lines.push_back("    --size N    the size of the image, or an error value of " + std::to_string(i));
  }
  return lines;
}

TEST(OutputTailTest, OptionThatIsNotUnderstoodStandsAboveTheHelp) {
  EXPECT_EQ(Telling(WithHelp({"Invalid option \"--frobnicate\"", "Usage: oiiotool [filename]"}, 200)),
            "Invalid option \"--frobnicate\"");
  EXPECT_EQ(Telling(WithHelp({"unrecognised option '--frobnicate'"}, 50)),
            "unrecognised option '--frobnicate'");
  EXPECT_EQ(Telling({"unknown argument, loading as file: --frobnicate", "Read blend: /a", "Blender quit"}),
            "unknown argument, loading as file: --frobnicate");
}

TEST(OutputTailTest, FirstErrorIsTheCauseOfTheOthers) {
  EXPECT_EQ(Telling({"Error: Cannot read file '/a.blend': No such file or directory", "", "Blender quit"}),
            "Error: Cannot read file '/a.blend': No such file or directory");
  EXPECT_EQ(Telling({"File 'a.pov' line 6: Parse Error: Parse halted",
                     "Fatal error in parser: Cannot parse input.", "Render failed"}),
            "File 'a.pov' line 6: Parse Error: Parse halted");
  EXPECT_EQ(Telling({"a.ly:1:26: error: syntax error", "fatal error: failed files: \"a.ly\""}),
            "a.ly:1:26: error: syntax error");
  EXPECT_EQ(Telling({"oiiotool ERROR: read : File does not exist: \"a\"",
                     "Full command line was:", "> oiiotool a"}),
            "oiiotool ERROR: read : File does not exist: \"a\"");
}

TEST(OutputTailTest, CauseOfATracebackStandsBelowIt) {
  EXPECT_EQ(Telling({"Error: Python: Traceback (most recent call last):", "  File \"a.py\", line 3",
                     "    raise RuntimeError(\"no camera\")", "RuntimeError: no camera", "leaving"}),
            "RuntimeError: no camera");
}

TEST(OutputTailTest, MilderWordsCountAtTheEndAndTheLastOfThemDoes) {
  EXPECT_EQ(Telling({"Could not open file : a.png", "av_interleaved_write_frame(): Input/output error",
                     "Conversion failed!"}),
            "Could not open file : a.png");
  EXPECT_EQ(Telling({"cannot open the user configuration file", "1", "2", "3", "4", "5", "6", "7", "8",
                     "Render stopped"}),
            "");
}

TEST(OutputTailTest, NumbersWarningsAndHeadingsTellNothing) {
  for (const char* line : {"0 decoder errors", "Mean error: 0.02", "EGL Error", "warning: error: 3 samples",
                           "an exception:", "stderr: closed", "error", "terrors"}) {
    EXPECT_EQ(Telling({line, "leaving"}), "") << line;
  }
  EXPECT_EQ(Telling({}), "");
}

TEST(OutputTailTest, ErrorsInTheMiddleAreForgottenAndMemoryIsBounded) {
  OutputTail output;
  for (int i = 0; i < 100; ++i) {
    output.Add(i == 50 ? String("Error: lost") : String(1 << 20, 'x'));
  }
  EXPECT_EQ(output.Telling(), "");
  EXPECT_EQ(output.Last().size(), OutputTail::k_KeptLine);
  output.Add("Error: kept");
  for (int i = 0; i < 20; ++i) {
    output.Add("x");
  }
  EXPECT_EQ(output.Telling(), "Error: kept");
}

TEST(OutputTailTest, WholeLinesGiveTheSameAsOneByOne) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int round = 0; round < 2000; ++round) {
    OutputTail single;
    OutputTail whole;
    for (int block = 0; block < 4; ++block) {
      String lines;
      const std::size_t count = random() % 60;
      for (std::size_t i = 0; i < count; ++i) {
        const bool blank = random() % 4 == 0;
        const String line =
            blank ? String(" \t")
                  : String(random() % 50 == 0 ? "error: " : "cannot open ") + std::to_string(random() % 1000);
        lines += line + "\n\r\b"[random() % 3];
        if (!blank) {
          single.Add(line);
        }
      }
      whole.AddLines(lines);
      ASSERT_EQ(whole.Last(), single.Last());
      ASSERT_EQ(whole.Telling(), single.Telling());
    }
  }
}

// Short and long ones, asked for something only now and then.
TEST(OutputTailTest, BlocksOfLinesGiveTheSameAsTheirLinesOneByOne) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  int number = 0;
  for (int round = 0; round < 200; ++round) {
    OutputTail single;
    OutputTail whole;
    for (std::size_t block = random() % 300; block > 0; --block) {
      String lines;
      const std::size_t count = random() % 30 == 0 ? random() % 400 : random() % 6;
      for (std::size_t i = 0; i < count; ++i) {
        String line;
        if (random() % 5 != 0) {
          line = (random() % 40 == 0 ? "error: " : "cannot open ") + String(std::to_string(++number)) +
                 String(random() % 80, '.');
          single.Add(line);
        }
        lines += line + "\n\r\b"[random() % 3];
      }
      whole.AddLines(lines);
      if (random() % 8 == 0) {
        const String line = "line " + std::to_string(++number);
        single.Add(line);
        whole.Add(line);
      }
      if (random() % 20 == 0) {
        ASSERT_EQ(whole.Last(), single.Last());
        ASSERT_EQ(whole.Telling(), single.Telling());
      }
    }
    ASSERT_EQ(whole.Last(), single.Last());
    ASSERT_EQ(whole.Telling(), single.Telling());
  }
}

class OutputTailVerdict : public JobTest {};

TEST_F(OutputTailVerdict, NoteOfABadExitCodeQuotesTheTellingLine) {
  TestJob& job = NewJob();
  job.WorkLine("Invalid option \"--frobnicate\"");
  job.WorkLine("Usage: oiiotool");
  EXPECT_EQ(job.FinishWork({1, 0}), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Exit code 1; it said: Invalid option \"--frobnicate\"");
  // What a program that was killed said before is not the reason.
  EXPECT_EQ(job.FinishWork({137, 9}), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Killed by signal 9 (Killed); last line: Usage: oiiotool");
}

} // namespace
