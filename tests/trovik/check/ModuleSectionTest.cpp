// The section [Module], and sections that nobody knows. Every message is compared whole.

#include "tests/trovik/check/CheckTest.h"

namespace trovik {
namespace {

using ModuleSectionTest = CheckTest;

TEST_F(ModuleSectionTest, NoModuleSectionIsTold) {
  EXPECT_EQ(printed("[ErrorText]\n"
                    "1=fatal:\n"),
            R"~(sketch.tvx:1:1: error: there is no section [Module], so the file is passed over
    1 | [ErrorText]
      | ^
hint: begin with the line [Module]
)~");
}

TEST_F(ModuleSectionTest, MistypedModuleSectionIsTold) {
  EXPECT_EQ(printed("[Modul]\n"
                    "ID=11111111-2222-3333-4444-555555555555\n"),
            R"~(sketch.tvx:1:1: error: there is no section [Module], so the file is passed over
    1 | [Modul]
      | ^^^^^^^
hint: did you mean "Module"?
)~");
}

TEST_F(ModuleSectionTest, NoIDIsTold) {
  EXPECT_EQ(printed("[Module]\n"
                    "Name=Sketch\n"
                    "Command=$(ActualScene)\n"
                    "ImageStartText=saved:\n"),
            R"~(sketch.tvx:1:1: error: the type has no ID, so it is not loaded
    1 | [Module]
      | ^^^^^^^^
hint: write one below, such as ID=FRESH
)~");
}

TEST_F(ModuleSectionTest, MalformedIDIsTold) {
  EXPECT_EQ(
      printed("[Module]\n"
              "ID=11111111-2222-3333-4444-55555555555\n"
              "Name=Sketch\n"
              "Command=$(ActualScene)\n"
              "ImageStartText=saved:\n"),
      R"~(sketch.tvx:2:4: error: "11111111-2222-3333-4444-55555555555" is no ID, so the type is not loaded
    2 | ID=11111111-2222-3333-4444-55555555555
      |    ^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^
hint: write 36 characters, such as ID=FRESH
)~");
}

TEST_F(ModuleSectionTest, NullIDIsTold) {
  EXPECT_EQ(printed("[Module]\n"
                    "ID=00000000-0000-0000-0000-000000000000\n"
                    "Name=Sketch\n"
                    "Command=$(ActualScene)\n"
                    "ImageStartText=saved:\n"),
            R"~(sketch.tvx:2:4: warning: this is the ID that stands for no type
    2 | ID=00000000-0000-0000-0000-000000000000
      |    ^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^
hint: write one of its own, such as ID=FRESH
)~");
}

TEST_F(ModuleSectionTest, NoNameIsTold) {
  EXPECT_EQ(printed("[Module]\n"
                    "ID=11111111-2222-3333-4444-555555555555\n"
                    "Command=$(ActualScene)\n"
                    "ImageStartText=saved:\n"),
            R"~(sketch.tvx:1:1: warning: the type has no name
    1 | [Module]
      | ^^^^^^^^
hint: write Name=... as users shall see it
)~");
}

TEST_F(ModuleSectionTest, MistypedKeyIsTold) {
  EXPECT_EQ(printed(plain + "ImageEndTxt=done\n"),
            R"~(sketch.tvx:6:1: error: unknown key "ImageEndTxt" in the section [Module]
    6 | ImageEndTxt=done
      | ^^^^^^^^^^^
hint: did you mean "ImageEndText"?
)~");
}

TEST_F(ModuleSectionTest, KeyThatMeansNothingIsTold) {
  EXPECT_EQ(printed(plain + "Author=Ada\n"),
            R"~(sketch.tvx:6:1: warning: unknown key "Author" in the section [Module]
    6 | Author=Ada
      | ^^^^^^
hint: it is passed over; take it out
)~");
}

TEST_F(ModuleSectionTest, BooleanThatIsNoneIsTold) {
  EXPECT_EQ(printed(plain + "DefaultEnabled=Ye\n"),
            R"~(sketch.tvx:6:16: error: "Ye" is neither yes nor no, and is read as no
    6 | DefaultEnabled=Ye
      |                ^^
hint: did you mean "Yes"?
)~");
}

TEST_F(ModuleSectionTest, EmptyBooleanIsTold) {
  EXPECT_EQ(printed(plain + "CheckForMultipleFiles=\n"),
            R"~(sketch.tvx:6:1: warning: CheckForMultipleFiles is empty, which means no
    6 | CheckForMultipleFiles=
      | ^^^^^^^^^^^^^^^^^^^^^
hint: write Yes or No
)~");
}

TEST_F(ModuleSectionTest, NumberThatIsNoneIsTold) {
  EXPECT_EQ(printed(plain + "SceneNumberLength=four\n"),
            R"~(sketch.tvx:6:19: error: SceneNumberLength needs a whole number, not "four"
    6 | SceneNumberLength=four
      |                   ^^^^
hint: write how many digits a scene's number has at least, such as 3
)~");
}

TEST_F(ModuleSectionTest, BooleanLikeNoOtherWordIsOnlyDoubtful) {
  EXPECT_EQ(printed(plain + "DefaultEnabled=perhaps\n"),
            R"~(sketch.tvx:6:16: warning: "perhaps" is neither yes nor no, and is read as no
    6 | DefaultEnabled=perhaps
      |                ^^^^^^^
hint: write Yes or No
)~");
}

TEST_F(ModuleSectionTest, EmptyNumberIsTold) {
  EXPECT_EQ(printed(plain + "SceneNumberLength=\n"),
            R"~(sketch.tvx:6:1: warning: SceneNumberLength is empty, which means 0
    6 | SceneNumberLength=
      | ^^^^^^^^^^^^^^^^^
hint: write how many digits a scene's number has at least, such as 3
)~");
}

TEST_F(ModuleSectionTest, NumberOfNoDigitsIsTold) {
  EXPECT_EQ(printed(plain + "SceneNumberLength=0\n"),
            R"~(sketch.tvx:6:19: warning: SceneNumberLength is 0, but a number has one digit at least
    6 | SceneNumberLength=0
      |                   ^
hint: write how many digits a scene's number has at least, such as 3
)~");
}

TEST_F(ModuleSectionTest, QuotesAroundANameIsTold) {
  EXPECT_EQ(printed("[Module]\n"
                    "ID=11111111-2222-3333-4444-555555555555\n"
                    "Name=\"Sketch\"\n"
                    "Command=$(ActualScene)\n"
                    "ImageStartText=saved:\n"),
            R"~(sketch.tvx:3:6: warning: the quotes are part of this name
    3 | Name="Sketch"
      |      ^^^^^^^^
hint: leave them out
)~");
}

TEST_F(ModuleSectionTest, EmptyAliasIsTold) {
  EXPECT_EQ(printed(plain + "Shortcut=sk,,sketcher\n"),
            R"~(sketch.tvx:6:13: warning: there is an empty name in this list
    6 | Shortcut=sk,,sketcher
      |             ^
hint: leave out a comma
)~");
}

TEST_F(ModuleSectionTest, AliasThatStandsTwiceIsTold) {
  EXPECT_EQ(printed(plain + "Shortcut=sk, SK\n"),
            R"~(sketch.tvx:6:14: warning: the name "SK" stands in this list twice
    6 | Shortcut=sk, SK
      |              ^^
hint: leave one of them out
)~");
}

TEST_F(ModuleSectionTest, MistypedSectionIsTold) {
  EXPECT_EQ(printed(plain + "[ErorText]\n"
                            "1=fatal:\n"),
            R"~(sketch.tvx:6:1: error: unknown section [ErorText]
    6 | [ErorText]
      | ^^^^^^^^^^
hint: did you mean "ErrorText"?
)~");
}

TEST_F(ModuleSectionTest, SectionThatNobodyNamesIsTold) {
  EXPECT_EQ(printed(plain + "[Notes]\n"
                            "Written=by Ada\n"),
            R"~(sketch.tvx:6:1: warning: unknown section [Notes]
    6 | [Notes]
      | ^^^^^^^
hint: it is passed over; take it out
)~");
}

TEST_F(ModuleSectionTest, DefinitionThatNobodyNamesIsTold) {
  EXPECT_EQ(printed(plain + "[Depth]\n"
                            "Type=Integer\n"),
            R"~(sketch.tvx:6:1: warning: no list names "Depth", so its definition is not used
    6 | [Depth]
      | ^^^^^^^
hint: name it in [PrimaryParameters], or take it out
)~");
}

TEST_F(ModuleSectionTest, CommandThatNobodyNamesIsTold) {
  EXPECT_EQ(printed(plain + "[Open]\n"
                            "Command=viewer\n"),
            R"~(sketch.tvx:6:1: warning: no list names "Open", so its definition is not used
    6 | [Open]
      | ^^^^^^
hint: name it in [PrimaryCommands], or take it out
)~");
}

TEST_F(ModuleSectionTest, MistypedKeyOfTheSearchIsTold) {
  EXPECT_EQ(printed(plain + "[FindLatestExecutable]\n"
                            "LinuxRoot=/opt\n"
                            "LinuxRoots=/opt\n"
                            "LinuxBases=sketch\n"
                            "LinuxExe=sketch\n"),
            R"~(sketch.tvx:7:1: error: unknown key "LinuxRoot" in the section [FindLatestExecutable]
    7 | LinuxRoot=/opt
      | ^^^^^^^^^
hint: did you mean "LinuxRoots"?
)~");
}

TEST_F(ModuleSectionTest, NoProgramAtAllIsTold) {
  EXPECT_EQ(printed(std::string(head) + "ImageStartText=saved:\n"),
            R"~(sketch.tvx:1:1: warning: the type says nowhere which program it runs
    1 | [Module]
      | ^^^^^^^^
hint: write Executable=... in [OverrideDefaults]
)~");
}

TEST_F(ModuleSectionTest, NothingAboutFilesIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=$(ActualScene)\n"),
            R"~(sketch.tvx:1:1: warning: the type says nothing of its files, so none is checked
    1 | [Module]
      | ^^^^^^^^
hint: write ImageStartText, or ExpectedFiles in [OverrideDefaults]; FileCheck=None there if it leaves none
)~");
}

} // namespace
} // namespace trovik
