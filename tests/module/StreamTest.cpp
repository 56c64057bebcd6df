#include "tests/module/ModuleTest.h"

#include <fstream>
#include <random>

extern const char* const STREAM_DIRECTORY;

namespace {

/// A text file of bytes in hexadecimal, with "#" comments.
std::string ReadHex(const std::string& name) {
  std::ifstream in(std::string(STREAM_DIRECTORY) + "/" + name);
  EXPECT_TRUE(in) << name;
  std::string bytes;
  std::string line;
  while (std::getline(in, line)) {
    line.resize(std::min(line.size(), line.find('#')));
    for (std::size_t i = 0; i + 1 < line.size(); i += 3) {
      bytes += static_cast<char>(std::stoi(line.substr(i, 2), nullptr, 16));
    }
  }
  EXPECT_FALSE(bytes.empty()) << name;
  return bytes;
}

constexpr unsigned int k_HostVersion = 1;

class StreamTest : public ModuleTest {
protected:
  void SetUp() override {
    ModuleTest::SetUp();
    // A description without anything of the host's, so that the extra
    // parameters are known to the last one.
    auto info = std::make_unique<JobTypeInfo>();
    info->Name = "Sketch";
    AddParam(*info, ParameterInfo::k_Folder, "OutDir", "/default");
    AddParam(*info, ParameterInfo::k_File, "Texture", "");
    AddParam(*info, ParameterInfo::k_Text, "Plain", "");
    AddParam(*info, ParameterInfo::k_Integer, "Width", "320");
    RegisterPlain(ID(k_ID), std::move(info));
  }

  static void AddParam(JobTypeInfo& info, ParameterInfo::TYPE type, const char* name, const char* value) {
    ParameterInfo* param = info.NewParam(type);
    param->Name = name;
    param->Default = value;
  }

  /// A job of the type of the fixtures that holds something everywhere.
  SmartHandle<Job> MakeFilled() {
    SmartHandle<Job> job = MakeJob(ID(k_ID));
    for (const auto& [name, value] : k_Before) {
      EXPECT_TRUE(job->SetParameter(name, value)) << name;
    }
    return job;
  }

  static SmartHandle<Job> Unpack(SmartHandle<Job> job, std::string_view bytes) {
    InStream in(bytes);
    job->UnpackObject(in, k_HostVersion);
    EXPECT_TRUE(in.AtEnd());
    return job;
  }

  static std::string Pack(const SmartHandle<Job>& job) {
    OutStream out;
    job->PackObject(out);
    return out.Bytes();
  }

  /// Whether reading raises, and only that.
  static bool Refuses(const SmartHandle<Job>& job, std::string_view bytes) {
    try {
      InStream in(bytes);
      job->UnpackObject(in, k_HostVersion);
      return false;
    } catch (Exception* exception) {
      const std::unique_ptr<Exception> owned(exception);
      EXPECT_EQ(owned->Code(), k_ErrorStream);
      EXPECT_FALSE(owned->Message().empty());
      return true;
    }
  }

  void ExpectCommonFields(const SmartHandle<Job>& job) {
    EXPECT_EQ(job->Type(), ID(k_ID));
    EXPECT_EQ(ValueOf(job, "Name"), "Shot 7");
    EXPECT_EQ(ValueOf(job, "Scene"), "/s/shot_0001.ma");
    EXPECT_EQ(ValueOf(job, "CommandString"), "-s $(ActualScene)");
    EXPECT_EQ(ValueOf(job, "ImageStartText"), "saved");
    EXPECT_EQ(ValueOf(job, "ImageEndText"), "done");
    EXPECT_EQ(ValueOf(job, "OutDir"), "/r/out");
    EXPECT_EQ(ValueOf(job, "Width"), "640");
    EXPECT_EQ(ValueOf(job, "ImageNotEndText"), "skipped");
    // Not in the stream: the value from before stays.
    EXPECT_EQ(ValueOf(job, "Plain"), "plain before");
  }

  void ExpectSequenceFields(const SmartHandle<Job>& job) {
    EXPECT_EQ(ValueOf(job, "SuccessTexts"), "all done;fine");
    EXPECT_EQ(ValueOf(job, "SceneNameFormat"), "/s/shot_%04d.ma");
    EXPECT_EQ(ValueOf(job, "EnquoteActual"), "No");
    EXPECT_EQ(ValueOf(job, "HideSubrange"), "Yes");
  }

  void ExpectEarlierSequenceFields(const SmartHandle<Job>& job) {
    EXPECT_EQ(ValueOf(job, "SceneNameFormat"), "/before/%d");
    EXPECT_EQ(ValueOf(job, "EnquoteActual"), "Yes");
    EXPECT_EQ(ValueOf(job, "HideSubrange"), "No");
  }

