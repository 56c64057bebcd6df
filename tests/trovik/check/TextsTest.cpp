// The texts by which output is judged. Every message is compared whole.

#include "tests/trovik/check/CheckTest.h"

namespace trovik {
namespace {

using TextsTest = CheckTest;

TEST_F(TextsTest, EmptyImageTextIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=$(ActualScene)\n"
                                        "ImageStartText=saved:;;wrote\n"),
            R"~(sketch.tvx:5:23: error: an empty image text makes every line an image line
    5 | ImageStartText=saved:;;wrote
      |                       ^
hint: leave it out
)~");
}

TEST_F(TextsTest, EmptyEndTextsIsTold) {
  EXPECT_EQ(printed(plain + "ImageEndText=;done\n"
                            "ImageNotEndText=\"\"\n"),
            R"~(sketch.tvx:6:14: warning: an empty end text is held by every line, at its end
    6 | ImageEndText=;done
      |              ^
hint: leave it out
sketch.tvx:7:17: error: an empty not-end text drops every image line
    7 | ImageNotEndText=""
      |                 ^^
hint: leave it out
)~");
}

TEST_F(TextsTest, EmptySuccessTextIsTold) {
  EXPECT_EQ(printed(plain + "[SuccessText]\n"
                            "1=\n"),
            R"~(sketch.tvx:7:1: error: an empty success text makes every run good
    7 | 1=
      | ^
hint: leave it out
)~");
}

TEST_F(TextsTest, EmptyErrorTextsIsTold) {
  EXPECT_EQ(printed(plain + "[ErrorText]\n"
                            "1=\n"
                            "2=fatal\n"
                            "[ErrorIgnore]\n"
                            "1=\n"
                            "2=not fatal\n"),
            R"~(sketch.tvx:7:1: warning: an empty error text is passed over
    7 | 1=
      | ^
hint: leave it out
sketch.tvx:10:1: warning: an empty text to ignore is passed over
   10 | 1=
      | ^
hint: leave it out
)~");
}

TEST_F(TextsTest, BlanksAroundTextsIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=$(ActualScene)\n"
                                        "ImageStartText=saved:; wrote\n"),
            R"~(sketch.tvx:5:23: warning: the blanks around this text are part of it
    5 | ImageStartText=saved:; wrote
      |                       ^^^^^^
hint: leave them out, or write " wrote" where they are meant
)~");
}

TEST_F(TextsTest, TextThatStandsTwiceIsTold) {
  EXPECT_EQ(printed(plain + "[ErrorText]\n"
                            "1=fatal:\n"
                            "2=FATAL:\n"),
            R"~(sketch.tvx:8:3: warning: "FATAL:" stands in this list already, in line 7
    8 | 2=FATAL:
      |   ^^^^^^
hint: capital letters make no difference; leave one of them out
)~");
}

TEST_F(TextsTest, QuotesAroundATextIsTold) {
  EXPECT_EQ(
      printed(plain + "[ErrorText]\n"
                      "1=\"fatal:\"\n"),
      R"~(sketch.tvx:7:3: warning: the quotes are part of this text, and of the line that it is looked for in
    7 | 1="fatal:"
      |   ^^^^^^^^
hint: leave them out
)~");
}

