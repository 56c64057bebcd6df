// Overrides and [AutoDetect]. Every message is compared whole.

#include "tests/trovik/check/CheckTest.h"

namespace trovik {
namespace {

using OverridesTest = CheckTest;

TEST_F(OverridesTest, DefaultOfAnUnknownParameterIsTold) {
  EXPECT_EQ(printed(plain + "[OverrideDefaults]\n"
                            "PaketSize=2\n"),
            R"~(sketch.tvx:7:1: error: the type has no parameter "PaketSize", so this default is passed over
    7 | PaketSize=2
      | ^^^^^^^^^
hint: did you mean "PacketSize"?
)~");
}

TEST_F(OverridesTest, DefaultOfAParameterThatIsNothingLikeIsTold) {
  EXPECT_EQ(printed(plain + "[OverrideDefaults]\n"
                            "Xyzzy=2\n"),
            R"~(sketch.tvx:7:1: error: the type has no parameter "Xyzzy", so this default is passed over
    7 | Xyzzy=2
      | ^^^^^
hint: "trovik type" lists what a type has
)~");
}

TEST_F(OverridesTest, FlagsOfAnUnknownParameterIsTold) {
  EXPECT_EQ(printed(plain + "[OverrideFlags]\n"
                            "PaketSize=Visible\n"),
            R"~(sketch.tvx:7:1: error: the type has no parameter "PaketSize", so this entry is passed over
    7 | PaketSize=Visible
      | ^^^^^^^^^
hint: did you mean "PacketSize"?
)~");
}

TEST_F(OverridesTest, FilterOfAnUnknownParameterIsTold) {
  EXPECT_EQ(printed(plain + "[OverrideFilters]\n"
                            "Szene=Scenes|*.pov\n"),
            R"~(sketch.tvx:7:1: error: the type has no parameter "Szene", so this filter is passed over
    7 | Szene=Scenes|*.pov
      | ^^^^^
hint: did you mean "Scene"?
)~");
}

TEST_F(OverridesTest, AmountThatIsNoneIsTold) {
  EXPECT_EQ(printed(plain + "[OverrideDefaults]\n"
                            "Memory=lots\n"
                            "Limits=renderer=0\n"
                            "PacketSize=auto\n"),
            R"~(sketch.tvx:7:8: error: this default is refused: "lots" is no amount of memory
    7 | Memory=lots
      |        ^^^^
hint: write 500M, 4G or 1T; a number alone is MiB
sketch.tvx:8:8: error: this default is refused: "renderer=0" is no part of a limit
    8 | Limits=renderer=0
      |        ^^^^^^^^^^
hint: write a name, or a name and a number: renderer=2
)~");
}

TEST_F(OverridesTest, DefaultThatIsRefusedIsTold) {
  EXPECT_EQ(printed(plain + "[OverrideDefaults]\n"
                            "PacketSize=none\n"
                            "FileCheck=Each\n"),
            R"~(sketch.tvx:7:12: error: this default is refused: "none" is no whole number, nor auto
    7 | PacketSize=none
      |            ^^^^
sketch.tvx:8:11: error: this default is refused: "Each" is none of EveryFrame, Work, None
    8 | FileCheck=Each
      |           ^^^^
)~");
}

TEST_F(OverridesTest, ExitCodesThatAreNoneIsTold) {
  EXPECT_EQ(
      printed(plain + "[OverrideDefaults]\n"
                      "SuccessExitCodes=0,999\n"),
      R"~(sketch.tvx:7:18: error: this default is refused: SuccessExitCodes:3: no program can give this exit code
    7 | SuccessExitCodes=0,999
      |                  ^^^^^
hint: write exit codes from 0 to 255 and ranges, as in 0,2-4
)~");
}

TEST_F(OverridesTest, LettersThatAreNoneAreTold) {
  EXPECT_EQ(
      printed(plain + "[OverrideDefaults]\n"
                      "RefusedInSceneName=\" Umlauts\n"),
      R"~(sketch.tvx:7:20: error: this default is refused: RefusedInSceneName:3: "Umlauts" names no letters
    7 | RefusedInSceneName=" Umlauts
      |                    ^^^^^^^^^
hint: write NonASCII, NonUTF8, Control, Blank or the signs themselves, with blanks between
)~");
  EXPECT_EQ(printed(plain + "[OverrideDefaults]\n"
                            "RefusedInSceneName=NonASCII \" Blank %:\n"),
            "");
}

TEST_F(OverridesTest, DeprecatedParameterIsTold) {
  EXPECT_EQ(printed(plain + "[OverrideDefaults]\n"
                            "HideSubrange=Yes\n"),
            R"~(sketch.tvx:7:14: warning: HideSubrange should not be used any more
    7 | HideSubrange=Yes
      |              ^^^
hint: write $(ActualSubRange) where the frames of a sequence shall be left out
)~");
}

TEST_F(OverridesTest, UnknownFlagIsTold) {
  EXPECT_EQ(printed(plain + "[OverrideFlags]\n"
                            "PacketSize=Visible, Advancd\n"),
            R"~(sketch.tvx:7:21: error: unknown flag "Advancd"
    7 | PacketSize=Visible, Advancd
      |                     ^^^^^^^
hint: did you mean "Advanced"?
)~");
}

TEST_F(OverridesTest, FilterOfWhatIsNoFileIsTold) {
  EXPECT_EQ(printed(plain + "[OverrideFilters]\n"
                            "PacketSize=Scenes|*.pov\n"),
            R"~(sketch.tvx:7:1: error: the parameter "PacketSize" is no file, so this filter is passed over
    7 | PacketSize=Scenes|*.pov
      | ^^^^^^^^^^
hint: take it out, or define the parameter with Type=File
)~");
}

TEST_F(OverridesTest, FilterWithoutPairsIsTold) {
  EXPECT_EQ(printed(plain + "[OverrideFilters]\n"
                            "Scene=Scenes (*.pov)|*.pov|All files\n"),
            R"~(sketch.tvx:7:7: warning: a filter is pairs of a label and patterns between bars
    7 | Scene=Scenes (*.pov)|*.pov|All files
      |       ^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^
hint: write it as in Scenes (*.pov)|*.pov|All files (*)|*
)~");
}

TEST_F(OverridesTest, FilterWithoutAPatternIsTold) {
  EXPECT_EQ(printed(plain + "[OverrideFilters]\n"
                            "Scene=Scenes|\n"),
            R"~(sketch.tvx:7:7: warning: there is no pattern behind the label "Scenes"
    7 | Scene=Scenes|
      |       ^^^^^^
hint: write patterns such as *.pov;*.inc
)~");
}

TEST_F(OverridesTest, FilterWithFoldersIsTold) {
  EXPECT_EQ(printed(plain + "[OverrideFilters]\n"
                            "Scene=Scenes|shots/*.pov\n"),
            R"~(sketch.tvx:7:14: warning: patterns are for names of files, without folders
    7 | Scene=Scenes|shots/*.pov
      |              ^^^^^^^^^^^
hint: leave out what stands before "/"
)~");
}

TEST_F(OverridesTest, RuleOfAnUnknownParameterIsTold) {
  EXPECT_EQ(printed(plain + "[AutoDetect]\n"
                            "Scenes=Note=a\n"),
            R"~(sketch.tvx:7:1: error: the type has no parameter "Scenes", so this rule is never applied
    7 | Scenes=Note=a
      | ^^^^^^
hint: did you mean "Scene"?
)~");
}

TEST_F(OverridesTest, RuleInAnotherCaseIsTold) {
  EXPECT_EQ(printed(plain + "[AutoDetect]\n"
                            "scene=OutputFolder=/tmp\n"),
            R"~(sketch.tvx:7:1: error: the parameter is spelled "Scene", so this rule is never applied
    7 | scene=OutputFolder=/tmp
      | ^^^^^
hint: write it with the same capital letters
)~");
}

TEST_F(OverridesTest, RuleForAnUnknownTargetIsTold) {
  EXPECT_EQ(printed(plain + "[AutoDetect]\n"
                            "Scene=OutputFoldr=/tmp, Name=a\n"),
            R"~(sketch.tvx:7:7: error: the type has no parameter "OutputFoldr", so this text goes nowhere
    7 | Scene=OutputFoldr=/tmp, Name=a
      |       ^^^^^^^^^^^
hint: did you mean "OutputFolder"?
)~");
}

TEST_F(OverridesTest, RuleWithoutATargetIsTold) {
  EXPECT_EQ(printed(plain + "[AutoDetect]\n"
                            "Scene=/tmp\n"),
            R"~(sketch.tvx:7:7: error: this piece is passed over: it has no TARGET=TEXT
    7 | Scene=/tmp
      |       ^^^^
hint: write which parameter it fills
)~");
}

TEST_F(OverridesTest, RuleThatFillsNothingIsTold) {
  EXPECT_EQ(printed(plain + "[AutoDetect]\n"
                            "Scene=\n"),
            R"~(sketch.tvx:7:1: warning: this rule fills nothing
    7 | Scene=
      | ^^^^^
hint: write TARGET=TEXT
)~");
}

TEST_F(OverridesTest, RuleWithACommaInItIsTold) {
  EXPECT_EQ(printed(plain + "[AutoDetect]\n"
                            "Scene=Name=$(Scene.Replace(a,b))\n"),
            R"~(sketch.tvx:7:27: error: this argument is never closed
    7 | Scene=Name=$(Scene.Replace(a,b))
      |                           ^^
hint: write a backslash before a parenthesis that stands alone
sketch.tvx:7:30: error: this piece is passed over: it has no TARGET=TEXT
    7 | Scene=Name=$(Scene.Replace(a,b))
      |                              ^^^
hint: a comma ends a rule; write the whole rule in double quotes
)~");
}

TEST_F(OverridesTest, RuleWithAnUnknownReferenceIsTold) {
  EXPECT_EQ(printed(plain + "[AutoDetect]\n"
                            "Scene=OutputFolder=$(Scene.Brnch)/$(Sene)\n"),
            R"~(sketch.tvx:7:28: error: unknown parameter command "Brnch"
    7 | Scene=OutputFolder=$(Scene.Brnch)/$(Sene)
      |                            ^^^^^
hint: did you mean "Branch"?
sketch.tvx:7:37: error: nobody answers $(Sene)
    7 | Scene=OutputFolder=$(Scene.Brnch)/$(Sene)
      |                                     ^^^^
hint: did you mean "Scene"?
)~");
}

} // namespace
} // namespace trovik