  const std::vector<std::pair<String, String>> k_Before{
      {"CommandString", "before"},
      {"ImageStartText", "start before"},
      {"ImageEndText", "end before"},
      {"ImageNotEndText", "not"},
      {"SuccessTexts", "success before"},
      {"SceneNameFormat", "/before/%d"},
      {"EnquoteActual", "Yes"},
      {"HideSubrange", "No"},
      {"OutDir", "/before"},
      {"Plain", "plain before"},
      {"Width", "1"},
      {"Texture", ""},
  };
};

TEST_F(StreamTest, VersionZeroKeepsWhatItDoesNotHold) {
  const SmartHandle<Job> job = Unpack(MakeFilled(), ReadHex("version0.hex"));
  ExpectCommonFields(job);
  EXPECT_EQ(ValueOf(job, "SuccessTexts"), "success before");
  ExpectEarlierSequenceFields(job);
}

TEST_F(StreamTest, VersionOneAddsTheSuccessTexts) {
  const SmartHandle<Job> job = Unpack(MakeFilled(), ReadHex("version1.hex"));
  ExpectCommonFields(job);
  EXPECT_EQ(ValueOf(job, "SuccessTexts"), "all done;fine");
  ExpectEarlierSequenceFields(job);
}

TEST_F(StreamTest, VersionTwoHoldsThePatternAsAText) {
  const SmartHandle<Job> job = Unpack(MakeFilled(), ReadHex("version2.hex"));
  ExpectCommonFields(job);
  ExpectSequenceFields(job);
}

TEST_F(StreamTest, VersionThreeHoldsThePatternAsAPath) {
  const SmartHandle<Job> job = Unpack(MakeFilled(), ReadHex("version3.hex"));
  ExpectCommonFields(job);
  ExpectSequenceFields(job);
}

TEST_F(StreamTest, LaterVersionIsReadAsThree) {
  const SmartHandle<Job> job = Unpack(MakeFilled(), ReadHex("version7.hex"));
  ExpectCommonFields(job);
  ExpectSequenceFields(job);
}

TEST_F(StreamTest, EveryJobIsWrittenAsVersionThree) {
  // A factory's job holds "Plain" and "Texture" too; one that only unpacked
  // holds what the stream has.
  const SmartHandle<Job> job(m_Module.CreateJob(), m_Module.DeleteJob);
  for (const char* name : {"version2.hex", "version3.hex", "version7.hex"}) {
    Unpack(job, ReadHex(name));
    EXPECT_EQ(Pack(job), ReadHex("version3.hex")) << name;
  }
}

TEST_F(StreamTest, SetValuesAreWrittenByteForByte) {
  auto info = std::make_unique<JobTypeInfo>();
  AddParam(*info, ParameterInfo::k_Integer, "Width", "320");
  AddParam(*info, ParameterInfo::k_Folder, "OutDir", "");
  JobFactory::s_JobFactory->Unregister(ID(k_ID));
  ASSERT_TRUE(
      JobFactory::s_JobFactory->Register(ID(k_ID), std::move(info), m_Module.CreateJob, m_Module.DeleteJob));
  const SmartHandle<Job> job = MakeJob(ID(k_ID));
  const std::pair<const char*, const char*> values[] = {{"Name", "Shot 7"},
                                                        {"Scene", "/s/shot_0001.ma"},
                                                        {"CommandString", "-s $(ActualScene)"},
                                                        {"ImageStartText", "saved"},
                                                        {"ImageEndText", "done"},
                                                        {"OutDir", "/r/out"},
                                                        {"Width", "640"},
                                                        {"ImageNotEndText", "skipped"},
                                                        {"SuccessTexts", "all done;fine"},
                                                        {"SceneNameFormat", "/s/shot_%04d.ma"},
                                                        {"EnquoteActual", "No"},
                                                        {"HideSubrange", "Yes"}};
  for (const auto& [name, value] : values) {
    ASSERT_TRUE(job->SetParameter(name, value)) << name;
  }
  EXPECT_EQ(Pack(job), ReadHex("version3.hex"));
}

TEST_F(StreamTest, FreshJobHasNoOverrides) {
  const SmartHandle<Job> job(m_Module.CreateJob(), m_Module.DeleteJob);
  EXPECT_EQ(ValueOf(job, "EnquoteActual"), "");
  EXPECT_EQ(ValueOf(job, "HideSubrange"), "");
  const std::string bytes = Pack(job);
  EXPECT_EQ(bytes.substr(bytes.size() - 2), std::string(2, '\0'));
}

TEST_F(StreamTest, StreamCutAtAnyByteIsRefused) {
  for (const char* name : {"version0.hex", "version1.hex", "version2.hex", "version3.hex", "version7.hex"}) {
    const std::string bytes = ReadHex(name);
    for (std::size_t length = 0; length < bytes.size(); ++length) {
      const std::string cut = bytes.substr(0, length);
      EXPECT_TRUE(Refuses(MakeJob(ID(k_ID)), cut)) << name << " " << length;
    }
    EXPECT_FALSE(Refuses(MakeJob(ID(k_ID)), bytes)) << name;
  }
}

TEST_F(StreamTest, HostileLengthsAndCountsAreRefusedWithoutTheirMemory) {
  const std::string good = ReadHex("version3.hex");
  for (std::size_t i = 16; i + 4 <= good.size(); ++i) {
    std::string bad = good;
    bad.replace(i, 4, "\xFF\xFF\xFF\xFF");
    // Some places hold plain text, and reading those succeeds.
    Refuses(MakeJob(ID(k_ID)), bad);
  }
  // The number of extra parameters.
  const std::string head = good.substr(0, good.find("done") + 4);
  EXPECT_TRUE(Refuses(MakeJob(ID(k_ID)), head + "\xFF\xFF\xFF\xFF"));
  EXPECT_TRUE(Refuses(MakeJob(ID(k_ID)), head + std::string("\xFF\xFF\xFF\xFF") + std::string(4000, '\0')));
}

TEST_F(StreamTest, RandomBytesNeverDoHarm) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const std::string good = ReadHex("version3.hex");
  int refused = 0;
  for (int round = 0; round < 3000; ++round) {
    std::string bytes = good;
    for (unsigned i = 1 + static_cast<unsigned>(random() % 4); i > 0; --i) {
      bytes[random() % bytes.size()] = static_cast<char>(random() % (round % 2 == 0 ? 4 : 256));
    }
    refused += Refuses(MakeJob(ID(k_ID)), bytes) ? 1 : 0;
    m_Log.clear();
  }
  EXPECT_GT(refused, 100);
}