TEST_F(TextsTest, ColoursInATextIsTold) {
  EXPECT_EQ(printed(plain + "[ErrorText]\n"
                            "1=\033[31mfatal:\n"),
            R"~(sketch.tvx:7:3: error: colours are removed before a line is judged, so no line holds this text
    7 | 1=\x1b[31mfatal:
      |   ^^^^^^^^^^^^^^
hint: leave the control characters out
)~");
}

TEST_F(TextsTest, CarriageReturnInATextIsTold) {
  EXPECT_EQ(printed(plain + "[ErrorText]\n"
                            "1=fatal:\015now\n"),
            R"~(sketch.tvx:7:3: error: a line ends at a carriage return, so no line holds this text
    7 | 1=fatal:\rnow
      |   ^^^^^^^^^^^
hint: leave the control characters out
)~");
}

TEST_F(TextsTest, EndTextsWithoutAStartTextIsTold) {
  EXPECT_EQ(
      printed(std::string(head) + "Command=$(ActualScene)\n"
                                  "ImageEndText=done\n"
                                  "ImageNotEndText=no\n"
                                  "[OverrideDefaults]\n"
                                  "ExpectedFiles=$(Frame).png\n"),
      R"~(sketch.tvx:5:14: warning: without ImageStartText no line names an image, and this text does nothing
    5 | ImageEndText=done
      |              ^^^^
hint: write ImageStartText, or take this out
sketch.tvx:6:17: warning: without ImageStartText no line names an image, and this text does nothing
    6 | ImageNotEndText=no
      |                 ^^
hint: write ImageStartText, or take this out
)~");
}

TEST_F(TextsTest, LongerImageTextBehindAShorterIsTold) {
  EXPECT_EQ(
      printed(std::string(head) + "Command=$(ActualScene)\n"
                                  "ImageStartText=saved;saved image\n"),
      R"~(sketch.tvx:5:22: warning: a line that holds "saved image" holds "saved" too, which is looked for first
    5 | ImageStartText=saved;saved image
      |                      ^^^^^^^^^^^
hint: write the longer text first
)~");
}

TEST_F(TextsTest, SuccessTextThatHoldsAnImageTextIsTold) {
  EXPECT_EQ(
      printed(plain + "[SuccessText]\n"
                      "1=Sketch Saved: all\n"),
      R"~(sketch.tvx:7:3: error: a line that begins with "Sketch Saved: all" holds the image text "saved:", so it is never a success line
    7 | 1=Sketch Saved: all
      |   ^^^^^^^^^^^^^^^^^
hint: choose texts that do not hold each other
)~");
}

TEST_F(TextsTest, SuccessTextBehindAShorterIsTold) {
  EXPECT_EQ(
      printed(plain + "[SuccessText]\n"
                      "1=done\n"
                      "2=Done in 3 s\n"),
      R"~(sketch.tvx:8:3: warning: a line that begins with "Done in 3 s" begins with "done" too, so this text changes nothing
    8 | 2=Done in 3 s
      |   ^^^^^^^^^^^
hint: leave out one of them
)~");
}

TEST_F(TextsTest, SuccessTextThatIsAnErrorIsTold) {
  EXPECT_EQ(
      printed(plain + "ErrorDetectPosition=Yes\n"
                      "[SuccessText]\n"
                      "1=finished, 0 errors\n"
                      "[ErrorText]\n"
                      "1=error\n"),
      R"~(sketch.tvx:8:3: warning: a second line that begins with "finished, 0 errors" is an error line: it holds "error"
    8 | 1=finished, 0 errors
      |   ^^^^^^^^^^^^^^^^^^
hint: make the error text more exact
)~");
}

TEST_F(TextsTest, ErrorTextThatHoldsAnImageTextIsTold) {
  EXPECT_EQ(
      printed(plain + "[ErrorText]\n"
                      "1=not saved:\n"),
      R"~(sketch.tvx:7:3: error: a line with "not saved:" holds the image text "saved:", so it is never an error line
    7 | 1=not saved:
      |   ^^^^^^^^^^
hint: choose texts that do not hold each other
)~");
}

TEST_F(TextsTest, ErrorTextThatIsAlwaysIgnoredIsTold) {
  EXPECT_EQ(
      printed(plain + "[ErrorText]\n"
                      "1=Error: no licence\n"
                      "[ErrorIgnore]\n"
                      "1=licence\n"),
      R"~(sketch.tvx:7:3: error: a line with "Error: no licence" holds "licence" of [ErrorIgnore] too, so it is never an error line
    7 | 1=Error: no licence
      |   ^^^^^^^^^^^^^^^^^
hint: make the text to ignore more exact
)~");
}

TEST_F(TextsTest, ErrorTextBehindASuccessTextIsTold) {
  EXPECT_EQ(
      printed(plain + "[SuccessText]\n"
                      "1=done\n"
                      "[ErrorText]\n"
                      "1=done with errors\n"),
      R"~(sketch.tvx:9:3: error: a line that begins with "done with errors" begins with the success text "done", which comes first
    9 | 1=done with errors
      |   ^^^^^^^^^^^^^^^^
hint: make the success text more exact
)~");
}

TEST_F(TextsTest, TextsToIgnoreWithoutErrorTextsIsTold) {
  EXPECT_EQ(printed(plain + "[ErrorIgnore]\n"
                            "1=licence\n"),
            R"~(sketch.tvx:7:3: warning: there are texts to ignore, but no error texts that they could undo
    7 | 1=licence
      |   ^^^^^^^
hint: write error texts in [ErrorText], or take these out
)~");
}

TEST_F(TextsTest, TextsOfAnOverrideIsTold) {
  EXPECT_EQ(printed(plain + "[OverrideDefaults]\n"
                            "ErrorStarts=fatal:;FATAL:\n"),
            R"~(sketch.tvx:7:20: warning: "FATAL:" stands in this list already, in line 7
    7 | ErrorStarts=fatal:;FATAL:
      |                    ^^^^^^
hint: capital letters make no difference; leave one of them out
)~");
}

} // namespace
} // namespace trovik
