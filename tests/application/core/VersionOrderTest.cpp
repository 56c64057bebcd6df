#include "host/application/VersionOrder.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using Names = std::vector<std::string>;

// Each row is written from the oldest to the newest, as a person would sort it.
const std::vector<Names> k_Ascending = {
    // numbers are numbers, and a name without any is the oldest
    {"", "-1.9", "-1.10", "-2", "-99999999999999999999999"},
    {"-2.79", "-2.79b", "-2.80"},
    {"-3.3", "-3.3a", "-3.3b", "-3.3.1"},
    // unfinished versions come before theirs, and no further
    {"-4.1", "-4.2-dev", "-4.2-alpha", "-4.2-beta2", "-4.2-beta10", "-4.2-pre", "-4.2-rc1", "-4.2-RC2",
     "-4.2"},
    {"-4.1", "-4.2-nightly", "-4.2"},
    {"-4.1", "-4.2-SNAPSHOT", "-4.2"},
    {"-4.1", "-4.2-git", "-4.2"},
    {"-4.1", "-4.2+git20240210", "-4.2+git20240301", "-4.2", "-4.2.1-git1"},
    {"-4.1", "4.2a1", "4.2b1", "4.2b2", "4.2rc1", "4.2"},
    {"-4.2-rc1-git5", "-4.2-rc1", "-4.2-rc2-git1"},
    {"-4.6.0", "-4.6.1~rc2", "-4.6.1~bpo12+1", "-4.6.1", "-4.6.1+dfsg-2"},
    {"-nightly-4.3", "-4.3"},
    {"-4.3.0-alpha+main.e14fe0d5c4f7", "-4.3.0-beta+v43.9d1d4d8a6a1b", "-4.3.0"},
    // names that are not quite the plain one
    {"-4.1", "-4.2-patched", "-4.2", "-4.3"},
    {"-4.1", "-4.2 (2)", "-4.2"},
    {"-4.1-studio-gpu", "-4.1-studio", "-4.1"},
    {"4.1-alpha", "4.1-alphabet", "4.1"},
    // what stands before the version does not matter
    {"-4.0", "-v4.2", "-4.3"},
    {"-4.0", "-release-4.2", "-version4.3", "-r5"},
    {"-6.0", "-n7.1-latest-linux64-gpl-7.1", "-7.2"},
    {"-master-latest-linux64-gpl", "-2.0"},
    {"-git-20240101-amd64-static", "-git-20240210-amd64-static", "-6.0-amd64-static"},
    // numbers of platforms are none of the version
    {"-linux64-3.6", "-x86_64-4.0", "-4.1-linux-x64", "-linux-x86-64-4.2", "-4.3-linux-glibc217-x86_64"},
    {"-20.5.278-linux_x86_64_gcc11.2-py3.10", "-20.5.332-linux_x86_64_gcc9.3"},
    {"-4.2-64bit", "-4.2", "-4.2-1"},
    // dates
    {"-4.10", "-2023.12", "-2024.2", "-20240210", "-2024-02-11", "-2024.10", "-2025.1"},
    {"-4.2-20240101", "-4.2-20240210", "-4.3"},
    // builds
    {"-4.2", "-4.2-2", "-4.2-15", "-4.2.1"},
    {"-4.2-build99", "-4.2-build123", "-4.2-r200"},
    {"-7.1_2", "-7.1_4", "-7.1.1"},
    {"_4_2", "_4_10"},
    // "lts" is no later version
    {"-4.1-lts", "-4.2-LTS", "-4.3"},
};

TEST(VersionOrder, SortsNamesAsAPersonWould) {
  for (const Names& row : k_Ascending) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      for (std::size_t j = 0; j < row.size(); ++j) {
        const int order = CompareVersions(row[i], row[j]);
        EXPECT_EQ(order < 0, i < j) << '"' << row[i] << "\" \"" << row[j] << '"';
        EXPECT_EQ(order > 0, i > j) << '"' << row[i] << "\" \"" << row[j] << '"';
      }
    }
  }
}

