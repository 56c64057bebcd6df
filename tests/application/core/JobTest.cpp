#include "tests/application/core/TestSupport.h"

#include <gtest/gtest.h>

namespace {

void FillType(JobTypeInfo& info) {
  AddParam(info, ParameterInfo::k_Heading, "Group");
  AddParam(info, ParameterInfo::k_Text, "OwnText", "by default");
  AddParam(info, ParameterInfo::k_Integer, "Width", "640")->Maximum = 1000;
  AddParam(info, ParameterInfo::k_File, "Texture", "", ParameterInfo::k_Required);
  AddParam(info, ParameterInfo::k_Integer, "Progress", "", ParameterInfo::k_ReadOnly);
}

std::string Packed(const Job& job) {
  OutStream out;
  job.PackObject(out);
  return out.Bytes();
}

TEST(Job, PacksTypeCountAndValuesInOrderOfNames) {
  UID type;
  type.FromString("00112233-4455-6677-8899-aabbccddeeff");
  PlainJob job;
  job.SetType(type);
  job.Set("scene", "a.pov");
  job.Set("Note", "");
  const std::string bytes("\x00\x11\x22\x33\x44\x55\x66\x77\x88\x99\xaa\xbb\xcc\xdd\xee\xff"
                          "\x02\0\0\0"
                          "\x04\0\0\0Note"
                          "\0\0\0\0"
                          "\x05\0\0\0scene"
                          "\x05\0\0\0"
                          "a.pov",
                          50);
  EXPECT_EQ(Packed(job), bytes);
  PlainJob copy;
  copy.Set("stale", "x");
  InStream in(bytes);
  copy.UnpackObject(in, 1);
  EXPECT_TRUE(in.AtEnd());
  EXPECT_EQ(Packed(copy), bytes);
  EXPECT_EQ(copy.Type(), type);
}

TEST(Job, RefusesAStreamOfAnotherVersion) {
  PlainJob job;
  const std::string bytes = Packed(job);
  InStream in(bytes);
  EXPECT_EQ(MessageOf([&] { job.UnpackObject(in, 2); }),
            "the job's stream has version 2; this host reads version 1");
}

TEST(Job, RaisesForAStreamCutAtAnyByteAndKeepsWhatItHad) {
  PlainJob job;
  job.Set("Scene", "a scene");
  job.Set("Name", String(300, 'n'));
  const std::string bytes = Packed(job);
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    PlainJob copy;
    copy.Set("Scene", "before");
    InStream in(std::string_view(bytes).substr(0, length));
    int code = 0;
    MessageOf([&] { copy.UnpackObject(in, 1); }, &code);
    ASSERT_EQ(code, k_ErrorStream) << length;
    ASSERT_EQ(copy.Get("Scene", true), "before") << length;
  }
}

TEST(Job, RaisesForADerivedStreamCutAtAnyByte) {
  const RegisteredType type(FillType);
  CatalogueJob job;
  job.SetType(type.Id);
  job.OwnText = "text";
  const std::string bytes = Packed(job);
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    CatalogueJob copy;
    InStream in(std::string_view(bytes).substr(0, length));
    int code = 0;
    MessageOf([&] { copy.UnpackObject(in, 1); }, &code);
    ASSERT_EQ(code, k_ErrorStream) << length;
  }
}

TEST(Job, AHostileCountAllocatesNothing) {
  PlainJob job;
  const std::string bytes = std::string(16, '\0') + "\xFF\xFF\xFF\xFF" + std::string(8, '\0');
  InStream in(bytes);
  int code = 0;
  MessageOf([&] { job.UnpackObject(in, 1); }, &code);
  EXPECT_EQ(code, k_ErrorStream);
}

TEST(Job, AnswersWhatItKeepsAndWhatEveryWorkHas) {
  PlainJob job;
  String value = "untouched";
  EXPECT_FALSE(job.GetParameter("Colour", value));
  EXPECT_EQ(value, "untouched");
  EXPECT_FALSE(job.SetParameter("Colour", "red"));
  job.Set("Colour", "red");
  EXPECT_TRUE(job.SetParameter("COLOUR", "blue"));
  EXPECT_TRUE(job.GetParameter("colour", value));
  EXPECT_EQ(value, "blue");
  EXPECT_TRUE(job.GetParameter("subrange", value));
  EXPECT_EQ(value, "");
  EXPECT_TRUE(job.SetParameter("Note", "n"));
  EXPECT_EQ(job.Get("Note", true), "n");
}

