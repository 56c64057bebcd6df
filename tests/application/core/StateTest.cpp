#include "tests/application/core/TestSupport.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

namespace {

class PlainObject : public TrovikObject {};

rc::Gen<String> HardTexts() {
  return rc::gen::map(rc::gen::container<std::vector<std::string>>(rc::gen::element<std::string>(
                          "a", "B", " ", "\t", "\n", "\r", "\\", "n", "x0a", "e", "=", "[", "]", ";", "#",
                          "\"", std::string(1, '\0'), "\xEF\xBB\xBF", "\xC3\xA0", "\xFF", "$(")),
                      [](const std::vector<std::string>& pieces) {
                        String text;
                        for (const std::string& piece : pieces) {
                          text += piece;
                        }
                        return text;
                      });
}

std::string Packed(const TrovikObject& object) {
  OutStream out;
  object.Send(out);
  return out.Bytes();
}

void FillStateType(JobTypeInfo& info) {
  AddParam(info, ParameterInfo::k_Heading, "Group");
  AddParam(info, ParameterInfo::k_Text, "OwnText");
  AddParam(info, ParameterInfo::k_Text, "Title", "untitled");
  AddParam(info, ParameterInfo::k_File, "Texture");
}

TEST(State, GetGivesTheValueInAnyCaseAndRaisesForAnAbsentOneUnlessQuiet) {
  PlainObject object;
  object.Set("Title", "one");
  object.Set("TITLE", "two");
  EXPECT_EQ(object.Get("title", false), "two");
  EXPECT_EQ(object.Get("other", true), "");
  EXPECT_EQ(MessageOf([&object] { object.Get("other", false); }), "the object has no value \"other\"");
  object.Set("empty", "");
  EXPECT_EQ(object.Get("Empty", false), "");
}

TEST(State, SendWritesVersionCountAndPairsInOrderOfNames) {
  PlainObject object;
  object.Set("b", "2");
  object.Set("A", "");
  const std::string bytes("\x01\0\0\0"
                          "\x02\0\0\0"
                          "\x01\0\0\0"
                          "A"
                          "\0\0\0\0"
                          "\x01\0\0\0"
                          "b"
                          "\x01\0\0\0"
                          "2",
                          27);
  EXPECT_EQ(Packed(object), bytes);
  PlainObject copy;
  copy.Set("stale", "x");
  InStream in(bytes);
  copy.Read(in);
  EXPECT_TRUE(in.AtEnd());
  EXPECT_EQ(Packed(copy), bytes);
}

TEST(State, ReadRefusesAnotherVersion) {
  PlainObject object;
  const std::string bytes("\x07\0\0\0\0\0\0\0", 8);
  InStream in(bytes);
  EXPECT_EQ(MessageOf([&] { object.Read(in); }), "the stream has version 7; this host reads version 1");
}

TEST(State, MergeTakesOverOnlyWhatIsNotEmpty) {
  PlainObject object;
  object.Set("kept", "mine");
  object.Set("both", "mine");
  PlainObject other;
  other.Set("kept", "");
  other.Set("both", "yours");
  other.Set("new", "yours");
  object.Merge(other);
  EXPECT_EQ(object.Get("kept", true), "mine");
  EXPECT_EQ(object.Get("both", true), "yours");
  EXPECT_EQ(object.Get("new", true), "yours");
}

TEST(State, CloneIsAWholeCopyAndRefusesAnotherClass) {
  PlainObject object;
  object.Set("gone", "x");
  PlainObject other;
  other.Set("name", "value");
  object.Clone(other);
  EXPECT_EQ(Packed(object), Packed(other));
  object.Clone(object);
  EXPECT_EQ(Packed(object), Packed(other));
  const PlainJob job;
  EXPECT_EQ(MessageOf([&] { object.Clone(job); }),
            "an object can only be made a copy of one of its own class");
}

TEST(State, ReadableFormIsPinned) {
  const RegisteredType type(FillStateType);
  CatalogueJob job;
  job.SetType(type.Id);
  job.SetStatus(k_StatusFailed);
  job.Set("SubRange", "1-5");
  job.OwnText = " two\nlines ";
  job.SetParameter("Texture", "C:\\renders");
  IniFile file(true);
  job.Save(file);
  const TemporaryDirectory directory;
  file.SetFilename(directory / "job.ini");
  file.Save();
  EXPECT_EQ(ReadFile(directory / "job.ini"), "[Object]\nVersion=1\nType=" + UID(type.Id).GenString() +
                                                 "\nStatus=5\n\n[Values]\nSubRange=1-5\n"
                                                 "OwnText=\\x20two\\nlines\\x20\nTitle=untitled\n"
                                                 "Texture=C:\\\\renders\n");
}

TEST(State, SavedJobComesBackWithTypeStatusAndMembersOfItsClass) {
  const RegisteredType type(FillStateType);
  CatalogueJob job;
  job.SetType(type.Id);
  job.SetStatus(k_StatusPaused);
  job.Set("SubRange", "3-4");
  job.OwnText = "own";
  job.SetParameter("Title", "hello");
  IniFile file;
  job.Save(file);

  CatalogueJob copy;
  copy.Set("stale", "x");
  copy.Load(file);
  EXPECT_EQ(copy.Type(), type.Id);
  EXPECT_EQ(copy.Status(), k_StatusPaused);
  EXPECT_EQ(copy.OwnText, "own");
  EXPECT_EQ(copy.Extra.at("Title"), "hello");
  EXPECT_EQ(copy.Get("SubRange", true), "3-4");
  EXPECT_EQ(copy.Get("stale", true), "");
  EXPECT_EQ(Packed(copy), Packed(job));
}

TEST(State, AJobOfAnUnknownTypeKeepsItsValuesThroughAFile) {
  CatalogueJob job;
  UID type(true);
  IniFile file;
  file.Parse("[Object]\nVersion=1\nType=" + type.GenString() + "\nStatus=1\n[Values]\nColour=red\n");
  job.Load(file);
  EXPECT_EQ(job.Type(), type);
  EXPECT_EQ(job.Get("Colour", true), "red");
}

TEST(State, LoadRefusesWhatIsNoSavedObject) {
  CatalogueJob job;
  const auto refusal = [&job](const char* text) {
    return MessageOf([&] {
      IniFile file;
      file.SetFilename("/x/job.ini");
      file.Parse(text);
      job.Load(file);
    });
  };
  EXPECT_EQ(refusal(""), "/x/job.ini: no saved object: the section [Object] is missing");
  EXPECT_EQ(refusal("[Object]\nVersion=2\n"),
            "/x/job.ini: the object has version \"2\"; this host reads version 1");
  EXPECT_EQ(refusal("[Object]\nVersion=1\nStatus=12x\n"), "\"12x\" is no status of a job");
  EXPECT_EQ(refusal("[Object]\nVersion=1\nType=%n%n\n"),
            "\"%n%n\" is no ID; write 36 characters like \"0123abcd-4567-89ab-cdef-0123456789ab\"");
}

TEST(State, CloneAndCopyKeepPathsThatAStreamWouldTranslate) {
  const RegisteredType type(FillStateType);
  const Translations maps("/there", "/here");
  CatalogueJob job;
  job.SetType(type.Id);
  job.SetParameter("Texture", "/there/a.png");
  CatalogueJob clone;
  clone.Clone(job);
  EXPECT_EQ(clone.Extra.at("Texture"), "/there/a.png");
  OutStream out;
  job.Send(out);
  InStream in(out.Bytes());
  CatalogueJob received;
  received.Read(in);
  EXPECT_EQ(received.Extra.at("Texture"), "/here/a.png");
}

TEST(State, MergeReachesTheMembersOfADerivedClassAndLeavesTypeAndStatus) {
  const RegisteredType type(FillStateType);
  CatalogueJob job;
  job.SetType(type.Id);
  job.OwnText = "mine";
  CatalogueJob other;
  other.SetType(type.Id);
  other.SetStatus(k_StatusFinished);
  other.SetParameter("Title", "theirs");
  job.Merge(other);
  EXPECT_EQ(job.OwnText, "mine");
  EXPECT_EQ(job.Extra.at("Title"), "theirs");
  EXPECT_EQ(job.Status(), k_StatusNew);
}

RC_GTEST_PROP(State, EveryTextSurvivesAFile, ()) {
  PlainObject object;
  for (const auto& [name, value] :
       *rc::gen::container<std::vector<std::pair<String, String>>>(rc::gen::pair(HardTexts(), HardTexts()))) {
    object.Set(name, value);
  }
  IniFile file;
  object.Save(file);
  const TemporaryDirectory directory;
  file.SetFilename(directory / "object.ini");
  file.Save();
  IniFile reread;
  reread.SetFilename(directory / "object.ini");
  reread.Load(true, true);
  PlainObject copy;
  copy.Load(reread);
  RC_ASSERT(Packed(copy) == Packed(object));
}

RC_GTEST_PROP(State, EveryStateSurvivesAStream, ()) {
  CatalogueJob job;
  for (const auto& [name, value] :
       *rc::gen::container<std::vector<std::pair<String, String>>>(rc::gen::pair(HardTexts(), HardTexts()))) {
    job.Set(name, value);
    job.Extra.insert_or_assign(name, value);
  }
  job.OwnText = *HardTexts();
  job.SetStatus(*rc::gen::arbitrary<int>());
  const std::string bytes = Packed(job);
  InStream in(bytes);
  CatalogueJob copy;
  copy.Read(in);
  RC_ASSERT(in.AtEnd());
  RC_ASSERT(Packed(copy) == bytes);
}

TEST(State, AFileTypedByHandKeepsPlainBackslashes) {
  PlainObject object;
  IniFile file;
  file.Parse("[Object]\nVersion=1\n[Values]\nFolder=C:\\renders\\x\\q\nOdd=\\x2\nEnd=\\\n");
  object.Load(file);
  EXPECT_EQ(object.Get("Folder", true), "C:\\renders\\x\\q");
  EXPECT_EQ(object.Get("Odd", true), "\\x2");
  EXPECT_EQ(object.Get("End", true), "\\");
}

} // namespace
