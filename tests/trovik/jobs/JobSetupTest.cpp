#include "trovik/jobs/JobSetup.h"

#include "host/application/Application.h"
#include "host/foundation/Exception.h"
#include "host/foundation/Log.h"
#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/TestJobs.h"

#include <gtest/gtest.h>

namespace trovik {
namespace {

class JobSetupTest : public testing::Test {
protected:
  JobSetupTest() : scene(directory.write("shot_0001.pov", "x")) {
    type.info().GetParam(String("Executable"))->Default = "/bin/true";
    type.info().GetParam(String("CommandString"))->Default = "$(Scene)";
  }

  /// A set-up whose detection runs `rule` when the scene changes.
  JobSetup setup(const std::function<void(std::map<String, String>&)>& rule = nullptr,
                 const String& trigger = "Scene") {
    return {type.id(),
            [this, rule, trigger](const UID&, const String& changed, std::map<String, String>& values) {
              detected.push_back(changed);
              if (rule && changed == trigger) {
                rule(values);
              }
            }};
  }

  static std::string value(const JobSetup& setup, const char* name) {
    String text;
    EXPECT_TRUE(setup.job()->GetParameter(name, text));
    return text;
  }

  static std::string message(JobSetup& setup, const std::string& name, const std::string& text) {
    return refusalOf([&] { setup.set(name, text, "--set " + name); }).message;
  }

