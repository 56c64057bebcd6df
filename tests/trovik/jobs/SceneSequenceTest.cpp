#include "trovik/jobs/SceneSequence.h"

#include "tests/trovik/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

namespace trovik {
namespace {

TEST(SequenceScene, IsMadeFromThePattern) {
  EXPECT_EQ(sequenceScene("/s/a_%04d.pov", 7).Text(), "/s/a_0007.pov");
}

TEST(SequenceScene, HostilePatternIsHarmless) {
  EXPECT_EQ(sequenceScene("/s/%n%s_%04d.pov", 7).Text().find("/s/"), 0U);
}

TEST(FrameOfScene, IsTheLastNumberOfItsName) {
  EXPECT_EQ(frameOfScene(Path("/s12/take2_0042.v.pov")), 42);
  EXPECT_EQ(frameOfScene(Path("/s12/take.pov")), std::nullopt);
  EXPECT_EQ(frameOfScene(Path("/s/a_2147483647.pov")), 2147483647);
  EXPECT_EQ(frameOfScene(Path("/s/a_2147483648.pov")), std::nullopt);
}

/// A folder with some files (folders end with "/", links to nothing with "@"),
/// of which the first is picked.
struct Case {
  std::vector<std::string> names;
  std::string pattern;   ///< what was taken, in that folder; empty for nothing
  std::string taken;     ///< its frames
  std::string anyDigits; ///< what would be taken with numbers of any length
  std::string reason;
  std::string hint; ///< DIR stands for the folder
  bool leftOut = false;
};

RunSet runsOf(const std::string& range) {
  RunSet frames;
  for (const FrameRun& run : FrameSet::Parse(range).Split(1000)) {
    frames.add(run);
  }
  return frames;
}

void expect(const Case& wanted) {
  const TemporaryDirectory directory;
  for (const std::string& name : wanted.names) {
    if (name.ends_with("/")) {
      directory.makeDirectory(name.substr(0, name.size() - 1));
    } else if (name.ends_with("@")) {
      std::filesystem::create_symlink("/no/such/file", directory.file(name.substr(0, name.size() - 1)));
    } else {
      directory.write(name, "x");
    }
  }
  SceneQuestion question;
  question.scene = Path(directory.file(wanted.names.front()));
  question.taken.format = wanted.pattern.empty() ? "" : directory.file(wanted.pattern);
  question.taken.frames = runsOf(wanted.taken);
  question.digitsAsked = "the type asks for more";
  question.withAnyDigits = [&] {
    return DetectedSequence{wanted.anyDigits.empty() ? "" : "x", runsOf(wanted.anyDigits)};
  };
  SequenceAccount account = accountOf(question);
  if (const std::size_t at = account.hint.find(directory.path()); at != std::string::npos) {
    account.hint.replace(at, directory.path().size(), "DIR");
  }
  EXPECT_EQ(account.reason, wanted.reason) << wanted.names.front();
  EXPECT_EQ(account.hint, wanted.hint) << wanted.names.front();
  EXPECT_EQ(account.leftOut, wanted.leftOut) << wanted.names.front();
}

TEST(SequenceAccount, OfAWholeSequenceSaysNothing) {
  expect({{"a_002.pov", "a_001.pov", "a_003.pov", "a_1.pov", "b_004.pov", "a_004.png"},
          "a_%03d.pov",
          "1-3",
          "",
          "",
          ""});
  expect({{"a_999.pov", "a_1000.pov", "a_0001.pov"}, "a_%03d.pov", "999-1000", "", "", ""});
  expect({{"*_2.pov", "*_1.pov", "b_7.pov"}, "*_%01d.pov", "1-2", "", "", ""});
  expect({{"0002.pov", "0001.pov", "x0003.pov"}, "%04d.pov", "1-2", "", "", ""});
}

TEST(SequenceAccount, NamesWhatEndsASequence) {
  expect({{"a_006.pov", "a_005.pov", "a_007.pov", "a_001.pov", "a_002.pov", "a_003.pov"},
          "a_%03d.pov",
          "5-7",
          "",
          "only 5-7 of 1-3,5-7: \"a_004.pov\" is missing",
          "--range 1-3,5-7 takes all that are there",
          true});
  expect({{"a_006.pov", "a_005.pov", "a_003.pov", "a_008.pov"},
          "a_%03d.pov",
          "5-6",
          "",
          "only 5-6 of 3,5-6,8: \"a_004.pov\" is missing and \"a_007.pov\" is missing",
          "--range 3,5-6,8 takes all that are there",
          true});
  expect({{"a_001.pov", "a_002.pov", "a_003.pov/", "a_004.pov"},
          "a_%03d.pov",
          "1-2",
          "",
          "only 1-2 of 1-2,4: \"a_003.pov\" is a folder",
          "--range 1-2,4 takes all that are there",
          true});
  expect({{"a_001.pov", "a_002.pov", "a_003.pov@", "a_004.pov"},
          "a_%03d.pov",
          "1-2",
          "",
          "only 1-2 of 1-2,4: \"a_003.pov\" is a link to nothing",
          "--range 1-2,4 takes all that are there",
          true});
}

TEST(SequenceAccount, OfALongListOfRangesPastesNone) {
  Case many{{"a_000.pov", "a_001.pov"},         "a_%03d.pov", "0-1", "", "",
            "--range takes all that are there", true};
  for (int frame = 11; frame < 80; frame += 2) {
    many.names.push_back("a_0" + std::to_string(frame) + ".pov");
  }
  many.reason = "only 0-1 of 0-1,11,13,15,17,19,21,23,25,27,29,31,33,35,37,39,41,43,45,47 and 16 more: "
                "\"a_002.pov\" is missing";
  expect(many);
}

TEST(SequenceAccount, NamesFilesWithFewerDigits) {
  expect({{"a10.pov", "a11.pov", "a8.pov", "a9.pov"},
          "a%02d.pov",
          "10-11",
          "",
          "only 10-11: \"a8.pov\" and 1 other have fewer digits",
          "pick \"a8.pov\" with --set SceneNumberLength=1 to take them all",
          true});
  expect({{"a10.pov", "a9.pov"},
          "",
          "",
          "",
          "\"a9.pov\" has fewer digits",
          "pick \"a9.pov\" with --set SceneNumberLength=1 to take them all",
          true});
  // Zeros in front tell of another numbering.
  expect({{"a10.pov", "a11.pov", "a09.pov", "a8.pov"}, "a%02d.pov", "9-11", "", "", ""});
}

TEST(SequenceAccount, BlamesDigitsOnlyWhereTheyAreToBlame) {
  expect({{"a2.pov", "a1.pov", "a3.pov"},
          "",
          "",
          "1-3",
          "its number 2 has 1 digit, and the type asks for more",
          "--set SceneNumberLength=1 takes the sequence 1-3",
          true});
  expect({{"a2.pov", "a3.pov/"}, "", "", "", "\"a1.pov\" is missing and \"a3.pov\" is a folder", "", false});
  expect({{"50%d_2.pov", "50%d_3.pov"},
          "",
          "",
          "",
          "the \"%\" in \"50%d_2.pov\" stands for a number in the sequence's pattern",
          "rename it without the \"%\"",
          true});
  expect({{"100% done/a_0002.pov", "100% done/a_0003.pov"},
          "",
          "",
          "",
          "the \"%\" in \"100% done\" stands for a number in the sequence's pattern",
          "rename it without the \"%\"",
          true});
  expect({{"a_2.pov", "a_3.pov"},
          "",
          "",
          "",
          "the type does not look for scene sequences by itself",
          "--set CheckForMultipleFiles=Yes takes the sequence",
          true});
}

TEST(SequenceAccount, NamesTheNeighboursThatAreNotThere) {
  expect({{"a_0007.pov"},
          "",
          "",
          "",
          "it has no neighbour: there is neither \"a_0006.pov\" nor \"a_0008.pov\"",
          ""});
  expect({{"a_000.pov"}, "", "", "", "it has no neighbour: there is no \"a_001.pov\"", ""});
  expect({{"a_2147483647.pov"}, "", "", "", "it has no neighbour: there is no \"a_2147483646.pov\"", ""});
  expect({{"a_003.pov", "a_001.pov", "a_005.pov"},
          "",
          "",
          "",
          "it has no neighbour: there is neither \"a_002.pov\" nor \"a_004.pov\"",
          "--set \"SceneNameFormat=DIR/a_%03d.pov\" --range 1,3,5 takes all that are there",
          true});
}

TEST(SequenceAccount, CallsANumberTooLargeOnlyWhereOthersLieBesideIt) {
  expect({{"a_12345678901.pov"}, "", "", "", "no other file is called like it but for the number", ""});
  expect({{"a_12345678901.pov", "a_12345678902.pov"},
          "",
          "",
          "",
          "the number 12345678901 is too large for a frame",
          "",
          true});
}

TEST(SequenceAccount, NameWithoutANumberIsNamed) {
  expect({{"scene.pov"}, "", "", "", "\"scene.pov\" has no number in its name", ""});
}

TEST(SequenceAccount, WhereNobodyLookedThatIsTheReason) {
  SceneQuestion question;
  question.scene = Path("/s/a_0001.pov");
  question.notSearched = "the type does not look for scene sequences";
  EXPECT_EQ(accountOf(question).reason, "the type does not look for scene sequences");
  EXPECT_FALSE(accountOf(question).leftOut);
}

} // namespace
} // namespace trovik