TEST_F(StreamTest, OverrideByteIsWrittenUnsignedAndReadSigned) {
  std::string bytes = ReadHex("version3.hex");
  for (int value = 0; value < 256; ++value) {
    bytes[bytes.size() - 2] = static_cast<char>(value);
    bytes[bytes.size() - 1] = static_cast<char>(255 - value);
    const SmartHandle<Job> job(m_Module.CreateJob(), m_Module.DeleteJob);
    Unpack(job, bytes);
    EXPECT_EQ(Pack(job), bytes) << value;
    const char* const texts[] = {"", "Yes", "No"};
    EXPECT_EQ(ValueOf(job, "EnquoteActual"), value < 3 ? texts[value] : "") << value;
    EXPECT_EQ(ValueOf(job, "HideSubrange"), value > 252 ? texts[255 - value] : "") << value;
  }
}

TEST_F(StreamTest, KeyOfAHeldExtraParameterStaysAsItWas) {
  auto info = std::make_unique<JobTypeInfo>();
  AddParam(*info, ParameterInfo::k_Text, "outdir", "/default");
  RegisterPlain(ID(k_OtherID), std::move(info));
  const SmartHandle<Job> job = MakeJob(ID(k_OtherID));
  Unpack(job, ReadHex("version3.hex"));
  EXPECT_EQ(ValueOf(job, "OutDir"), "/r/out");
  const std::string bytes = Pack(job);
  EXPECT_NE(bytes.find("outdir"), std::string::npos);
  EXPECT_EQ(bytes.find("OutDir"), std::string::npos);
  EXPECT_EQ(bytes.size(), ReadHex("version3.hex").size());
}

TEST_F(StreamTest, PathParametersAreTranslatedOnReading) {
  const SmartHandle<Job> packed = MakeJob(ID(k_ID));
  for (const char* name :
       {"OutDir", "Texture", "Plain", "CommandString", "ImageStartText", "SceneNameFormat"}) {
    packed->SetParameter(name, "/far/x");
  }
  Path::SetTranslations({{"/far", "/near"}});
  const std::string bytes = Pack(packed);
  EXPECT_EQ(bytes.find("/near"), std::string::npos);

  const SmartHandle<Job> job = Unpack(MakeJob(ID(k_ID)), bytes);
  EXPECT_EQ(ValueOf(job, "OutDir"), "/near/x");
  EXPECT_EQ(ValueOf(job, "Texture"), "/near/x");
  EXPECT_EQ(ValueOf(job, "Plain"), "/far/x");
  EXPECT_EQ(ValueOf(job, "CommandString"), "/far/x");
  EXPECT_EQ(ValueOf(job, "ImageStartText"), "/far/x");
  EXPECT_EQ(ValueOf(job, "SceneNameFormat"), "/far/x");
  // What is packed again is what is held now.
  EXPECT_NE(Pack(job), bytes);
}

TEST_F(StreamTest, ExtraParametersThatTheStreamLacksStay) {
  const SmartHandle<Job> job = MakeJob(ID(k_ID));
  job->SetParameter("Texture", "mine");
  Unpack(job, ReadHex("version0.hex"));
  EXPECT_EQ(ValueOf(job, "Texture"), "mine");
}

TEST_F(StreamTest, PackedJobComesBackWhole) {
  const SmartHandle<Job> job = MakeFilled();
  job->SetParameter("Plain", String("a\0b\n\xFF", 5));
  const SmartHandle<Job> copy = Unpack(MakeJob(ID(k_ID)), Pack(job));
  EXPECT_EQ(Pack(copy), Pack(job));
  EXPECT_EQ(ValueOf(copy, "Plain"), String("a\0b\n\xFF", 5));
}

} // namespace
