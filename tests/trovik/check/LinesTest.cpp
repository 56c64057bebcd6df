// The lines themselves. Every message is compared whole.

#include "tests/trovik/check/CheckTest.h"

namespace trovik {
namespace {

using LinesTest = CheckTest;

TEST_F(LinesTest, EntryBeforeTheFirstSectionIsTold) {
  EXPECT_EQ(printed("Name=Early\n"
                    "[Module]\n"
                    "ID=11111111-2222-3333-4444-555555555555\n"
                    "Name=Sketch\n"
                    "Command=$(ActualScene)\n"
                    "ImageStartText=saved:\n"),
            R"~(sketch.tvx:1:1: error: this entry stands before the first section and is passed over
    1 | Name=Early
      | ^^^^^^^^^^
hint: write it below a line such as [Module]
)~");
}

TEST_F(LinesTest, LineThatIsNoEntryIsTold) {
  EXPECT_EQ(printed(plain + "saved good images\n"),
            R"~(sketch.tvx:6:1: error: this line is no section, no entry and no comment
    6 | saved good images
      | ^^^^^^^^^^^^^^^^^
hint: write KEY=VALUE, or a semicolon before a comment
)~");
}

TEST_F(LinesTest, SectionThatIsNeverClosedIsTold) {
  EXPECT_EQ(printed(plain + "[ErrorText\n"),
            R"~(sketch.tvx:6:1: error: this section is never closed, and its line is passed over
    6 | [ErrorText
      | ^^^^^^^^^^
hint: write "[ErrorText]"
)~");
}

TEST_F(LinesTest, TextBehindASectionIsTold) {
  EXPECT_EQ(printed(plain + "[ErrorText] ; what the program says\n"
                            "1=fatal:\n"),
            R"~(sketch.tvx:6:13: warning: what stands behind "]" is passed over
    6 | [ErrorText] ; what the program says
      |             ^^^^^^^^^^^^^^^^^^^^^^^
hint: a comment needs a line of its own, which begins with a semicolon
)~");
}

TEST_F(LinesTest, EntryWithoutAKeyIsTold) {
  EXPECT_EQ(printed(plain + "=5\n"),
            R"~(sketch.tvx:6:1: error: the key before "=" is missing
    6 | =5
      | ^
hint: write KEY=VALUE
)~");
}

TEST_F(LinesTest, KeyThatStandsTwiceIsTold) {
  EXPECT_EQ(printed(plain + "Help=Draws.\n"
                            "HELP=Paints.\n"),
            R"~(sketch.tvx:7:1: warning: this value takes the place of that of line 6
    7 | HELP=Paints.
      | ^^^^
hint: leave one of them out
)~");
}

TEST_F(LinesTest, EntryOfAListThatReplacesAnotherIsTold) {
  EXPECT_EQ(printed(plain + "[ErrorText]\n"
                            "1=fatal:\n"
                            "1=broken:\n"),
            R"~(sketch.tvx:8:1: error: this entry takes the place of that of line 7
    8 | 1=broken:
      | ^
hint: every entry of a list needs a key of its own
)~");
}

TEST_F(LinesTest, SectionThatStandsTwiceIsTold) {
  EXPECT_EQ(printed(plain + "[ErrorText]\n"
                            "1=fatal:\n"
                            "[SuccessText]\n"
                            "1=done\n"
                            "[errortext]\n"
                            "2=broken:\n"),
            R"~(sketch.tvx:10:1: warning: the section "errortext" was opened before, in line 6
   10 | [errortext]
      | ^^^^^^^^^^^
hint: both are read as one; put the entries together
)~");
}

TEST_F(LinesTest, ByteZeroIsTold) {
  EXPECT_EQ(printed(std::string(head) + std::string("Command=$(ActualScene)\n"
                                                    "ImageStartText=saved:\n"
                                                    "Help=a\000b\n",
                                                    54)),
            R"~(sketch.tvx:6:7: warning: there is a byte 0 in this line
    6 | Help=a\x00b
      |       ^^^^
hint: take it out
)~");
}

TEST_F(LinesTest, BytesThatAreNoUtf8IsTold) {
  EXPECT_EQ(printed(plain + "Help=gr\374n\n"),
            "sketch.tvx:6:8: warning: this byte is no UTF-8, which programs print and forms show\n"
            "    6 | Help=gr\374n\n"
            "      |        ^\n"
            "hint: save the file as UTF-8\n");
}

TEST_F(LinesTest, Utf16IsTold) {
  EXPECT_EQ(printed(std::string("\377\376[\000M\000", 6)),
            "sketch.tvx:1:1: error: this file is written in UTF-16, and is not loaded\n"
            "    1 | \377\376[\\x00M\\x00\n"
            "      | ^^\n"
            "hint: save it as UTF-8\n");
}

} // namespace
} // namespace trovik
