#include "host/application/jobs/RenderJob.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

// The parameters that every render job has, as a form shows them. Jobs answer
// exactly these names (RenderJob::GetParameter), so that a type's further
// parameters are the only ones that a job keeps as extras.

namespace {

using Info = ParameterInfo;

// A job carries its own value, an engine's option may give one, users see it
// and may change it later.
constexpr unsigned int k_Common = Info::k_OfJob | Info::k_Editable | Info::k_Visible;
constexpr unsigned int k_Tunable = k_Common | Info::k_OfEngine;

struct Description {
  const char* Name; ///< null for a heading
  Info::TYPE Type;
  unsigned int Flags;
  const char* Label;
  const char* Default;
  std::optional<double> Minimum;
  std::optional<double> Maximum;
  const char* Help;
  std::vector<String> Choices = {};
};

using Limit = std::optional<double>;
constexpr Limit k_None = std::nullopt;

// Built on first use: jobs may be described while other libraries still start.
const std::vector<Description>& Descriptions() {
  static const std::vector<Description> descriptions = {
      {nullptr, Info::k_Heading, Info::k_Visible, "Job", "", k_None, k_None, ""},
      {p_Name, Info::k_Text, k_Common | Info::k_Literal, "Name", "", k_None, k_None,
       "The name by which you find the job again in lists, notes and logs. Filled in when the picked scene "
       "is one of "
       "a sequence."},
      {p_Scene, Info::k_File, k_Common | Info::k_Literal | Info::k_AffectsCommand, "Scene", "", k_None,
       k_None,
       "The scene file to render. Of a numbered sequence pick any one; the others are found. The name is "
       "taken as it "
       "is: $( and quotes in it mean nothing."},
      {p_Range, Info::k_Range, k_Common | Info::k_AffectsCommand, "Frame range", "", k_None, k_None,
       "The frames to render: 1-100, every fifth with 1-100x5, all but every fifth with 1-100y5, interleaved "
       "with "
       "1-100:4, lists with 1,4,9-12; negative and descending ranges too. Without a range the program runs "
       "once."},
      {p_PacketSize,
       Info::k_Integer,
       k_Common,
       "Frames per work",
       "1",
       Limit(1),
       k_None,
       "How many neighbouring frames one run of the program renders at most. More than one pays when the "
       "program takes long to load the scene; a failed work then has more to repeat. auto: begins with one, "
       "then as many as take the packet time, fewer near the end.",
       {k_AutoPacket}},
      {p_PacketTime, Info::k_Duration, k_Tunable | Info::k_Advanced, "Packet time", "60", Limit(1), k_None,
       "What a run of the program should take where PacketSize is auto, its start included: seconds, or a "
       "number with s, m, h or d. A program that takes long to start gets more, so that its starts cost no "
       "more than a fifth."},
      {p_Priority, Info::k_Integer, k_Common, "Priority", "50", Limit(0), Limit(100),
       "Works of jobs with a higher number start first."},
      {p_Note, Info::k_Multiline, Info::k_OfJob | Info::k_ReadOnly | Info::k_Visible | Info::k_Literal,
       "Note", "", k_None, k_None, "Why the last work that failed did so."},

      {nullptr, Info::k_Heading, Info::k_Visible, "Output", "", k_None, k_None, ""},
      {p_OutputFolder, Info::k_Folder, k_Tunable | Info::k_AffectsCommand, "Output folder", "", k_None,
       k_None,
       "Made, with the folders above it, before a work starts, and known to the command line as "
       "$(OutputFolder). "
       "A relative folder counts from the start directory. May refer to other parameters: "
       "$(Scene.Branch)/images"},
      {p_ExpectedFiles, Info::k_List, k_Tunable, "Expected files", "", k_None, k_None,
       "The files that a work must leave, for programs that do not name them in their output; a missing, "
       "empty or old "
       "one makes the work fail. Each is looked for once a frame: "
       "$(OutputFolder)/$(Scene.Base)_$(Frame.Pad(4)).png. "
       "Relative names count from the start directory. Separate several with a semicolon."},
      {p_FileCheck,
       Info::k_Choice,
       k_Tunable | Info::k_Advanced,
       "File check",
       "EveryFrame",
       k_None,
       k_None,
       "EveryFrame: every file that a work names or must leave is checked, and every frame must have one; a "
       "frame is told by the number in the file's name. Work: the same files are checked, but they stand for "
       "the whole work, as one movie does for many frames. None: no file is checked.",
       {"EveryFrame", "Work", "None"}},
      {p_RefuseFlatImages, Info::k_Boolean, k_Tunable | Info::k_Advanced, "Refuse flat images", "No", k_None,
       k_None,
       "An image whose pixels all have the same colour is not good, as a frame that came out black. Leave it "
       "off for scenes that fade to one."},

      {nullptr, Info::k_Heading, Info::k_Visible, "Program", "", k_None, k_None, ""},
      {p_Executable, Info::k_File, k_Tunable | Info::k_Literal | Info::k_Advanced | Info::k_AffectsCommand,
       "Executable", "", k_None, k_None,
       "The program: a path, or a name that is looked up along PATH. Where neither the job nor the engine's "
       "options "
       "name one, the newest installed version is searched for if the type says where."},
      {p_StartDirectory, Info::k_Folder, k_Tunable | Info::k_Advanced, "Start directory", "", k_None, k_None,
       "The folder that the program starts in, from which relative names in its arguments and its output "
       "count. The "
       "scene's own folder when empty."},
      {p_Environment, Info::k_List, k_Tunable | Info::k_Advanced, "Environment", "", k_None, k_None,
       "Changes to the program's environment: NAME=VALUE sets a variable, NAME alone removes it. Separate "
       "several "
       "with a semicolon. Programs run with LC_ALL=C.UTF-8 unless you set another."},
      {p_CPUs, Info::k_Integer, k_Tunable | Info::k_AffectsCommand, "CPUs", "1", Limit(1), k_None,
       "Processors that one work may use; the command line passes it on as $(CPUs)."},
      {p_SuccessExitCodes, Info::k_Text, k_Tunable | Info::k_Advanced, "Success exit codes", "0", k_None,
       k_None,
       "The exit codes by which the program says that all went well: numbers and ranges, as in 0,2-4. Not "
       "looked at "
       "where the type declares success texts."},
      {p_RequiredTexts, Info::k_List, k_Tunable | Info::k_Advanced, "Required texts", "", k_None, k_None,
       "Each of these texts must stand somewhere in a line of output, or the work has failed: \"frame "
       "$(SubRange.End)\" for a program that ends well though it was stopped half-way. Separate several with "
       "a "
       "semicolon. The case of letters does not matter."},
      {p_RefusedInSceneName, Info::k_Text, k_Tunable | Info::k_Advanced, "Refused in scene names", "", k_None,
       k_None,
       "Letters that the program does not take in the name of a scene file; such a file is refused before "
       "anything starts. NonASCII, NonUTF8, Control, Blank, or the signs themselves, with blanks between."},

      {nullptr, Info::k_Heading, Info::k_Visible, "Limits", "", k_None, k_None, ""},
      {p_Retries, Info::k_Integer, k_Tunable, "Retries", "0", Limit(0), Limit(100),
       "How often a work that failed is tried again. Only its frames without a good file are repeated. A "
       "failure that has one of the texts that make retries pointless, or a work that could not be prepared, "
       "is not tried again."},
      {p_StopAfter, Info::k_Integer, k_Tunable, "Stop after", "10", Limit(0), k_None,
       "The job stops when so many works have failed for the same reason before any was good, so that a "
       "mistake in the scene or the set-up does not cost the whole range. 0: it never does."},
      {p_SlotsAtMost, Info::k_Integer, k_Tunable, "Slots at most", "0", Limit(0), k_None,
       "How many works of the job may run at a time, on all engines together; on a cluster as many tasks. "
       "0: as many as there are slots."},
      {p_Memory, Info::k_Text, k_Tunable | Info::k_Advanced, "Memory", "", k_None, k_None,
       "The memory that a work needs: 500M, 4G, 1T; a number alone is MiB. An engine starts none that the "
       "machine cannot hold beside those that run. When empty it is the most that one of the job has had so "
       "far."},
      {p_Limits, Info::k_List, k_Tunable | Info::k_Advanced, "Takes of limits", "", k_None, k_None,
       "What a running work takes of what is scarce, such as licences: renderer, or renderer=2; the "
       "settings say how much there is, in the section [Limits]. All engines of a queue share it; on a "
       "cluster these are licences of Slurm. Separate several with a semicolon."},
      {p_RunTimeLimit, Info::k_Duration, k_Tunable, "Run-time limit", "", k_None, k_None,
       "A work that takes longer is ended and has failed: seconds, or a number with s, m, h or d. No limit "
       "when "
       "empty."},
      {p_SilenceLimit, Info::k_Duration, k_Tunable, "Silence limit", "", k_None, k_None,
       "A work that prints nothing for this long is ended and has failed. Leave it empty for programs that "
       "are silent "
       "while they render a frame."},

      {nullptr, Info::k_Heading, Info::k_Visible, "Cluster", "", k_None, k_None, ""},
      {p_RunOn,
       Info::k_Choice,
       k_Tunable,
       "Run on",
       "Local",
       k_None,
       k_None,
       "Where the works run: Local on this machine, Slurm on the nodes of a cluster.",
       {"Local", "Slurm"}},
      {p_WorksPerTask, Info::k_Integer, k_Tunable | Info::k_Advanced, "Works per task", "0", Limit(0), k_None,
       "How many works a task of the cluster does one after another. A task should run for half a minute or "
       "more, since a cluster takes its time to start one. 0: chosen by the number of works."},
      {p_StageOutput, Info::k_Boolean, k_Tunable | Info::k_Advanced, "Stage output", "Yes", k_None, k_None,
       "On a cluster each work renders into a folder of its own beside the images, and good files are moved "
       "from there to the output folder. So a work that the cluster runs twice never spoils a good image. "
       "No: "
       "for programs that must see what is in the output folder."},
      {p_ClusterPartition, Info::k_Text, k_Tunable | Info::k_Advanced, "Cluster partition", "", k_None,
       k_None, "The partition, or several with commas between. The site's default when empty."},
      {p_ClusterAccount, Info::k_Text, k_Tunable | Info::k_Advanced, "Cluster account", "", k_None, k_None,
       "The account that the time is charged to. Your default one when empty."},
      {p_ClusterQos, Info::k_Text, k_Tunable | Info::k_Advanced, "Cluster QOS", "", k_None, k_None,
       "The quality of service. The site's default when empty."},
      {p_ClusterMemory, Info::k_Text, k_Tunable | Info::k_Advanced, "Cluster memory", "", k_None, k_None,
       "Memory of one work: 500M, 4G, 1T; a number alone is MiB. A work that takes more is ended by the "
       "cluster. When empty it is that of Memory, else the share of a node's memory that belongs to the "
       "work's CPUs."},
      {p_ClusterTimeLimit, Info::k_Duration, k_Tunable | Info::k_Advanced, "Cluster time limit", "", k_None,
       k_None,
       "After this time the cluster ends a task: seconds, or a number with s, m, h or d, rounded up to "
       "minutes. When empty it follows from the run-time limit; without that one it is the partition's."},
      {p_ClusterThrottle, Info::k_Integer, k_Tunable | Info::k_Advanced, "Cluster throttle", "0", Limit(0),
       k_None, "How many tasks of the job may run at a time. 0: no limit."},
      {p_ClusterOptions, Info::k_Text, k_Tunable | Info::k_Advanced, "Cluster options", "", k_None, k_None,
       "Further options of sbatch, as on its command line: --constraint=avx2 --exclude=node7. Quotes keep "
       "words together; no shell reads them."},

      {nullptr, Info::k_Heading, Info::k_Visible, "Errors", "", k_None, k_None, ""},
      {p_ErrorStarts, Info::k_List, k_Tunable | Info::k_Advanced, "Error strings", "", k_None, k_None,
       "A line of output that starts with one of these texts makes the work fail, whatever the exit code is. "
       "Separate "
       "several with a semicolon. The case of letters does not matter."},
      {p_ErrorIgnores, Info::k_List, k_Tunable | Info::k_Advanced, "Ignored error strings", "", k_None,
       k_None, "An error line that holds one of these texts anywhere is no error after all."},
      {p_ErrorDetectPosition, Info::k_Text, k_Tunable | Info::k_Advanced, "Error string position", "0",
       k_None, k_None,
       "0: error strings count at the start of a line only. 1: anywhere in it, for programs that put a time "
       "or a "
       "process ID first."},
      {p_NoRetryTexts, Info::k_List, k_Tunable | Info::k_Advanced, "Texts that make retries pointless", "",
       k_None, k_None,
       "When a line of output, or the reason of the failure, holds one of these texts anywhere, a failed "
       "work "
       "is not tried again. The text alone does not make it fail. Separate several with a semicolon. The "
       "case "
       "of letters does not matter."},
      {p_TranslateSceneContents, Info::k_Boolean, k_Tunable | Info::k_Advanced | Info::k_AffectsCommand,
       "Translate scene contents", "No", k_None, k_None,
       "Let the program read a copy of a text scene in which the paths are rewritten for the machine that "
       "renders, by "
       "its path maps."},
  };
  return descriptions;
}

} // namespace

