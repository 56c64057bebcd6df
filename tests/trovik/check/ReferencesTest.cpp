// References in texts. Every message is compared whole.

#include "tests/trovik/check/CheckTest.h"

namespace trovik {
namespace {

using ReferencesTest = CheckTest;

TEST_F(ReferencesTest, UnknownReferenceIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=$(ActualScene) $(Framme)\n"
                                        "ImageStartText=saved:\n"),
            R"~(sketch.tvx:4:26: error: nobody answers $(Framme)
    4 | Command=$(ActualScene) $(Framme)
      |                          ^^^^^^
hint: did you mean "Frame"?
)~");
}

TEST_F(ReferencesTest, ReferenceLikeNothingIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=$(ActualScene) $(Xyzzy)\n"
                                        "ImageStartText=saved:\n"),
            R"~(sketch.tvx:4:26: error: nobody answers $(Xyzzy)
    4 | Command=$(ActualScene) $(Xyzzy)
      |                          ^^^^^
hint: define the parameter, or write "$$(" where "$(" is meant as it stands
)~");
}

TEST_F(ReferencesTest, ReferenceThatNamesNothingIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=$(ActualScene) $()\n"
                                        "ImageStartText=saved:\n"),
            R"~(sketch.tvx:4:24: error: this reference names nothing
    4 | Command=$(ActualScene) $()
      |                        ^^^
hint: write the name of a parameter, or "$$(" where "$(" is meant as it stands
)~");
}

TEST_F(ReferencesTest, UnknownCommandIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=$(Scene.Enqote)\n"
                                        "ImageStartText=saved:\n"),
            R"~(sketch.tvx:4:17: error: unknown parameter command "Enqote"
    4 | Command=$(Scene.Enqote)
      |                 ^^^^^^
hint: did you mean "Enquote"?
)~");
}

TEST_F(ReferencesTest, CommandsWithWrongArgumentsIsTold) {
  EXPECT_EQ(printed(std::string(head) +
                    "Command=$(Frame.Pad) $(Frame.Upper(4)) $(Frame.Pad(4)x) $(Frame..Pad(4))\n"
                    "ImageStartText=saved:\n"),
            R"~(sketch.tvx:4:17: error: Pad needs an argument: Pad(n)
    4 | Command=$(Frame.Pad) $(Frame.Upper(4)) $(Frame.Pad(4)x) $(Frame..Pad...
      |                 ^^^
sketch.tvx:4:30: error: Upper takes no argument
    4 | Command=$(Frame.Pad) $(Frame.Upper(4)) $(Frame.Pad(4)x) $(Frame..Pad...
      |                              ^^^^^^^^
sketch.tvx:4:54: error: a "." or ")" is missing behind the argument
    4 | Command=$(Frame.Pad) $(Frame.Upper(4)) $(Frame.Pad(4)x) $(Frame..Pad...
      |                                                      ^
sketch.tvx:4:65: error: a parameter command is missing after "."
    4 | ...and=$(Frame.Pad) $(Frame.Upper(4)) $(Frame.Pad(4)x) $(Frame..Pad(4))
      |                                                                ^
)~");
}

TEST_F(ReferencesTest, ArgumentThatIsNeverClosedIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=$(Frame.Pad(4)\n"
                                        "ImageStartText=saved:\n"),
            R"~(sketch.tvx:4:9: error: this reference is never closed
    4 | Command=$(Frame.Pad(4)
      |         ^^^^^^^^^^^^^^
hint: add ")", or write "$$(" where "$(" is meant as it stands
)~");
}

TEST_F(ReferencesTest, ReferenceThatIsNeverClosedIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=$(ActualScene) $(Frame\n"
                                        "ImageStartText=saved:\n"),
            R"~(sketch.tvx:4:24: error: this reference is never closed
    4 | Command=$(ActualScene) $(Frame
      |                        ^^^^^^^
hint: add ")", or write "$$(" where "$(" is meant as it stands
)~");
}

TEST_F(ReferencesTest, ReferenceToAHeadingIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=$(ActualScene) $(Image)\n"
                                        "ImageStartText=saved:\n"
                                        "[PrimaryParameters]\n"
                                        "1=Image\n"
                                        "[Image]\n"
                                        "Type=Heading\n"),
            R"~(sketch.tvx:4:26: warning: "Image" is a heading, which has no value
    4 | Command=$(ActualScene) $(Image)
      |                          ^^^^^
hint: name a parameter
)~");
}

TEST_F(ReferencesTest, ReferencesOfOtherLanguagesIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=$(ActualScene) ${Frame} $Frame\n"
                                        "ImageStartText=saved:\n"),
            R"~(sketch.tvx:4:24: warning: "${Frame}" is no reference, and stays as it is
    4 | Command=$(ActualScene) ${Frame} $Frame
      |                        ^^^^^^^^
hint: write $(Frame)
sketch.tvx:4:33: warning: "$Frame" is no reference, and stays as it is
    4 | Command=$(ActualScene) ${Frame} $Frame
      |                                 ^^^^^^
hint: write $(Frame)
)~");
}