TEST(Job, CopyTakesTypeAndParametersAndOnlyWithStateTheRest) {
  const RegisteredType type(FillType);
  const SmartHandle<CatalogueJob> parent(new CatalogueJob());
  parent->SetType(type.Id);
  parent->OwnText = "parent";
  parent->Set("Note", "parent's note");
  parent->Set("SubRange", "1-100");
  parent->SetStatus(k_StatusRunning);

  CatalogueJob work;
  work.Set("Note", "work's note");
  work.Set("SubRange", "7-7");
  work.SetStatus(k_StatusFailed);
  work.UpdateFromParent(parent);
  EXPECT_EQ(work.Type(), type.Id);
  EXPECT_EQ(work.OwnText, "parent");
  EXPECT_EQ(work.Get("Note", true), "work's note");
  EXPECT_EQ(work.Get("SubRange", true), "7-7");
  EXPECT_EQ(work.Status(), k_StatusFailed);

  CatalogueJob fresh;
  fresh.Copy(parent, false);
  EXPECT_EQ(fresh.Get("Note", true), "");
  EXPECT_EQ(fresh.Get("SubRange", true), "");
  EXPECT_EQ(fresh.Status(), k_StatusNew);

  work.Copy(parent, true);
  EXPECT_EQ(work.Get("Note", true), "parent's note");
  EXPECT_EQ(work.Get("SubRange", true), "1-100");
  EXPECT_EQ(work.Status(), k_StatusRunning);
}

TEST(Job, CopyFromAnotherClassTakesWhatBothAnswerByName) {
  const RegisteredType type(FillType);
  const SmartHandle<CatalogueJob> other(new CatalogueJob());
  other->SetType(type.Id);
  other->OwnText = "own";
  other->Set("Scene", "s");
  PlainJob job;
  job.Set("stale", "x");
  job.Copy(other, false);
  EXPECT_EQ(job.Type(), type.Id);
  EXPECT_EQ(job.Get("OwnText", true), "own");
  EXPECT_EQ(job.Get("Scene", true), "s");
  EXPECT_EQ(job.Get("stale", true), "");
}

TEST(Job, CopyFromNothingIsAnError) {
  PlainJob job;
  EXPECT_EQ(MessageOf([&job] { job.Copy(SmartHandle<const Job>(), false); }), "there is no job to copy from");
}

TEST(Job, AWorkBecomesAWholeReadyJob) {
  const RegisteredType type(FillType);
  const SmartHandle<CatalogueJob> parent(new CatalogueJob());
  parent->SetType(type.Id);
  parent->OwnText = "parent";
  parent->Set("Range", "1-100");
  CatalogueJob work;
  work.Set("SubRange", "7-7");
  work.Set("Note", "it failed");
  work.SetStatus(k_StatusFailed);
  work.ConvertWorkToParent(parent);
  EXPECT_EQ(work.OwnText, "parent");
  EXPECT_EQ(work.Get("Range", true), "1-100");
  EXPECT_EQ(work.Get("SubRange", true), "");
  EXPECT_EQ(work.Get("Note", true), "");
  EXPECT_EQ(work.Status(), k_StatusReady);
}

TEST(Job, TellsWhatAStatusMeans) {
  const PlainJob job;
  struct Meaning {
    int Status;
    const char* Text;
    bool Started, Finished, Failed, Canceled, Paused;
  };
  for (const Meaning& meaning :
       std::initializer_list<Meaning>{{k_StatusNew, "New", false, false, false, false, false},
                                      {k_StatusReady, "Ready", false, false, false, false, false},
                                      {k_StatusRunning, "Running", true, false, false, false, false},
                                      {k_StatusPaused, "Paused", true, false, false, false, true},
                                      {4, "Unknown", false, false, false, false, false},
                                      {k_StatusFailed, "Failed", true, false, true, false, false},
                                      {k_StatusCanceled, "Canceled", true, false, false, true, false},
                                      {k_StatusFinished, "Finished", true, true, false, false, false},
                                      {-1, "Unknown", false, false, false, false, false}}) {
    EXPECT_EQ(job.StatusAsString(meaning.Status), meaning.Text);
    EXPECT_EQ(job.IsStarted(meaning.Status), meaning.Started) << meaning.Text;
    EXPECT_EQ(job.IsFinished(meaning.Status), meaning.Finished) << meaning.Text;
    EXPECT_EQ(job.IsFailed(meaning.Status), meaning.Failed) << meaning.Text;
    EXPECT_EQ(job.IsCanceled(meaning.Status), meaning.Canceled) << meaning.Text;
    EXPECT_EQ(job.IsPaused(meaning.Status), meaning.Paused) << meaning.Text;
  }
  PlainJob other;
  other.SetFinished();
  EXPECT_EQ(other.Status(), k_StatusFinished);
  EXPECT_FALSE(other.ProcessCommand("anything", nullptr));
}

