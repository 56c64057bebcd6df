// Command lines, and names with blanks in them. Every message is compared whole.

#include "tests/trovik/check/CheckTest.h"

namespace trovik {
namespace {

using CommandLinesTest = CheckTest;

TEST_F(CommandLinesTest, QuoteThatIsNeverClosedIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=-i 'a $(Frame)\n"
                                        "ImageStartText=saved:\n"),
            R"~(sketch.tvx:4:12: error: the quote ' is never closed
    4 | Command=-i 'a $(Frame)
      |            ^
hint: close it, or write a backslash before it where it is meant as it stands
)~");
}

TEST_F(CommandLinesTest, NameWithoutQuotesIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=-i $(Scene) -o $(OutputFolder)/$(Scene.Base).png\n"
                                        "ImageStartText=saved:\n"),
            R"~(sketch.tvx:4:12: warning: a name with a blank or a quote in it becomes several arguments here
    4 | Command=-i $(Scene) -o $(OutputFolder)/$(Scene.Base).png
      |            ^^^^^^^^
hint: write $(Scene.Enquote)
sketch.tvx:4:24: warning: a name with a blank or a quote in it becomes several arguments here
    4 | Command=-i $(Scene) -o $(OutputFolder)/$(Scene.Base).png
      |                        ^^^^^^^^^^^^^^^
hint: write $(OutputFolder.Enquote)
sketch.tvx:4:40: warning: a name with a blank or a quote in it becomes several arguments here
    4 | Command=-i $(Scene) -o $(OutputFolder)/$(Scene.Base).png
      |                                        ^^^^^^^^^^^^^
hint: write $(Scene.Base.Enquote)
)~");
}

TEST_F(CommandLinesTest, LettersOfPlainPathThatAreNoneAreTold) {
  EXPECT_EQ(
      printed(std::string(head) + "Command=-i $(Scene.PlainPath(Umlauts).Enquote)\n"
                                  "ImageStartText=saved:\n"),
      R"~(sketch.tvx:4:9: error: no work can start by this: command line:12: PlainPath:1: "Umlauts" names no letters
    4 | Command=-i $(Scene.PlainPath(Umlauts).Enquote)
      |         ^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^
hint: write NonASCII, NonUTF8, Control, Blank or the signs themselves, with blanks between
)~");
}

TEST_F(CommandLinesTest, PlainPathOfAQuotedNameIsTold) {
  EXPECT_EQ(printed(std::string(head) +
                    "Command=-i $(Scene.Enquote.PlainPath(NonASCII)) $(ActualScene.PlainPath(\"))\n"
                    "ImageStartText=saved:\n"),
            R"~(sketch.tvx:4:28: warning: PlainPath gets the quotes of Enquote too, where a name needs some
    4 | Command=-i $(Scene.Enquote.PlainPath(NonASCII)) $(ActualScene.PlainP...
      |                            ^^^^^^^^^^^^^^^^^^^
hint: write Enquote as the last command
sketch.tvx:4:49: warning: $(ActualScene) is quoted where a name needs it, and commands get the quotes too
    4 | ...=-i $(Scene.Enquote.PlainPath(NonASCII)) $(ActualScene.PlainPath("))
      |                                             ^^^^^^^^^^^^^^^^^^^^^^^^^^^
hint: write EnquoteActual=No in [OverrideDefaults], and Enquote as the last command
)~");
}

TEST_F(CommandLinesTest, TextWithoutQuotesIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=$(ActualScene) --title $(Title)\n"
                                        "ImageStartText=saved:\n"
                                        "[PrimaryParameters]\n"
                                        "1=Title\n"
                                        "[Title]\n"
                                        "Type=Text\n"),
            R"~(sketch.tvx:4:32: warning: a text with a blank or a quote in it becomes several arguments here
    4 | Command=$(ActualScene) --title $(Title)
      |                                ^^^^^^^^
hint: write $(Title.Enquote)
)~");
}

TEST_F(CommandLinesTest, OptionalTextWithoutQuotesIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=$(ActualScene) $(Title.Prefix(--title=))\n"
                                        "ImageStartText=saved:\n"
                                        "[PrimaryParameters]\n"
                                        "1=Title\n"
                                        "[Title]\n"
                                        "Type=Text\n"),
            R"~(sketch.tvx:4:24: warning: a text with a blank or a quote in it becomes several arguments here
    4 | Command=$(ActualScene) $(Title.Prefix(--title=))
      |                        ^^^^^^^^^^^^^^^^^^^^^^^^^
hint: write $(Title.Option(--title=)), which quotes, and gives nothing where the value is empty
)~");
}

