#include "trovik/newtype/TypeDraft.h"

#include "host/foundation/IniFile.h"
#include "host/foundation/StringTokenizer.h"
#include "tests/trovik/TemporaryDirectory.h"
#include "trovik/text/UsageError.h"

#include <gtest/gtest.h>

namespace trovik {
namespace {

TypeAnswers answers(const std::string& scene, const std::string& frames, const std::string& output) {
  TypeAnswers result;
  result.name = "My Type";
  result.program = "draw";
  result.scene = scene;
  result.frames = frames;
  result.output = output;
  checkSceneArguments(scene);
  checkOutputArguments(output, framingOf(frames, scene), scene);
  return result;
}

IniFile fileOf(const TypeAnswers& given) {
  IniFile file;
  file.Parse(typeFileText(given, UID(true), "short"));
  EXPECT_TRUE(file.Oddities().empty());
  return file;
}

String commandOf(const TypeAnswers& given) {
  return fileOf(given).GetValue("Module", "Command", "none");
}

/// The expected files of a type, and of what the program is told.
String expectedOf(const std::string& frames, const std::string& output) {
  return fileOf(answers("SCENE", frames, output)).GetValue("OverrideDefaults", "ExpectedFiles", "none");
}

TEST(TypeDraft, FilesThatAllFramesWouldShareAreKnown) {
  const auto shared = [](const std::string& frames, const std::string& output) {
    return sharedFilesOf(answers("SCENE", frames, output));
  };
  const std::vector<String> one = {"$(OutputFolder)/out.png"};
  EXPECT_EQ(shared("-f FRAME", "-o FOLDER/out.png"), one);
  EXPECT_EQ(shared("-s FIRST -e LAST", "-o FOLDER/out.png"), one);
  EXPECT_EQ(shared("files", "-o FOLDER/out.png"), one);
  EXPECT_TRUE(shared("none", "-o FOLDER/out.png").empty());
  EXPECT_TRUE(shared("files", "-o FOLDER/NAME.png").empty());
  EXPECT_TRUE(shared("-f FRAME", "-o OUTPUT").empty());
  EXPECT_TRUE(shared("-f FRAME", "-o FOLDER/a_####.png").empty());
  EXPECT_TRUE(shared("-s FIRST -e LAST", "-o OUTPUT").empty()) << "one file of a whole work";
}

TEST(TypeDraft, WordsAreReplacedWhereNoLetterStandsBeside) {
  EXPECT_EQ(commandOf(answers("SCENE", "-r FIRST-LAST", "--o=FOLDER/NAME_%d.png NAMES")),
            "$(Scene.Enquote) -r $(SubRange.Start)-$(SubRange.End) "
            "--o=$(OutputFolder.Enquote)/$(Scene.Base.Enquote)_%d.png NAMES");
}

TEST(TypeDraft, QuotesAndReferencesOfArgumentsStayPlain) {
  EXPECT_EQ(commandOf(answers("-i 'SCENE x' $(Name) '' a=b ;#", "none", "none")),
            "-i $(Scene.Enquote)\" x\" \"\\$$(Name)\" \"\" a=b \";#\"");
}

TEST(TypeDraft, AProgramWithoutArgumentsHasNoCommand) {
  EXPECT_EQ(commandOf(answers("none", "none", "none")), "none");
}

TEST(TypeDraft, PatternsOfOutputBecomeExpectedFiles) {
  EXPECT_EQ(expectedOf("files", "-o OUTPUT"), "$(OutputFolder)/$(ActualScene.Base).png");
  EXPECT_EQ(expectedOf("-f FRAME", "-o OUTPUT"), "$(OutputFolder)/$(Scene.Base)_$(Frame.Pad(4)).png");
  EXPECT_EQ(expectedOf("-f FRAME", "-o FOLDER/NAME.FRAME.exr"), "$(OutputFolder)/$(Scene.Base).$(Frame).exr");
  EXPECT_EQ(expectedOf("none", "-o OUTPUT"), "$(OutputFolder)/$(Scene.Base).png");
  const std::string range = "FIRST LAST";
  EXPECT_EQ(expectedOf(range, "-o FOLDER/NAME_%04d.png"),
            "$(OutputFolder)/$(Scene.Base)_$(Frame.Pad(4)).png");
  EXPECT_EQ(expectedOf(range, "-o FOLDER/a.#####.exr"), "$(OutputFolder)/a.$(Frame.Pad(5)).exr");
  EXPECT_EQ(expectedOf(range, "-o FOLDER/%d%x%%04.png"), "$(OutputFolder)/$(Frame)%x%%04.png");
  EXPECT_EQ(expectedOf(range, "-o FOLDER/%d.png -d FOLDER/depth#.exr"),
            "$(OutputFolder)/$(Frame).png;$(OutputFolder)/depth$(Frame.Pad(1)).exr");
  EXPECT_EQ(expectedOf(range, "-o 'FOLDER/a;\"b$(x)_%d'"), R"($(OutputFolder)/a\;\"b$$(x)_$(Frame))");
}

TEST(TypeDraft, AFolderAloneExpectsNothingAndChecksNothing) {
  for (const char* output : {"--dir=FOLDER", "-o FOLDER/", "none"}) {
    const IniFile file = fileOf(answers("SCENE", "none", output));
    EXPECT_EQ(file.GetValue("OverrideDefaults", "ExpectedFiles", "none"), "none") << output;
    EXPECT_EQ(file.GetValue("OverrideDefaults", "FileCheck", "none"), "None") << output;
  }
}

TEST(TypeDraft, OptionsBehindAFileAndFoldersForSettingsAreNoFiles) {
  EXPECT_EQ(expectedOf("none", "--export OUTPUT,quality=90"), "$(OutputFolder)/$(Scene.Base).png");
  EXPECT_EQ(expectedOf("none", "-o FOLDER/NAME.exr:half=1,zip"), "$(OutputFolder)/$(Scene.Base).exr");
  EXPECT_EQ(expectedOf("none", "--profile FOLDER/.profile --cache FOLDER/cache -o OUTPUT"),
            "$(OutputFolder)/$(Scene.Base).png");
  EXPECT_EQ(expectedOf("none", "-o FOLDER/NAME"), "none");
}

TEST(TypeDraft, WordsInAScriptAreStringsOfItsLanguage) {
  EXPECT_EQ(commandOf(answers("-c 'load(\"SCENE\"); go()'", "none", "none")),
            R"~(-c "load("$(Scene.PythonString.Enquote)"); go()")~");
  EXPECT_EQ(commandOf(answers("-b '(load 1 \"SCENE\" \"x\")'", "none", "none")),
            R"~(-b "(load 1 "$(Scene.LispString.Enquote)" \"x\")")~");
  EXPECT_EQ(
      commandOf(answers("--set '{\"scene\": \"SCENE\", \"name\": \"NAME\"}'", "none", "none")),
      R"~(--set "{\"scene\": "$(Scene.JsonString.Enquote)", \"name\": "$(Scene.Base.JsonString.Enquote)"}")~");
  EXPECT_EQ(commandOf(answers("-c 'load(SCENE)'", "-f 'at(\"FRAME\")'", "none")),
            R"~(-c "load("$(Scene.PythonString.Enquote)")" -f "at(\""$(Frame)"\")")~");
  // No script, but a program that wants quotes of its own.
  EXPECT_EQ(commandOf(answers("'+I\"SCENE\"'", "none", "none")), R"~("+I\""$(Scene.Enquote)"\"")~");
}

TEST(TypeDraft, AFileInAScriptIsAParameterOfItsOwn) {
  const TypeAnswers given = answers("SCENE", "-f FRAME", "-c 'save(\"OUTPUT\", 90)'");
  EXPECT_EQ(commandOf(given),
            R"~($(Scene.Enquote) -f $(Frame) -c "save("$(OutputFile.PythonString.Enquote)", 90)")~");
  const IniFile file = fileOf(given);
  const String name = "$(OutputFolder)/$(Scene.Base)_$(Frame.Pad(4)).png";
  EXPECT_EQ(file.GetValue("SecondaryParameters", "1", ""), "OutputFile");
  EXPECT_EQ(file.GetValue("OutputFile", "Default", ""), name);
  EXPECT_EQ(file.GetValue("OverrideDefaults", "ExpectedFiles", ""), name);
}

TEST(TypeDraft, WhatOnlyAShellReadsIsRefused) {
  const auto refusal = [](const std::function<void()>& check) -> std::string {
    try {
      check();
    } catch (const UsageError& error) {
      return error.message;
    }
    return "taken";
  };
  const auto output = [&](const std::string& text) {
    return refusal([&] { checkOutputArguments(text, Framing::None, "SCENE"); });
  };
  EXPECT_EQ(output("-o OUTPUT > log.txt"), "no shell reads the arguments, so \">\" redirects nothing");
  EXPECT_EQ(output("-o OUTPUT 2>&1"), "no shell reads the arguments, so \"2>&1\" redirects nothing");
  EXPECT_EQ(output("-o OUTPUT | tee log"), "no shell reads the arguments, so \"|\" starts no second program");
  EXPECT_EQ(output("-o OUTPUT '>' log"), "taken");
  EXPECT_EQ(output("-x 'save(\"FOLDER/a.png\")'"),
            "FOLDER is only a part of a string here, and a quote in its value would end it");
  EXPECT_EQ(refusal([] { checkProgram("python3 render.py"); }),
            "\"python3 render.py\" is a program with its arguments");
  EXPECT_EQ(refusal([] { checkProgram("/bin/sh -c true"); }),
            "\"/bin/sh -c true\" is a program with its arguments");
  EXPECT_EQ(refusal([] { checkProgram("/no/such/folder of mine/draw"); }), "taken");
}

TEST(TypeDraft, OneFileForAllFramesIsOneWork) {
  const IniFile file = fileOf(answers("SCENE", "FIRST LAST", "OUTPUT"));
  EXPECT_EQ(file.GetValue("OverrideDefaults", "FileCheck", ""), "Work");
  EXPECT_EQ(file.GetValue("OverrideDefaults", "PacketSize", ""), "1000000");
  EXPECT_EQ(file.GetValue("OverrideFlags", "PacketSize", ""), "OfJob, ReadOnly, Advanced, Visible");
}

TEST(TypeDraft, TextsComeOutAsTheyWentIn) {
  TypeAnswers given = answers("SCENE", "none", "OUTPUT");
  given.imageText = R"(saved; "to" C:\ )";
  for (int i = 0; i < 12; ++i) {
    given.errors.push_back(";\"=[" + std::to_string(i));
  }
  given.success = {"# ok"};
  IniFile file = fileOf(given);
  EXPECT_EQ(StringTokenizer::Split(file.GetValue("Module", "ImageStartText", ""), ';'),
            std::vector<String>{R"(saved; "to" C:\)"});
  ASSERT_TRUE(file.SetSection("ErrorText"));
  String key;
  String value;
  for (int i = 0; i < 12; ++i) {
    ASSERT_TRUE(file.GetNextValue(key, value));
    EXPECT_EQ(value, ";\"=[" + std::to_string(i));
  }
  EXPECT_FALSE(file.GetNextValue(key, value));
  EXPECT_EQ(file.GetValue("SuccessText", "1", ""), "# ok");
}

TEST(TypeDraft, ShortNamesSuitFilesAndShells) {
  EXPECT_EQ(shortName("My  Type 2.5"), "my-type-2.5");
  EXPECT_EQ(shortName("-rf ../x; $(y)"), "rf-..-x-y");
  EXPECT_EQ(shortName("Étude"), "Étude");
  EXPECT_EQ(shortName(" ?! "), "");
}

} // namespace
} // namespace trovik
