// What is valid gives no word, and hostile files do no harm.

#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/check/CheckTest.h"

#include <filesystem>
#include <regex>
#include <set>
#include <sstream>

extern const char* const SOURCE_DIRECTORY;

namespace trovik {
namespace {

using ValidTypesTest = CheckTest;

TEST_F(ValidTypesTest, TypesOfTheCatalogueGiveNoWord) {
  std::size_t count = 0;
  for (const auto& entry :
       std::filesystem::directory_iterator(std::string(SOURCE_DIRECTORY) + "/catalogue")) {
    if (entry.path().extension() == ".tvx") {
      ++count;
      EXPECT_EQ(printed(readFile(entry.path().string())), "") << entry.path();
    }
  }
  EXPECT_GT(count, 0U);
}

TEST_F(ValidTypesTest, TypesOfTheDocumentationGiveNoWord) {
  // "Command", "Shortcut" and so on as the page shows them, in one whole file.
  const std::string page = readFile(std::string(SOURCE_DIRECTORY) + "/docs/tvx.md");
  const std::size_t begin = page.find("; sketch.tvx: a complete type");
  ASSERT_NE(begin, std::string::npos);
  EXPECT_EQ(printed(page.substr(begin, page.find("```", begin) - begin)), "");
}

TEST_F(ValidTypesTest, EveryKeyOfTheDocumentationIsKnown) {
  std::istringstream page(readFile(std::string(SOURCE_DIRECTORY) + "/docs/tvx.md"));
  const std::regex row("\\| `(\\w+)` \\|.*");
  std::string line;
  bool inTable = false;
  std::size_t count = 0;
  while (std::getline(page, line)) {
    if (line.starts_with("## ")) {
      inTable = line == "## `[Module]`";
    }
    std::smatch match;
    if (inTable && std::regex_match(line, match, row)) {
      ++count;
      const std::string key = match[1];
      const std::string text = "[Module]\n" + key + "=1\n";
      for (const Diagnostic& problem : problems(text)) {
        EXPECT_NE(problem.rule, "unknown-key") << key;
      }
    }
  }
  EXPECT_EQ(count, 13U);
}

TEST_F(ValidTypesTest, EveryRuleIsDocumentedAndNoOther) {
  std::set<std::string> told;
  std::istringstream page(readFile(std::string(SOURCE_DIRECTORY) + "/docs/check.md"));
  const std::regex name("`([a-z0-9-]+)`");
  for (std::string line; std::getline(page, line);) {
    const std::string cell = line.starts_with("| `") ? line.substr(0, line.find('|', 1)) : std::string();
    for (std::sregex_iterator at(cell.begin(), cell.end(), name), end; at != end; ++at) {
      told.insert((*at)[1]);
    }
  }
  for (const char* option : {"--strict", "--no-programs", "--json"}) {
    told.erase(option);
  }
  // Texts of small letters and dashes are rules, and nothing else there is.
  std::set<std::string> used = {"circle", "unquoted", "refused", "unreadable", "deprecated"};
  const std::regex rule("\"([a-z][a-z0-9]*(-[a-z0-9]+)+)\"");
  for (const auto& entry :
       std::filesystem::directory_iterator(std::string(SOURCE_DIRECTORY) + "/trovik/check")) {
    const std::string source = readFile(entry.path().string());
    for (std::sregex_iterator at(source.begin(), source.end(), rule), end; at != end; ++at) {
      used.insert((*at)[1]);
    }
  }
  EXPECT_EQ(told, used);
}

TEST_F(ValidTypesTest, FreedomsOfTheFormatGiveNoWord) {
  EXPECT_EQ(
      printed(
          "\xEF\xBB\xBF; a comment\r\n"
          "[ module ]\r\n"
          "  id = 11111111-2222-3333-4444-555555555555\r\n"
          "\tNAME = Sketch = drawing ; and more\r\n"
          "# another comment\r\n"
          "Command=--title $(Title.Enquote) $(actualscene) $(Look.If(--fine,)) $$(x) $(ExtraArguments)\r\n"
          "ImageStartText=\"saved; \";wrote\r\n"
          "ImageEndText=, done;\"\"\r\n"
          "\r\n"
          "[PRIMARYPARAMETERS]\r\n"
          "01=Title\r\n"
          "02=Look\r\n"
          "10=ExtraArguments\r\n"
          "[title]\r\n"
          "Default=$(Name)\r\n"
          "[Look]\r\n"
          "Type=boolean\r\n"
          "[ExtraArguments]\r\n"
          "[AutoDetect]\r\n"
          "Scene=\"Title=$(Scene.Base.Replace(a,b))\", OutputFolder=$(Scene.Branch)/images"),
      "");
}

TEST_F(ValidTypesTest, HostileFilesAreCheckedInTime) {
  // Each would take minutes if it were looked at in squares.
  const auto lines = [](const char* begin, const char* line, std::size_t bytes) {
    std::string text = begin;
    for (int i = 0; text.size() < bytes; ++i) {
      text += line + std::to_string(i) + "=x" + std::to_string(i) + '\n';
    }
    return text;
  };
  const std::size_t most = TypeChecker::deepLimit;
  const std::string start = std::string(head) + "Command=$(ActualScene)\nImageStartText=a\n";
  const std::vector<std::string> texts = {
      lines((start + "[ErrorText]\n").c_str(), "", most - 100),
      lines((start + "[PrimaryParameters]\n").c_str(), "", most - 100),
      lines((start + "[OverrideDefaults]\n").c_str(), "", most - 100),
      lines((start + "[AutoDetect]\n").c_str(), "", most - 100),
      lines(start.c_str(), "=", most - 100),
      lines(start.c_str(), "[a]\n", most - 100),
      start + "Help=" + std::string(most - 200, '$') + '\n',
      std::string(head) + "ImageStartText=a\nCommand=" + std::string(most - 200, '\'') + '\n',
      std::string(4 * most, '\n') + "[a",
      std::string(most - 10, '['),
      lines(head, "Command=$(", 2 * most),
  };
  for (const std::string& text : texts) {
    EXPECT_LE(problems(text).size(), Findings::limit + 1);
  }
  std::string references = start + "[OverrideDefaults]\nOutputFolder=";
  for (int i = 0; i < 20000; ++i) {
    references += "$(OutputFolder" + std::to_string(i) + ")";
  }
  EXPECT_LE(problems(references + '\n').size(), Findings::limit + 1);
}

TEST_F(ValidTypesTest, LargeFileIsJudgedByTheModuleAndItsLines) {
  const std::string text =
      std::string(head) + "Comand=x\n;" + std::string(TypeChecker::deepLimit, 'x') + '\n';
  EXPECT_EQ(printed(text),
            "sketch.tvx: warning: is very large, so that only its lines and its ID were checked\n"
            "hint: leave out what is no part of a type\n"
            "sketch.tvx:4:1: error: unknown key \"Comand\" in the section [Module]\n"
            "    4 | Comand=x\n"
            "      | ^^^^^^\n"
            "hint: did you mean \"Command\"?\n");
}

} // namespace
} // namespace trovik
