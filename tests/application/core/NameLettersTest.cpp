#include "tests/application/core/TestSupport.h"

#include "host/application/NameLetters.h"

#include <gtest/gtest.h>

#include <rapidcheck/gtest.h>

namespace {

std::size_t Find(const String& letters, const String& name) {
  return NameLetters(letters, "Letters").FindIn(name);
}

TEST(NameLetters, NoneAreRefusedByAnEmptyText) {
  EXPECT_TRUE(NameLetters().empty());
  EXPECT_TRUE(NameLetters(" \t ", "Letters").empty());
  EXPECT_EQ(Find("", "a\xC3\x9F \"\x01"), String::npos);
}

TEST(NameLetters, KindsStandForTheirLetters) {
  EXPECT_EQ(Find("NonASCII", "Flu\xC3\x9F"), 3U);
  EXPECT_EQ(Find("nonascii", "a\xE9"), 1U);
  EXPECT_EQ(Find("NonASCII", " !\"~\x01\x7F"), String::npos);
  EXPECT_EQ(Find("Control", "a\nb"), 1U);
  EXPECT_EQ(Find("Control", "ab\x7F"), 2U);
  EXPECT_EQ(Find("Control", "a \xC2\x85"), String::npos);
  EXPECT_EQ(Find("Blank", "ab c"), 2U);
  EXPECT_EQ(Find("Blank", "a\tb"), 1U);
  EXPECT_EQ(Find("Blank", "a\nb"), String::npos);
}

TEST(NameLetters, BytesOfNoCharacterAreAKind) {
  EXPECT_FALSE(NameLetters("NonUTF8", "Letters").empty());
  for (const char* name :
       {"Flu\xC3\x9F", "\xE6\x97\xA5\xE6\x9C\xAC", "\xF0\x9F\x8E\xA8", "\xED\x9F\xBF", "a \"\n"}) {
    EXPECT_EQ(Find("NonUTF8", name), String::npos) << name;
  }
  for (const char* name : {"l\xE9", "l\xE9s", "l\xC0\xA2", "l\xE0\x80\x80", "l\xED\xA0\x80",
                           "l\xF0\x80\x80\x80", "l\xF4\x90\x80\x80", "l\xFF", "l\x80", "l\xE6\x97"}) {
    EXPECT_EQ(Find("NonUTF8", name), 1U) << name;
  }
  EXPECT_EQ(Find("NonUTF8", "\xC3\x9F\xC3"), 2U);
}

TEST(NameLetters, SignsStandForThemselvesAloneOrTogether) {
  EXPECT_EQ(Find("\"", "a\"b"), 1U);
  EXPECT_EQ(Find("\"", "a'b"), String::npos);
  EXPECT_EQ(Find("%: Blank  \\", "ab\\:"), 2U);
  EXPECT_EQ(Find("%: Blank  \\", "ab:\\"), 2U);
  EXPECT_EQ(Find("%: Blank  \\", "a b"), 1U);
}

TEST(NameLetters, WordThatNamesNoLettersIsRefusedWithItsPlace) {
  const auto refusal = [](const String& letters) {
    int code = 0;
    String message = MessageOf([&] { NameLetters(letters, "Letters"); }, &code);
    EXPECT_EQ(code, k_ErrorSyntax);
    return message;
  };
  EXPECT_EQ(refusal("\" Umlaut"), "Letters:3: \"Umlaut\" names no letters; write NonASCII, NonUTF8, Control, "
                                  "Blank or the signs themselves, "
                                  "with blanks between\n    1 | \" Umlaut\n      |   ^");
  for (const char* letters : {"x", "7", "NonASCII,Blank", "/", "a%", "\xC3\x9F", "\x01"}) {
    EXPECT_EQ(refusal(letters).substr(0, 10), "Letters:1:") << letters;
  }
}

TEST(NameLetters, LettersAreDescribed) {
  EXPECT_EQ(NameLetters::Describe("Flu\xC3\x9F_1", 3), "\"\xC3\x9F\", a letter beyond ASCII");
  EXPECT_EQ(NameLetters::Describe("\xE6\x97\xA5\xE6\x9C\xAC", 0), "\"\xE6\x97\xA5\", a letter beyond ASCII");
  EXPECT_EQ(NameLetters::Describe("\xF0\x9F\x8E\xA8", 0), "\"\xF0\x9F\x8E\xA8\", a letter beyond ASCII");
  EXPECT_EQ(NameLetters::Describe("a\xE9", 1), "the byte \\xe9, which is no letter of UTF-8");
  EXPECT_EQ(NameLetters::Describe("\xE9"
                                  "bc",
                                  0),
            "the byte \\xe9, which is no letter of UTF-8");
  EXPECT_EQ(NameLetters::Describe("\xC0\xA2", 0), "the byte \\xc0, which is no letter of UTF-8");
  EXPECT_EQ(NameLetters::Describe("a b", 1), "a blank");
  EXPECT_EQ(NameLetters::Describe("a\nb", 1), "the control character \\x0a");
  EXPECT_EQ(NameLetters::Describe("a\"b", 1), "a quotation mark");
  EXPECT_EQ(NameLetters::Describe("a%b", 1), "\"%\"");
}

RC_GTEST_PROP(NameLetters, WhatIsFoundIsTheFirstOfItsKindInAnyBytes, (const std::string& name)) {
  const std::size_t place = Find("NonASCII \"", String(name));
  const auto isRefused = [](char c) { return static_cast<unsigned char>(c) >= 0x80U || c == '"'; };
  const auto first = std::find_if(name.begin(), name.end(), isRefused);
  RC_ASSERT(place == (first == name.end() ? String::npos : static_cast<std::size_t>(first - name.begin())));
  if (place != String::npos) {
    RC_ASSERT(!NameLetters::Describe(name, place).empty());
  }
}

} // namespace
