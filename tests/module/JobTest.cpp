#include "tests/module/ModuleTest.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

namespace {

using Texts = std::vector<String>;

class JobTest : public ModuleTest {
protected:
  static bool Answers(const SmartHandle<Job>& job, const String& name) {
    String value;
    return job->GetParameter(name, value);
  }
};

TEST_F(JobTest, JobAnswersEveryParameterOfItsType) {
  const UID type = LoadType("[PrimaryParameters]\n1=Width\n[Width]\nType=Integer\nDefault=640\n");
  const SmartHandle<Job> job = MakeJob(type);
  const JobTypeInfo* info = JobFactory::s_JobFactory->GetTypeInfo(type, false);
  ASSERT_NE(info, nullptr);
  for (std::size_t i = 0; i < info->ParamCount(); ++i) {
    EXPECT_TRUE(Answers(job, info->GetParam(i)->Name)) << info->GetParam(i)->Name;
  }
  EXPECT_EQ(ValueOf(job, "Width"), "640");
  EXPECT_EQ(ValueOf(job, "CheckForMultipleFiles"), "No");
  EXPECT_EQ(ValueOf(job, "SceneNumberLength"), "3");
  EXPECT_FALSE(Answers(job, "Height"));
}

TEST_F(JobTest, HeadingsBecomeExtraParametersWithTheirDefaults) {
  const UID type = LoadType("[OverrideDefaults]\nImage Filename Detection=text of a heading\n");
  const SmartHandle<Job> job = MakeJob(type);
  EXPECT_EQ(ValueOf(job, "Executable overrides"), "");
  EXPECT_EQ(ValueOf(job, "Mulitple Scene File Options"), "");
  EXPECT_EQ(ValueOf(job, "Image Filename Detection"), "text of a heading");
}

TEST_F(JobTest, SecondTypeKeepsTheExtraParametersOfTheFirst) {
  const UID first =
      LoadType("[PrimaryParameters]\n1=Width\n2=Mode\n[Width]\nDefault=640\n[Mode]\nDefault=fast\n");
  const UID second = LoadType(
      "[PrimaryParameters]\n1=Height\n2=mode\n[Height]\nDefault=480\n[mode]\nDefault=slow\n", k_OtherID);
  const SmartHandle<Job> job = MakeJob(first);
  job->SetType(second);
  EXPECT_EQ(job->Type(), second);
  EXPECT_EQ(ValueOf(job, "Width"), "640");
  EXPECT_EQ(ValueOf(job, "Height"), "480");
  EXPECT_EQ(ValueOf(job, "Mode"), "fast");
}

TEST_F(JobTest, TypeThatNobodyRegisteredGivesNoParameters) {
  const SmartHandle<Job> job(m_Module.CreateJob(), m_Module.DeleteJob);
  job->SetType(ID(k_OtherID));
  EXPECT_EQ(job->Type(), ID(k_OtherID));
  EXPECT_FALSE(Answers(job, "Executable overrides"));
}

TEST_F(JobTest, CommandOfTheFileStartsItsProgram) {
  const UID type = LoadType("[PrimaryParameters]\n1=Fifo\n[Fifo]\nType=File\n"
                            "[Send]\nCommand=cp $(Scene.Enquote) $(Fifo.Enquote)\n");
  const SmartHandle<Job> job = MakeJob(type);
  const Path scene = Write("scene $(x); y.txt", "hello from the program");
  const Path fifo = InDirectory("pipe");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(reader, 0);
  job->SetParameter("Scene", scene.Text());
  job->SetParameter("Fifo", fifo.Text());

  EXPECT_TRUE(job->ProcessCommand("send", nullptr));
  pollfd wait{reader, POLLIN, 0};
  ASSERT_EQ(poll(&wait, 1, 60000), 1);
  char text[64];
  const ssize_t got = read(reader, text, sizeof(text));
  close(reader);
  ASSERT_GT(got, 0);
  EXPECT_EQ(String(text, static_cast<std::size_t>(got)), "hello from the program");
}

TEST_F(JobTest, CommandOfTheHostNeverConsultsTheFile) {
  const UID type =
      LoadType("Name=Sketch\n[Interrupt]\nCommand=/nowhere/at/all\n[kill]\nCommand=/nowhere/at/all\n");
  const SmartHandle<Job> job = MakeJob(type);
  // Nobody moves the kept file away from the section that is current.
  IniFile& kept = *m_Module.TvxMap->at(type).Ini;
  ASSERT_TRUE(kept.SetSection("Module"));
  EXPECT_TRUE(job->ProcessCommand("Interrupt", nullptr));
  EXPECT_TRUE(job->ProcessCommand("KILL", nullptr));
  String name;
  EXPECT_TRUE(kept.GetValue("Name", name));
  EXPECT_EQ(name, "Sketch");
}

TEST_F(JobTest, CommandWithoutATemplateIsNotHandled) {
  const UID type = LoadType("[Open]\nLabel=Open\n[Empty]\nCommand=\n");
  const SmartHandle<Job> job = MakeJob(type);
  EXPECT_FALSE(job->ProcessCommand("Open", nullptr));
  EXPECT_FALSE(job->ProcessCommand("Empty", nullptr));
  EXPECT_FALSE(job->ProcessCommand("Nothing", nullptr));
  EXPECT_EQ(m_Log, Texts{});
}

TEST_F(JobTest, CommandWithAnUnknownReferenceRaises) {
  const UID type = LoadType("[Open]\nCommand=view $(Scenery)\n");
  const SmartHandle<Job> job = MakeJob(type);
  EXPECT_NE(RaisedText([&] { job->ProcessCommand("Open", nullptr); }).find("Scenery"), String::npos);
}

TEST_F(JobTest, CommandThatCannotStartRaises) {
  const UID type = LoadType("[Open]\nCommand=/nowhere/at/all\n");
  const SmartHandle<Job> job = MakeJob(type);
  EXPECT_NE(RaisedText([&] { job->ProcessCommand("Open", nullptr); }).find("/nowhere/at/all"), String::npos);
}

TEST_F(JobTest, CommandLineIsTheEnquotedProgramAndTheUnexpandedCommandString) {
  const SmartHandle<Job> job = MakeJob(LoadType("Name=x\n"));
  job->SetParameter("Executable", "/opt/r/bin/render");
  job->SetParameter("CommandString", "-s $(ActualScene) -o out");
  Path executable("before");
  EXPECT_EQ(AsRender(job).CreateCommandLine(executable),
            Path("/opt/r/bin/render").Enquote() + " -s $(ActualScene) -o out");
  EXPECT_EQ(executable.Text(), "/opt/r/bin/render");

  job->SetParameter("Executable", "/opt/my render/bin");
  EXPECT_EQ(AsRender(job).CreateCommandLine(executable), "\"/opt/my render/bin\" -s $(ActualScene) -o out");
  EXPECT_EQ(executable.Text(), "/opt/my render/bin");
}

TEST_F(JobTest, WithoutAProgramTheCommandLineIsTheCommandStringAlone) {
  const SmartHandle<Job> job = MakeJob(LoadType("Command=render $(Scene)\n"));
  Path executable("before");
  EXPECT_EQ(AsRender(job).CreateCommandLine(executable), "render $(Scene)");
  EXPECT_EQ(executable.Text(), "");
}

TEST_F(JobTest, WithoutACommandStringTheCommandLineIsTheProgramAndABlank) {
  const SmartHandle<Job> job = MakeJob(LoadType("Name=x\n[OverrideDefaults]\nExecutable=/bin/r\n"));
  Path executable;
  EXPECT_EQ(AsRender(job).CreateCommandLine(executable), "/bin/r ");
  EXPECT_EQ(executable.Text(), "/bin/r");
}

TEST_F(JobTest, OwnCommandStringReplacesOptionAndDefaultWholly) {
  const SmartHandle<Job> job = MakeJob(LoadType("Command=default $(Scene)\n"));
  Path executable;
  EXPECT_EQ(AsRender(job).CreateCommandLine(executable), "default $(Scene)");
  Application::the_Application->Options().SetValue(k_ID, "CommandString", "option");
  EXPECT_EQ(AsRender(job).CreateCommandLine(executable), "option");
  job->SetParameter("CommandString", "own");
  EXPECT_EQ(AsRender(job).CreateCommandLine(executable), "own");
}

class ExecutableSearchTest : public ModuleTest {
protected:
  struct Search {
    bool Found = false;
    Texts Roots;
    Texts Bases;
    String Exe;
  };