TEST_F(CommandLinesTest, ListWithoutQuotesIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=$(ActualScene) $(Paths)\n"
                                        "ImageStartText=saved:\n"
                                        "[PrimaryParameters]\n"
                                        "1=Paths\n"
                                        "[Paths]\n"
                                        "Type=List\n"),
            R"~(sketch.tvx:4:24: warning: a text with a blank or a quote in it becomes several arguments here
    4 | Command=$(ActualScene) $(Paths)
      |                        ^^^^^^^^
hint: write $(Paths.Each()), or with a prefix for each text
)~");
}

TEST_F(CommandLinesTest, NameWithinQuotesIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=-i \"$(Scene)\" -x '$(Scene.Branch)'\n"
                                        "ImageStartText=saved:\n"),
            R"~(sketch.tvx:4:13: warning: a quote or a backslash in the value of "Scene" breaks these quotes
    4 | Command=-i "$(Scene)" -x '$(Scene.Branch)'
      |             ^^^^^^^^
hint: write $(Scene.Enquote) without quotes around it
sketch.tvx:4:27: warning: a quote or a backslash in the value of "Scene" breaks these quotes
    4 | Command=-i "$(Scene)" -x '$(Scene.Branch)'
      |                           ^^^^^^^^^^^^^^^
hint: write $(Scene.Branch.Enquote) without quotes around it
)~");
}

TEST_F(CommandLinesTest, QuotedNameWithinQuotesIsTold) {
  EXPECT_EQ(
      printed(std::string(head) + "Command=-i \"$(Scene.Enquote)\"\n"
                                  "ImageStartText=saved:\n"),
      R"~(sketch.tvx:4:13: warning: Enquote writes quotes where a name needs some, but this stands within quotes already
    4 | Command=-i "$(Scene.Enquote)"
      |             ^^^^^^^^^^^^^^^^
hint: leave out the quotes around it
)~");
}

TEST_F(CommandLinesTest, CommandsBehindEnquoteIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=-i $(Scene.Enquote.Branch)\n"
                                        "ImageStartText=saved:\n"),
            R"~(sketch.tvx:4:28: warning: Branch gets the quotes of Enquote too, where a name needs some
    4 | Command=-i $(Scene.Enquote.Branch)
      |                            ^^^^^^
hint: write Enquote as the last command
)~");
}

TEST_F(CommandLinesTest, BackslashBeforeAReferenceIsTold) {
  EXPECT_EQ(
      printed(std::string(head) + "Command=-i \\$(Scene.Enquote)\n"
                                  "ImageStartText=saved:\n"),
      R"~(sketch.tvx:4:12: warning: this backslash keeps the first letter of a value, which may be a quote
    4 | Command=-i \$(Scene.Enquote)
      |            ^
hint: leave it out; a plain "$(" is written "$$("
)~");
}

TEST_F(CommandLinesTest, ScenesThatAreQuotedTwiceIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=$(ActualScene.Enquote)\n"
                                        "ImageStartText=saved:\n"),
            R"~(sketch.tvx:4:9: warning: $(ActualScene) is quoted already, each file by itself
    4 | Command=$(ActualScene.Enquote)
      |         ^^^^^^^^^^^^^^^^^^^^^^
