#include "tests/application/jobs/TestJob.h"

#include <set>

namespace {

std::vector<String> Names(const JobTypeInfo& info) {
  std::vector<String> names;
  for (unsigned long i = 0; i < info.ParamCount(); ++i) {
    names.push_back(info.GetParam(i)->Name);
  }
  return names;
}

JobTypeInfo Filled(bool withOutput) {
  JobTypeInfo info;
  RenderJob::FillJobTypeInfo(&info, withOutput);
  return info;
}

TEST(RenderParameters, StandInTheirOrderUnderHeadings) {
  EXPECT_EQ(Names(Filled(true)), (std::vector<String>{"Job (group)",
                                                      "Name",
                                                      "Scene",
                                                      "Range",
                                                      "PacketSize",
                                                      "PacketTime",
                                                      "Priority",
                                                      "Note",
                                                      "Output (group)",
                                                      "OutputFolder",
                                                      "ExpectedFiles",
                                                      "FileCheck",
                                                      "RefuseFlatImages",
                                                      "Program (group)",
                                                      "Executable",
                                                      "StartDirectory",
                                                      "Environment",
                                                      "CPUs",
                                                      "SuccessExitCodes",
                                                      "RequiredTexts",
                                                      "RefusedInSceneName",
                                                      "Limits (group)",
                                                      "Retries",
                                                      "StopAfter",
                                                      "SlotsAtMost",
                                                      "Memory",
                                                      "Limits",
                                                      "RunTimeLimit",
                                                      "SilenceLimit",
                                                      "Cluster (group)",
                                                      "RunOn",
                                                      "WorksPerTask",
                                                      "StageOutput",
                                                      "ClusterPartition",
                                                      "ClusterAccount",
                                                      "ClusterQos",
                                                      "ClusterMemory",
                                                      "ClusterTimeLimit",
                                                      "ClusterThrottle",
                                                      "ClusterOptions",
                                                      "Errors (group)",
                                                      "ErrorStarts",
                                                      "ErrorIgnores",
                                                      "ErrorDetectPosition",
                                                      "NoRetryTexts",
                                                      "TranslateSceneContents"}));
}

TEST(RenderParameters, WithoutOutputTheGroupIsLeftOut) {
  const JobTypeInfo info = Filled(false);
  EXPECT_EQ(info.ParamCount(), Filled(true).ParamCount() - 5);
  EXPECT_EQ(info.GetParam("Output (group)"), nullptr);
  EXPECT_EQ(info.GetParam(p_OutputFolder), nullptr);
  EXPECT_EQ(info.GetParam(p_ExpectedFiles), nullptr);
  EXPECT_EQ(info.GetParam(p_FileCheck), nullptr);
  EXPECT_EQ(info.GetParam(p_RefuseFlatImages), nullptr);
  EXPECT_NE(info.GetParam(p_Executable), nullptr);
}

TEST(RenderParameters, TypesOwnParameterNamedLikeAGroupIsFound) {
  JobTypeInfo info = Filled(true);
  EXPECT_EQ(info.GetParam(0)->Label, "Job");
  EXPECT_EQ(info.GetParam("Output"), nullptr);
  ParameterInfo* own = info.NewParam(ParameterInfo::k_Text);
  own->Name = "Output";
  EXPECT_EQ(info.GetParam("Output"), own);
}

TEST(RenderParameters, EachHasALabelAHelpTextAndAValidDefault) {
  const JobTypeInfo info = Filled(true);
  std::set<String> labels;
  for (unsigned long i = 0; i < info.ParamCount(); ++i) {
    const ParameterInfo* param = info.GetParam(i);
    EXPECT_TRUE(labels.insert(param->Label).second) << param->Label;
    EXPECT_EQ(param->Help.empty(), param->Type() == ParameterInfo::k_Heading) << param->Name;
    EXPECT_NE(param->Flags & ParameterInfo::k_Visible, 0U) << param->Name;
    EXPECT_EQ(param->Flags & ParameterInfo::k_Internal, 0U) << param->Name;
    String why;
    EXPECT_TRUE(param->Accepts(param->Default, why)) << param->Name << ": " << why;
  }
}

TEST(RenderParameters, KindsAreThoseThatModulesRelyOn) {
  const JobTypeInfo info = Filled(true);
  EXPECT_NE(ListParameterInfo::CastFrom(info.GetParam(p_ErrorStarts)), nullptr);
  EXPECT_NE(ListParameterInfo::CastFrom(info.GetParam(p_ErrorIgnores)), nullptr);
  EXPECT_NE(ListParameterInfo::CastFrom(info.GetParam(p_ExpectedFiles)), nullptr);
  EXPECT_NE(ListParameterInfo::CastFrom(info.GetParam(p_Environment)), nullptr);
  EXPECT_NE(FileParameterInfo::CastFrom(info.GetParam(p_Scene)), nullptr);
  EXPECT_NE(FileParameterInfo::CastFrom(info.GetParam(p_Executable)), nullptr);
  EXPECT_NE(FileParameterInfo::CastFrom(info.GetParam(p_OutputFolder)), nullptr);
  EXPECT_EQ(info.GetParam(p_Range)->Type(), ParameterInfo::k_Range);
  EXPECT_EQ(info.GetParam(p_Note)->Type(), ParameterInfo::k_Multiline);
  EXPECT_EQ(info.GetParam(p_RunTimeLimit)->Type(), ParameterInfo::k_Duration);
  EXPECT_EQ(info.GetParam(p_SilenceLimit)->Type(), ParameterInfo::k_Duration);
  EXPECT_EQ(info.GetParam(p_ErrorDetectPosition)->Type(), ParameterInfo::k_Text);
  EXPECT_EQ(info.GetParam(p_TranslateSceneContents)->Type(), ParameterInfo::k_Boolean);
  EXPECT_NE(ListParameterInfo::CastFrom(info.GetParam(p_NoRetryTexts)), nullptr);
  EXPECT_EQ(info.GetParam(p_StopAfter)->Type(), ParameterInfo::k_Integer);
  EXPECT_EQ(info.GetParam(p_RefuseFlatImages)->Type(), ParameterInfo::k_Boolean);
  EXPECT_EQ(info.GetParam(p_RunOn)->Type(), ParameterInfo::k_Choice);
  EXPECT_EQ(info.GetParam(p_RunOn)->Choices, (std::vector<String>{"Local", "Slurm"}));
  EXPECT_EQ(info.GetParam(p_ClusterTimeLimit)->Type(), ParameterInfo::k_Duration);
  EXPECT_EQ(info.GetParam(p_ClusterThrottle)->Type(), ParameterInfo::k_Integer);
  EXPECT_EQ(info.GetParam(p_WorksPerTask)->Type(), ParameterInfo::k_Integer);
  EXPECT_EQ(info.GetParam(p_StageOutput)->Type(), ParameterInfo::k_Boolean);
  EXPECT_EQ(info.GetParam(p_FileCheck)->Type(), ParameterInfo::k_Choice);
  EXPECT_EQ(info.GetParam(p_FileCheck)->Choices, (std::vector<String>{"EveryFrame", "Work", "None"}));
}

TEST(RenderParameters, DefaultsAndLimits) {
  const JobTypeInfo info = Filled(true);
  const auto check = [&info](const char* name, const String& value, std::optional<double> minimum,
                             std::optional<double> maximum) {
    const ParameterInfo* param = info.GetParam(name);
    EXPECT_EQ(param->Default, value) << name;
    EXPECT_EQ(param->Minimum, minimum) << name;
    EXPECT_EQ(param->Maximum, maximum) << name;
  };
  check(p_PacketSize, "1", 1, std::nullopt);
  check(p_Priority, "50", 0, 100);
  check(p_CPUs, "1", 1, std::nullopt);
  check(p_Retries, "0", 0, 100);
  check(p_StopAfter, "10", 0, std::nullopt);
  check(p_FileCheck, "EveryFrame", std::nullopt, std::nullopt);
  check(p_RefuseFlatImages, "No", std::nullopt, std::nullopt);
  check(p_NoRetryTexts, "", std::nullopt, std::nullopt);
  check(p_SuccessExitCodes, "0", std::nullopt, std::nullopt);
  check(p_RefusedInSceneName, "", std::nullopt, std::nullopt);
  check(p_RunTimeLimit, "", std::nullopt, std::nullopt);
  check(p_RunOn, "Local", std::nullopt, std::nullopt);
  check(p_WorksPerTask, "0", 0, std::nullopt);
  check(p_StageOutput, "Yes", std::nullopt, std::nullopt);
  check(p_ClusterMemory, "", std::nullopt, std::nullopt);
  check(p_ClusterTimeLimit, "", std::nullopt, std::nullopt);
  check(p_ClusterThrottle, "0", 0, std::nullopt);
  check(p_ErrorDetectPosition, "0", std::nullopt, std::nullopt);
  check(p_TranslateSceneContents, "No", std::nullopt, std::nullopt);
  check(p_Name, "", std::nullopt, std::nullopt);
}

TEST(RenderParameters, WhereAWorkRunsDoesNotChangeItsCommand) {
  const JobTypeInfo info = Filled(true);
  for (const char* name :
       {p_RunOn, p_WorksPerTask, p_StageOutput, p_ClusterPartition, p_ClusterAccount, p_ClusterQos,
        p_ClusterMemory, p_ClusterTimeLimit, p_ClusterThrottle, p_ClusterOptions}) {
    const unsigned int flags = info.GetParam(name)->Flags;
    EXPECT_EQ(flags & ParameterInfo::k_AffectsCommand, 0U) << name;
    EXPECT_NE(flags & ParameterInfo::k_OfEngine, 0U) << name;
    EXPECT_EQ((flags & ParameterInfo::k_Advanced) != 0, name != p_RunOn) << name;
  }
}

TEST(RenderParameters, PickedNamesAndNotesAreLiteral) {
  const JobTypeInfo info = Filled(true);
  for (unsigned long i = 0; i < info.ParamCount(); ++i) {
    const ParameterInfo* param = info.GetParam(i);
    const bool literal = param->Name == p_Name || param->Name == p_Scene || param->Name == p_Executable ||
                         param->Name == p_Note;
    EXPECT_EQ(param->IsLiteral(), literal) << param->Name;
  }
  EXPECT_NE(info.GetParam(p_Note)->Flags & ParameterInfo::k_ReadOnly, 0U);
}

} // namespace
