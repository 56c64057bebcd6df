// Lists of parameters and commands, and their definitions. Every message is compared whole.

#include "tests/trovik/check/CheckTest.h"

namespace trovik {
namespace {

using ParametersTest = CheckTest;

TEST_F(ParametersTest, DefinitionThatIsMissingIsTold) {
  EXPECT_EQ(printed(plain + "[PrimaryParameters]\n"
                            "1=Depth\n"),
            R"~(sketch.tvx:7:3: error: parameter "Depth" is named but has no section [Depth]
    7 | 1=Depth
      |   ^^^^^
hint: write the section, or take the name out of the list
)~");
}

TEST_F(ParametersTest, SeveralNamesInOneEntryIsTold) {
  EXPECT_EQ(printed(plain + "[PrimaryParameters]\n"
                            "1=Depth, Size\n"),
            R"~(sketch.tvx:7:3: error: parameter "Depth, Size" is named but has no section [Depth, Size]
    7 | 1=Depth, Size
      |   ^^^^^^^^^^^
hint: write one name an entry: 1=..., 2=...
)~");
}

TEST_F(ParametersTest, DefinitionUnderAMistypedNameIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=$(ActualScene) $(Depth)\n"
                                        "ImageStartText=saved:\n"
                                        "[PrimaryParameters]\n"
                                        "1=Depth\n"
                                        "[Detph]\n"
                                        "Type=Integer\n"),
            R"~(sketch.tvx:4:26: error: nobody answers $(Depth)
    4 | Command=$(ActualScene) $(Depth)
      |                          ^^^^^
hint: define the parameter, or write "$$(" where "$(" is meant as it stands
sketch.tvx:7:3: error: parameter "Depth" is named but has no section [Depth]
    7 | 1=Depth
      |   ^^^^^
hint: did you mean "Detph"?
sketch.tvx:8:1: warning: no list names "Detph", so its definition is not used
    8 | [Detph]
      | ^^^^^^^
hint: name it in [PrimaryParameters], or take it out
)~");
}

TEST_F(ParametersTest, ListThatNamesNothingIsTold) {
  EXPECT_EQ(printed(plain + "[PrimaryParameters]\n"
                            "1=\n"),
            R"~(sketch.tvx:7:1: error: the name of a parameter is missing
    7 | 1=
      | ^
)~");
}

TEST_F(ParametersTest, NameThatStandsTwiceIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=$(ActualScene) $(Depth)\n"
                                        "ImageStartText=saved:\n"
                                        "[PrimaryParameters]\n"
                                        "1=Depth\n"
                                        "2=depth\n"
                                        "[Depth]\n"
                                        "Type=Integer\n"),
            R"~(sketch.tvx:8:3: error: "depth" is named in line 7 already
    8 | 2=depth
      |   ^^^^^
hint: take one of them out
)~");
}

TEST_F(ParametersTest, NameOfAParameterAndACommandIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=$(ActualScene) $(Depth)\n"
                                        "ImageStartText=saved:\n"
                                        "[PrimaryParameters]\n"
                                        "1=Depth\n"
                                        "[PrimaryCommands]\n"
                                        "1=Depth\n"
                                        "[Depth]\n"
                                        "Type=Integer\n"),
            R"~(sketch.tvx:9:3: error: "Depth" is named in line 7 already, as a parameter
    9 | 1=Depth
      |   ^^^^^
hint: take one of them out
)~");
}

TEST_F(ParametersTest, NameOfASectionOfItsOwnIsTold) {
  EXPECT_EQ(
      printed(plain + "[PrimaryParameters]\n"
                      "1=ErrorText\n"
                      "[ErrorText]\n"
                      "1=fatal:\n"),
      R"~(sketch.tvx:7:3: error: a parameter cannot be named "ErrorText": that section has a meaning of its own
    7 | 1=ErrorText
      |   ^^^^^^^^^
hint: choose another name
)~");
}

TEST_F(ParametersTest, NameThatNoReferenceCanNameIsTold) {
  EXPECT_EQ(printed(plain + "[PrimaryParameters]\n"
                            "1=Depth.x\n"
                            "[Depth.x]\n"
                            "Type=Integer\n"
                            "Flags=OfJob\n"),
            R"~(sketch.tvx:7:3: error: no reference can name the parameter "Depth.x"
    7 | 1=Depth.x
      |   ^^^^^^^
hint: choose a name without ".", "(", ")" and "$"
)~");
}

TEST_F(ParametersTest, NameThatIsComputedIsTold) {
  EXPECT_EQ(printed(plain + "[PrimaryParameters]\n"
                            "1=Frame\n"
                            "[Frame]\n"
                            "Type=Integer\n"),
            R"~(sketch.tvx:7:3: error: $(Frame) is computed, and never has the value of a parameter
    7 | 1=Frame
      |   ^^^^^
hint: choose another name
)~");
}

