// The description of a virtual module's type is laid down in layers: what the
// file declares first, the host's standard parameters, the module's own
// catalogue, what the file declares second, and last the file's overrides,
// which thereby reach every parameter of the layers below.

#include "module/Tessivar.h"

#include "host/application/Constants.h"
#include "host/application/jobs/RenderJob.h"
#include "host/foundation/StringTokenizer.h"

#include <functional>

namespace {

// Flags as the host's forms expect them of these parameters.
constexpr unsigned int k_OverrideFlags = 0xE0A;
constexpr unsigned int k_CommandFlags = 0x10E0A;
constexpr unsigned int k_SequenceHeadingFlags = 0xC1A;
constexpr unsigned int k_DetectionFlags = 0x810;
constexpr unsigned int k_SceneFormatFlags = 0x10402;
constexpr unsigned int k_DeprecatedFlags = 0x1E0A;

/// The bits that OverrideFlags may set: the top one is the host's own.
constexpr unsigned int k_FileFlagsMask = 0x7FFFFFFF;

constexpr const char* k_CommandStringHelp =
    "For the parameters to pass to the executable, this is the string that will be used to build the rest of "
    "the command.\n"
    "$(Scene) will substitute the text in the Scene field\n"
    "$(ActualScene) substitutes multiple scene files for products that use a single file per frame.\n"
    "$(SubRange) will substitue the range of the Work, in an x-y format.\n"
    "$(SubRange.Start) will subsitute the start of the Work.\n"
    "$(SubRange.End) will subsitute the end of the work.\n"
    "Note that Subrange may be empty if no range is supplied for the job\n"
    "$(CPUs) will substitue the allocated CPUs for the Work.\n"
    "Any other parameter of the Job can be substituted with $(<name>)\n"
    "\n"
    "The Job parameter will override any value set in the type options for the Engine. If neither is set, "
    "the "
    "default in the configuration file will be used. If no default is given in the file your jobs may not "
    "execute correctly.";

constexpr const char* k_SuccessTextsHelp =
    "Allows you to define text that will be searched for at the beginning of a line of output that would "
    "signify successful work. If there are no SuccessText entries, then the normal work success tests are "
    "done. However, if there are any entries in this section, then there must be at least one line of output "
    "that starts with one of the entries, or the work will be considered unsuccessful. You can specify as "
    "many "
    "of these as you need. Separate multiple entries with a semicolon. The text is not case sensitive. ";

constexpr const char* k_CheckForMultipleFilesHelp =
    "Allow Trovik to try to detect if the scene file selected is part of a sequence of source scene files.";

constexpr const char* k_SceneNumberLengthHelp =
    "When searching for a scene file sequence, any numbers found must meet or exceed this many digits to be "
    "considered part of a sequence identifier.";

constexpr const char* k_SceneNameFormatHelp =
    "For sequences of scene files, this is the formatting string that is used to create the correct filename "
    "for each frame. This value is normally automatically calculated by Trovik and should be blank if the "
    "entire scene is in a single scene file";

constexpr const char* k_EnquoteActualHelp =
    "$(ActualScene) can automatically enquote scene files as needed. Because multiple files may be returned "
    "and those files are separated by spaces, it can produce a command line syntax error to use the .Enquote "
    "Parameter Command with that variable. You can use this option to disable the automatic enquoting, if "
    "needed";

constexpr const char* k_HideSubrangeHelp =
    "DEPRICATED\n"
    "\n"
    "This should no longer be used, because it is buggy. Instead, use the new $(ActualSubRange) parameter "
    "for "
    "the same purpose. The default has been changed not to hide the subrange. Override at your peril.\n"
    "\n"
    "If Trovik detects that your scene is part of a scene file sequence, setting this will cause the Job "
    "variable substitution system to return an empty string for the work SubRange. This allows you to have a "
    "command line that will include a frame range only for single scene files.";

constexpr const char* k_ImageStartTextHelp =
    "When parsing the output, lines that start with this text are assumed to contain a rendered image "
    "filename. The filename is assumed to start at the first non-whitespace character after this text. If "
    "left "
    "empty, no filename detection will be performed.";

constexpr const char* k_ImageEndTextHelp =
    "If a line is checked for an image, this text marks the end of the line, and will be trimmed off from "
    "the "
    "detected filename. You do not need to include any whitespace, because that will be trimmed off "
    "automatically.";

constexpr const char* k_ImageNotEndTextHelp = "If a line starts with the Image Start String, but ends with "
                                              "this text, it won't be considered a filename. "
                                              "This test is applied before the Image End String test.";

ParameterInfo* Append(JobTypeInfo* info, ParameterInfo::TYPE type, const char* name, const char* label,
                      const char* help, unsigned int flags) {
  ParameterInfo* param = info->NewParam(type);
  param->Name = name;
  param->Label = *label == '\0' ? name : label;
  param->Help = help;
  param->Flags = flags;
  return param;
}

void AppendHeading(JobTypeInfo* info, const char* title, unsigned int flags) {
  Append(info, ParameterInfo::k_Heading, title, k_Empty, k_Empty, flags);
}

void SetPacked(ParameterInfo* param, const std::vector<String>& texts) {
  if (ListParameterInfo* list = ListParameterInfo::CastFrom(param)) {
    list->Default = list->Pack(texts);
  }
}

// Thirteen entries in the order in which a form shows them. Their spelling is
// what users of the module know.
void AppendCatalogue(const TvxInfo& tvx, JobTypeInfo* info) {
  AppendHeading(info, "Executable overrides", k_OverrideFlags);
  Append(info, ParameterInfo::k_Text, p_CommandString, "Command Formatting String", k_CommandStringHelp,
         k_CommandFlags)
      ->Default = tvx.Command;
  SetPacked(Append(info, ParameterInfo::k_List, p_SuccessTexts, "Success Strings", k_SuccessTextsHelp,
                   k_OverrideFlags),
            tvx.SuccessText);

  AppendHeading(info, "Mulitple Scene File Options", k_SequenceHeadingFlags);
  Append(info, ParameterInfo::k_Boolean, p_CheckForMultipleFiles, "Check For Multiple Files",
         k_CheckForMultipleFilesHelp, k_DetectionFlags)
      ->Default = tvx.CheckForMultipleFiles ? "Yes" : "No";
  // Fixed on purpose: the file's SceneNumberLength only steers the detection;
  // what a form shows is changed by the file's overrides alone.
  Append(info, ParameterInfo::k_Integer, p_SceneNumberLength, "Minimum Number Padding",
         k_SceneNumberLengthHelp, k_DetectionFlags)
      ->Default = "3";
  Append(info, ParameterInfo::k_File, p_SceneNameFormat, "Scene Name Format", k_SceneNameFormatHelp,
         k_SceneFormatFlags);
  Append(info, ParameterInfo::k_BoolOverride, p_EnquoteActual, "Enquote $(ActualScene)", k_EnquoteActualHelp,
         k_CommandFlags)
      ->Default = "Yes";
  Append(info, ParameterInfo::k_BoolOverride, p_HideSubrange, "Hide Subrange for Scene Sequences",
         k_HideSubrangeHelp, k_DeprecatedFlags)
      ->Default = "No";

  AppendHeading(info, "Image Filename Detection", k_OverrideFlags);
  Append(info, ParameterInfo::k_Text, p_ImageStartText, "Image Start String", k_ImageStartTextHelp,
         k_OverrideFlags)
      ->Default = tvx.ImageStartText;
  Append(info, ParameterInfo::k_Text, p_ImageEndText, "Image End String", k_ImageEndTextHelp, k_OverrideFlags)
      ->Default = tvx.ImageEndText;
  Append(info, ParameterInfo::k_Text, p_ImageNotEndText, "Image Not End String", k_ImageNotEndTextHelp,
         k_OverrideFlags)
      ->Default = tvx.ImageNotEndText;
}

void ForEachEntry(IniFile& file, const char* section,
                  const std::function<void(const String& key, const String& value)>& visit) {
  file.SetSection(section);
  String key;
  String value;
  while (file.GetNextValue(key, value)) {
    visit(key, value);
  }
}

void SetErrorDefaults(const TvxInfo& tvx, JobTypeInfo* info) {
  if (ParameterInfo* param = info->GetParam(p_ErrorDetectPosition)) {
    param->Default = tvx.ErrorDetectPosition ? "1" : "0";
  }
  SetPacked(info->GetParam(p_ErrorStarts), tvx.ErrorText);
  SetPacked(info->GetParam(p_ErrorIgnores), tvx.ErrorIgnore);
}

unsigned int TranslateFlags(const String& names) {
  unsigned int flags = 0;
  for (String& name : StringTokenizer::Split(names, ',')) {
    flags |= STranslateFlag(name.Trim());
  }
  return flags & k_FileFlagsMask;
}

// Entries that name no parameter are passed over in silence.
void ApplyOverrides(IniFile& file, JobTypeInfo* info) {
  ForEachEntry(file, "OverrideFilters", [info](const String& key, const String& value) {
    if (FileParameterInfo* param = FileParameterInfo::CastFrom(info->GetParam(key))) {
      param->Filter = value;
    }
  });
  ForEachEntry(file, "OverrideFlags", [info](const String& key, const String& value) {
    if (ParameterInfo* param = info->GetParam(key)) {
      param->Flags = TranslateFlags(value);
    }
  });
  ForEachEntry(file, "OverrideDefaults", [info](const String& key, const String& value) {
    if (ParameterInfo* param = info->GetParam(key)) {
      param->Default = value;
    }
  });
}

} // namespace

