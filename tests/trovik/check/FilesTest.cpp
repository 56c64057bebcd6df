// Expected files, and the search for the newest program. Every message is compared whole.

#include "tests/trovik/check/CheckTest.h"

namespace trovik {
namespace {

using FilesTest = CheckTest;

TEST_F(FilesTest, FilesWithoutAFrameIsTold) {
  EXPECT_EQ(printed(plain + "[OverrideDefaults]\n"
                            "PacketSize=10\n"
                            "ExpectedFiles=$(OutputFolder)/$(Scene.Base).png\n"
                            "OutputFolder=/tmp\n"),
            R"~(sketch.tvx:8:15: warning: no frame of a work of 10 has a file of its own by this
    8 | ExpectedFiles=$(OutputFolder)/$(Scene.Base).png
      |               ^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^
hint: write $(Frame.Pad(4)) into the name, or FileCheck=Work in [OverrideDefaults]
)~");
}

TEST_F(FilesTest, FileOfTheSceneThatIsOneForAllFramesIsTold) {
  EXPECT_EQ(printed(std::string(head) + "Command=$(Scene.Enquote) $(Frame)\n"
                                        "[OverrideDefaults]\n"
                                        "ExpectedFiles=$(Frame).png;$(ActualScene.Base).png\n"
                                        "EnquoteActual=No\n"),
            R"~(sketch.tvx:6:28: warning: all frames of a job have this one file
    6 | ExpectedFiles=$(Frame).png;$(ActualScene.Base).png
      |                            ^^^^^^^^^^^^^^^^^^^^^^^
hint: write $(Frame.Pad(4)) into the name, or FileCheck=Work in [OverrideDefaults]
)~");
}

TEST_F(FilesTest, FileWhoseFrameIsEmptyForASequenceIsTold) {
  const auto type = [](const std::string& files) {
    return std::string(head) +
           "Command=$(ActualScene)\nCheckForMultipleFiles=Yes\n[OverrideDefaults]\n"
           "ExpectedFiles=" +
           files + '\n';
  };
  EXPECT_EQ(printed(type("$(Scene.Base)$(ActualSubRange.Start.Prefix(_)).png")),
            R"~(sketch.tvx:7:15: warning: all frames of a sequence have this one file
    7 | ExpectedFiles=$(Scene.Base)$(ActualSubRange.Start.Prefix(_)).png
      |               ^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^
hint: write $(Frame.Pad(4)) into the name, or FileCheck=Work in [OverrideDefaults]
)~");
  EXPECT_EQ(printed(type("$(ActualScene.Base)$(ActualSubRange.Start.Prefix(_)).png")), "");
}

TEST_F(FilesTest, QuotesInTheNameOfAFileIsTold) {
  EXPECT_EQ(printed(plain + "[OverrideDefaults]\n"
                            "ExpectedFiles=$(OutputFolder.Enquote)/$(Frame).png\n"
                            "OutputFolder=$(Scene.Branch.Enquote)\n"),
            R"~(sketch.tvx:7:15: warning: an expected file is a name, and Enquote puts quotes into it
    7 | ExpectedFiles=$(OutputFolder.Enquote)/$(Frame).png
      |               ^^^^^^^^^^^^^^^^^^^^^^^
hint: leave out Enquote
sketch.tvx:8:14: warning: OutputFolder is a name, and Enquote puts quotes into it
    8 | OutputFolder=$(Scene.Branch.Enquote)
      |              ^^^^^^^^^^^^^^^^^^^^^^^
hint: leave out Enquote
)~");
}

TEST_F(FilesTest, FolderOfQuotedScenesInAFileIsTold) {
  EXPECT_EQ(
      printed(plain + "[OverrideDefaults]\n"
                      "ExpectedFiles=$(ActualScene.Branch)/$(Frame).png\n"),
      R"~(sketch.tvx:7:15: warning: $(ActualScene) is quoted where a name needs it, and commands get the quotes too
    7 | ExpectedFiles=$(ActualScene.Branch)/$(Frame).png
      |               ^^^^^^^^^^^^^^^^^^^^^
hint: write Dequote as the first command
)~");
}

TEST_F(FilesTest, SearchWithoutRootsIsTold) {
  EXPECT_EQ(printed(plain + "[FindLatestExecutable]\n"
                            "LinuxBases=sketch\n"
                            "LinuxExe=sketch\n"),
            R"~(sketch.tvx:6:1: error: without LinuxRoots nothing is searched
    6 | [FindLatestExecutable]
      | ^^^^^^^^^^^^^^^^^^^^^^
hint: write LinuxRoots=/opt, /usr/local
)~");
}

TEST_F(FilesTest, SearchOfTheRootsThemselvesOrAlongPathGivesNoWord) {
  for (const char* lists : {"LinuxRoots=/opt\n", "LinuxRoots=/opt\nLinuxBases=\n", "LinuxRoots=\n", ""}) {
    EXPECT_EQ(printed(plain + "[FindLatestExecutable]\n" + lists + "LinuxExe=sketch\n"), "") << lists;
  }
}

TEST_F(FilesTest, SearchWithEmptyEntriesIsTold) {
  EXPECT_EQ(printed(plain + "[FindLatestExecutable]\n"
                            "LinuxRoots=/opt,,/usr\n"
                            "LinuxBases=sketch\n"
                            "LinuxExe=sketch\n"),
            R"~(sketch.tvx:7:17: warning: there is an empty entry in this list
    7 | LinuxRoots=/opt,,/usr
      |                 ^
hint: leave out a comma
)~");
}

TEST_F(FilesTest, SearchWithoutAProgramIsTold) {
  EXPECT_EQ(printed(plain + "[FindLatestExecutable]\n"
                            "LinuxRoots=/opt\n"
                            "LinuxBases=sketch\n"),
            R"~(sketch.tvx:6:1: error: without LinuxExe nothing is found
    6 | [FindLatestExecutable]
      | ^^^^^^^^^^^^^^^^^^^^^^
hint: write LinuxExe=... as the program is called within its folder
)~");
}

TEST_F(FilesTest, SearchWithAnEmptyProgramIsTold) {
  EXPECT_EQ(printed(plain + "[FindLatestExecutable]\n"
                            "LinuxRoots=/opt\n"
                            "LinuxBases=sketch\n"
                            "LinuxExe=\n"),
            R"~(sketch.tvx:9:1: error: without LinuxExe nothing is found
    9 | LinuxExe=
      | ^^^^^^^^
hint: write LinuxExe=... as the program is called within its folder
)~");
}

TEST_F(FilesTest, RootThatIsNoWholePathIsTold) {
  EXPECT_EQ(printed(plain + "[FindLatestExecutable]\n"
                            "LinuxRoots=opt\n"
                            "LinuxBases=sketch\n"
                            "LinuxExe=sketch\n"),
            R"~(sketch.tvx:7:12: warning: "opt" counts from wherever trovik was started
    7 | LinuxRoots=opt
      |            ^^^
hint: write a path that begins with "/"
)~");
}

TEST_F(FilesTest, BaseWithAPathIsTold) {
  EXPECT_EQ(printed(plain + "[FindLatestExecutable]\n"
                            "LinuxRoots=/opt\n"
                            "LinuxBases=sketch/bin\n"
                            "LinuxExe=sketch\n"),
            R"~(sketch.tvx:8:12: error: a base is the name of a folder, so one with "/" is never found
    8 | LinuxBases=sketch/bin
      |            ^^^^^^^^^^
hint: write the folders above it in LinuxRoots, and those below in LinuxExe
)~");
}

TEST_F(FilesTest, ProgramWithAWholePathIsTold) {
  EXPECT_EQ(printed(plain + "[FindLatestExecutable]\n"
                            "LinuxRoots=/opt\n"
                            "LinuxBases=sketch\n"
                            "LinuxExe=/bin/sketch\n"),
            R"~(sketch.tvx:9:10: warning: this is a whole path, so no folder is searched for it
    9 | LinuxExe=/bin/sketch
      |          ^^^^^^^^^^^
hint: write it from the folder on that is to be found, such as bin/program
)~");
}

TEST_F(FilesTest, FileThatIsTooLargeForAllIsTold) {
  EXPECT_EQ(
      printed(std::string(head) + "Command=$(NoSuch)\n;" + std::string(std::size_t{1} << 20U, '-') + '\n'),
      R"~(sketch.tvx: warning: is very large, so that only its lines and its ID were checked
hint: leave out what is no part of a type
)~");
}

} // namespace
} // namespace trovik
