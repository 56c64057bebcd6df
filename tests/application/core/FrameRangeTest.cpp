#include "tests/application/core/TestSupport.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <limits>
#include <set>

namespace {

constexpr int k_Lowest = std::numeric_limits<int>::min();
constexpr int k_Highest = std::numeric_limits<int>::max();

std::vector<int> Frames(const String& text) {
  return FrameSet::Parse(text).Frames();
}

std::vector<String> Works(const String& text, int packet) {
  std::vector<String> works;
  for (const FrameRun& run : FrameSet::Parse(text).Split(packet)) {
    works.push_back(run.Text());
  }
  return works;
}

String Refusal(const String& text) {
  return MessageOf([&text] { FrameSet::Parse(text); });
}

using List = std::vector<int>;

TEST(FrameRange, ReadsTheSyntaxThatTheToolsShare) {
  EXPECT_EQ(Frames("7"), (List{7}));
  EXPECT_EQ(Frames("1-5"), (List{1, 2, 3, 4, 5}));
  EXPECT_EQ(Frames("1-10x3"), (List{1, 4, 7, 10}));
  EXPECT_EQ(Frames("1-10X3"), (List{1, 4, 7, 10}));
  EXPECT_EQ(Frames("1-10y3"), (List{2, 3, 5, 6, 8, 9}));
  EXPECT_EQ(Frames("1-10:4"), (List{1, 5, 9, 4, 7, 10, 3, 2, 6, 8}));
  EXPECT_EQ(Frames("1-10:5"), (List{1, 6, 5, 9, 4, 7, 10, 3, 2, 8}));
  EXPECT_EQ(Frames("1-4:1"), (List{1, 2, 3, 4}));
  EXPECT_EQ(Frames("1-3:2000000000"), (List{1, 3, 2}));
  EXPECT_EQ(Frames("1,4,9-12"), (List{1, 4, 9, 10, 11, 12}));
  EXPECT_EQ(Frames("-5--1"), (List{-5, -4, -3, -2, -1}));
  EXPECT_EQ(Frames("-2-1"), (List{-2, -1, 0, 1}));
  EXPECT_EQ(Frames("10-7"), (List{10, 9, 8, 7}));
  EXPECT_EQ(Frames("10-1x3"), (List{10, 7, 4, 1}));
  EXPECT_EQ(Frames("10-1x-3"), (List{10, 7, 4, 1}));
  EXPECT_EQ(Frames("10-1y-3"), (List{9, 8, 6, 5, 3, 2}));
  EXPECT_EQ(Frames("10-1:-4"), (List{10, 6, 2, 7, 4, 1, 8, 9, 5, 3}));
  EXPECT_EQ(Frames("5-5x-2"), (List{5}));
  EXPECT_EQ(Frames("5-5"), (List{5}));
  EXPECT_EQ(Frames(" 1 - 3 x 2 , 9 "), (List{1, 3, 9}));
  EXPECT_EQ(Frames("007"), (List{7}));
}

TEST(FrameRange, GivesNoFramesForAnEmptyText) {
  EXPECT_TRUE(FrameSet::Parse("").empty());
  EXPECT_TRUE(FrameSet::Parse("  \t ").empty());
  EXPECT_TRUE(FrameSet::Parse("").Split(5).empty());
  EXPECT_EQ(FrameSet::Parse("").Text(), "");
}

TEST(FrameRange, CountsARepeatedFrameWhereItStandsFirst) {
  EXPECT_EQ(Frames("5,1-6,3,5"), (List{5, 1, 2, 3, 4, 6}));
  EXPECT_EQ(Frames("3-1,1-4"), (List{3, 2, 1, 4}));
}

TEST(FrameRange, KeepsTheEndsOf32Bits) {
  EXPECT_EQ(Frames("2147483646-2147483647"), (List{k_Highest - 1, k_Highest}));
  EXPECT_EQ(Frames("-2147483648--2147483647"), (List{k_Lowest, k_Lowest + 1}));
  EXPECT_EQ(Frames("-2147483648-2147483647x2147483647"), (List{k_Lowest, -1, k_Highest - 1}));
  EXPECT_EQ(Works("2147483645-2147483647", 2),
            (std::vector<String>{"2147483645-2147483646", "2147483647-2147483647"}));
  EXPECT_EQ(Works("2147483647,-2147483648", 5),
            (std::vector<String>{"2147483647-2147483647", "-2147483648--2147483648"}));
  EXPECT_EQ(FrameSet::Parse("-2147483648,2147483647").Text(), "-2147483648,2147483647");
}

TEST(FrameRange, RefusesMoreFramesThanAnyJobHas) {
  EXPECT_EQ(FrameSet::Parse("1-10000000").Frames().size(), 10'000'000U);
  EXPECT_EQ(Refusal("5,1-10000000"), "frame range:1:3: this makes more than 10000000 frames\n"
                                     "    1 | 5,1-10000000\n"
                                     "      |   ^");
  EXPECT_EQ(Refusal("-2147483648-2147483647"), "frame range:1:1: this makes more than 10000000 frames\n"
                                               "    1 | -2147483648-2147483647\n"
                                               "      | ^");
  EXPECT_EQ(Refusal("-2147483648-2147483647:3").substr(0, 53),
            "frame range:1:1: this makes more than 10000000 frames");
  EXPECT_EQ(Refusal("-2147483648-2147483647y3").substr(0, 53),
            "frame range:1:1: this makes more than 10000000 frames");
}

TEST(FrameRange, RefusesMalformedTextsWithPlaceCaretAndHint) {
  EXPECT_EQ(Refusal("10-"), "frame range:1:4: a number is missing after \"-\"\n"
                            "    1 | 10-\n"
                            "      |    ^");
  EXPECT_EQ(Refusal("-"), "frame range:1:2: a number is missing after \"-\"\n"
                          "    1 | -\n"
                          "      |  ^");
  EXPECT_EQ(Refusal("1-10x"), "frame range:1:6: a number is missing after \"x\"\n"
                              "    1 | 1-10x\n"
                              "      |      ^");
  EXPECT_EQ(Refusal("1,"), "frame range:1:3: a frame is missing after \",\"\n"
                           "    1 | 1,\n"
                           "      |   ^");
  EXPECT_EQ(Refusal("1,,2"), "frame range:1:3: a frame is missing after \",\"\n"
                             "    1 | 1,,2\n"
                             "      |   ^");
  EXPECT_EQ(Refusal(",1"), "frame range:1:1: a number is missing\n"
                           "    1 | ,1\n"
                           "      | ^");
  EXPECT_EQ(Refusal("1 2"), "frame range:1:3: a comma is missing between two frames\n"
                            "    1 | 1 2\n"
                            "      |   ^\n"
                            "hint: write lists as in 1,4,9-12");
  EXPECT_EQ(Refusal("1..10"), "frame range:1:2: \".\" does not belong in a frame range\n"
                              "    1 | 1..10\n"
                              "      |  ^\n"
                              "hint: frames are whole numbers; write ranges as in 1-100");
  EXPECT_EQ(Refusal("1;2"), "frame range:1:2: \";\" does not belong in a frame range\n"
                            "    1 | 1;2\n"
                            "      |  ^\n"
                            "hint: write lists with commas, as in 1,4,9-12");
  EXPECT_EQ(Refusal("5x2"), "frame range:1:2: a step needs one range before it\n"
                            "    1 | 5x2\n"
                            "      |  ^\n"
                            "hint: write steps as in 1-100x5");
  EXPECT_EQ(Refusal("1-9x2x2"), "frame range:1:6: a step needs one range before it\n"
                                "    1 | 1-9x2x2\n"
                                "      |      ^\n"
                                "hint: write steps as in 1-100x5");
  EXPECT_EQ(Refusal("1-9x0"), "frame range:1:5: a step is 1 or more\n"
                              "    1 | 1-9x0\n"
                              "      |     ^\n"
                              "hint: write a descending range with its ends, as in 10-1x3");
  EXPECT_EQ(Refusal("1-9x-2"), "frame range:1:5: a step is 1 or more\n"
                               "    1 | 1-9x-2\n"
                               "      |     ^\n"
                               "hint: write a descending range with its ends, as in 10-1x3");
  EXPECT_EQ(Refusal("1-9y1"), "frame range:1:1: this range leaves out all of its frames\n"
                              "    1 | 1-9y1\n"
                              "      | ^\n"
                              "hint: 1-10y2 takes 1 to 10 without 1, 3, 5, 7 and 9");
  EXPECT_EQ(Refusal("all"), "frame range:1:1: \"a\" does not belong in a frame range\n"
                            "    1 | all\n"
                            "      | ^\n"
                            "hint: ranges look like 1-100, 1-100x5, 1-100y5, 1-100:4 or 1,4,9-12");
  EXPECT_EQ(Refusal("1\u201310"), "frame range:1:2: \"\u2013\" does not belong in a frame range\n"
                                  "    1 | 1\u201310\n"
                                  "      |  ^\n"
                                  "hint: write a plain \"-\", as in 1-100");
}

TEST(FrameRange, RefusesNumbersBeyond32Bits) {
  EXPECT_EQ(Refusal("1-2147483648"), "frame range:1:3: 2147483648 is beyond 32 bits\n"
                                     "    1 | 1-2147483648\n"
                                     "      |   ^");
  EXPECT_EQ(Refusal("-2147483649"), "frame range:1:1: -2147483649 is beyond 32 bits\n"
                                    "    1 | -2147483649\n"
                                    "      | ^");
}

TEST(FrameRange, ShowsOnlyTheNeighbourhoodOfAPlaceInALongText) {
  const String message = Refusal(String(1 << 20, '1') + "\x1b[31m");
  EXPECT_LT(message.size(), 500U);
  EXPECT_EQ(message.find('\x1b'), String::npos);
}

TEST(FrameRange, SplitsIntoWorksThatNeverLieAboutGaps) {
  using Texts = std::vector<String>;
  EXPECT_EQ(Works("1-10", 3), (Texts{"1-3", "4-6", "7-9", "10-10"}));
  EXPECT_EQ(Works("1-10x3", 5), (Texts{"1-1", "4-4", "7-7", "10-10"}));
  EXPECT_EQ(Works("10-1", 3), (Texts{"8-10", "5-7", "2-4", "1-1"}));
  EXPECT_EQ(Works("1-3,7,9-12", 10), (Texts{"1-3", "7-7", "9-12"}));
  EXPECT_EQ(Works("1-8:4", 2), (Texts{"1-1", "4-5", "7-7", "2-3", "6-6", "8-8"}));
  EXPECT_EQ(Works("-3-1", 2), (Texts{"-3--2", "-1-0", "1-1"}));
  EXPECT_EQ(Works("1-3", 0), (Texts{"1-1", "2-2", "3-3"}));
  EXPECT_EQ(Works("1-3", -5), (Texts{"1-1", "2-2", "3-3"}));
  EXPECT_EQ(Works("1-3", k_Highest), (Texts{"1-3"}));
  EXPECT_EQ(Works("1,2,1,3", 9), (Texts{"1-3"}));
  EXPECT_EQ(Works("5,6,5-3", 9), (Texts{"5-6", "3-4"}));
}

TEST(FrameRange, WritesAShortText) {
  EXPECT_EQ(FrameSet::Parse("5,4,3,2,1,9").Text(), "1-5,9");
  EXPECT_EQ(FrameSet::Parse("1-99x2").Text(), "1-99x2");
  EXPECT_EQ(FrameSet::Parse("1,3,5,6,7,8").Text(), "1,3,5-8");
  EXPECT_EQ(FrameSet::Parse("7").Text(), "7");
  EXPECT_EQ(FrameSet::Parse("-5--3,0,2").Text(), "-5--3,0,2");
}

TEST(FrameRange, TellsTheTextOfARun) {
  EXPECT_EQ((FrameRun{7, 7}.Text()), "7-7");
  EXPECT_EQ((FrameRun{-5, -1}.Text()), "-5--1");
  EXPECT_EQ((FrameRun{k_Lowest, k_Highest}.Count()), std::int64_t{1} << 32);
}

TEST(FrameRange, ReadsAWorksRun) {
  const auto read = [](const String& text) {
    FrameRun run{99, 98};
    return std::make_pair(ParseRun(text, run), run);
  };
  EXPECT_EQ(read("3-5"), std::make_pair(true, FrameRun{3, 5}));
  EXPECT_EQ(read("7"), std::make_pair(true, FrameRun{7, 7}));
  EXPECT_EQ(read("-5"), std::make_pair(true, FrameRun{-5, -5}));
  EXPECT_EQ(read("-5--1"), std::make_pair(true, FrameRun{-5, -1}));
  EXPECT_EQ(read("-2147483648-2147483647"), std::make_pair(true, FrameRun{k_Lowest, k_Highest}));
  for (const char* text : {"", "-", "3-", "9-3", "1-5x2", "1,2", " 1-2", "1-2 ", "x", "1-2147483648", "+1"}) {
    EXPECT_EQ(read(text), std::make_pair(false, FrameRun{99, 98})) << text;
  }
}

rc::Gen<String> RangeTexts() {
  const auto item = rc::gen::map(rc::gen::tuple(rc::gen::inRange(-40, 40), rc::gen::inRange(0, 40),
                                                rc::gen::element<String>("", "x", ":"),
                                                rc::gen::inRange(1, 9), rc::gen::arbitrary<bool>()),
                                 [](const std::tuple<int, int, String, int, bool>& facts) {
                                   const auto& [first, span, mode, step, descending] = facts;
                                   const int last = descending ? first - span : first + span;
                                   return std::to_string(first) + "-" + std::to_string(last) +
                                          (mode.empty() ? std::string() : mode + std::to_string(step));
                                 });
  return rc::gen::map(rc::gen::nonEmpty(rc::gen::container<std::vector<std::string>>(item)),
                      [](const std::vector<std::string>& items) {
                        String text;
                        for (const std::string& one : items) {
                          text += (text.empty() ? "" : ",") + one;
                        }
                        return text;
                      });
}

RC_GTEST_PROP(FrameRange, TextIsReadBackAsTheSameFrames, ()) {
  const FrameSet set = FrameSet::Parse(*RangeTexts());
  List sorted = set.Frames();
  std::sort(sorted.begin(), sorted.end());
  RC_ASSERT(FrameSet::Parse(set.Text()).Frames() == sorted);
}

RC_GTEST_PROP(FrameRange, EveryFrameIsInExactlyOneWork, ()) {
  const FrameSet set = FrameSet::Parse(*RangeTexts());
  const int packet = *rc::gen::inRange(1, 12);
  List covered;
  for (const FrameRun& run : set.Split(packet)) {
    RC_ASSERT(run.First <= run.Last);
    RC_ASSERT(run.Count() <= packet);
    for (int frame = run.First; frame <= run.Last; ++frame) {
      covered.push_back(frame);
    }
  }
  List wanted = set.Frames();
  RC_ASSERT(std::set<int>(wanted.begin(), wanted.end()).size() == wanted.size());
  std::sort(wanted.begin(), wanted.end());
  std::sort(covered.begin(), covered.end());
  RC_ASSERT(covered == wanted);
}

RC_GTEST_PROP(FrameRange, AnyTextIsReadOrRefusedWithAPlace, ()) {
  const String text = *rc::gen::container<std::string>(
      rc::gen::element('0', '1', '9', '-', ',', 'x', 'y', ':', ' ', '\n', 'z'));
  const String message = Refusal(text);
  RC_ASSERT(message == "nothing raised" || message.rfind("frame range:1:", 0) == 0);
}

} // namespace
