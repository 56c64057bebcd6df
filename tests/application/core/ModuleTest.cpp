#include "tests/application/core/TestSupport.h"

#include <gtest/gtest.h>

extern const char* const CORE_TEST_MODULES;

namespace {

using Lines = std::vector<String>;

constexpr const char* k_CodeType = "c0de0000-0000-4000-8000-000000000001";

UID Id(const char* text) {
  UID id;
  id.FromString(text);
  return id;
}

String NameOf(const char* id) {
  const JobTypeInfo* info = JobFactory::s_JobFactory->GetTypeInfo(Id(id), false);
  return info == nullptr ? "unknown" : info->Name;
}

class ModuleLoading : public testing::Test {
protected:
  Path Install(const char* module, const std::string& directory) {
    const std::string file = Directory / (directory + "/" + module + ".so");
    std::filesystem::create_directories(std::filesystem::path(file).parent_path());
    std::filesystem::copy_file(std::string(CORE_TEST_MODULES) + "/" + module + "/" + module + ".so", file);
    return Path(file);
  }
  void TypeFile(const std::string& file, const char* id, const char* name) {
    WriteFile(Directory / file, std::string("[Module]\nID=") + id + "\nName=" + name + "\n");
  }
  Path In(const char* directory) const { return Path(Directory / directory); }