  TemporaryDirectory directory;
  TestType type;
  std::string scene;
  std::vector<std::string> detected;
};

TEST_F(JobSetupTest, SceneIsDetectedAndItsFindingsAreSet) {
  JobSetup job = setup([](std::map<String, String>& values) {
    values["Name"] = "shot";
    values["Range"] = "1-5";
    values["SceneNameFormat"] = "";
  });
  job.setScene(scene);
  job.detect();
  EXPECT_EQ(value(job, "Scene"), scene);
  EXPECT_EQ(value(job, "Name"), "shot");
  EXPECT_EQ(value(job, "Range"), "1-5");
  ASSERT_EQ(job.filled().size(), 2U);
  EXPECT_EQ(job.filled()[0].name, "Name");
  EXPECT_EQ(job.filled()[1].name, "Range");
  EXPECT_EQ(detected, std::vector<std::string>{"Scene"});
}

TEST_F(JobSetupTest, DetectionSeesTheValuesThatAreInForce) {
  std::map<String, String> seen;
  JobSetup job = setup([&](std::map<String, String>& values) { seen = values; });
  job.set("PacketSize", "4", "--packet");
  job.setScene(scene);
  job.detect();
  EXPECT_EQ(seen.at("PacketSize"), "4");
  EXPECT_EQ(seen.at("Executable"), "/bin/true");
  EXPECT_EQ(seen.at("Scene"), scene);
}

TEST_F(JobSetupTest, WhatTheUserSetIsNeverReplacedByDetection) {
  JobSetup job = setup([](std::map<String, String>& values) {
    values["Range"] = "1-5";
    values["range"] = "1-6";
    values["PacketSize"] = "9";
  });
  job.set("range", "2-3", "--set range");
  job.setScene(scene);
  job.detect();
  EXPECT_EQ(value(job, "Range"), "2-3");
  EXPECT_EQ(value(job, "PacketSize"), "9");
}

TEST_F(JobSetupTest, EachSettingIsDetectedUnderItsOwnName) {
  JobSetup job =
      setup([](std::map<String, String>& values) { values["Name"] = values["PacketSize"]; }, "PacketSize");
  job.set("packetsize", "3", "--packet");
  job.detect();
  EXPECT_EQ(detected, std::vector<std::string>{"PacketSize"});
  EXPECT_EQ(value(job, "Name"), "3");
}

TEST_F(JobSetupTest, TheSceneIsDetectedFirstAndSeesAllThatWasGiven) {
  String seen;
  JobSetup job = setup([&](std::map<String, String>& values) {
    seen = values["PacketSize"];
    values["OutputFolder"] = "/by/scene";
    values["StartDirectory"] = "/by/scene";
  });
  job.set("StartDirectory", "/mine", "--set StartDirectory");
  job.setAll({"PacketSize=4"});
  job.setScene(scene);
  EXPECT_TRUE(detected.empty());
  job.detect();
  EXPECT_EQ(detected, (std::vector<std::string>{"Scene", "StartDirectory", "PacketSize"}));
  EXPECT_EQ(seen, "4");
  EXPECT_EQ(value(job, "OutputFolder"), "/by/scene");
  EXPECT_EQ(value(job, "StartDirectory"), "/mine");
}

TEST_F(JobSetupTest, RulesOfWhatWasGivenSpeakAfterThoseOfTheScene) {
  JobSetup job(type.id(), [](const UID&, const String& changed, std::map<String, String>& values) {
    if (changed == "Scene") {
      values["Name"] = "found";
    }
    values["StartDirectory"] = "/" + values["Name"];
  });
  job.set("Name", "mine", "--set Name");
  job.setScene(scene);
  job.detect();
  EXPECT_EQ(value(job, "Name"), "mine");
  EXPECT_EQ(value(job, "StartDirectory"), "/mine");
}

TEST_F(JobSetupTest, WhatTheJobSaysOfItsSequenceStandsInPlaceOfTheSettings) {
  type.add(ParameterInfo::k_Boolean, "CheckForMultipleFiles", "Yes");
  type.add(ParameterInfo::k_Integer, "SceneNumberLength", "3");
  IniFile& settings = Application::the_Application->Settings();
  const IniFile before = settings;
  const String section = UID(type.id()).GenString();
  settings.SetValue(section, "SceneNumberLength", "5");
  std::string asked;
  const auto read = [&](std::map<String, String>&) {
    asked += settings.GetValue(section, "CheckForMultipleFiles", "-") + " " +
             settings.GetValue(section, "SceneNumberLength", "-") + ";";
  };
  const auto detect = [&](const std::vector<std::string>& sets) {
    JobSetup job = setup(read);
    job.setScene(scene);
    job.setAll(sets);
    job.detect();
  };
  detect({});
  detect({"CheckForMultipleFiles=No"});
  detect({"CheckForMultipleFiles=Yes", "SceneNumberLength=1"});
  detect({"SceneNumberLength="});
  EXPECT_EQ(asked, "- 5;No 5;Yes 1;- 5;");
  EXPECT_EQ(settings.GetValue(section, "SceneNumberLength", "-"), "5");
  EXPECT_EQ(settings.GetValue(section, "CheckForMultipleFiles", "-"), "-");
  settings = before;
}

TEST_F(JobSetupTest, SettingsAreAsBeforeAlsoWhereDetectionFails) {
  type.add(ParameterInfo::k_Boolean, "CheckForMultipleFiles", "Yes");
  const String section = UID(type.id()).GenString();
  JobSetup job = setup([](std::map<String, String>&) { throw new Exception("T", "F", 1, "bad", 0, "", 1); });
  job.setScene(scene);
  job.set("CheckForMultipleFiles", "No", "--set CheckForMultipleFiles");
  EXPECT_EQ(refusalOf([&] { job.detect(); }).message, "detection for Scene failed: bad");
  EXPECT_EQ(Application::the_Application->Settings().GetValue(section, "CheckForMultipleFiles", "-"), "-");
}

TEST_F(JobSetupTest, EscapedReferencesOfRulesArePlainInPickedFiles) {
  type.add(ParameterInfo::k_File, "Texture");
  JobSetup job = setup([](std::map<String, String>& values) {
    values["Texture"] = "/t/$$(x).png";
    values["OutputFolder"] = "/o/$$(x)";
  });
  job.setScene(scene);
  job.detect();
  EXPECT_EQ(value(job, "Texture"), "/t/$(x).png");
  EXPECT_EQ(value(job, "OutputFolder"), "/o/$$(x)");
}

TEST_F(JobSetupTest, SequenceCutFromTheSceneIsTakenAsItIs) {
  const std::string odd = directory.write("a$$(b)/c$$(d)_0001.pov", "x");
  JobSetup job = setup([&](std::map<String, String>& values) {
    values["SceneNameFormat"] = directory.file("a$$(b)/c$$(d)_%04d.pov");
    values["Name"] = "c$$(d)";
  });
  job.setScene(odd);
  job.detect();
  EXPECT_EQ(value(job, "SceneNameFormat"), directory.file("a$$(b)/c$$(d)_%04d.pov"));
  EXPECT_EQ(value(job, "Name"), "c$$(d)");
}

TEST_F(JobSetupTest, PickedFilesAreShownToRulesSuchThatTheyStayPlain) {
  type.add(ParameterInfo::k_File, "Texture");
  String seen;
  JobSetup job = setup([&](std::map<String, String>& values) { seen = values["Texture"]; });
  job.set("Texture", "/t/$(x).png", "--set Texture");
  job.setScene(scene);
  job.detect();
  EXPECT_EQ(seen, "/t/$$(x).png");
  EXPECT_EQ(value(job, "Texture"), "/t/$(x).png");
}

TEST_F(JobSetupTest, RuleForAParameterThatDoesNotExistWarns) {
  std::vector<std::string> warnings;
  const LogSink before = SetLogSink([&](LogLevel, const String& text) { warnings.push_back(text); });
  JobSetup job = setup([](std::map<String, String>& values) { values["Foo"] = "x"; });
  job.setScene(scene);
  job.detect();
  SetLogSink(before);
  EXPECT_EQ(warnings,
            std::vector<std::string>{"the [AutoDetect] rules of \"Sketch\" for \"Scene\" fill \"Foo\", "
                                     "which the type does not have"});
}

TEST_F(JobSetupTest, SceneThatDoesNotExistIsRefused) {
  JobSetup job = setup();
  const Refusal refusal = refusalOf([&] { job.setScene(directory.file("none.pov")); });
  EXPECT_EQ(refusal.message, "there is no scene file \"" + directory.file("none.pov") + "\"");
  EXPECT_EQ(refusalOf([&] { job.setScene(""); }).message, "the name of the scene is empty");
}

TEST_F(JobSetupTest, SceneSetByNameIsTheSame) {
  JobSetup job = setup();
  EXPECT_EQ(message(job, "scene", directory.file("none.pov")),
            "there is no scene file \"" + directory.file("none.pov") + "\"");
  job.set("scene", scene, "--set scene");
  EXPECT_EQ(value(job, "Scene"), scene);
}

TEST_F(JobSetupTest, ValuesAreChecked) {
  JobSetup job = setup();
  EXPECT_EQ(message(job, "PacketSize", "abc"), "--set PacketSize: \"abc\" is no whole number, nor auto");
  EXPECT_EQ(value(job, "PacketSize"), "");
}

TEST_F(JobSetupTest, HeadingsAndReadOnlyParametersAreRefused) {
  type.add(ParameterInfo::k_Heading, "Extras");
  type.add(ParameterInfo::k_Text, "Fixed").Flags |= ParameterInfo::k_ReadOnly;
  JobSetup job = setup();
  EXPECT_EQ(message(job, "Extras", "1"), "--set Extras: \"Extras\" is a heading and has no value");
  EXPECT_EQ(message(job, "fixed", "1"), "--set fixed: this type does not let users set \"Fixed\"");
}

TEST_F(JobSetupTest, PickedFilesBecomeAbsoluteAndProgramsMayBeNamed) {
  type.add(ParameterInfo::k_File, "Texture");
  JobSetup job = setup();
  job.set("Texture", "t.png", "--set Texture");
  EXPECT_EQ(value(job, "Texture").front(), '/');
  job.set("Executable", "povray", "--set Executable");
  EXPECT_EQ(value(job, "Executable"), "povray");
  job.set("Executable", "./povray", "--set Executable");
  EXPECT_EQ(value(job, "Executable").front(), '/');
}

TEST_F(JobSetupTest, OutputFolderIsNotReadForReferences) {
  JobSetup job = setup();
  job.setOutputFolder("/o/$(x)");
  EXPECT_EQ(value(job, "OutputFolder"), "/o/$$(x)");
  EXPECT_EQ(refusalOf([&] { job.setOutputFolder(scene); }).message, "--out: \"" + scene + "\" is no folder");
}

TEST_F(JobSetupTest, TypeThatNeedsASceneRefusesToDoWithout) {
  const JobSetup job = setup();
  EXPECT_EQ(refusalOf([&] { job.check(); }).message, "\"Sketch\" needs a scene file");
}

TEST_F(JobSetupTest, CommandsThatCanDoWithoutASceneMay) {
  for (const char* command :
       {"-v", "$$(Scene)", "$(Scene.Prefix(-i ))", "$(scene.Leaf.Default(none))", "$(Scenery)"}) {
    type.info().GetParam(String("CommandString"))->Default = command;
    EXPECT_EQ(refusalOf([&] { setup().check(); }).message, "") << command;
  }
  for (const char* command :
       {"$(scene)", "$$(x) $(ActualScene.Leaf)", "$(Scene.Enquote) $(Name.Prefix(x))"}) {
    type.info().GetParam(String("CommandString"))->Default = command;
    EXPECT_EQ(refusalOf([&] { setup().check(); }).message, "\"Sketch\" needs a scene file") << command;
  }
}

TEST_F(JobSetupTest, SceneWhoseNameTheProgramRefusesIsRefused) {
  type.info().GetParam(String("RefusedInSceneName"))->Default = "NonASCII \"";
  const auto refusal = [this](const std::string& name) {
    JobSetup job = setup();
    job.setScene(directory.write(name, "x"));
    return refusalOf([&] { job.check(); });
  };
  EXPECT_EQ(refusal("my r\xC3\xABnder \"farm\"/a b.pov").message, "");
  EXPECT_EQ(refusal("Flu\xC3\x9F.pov").message, "\"Sketch\" does not take the scene file \"" +
                                                    directory.file("Flu\xC3\x9F.pov") +
                                                    "\": its name holds \"\xC3\x9F\", a letter beyond ASCII");
  EXPECT_EQ(refusal("Flu\xC3\x9F.pov").hint, "rename the file without it");
  EXPECT_EQ(refusal("a\"b.pov").message, "\"Sketch\" does not take the scene file \"" +
                                             directory.file("a\"b.pov") +
                                             "\": its name holds a quotation mark");
  // What steers a terminal is shown, not obeyed.
  const std::string steering = {'\xE2', '\x80', '\xAE'}; // from right to left from here on
  EXPECT_EQ(refusal("a" + steering + ".pov").message.find(steering), std::string::npos);
  type.info().GetParam(String("RefusedInSceneName"))->Default = "Umlauts";
  EXPECT_EQ(refusal("plain.pov").message.substr(0, 21), "RefusedInSceneName:1:");
}

class SequenceTest : public JobSetupTest {
protected:
  std::string check(const std::string& range) {
    JobSetup job = setup([this](std::map<String, String>& values) {
      values["SceneNameFormat"] = directory.file("shot_%04d.pov");
    });
    job.setScene(scene);
    if (!range.empty()) {
      job.set("Range", range, "--range");
    }
    job.detect();
    return refusalOf([&] { job.check(); }).message;
  }
};

TEST_F(SequenceTest, FramesWithSceneFilesAreGood) {
  directory.write("shot_0002.pov", "x");
  EXPECT_EQ(check("1-2"), "");
}

TEST_F(SequenceTest, NegativeFramesAreRefused) {
  EXPECT_EQ(check("-2-1"),
            "a sequence of scene files cannot have negative frames such as -2: the range text of a "
            "work has no place for their sign");
}

TEST_F(SequenceTest, FramesWithoutASceneFileAreNamedAsRanges) {
  directory.write("shot_0004.pov", "x");
  EXPECT_EQ(check("1-7"), "5 frames of the range have no scene file: 2-3,5-7 (the first would be \"" +
                              directory.file("shot_0002.pov") + "\")");
  EXPECT_EQ(check("2"), "1 frame of the range has no scene file: 2 (the first would be \"" +
                            directory.file("shot_0002.pov") + "\")");
}

TEST_F(SequenceTest, SceneFilesWhoseNamesTheProgramRefusesAreRefused) {
  directory.write("shot_0002.pov", "x");
  type.info().GetParam(String("RefusedInSceneName"))->Default = "NonASCII \"";
  EXPECT_EQ(check("1-2"), "");
  type.info().GetParam(String("RefusedInSceneName"))->Default = "_";
  EXPECT_EQ(check("2-9"), "\"Sketch\" does not take the scene file \"" + directory.file("shot_0002.pov") +
                              "\": its name holds \"_\"");
}

TEST_F(SequenceTest, SequenceWithoutARangeIsRefused) {
  EXPECT_EQ(check(""), "the scene is a sequence of files, but there is no frame range");
}

TEST_F(SequenceTest, SequenceWithoutThePickedSceneIsRefused) {
  const std::string odd = directory.write("50%%_0001.pov", "x");
  directory.write("50%_0001.pov", "x");
  directory.write("50%_0002.pov", "x");
  JobSetup job = setup([this](std::map<String, String>& values) {
    values["SceneNameFormat"] = directory.file("50%%_%04d.pov");
    values["Range"] = "1-2";
  });
  job.setScene(odd);
  job.detect();
  EXPECT_EQ(refusalOf([&] { job.check(); }).message, "the sequence that was found, \"" +
                                                         directory.file("50%%_%04d.pov") +
                                                         "\", does not hold the scene \"50%%_0001.pov\"");
}

class AloneTest : public JobSetupTest {
protected:
  AloneTest() {
    type.add(ParameterInfo::k_Boolean, "CheckForMultipleFiles", "Yes");
    type.add(ParameterInfo::k_Integer, "SceneNumberLength", "3");
  }
  Refusal check(const std::string& name, const std::string& range,
                const std::vector<std::string>& sets = {}) {
    JobSetup job = setup();
    job.setScene(directory.write(name, "x"));
    if (!range.empty()) {
      job.set("Range", range, "--range");
    }
    job.setAll(sets);
    job.detect();
    return refusalOf([&] { job.check(); });
  }
};

TEST_F(AloneTest, SceneThatMayBeOneOfManyIsNotRenderedForSeveralFrames) {
  directory.write("few_1.pov", "x");
  directory.write("few_3.pov", "x");
  const Refusal refused = check("few_5.pov", "1-5");
  EXPECT_EQ(refused.message,
            "no sequence was found for \"few_5.pov\", though such files lie beside it: it has "
            "no neighbour: there is neither \"few_4.pov\" nor \"few_6.pov\"");
  EXPECT_EQ(refused.hint,
            "--set \"SceneNameFormat=" + directory.file("few_%01d.pov") +
                "\" --range 1,3,5 takes all that are there; --set CheckForMultipleFiles=No renders "
                "\"few_5.pov\" alone for all frames");
  EXPECT_EQ(check("few_5.pov", "4").message, refused.message);
}

TEST_F(AloneTest, SceneAloneIsRenderedWhereNothingElseCanBeMeant) {
  EXPECT_EQ(check("few_5.pov", "1-5").message, "");
  directory.write("few_3.pov", "x");
  EXPECT_EQ(check("few_5.pov", "").message, "");
  EXPECT_EQ(check("few_5.pov", "5").message, "");
  EXPECT_EQ(check("few_5.pov", "1-5", {"CheckForMultipleFiles=No"}).message, "");
  EXPECT_EQ(check("other.pov", "1-5").message, "");
}

TEST(SplitAssignment, SplitsAtTheFirstEqualsSign) {
  EXPECT_EQ(splitAssignment("A=b=c"), (std::pair<std::string, std::string>("A", "b=c")));
  EXPECT_EQ(splitAssignment("A="), (std::pair<std::string, std::string>("A", "")));
  EXPECT_EQ(refusalOf([] { splitAssignment("Width"); }).message, "--set takes NAME=VALUE, not \"Width\"");
  EXPECT_EQ(refusalOf([] { splitAssignment("=1"); }).message, "--set takes NAME=VALUE, not \"=1\"");
}

} // namespace
} // namespace trovik
