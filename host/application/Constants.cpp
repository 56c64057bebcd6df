#include "host/application/Constants.h"

const char* const k_Empty = "";

const char* const p_Name = "Name";
const char* const p_Scene = "Scene";
const char* const p_Range = "Range";
const char* const p_PacketSize = "PacketSize";
const char* const p_OutputFolder = "OutputFolder";
const char* const p_ExpectedFiles = "ExpectedFiles";
const char* const p_Executable = "Executable";
const char* const p_StartDirectory = "StartDirectory";
const char* const p_Environment = "Environment";
const char* const p_Priority = "Priority";
const char* const p_CPUs = "CPUs";
const char* const p_SuccessExitCodes = "SuccessExitCodes";
const char* const p_RequiredTexts = "RequiredTexts";
const char* const p_RefusedInSceneName = "RefusedInSceneName";
const char* const p_Retries = "Retries";
const char* const p_RunTimeLimit = "RunTimeLimit";
const char* const p_SilenceLimit = "SilenceLimit";
const char* const p_StopAfter = "StopAfter";
const char* const p_SlotsAtMost = "SlotsAtMost";
const char* const p_Limits = "Limits";
const char* const p_NoRetryTexts = "NoRetryTexts";
const char* const p_FileCheck = "FileCheck";
const char* const p_RefuseFlatImages = "RefuseFlatImages";
const char* const p_RunOn = "RunOn";
const char* const p_WorksPerTask = "WorksPerTask";
const char* const p_StageOutput = "StageOutput";
const char* const p_ClusterPartition = "ClusterPartition";
const char* const p_ClusterAccount = "ClusterAccount";
const char* const p_ClusterQos = "ClusterQos";
const char* const p_ClusterMemory = "ClusterMemory";
const char* const p_ClusterTimeLimit = "ClusterTimeLimit";
const char* const p_ClusterThrottle = "ClusterThrottle";
const char* const p_ClusterOptions = "ClusterOptions";
const char* const p_ErrorStarts = "ErrorStarts";
const char* const p_ErrorIgnores = "ErrorIgnores";
const char* const p_ErrorDetectPosition = "ErrorDetectPosition";
const char* const p_TranslateSceneContents = "TranslateSceneContents";
const char* const p_Note = "Note";

const char* const p_SubRange = "SubRange";
const char* const p_Frame = "Frame";
const char* const p_AfterOutputFolder = "After.OutputFolder";
const char* const p_AfterImages = "After.Images";