  TemporaryDirectory Directory;
  ModuleLoader Loader;
};

TEST_F(ModuleLoading, RegistersTheTypesOfALibraryAndUnloadsThem) {
  const Path file = Install("code", "a");
  const LogCapture log;
  EXPECT_EQ(Loader.Load({In("a"), In("missing")}), 1);
  EXPECT_EQ(Loader.Libraries(), std::vector<Path>{file});
  EXPECT_EQ(NameOf(k_CodeType), "Code");
  {
    const SmartHandle<Job> job = JobFactory::s_JobFactory->CreateJob(Id(k_CodeType));
    EXPECT_EQ(job->Type(), Id(k_CodeType));
  }
  std::map<String, String> parameters = {{"a", "b"}};
  Loader.AutoDetect(Id(k_CodeType), "a", parameters);
  EXPECT_EQ(parameters, (std::map<String, String>{{"a", "b"}}));
  std::vector<Path> roots;
  Path exe("kept");
  EXPECT_FALSE(Loader.LatestExecutableSearch(Id(k_CodeType), roots, roots, exe));
  EXPECT_EQ(exe.Text(), "kept");
  Loader.Unload();
  EXPECT_EQ(NameOf(k_CodeType), "unknown");
  EXPECT_TRUE(Loader.Libraries().empty());
  EXPECT_EQ(log.Lines(), (Lines{"code: load code.so", "code: delete job", "code: unload"}));
}

TEST_F(ModuleLoading, LoadsALibraryOnceAndTheFirstOfAName) {
  const Path first = Install("code", "a");
  Install("code", "b");
  const LogCapture log;
  EXPECT_EQ(Loader.Load({In("a"), In("b"), In("a")}), 1);
  EXPECT_EQ(Loader.Load({In("a")}), 0);
  EXPECT_EQ(Loader.Libraries(), std::vector<Path>{first});
  EXPECT_EQ(log.Lines(), (Lines{"code: load code.so"}));
}

TEST_F(ModuleLoading, HandsEveryDirectoryWithTypeFilesToALibraryThatReadsThem) {
  Install("typefiles", "installed");
  TypeFile("own/mine.tvx", "00000000-0000-4000-8000-000000000001", "Mine");
  TypeFile("own/better.tvx", "00000000-0000-4000-8000-000000000002", "Better");
  TypeFile("installed/shipped.tvx", "00000000-0000-4000-8000-000000000002", "Shipped");
  TypeFile("installed/twice.tvx", "00000000-0000-4000-8000-000000000003", "First");
  TypeFile("installed/twice2.tvx", "00000000-0000-4000-8000-000000000003", "Second");
  const LogCapture log;
  EXPECT_EQ(Loader.Load({In("own"), In("empty"), In("own/"), In("installed")}), 1);
  EXPECT_EQ(log.Lines(),
            (Lines{"typefiles: load " + Directory.Name() + "/own/typefiles.so",
                   "typefiles: load " + Directory.Name() + "/installed/typefiles.so",
                   "typefiles: refused shipped.tvx",
                   In("installed/shipped.tvx").Text() +
                       ":2:4: warning: the type \"Shipped\" is not used: the type \"Better\" of " +
                       In("own/better.tvx").Text() +
                       " has the same ID 00000000-0000-4000-8000-000000000002, and its folder "
                       "comes first; give one of them an ID of its own",
                   In("installed/twice.tvx").Text() +
                       ":2:4: warning: the type \"First\" is not used: the type \"Second\" of " +
                       In("installed/twice2.tvx").Text() +
                       " has the same ID 00000000-0000-4000-8000-000000000003, and the last "
                       "file of a folder counts; give one of them an ID of its own"}));
  EXPECT_EQ(NameOf("00000000-0000-4000-8000-000000000001"), "Mine");
  EXPECT_EQ(NameOf("00000000-0000-4000-8000-000000000002"), "Better");
  EXPECT_EQ(NameOf("00000000-0000-4000-8000-000000000003"), "Second");
  EXPECT_EQ(JobFactory::s_JobFactory->Types().size(), 3U);
}

TEST_F(ModuleLoading, ALibraryWithoutAnyTypeFileIsLoadedAndUnheard) {
  Install("typefiles", "a");
  const LogCapture log;
  EXPECT_EQ(Loader.Load({In("a")}), 1);
  Loader.Unload();
  EXPECT_EQ(log.Lines(), Lines{});
}

TEST_F(ModuleLoading, TriesOneTypeFileAndForgetsItAgain) {
  Install("code", "a");
  Install("typefiles", "a");
  const char* type = "00000000-0000-4000-8000-000000000001";
  TypeFile("a/x.tvx", type, "Sketch");
  TypeFile("a/taken.tvx", k_CodeType, "Taken");
  const LogCapture log;
  EXPECT_FALSE(Loader.ReadsTypeFiles());
  EXPECT_EQ(Loader.LoadWithoutTypeFiles({In("a")}), 2);
  EXPECT_TRUE(Loader.ReadsTypeFiles());
  EXPECT_EQ(NameOf(type), "unknown");
  EXPECT_EQ(NameOf(k_CodeType), "Code");
  for (int i = 0; i < 2; ++i) {
    String seen;
    EXPECT_TRUE(Loader.TryTypeFile(In("a/x.tvx"), [&](const UID& found) {
      std::vector<Path> roots;
      std::vector<Path> bases;
      Path exe;
      EXPECT_TRUE(Loader.LatestExecutableSearch(found, roots, bases, exe));
      seen += NameOf(type) + " " + bases.front().Text();
    }));
    EXPECT_EQ(seen, "Sketch Sketch");
    EXPECT_EQ(NameOf(type), "unknown");
  }
  EXPECT_TRUE(Loader.TryTypeFile(In("a/x.tvx"), {}));
  EXPECT_FALSE(Loader.TryTypeFile(In("a/taken.tvx"), [](const UID&) { ADD_FAILURE() << "looked at"; }));
  EXPECT_THROW(Loader.TryTypeFile(In("a/x.tvx"), [](const UID&) { throw std::runtime_error("x"); }),
               std::runtime_error);
  EXPECT_EQ(NameOf(type), "unknown");
  EXPECT_FALSE(ModuleLoader().TryTypeFile(In("a/x.tvx"), {}));
}

TEST_F(ModuleLoading, PassesDetectionAndSearchToTheOwnerOfTheType) {
  Install("code", "a");
  Install("typefiles", "a");
  TypeFile("a/x.tvx", "00000000-0000-4000-8000-000000000001", "Sketch");
  const LogCapture log;
  EXPECT_EQ(Loader.Load({In("a")}), 2);
  const UID type = Id("00000000-0000-4000-8000-000000000001");
  std::map<String, String> parameters;
  Loader.AutoDetect(type, "Scene", parameters);
  EXPECT_EQ(parameters["Seen"], "Sketch Scene");
  EXPECT_EQ(MessageOf([&] { Loader.AutoDetect(type, "Bad", parameters); }), "a bad change");
  Loader.AutoDetect(Id("00000000-0000-4000-8000-00000000000f"), "Bad", parameters);
  std::vector<Path> roots;
  std::vector<Path> bases;
  Path exe;
  EXPECT_TRUE(Loader.LatestExecutableSearch(type, roots, bases, exe));
  EXPECT_EQ(roots, std::vector<Path>{"/opt"});
  EXPECT_EQ(bases, std::vector<Path>{"Sketch"});
  EXPECT_EQ(exe.Text(), "bin/run");
  Loader.Unload();
  EXPECT_EQ(log.Lines(),
            (Lines{"code: load code.so", "typefiles: load " + Directory.Name() + "/a/typefiles.so",
                   "typefiles: unload", "code: unload"}));
}

TEST_F(ModuleLoading, WarnsAboutLibrariesThatAreNoModules) {
  const Path incomplete = Install("incomplete", "a");
  WriteFile(Directory / "a/text.so", "no library");
  const LogCapture log;
  EXPECT_EQ(Loader.Load({In("a")}), 0);
  ASSERT_EQ(log.Lines().size(), 2U);
  EXPECT_EQ(log.Lines()[0],
            incomplete.Text() + " is no module: it lacks the entry points OnModuleUnload, DeleteJob");
  const String text = Directory / "a/text.so";
  EXPECT_EQ(log.Lines()[1].rfind("cannot load the module " + text + ": " + text, 0), 0U) << log.Lines()[1];
}

TEST_F(ModuleLoading, LeavesAModuleThatRefusesToLoad) {
  const Path file = Install("refusing", "a");
  const LogCapture log;
  EXPECT_EQ(Loader.Load({In("a")}), 0);
  EXPECT_EQ(log.Lines(), (Lines{"the module " + file.Text() + " refused to load"}));
}

TEST_F(ModuleLoading, SkipsTypesThatCannotBeDescribedOrAreTaken) {
  Install("code", "a");
  const Path raising = Install("raising", "a");
  const LogCapture log;
  EXPECT_EQ(Loader.Load({In("a")}), 2);
  EXPECT_EQ(
      log.Lines(),
      (Lines{"code: load code.so",
             "the module " + raising.Text() +
                 " cannot describe its type bad00000-0000-4000-8000-000000000001: cannot tell",
             "the type \"Taken\" of " + raising.Text() +
                 " has the ID c0de0000-0000-4000-8000-000000000001 of the type \"Code\" and is not used"}));
  EXPECT_EQ(NameOf(k_CodeType), "Code");
}

class ThrowingModule : public ModuleLoading {
protected:
  ThrowingModule() {
    Install("code", "a");
    File = Install("throwing", "a").Text();
    TypeFile("a/x.tvx", "00000000-0000-4000-8000-000000000001", "Sketch");
  }