TEST(Job, EffectiveValueIsTheJobsElseTheOptionElseTheDefault) {
  const RegisteredType type(FillType);
  CatalogueJob job;
  job.SetType(type.Id);
  EXPECT_EQ(job.GetParameterOrOption("OwnText", true, true), "by default");
  EXPECT_EQ(job.GetParameterOrOption("OwnText", true, false), "");
  {
    const Option option(type.Id, "OwnText", "by option");
    EXPECT_EQ(job.GetParameterOrOption("owntext", true, true), "by option");
    EXPECT_EQ(job.GetParameterOrOption("OwnText", false, true), "by default");
    EXPECT_EQ(job.GetParameterOrOption("OwnText", false, false), "");
    job.OwnText = "by job";
    EXPECT_EQ(job.GetParameterOrOption("OwnText", true, true), "by job");
  }
  EXPECT_EQ(job.GetParameterOrOption("NoSuch", true, true), "");
}

TEST(Job, IsValidSaysInTheNoteWhyNot) {
  CatalogueJob job;
  EXPECT_FALSE(job.IsValid());
  EXPECT_EQ(job.Get("Note", true), "the job type 00000000-0000-0000-0000-000000000000 is not registered");

  const RegisteredType type(FillType);
  job.SetType(type.Id);
  EXPECT_FALSE(job.IsValid());
  EXPECT_EQ(job.Get("Note", true), "Texture: a value is required");
  {
    const Option option(type.Id, "Texture", "/t.png");
    EXPECT_TRUE(job.IsValid());
  }
  job.SetParameter("Texture", "/t.png");
  EXPECT_TRUE(job.IsValid());
  job.SetParameter("Width", "1001");
  EXPECT_FALSE(job.IsValid());
  EXPECT_EQ(job.Get("Note", true), "Width: 1001 is above the maximum of 1000");
  job.SetParameter("Width", "$(OwnText)");
  job.SetParameter("Progress", "half");
  EXPECT_TRUE(job.IsValid());
}

class Recorder : public WorkObserver {
public:
  void OnWorkParameter(const Job&, const String& name, const String& value) override {
    Seen += name + "=" + value + ";";
  }
  void OnImage(const Job&, const Path& file) override { Seen += "image " + file.Text() + ";"; }
  String Seen;
};

TEST(Job, TellsItsObserverOfChangedParameters) {
  Recorder recorder;
  PlainJob job;
  job.DoWorkParameterChange("Note", "unheard");
  job.SetObserver(&recorder);
  job.DoWorkParameterChange("Note", "heard");
  EXPECT_EQ(recorder.Seen, "Note=heard;");
  EXPECT_FALSE(job.IsValid());
  EXPECT_EQ(recorder.Seen,
            "Note=heard;Note=the job type 00000000-0000-0000-0000-000000000000 is not registered;");
}

TEST(Job, ListsTheNamesThatItMayBeAskedFor) {
  const RegisteredType type(FillType);
  CatalogueJob job;
  job.SetType(type.Id);
  job.Set("scene", "s");
  EXPECT_EQ(job.ParameterNames(), (std::vector<String>{"OwnText", "Width", "Texture", "Progress", "scene",
                                                       "SubRange", "ActualSubRange", "ActualScene"}));
}

TEST(Job, ListsTheNamesOfASceneSequenceWithoutPuttingItTogether) {
  class Careful : public CatalogueJob {
  public:
    bool GetParameter(const String& name, String& value) const override {
      EXPECT_NE(name, "ActualScene");
      return CatalogueJob::GetParameter(name, value);
    }
  };
  EXPECT_EQ(Careful().ParameterNames(), (std::vector<String>{"SubRange", "ActualSubRange", "ActualScene"}));
  EXPECT_EQ(PlainJob().ParameterNames(), std::vector<String>{"SubRange"});
}

} // namespace