TEST_F(ParametersTest, NameThatEveryTypeHasIsTold) {
  EXPECT_EQ(printed(plain + "[PrimaryParameters]\n"
                            "1=CPUs\n"
                            "[CPUs]\n"
                            "Type=Integer\n"),
            R"~(sketch.tvx:7:3: warning: this takes the place of the parameter "CPUs" that every type has
    7 | 1=CPUs
      |   ^^^^
hint: change it with [OverrideDefaults] and its like, or choose another name
)~");
}

TEST_F(ParametersTest, SecondNameThatEveryTypeHasIsTold) {
  EXPECT_EQ(printed(plain + "[SecondaryParameters]\n"
                            "1=CPUs\n"
                            "[CPUs]\n"
                            "Type=Integer\n"),
            R"~(sketch.tvx:7:3: error: every type has a parameter "CPUs", so this definition is not used
    7 | 1=CPUs
      |   ^^^^
hint: change it with [OverrideDefaults] and its like, or choose another name
)~");
}

TEST_F(ParametersTest, KeysInTheOrderOfTextsIsTold) {
  EXPECT_EQ(printed(plain + "[PrimaryParameters]\n"
                            "1=A\n"
                            "2=B\n"
                            "10=C\n"
                            "[A]\n"
                            "Type=Heading\n"
                            "[B]\n"
                            "Type=Heading\n"
                            "[C]\n"
                            "Type=Heading\n"),
            R"~(sketch.tvx:9:1: warning: the entry 10 comes before the entry 2: keys are sorted as texts
    9 | 10=C
      | ^^
hint: number them 01, 02, ... with as many digits each
)~");
}

TEST_F(ParametersTest, TypeThatIsNoneIsTold) {
  EXPECT_EQ(printed(depth + "Type=Interger\n"
                            "Minimum=1\n"),
            R"~(sketch.tvx:4:24: warning: a text with a blank or a quote in it becomes several arguments here
    4 | Command=$(ActualScene) $(Depth)
      |                        ^^^^^^^^
hint: write $(Depth.Enquote)
sketch.tvx:9:6: error: unknown parameter type "Interger"
    9 | Type=Interger
      |      ^^^^^^^^
hint: did you mean "Integer"?
)~");
}

TEST_F(ParametersTest, FlagThatIsNoneIsTold) {
  EXPECT_EQ(printed(plain + "[PrimaryParameters]\n"
                            "1=Depth\n"
                            "[Depth]\n"
                            "Type=Integer\n"
                            "Flags=OfJob, Visble\n"),
            R"~(sketch.tvx:10:14: error: unknown flag "Visble"
   10 | Flags=OfJob, Visble
      |              ^^^^^^
hint: did you mean "Visible"?
)~");
}

TEST_F(ParametersTest, MistypedKeyOfADefinitionIsTold) {
  EXPECT_EQ(printed(depth + "Type=Integer\n"
                            "Defalt=3\n"),
            R"~(sketch.tvx:10:1: error: unknown key "Defalt"
   10 | Defalt=3
      | ^^^^^^
hint: did you mean "Default"?
)~");
}

TEST_F(ParametersTest, KeyOfADefinitionThatMeansNothingIsTold) {
  EXPECT_EQ(printed(depth + "Type=Integer\n"
                            "Colour=red\n"),
            R"~(sketch.tvx:10:1: warning: unknown key "Colour"
   10 | Colour=red
      | ^^^^^^
hint: it is passed over; take it out
)~");
}

TEST_F(ParametersTest, KeyThatATypeHasNoUseForIsTold) {
  EXPECT_EQ(printed(depth + "Type=Integer\n"
                            "Choices=1,2\n"
                            "Filter=*\n"),
            R"~(sketch.tvx:10:1: warning: Choices has no use for a parameter of type Integer
   10 | Choices=1,2
      | ^^^^^^^
hint: it is passed over; take it out
sketch.tvx:11:1: warning: Filter has no use for a parameter of type Integer
   11 | Filter=*
      | ^^^^^^
hint: it is passed over; take it out
)~");
}

TEST_F(ParametersTest, RequiredThatIsNoBooleanIsTold) {
  EXPECT_EQ(printed(depth + "Type=Integer\n"
                            "Required=perhaps\n"),
            R"~(sketch.tvx:10:10: error: "perhaps" is neither yes nor no
   10 | Required=perhaps
      |          ^^^^^^^
)~");
}

TEST_F(ParametersTest, LimitThatIsNoNumberIsTold) {
  EXPECT_EQ(printed(depth + "Type=Integer\n"
                            "Maximum=many\n"),
            R"~(sketch.tvx:10:9: error: Maximum needs a number, not "many"
   10 | Maximum=many
      |         ^^^^
)~");
}

TEST_F(ParametersTest, LimitsThatCrossIsTold) {
  EXPECT_EQ(printed(depth + "Type=Integer\n"
                            "Minimum=9\n"
                            "Maximum=3\n"),
            R"~(sketch.tvx:11:9: error: the maximum of 3 is below the minimum of 9
   11 | Maximum=3
      |         ^
)~");
}