  // What is logged where the module throws in this place.
  Lines LogOf(const char* places) {
    const EnvironmentValue throws("TROVIK_TEST_THROWS", places);
    const LogCapture log;
    Loader.Load({In("a")});
    EXPECT_EQ(NameOf(k_CodeType), "Code") << places;
    Loader.Unload();
    Lines lines = log.Lines();
    std::erase_if(lines, [](const String& line) { return line.starts_with("code: "); });
    return lines;
  }

  String File;
};

TEST_F(ThrowingModule, CostsItsOwnTypesAndIsNamed) {
  const String named = "the module " + File;
  const String failed = "the module " + File + " failed to load: ";
  EXPECT_EQ(LogOf(""), Lines{});
  EXPECT_EQ(LogOf("OnModuleLoad"), (Lines{failed + "thrown in OnModuleLoad"}));
  EXPECT_EQ(LogOf("OnModuleLoad=7"), (Lines{failed + "An error without a text"}));
  EXPECT_EQ(LogOf("ListTypes"), (Lines{failed + "thrown in ListTypes"}));
  EXPECT_EQ(LogOf("GetTypeInfo"), (Lines{named + " cannot describe its type "
                                                 "c0de0000-0000-4000-8000-000000000002: thrown in "
                                                 "GetTypeInfo"}));
  EXPECT_EQ(LogOf("OnModuleUnload"), (Lines{named + " failed to unload: thrown in OnModuleUnload"}));
}

TEST_F(ThrowingModule, IsNamedWithItsTypeWhereThatIsUsed) {
  const LogCapture log;
  Loader.Load({In("a")});
  const UID type = Id("c0de0000-0000-4000-8000-000000000002");
  const EnvironmentValue throws("TROVIK_TEST_THROWS", "AutoDetect GetLatestExeSearch SetType DeleteJob");
  std::map<String, String> parameters;
  EXPECT_EQ(MessageOf([&] { Loader.AutoDetect(type, "Scene", parameters); }),
            "the module " + File + " failed with its type \"Throwing\": thrown in AutoDetect");
  std::vector<Path> paths;
  Path exe;
  EXPECT_EQ(MessageOf([&] { Loader.LatestExecutableSearch(type, paths, paths, exe); }),
            "the module " + File + " failed with its type \"Throwing\": thrown in GetLatestExeSearch");
  EXPECT_EQ(MessageOf([&] { JobFactory::s_JobFactory->CreateJob(type); }),
            "the module of the type \"Throwing\" made no job: thrown in SetType");
  EXPECT_EQ(log.Lines(),
            (Lines{"code: load code.so", "a module failed to delete a job: thrown in DeleteJob"}));
}

TEST_F(ThrowingModule, CostsTheTypeFileThatIsTried) {
  const LogCapture log;
  Loader.LoadWithoutTypeFiles({In("a")});
  const EnvironmentValue throws("TROVIK_TEST_THROWS", "LoadVirtualModuleData");
  EXPECT_FALSE(Loader.TryTypeFile(In("a/x.tvx"), {}));
  EXPECT_EQ(log.Lines().back(), "the module " + File + " failed to read " + In("a/x.tvx").Text() +
                                    ": thrown in LoadVirtualModuleData");
}

TEST_F(ModuleLoading, ATypeFileWarnsSoOftenAndNoMore) {
  Install("typefiles", "a");
  const auto listOf = [](int count, const char* section, const std::string& value) {
    std::string text = std::string("[") + section + "]\n";
    for (int i = 0; i < count; ++i) {
      text += std::to_string(i) + "=" + value + (value == "missing" ? std::to_string(i) : "") + "\n";
    }
    return text;
  };
  std::string unknownKeys = "[many]\n";
  for (int i = 0; i < 500; ++i) {
    unknownKeys += "key" + std::to_string(i) + "=1\n";
  }
  const auto write = [&](const char* file, const std::string& id, const std::string& rest) {
    WriteFile(Directory / file,
              "[Module]\nID=00000000-0000-4000-8000-00000000000" + id + "\nName=Sketch " + id + "\n" + rest);
  };
  write("a/1.tvx", "1", listOf(500, "PrimaryParameters", "missing"));
  write("a/2.tvx", "2", listOf(500, "PrimaryParameters", "many") + unknownKeys);
  write("a/3.tvx", "3", listOf(500, "OverrideFlags", "Nonsense"));
  write("a/4.tvx", "4", listOf(3, "PrimaryParameters", "missing"));
  const LogCapture log;
  Loader.Load({In("a")});
  Lines lines = log.Lines();
  const auto count = [&lines](const String& text) {
    return std::count_if(lines.begin(), lines.end(),
                         [&text](const String& line) { return line.find(text) != String::npos; });
  };
  EXPECT_EQ(count("/1.tvx:"), 20);
  EXPECT_EQ(count("/2.tvx:"), 20);
  EXPECT_EQ(count("unknown flag"), 20);
  EXPECT_EQ(count("/4.tvx:"), 3);
  EXPECT_EQ(count("the type \"Sketch 1\" has 480 further mistakes; \"trovik check\" tells them of its file"),
            1);
  EXPECT_EQ(count("the type \"Sketch 2\" has "), 1);
  EXPECT_EQ(count("further warnings about type files: 480"), 1);
  EXPECT_EQ(lines.size(), 1U + 20 + 20 + 20 + 3 + 3);
}

TEST_F(ModuleLoading, AJobOutlivesItsModule) {
  Install("code", "a");
  const LogCapture log;
  Loader.Load({In("a")});
  {
    const SmartHandle<Job> job = JobFactory::s_JobFactory->CreateJob(Id(k_CodeType));
    Loader.Unload();
    EXPECT_EQ(NameOf(k_CodeType), "unknown");
    EXPECT_EQ(job->Execute(), k_StatusFinished);
    EXPECT_EQ(job->GetParameterOrOption("Title", true, true), "");
  }
  EXPECT_EQ(log.Lines(), (Lines{"code: load code.so", "code: unload", "code: delete job"}));
}

TEST_F(ModuleLoading, ALaterCallBringsItsTypesToLibrariesThatAreThere) {
  Install("typefiles", "a");
  TypeFile("a/x.tvx", "00000000-0000-4000-8000-000000000001", "First");
  TypeFile("b/x.tvx", "00000000-0000-4000-8000-000000000002", "Second");
  const LogCapture log;
  EXPECT_EQ(Loader.Load({In("a")}), 1);
  EXPECT_EQ(Loader.Load({In("b"), In("a")}), 0);
  EXPECT_EQ(NameOf("00000000-0000-4000-8000-000000000001"), "First");
  EXPECT_EQ(NameOf("00000000-0000-4000-8000-000000000002"), "Second");
  EXPECT_EQ(log.Lines(), (Lines{"typefiles: load " + Directory.Name() + "/a/typefiles.so",
                                "typefiles: load " + Directory.Name() + "/b/typefiles.so"}));
}

TEST_F(ModuleLoading, ALibraryIsInOneLoaderAndThereOnce) {
  const Path file = Install("code", "a");
  std::filesystem::create_hard_link(file.c_str(), Directory / "a/other.so");
  const LogCapture log;
  EXPECT_EQ(Loader.Load({In("a")}), 1);
  {
    ModuleLoader second;
    EXPECT_EQ(second.Load({In("a")}), 0);
  }
  EXPECT_EQ(NameOf(k_CodeType), "Code");
  const auto refused = [this](const char* leaf) {
    return "the module " + In("a").Text() + "/" + leaf +
           " is loaded already, under another name or by another loader, and is left out";
  };
  EXPECT_EQ(log.Lines(),
            (Lines{"code: load code.so", refused("other.so"), refused("code.so"), refused("other.so")}));
}

} // namespace