TEST_F(ReferencesTest, CircleIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=$(ActualScene) $(A)\n"
                                        "ImageStartText=saved:\n"
                                        "[PrimaryParameters]\n"
                                        "1=A\n"
                                        "2=B\n"
                                        "[A]\n"
                                        "Default=$(B)\n"
                                        "Flags=AffectsCommand\n"
                                        "[B]\n"
                                        "Default=x$(A)\n"),
            R"~(sketch.tvx:4:24: warning: a text with a blank or a quote in it becomes several arguments here
    4 | Command=$(ActualScene) $(A)
      |                        ^^^^
hint: write $(A.Enquote)
sketch.tvx:13:10: error: parameters refer to each other in a circle: A -> B -> A
   13 | Default=x$(A)
      |          ^^^^
hint: take one of the references out
)~");
}

TEST_F(ReferencesTest, CircleOfItselfIsTold) {
  EXPECT_EQ(
      printed(plain + "[OverrideDefaults]\n"
                      "OutputFolder=$(OutputFolder)/images\n"),
      R"~(sketch.tvx:7:14: error: parameters refer to each other in a circle: OutputFolder -> OutputFolder
    7 | OutputFolder=$(OutputFolder)/images
      |              ^^^^^^^^^^^^^^^
hint: take one of the references out
)~");
}

TEST_F(ReferencesTest, DefaultWithAnUnknownReferenceIsTold) {
  EXPECT_EQ(printed(plain + "[OverrideDefaults]\n"
                            "ExpectedFiles=$(OutputFoldr)/$(Frame.Pda(4)).png\n"),
            R"~(sketch.tvx:7:17: error: nobody answers $(OutputFoldr)
    7 | ExpectedFiles=$(OutputFoldr)/$(Frame.Pda(4)).png
      |                 ^^^^^^^^^^^
hint: did you mean "OutputFolder"?
sketch.tvx:7:38: error: unknown parameter command "Pda"
    7 | ExpectedFiles=$(OutputFoldr)/$(Frame.Pda(4)).png
      |                                      ^^^
hint: did you mean "Pad"?
)~");
}

TEST_F(ReferencesTest, DefaultThatIsNeverExpandedIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=$(ActualScene) $(Look.Enquote)\n"
                                        "ImageStartText=saved:\n"
                                        "[PrimaryParameters]\n"
                                        "1=Look\n"
                                        "[Look]\n"
                                        "Type=File\n"
                                        "Default=$(Scene.Branch)/look.ini\n"),
            R"~(sketch.tvx:10:9: warning: the value of "Look" is taken as it is, and its "$(" with it
   10 | Default=$(Scene.Branch)/look.ini
      |         ^^^^^^^^^^^^^^^^^^^^^^^^
hint: references work in parameters of other types
)~");
}

TEST_F(ReferencesTest, CommandOfATypeWithAnUnknownReferenceIsTold) {
  EXPECT_EQ(printed(plain + "[PrimaryCommands]\n"
                            "1=Open\n"
                            "[Open]\n"
                            "Command=viewer $(Sceene.Enquote)\n"),
            R"~(sketch.tvx:9:18: error: nobody answers $(Sceene)
    9 | Command=viewer $(Sceene.Enquote)
      |                  ^^^^^^
hint: did you mean "Scene"?
)~");
}

} // namespace
} // namespace trovik