TEST_F(ParametersTest, ChoiceWithoutChoicesIsTold) {
  EXPECT_EQ(printed(depth + "Type=Choice\n"),
            R"~(sketch.tvx:8:1: error: a choice needs Choices, as in Choices=low,medium,high
    8 | [Depth]
      | ^^^^^^^
)~");
}

TEST_F(ParametersTest, ChoicesThatAreEmptyOrTwiceIsTold) {
  EXPECT_EQ(printed(depth + "Type=Choice\n"
                            "Choices=low,,high,LOW\n"),
            R"~(sketch.tvx:10:13: warning: there is an empty choice in this list
   10 | Choices=low,,high,LOW
      |             ^
hint: leave out a comma
sketch.tvx:10:19: warning: the choice "LOW" stands here twice
   10 | Choices=low,,high,LOW
      |                   ^^^
hint: leave one of them out
)~");
}

TEST_F(ParametersTest, DefaultOutsideTheLimitsIsTold) {
  EXPECT_EQ(printed(depth + "Type=Integer\n"
                            "Maximum=3\n"
                            "Default=4\n"),
            R"~(sketch.tvx:11:9: error: this default is refused: 4 is above the maximum of 3
   11 | Default=4
      |         ^
)~");
}

TEST_F(ParametersTest, DefaultThatIsNoChoiceIsTold) {
  EXPECT_EQ(printed(depth + "Type=Choice\n"
                            "Choices=low,high\n"
                            "Default=hihg\n"),
            R"~(sketch.tvx:11:9: error: this default is refused: "hihg" is none of low, high
   11 | Default=hihg
      |         ^^^^
hint: did you mean "high"?
)~");
}

TEST_F(ParametersTest, DefaultsThatDoNotParseIsTold) {
  EXPECT_EQ(
      printed(std::string(head) + "Command=$(ActualScene) $(A) $(B) $(C) $(D) $(E)\n"
                                  "ImageStartText=saved:\n"
                                  "[PrimaryParameters]\n"
                                  "1=A\n"
                                  "2=B\n"
                                  "3=C\n"
                                  "4=D\n"
                                  "5=E\n"
                                  "[A]\n"
                                  "Type=Range\n"
                                  "Default=1-x\n"
                                  "[B]\n"
                                  "Type=Duration\n"
                                  "Default=soon\n"
                                  "[C]\n"
                                  "Type=Boolean\n"
                                  "Default=Ye\n"
                                  "[D]\n"
                                  "Type=Decimal\n"
                                  "Default=1,5\n"
                                  "[E]\n"
                                  "Type=Integer\n"
                                  "Default=1.5\n"),
      R"~(sketch.tvx:14:9: error: this default is refused: frame range:1:3: a number is missing after "-"
   14 | Default=1-x
      |         ^^^
sketch.tvx:17:9: error: this default is refused: "soon" is no duration
   17 | Default=soon
      |         ^^^^
hint: write seconds, or a number with s, m, h or d as in 90s or 2h
sketch.tvx:20:9: error: this default is refused: "Ye" is neither yes nor no
   20 | Default=Ye
      |         ^^
sketch.tvx:23:9: error: this default is refused: "1,5" is no number
   23 | Default=1,5
      |         ^^^
hint: write 1.5
sketch.tvx:26:9: error: this default is refused: "1.5" is no whole number
   26 | Default=1.5
      |         ^^^
)~");
}

TEST_F(ParametersTest, ParameterThatNoJobCanHaveIsTold) {
  EXPECT_EQ(
      printed(depth + "Type=Integer\n"
                      "Flags=Required, ReadOnly, AffectsCommand\n"),
      R"~(sketch.tvx:7:3: error: the parameter "Depth" is required and read-only, but has no default: no job is valid
    7 | 1=Depth
      |   ^^^^^
hint: give it a default, or take off one of the flags
)~");
}

TEST_F(ParametersTest, ParameterThatDoesNothingIsTold) {
  EXPECT_EQ(printed(plain + "[PrimaryParameters]\n"
                            "1=Depth\n"
                            "[Depth]\n"
                            "Type=Integer\n"),
            R"~(sketch.tvx:8:1: warning: no command line has $(Depth), so the parameter does nothing
    8 | [Depth]
      | ^^^^^^^
hint: use it in Command, or leave AffectsCommand out of its flags
)~");
}

TEST_F(ParametersTest, CommandWithoutACommandLineIsTold) {
  EXPECT_EQ(printed(plain + "[PrimaryCommands]\n"
                            "1=Open\n"
                            "[Open]\n"
                            "Label=Open\n"),
            R"~(sketch.tvx:8:1: error: command "Open" has no Command line to run
    8 | [Open]
      | ^^^^^^
)~");
}

TEST_F(ParametersTest, CommandThatIsMissingIsTold) {
  EXPECT_EQ(printed(plain + "[PrimaryCommands]\n"
                            "1=Open\n"),
            R"~(sketch.tvx:7:3: error: command "Open" is named but has no section [Open]
    7 | 1=Open
      |   ^^^^
hint: write the section, or take the name out of the list
)~");
}

} // namespace
} // namespace trovik
