#include "host/foundation/StringTokenizer.h"
#include "tests/foundation/Support.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

namespace {

using Pieces = std::vector<String>;

Pieces Split(const String& text, bool skipEmpty = false, char separator = ',', char quote = '"',
             char escape = '\\') {
  StringTokenizer tokenizer(text, separator, skipEmpty, quote, escape);
  Pieces pieces;
  while (tokenizer.HasNext()) {
    pieces.push_back(tokenizer.GetNext());
  }
  EXPECT_EQ(tokenizer.GetNext(), "");
  EXPECT_FALSE(tokenizer.HasNext());
  return pieces;
}

// The rules one after the other, each over the whole text.
Pieces SlowSplit(const std::string& text, bool skipEmpty, char separator, char quote, char escape) {
  enum class Role { Plain, Quote, Separator };
  std::vector<std::pair<char, Role>> marks;
  // The escape character acts before the separator, the quote and itself.
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool more = i + 1 < text.size();
    if (text[i] == escape && more &&
        (text[i + 1] == separator || text[i + 1] == quote || text[i + 1] == escape)) {
      marks.emplace_back(text[++i], Role::Plain);
    } else if (text[i] == quote) {
      marks.emplace_back(text[i], Role::Quote);
    } else {
      marks.emplace_back(text[i], text[i] == separator ? Role::Separator : Role::Plain);
    }
  }
  // Quotes make separators plain.
  bool quoted = false;
  for (auto& [c, role] : marks) {
    if (role == Role::Quote) {
      quoted = !quoted;
    } else if (role == Role::Separator && quoted) {
      role = Role::Plain;
    }
  }
  // A trailing separator yields no piece of its own.
  if (!marks.empty() && marks.back().second != Role::Separator) {
    marks.emplace_back(separator, Role::Separator);
  }
  Pieces pieces;
  String piece;
  bool hasQuotes = false;
  for (const auto& [c, role] : marks) {
    if (role == Role::Plain) {
      piece.push_back(c);
    } else if (role == Role::Quote) {
      hasQuotes = true;
    } else {
      if (!skipEmpty || !piece.empty() || hasQuotes) {
        pieces.push_back(piece);
      }
      piece.clear();
      hasQuotes = false;
    }
  }
  return pieces;
}

TEST(StringTokenizer, SplitsAtTheSeparator) {
  EXPECT_EQ(Split("a,b c,d"), (Pieces{"a", "b c", "d"}));
  EXPECT_EQ(Split("a"), Pieces{"a"});
  EXPECT_EQ(Split(" a , b "), (Pieces{" a ", " b "}));
}

TEST(StringTokenizer, AnEmptyTextYieldsNothing) {
  EXPECT_EQ(Split(""), Pieces{});
  EXPECT_EQ(Split("", true), Pieces{});
}

TEST(StringTokenizer, EmptyPiecesBetweenSeparatorsAreYielded) {
  EXPECT_EQ(Split("a,,b"), (Pieces{"a", "", "b"}));
  EXPECT_EQ(Split(",a"), (Pieces{"", "a"}));
  EXPECT_EQ(Split(","), Pieces{""});
  EXPECT_EQ(Split(",,"), (Pieces{"", ""}));
}

TEST(StringTokenizer, ATrailingSeparatorYieldsNoExtraPiece) {
  EXPECT_EQ(Split("a,"), Pieces{"a"});
  EXPECT_EQ(Split("a,,"), (Pieces{"a", ""}));
}

TEST(StringTokenizer, EmptyPiecesCanBeSkipped) {
  EXPECT_EQ(Split(",a,,b,", true), (Pieces{"a", "b"}));
  EXPECT_EQ(Split(",,", true), Pieces{});
}

TEST(StringTokenizer, QuotesGroupAndAreRemoved) {
  EXPECT_EQ(Split("\"a,b\",c"), (Pieces{"a,b", "c"}));
  EXPECT_EQ(Split("x\"a,b\"y,c"), (Pieces{"xa,by", "c"}));
  EXPECT_EQ(Split("\"a\"\"b\""), Pieces{"ab"});
  EXPECT_EQ(Split("'a,b'", false, ',', '\''), Pieces{"a,b"});
}

