// The grammar that other editors read, through the engine of regular
// expressions that they use: every expression compiles, every piece of a file
// gets its scope, and every name of the vim syntax is known here as well.

#include "tests/editors/Expressions.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

extern const char* const SOURCES;

namespace {

using Json = nlohmann::json;

std::string read(const std::string& name) {
  std::ifstream file(std::string(SOURCES) + '/' + name, std::ios::binary);
  EXPECT_TRUE(file.good()) << name;
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

const Json& grammar() {
  static const Json json = Json::parse(read("editors/textmate/tvx.tmLanguage.json"));
  return json;
}

/// Gives each byte of a stretch of a line the name of the innermost piece that
/// it is in, as editors do with grammars that have no pieces over lines.
void colour(const Json& patterns, const std::string& line, std::size_t begin, std::size_t end,
            std::vector<std::string>& scopes) {
  while (begin < end) {
    const Json* first = nullptr;
    Match match;
    for (const Json& pattern : patterns) {
      const Json& rule = grammar().at("repository").at(pattern.at("include").get<std::string>().substr(1));
      Match found = searchExpression(rule.at("match"), line, begin, end);
      if (!found.empty() && (match.empty() || found[0].first < match[0].first)) {
        first = &rule;
        match = std::move(found);
      }
    }
    if (first == nullptr || match[0].second <= match[0].first) {
      return;
    }
    const auto paint = [&](std::size_t group, const Json& how) {
      if (group >= match.size() || match[group].first < 0) {
        return;
      }
      const auto [from, to] = match[group];
      if (how.contains("name")) {
        std::fill(scopes.begin() + from, scopes.begin() + to, how.at("name"));
      }
      if (how.contains("patterns")) {
        colour(how.at("patterns"), line, static_cast<std::size_t>(from), static_cast<std::size_t>(to),
               scopes);
      }
    };
    if (first->contains("name")) {
      paint(0, Json{{"name", first->at("name")}});
    }
    if (first->contains("captures")) {
      for (const auto& [group, how] : first->at("captures").items()) {
        paint(std::stoul(group), how);
      }
    }
    begin = static_cast<std::size_t>(match[0].second);
  }
}

std::vector<std::string> scopesOf(const std::string& line) {
  std::vector<std::string> scopes(line.size());
  colour(grammar().at("patterns"), line, 0, line.size(), scopes);
  return scopes;
}

/// The scope of the first occurrence of a text in a line.
std::string scopeOf(const std::string& line, const std::string& text) {
  const std::size_t place = line.find(text);
  return place == std::string::npos ? "not there" : scopesOf(line).at(place);
}

TEST(Grammar, EveryRuleIsUsedAndCompiles) {
  const std::string all = grammar().dump();
  for (const auto& [name, rule] : grammar().at("repository").items()) {
    EXPECT_NE(all.find("\"#" + name + '"'), std::string::npos) << name;
    EXPECT_NO_THROW(searchExpression(rule.at("match"), "", 0, 0)) << name;
  }
}

TEST(Grammar, PiecesOfALineHaveTheirScopes) {
  EXPECT_EQ(scopeOf("  ; A $(Name) Key=value", "Name"), "comment.line.tvx");
  EXPECT_EQ(scopeOf("# x", "x"), "comment.line.tvx");
  EXPECT_EQ(scopeOf(" [ Module ]", "Module"), "entity.name.section.tvx");
  EXPECT_EQ(scopeOf("[Modules]", "Modules"), "entity.name.type.parameter.tvx");
  EXPECT_EQ(scopeOf("ID=5f0c9a5e-6d0b-4c86-9d0f-2f4f3b1f7a10", "5f"), "constant.other.id.tvx");
  EXPECT_EQ(scopeOf("Name=Sketch", "Name"), "keyword.other.tvx");
  EXPECT_EQ(scopeOf("Names=Sketch", "Names"), "variable.other.tvx");
  EXPECT_EQ(scopeOf("Name=Sketch", "="), "keyword.operator.assignment.tvx");
  EXPECT_EQ(scopeOf("Name=Sketch", "Sketch"), "string.unquoted.tvx");
  EXPECT_EQ(scopeOf("Retries = 3", "3"), "constant.numeric.tvx");
  EXPECT_EQ(scopeOf("Minimum=-2.5", "2.5"), "constant.numeric.tvx");
  EXPECT_EQ(scopeOf("DefaultEnabled=no", "no"), "constant.language.boolean.tvx");
  EXPECT_EQ(scopeOf("Type=integer", "integer"), "storage.type.tvx");
  EXPECT_EQ(scopeOf("Label=Integer", "Integer"), "string.unquoted.tvx");
  EXPECT_EQ(scopeOf("Flags=OfJob, Visible", "Visible"), "constant.other.flag.tvx");
  EXPECT_EQ(scopeOf("PacketSize=OfJob", "OfJob"), "constant.other.flag.tvx");
  EXPECT_EQ(scopeOf("Help=OfJob and so on", "OfJob"), "string.unquoted.tvx");
  EXPECT_EQ(scopeOf("no entry", "no"), "");
}

TEST(Grammar, ReferencesAreTakenApart) {
  const std::string line =
      R"(Command=-i $(ActualScene) $$(plain) $(Seed.Prefix(--seed=\)(x)).Nope) end $(open)";
  EXPECT_EQ(scopeOf(line, "-i"), "string.unquoted.tvx");
  EXPECT_EQ(scopeOf(line, "$(Act"), "punctuation.definition.variable.tvx");
  EXPECT_EQ(scopeOf(line, "ActualScene"), "variable.parameter.tvx");
  EXPECT_EQ(scopeOf(line, "$$("), "constant.character.escape.tvx");
  EXPECT_EQ(scopeOf(line, "plain"), "string.unquoted.tvx");
  EXPECT_EQ(scopeOf(line, "Prefix"), "support.function.tvx");
  EXPECT_EQ(scopeOf(line, "--seed"), "string.other.argument.tvx");
  EXPECT_EQ(scopeOf(line, "x))"), "string.other.argument.tvx");
  EXPECT_EQ(scopeOf(line, "Nope"), "invalid.illegal.command.tvx");
  EXPECT_EQ(scopeOf(line, "end"), "string.unquoted.tvx");
  EXPECT_EQ(scopeOf("1=$(A.Leaf)$(B)", "B"), "variable.parameter.tvx");
}

/// The words of one group of vim's syntax, in the spelling of the file.
std::vector<std::string> vimWords(const std::string& group) {
  const std::string syntax = read("editors/vim/syntax/tvx.vim");
  const std::size_t line = syntax.find("syntax match " + group + ' ');
  std::string rest = syntax.substr(line, syntax.find('\n', line) - line);
  rest.erase(0, rest.rfind("\\%(", rest.find("\\|")) + 3); // the alternatives
  rest.erase(rest.find("\\)"));
  std::vector<std::string> words;
  for (std::size_t begin = 0; begin <= rest.size();) {
    const std::size_t end = std::min(rest.find("\\|", begin), rest.size());
    words.push_back(rest.substr(begin, end - begin));
    begin = end + 2;
  }
  return words;
}

TEST(Grammar, KnowsEveryNameThatVimKnows) {
  const auto compare = [](const std::string& group, std::size_t least, const std::string& before,
                          const std::string& after, const std::string& scope) {
    const std::vector<std::string> words = vimWords(group);
    EXPECT_GE(words.size(), least) << group;
    for (const std::string& word : words) {
      const std::string line = std::string(before).append(word).append(after);
      EXPECT_EQ(scopesOf(line).at(before.size()), scope) << word;
    }
  };
  compare("tvxKnownSection", 13, "[", "]", "entity.name.section.tvx");
  compare("tvxKnownKey", 25, "", "=some text", "keyword.other.tvx");
  compare("tvxType", 13, "Type=", "", "storage.type.tvx");
  compare("tvxFlag", 11, "Flags=OfJob, ", "", "constant.other.flag.tvx");
  compare("tvxCommand", 19, "Command=$(Scene.", ")", "support.function.tvx");
}

TEST(Grammar, TheFolderIsAnExtension) {
  const Json package = Json::parse(read("editors/textmate/package.json"));
  const Json& contributes = package.at("contributes");
  EXPECT_EQ(contributes.at("grammars").at(0).at("scopeName"), grammar().at("scopeName"));
  for (const Json& file :
       {contributes.at("grammars").at(0).at("path"), contributes.at("languages").at(0).at("configuration")}) {
    EXPECT_TRUE(Json::accept(read("editors/textmate/" + file.get<std::string>()))) << file;
  }
  const Json& pattern = contributes.at("problemMatchers").at(0).at("pattern");
  const std::string line = "my types/a:b.tvx:12:6: error: unknown parameter type \"Interger\"";
  const Match match = searchExpression(pattern.at("regexp"), line, 0, line.size());
  ASSERT_EQ(match.size(), 6U);
  const auto part = [&](const char* name) {
    const auto& [from, to] = match.at(pattern.at(name).get<std::size_t>());
    return line.substr(static_cast<std::size_t>(from), static_cast<std::size_t>(to - from));
  };
  EXPECT_EQ(part("file"), "my types/a:b.tvx");
  EXPECT_EQ(part("line"), "12");
  EXPECT_EQ(part("column"), "6");
  EXPECT_EQ(part("severity"), "error");
  EXPECT_EQ(part("message"), "unknown parameter type \"Interger\"");
  EXPECT_TRUE(searchExpression(pattern.at("regexp"), "   12 | Type=Interger", 0, 21).empty());
}

} // namespace
