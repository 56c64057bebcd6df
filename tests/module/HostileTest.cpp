#include "tests/module/ModuleTest.h"

#include <random>

namespace {

using Texts = std::vector<String>;

class HostileTest : public ModuleTest {
protected:
  /// Loads, describes and works with whatever a file gives.
  void Use(std::string_view content) {
    const Path file = Write("a.tvx", content);
    if (m_Module.LoadVirtualModuleData(file)) {
      RegisterTypes();
      const UID type = m_Module.IDs->front();
      const SmartHandle<Job> job = MakeJob(type);
      AsRender(job).ProcessLine("some line");
      AsRender(job).CheckResult(0);
      Path executable;
      AsRender(job).CreateCommandLine(executable);
      m_Module.GetCommandString(type, "Open");
      std::map<String, String> values{{"Scene", InDirectory("s_001.ma").Text()}};
      try {
        m_Module.AutoDetect(type, "Scene", values);
      } catch (Exception* exception) {
        delete exception;
      }
      ++m_Loaded;
    }
    UnregisterTypes();
    m_Module.OnModuleUnload();
    m_Log.clear();
  }

  int m_Loaded = 0;
};

TEST_F(HostileTest, NulBytesInATypeFileDoNoHarm) {
  std::string content = std::string("[Module]\nID=") + k_ID + "\nName=a";
  content += '\0';
  content += std::string("b\nCommand=-x") + '\0' + "\n[Success" + '\0' + "Text]\n1=x\n";
  Use(content);
  Use(std::string(1000, '\0'));
  Use(std::string("[Module]\n") + '\0' + "ID=" + k_ID + "\n");
  Use(std::string("[Module]\nID=") + k_ID + '\0' + "\n");
  EXPECT_GE(m_Loaded, 1);
}

TEST_F(HostileTest, FormatConversionsAreTextEverywhere) {
  const String hostile = "%n%s%999999999d";
  const UID type =
      LoadType("Name=" + hostile + "\nHelp=" + hostile + "\nShortcut=" + hostile + "\nCommand=" + hostile +
               "\nImageStartText=" + hostile + "\n[Open]\nCommand=" + hostile +
               "\n[SuccessText]\n1=" + hostile + "\n[AutoDetect]\nScene=A=" + hostile + "\n");
  EXPECT_EQ(JobFactory::s_JobFactory->GetTypeInfo(type, false)->Name, hostile);
  EXPECT_EQ(m_Module.GetCommandString(type, "Open"), hostile);
  const SmartHandle<Job> job = MakeJob(type);
  AsRender(job).GetLatestExecutable();
  EXPECT_EQ(m_Log,
            Texts{"debug: Virtual Module '" + hostile +
                  "' not looking for latest executable: no FindLatestExecutable section in the TVX file"});
  AsRender(job).ProcessLine(hostile + "/a.png");
  EXPECT_EQ(AsRender(job).Images().size(), 1U);
  Path executable;
  EXPECT_EQ(AsRender(job).CreateCommandLine(executable), hostile);
}

TEST_F(HostileTest, FileNamesWithConversionsAreLoggedAsTheyAre) {
  const Path file = Write("%n%s%999999999d.tvx", "[Module]\nName=x\n");
  EXPECT_FALSE(Load());
  EXPECT_EQ(m_Log, Texts{"warning: No ID found in configuration file for Module " + file.Text()});
}

TEST_F(HostileTest, TypeFileOfTwentyMegabytesIsLoaded) {
  std::string content = std::string("[Module]\nID=") + k_ID + "\n[SuccessText]\n";
  const std::string value(1000, 'x');
  for (int i = 0; content.size() < (std::size_t{20} << 20); ++i) {
    content += std::to_string(i) + "=" + value + "\n";
  }
  EXPECT_TRUE(m_Module.LoadVirtualModuleData(Write("big.tvx", content)));
  EXPECT_GT(m_Module.TvxMap->at(ID(k_ID)).SuccessText.size(), 20000U);
}

TEST_F(HostileTest, TypeFileBeyondTheLimitIsRefused) {
  std::string content = std::string("[Module]\nID=") + k_ID + "\n";
  content.resize(IniFile::k_SizeLimit + 1, ' ');
  const Path file = Write("big.tvx", content);
  EXPECT_FALSE(m_Module.LoadVirtualModuleData(file));
  EXPECT_EQ(m_Log, Texts{"warning: Failed to load virtual module file: " + file.Text()});
}

TEST_F(HostileTest, RandomTypeFilesDoNoHarm) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  Write("s_001.ma", "x");
  Write("s_002.ma", "x");
  const std::string good =
      std::string("[Module]\nID=") + k_ID +
      "\nName=Sketch\nShortcut=a, \"b, c\"\nCommand=-s $(ActualScene) $(Width.Pad(4))\n"
      "ImageStartText=saved;\"x;y\"\nImageEndText=;done\nImageNotEndText=no\nCheckForMultipleFiles=Yes\n"
      "SceneNumberLength=2\n[SuccessText]\n1=ok\n[ErrorText]\n1=bad\n[AutoDetect]\nScene=Out=$(Scene.Branch)/"
      "o, A=b\n"
      "[PrimaryParameters]\n1=Width\n[Width]\nType=Integer\nMinimum=1\nMaximum=9\nDefault=3\n"
      "[PrimaryCommands]\n1=Open\n[Open]\nCommand=view $(Scene)\n[FindLatestExecutable]\nLinuxRoots=/opt,/x\n"
      "[OverrideFlags]\nWidth=Required, Literal\n[OverrideDefaults]\nScene=\n[OverrideFilters]\nScene=*.x\n";
  for (int round = 0; round < 500; ++round) {
    std::string content = good;
    if (round % 10 == 0) {
      content.assign(random() % 400, '\0');
      for (char& byte : content) {
        byte = static_cast<char>(random());
      }
    }
    for (unsigned i = static_cast<unsigned>(random() % 8); i > 0 && !content.empty(); --i) {
      const std::size_t place = random() % content.size();
      switch (random() % 4) {
      case 0:
        content[place] = static_cast<char>(random());
        break;
      case 1:
        content.erase(place, random() % 20);
        break;
      case 2:
        content.insert(place, content.substr(random() % content.size(), random() % 40));
        break;
      default:
        content[place] = "[]=\"\\;,\n$()%"[random() % 12];
      }
    }
    Use(content);
  }
  EXPECT_GT(m_Loaded, 50);
}

} // namespace