const char* RenderJob::StandardName(const String& name) {
  struct Known {
    std::uint64_t Prefix;
    const char* Name;
  };
  // Jobs are asked for names all the time; few have the same length, and fewer
  // begin alike.
  static const auto byLength = [] {
    std::vector<std::vector<Known>> names;
    const auto add = [&names](const char* known) {
      const std::size_t length = std::strlen(known);
      names.resize(std::max(names.size(), length + 1));
      names[length].push_back({String::NoCasePrefix(known), known});
    };
    add(p_SubRange);
    for (const Description& description : Descriptions()) {
      if (description.Name != nullptr) {
        add(description.Name);
      }
    }
    return names;
  }();
  if (name.size() >= byLength.size()) {
    return nullptr;
  }
  const std::uint64_t prefix = String::NoCasePrefix(name);
  for (const Known& known : byLength[name.size()]) {
    if (known.Prefix == prefix && String::EqualNoCase(name, std::string_view(known.Name, name.size()))) {
      return known.Name;
    }
  }
  return nullptr;
}

void RenderJob::FillJobTypeInfo(JobTypeInfo* info, bool withOutput) {
  bool skip = false;
  for (const Description& description : Descriptions()) {
    if (description.Name == nullptr) {
      skip = !withOutput && std::strcmp(description.Label, "Output") == 0;
    }
    if (skip) {
      continue;
    }
    ParameterInfo* param = info->NewParam(description.Type);
    param->Label = description.Label;
    // Types may well have a parameter "Output" or "Program" of their own; a
    // heading must not answer to its name.
    param->Name =
        description.Name != nullptr ? String(description.Name) : description.Label + String(" (group)");
    param->Help = description.Help;
    param->Default = description.Default;
    param->Flags = description.Flags;
    param->Minimum = description.Minimum;
    param->Maximum = description.Maximum;
    param->Choices = description.Choices;
  }
}
