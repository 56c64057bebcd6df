#include "trovik/commandline/VerbOptions.h"

#include <algorithm>

namespace trovik {
namespace {

constexpr const char* commonGroup = "Common options";
constexpr const char* ownGroup = "Options";
constexpr const char* typeVerbs = "Job types";
constexpr const char* writingVerbs = "Job types of your own";
constexpr const char* workVerbs = "Rendering";
constexpr const char* jobVerbs = "Jobs";
constexpr const char* hiddenVerbs = ""; // help does not list them

/// The options that every verb takes, and those about the queue.
void addCommon(std::vector<Argument>& arguments, Options& options, bool ofQueue) {
  const auto add = [&](const char* name, const char* form, const char* description, ArgumentTarget target) {
    arguments.push_back({name, 0, form, description, commonGroup, target});
  };
  if (ofQueue) {
    add("--state", "DIR", "Directory of the queue and its logs", &options.state);
  }
  add("--module-path", "DIRS",
      "Directories of modules and types, between colons; an empty one stands for the usual ones",
      &options.modulePath);
  add("--settings", "FILE", "File of this installation's settings", &options.settings);
  add("--options", "FILE", "File of the engine's options for each type", &options.options);
  add("--verbose", "", "Say more; twice for what helps to find faults", &options.verbosity);
  arguments.back().letter = 'v';
  add("--color", "WHEN", "auto, always or never", &options.colour);
  add("--help", "", "Show this help", ShowHelp());
  arguments.back().letter = 'h';
  add("--version", "", "Show the version", ShowVersion());
}

/// One verb being declared.
class VerbOptions {
public:
  VerbOptions(CommandForm& program, Options& options, const char* group, const char* name,
              const char* description)
      : verb_(program.verbs.emplace_back(Verb{name, group, description, {}})), options_(options) {
    addCommon(verb_.arguments, options, group == workVerbs || group == jobVerbs);
  }

  /// An argument by its place, shown as `form` ("JOB", "[SCENE]") in the usage.
  VerbOptions& argument(const char* name, const char* form, ArgumentTarget target, const char* description) {
    verb_.arguments.push_back({name, 0, form, description, {}, target});
    return *this;
  }
  VerbOptions& value(const char* name, const char* form, ArgumentTarget target, const char* description) {
    verb_.arguments.push_back({name, 0, form, description, ownGroup, target});
    return *this;
  }
  VerbOptions& flag(const char* name, bool& target, const char* description) {
    return value(name, "", &target, description);
  }
  /// The one-letter form of the option before.
  VerbOptions& letter(char letter) {
    verb_.arguments.back().letter = letter;
    return *this;
  }

