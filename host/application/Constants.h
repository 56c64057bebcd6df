#pragma once

// Names of the host's standard parameters. They are the names by which jobs,
// type descriptions, options and .tvx files know them.

extern const char* const k_Empty;

extern const char* const p_Name;
extern const char* const p_Scene;
extern const char* const p_Range;
extern const char* const p_PacketSize;
extern const char* const p_PacketTime;
extern const char* const p_OutputFolder;
extern const char* const p_ExpectedFiles;
extern const char* const p_Executable;
extern const char* const p_StartDirectory;
extern const char* const p_Environment;
extern const char* const p_Priority;
extern const char* const p_CPUs;
extern const char* const p_SuccessExitCodes;
extern const char* const p_RequiredTexts;
extern const char* const p_RefusedInSceneName;
extern const char* const p_Retries;
extern const char* const p_RunTimeLimit;
extern const char* const p_SilenceLimit;
extern const char* const p_StopAfter;
extern const char* const p_SlotsAtMost;
extern const char* const p_Memory;
extern const char* const p_Limits;
extern const char* const p_NoRetryTexts;
extern const char* const p_FileCheck;
extern const char* const p_RefuseFlatImages;
extern const char* const p_RunOn;
extern const char* const p_WorksPerTask;
extern const char* const p_StageOutput;
extern const char* const p_ClusterPartition;
extern const char* const p_ClusterAccount;
extern const char* const p_ClusterQos;
extern const char* const p_ClusterMemory;
extern const char* const p_ClusterTimeLimit;
extern const char* const p_ClusterThrottle;
extern const char* const p_ClusterOptions;
extern const char* const p_ErrorStarts;
extern const char* const p_ErrorIgnores;
extern const char* const p_ErrorDetectPosition;
extern const char* const p_TranslateSceneContents;
extern const char* const p_Note;

/// The packet size by which whoever runs the works chooses how many frames each has.
extern const char* const k_AutoPacket;

/// Of one piece of work, not of the type: "first-last", and the first frame.
extern const char* const p_SubRange;
extern const char* const p_Frame;

/// Of a job that waits for others: the output folder of the one that was named
/// first, and the images of all of them for the frames of the work, as words of
/// a command line.
extern const char* const p_AfterOutputFolder;
extern const char* const p_AfterImages;