  Search SearchOf(const UID& type, const char* exeBefore = "before") {
    std::vector<Path> roots{"kept root"};
    std::vector<Path> bases{"kept base"};
    Path exe(exeBefore);
    Search search;
    search.Found = m_Module.GetLatestExeSearch(type, roots, bases, exe);
    search.Roots.assign(roots.begin() + 1, roots.end());
    search.Bases.assign(bases.begin() + 1, bases.end());
    search.Exe = exe;
    EXPECT_EQ(roots[0].Text(), "kept root");
    EXPECT_EQ(bases[0].Text(), "kept base");
    return search;
  }

  Path WriteProgram(const String& name) {
    Path program = Write(name, "#!/bin/sh\n");
    std::filesystem::permissions(program.c_str(), std::filesystem::perms::owner_all);
    return program;
  }

  static Path LatestOf(const SmartHandle<Job>& job) { return AsRender(job).GetLatestExecutable(); }
};

TEST_F(ExecutableSearchTest, SectionWithAProgramAloneGivesEmptyLists) {
  const Search search = SearchOf(LoadType("[FindLatestExecutable]\nLinuxExe= bin/render \n"));
  EXPECT_TRUE(search.Found);
  EXPECT_EQ(search.Roots, Texts{});
  EXPECT_EQ(search.Bases, Texts{});
  EXPECT_EQ(search.Exe, "bin/render");
}

TEST_F(ExecutableSearchTest, ListsAreSplitAtCommasAndTrimmed) {
  const Search search = SearchOf(LoadType(
      "[FindLatestExecutable]\nLinuxRoots=\" /opt\",/usr/local \t, \"/a,b\",,/c\nLinuxBases=render, r2\n"));
  EXPECT_TRUE(search.Found);
  EXPECT_EQ(search.Roots, (Texts{"/opt", "/usr/local", "/a,b", "", "/c"}));
  EXPECT_EQ(search.Bases, (Texts{"render", "r2"}));
}

TEST_F(ExecutableSearchTest, ProgramIsTakenAsItStands) {
  EXPECT_EQ(SearchOf(LoadType("[FindLatestExecutable]\nLinuxExe=\"a, b\"\n")).Exe, "\"a, b\"");
  EXPECT_EQ(SearchOf(LoadType("[FindLatestExecutable]\nLinuxExe=\n", k_OtherID)).Exe, "");
}

TEST_F(ExecutableSearchTest, MissingProgramIsTheTypesDefaultExecutable) {
  EXPECT_EQ(SearchOf(LoadType("[FindLatestExecutable]\nLinuxRoots=/opt\n"
                              "[OverrideDefaults]\nExecutable=/usr/bin/render\n"))
                .Exe,
            "/usr/bin/render");
}

TEST_F(ExecutableSearchTest, TypeWithoutAnExecutableParameterKeepsTheCallersProgram) {
  const Path file =
      Write("a.tvx", std::string("[Module]\nID=") + k_ID + "\n[FindLatestExecutable]\nLinuxRoots=/opt\n");
  ASSERT_TRUE(m_Module.LoadVirtualModuleData(file));
  RegisterPlain(ID(k_ID), std::make_unique<JobTypeInfo>());
  EXPECT_EQ(SearchOf(ID(k_ID)).Exe, "before");
  EXPECT_EQ(SearchOf(ID(k_ID), "").Exe, "");
}

TEST_F(ExecutableSearchTest, TypeWithoutTheSectionDescribesNoSearch) {
  const UID type = LoadType("Name=x\n");
  for (const UID& asked : {type, ID(k_OtherID)}) {
    const Search search = SearchOf(asked);
    EXPECT_FALSE(search.Found);
    EXPECT_EQ(search.Roots, Texts{});
    EXPECT_EQ(search.Bases, Texts{});
    EXPECT_EQ(search.Exe, "before");
  }
}

TEST_F(ExecutableSearchTest, NewestInstalledProgramIsFound) {
  WriteProgram("roots/render-1.9/bin/r");
  const Path newest = WriteProgram("more/render-1.10/bin/r");
  Write("roots/render-2.0/bin/r", "not executable");
  const UID type = LoadType("[FindLatestExecutable]\nLinuxRoots=" + InDirectory("roots").Text() + ", " +
                            InDirectory("more").Text() + "\nLinuxBases=render\nLinuxExe=bin/r\n");
  EXPECT_EQ(LatestOf(MakeJob(type)).Text(), newest.Text());
  EXPECT_EQ(m_Log, Texts{});
}

TEST_F(ExecutableSearchTest, SearchThatFindsNothingGivesNothing) {
  const UID type = LoadType("[FindLatestExecutable]\nLinuxRoots=" + InDirectory("none").Text() +
                            "\nLinuxBases=render\nLinuxExe=bin/r\n");
  EXPECT_EQ(LatestOf(MakeJob(type)).Text(), "");
}

TEST_F(ExecutableSearchTest, TypeWithoutAnExecutableParameterIsNotSearchedFor) {
  auto info = std::make_unique<JobTypeInfo>();
  info->Name = "Sketch %n%s";
  RegisterPlain(ID(k_ID), std::move(info));
  Application::the_Application->Options().SetValue(k_ID, "Executable", "/opt/mine");
  const SmartHandle<Job> job = MakeJob(ID(k_ID));
  m_Log.clear();
  EXPECT_EQ(LatestOf(job).Text(), "");
  EXPECT_EQ(m_Log,
            Texts{"debug: Virtual Module 'Sketch %n%s' not looking for latest executable: no Executable "
                  "parameter"});
}

TEST_F(ExecutableSearchTest, ExecutableInTheOptionsEndsTheSearch) {
  WriteProgram("roots/render-1.9/r");
  const UID type = LoadType("Name=Sketch\n[FindLatestExecutable]\nLinuxRoots=" + InDirectory("roots").Text() +
                            "\nLinuxBases=render\nLinuxExe=r\n");
  const SmartHandle<Job> job = MakeJob(type);
  Application::the_Application->Options().SetValue(k_ID, "Executable", "/opt/mine");
  // The section of the kept file stays where it was: nobody read the search.
  IniFile& kept = *m_Module.TvxMap->at(type).Ini;
  ASSERT_TRUE(kept.SetSection("Module"));
  m_Log.clear();
  EXPECT_EQ(LatestOf(job).Text(), "");
  EXPECT_EQ(m_Log,
            Texts{"debug: Virtual Module 'Sketch' not looking for latest executable: already have Executable "
                  "in options"});
  String name;
  EXPECT_TRUE(kept.GetValue("Name", name));
  EXPECT_EQ(name, "Sketch");
}

TEST_F(ExecutableSearchTest, TypeWithoutTheSectionIsNotSearchedFor) {
  const SmartHandle<Job> job = MakeJob(LoadType("Name=Sketch\n"));
  m_Log.clear();
  EXPECT_EQ(LatestOf(job).Text(), "");
  EXPECT_EQ(m_Log, Texts{"debug: Virtual Module 'Sketch' not looking for latest executable: no "
                         "FindLatestExecutable section in the TVX file"});
}

TEST_F(ExecutableSearchTest, TypeThatIsNotLoadedIsLikeOneWithoutTheSection) {
  auto info = std::make_unique<JobTypeInfo>();
  info->Name = "Plain";
  info->NewParam(ParameterInfo::k_File)->Name = "Executable";
  RegisterPlain(ID(k_ID), std::move(info));
  const SmartHandle<Job> job = MakeJob(ID(k_ID));
  m_Log.clear();
  EXPECT_EQ(LatestOf(job).Text(), "");
  EXPECT_EQ(m_Log, Texts{"debug: Virtual Module 'Plain' not looking for latest executable: no "
                         "FindLatestExecutable section in the TVX file"});
}

} // namespace
