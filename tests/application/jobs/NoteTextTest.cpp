#include "host/application/jobs/NoteText.h"

#include <gtest/gtest.h>

namespace {

TEST(NoteText, OrdinaryTextStaysAsItIs) {
  EXPECT_EQ(NoteText("Fatal: gr\xC3\xBC\xC3\x9F"
                     "e"),
            "Fatal: gr\xC3\xBC\xC3\x9F"
            "e");
  EXPECT_EQ(NoteText(""), "");
}

TEST(NoteText, ControlCharactersBecomeQuestionMarks) {
  EXPECT_EQ(NoteText(String("a\0b\tc\x1B[31m\x7F\r\n", 13)), "a?b?c?[31m???");
  EXPECT_EQ(NoteText("\xC2\x9B"
                     "31m \xC2\xA9"),
            "?31m \xC2\xA9"); // U+009B, and a copyright sign
}

TEST(NoteText, TextOfTheLimitIsNotCut) {
  EXPECT_EQ(NoteText(String(300, 'x')), String(300, 'x'));
  EXPECT_EQ(NoteText(String(301, 'x')), String(300, 'x') + "…");
}

TEST(NoteText, CutNeverSplitsACharacter) {
  EXPECT_EQ(NoteText(String(299, 'x') + "\xC3\xBC"
                                        "y"),
            String(299, 'x') + "…");
  EXPECT_EQ(NoteText(String(298, 'x') + "\xC3\xBC"
                                        "y"),
            String(298, 'x') + "\xC3\xBC…");
  EXPECT_EQ(NoteText(String(297, 'x') + "\xF0\x9F\x8E\xA5y"), String(297, 'x') + "…");
}

TEST(NoteText, BinaryIsCutAtTheLimit) {
  EXPECT_EQ(NoteText(String(1000, '\x80')), String(300, '\x80') + "…");
}

} // namespace
