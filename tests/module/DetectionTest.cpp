#include "tests/module/ModuleTest.h"

#include <climits>
#include <filesystem>
#include <random>

namespace {

using Values = std::map<String, String>;

class DetectionTest : public ModuleTest {
protected:
  void Touch(const std::vector<String>& names) {
    for (const String& name : names) {
      Write(name, "scene\n");
    }
  }

  /// What detection finds for a scene of the test's directory; empty for
  /// nothing. The pattern comes without the directory.
  Values Detect(const String& leaf, int digits = 3) {
    Values result;
    if (!m_Module.DetectMultipleFiles(InDirectory(leaf), digits, result)) {
      EXPECT_EQ(result, Values{});
      return result;
    }
    const String before = InDirectory("").Text();
    String& pattern = result["SceneNameFormat"];
    EXPECT_TRUE(pattern.starts_with(before)) << pattern;
    pattern.erase(0, before.size());
    return result;
  }

  static Values Found(const char* name, const char* pattern, const char* range) {
    return {{"Name", name}, {"SceneNameFormat", pattern}, {"Range", range}};
  }
};

TEST_F(DetectionTest, NeighboursMakeASequence) {
  Touch(
      {"scene_0040.ma", "scene_0041.ma", "scene_0042.ma", "scene_0043.ma", "scene_0044.ma", "scene_0045.ma"});
  EXPECT_EQ(Detect("scene_0042.ma"), Found("scene", "scene_%04d.ma", "40-45"));
  EXPECT_EQ(Detect("scene_0040.ma"), Found("scene", "scene_%04d.ma", "40-45"));
  EXPECT_EQ(Detect("scene_0045.ma"), Found("scene", "scene_%04d.ma", "40-45"));
}

TEST_F(DetectionTest, LastRunOfDigitsIsTheFrameNumber) {
  Touch({"render.take2.0001.exr", "render.take2.0002.exr"});
  EXPECT_EQ(Detect("render.take2.0001.exr"), Found("render.take2", "render.take2.%04d.exr", "1-2"));
}

TEST_F(DetectionTest, RunAtTheStartOfTheLeafMakesTheWholeLeafTheName) {
  Touch({"0007.ma", "0008.ma"});
  EXPECT_EQ(Detect("0007.ma"), Found("0007.ma", "%04d.ma", "7-8"));
}

TEST_F(DetectionTest, ScenesInTheCurrentDirectoryKeepTheirBareNames) {
  Touch({"s_001.ma", "s_002.ma"});
  const std::filesystem::path old = std::filesystem::current_path();
  std::filesystem::current_path(InDirectory("").c_str());
  Values result;
  EXPECT_TRUE(m_Module.DetectMultipleFiles("s_002.ma", 3, result));
  std::filesystem::current_path(old);
  EXPECT_EQ(result, Found("s", "s_%03d.ma", "1-2"));
}

TEST_F(DetectionTest, CharacterBeforeTheDigitsIsNeverPartOfTheName) {
  Touch({"shot0012.ma", "shot0013.ma", "a-.-_0001", "a-.-_0002"});
  EXPECT_EQ(Detect("shot0012.ma"), Found("sho", "shot%04d.ma", "12-13"));
  EXPECT_EQ(Detect("a-.-_0001"), Found("a", "a-.-_%04d", "1-2"));
}

TEST_F(DetectionTest, LeadingSeparatorsOfTheNameStay) {
  Touch({"_.x_001.ma", "_.x_002.ma", "._-_003", "._-_004"});
  EXPECT_EQ(Detect("_.x_001.ma"), Found("_.x", "_.x_%03d.ma", "1-2"));
  EXPECT_EQ(Detect("._-_003"), Found("", "._-_%03d", "3-4"));
}

TEST_F(DetectionTest, TooShortARunIsNoFrameNumber) {
  Touch({"scene12.ma", "scene13.ma", "scene.ma"});
  EXPECT_EQ(Detect("scene12.ma"), Values{});
  EXPECT_EQ(Detect("scene12.ma", 2), Found("scen", "scene%02d.ma", "12-13"));
  EXPECT_EQ(Detect("scene12.ma", 0), Found("scen", "scene%02d.ma", "12-13"));
  EXPECT_EQ(Detect("scene12.ma", INT_MIN), Found("scen", "scene%02d.ma", "12-13"));
  EXPECT_EQ(Detect("scene12.ma", INT_MAX), Values{});
}

TEST_F(DetectionTest, NameWithoutDigitsIsNoSequence) {
  Touch({"scene.ma"});
  EXPECT_EQ(Detect("scene.ma", 0), Values{});
  EXPECT_EQ(Detect("", 0), Values{});
}

TEST_F(DetectionTest, DigitsOfTheDirectoryDoNotCount) {
  Touch({"take_001/scene.ma", "take_002/scene.ma"});
  EXPECT_EQ(Detect("take_001/scene.ma", 0), Values{});
}

TEST_F(DetectionTest, GapEndsTheSequence) {
  Touch({"scene_0001.ma", "scene_0002.ma", "scene_0004.ma"});
  EXPECT_EQ(Detect("scene_0002.ma"), Found("scene", "scene_%04d.ma", "1-2"));
  EXPECT_EQ(Detect("scene_0004.ma"), Values{});
}

TEST_F(DetectionTest, LoneFileLeavesTheResultAsItWas) {
  Touch({"scene_0001.ma"});
  Values result{{"Name", "mine"}, {"Other", "x"}};
  EXPECT_FALSE(m_Module.DetectMultipleFiles(InDirectory("scene_0001.ma"), 3, result));
  EXPECT_EQ(result, (Values{{"Name", "mine"}, {"Other", "x"}}));
}

TEST_F(DetectionTest, OtherEntriesOfTheResultStay) {
  Touch({"scene_0001.ma", "scene_0002.ma"});
  Values result{{"Name", "mine"}, {"Other", "x"}};
  EXPECT_TRUE(m_Module.DetectMultipleFiles(InDirectory("scene_0001.ma"), 3, result));
  EXPECT_EQ(result["Name"], "scene");
  EXPECT_EQ(result["Other"], "x");
  EXPECT_EQ(result.size(), 4U);
}

TEST_F(DetectionTest, SelectedFileItselfIsNotLookedFor) {
  Touch({"scene_0001.ma", "scene_0003.ma"});
  EXPECT_EQ(Detect("scene_0002.ma"), Found("scene", "scene_%04d.ma", "1-3"));
}

TEST_F(DetectionTest, NumbersOutgrowTheirPadding) {
  Touch({"s_998.ma", "s_999.ma", "s_1000.ma", "s_1001.ma"});
  EXPECT_EQ(Detect("s_999.ma"), Found("s", "s_%03d.ma", "998-1001"));
}

TEST_F(DetectionTest, FramesBelowZeroAreFound) {
  Touch({"scene_0000.ma", "scene_-001.ma"});
  EXPECT_EQ(Detect("scene_0000.ma"), Found("scene", "scene_%04d.ma", "-1-0"));
}

TEST_F(DetectionTest, DirectoriesBesideTheSceneAreNoFrames) {
  Touch({"s_001.ma"});
  std::filesystem::create_directory(InDirectory("s_002.ma").c_str());
  EXPECT_EQ(Detect("s_001.ma"), Values{});
}

TEST_F(DetectionTest, WildcardsInANameArePlainCharacters) {
  Touch({"a?_001.ma", "ab_002.ma", "c*_001.ma", "c*_002.ma", "cde_003.ma"});
  EXPECT_EQ(Detect("a?_001.ma"), Values{});
  EXPECT_EQ(Detect("c*_001.ma"), Found("c*", "c*_%03d.ma", "1-2"));
}

TEST_F(DetectionTest, ConversionInTheNameThatUsesUpTheNumberNeverScansForEver) {
  // Each of these gives one name for all frames, or the same few again.
  for (const char* head :
       {"50%d_", "%s_", "%n_", "%c", "%hhd_", "%999999999d", "%%", "%", "%*d", "%.0d_", "%5%"}) {
    for (const char* number : {"001", "002", "003"}) {
      Write(String(head) + number + ".ma", "x");
    }
    for (int i = -260; i <= 260; ++i) {
      const String leaf = SFormat((String(head) + "%03d.ma").c_str(), i);
      if (leaf.find('/') == String::npos && leaf.find('\0') == String::npos && leaf.size() < 200) {
        Write(leaf, "x");
      }
    }
    Values result;
    m_Module.DetectMultipleFiles(InDirectory(String(head) + "002.ma"), 3, result);
    for (const char* number : {"001", "002", "003"}) {
      EXPECT_TRUE(std::filesystem::exists(InDirectory(String(head) + number + ".ma").c_str()));
    }
    if (!result.empty()) {
      FrameRun run;
      EXPECT_TRUE(ParseRun(result["Range"], run)) << head << " " << result["Range"];
      EXPECT_LE(run.Count(), 521) << head;
    }
  }
}

TEST_F(DetectionTest, PatternThatIgnoresTheFrameIsNoSequence) {
  // "%s" uses the number up, so every frame has the name of the scene itself.
  Touch({"%s_%03d.ma", "%s_001.ma", "%s_002.ma"});
  EXPECT_EQ(Detect("%s_001.ma"), Values{});
}

TEST_F(DetectionTest, PercentOfADirectoryReachesThePattern) {
  Touch({"50%d/s_001.ma", "50%d/s_002.ma"});
  // The first conversion takes the number, so no neighbour is found.
  EXPECT_EQ(Detect("50%d/s_001.ma"), Values{});
}

TEST_F(DetectionTest, ScanStopsAtTheEndsOfThirtyTwoBits) {
  Touch({"s_2147483646.ma", "s_2147483647.ma", "s_-2147483648.ma"});
  EXPECT_EQ(Detect("s_2147483646.ma"), Found("s", "s_%010d.ma", "2147483646-2147483647"));
  EXPECT_EQ(Detect("s_2147483647.ma"), Found("s", "s_%010d.ma", "2147483646-2147483647"));
  // 2147483648 is -2147483648 in 32 bits; nothing lies below that.
  Touch({"s_-2147483647.ma"});
  EXPECT_EQ(Detect("s_2147483648.ma"), Found("s", "s_%010d.ma", "-2147483648--2147483647"));
}

TEST_F(DetectionTest, NumberBeyondAllBitsIsCut) {
  // The largest 64-bit number, cut to 32 bits, is -1.
  const String digits(40, '9');
  Touch({"s_" + digits + ".ma"});
  EXPECT_EQ(Detect("s_" + digits + ".ma"), Values{});
  Write("s_" + String(40, '0') + ".ma", "x");
  EXPECT_EQ(Detect("s_" + digits + ".ma"), Found("s", "s_%040d.ma", "-1-0"));
}

TEST_F(DetectionTest, LongSequenceIsFoundWhole) {
  for (int i = 1; i <= 3000; ++i) {
    Write(SFormat("many/s_%04d.ma", i), "x");
  }
  EXPECT_EQ(Detect("many/s_1234.ma"), Found("s", "many/s_%04d.ma", "1-3000"));
}

TEST_F(DetectionTest, MissingDirectoryIsNoSequence) {
  EXPECT_EQ(Detect("nowhere/s_001.ma"), Values{});
}

/// The rules read literally: one formatting and one look at the disk a frame.
bool LiteralDetect(const Path& scene, int minimum, Values& result) {
  const std::string leaf = scene.Leaf(true);
  const int last = static_cast<int>(leaf.find_last_of("0123456789"));
  if (last == -1) {
    return false;
  }
  int before = last;
  while (before >= 0 && leaf[static_cast<std::size_t>(before)] >= '0' &&
         leaf[static_cast<std::size_t>(before)] <= '9') {
    --before;
  }
  const int count = last - before;
  if (count < minimum) {
    return false;
  }
  const auto runStart = static_cast<std::size_t>(before) + 1; // -1 gives 0
  const std::string run = leaf.substr(runStart, static_cast<std::size_t>(count));
  Path directory = scene.Branch(true, true);
  directory /= String(leaf.substr(0, runStart));
  const String pattern = directory.Text() + String("%0") + String(std::to_string(count)) + "d" +
                         String(leaf.substr(runStart + run.size()));
  const int start = static_cast<int>(std::strtol(run.c_str(), nullptr, 10));
  const String own = SFormat(pattern, start);
  const auto exists = [&](int frame) {
    const String name = SFormat(pattern, frame);
    return name != own && std::filesystem::is_regular_file(std::string(name));
  };
  int low = start;
  while (exists(low - 1)) {
    --low;
  }
  int high = start;
  while (exists(high + 1)) {
    ++high;
  }
  if (low == high) {
    return false;
  }
  std::string name = before < 0 ? leaf : leaf.substr(0, static_cast<std::size_t>(before));
  while (!name.empty() && (name.back() == '.' || name.back() == '_' || name.back() == '-')) {
    name.pop_back();
  }
  result["Name"] = name;
  result["SceneNameFormat"] = pattern;
  result["Range"] = SFormat("%d-%d", low, high);
  return true;
}

TEST_F(DetectionTest, RandomSequencesAreFoundAsALiteralReadingFindsThem) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto pick = [&random](int count) {
    return static_cast<int>(random() % static_cast<unsigned>(count));
  };
  const char* const pieces[] = {"a", "s_",  "7",        "%d", "%",  "%%", ".",
                                "-", "x y", "\xC3\xA4", "%s", "%c", "\"", "00"};
  int found = 0;
  for (int round = 0; round < 300; ++round) {
    String head;
    String tail;
    for (int i = pick(3); i > 0; --i) {
      head += pieces[pick(static_cast<int>(std::size(pieces)))];
    }
    for (int i = pick(3); i > 0; --i) {
      tail += pieces[pick(static_cast<int>(std::size(pieces)))];
    }
    const int width = 1 + pick(4);
    const int first = pick(12) - 4;
    const int count = 1 + pick(6);
    const String folder = SFormat("r%d", round);
    const auto leafOf = [&](int frame) {
      const String number = SFormat(("%0" + std::to_string(width) + "d").c_str(), frame);
      return folder + "/" + head + number + tail;
    };
    for (int frame = first; frame < first + count; ++frame) {
      if (pick(8) != 0) {
        Write(leafOf(frame), "x");
      }
    }
    const Path scene = InDirectory(leafOf(first + pick(count)));
    const int minimum = pick(4);
    Values expected;
    Values actual;
    const bool should = LiteralDetect(scene, minimum, expected);
    EXPECT_EQ(m_Module.DetectMultipleFiles(scene, minimum, actual), should) << scene.c_str();
    EXPECT_EQ(actual, expected) << scene.c_str();
    found += should ? 1 : 0;
  }
  EXPECT_GT(found, 20);
}

