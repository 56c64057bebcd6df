#include "host/foundation/UID.h"
#include "tests/foundation/Support.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <set>

namespace {

String Refusal(const String& text) {
  return "\"" + text + "\" is no ID; write 36 characters like \"0123abcd-4567-89ab-cdef-0123456789ab\"";
}

rc::Gen<std::array<unsigned char, 16>> RandomBytes() {
  return rc::gen::container<std::array<unsigned char, 16>>(rc::gen::arbitrary<unsigned char>());
}

UID FromBytes(const std::array<unsigned char, 16>& bytes) {
  UID id;
  id.SetBytes(bytes);
  return id;
}

TEST(UID, IsNullAtFirst) {
  const UID id;
  EXPECT_TRUE(id.IsNull());
  EXPECT_EQ(id.GenString(), "00000000-0000-0000-0000-000000000000");
  EXPECT_EQ(id, UID(false));
}

TEST(UID, TextIsReadAndWritten) {
  UID id;
  id.FromString("0123abcd-4567-89ab-cdef-0123456789ab");
  EXPECT_FALSE(id.IsNull());
  EXPECT_EQ(id.GenString(), "0123abcd-4567-89ab-cdef-0123456789ab");
  EXPECT_EQ(id.Bytes(), (std::array<unsigned char, 16>{0x01, 0x23, 0xab, 0xcd, 0x45, 0x67, 0x89, 0xab, 0xcd,
                                                       0xef, 0x01, 0x23, 0x45, 0x67, 0x89, 0xab}));
}

TEST(UID, EitherCaseIsReadAndLowerCaseWritten) {
  UID id;
  id.FromString("0123ABCD-4567-89aB-CdEf-0123456789AB");
  EXPECT_EQ(id.GenString(), "0123abcd-4567-89ab-cdef-0123456789ab");
}

TEST(UID, AnewSetIdHasANewText) {
  UID id;
  EXPECT_EQ(id.GenString(), "00000000-0000-0000-0000-000000000000");
  id.FromString("0123abcd-4567-89ab-cdef-0123456789ab");
  EXPECT_EQ(id.GenString(), "0123abcd-4567-89ab-cdef-0123456789ab");
  id.SetBytes({});
  EXPECT_EQ(id.GenString(), "00000000-0000-0000-0000-000000000000");
}

TEST(UID, MalformedTextsAreRefusedAndLeaveTheId) {
  for (const char* text :
       {"", "x", "0123abcd-4567-89ab-cdef-0123456789a", "0123abcd-4567-89ab-cdef-0123456789abc",
        "0123abcd 4567-89ab-cdef-0123456789ab", "0123abcd-4567-89ab-cdef-0123456789ag",
        "0123abcd-4567-89ab-cde-f0123456789ab", "{123abcd-4567-89ab-cdef-0123456789a}",
        " 123abcd-4567-89ab-cdef-0123456789ab", "0123abcd456789abcdef0123456789ab",
        "0123abcd-4567-89ab-cdef-0123456789\xC3\xA9", "-0123abc-4567-89ab-cdef-0123456789ab"}) {
    UID id;
    id.FromString("11111111-2222-3333-4444-555555555555");
    EXPECT_EQ(RaisedText([&] { id.FromString(text); }), Refusal(text));
    EXPECT_EQ(id.GenString(), "11111111-2222-3333-4444-555555555555");
  }
  EXPECT_EQ(RaisedCode([] { UID().FromString("x"); }), k_ErrorSyntax);
}

TEST(UID, FormatConversionsAreHarmlessAndMalformed) {
  for (const char* text : {"%n", "%s", "%999999999d", "%s%s%s%s%s%s%s%s%s%s%s%s%s%s%s%s%s%s", "%036d", "%36s",
                           "0123abcd-4567-89ab-cdef-0123456789ab%n", "%n0123abcd-4567-89ab-cdef-0123456789ab",
                           "0123abcd%n-4567-89ab-cdef-0123456789", "%%23abcd-4567-89ab-cdef-0123456789ab"}) {
    EXPECT_EQ(RaisedText([&] { UID().FromString(text); }), Refusal(text));
  }
}

TEST(UID, LongMalformedTextsAreCutInTheMessage) {
  EXPECT_EQ(RaisedText([&] { UID().FromString(String(100000, 'a')); }), Refusal(String(80, 'a')));
}

TEST(UID, NulBytesAreMalformed) {
  const String text("0123abcd-4567-89ab-cdef-0123456789a\0", 36);
  EXPECT_EQ(RaisedText([&] { UID().FromString(text); }), Refusal(text));
}

RC_GTEST_PROP(UID, EveryIdComesBackFromItsText, ()) {
  const UID id = FromBytes(*RandomBytes());
  UID lower;
  lower.FromString(id.GenString());
  UID upper;
  upper.FromString(id.GenString().Upper());
  RC_ASSERT(lower == id);
  RC_ASSERT(upper == id);
  RC_ASSERT(id.GenString().size() == 36U);
}

RC_GTEST_PROP(UID, OrderIsTheOrderOfTheTexts, ()) {
  auto bytes = *RandomBytes();
  const UID left = FromBytes(bytes);
  bytes[*rc::gen::inRange<std::size_t>(0, 16)] = *rc::gen::arbitrary<unsigned char>();
  const UID right = FromBytes(bytes);
  RC_ASSERT((left < right) == (left.GenString() < right.GenString()));
  RC_ASSERT((right < left) == (right.GenString() < left.GenString()));
  RC_ASSERT((left == right) == (left.GenString() == right.GenString()));
}

TEST(UID, FreshIdsAreOfVersionFourAndDiffer) {
  std::set<String> texts;
  for (int i = 0; i < 1000; ++i) {
    const String text = UID(true).GenString();
    ASSERT_EQ(text[14], '4') << text;
    ASSERT_NE(std::string("89ab").find(text[19]), std::string::npos) << text;
    texts.insert(text);
  }
  EXPECT_EQ(texts.size(), 1000U);
}

} // namespace
