#pragma once

#include "host/foundation/Path.h"
#include "host/foundation/String.h"
#include "host/foundation/UID.h"

#include <vector>

/// Marks what the module's library exports; everything else is hidden. The
/// list of names in module/Tessivar.map must agree.
#define TESSIVAR_EXPORT __attribute__((visibility("default")))

// Names of the parameters that the module gives to every virtual module's
// type. The pointers are writable, since the host may read them as data of the
// loaded library.

extern TESSIVAR_EXPORT const char* p_CommandString;
extern TESSIVAR_EXPORT const char* p_SuccessTexts;
extern TESSIVAR_EXPORT const char* p_CheckForMultipleFiles;
extern TESSIVAR_EXPORT const char* p_SceneNumberLength;
extern TESSIVAR_EXPORT const char* p_SceneNameFormat;
extern TESSIVAR_EXPORT const char* p_EnquoteActual;
extern TESSIVAR_EXPORT const char* p_HideSubrange;
extern TESSIVAR_EXPORT const char* p_ImageStartText;
extern TESSIVAR_EXPORT const char* p_ImageEndText;
extern TESSIVAR_EXPORT const char* p_ImageNotEndText;

/// Computed when a job is asked, never part of a type's description.
extern TESSIVAR_EXPORT const char* p_ActualScene;
extern TESSIVAR_EXPORT const char* p_ActualSubRange;

// What a job asks of its type's file. Both move the current section of the
// file that the registry keeps, so calls for one type must not overlap.

/// The command line of a named command of the type; empty when the type, the
/// command's section or its key "Command" is missing.
TESSIVAR_EXPORT String GetCommandString(UID const& type, String const& command);

/// The search for the type's newest program as its section
/// "FindLatestExecutable" describes it. Appends to `roots` and `bases`; `exe`
/// becomes "LinuxExe" or else the type's default executable. False, with
/// nothing touched, when the type has no such section.
TESSIVAR_EXPORT bool GetLatestExeSearch(UID const& type, std::vector<Path>& roots, std::vector<Path>& bases,
                                        Path& exe);