void GetTypeInfo(UID const& type, JobTypeInfo* info) {
  const auto found = g_TvxMap.find(type);
  if (found == g_TvxMap.end() || found->second.Ini == nullptr) {
    return;
  }
  const TvxInfo& tvx = found->second;
  info->Name = tvx.Name;
  info->Help = tvx.Help;
  info->Details = tvx.Details;
  for (String& alias : StringTokenizer::Split(tvx.Shortcut, ',')) {
    info->AddAlias(alias.Trim());
  }
  info->Enabled = tvx.DefaultEnabled;

  // The kept file is walked while the definitions are read from a copy, whose
  // current section they may move.
  IniFile& file = *tvx.Ini;
  IniFile definitions(file, false);
  const auto loadParameter = [&](const String&, const String& name) {
    SLoadParameter(name, definitions, info);
  };
  const auto loadCommand = [&](const String&, const String& name) { SLoadCommand(name, definitions, info); };

  ForEachEntry(file, "PrimaryParameters", loadParameter);
  ForEachEntry(file, "PrimaryCommands", loadCommand);
  RenderJob::FillJobTypeInfo(info, true);
  AppendCatalogue(tvx, info);
  ForEachEntry(file, "SecondaryParameters", loadParameter);
  ForEachEntry(file, "SecondaryCommands", loadCommand);
  SetErrorDefaults(tvx, info);
  ApplyOverrides(file, info);
}
