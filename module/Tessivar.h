#pragma once

#include "host/application/JobTypeInfo.h"
#include "host/application/Module.h"
#include "host/foundation/IniFile.h"
#include "job/Catalogue.h"

#include <cstdint>
#include <map>
#include <vector>

class Job;

/// What one type file says: one virtual module. See docs/tvx.md for the keys.
///
/// The record does not own Ini: copies share it, and only OnModuleUnload
/// destroys it.
struct TvxInfo {
  String Command;
  String ImageStartText;
  String ImageEndText;
  String ImageNotEndText;
  String Name;
  String Shortcut; ///< aliases, still separated by commas
  String Help;
  String Details;
  std::vector<String> ErrorText;
  std::vector<String> ErrorIgnore;
  bool ErrorDetectPosition = false;
  std::vector<String> SuccessText;
  bool DefaultEnabled = true;
  IniFile* Ini = nullptr; ///< the whole file, for sections that are read later
  /// Name of the parameter that changed, then name of the parameter to set and
  /// the text to set it to. All by case.
  std::map<String, std::map<String, String>> AutoDetect;
  bool CheckForMultipleFiles = false;
  std::int32_t SceneNumberLength = 3;
};

// The registry: written by OnModuleLoad and OnModuleUnload alone, which must
// not overlap any other call into the module. No lock is taken anywhere.

extern TESSIVAR_EXPORT std::map<UID, TvxInfo> g_TvxMap;
/// In the order of loading. An ID that two files of one scan share stands here
/// twice.
extern TESSIVAR_EXPORT std::vector<UID> g_IDs;
/// Always 0; hosts take the number of types from the list.
extern TESSIVAR_EXPORT std::int32_t g_IDCount;

// Entry points. A host looks them up by these plain names.
extern "C" {

/// Loads every "*.tvx" file of the directory that the module's file lies in,
/// on top of what is loaded already; so a host may call it once for each
/// directory of type files. True when at least one file was loaded. Every file
/// is logged; one that is refused does not stop the others. Call it in one
/// thread, before anything else.
TESSIVAR_EXPORT bool OnModuleLoad(Module* module);

/// Forgets every virtual module. Unregister the types first; jobs that are
/// still alive find nothing any more, but stay valid.
TESSIVAR_EXPORT void OnModuleUnload();

/// Replaces the content of `types` by the IDs of all virtual modules, in the
/// order of loading.
TESSIVAR_EXPORT void ListTypes(std::vector<UID>& types);

/// Fills an empty description of a listed type; leaves it alone for any other.
/// Calls for one type must not overlap.
TESSIVAR_EXPORT void GetTypeInfo(UID const& type, JobTypeInfo* info);

/// A new job without a type; the caller owns it, tells it its type by SetType
/// and gives it back to DeleteJob. Put it into a SmartHandle at once: a job
/// without one cannot compute "ActualScene".
TESSIVAR_EXPORT Job* CreateJob();
/// Null is ignored.
TESSIVAR_EXPORT void DeleteJob(Job* job);

/// Reacts to a changed parameter of a job that is being set up: `parameters`
/// holds the job's values and is changed in place. A changed scene may turn out
/// to be one of a numbered sequence; then the type's own rules are applied.
/// Raises Exception*, after logging it, for a type that is not loaded; the
/// caller deletes it.
TESSIVAR_EXPORT void AutoDetect(UID const& type, String const& changed, std::map<String, String>& parameters);
}

/// Reads one type file into the registry. False, with the reason in the log
/// (none for a file without a section "Module"), when it is refused.
TESSIVAR_EXPORT bool LoadVirtualModuleData(Path const& file);

/// Whether the scene is one of at least two files that lie beside each other
/// and are numbered without a gap. If so, sets the job's name, scene name
/// format and range in `result`; else leaves it alone. The frame number is the
/// last number of the file name and needs `minimumDigits` digits.
TESSIVAR_EXPORT bool DetectMultipleFiles(Path const& scene, int minimumDigits,
                                         std::map<String, String>& result);