TEST(StringTokenizer, AnUnclosedQuoteRunsToTheEnd) {
  EXPECT_EQ(Split("a,\"b,c"), (Pieces{"a", "b,c"}));
  EXPECT_EQ(Split("\""), Pieces{""});
}

TEST(StringTokenizer, AQuotedEmptyPieceIsNeverSkipped) {
  EXPECT_EQ(Split("a,\"\",b", true), (Pieces{"a", "", "b"}));
  EXPECT_EQ(Split("\"\"", true), Pieces{""});
  EXPECT_EQ(Split("a,\"\""), (Pieces{"a", ""}));
}

TEST(StringTokenizer, TheEscapeActsBeforeSeparatorQuoteAndItself) {
  EXPECT_EQ(Split(R"(a\,b,c)"), (Pieces{"a,b", "c"}));
  EXPECT_EQ(Split(R"(\"a,b\")"), (Pieces{"\"a", "b\""}));
  EXPECT_EQ(Split(R"(a\\,b)"), (Pieces{"a\\", "b"}));
  EXPECT_EQ(Split(R"("a\"b\\\,")"), Pieces{R"(a"b\,)"});
}

TEST(StringTokenizer, TheEscapeIsPlainBeforeAnythingElse) {
  EXPECT_EQ(Split(R"(C:\renders,\n)"), (Pieces{R"(C:\renders)", R"(\n)"}));
  EXPECT_EQ(Split(R"(a\)"), Pieces{R"(a\)"});
  EXPECT_EQ(Split(R"(a\;b)"), Pieces{R"(a\;b)"});
}

TEST(StringTokenizer, PiecesKnowTheirPlaces) {
  const String text = "a, \"b,c\",,d\\,e,";
  String places;
  for (const StringTokenizer::Piece& piece : StringTokenizer::SplitPlaced(text, ',')) {
    places += "[" + piece.Text + "|" + text.substr(piece.Begin, piece.End - piece.Begin) + "]";
  }
  EXPECT_EQ(places, "[a|a][ b,c| \"b,c\"][|][d,e|d\\,e]");
  EXPECT_TRUE(StringTokenizer::SplitPlaced("", ',').empty());
}

TEST(StringTokenizer, NulBytesArePlain) {
  EXPECT_EQ(Split(String("a\0b,\\\0", 6)), (Pieces{String("a\0b", 3), String("\\\0", 2)}));
}

TEST(StringTokenizer, SplitHasTheModulesSettings) {
  EXPECT_EQ(StringTokenizer::Split("a;;\"b;c\";\\;", ';'), (Pieces{"a", "", "b;c", ";"}));
}

RC_GTEST_PROP(StringTokenizer, AgreesWithTheRulesReadLiterally, ()) {
  const std::string text =
      *TextsOf({"a", "b", " ", ",", ",", ";", "\"", "\"", "'", "\\", "\\", std::string(1, '\0'), "\n"});
  const bool skipEmpty = *rc::gen::arbitrary<bool>();
  const char separator = *rc::gen::element(',', ';', ' ');
  const char quote = *rc::gen::element('"', '\'');
  const char escape = *rc::gen::element('\\', '"', '\'');
  RC_ASSERT(Split(text, skipEmpty, separator, quote, escape) ==
            SlowSplit(text, skipEmpty, separator, quote, escape));
}

RC_GTEST_PROP(StringTokenizer, PackedTextsComeBack, ()) {
  const auto items = *rc::gen::container<std::vector<std::string>>(
      rc::gen::oneOf(Texts(0), TextsOf({"a", ";", "\"", "\\", " "})));
  String packed;
  for (const std::string& item : items) {
    packed += packed.empty() ? "\"" : ";\"";
    for (const char c : item) {
      packed += c == '"' || c == '\\' ? "\\" : "";
      packed.push_back(c);
    }
    packed += "\"";
  }
  RC_ASSERT(StringTokenizer::Split(packed, ';') == Pieces(items.begin(), items.end()));
  RC_ASSERT(Split(packed, true, ';') == Pieces(items.begin(), items.end()));
}

} // namespace
