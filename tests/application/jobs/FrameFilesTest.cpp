#include "host/application/jobs/FrameFiles.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

namespace {

using Paths = std::vector<std::string>;

/// What each image of a work is taken for, when all of them are known: "7",
/// "7?" when not sure, "-" for none.
Paths FramesOf(const FrameRun& frames, const Paths& images) {
  FrameFiles files(frames);
  for (const std::string& image : images) {
    files.Add(image);
  }
  Paths answers;
  for (const std::string& image : images) {
    const FrameFiles::Answer answer = files.FrameOf(image);
    answers.push_back(answer.Frame.has_value() ? std::to_string(*answer.Frame) + (answer.Sure ? "" : "?")
                                               : "-");
  }
  return answers;
}

TEST(FrameFiles, OneNumberIsTheFrameHoweverItIsPadded) {
  EXPECT_EQ(FramesOf({7, 9}, {"/out/a_7.png", "/out/a_0008.png", "/out/a_00000000000000000009.png"}),
            (Paths{"7", "8", "9"}));
}

TEST(FrameFiles, NumberThatIsNoFrameOfTheWorkTellsNothing) {
  EXPECT_EQ(FramesOf({7, 9}, {"/out/a_6.png", "/out/a_10.png", "/out/last.png", ""}),
            (Paths{"-", "-", "-", "-"}));
}

TEST(FrameFiles, EveryImageOfAWorkOfOneFrameIsOfIt) {
  EXPECT_EQ(FramesOf({7, 7}, {"/out/a.png", "/out/8.png", ""}), (Paths{"7", "7", "7"}));
}

TEST(FrameFiles, NumberMayStandInADirectory) {
  EXPECT_EQ(FramesOf({7, 9}, {"/shot/0007/beauty.exr", "/shot/0008/beauty.exr"}), (Paths{"7", "8"}));
}

TEST(FrameFiles, FirstFrameInTheFirstImageBeatsOtherNumbers) {
  EXPECT_EQ(FramesOf({5, 8}, {"/s/0005/v6.exr", "/s/0006/v6.exr"}), (Paths{"5", "6"}));
  EXPECT_EQ(FramesOf({5, 8}, {"/s/0005/v6.exr"}), Paths{"5?"});
  EXPECT_EQ(FramesOf({5, 8}, {"/0005/pass6.exr", "/0005/pass7.exr"}), (Paths{"6?", "7?"}));
  EXPECT_EQ(FramesOf({5, 8}, {"/0005/pass6.exr", "/0005/pass7.exr", "/0006/pass6.exr"}),
            (Paths{"5", "5", "6"}));
  EXPECT_EQ(FramesOf({1, 20}, {"shot_010_v2.0001.png", "shot_010_v2.0002.png", "shot_010_v2.0010.png"}),
            (Paths{"1", "2", "10"}));
}

TEST(FrameFiles, LastNumberIsTheFrameWhereNothingElseTells) {
  EXPECT_EQ(FramesOf({1, 20}, {"shot_010_v2.0007.png"}), Paths{"7?"});
  EXPECT_EQ(FramesOf({1, 20}, {"shot_010_v2.0007.png", "shot_010_v2.0008.png"}), (Paths{"7", "8"}));
}

TEST(FrameFiles, NumberThatStaysTheSameIsNoFrame) {
  EXPECT_EQ(FramesOf({1, 3}, {"/v001/a.0001.png", "/v001/a.0002.png", "/v001/a.0003.png"}),
            (Paths{"1", "2", "3"}));
  EXPECT_EQ(FramesOf({1, 3}, {"a.0001_v1.png", "a.0002_v1.png", "a.0003_v1.png"}),
            (Paths{"1", "2?", "3?"})); // or three cameras of frame 1
}

TEST(FrameFiles, NumberThatGoesRoundIsNoFrame) {
  EXPECT_EQ(
      FramesOf({1, 9}, {"/0001/layer1.exr", "/0001/layer2.exr", "/0002/layer1.exr", "/0002/layer2.exr"}),
      (Paths{"1", "1", "2", "2"}));
  EXPECT_EQ(FramesOf({1, 9}, {"cam1_0001.exr", "cam2_0001.exr", "cam1_0002.exr", "cam2_0002.exr"}),
            (Paths{"1", "1", "2", "2"}));
}

TEST(FrameFiles, NumbersThatLeaveTheWorkAreNoFrames) {
  EXPECT_EQ(FramesOf({1, 2}, {"1_cam1.exr", "1_cam2.exr", "1_cam3.exr", "2_cam1.exr"}),
            (Paths{"1", "1", "1", "2"}));
}

TEST(FrameFiles, WhatMayBeCamerasOfOneFrameIsNotSure) {
  EXPECT_EQ(FramesOf({1, 9}, {"cam1_0001.exr", "cam2_0001.exr", "cam3_0001.exr"}), (Paths{"1", "2?", "3?"}));
}

TEST(FrameFiles, ImagesOutOfOrderAreFound) {
  EXPECT_EQ(FramesOf({1, 4}, {"v1.0001.png", "v1.0003.png", "v1.0002.png", "v1.0004.png"}),
            (Paths{"1", "3", "2", "4"}));
  EXPECT_EQ(FramesOf({1, 4}, {"v1.0002.png", "v1.0001.png", "v1.0004.png", "v1.0003.png"}),
            (Paths{"2?", "1", "4?", "3?"})); // or four versions of frame 1
}

TEST(FrameFiles, EachPatternIsReadByItself) {
  EXPECT_EQ(FramesOf({2, 3}, {"beauty.2.exr", "/2/3/left.exr", "beauty.3.exr", "/3/3/left.exr"}),
            (Paths{"2", "2", "3", "3"}));
}

TEST(FrameFiles, DashIsASignWhereTheWorkHasNegativeFrames) {
  EXPECT_EQ(FramesOf({-5, -4}, {"a_-005.png", "a_-004.png"}), (Paths{"-5", "-4"}));
  EXPECT_EQ(FramesOf({-5, -4}, {"a-5.png", "a-4.png"}), (Paths{"-5", "-4"}));
  EXPECT_EQ(FramesOf({7, 8}, {"shot-007.png", "shot_-008.png"}), (Paths{"7", "8"}));
}

TEST(FrameFiles, DashIsToldApartWhereTheWorkHasFramesOfBothSigns) {
  const Paths frames = {"-2", "-1", "0", "1"};
  EXPECT_EQ(FramesOf({-2, 1}, {"a-2.png", "a-1.png", "a0.png", "a1.png"}), frames);
  EXPECT_EQ(FramesOf({-2, 1}, {"a--2.png", "a--1.png", "a-0.png", "a-1.png"}), frames);
  EXPECT_EQ(FramesOf({-2, 1}, {"a_-2.png", "a_-1.png", "a_0.png", "a_1.png"}), frames);
  EXPECT_EQ(FramesOf({-1, 1}, {"a-1.png"}), Paths{"-1?"});
}

TEST(FrameFiles, EndsOf32BitsAreFramesAndWhatIsBeyondIsNone) {
  constexpr int least = std::numeric_limits<int>::min();
  constexpr int most = std::numeric_limits<int>::max();
  EXPECT_EQ(
      FramesOf({most - 1, most}, {"2147483646.png", "2147483647.png", "2147483648.png", "4294967295.png"}),
      (Paths{"2147483646", "2147483647", "-", "-"}));
  EXPECT_EQ(FramesOf({least, least + 1}, {"_-2147483648.png", "_-2147483647.png", "_-2147483649.png"}),
            (Paths{"-2147483648", "-2147483647", "-"}));
  EXPECT_EQ(FramesOf({least, most}, {"99999999999999999999_3.png"}), Paths{"3"});
}

TEST(FrameFiles, DigitsOfAnExtensionAreNoNumber) {
  EXPECT_EQ(FramesOf({1, 9}, {"movie.mp4", "a.jp2", "/3.d/a.m2ts", "b.3ds"}), (Paths{"-", "-", "3", "-"}));
  EXPECT_EQ(FramesOf({1, 9}, {"a_7.jp2", "a_8.jp2", "a.0003", "a.0004_left", ".5", "a.v006"}),
            (Paths{"7", "8", "3", "4", "5", "6"}));
}

TEST(FrameFiles, TimeStampsBesideTheFrameAreNoMatter) {
  EXPECT_EQ(
      FramesOf({1, 3}, {"20261121045143.0001.png", "20261121045144.0002.png", "20261121045145.0003.png"}),
      (Paths{"1", "2", "3"}));
}

TEST(FrameFiles, AnswersForImagesThatWereNotAdded) {
  FrameFiles files({1, 9});
  EXPECT_EQ(files.FrameOf("a_0003.png").Frame, 3);
  files.Add("v1/a_0001.png");
  files.Add("v1/a_0002.png");
  EXPECT_EQ(files.FrameOf("v1/a_0009.png").Frame, 9);
  EXPECT_EQ(files.FrameOf("v2/a_0003.png").Frame, 3);
}

// With a bound on the numbers that are looked at, the last ones count.
TEST(FrameFiles, ThousandsOfNumbersInANameStayCheap) {
  FrameFiles files({1, 100});
  std::string hostile;
  while (hostile.size() < 4090) {
    hostile += "1-";
  }
  for (int i = 0; i < 20000; ++i) {
    files.Add(hostile + std::to_string(i % 100 + 1));
  }
  EXPECT_EQ(files.FrameOf(hostile + "42").Frame, 42);
}

TEST(FrameFiles, MorePatternsThanAreKeptAreReadOneByOne) {
  FrameFiles files({1, 9});
  for (int i = 0; i < 30000; ++i) {
    std::string letters;
    for (int rest = i; rest > 0; rest /= 26) {
      letters.push_back(static_cast<char>('a' + rest % 26));
    }
    files.Add(letters + "_1.png");
  }
  EXPECT_EQ(files.FrameOf("zzz_0004.png").Frame, 4);
}

/// A way to name the files of a work: parts around up to three numbers.
struct Naming {
  std::vector<std::string> parts;
  std::vector<int> kinds; ///< 0: the frame; 1: a pass; else a number that stays
  std::size_t width = 1;