TEST(VersionOrder, TakesSpellingsOfOneVersionForEqual) {
  for (const Names& same : std::vector<Names>{{"-4.2", "4.2", "_4.2", " 4.2", "-v4.2", "-4.2.0", "-4.02",
                                               "-4.2-lts", "-4.2-release", "-4.2-Final"},
                                              {"-20240210", "-2024-02-10", "-2024.2.10", "-2024_02_10"},
                                              {"-4.2-rc1", "-4.2rc1", "-4.2.rc.1", "-4.2_RC-01"},
                                              {"-4.2-git", "-4.2-snapshot", "-4.2+nightly"}}) {
    for (const std::string& name : same) {
      EXPECT_EQ(CompareVersions(same[0], name), 0) << name;
    }
  }
}

TEST(VersionOrder, TellsTheWordThatPutsAFolderAside) {
  const auto word = [](const std::string& name) { return std::string(FolderVersion(name).PutAside); };
  EXPECT_EQ(word("-4.2-old"), "old");
  EXPECT_EQ(word("-4.2.backup"), "backup");
  EXPECT_EQ(word("-4.2.bak2"), "bak");
  EXPECT_EQ(word("-4.2-Disabled"), "Disabled");
  EXPECT_EQ(word("-4.2 (copy)"), "copy");
  EXPECT_EQ(word("-4.2 - Copy (3)"), "Copy");
  EXPECT_EQ(word("-old"), "old");
  EXPECT_EQ(word("-4.2~"), "~");
  EXPECT_EQ(word("-4.2.orig"), "orig");
  EXPECT_EQ(word("-4.2-golden"), "");
  EXPECT_EQ(word("-4.2-copyleft"), "");
  EXPECT_EQ(word("-4.2~rc1"), "");
}

TEST(VersionOrder, StandsNamesOfAMegabyte) {
  const std::string digits(1 << 20, '9');
  EXPECT_LT(CompareVersions(digits, digits + "0"), 0);
  std::string mixed;
  while (mixed.size() < 1 << 20) {
    mixed += "1a";
  }
  EXPECT_EQ(CompareVersions(mixed + "z", mixed + "z"), 0);
}

rc::Gen<std::string> AnyName() {
  return rc::gen::map(
      rc::gen::container<std::vector<std::string>>(rc::gen::element<std::string>(
          "1", "2", "10", "01", "0", ".", "-", "_", " ", "~", "+", "(2)", "alpha", "RC", "rc", "git", "dev",
          "a", "b", "x", "v", "x86_64", "linux64", "lts", "old", "20240210", "2024-02-10", "e14fe0d5c4f7")),
      [](const std::vector<std::string>& pieces) {
        std::string name;
        for (const std::string& piece : pieces) {
          name += piece;
        }
        return name;
      });
}

RC_GTEST_PROP(VersionOrder, IsAStrictWeakOrder, ()) {
  const std::string a = *AnyName();
  const std::string b = *AnyName();
  const std::string c = *AnyName();
  RC_ASSERT(CompareVersions(a, a) == 0);
  RC_ASSERT((CompareVersions(a, b) < 0) == (CompareVersions(b, a) > 0));
  if (CompareVersions(a, b) < 0 && CompareVersions(b, c) < 0) {
    RC_ASSERT(CompareVersions(a, c) < 0);
  }
  if (CompareVersions(a, b) == 0) {
    RC_ASSERT((CompareVersions(a, c) < 0) == (CompareVersions(b, c) < 0));
    RC_ASSERT((CompareVersions(a, c) > 0) == (CompareVersions(b, c) > 0));
  }
}

RC_GTEST_PROP(VersionOrder, StandsAnyBytes, (const std::string& a, const std::string& b)) {
  RC_ASSERT((CompareVersions(a, b) < 0) == (CompareVersions(b, a) > 0));
}

} // namespace
