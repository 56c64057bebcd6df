#include "tests/application/core/TestSupport.h"

#include <gtest/gtest.h>

namespace {

TEST(Constants, AreTheirOwnNamesWithoutThePrefix) {
  const std::vector<std::pair<const char*, const char*>> constants = {
      {k_Empty, ""},
      {p_Name, "Name"},
      {p_Scene, "Scene"},
      {p_Range, "Range"},
      {p_PacketSize, "PacketSize"},
      {p_OutputFolder, "OutputFolder"},
      {p_ExpectedFiles, "ExpectedFiles"},
      {p_Executable, "Executable"},
      {p_StartDirectory, "StartDirectory"},
      {p_Environment, "Environment"},
      {p_Priority, "Priority"},
      {p_CPUs, "CPUs"},
      {p_SuccessExitCodes, "SuccessExitCodes"},
      {p_RequiredTexts, "RequiredTexts"},
      {p_RefusedInSceneName, "RefusedInSceneName"},
      {p_Retries, "Retries"},
      {p_RunTimeLimit, "RunTimeLimit"},
      {p_SilenceLimit, "SilenceLimit"},
      {p_StopAfter, "StopAfter"},
      {p_NoRetryTexts, "NoRetryTexts"},
      {p_FileCheck, "FileCheck"},
      {p_RefuseFlatImages, "RefuseFlatImages"},
      {p_RunOn, "RunOn"},
      {p_WorksPerTask, "WorksPerTask"},
      {p_StageOutput, "StageOutput"},
      {p_ClusterPartition, "ClusterPartition"},
      {p_ClusterAccount, "ClusterAccount"},
      {p_ClusterQos, "ClusterQos"},
      {p_ClusterMemory, "ClusterMemory"},
      {p_ClusterTimeLimit, "ClusterTimeLimit"},
      {p_ClusterThrottle, "ClusterThrottle"},
      {p_ClusterOptions, "ClusterOptions"},
      {p_ErrorStarts, "ErrorStarts"},
      {p_ErrorIgnores, "ErrorIgnores"},
      {p_ErrorDetectPosition, "ErrorDetectPosition"},
      {p_TranslateSceneContents, "TranslateSceneContents"},
      {p_Note, "Note"},
      {p_SubRange, "SubRange"},
      {p_Frame, "Frame"},
  };
  for (const auto& [constant, text] : constants) {
    EXPECT_STREQ(constant, text);
  }
}

} // namespace
