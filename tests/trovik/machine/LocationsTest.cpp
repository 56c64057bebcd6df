#include "trovik/machine/Locations.h"

#include "tests/trovik/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <map>

namespace trovik {
namespace {

using Variables = std::map<std::string, std::string>;

EnvironmentLookup lookupIn(const Variables& variables) {
  return [variables](const char* name) -> std::optional<std::string> {
    const auto found = variables.find(name);
    return found == variables.end() ? std::nullopt : std::optional(found->second);
  };
}

std::vector<std::string> texts(const std::vector<Path>& paths) {
  std::vector<std::string> result;
  result.reserve(paths.size());
  for (const Path& path : paths) {
    result.push_back(path.Text());
  }
  return result;
}

TEST(Locations, XdgVariablesAreHonoured) {
  const Locations locations(
      lookupIn({{"HOME", "/home/a"}, {"XDG_CONFIG_HOME", "/c"}, {"XDG_STATE_HOME", "/s"}}),
      Path("/opt/bin/trovik"));
  EXPECT_EQ(locations.settings().Text(), "/c/trovik/settings.ini");
  EXPECT_EQ(locations.options().Text(), "/c/trovik/options.ini");
}

TEST(Locations, TheQueueIsWhereItsVariableSaysElseInTheStateDirectory) {
  const Variables home = {{"HOME", "/home/a"}};
  EXPECT_EQ(Locations(lookupIn(home), Path("/b")).state().Text(), "/home/a/.local/state/trovik");
  EXPECT_EQ(Locations(lookupIn({{"XDG_STATE_HOME", "/s"}}), Path("/b")).state().Text(), "/s/trovik");
  EXPECT_EQ(
      Locations(lookupIn({{"XDG_STATE_HOME", "/s"}, {"TROVIK_STATE", "/fast/q"}}), Path("/b")).state().Text(),
      "/fast/q");
}

TEST(Locations, HomeIsTheBaseWithoutXdg) {
  const Locations locations(lookupIn({{"HOME", "/home/a"}}), Path("/opt/bin/trovik"));
  EXPECT_EQ(locations.settings().Text(), "/home/a/.config/trovik/settings.ini");
}

TEST(Locations, RelativeXdgVariableIsIgnored) {
  const Locations locations(lookupIn({{"HOME", "/home/a"}, {"XDG_CONFIG_HOME", "c"}}),
                            Path("/opt/bin/trovik"));
  EXPECT_EQ(locations.settings().Text(), "/home/a/.config/trovik/settings.ini");
}

TEST(Locations, TheImageHelperIsBesideTheProgramUnlessNamed) {
  const Path program("/opt/some place/bin/trovik");
  EXPECT_EQ(Locations(lookupIn({}), program).imageHelper().Text(), "/opt/some place/bin/trovik-image");
  EXPECT_EQ(Locations(lookupIn({{"TROVIK_IMAGE_HELPER", "/my/helper"}}), program).imageHelper().Text(),
            "/my/helper");
}

TEST(Locations, ModulesOfTheUserComeBeforeTheInstalledOnes) {
  const TemporaryDirectory directory;
  const std::string user = directory.makeDirectory("data/trovik/modules");
  const std::string triplet = directory.makeDirectory("root/lib/x86_64-linux-gnu/trovik/modules");
  const std::string plain = directory.makeDirectory("root/lib/trovik/modules");
  const std::string build = directory.makeDirectory("root/modules");
  const Locations locations(lookupIn({{"XDG_DATA_HOME", directory.file("data")}}),
                            Path(directory.file("root/bin/trovik")));
  EXPECT_EQ(texts(locations.defaultModulePath()), (std::vector<std::string>{user, triplet, plain, build}));
}

TEST(Locations, MissingDefaultDirectoriesAreLeftOut) {
  const TemporaryDirectory directory;
  const Locations locations(lookupIn({{"HOME", directory.path()}}), Path(directory.file("bin/trovik")));
  EXPECT_TRUE(locations.defaultModulePath().empty());
}

TEST(Locations, EmptyElementOfAModulePathStandsForTheDefault) {
  const TemporaryDirectory directory;
  const std::string mine = directory.makeDirectory("mine");
  const std::string build = directory.makeDirectory("root/modules");
  const Locations locations(lookupIn({{"HOME", directory.path()}}), Path(directory.file("root/bin/trovik")));
  std::vector<Path> missing;
  EXPECT_EQ(texts(locations.modulePath(mine + ":", missing)), (std::vector<std::string>{mine, build}));
  EXPECT_EQ(texts(locations.modulePath(mine, missing)), (std::vector<std::string>{mine}));
  EXPECT_EQ(texts(locations.modulePath(build + ":" + mine + "::" + mine, missing)),
            (std::vector<std::string>{build, mine}));
  EXPECT_TRUE(missing.empty());
}

TEST(Locations, MissingDirectoriesOfAModulePathAreTold) {
  const TemporaryDirectory directory;
  const Locations locations(lookupIn({}), Path("/nowhere/bin/trovik"));
  std::vector<Path> missing;
  EXPECT_TRUE(locations.modulePath(directory.file("gone"), missing).empty());
  EXPECT_EQ(texts(missing), std::vector<std::string>{directory.file("gone")});
}

TEST(AbsolutePath, CountsFromTheCurrentDirectory) {
  const std::string here = absolutePath(".").Text();
  EXPECT_EQ(here.front(), '/');
  EXPECT_EQ(absolutePath("a b/c").Text(), here + "/a b/c");
  EXPECT_EQ(absolutePath("./a").Text(), here + "/a");
  EXPECT_EQ(absolutePath(".//a").Text(), here + "/a");
  EXPECT_EQ(absolutePath("../a").Text(), here + "/../a");
  EXPECT_EQ(absolutePath("/a/./b").Text(), "/a/./b");
}

TEST(Locations, WithoutAHomeThereIsNoPlaceAndItIsTold) {
  const Locations without(lookupIn({}), Path("/b"));
  const Refusal refusal = refusalOf([&] { without.state(); });
  EXPECT_EQ(refusal.message, "there is no place for what belongs to you: HOME is not set");
  EXPECT_EQ(refusal.hint, "set it, or XDG_STATE_HOME");
  const Locations relative(lookupIn({{"HOME", "a"}}), Path("/b"));
  EXPECT_EQ(refusalOf([&] { relative.settings(); }).message,
            "there is no place for what belongs to you: HOME is no absolute path, \"a\"");
}

} // namespace
} // namespace trovik