hint: leave out Enquote, or write EnquoteActual=No in [OverrideDefaults]
)~");
}

TEST_F(CommandLinesTest, ScenesWithinQuotesIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=\"$(ActualScene)\"\n"
                                        "ImageStartText=saved:\n"),
            R"~(sketch.tvx:4:10: warning: $(ActualScene) is quoted already, but this stands within quotes
    4 | Command="$(ActualScene)"
      |          ^^^^^^^^^^^^^^
hint: leave out the quotes around it
)~");
}

TEST_F(CommandLinesTest, FolderOfQuotedScenesIsTold) {
  EXPECT_EQ(
      printed(std::string(head) + "Command=$(ActualScene.Branch)\n"
                                  "ImageStartText=saved:\n"),
      R"~(sketch.tvx:4:9: warning: $(ActualScene) is quoted where a name needs it, and commands get the quotes too
    4 | Command=$(ActualScene.Branch)
      |         ^^^^^^^^^^^^^^^^^^^^^
hint: write EnquoteActual=No in [OverrideDefaults], and Enquote as the last command
)~");
}

TEST_F(CommandLinesTest, ScenesWithoutQuotesIsTold) {
  EXPECT_EQ(printed(plain + "[OverrideDefaults]\n"
                            "EnquoteActual=No\n"),
            R"~(sketch.tvx:4:9: warning: a name with a blank or a quote in it becomes several arguments here
    4 | Command=$(ActualScene)
      |         ^^^^^^^^^^^^^^
hint: write $(ActualScene.Enquote), or leave EnquoteActual on
)~");
}

TEST_F(CommandLinesTest, ScenesThatBecomeOneWordIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=$(ActualScene.Enquote)\n"
                                        "ImageStartText=saved:\n"
                                        "CheckForMultipleFiles=Yes\n"
                                        "[OverrideDefaults]\n"
                                        "EnquoteActual=No\n"),
            R"~(sketch.tvx:4:9: warning: the scene files of a work of several frames become one word here
    4 | Command=$(ActualScene.Enquote)
      |         ^^^^^^^^^^^^^^^^^^^^^^
hint: leave EnquoteActual on and Enquote out, or fix PacketSize at 1
)~");
}

TEST_F(CommandLinesTest, PickedSceneOfASequenceIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=$(Scene.Enquote)\n"
                                        "ImageStartText=saved:\n"
                                        "CheckForMultipleFiles=Yes\n"),
            R"~(sketch.tvx:4:9: warning: $(Scene) is the scene that was picked, in all works of a sequence
    4 | Command=$(Scene.Enquote)
      |         ^^^^^^^^^^^^^^^^
hint: write $(ActualScene), or CheckForMultipleFiles=No
)~");
}

TEST_F(CommandLinesTest, CommandThatFailsInAJobIsTold) {
  EXPECT_EQ(
      printed(std::string(head) + "Command=$(ActualScene) $(Look.Pad(4))\n"
                                  "ImageStartText=saved:\n"
                                  "[PrimaryParameters]\n"
                                  "1=Look\n"
                                  "[Look]\n"
                                  "Type=Choice\n"
                                  "Choices=fine, rough\n"
                                  "Default=fine\n"),
      R"~(sketch.tvx:4:9: error: no work can start by this: command line:23: Pad needs a whole number, not "fine"
    4 | Command=$(ActualScene) $(Look.Pad(4))
      |         ^^^^^^^^^^^^^^^^^^^^^^^^^^^^^
)~");
}

TEST_F(CommandLinesTest, QuotesOutOfAnArgumentIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=$(Frame.Prefix(\"))\n"
                                        "ImageStartText=saved:\n"),
            R"~(sketch.tvx:4:9: error: no work can start by this: command line:1: the quote " is never closed
    4 | Command=$(Frame.Prefix("))
      |         ^^^^^^^^^^^^^^^^^^
hint: close it, or write a backslash before it where it is meant as it stands
)~");
}

} // namespace
} // namespace trovik