/// Folders that are read as a whole: with gaps, folders, links and numbers of
/// other lengths among the frames.
TEST_F(DetectionTest, RandomLargeFoldersAreFoundAsALiteralReadingFindsThem) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto pick = [&random](int count) {
    return static_cast<int>(random() % static_cast<unsigned>(count));
  };
  for (int round = 0; round < 6; ++round) {
    const String folder = SFormat("large%d", round);
    std::filesystem::create_directories(std::string(InDirectory(folder).Text()));
    const int width = 1 + pick(5);
    const auto leafOf = [&](int frame, int digits) {
      return folder + "/s_" + SFormat(("%0" + std::to_string(digits) + "d").c_str(), frame) + ".ma";
    };
    const int first = pick(3) == 0 ? -5 : pick(1200);
    const int count = 200 + pick(1500);
    for (int frame = first; frame < first + count; ++frame) {
      const String leaf = leafOf(frame, width);
      const int kind = pick(400);
      if (kind == 0) {
        continue;
      }
      if (kind == 1) {
        std::filesystem::create_directories(std::string(InDirectory(leaf).Text()));
      } else if (kind == 2) {
        std::filesystem::create_symlink("nowhere", std::string(InDirectory(leaf).Text()));
      } else if (kind == 3) {
        std::filesystem::create_symlink("/dev/null/x", std::string(InDirectory(leaf).Text()));
      } else if (kind == 4) {
        Write("target", "x");
        std::filesystem::create_symlink("../target", std::string(InDirectory(leaf).Text()));
      } else {
        Write(leaf, "x");
      }
      if (kind > 395) {
        Write(leafOf(frame, width + 1), "x"); // another sequence, or the same name
      }
    }
    for (int pickOf = 0; pickOf < 12; ++pickOf) {
      const int digits = pickOf == 0 ? width + 1 : width;
      const int frame = pickOf == 1 ? 999 : pickOf == 2 ? 1000 : first + pick(count);
      const Path scene = InDirectory(leafOf(frame, digits));
      Values expected;
      Values actual;
      const bool should = LiteralDetect(scene, 1, expected);
      EXPECT_EQ(m_Module.DetectMultipleFiles(scene, 1, actual), should) << scene.c_str();
      EXPECT_EQ(actual, expected) << scene.c_str();
    }
  }
}

} // namespace
