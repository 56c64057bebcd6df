#include "host/application/jobs/ExecutableSearch.h"
#include "tests/application/jobs/TestJob.h"

#include <algorithm>
#include <memory>
#include <random>

namespace {

class ExpectedFiles : public JobTest {
protected:
  /// The rule read literally: each template for each frame, as if the job were
  /// for that frame alone, counted from where the whole work starts.
  std::vector<Path> Literal(TestJob& job, const String& range) {
    job.SetParameter(p_SubRange, range);
    const Path start = MakeAbsolute(job.DetermineStartDirectory());
    std::vector<Path> files;
    const auto add = [&] {
      for (const String& text : job.EffectiveTexts(p_ExpectedFiles)) {
        const Path file = MakeAbsolute(text, start);
        if (!text.empty() && std::find(files.begin(), files.end(), file) == files.end()) {
          files.push_back(file);
        }
      }
    };
    FrameRun run;
    if (!ParseRun(range, run)) {
      add();
      return files;
    }
    for (int frame = run.First; frame <= run.Last; ++frame) {
      job.SetParameter(p_SubRange, FrameRun{frame, frame}.Text());
      add();
    }
    return files;
  }
};

/// The names, or why they are refused.
template <typename Read> String Outcome(Read read) {
  try {
    String names;
    for (const Path& file : read()) {
      names += file.Text() + "\n";
    }
    return names;
  } catch (Exception* exception) {
    const std::unique_ptr<Exception> owned(exception);
    return "refused: " + owned->Message();
  }
}

TEST_F(ExpectedFiles, OneReaderGivesThoseOfOneRangeAfterTheOther) {
  TestJob& job = NewJob();
  job.SetParameter(p_Scene, "/s/a.pov");
  job.SetParameter(p_ExpectedFiles, "/o/$(Scene.Base)_$(Frame.Pad(3)).png;$(SubRange).log");
  RenderJob::ExpectedFileReader reader(job);
  job.SetParameter(p_SubRange, "7-7");
  EXPECT_EQ(reader.Read(), (std::vector<Path>{"/o/a_007.png", "/s/7-7.log"}));
  job.SetParameter(p_SubRange, "8"); // each frame reads as a range, however the work's is written
  EXPECT_EQ(reader.Read(), (std::vector<Path>{"/o/a_008.png", "/s/8-8.log"}));
  job.SetParameter(p_SubRange, "");
  EXPECT_EQ(reader.Read(), (std::vector<Path>{"/o/a_.png", "/s/.log"}));
}

TEST_F(ExpectedFiles, ARelativeNameThatComesLateCountsFromTheStartDirectory) {
  TestJob& job = NewJob();
  job.SetParameter(p_Scene, "/s/$(x/a.pov");
  job.SetParameter(p_StartDirectory, "/start$(SubRange)");
  job.SetParameter(p_ExpectedFiles, "$(Frame.Replace(3,x).Replace(1,/).Replace(2,/)).png;/b$(Frame)");
  RenderJob::ExpectedFileReader reader(job);
  for (const char* range : {"1-2", "1-3", "2-5", "3-3", "1-1"}) {
    job.SetParameter(p_SubRange, range);
    EXPECT_EQ(reader.Read(), job.ExpectedFiles()) << range;
  }
  job.SetParameter(p_SubRange, "2-3");
  EXPECT_EQ(reader.Read(), (std::vector<Path>{"/.png", "/b2", "/start2-3/x.png", "/b3"}));
}

TEST_F(ExpectedFiles, RandomTemplatesGiveWhatALiteralReadingGives) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const char* const pieces[] = {"/o/",
                                "$(Frame)",
                                "$(Frame.Pad(4))",
                                "$(OutputFolder)/",
                                "$(Scene.Base)",
                                "$(SubRange.Start.Add(-1))",
                                "$(SubRange)",
                                "$(Name.Enquote)",
                                "$(Frame.Replace(1,/))",
                                ";",
                                "$$(",
                                " ",
                                "a",
                                "%04d",
                                "$(Note.Default(/n))",
                                "\\",
                                "$(Frame.Replace(2,).Prefix(/p))"};
  const char* const folders[] = {"/f", "f", "$(Frame)/f", "", "/$(SubRange.End)", "$(Scene.Branch)/x"};
  const char* const ranges[] = {"1-1", "1", "9-12", "-3-2", "", "20-31", "2-2", "x"};
  int named = 0;
  for (int round = 0; round < 300; ++round) {
    TestJob& job = NewJob();
    TestJob& other = NewJob();
    String text;
    for (auto count = random() % 6; count > 0; --count) {
      text += pieces[random() % std::size(pieces)];
    }
    const String folder = folders[random() % std::size(folders)];
    for (TestJob* one : {&job, &other}) {
      one->SetParameter(p_Scene, "/s cenes/$(Frame)/a.b.pov");
      one->SetParameter(p_Name, "n\"$(x");
      one->SetParameter(p_ExpectedFiles, text);
      one->SetParameter(p_OutputFolder, folder);
    }
    RenderJob::ExpectedFileReader reader(job);
    for (int turn = 0; turn < 8; ++turn) {
      const String range = ranges[random() % std::size(ranges)];
      job.SetParameter(p_SubRange, range);
      const String expected = Outcome([&] { return Literal(other, range); });
      ASSERT_EQ(Outcome([&] { return reader.Read(); }), expected) << text << " of " << range;
      ASSERT_EQ(Outcome([&] { return job.ExpectedFiles(); }), expected) << text << " of " << range;
      named += expected.starts_with("/") ? 1 : 0;
    }
  }
  EXPECT_GT(named, 300);
}

} // namespace