  VerbOptions& type() {
    return argument("TYPE", "TYPE", &options_.type, "Name, alias or ID of a job type, in any case");
  }
  VerbOptions& job() { return argument("JOB", "JOB", &options_.job, jobDescription); }
  VerbOptions& jobs() { return argument("JOB", "JOB...", &options_.jobs, jobDescription); }
  VerbOptions& sets() {
    return value("--set", "NAME=VALUE", &options_.sets,
                 "Set a parameter; may be repeated. \"trovik type TYPE\" lists them");
  }
  VerbOptions& json(const char* description = "Print JSON") {
    return flag("--json", options_.json, description);
  }
  static constexpr const char* jobDescription = "Number of a job, or \"last\" for the newest";

private:
  Verb& verb_;
  Options& options_;
};

void declareTypeVerbs(CommandForm& program, Options& options) {
  VerbOptions(program, options, typeVerbs, "types", "Lists the job types.")
      .flag("--all", options.all, "Also those that are switched off")
      .json();
  VerbOptions(program, options, typeVerbs, "type",
              "Describes a job type: its parameters as a form groups them, and its commands.")
      .type()
      .flag("--all", options.all, "Also what is hidden from forms")
      .json("Print JSON, with the flags of each parameter");
  VerbOptions(program, options, typeVerbs, "detect",
              "Shows what would be filled in for a scene: the sequence that it belongs to and what "
              "the type's rules add.")
      .type()
      .argument("SCENE", "SCENE", &options.scene, "The scene file")
      .json();
  VerbOptions(program, options, typeVerbs, "find",
              "Shows the program that jobs of a type run, and where it was found.")
      .type()
      .json();
}

void declareWritingVerbs(CommandForm& program, Options& options) {
  VerbOptions(program, options, writingVerbs, "new",
              "Writes a job type for a program: asks for what it needs at a terminal, else takes the options "
              "and what is usual.")
      .argument("NAME", "NAME", &options.type, "What the type is called")
      .value("--program", "PROGRAM", &options.program,
             "A path, or a name along PATH; the name of the type by default")
      .value("--scene", "ARGUMENTS", &options.scene,
             "How the program is told its scene, SCENE in its place; or none. SCENE by default")
      .value("--frames", "ARGUMENTS", &options.frames,
             "How it is told its frames: FIRST and LAST, or FRAME, in their places; files for a scene file "
             "each; or none. files by default")
      .value("--output", "ARGUMENTS", &options.output,
             "How it is told what to write: OUTPUT for the file, or FOLDER and NAME; or none. -o OUTPUT by "
             "default")
      .value("--extension", "TEXT", &options.extension, "The extension of OUTPUT; png by default")
      .value("--image-text", "TEXT", &options.imageText,
             "What it prints before the name of each file it wrote")
      .value("--error", "TEXT", &options.errors, "How a line begins that tells an error; may be repeated")
      .value("--success", "TEXT", &options.success,
             "How a line begins that ends every good run; may be repeated")
      .value("--out", "FILE", &options.file,
             "The file, its folder, or - for standard output; by default among your own types")
      .letter('o')
      .flag("--force", options.force, "Replace the file")
      .flag("--yes", options.yes, "Ask nothing")
      .letter('y')
      .json();
  VerbOptions(program, options, writingVerbs, "check",
              "Finds everything that is wrong or doubtful in type files.")
      .argument("FILE", "[FILE...]", &options.files,
                "Type files, directories of them, or - for standard input; all of the module path by default")
      .value("--name", "FILE", &options.name, "The name of what standard input holds, for messages")
      .flag("--strict", options.strict, "Warnings count as errors")
      .flag("--no-programs", options.noPrograms, "Do not look for the programs on this machine")
      .json();
  VerbOptions(program, options, writingVerbs, "replay",
              "Judges a saved log by the rules of a type, as a run would: what became of each line "
              "and by which text, the images, the verdict and the note.")
      .argument("TYPE", "TYPE", &options.type,
                "Name, alias or ID of a job type, or the path of its .tvx file")
      .argument("LOG", "LOG", &options.log, "The saved output of the program; - for standard input")
      .value("--exit", "N", &options.exit,
             "How the program ended: its exit code, 0 by default, or a signal such as SIGKILL")
      .flag("--all", options.all, "Show every line, not only those that a text of the type speaks of")
      .flag("--files", options.lookAtFiles, "Look at the files as well")
      .value("--scene", "SCENE", &options.scene, "The scene that the log is of")
      .value("--range", "FRAMES", &options.range, "The frames that the log is of, such as 7-9")
      .value("--out", "DIR", &options.out, "The folder that the program wrote to")
      .sets()
      .json();
}

/// What makes a job: the same for the verb that works it off at once and the
/// one that leaves it to an engine.
void addMaking(VerbOptions& verb, Options& options) {
  verb.type()
      .argument("SCENE", "[SCENE]", &options.scene, "The scene file, or any one of a numbered sequence")
      .sets()
      .value("--range", "FRAMES", &options.range, "The frames; those of the sequence found by default")
      .value("--packet", "N", &options.packet, "Frames that one start of the program renders")
      .value("--out", "DIR", &options.out, "The folder for what the program writes; made where it is missing")
      .value("--log-dir", "DIR", &options.logDirectory, "The folder for the logs of this job")
      .flag("--missing", options.missing, "Only the frames without a good file")
      .flag("--new", options.fresh, "A job of its own even if the same one is unfinished")
      .value("--engine", "ENGINE", &options.engine,
             "Where its works run: local, or slurm for a cluster; local by default")
      .value("--shared", "DIR", &options.shared,
             "With Slurm: the folder that this machine and all nodes see, for what they tell each other")
      .value("--priority", "N", &options.priority,
             "Jobs with a higher one are worked off first; 50 by default")
      .value("--on-end", "COMMAND", &options.endCommand, "Command to start when the job has ended")
      .flag("--notify", options.notify, "A note on the desktop when the job has ended")
      .flag("--dry-run", options.dryRun, "Start nothing; print each command as text for a shell");
}

void declareWorkVerbs(CommandForm& program, Options& options) {
  VerbOptions run(program, options, workVerbs, "run",
                  "Works off a job here: finds the scene's sequence, splits its frames, runs the "
                  "program for them and judges what it did.");
  addMaking(run, options);
  run.value("--slots", "N", &options.slots,
            "Programs that run at the same time; by default what the CPUs carry")
      .json("Print events as JSON, one a line, the summary last");
  VerbOptions submit(program, options, workVerbs, "submit",
                     "Puts a job into the queue, for an engine to work off.");
  addMaking(submit, options);
  submit.json();
  VerbOptions(program, options, workVerbs, "engine", "Works off the queue on this machine.")
      .value("--slots", "N", &options.slots,
             "Programs that run at the same time; by default what the CPUs carry")
      .value("--job", "JOB", &options.job, "Only this job: its number, or \"last\" for the newest")
      .flag("--until-empty", options.untilEmpty, "End when no work is left, instead of waiting for more")
      .json("Print events as JSON, one a line");
}

void declareReadingVerbs(CommandForm& program, Options& options) {
  VerbOptions(program, options, jobVerbs, "jobs", "Lists the jobs, the newest last.")
      .flag("--all", options.all, "All of them, not only the last 20")
      .value("--limit", "N", &options.limit, "The last N jobs")
      .json();
  VerbOptions(program, options, jobVerbs, "show",
              "Tells how a job stands, why its frames failed, and what to do next.")
      .job()
      .json();
  VerbOptions(program, options, jobVerbs, "log",
              "Shows what the program said: the lines that decided, and the last ones.")
      .job()
      .argument("FRAME", "[FRAME]", &options.frame, "A frame of the job")
      .value("--attempt", "N", &options.attempt, "The attempt by its number; the last by default")
      .flag("--all", options.all, "Print the whole log, byte for byte in a pipe")
      .json();
  VerbOptions(program, options, jobVerbs, "images",
              "Lists a job's files in the order of their frames, a path a line.")
      .job()
      .flag("--missing", options.missing, "The frames without a good file, instead")
      .json();
  VerbOptions(program, options, jobVerbs, "watch", "Follows a job, whichever engine works on it, to its end.")
      .job()
      .json("Print events as JSON, one a line, the summary last");
  VerbOptions(program, options, jobVerbs, "stats",
              "Tells the times of frames, what retries cost, and how the slots were used.")
      .argument("JOB", "[JOB]", &options.job, VerbOptions::jobDescription)
      .json();
  VerbOptions(program, options, jobVerbs, "sheet",
              "Draws a job's images on one contact sheet, with the holes marked.")
      .job()
      .value("--out", "FILE", &options.file, "The image to write")
      .letter('o')
      .value("--width", "N", &options.width,
             "The width of each image in pixels; by default what suits their number")
      .value("--columns", "N", &options.columns, "Images in a row; by default what suits their number")
      .value("--frames", "FRAMES", &options.frames, "Only these frames")
      .json();
}

void declareSteeringVerbs(CommandForm& program, Options& options) {
  VerbOptions(program, options, jobVerbs, "retry", "Has works done again.")
      .jobs()
      .value("--frames", "FRAMES", &options.frames, "Only these frames, good ones too")
      .flag("--missing", options.missing, "The frames without a good file, as a look at the files tells")
      .json();
  VerbOptions(program, options, jobVerbs, "cancel", "Ends jobs: their programs are asked to end.")
      .jobs()
      .json();
  VerbOptions(program, options, jobVerbs, "delete", "Removes jobs from the queue; images stay.")
      .jobs()
      .json();
}

void declareTaskVerb(CommandForm& program, Options& options) {
  VerbOptions(program, options, hiddenVerbs, "task",
              "Works one task of an array job: what the batch script of a cluster starts on a node.")
      .argument("FOLDER", "DIR", &options.folder, "The array job's folder")
      .value("--index", "N", &options.index, "The task, from 0 on; by default SLURM_ARRAY_TASK_ID");
}

} // namespace

bool Argument::takesValue() const {
  return !form.empty();
}

bool Argument::mayRepeat() const {
  return std::holds_alternative<std::vector<std::string>*>(target) || std::holds_alternative<int*>(target);
}

const Verb* CommandForm::find(const std::string& name) const {
  const auto found =
      std::find_if(verbs.begin(), verbs.end(), [&](const Verb& verb) { return verb.name == name; });
  return found == verbs.end() ? nullptr : &*found;
}

CommandForm declareVerbs(Options& options, std::string& helpVerb) {
  CommandForm form;
  form.program.description = "Runs render jobs whose types are described by small text files.";
  form.verbs.reserve(32); // VerbOptions refers to its verb
  addCommon(form.program.arguments, options, true);
  declareTypeVerbs(form, options);
  declareWritingVerbs(form, options);
  declareWorkVerbs(form, options);
  declareReadingVerbs(form, options);
  declareSteeringVerbs(form, options);
  declareTaskVerb(form, options);
  form.verbs.push_back({"help",
                        "Help",
                        "Explains a verb.",
                        {{"--help", 'h', "", "Show this help", commonGroup, ShowHelp()},
                         {"VERB", 0, "[VERB]", "The verb", {}, &helpVerb}}});
  return form;
}

} // namespace trovik