  std::string name(int frame, int pass) const {
    std::string text = parts[0];
    for (std::size_t i = 0; i < kinds.size(); ++i) {
      std::string digits = std::to_string(kinds[i] == 0 ? frame : kinds[i] == 1 ? pass : kinds[i]);
      digits.insert(0, width - std::min(width, digits.size()), '0');
      text += digits + parts[i + 1];
    }
    return text;
  }
};

Naming anyNaming(bool frameLast) {
  Naming naming;
  naming.kinds = {0};
  const auto others = *rc::gen::inRange<std::size_t>(0, 3);
  for (std::size_t i = 0; i < others; ++i) {
    const int kind = i == 0 ? 1 : *rc::gen::inRange(2, 12);
    const auto place =
        *rc::gen::inRange<std::size_t>(0, frameLast ? naming.kinds.size() : naming.kinds.size() + 1);
    naming.kinds.insert(naming.kinds.begin() + static_cast<std::ptrdiff_t>(place), kind);
  }
  for (std::size_t i = 0; i <= naming.kinds.size(); ++i) {
    naming.parts.push_back(
        *rc::gen::element<std::string>("a", "_", "/s/", ".png", "_v", "-", "\xC3\xA4", " ", "#", "b-c"));
  }
  naming.parts.back() = *rc::gen::element<std::string>(".png", "_left.mp4", "/beauty.exr", "/left");
  naming.width = *rc::gen::inRange<std::size_t>(1, 6);
  return naming;
}

RC_GTEST_PROP(FrameFiles, FilesOfAWholeWorkAreToldWhereverTheirNumbersStand, ()) {
  const Naming naming = anyNaming(false);
  const int first = *rc::gen::inRange(0, 12);
  const int last = first + *rc::gen::inRange(1, 12);
  const int passes = *rc::gen::inRange(1, 5);
  FrameFiles files({first, last});
  std::vector<std::pair<std::string, int>> images;
  for (int frame = first; frame <= last; ++frame) {
    for (int pass = 1; pass <= passes; ++pass) {
      images.emplace_back(naming.name(frame, pass), frame);
      files.Add(images.back().first);
    }
  }
  for (const auto& [image, frame] : images) {
    const FrameFiles::Answer answer = files.FrameOf(image);
    RC_LOG() << image << "\n";
    RC_ASSERT(answer.Frame == frame);
  }
}

RC_GTEST_PROP(FrameFiles, WhatIsSureIsRightWhereverAWorkBreaksOff, ()) {
  const Naming naming = anyNaming(true); // names that end with the frame
  const int first = *rc::gen::inRange(0, 12);
  const int last = first + *rc::gen::inRange(1, 12);
  const int passes = *rc::gen::inRange(1, 5);
  const int count = *rc::gen::inRange(1, (last - first + 1) * passes + 1);
  FrameFiles files({first, last});
  std::vector<std::pair<std::string, int>> images;
  for (int i = 0; i < count; ++i) {
    images.emplace_back(naming.name(first + i / passes, i % passes + 1), first + i / passes);
    files.Add(images.back().first);
  }
  for (const auto& [image, frame] : images) {
    const FrameFiles::Answer answer = files.FrameOf(image);
    RC_LOG() << image << "\n";
    RC_ASSERT(!answer.Sure || answer.Frame == frame);
  }
}

RC_GTEST_PROP(FrameFiles, ArbitraryBytesGiveAFrameOfTheWorkOrNone,
              (const std::vector<std::string>& paths, int first, unsigned short length)) {
  const int last =
      static_cast<int>(std::min<std::int64_t>(std::int64_t{first} + length, std::numeric_limits<int>::max()));
  FrameFiles files({first, last});
  for (const std::string& path : paths) {
    files.Add(path);
  }
  for (const std::string& path : paths) {
    const FrameFiles::Answer answer = files.FrameOf(path);
    RC_ASSERT(!answer.Frame.has_value() || (*answer.Frame >= first && *answer.Frame <= last));
  }
}

} // namespace
