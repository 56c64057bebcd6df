#include "host/foundation/Suggest.h"
#include "tests/foundation/AllocationWatch.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <map>

namespace {

// The definition, read literally: the least number of changes of the first i
// letters of one into the first j of the other.
int SlowDistance(const std::string& left, const std::string& right) {
  std::map<std::pair<std::size_t, std::size_t>, int> table;
  for (std::size_t i = 0; i <= left.size(); ++i) {
    for (std::size_t j = 0; j <= right.size(); ++j) {
      int best = 0;
      if (i == 0 || j == 0) {
        best = static_cast<int>(i + j);
      } else {
        best = std::min(table[{i - 1, j}], table[{i, j - 1}]) + 1;
        best = std::min(best, table[{i - 1, j - 1}] + (left[i - 1] == right[j - 1] ? 0 : 1));
        if (i > 1 && j > 1 && left[i - 1] == right[j - 2] && left[i - 2] == right[j - 1]) {
          best = std::min(best, table[{i - 2, j - 2}] + 1);
        }
      }
      table[{i, j}] = best;
    }
  }
  return table[{left.size(), right.size()}];
}

TEST(Suggest, DistanceCountsEachKindOfChange) {
  EXPECT_EQ(EditDistance("", ""), 0);
  EXPECT_EQ(EditDistance("width", "width"), 0);
  EXPECT_EQ(EditDistance("width", "wdth"), 1);
  EXPECT_EQ(EditDistance("width", "widdth"), 1);
  EXPECT_EQ(EditDistance("width", "wadth"), 1);
  EXPECT_EQ(EditDistance("width", "wdith"), 1);
  EXPECT_EQ(EditDistance("ab", "ba"), 1);
  EXPECT_EQ(EditDistance("kitten", "sitting"), 3);
  EXPECT_EQ(EditDistance("", "abc"), 3);
  EXPECT_EQ(EditDistance("abc", ""), 3);
  EXPECT_EQ(EditDistance("abc", "xyz"), 3);
}

TEST(Suggest, DistanceIgnoresCase) {
  EXPECT_EQ(EditDistance("WIDTH", "width"), 0);
}

RC_GTEST_PROP(Suggest, DistanceIsTheOneOfTheDefinition, ()) {
  const auto words = rc::gen::container<std::string>(rc::gen::elementOf(std::string("abc")));
  const std::string left = *words;
  const std::string right = *words;
  RC_ASSERT(EditDistance(left, right) == SlowDistance(left, right));
  RC_ASSERT(EditDistance(right, left) == SlowDistance(left, right));
}

// The first of the nearest names, if it is near enough.
String SuggestSlowly(const std::string& unknown, const std::vector<String>& known) {
  const auto nearest =
      std::min_element(known.begin(), known.end(), [&unknown](const String& left, const String& right) {
        return EditDistance(unknown, left) < EditDistance(unknown, right);
      });
  if (nearest == known.end()) {
    return "";
  }
  const auto distance = static_cast<std::size_t>(EditDistance(unknown, *nearest));
  const std::size_t shorter = std::min(unknown.size(), nearest->size());
  const std::size_t longer = std::max(unknown.size(), nearest->size());
  return distance <= shorter / 3 + 1 && distance < longer ? *nearest : "";
}

RC_GTEST_PROP(Suggest, TheNearestNameIsSuggested, ()) {
  const auto words = rc::gen::container<std::string>(rc::gen::elementOf(std::string("abB")));
  const std::string unknown = *words;
  std::vector<String> known;
  for (const std::string& name : *rc::gen::container<std::vector<std::string>>(words)) {
    known.emplace_back(name);
  }
  RC_ASSERT(SuggestName(unknown, known) == SuggestSlowly(unknown, known));
}

TEST(Suggest, LongWordsAreComparedOverTheirWholeLength) {
  EXPECT_EQ(EditDistance(std::string(1000, 'a') + "x", std::string(1000, 'a') + "y"), 1);
  EXPECT_EQ(EditDistance(std::string(1000, 'a'), std::string(1001, 'a')), 1);
}

TEST(Suggest, MegabyteWordsCostNoTable) {
  const std::string left(1U << 20U, 'a');
  std::string right(1U << 20U, 'b');
  right[7] = 'a';
  StartAllocationWatch();
  EXPECT_EQ(EditDistance(left, right), 1 << 20);
  EXPECT_LE(LargestAllocation(), std::size_t{4} << 20U);
  EXPECT_EQ(SuggestName(left, {"Width", "Height", String(right)}), "");
}

TEST(Suggest, SuggestsTheNearestName) {
  const std::vector<String> known = {"Text", "Integer", "Boolean", "Choice", "File"};
  EXPECT_EQ(SuggestName("Interger", known), "Integer");
  EXPECT_EQ(SuggestName("bolean", known), "Boolean");
  EXPECT_EQ(SuggestName("TEXT", known), "Text");
  EXPECT_EQ(SuggestName("Txet", known), "Text");
  EXPECT_EQ(SuggestName("Fil", known), "File");
}

TEST(Suggest, OfEquallyNearNamesTheFirstIsSuggested) {
  EXPECT_EQ(SuggestName("bat", {"cat", "hat"}), "cat");
}

TEST(Suggest, FarWordsGetNoSuggestion) {
  const std::vector<String> known = {"Text", "Integer", "Boolean"};
  EXPECT_EQ(SuggestName("Quaternion", known), "");
  EXPECT_EQ(SuggestName("", known), "");
  EXPECT_EQ(SuggestName("x", {"y"}), "");
  EXPECT_EQ(SuggestName("ab", {"cd"}), "");
  EXPECT_EQ(SuggestName("Text", {}), "");
}

} // namespace
