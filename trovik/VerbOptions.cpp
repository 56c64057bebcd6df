#include "trovik/VerbOptions.h"

#include "trovik/HelpFooters.h"
#include "trovik/Options.h"
#include "trovik/Text.h"
#include "trovik/UsageError.h"

#include <CLI/CLI.hpp>

#include <map>
#include <string_view>

namespace trovik {
namespace {

constexpr const char* commonGroup = "Common options";
constexpr const char* ownGroup = "Options";
constexpr std::string_view typeVerbs = "Job types";
constexpr std::string_view writingVerbs = "Job types of your own";
constexpr std::string_view workVerbs = "Rendering";
constexpr std::string_view jobVerbs = "Jobs";
constexpr std::string_view hiddenVerbs; // help does not list them

enum class Queue { Used, NotUsed };

/// The options that every verb takes, and those about the queue.
void addCommon(CLI::App& app, Options& options, Queue queue) {
  if (queue == Queue::Used) {
    app.add_option("--state", options.state, "Directory of the queue and its logs")
        ->type_name("DIR")
        ->group(commonGroup);
  }
  app.add_option("--module-path", options.modulePath,
                 "Directories of modules and types, between colons; an empty one stands for the usual ones")
      ->type_name("DIRS")
      ->group(commonGroup);
  app.add_option("--settings", options.settings, "File of this installation's settings")
      ->type_name("FILE")
      ->group(commonGroup);
  app.add_option("--options", options.options, "File of the engine's options for each type")
      ->type_name("FILE")
      ->group(commonGroup);
  app.add_flag("-v,--verbose", options.verbosity, "Say more; twice for what helps to find faults")
      ->disable_flag_override()
      ->group(commonGroup);
  const std::map<std::string, ColourChoice> choices = {
      {"auto", ColourChoice::Auto}, {"always", ColourChoice::Always}, {"never", ColourChoice::Never}};
  app.add_option_function<std::string>(
         "--color",
         [&options, choices](const std::string& text) {
           const auto choice = choices.find(text);
           if (choice == choices.end()) {
             throw UsageError{"--color: " + inQuotes(text) + " is none of auto, always and never",
                              "leave it out for colours on terminals only"};
           }
           options.colour = choice->second;
         },
         "auto, always or never")
      ->type_name("WHEN")
      ->group(commonGroup);
  app.set_help_flag("-h,--help", "Show this help")->group(commonGroup);
  app.set_version_flag("--version", std::string("trovik ") + TROVIK_VERSION, "Show the version")
      ->group(commonGroup);
}

/// One verb being declared.
class VerbOptions {
public:
  VerbOptions(CLI::App& program, Options& options, std::string_view group, const char* name,
              const char* description)
      : verb_(*program.add_subcommand(name, description)), options_(options) {
    verb_.group(std::string(group));
    verb_.footer(helpFooter(name));
    verb_.allow_extras();
    const bool usesQueue = group == workVerbs || group == jobVerbs;
    addCommon(verb_, options, usesQueue ? Queue::Used : Queue::NotUsed);
  }

  /// An argument by its place, shown as `form` ("JOB", "[SCENE]") in the usage.
  template <typename Target>
  VerbOptions& argument(const char* name, const char* form, Target& target, const char* description) {
    verb_.add_option(name, target, description)->type_name(form);
    return *this;
  }
  VerbOptions& value(const char* name, const char* form, std::optional<std::string>& target,
                     const char* description) {
    verb_.add_option(name, target, description)->type_name(form)->group(ownGroup);
    return *this;
  }
  VerbOptions& flag(const char* name, bool& target, const char* description) {
    verb_.add_flag(name, target, description)->disable_flag_override()->group(ownGroup);
    return *this;
  }

  VerbOptions& type() {
    return argument("TYPE", "TYPE", options_.type, "Name, alias or ID of a job type, in any case");
  }
  VerbOptions& job() { return argument("JOB", "JOB", options_.job, jobDescription); }
  VerbOptions& jobs() { return argument("JOB", "JOB...", options_.jobs, jobDescription); }
  VerbOptions& sets() {
    return values("--set", "NAME=VALUE", options_.sets,
                  "Set a parameter; may be repeated. \"trovik type TYPE\" lists them");
  }
  VerbOptions& json(const char* description = "Print JSON") {
    return flag("--json", options_.json, description);
  }
  /// An option that may stand several times.
  VerbOptions& values(const char* name, const char* form, std::vector<std::string>& target,
                      const char* description) {
    verb_.add_option(name, target, description)->type_name(form)->allow_extra_args(false)->group(ownGroup);
    return *this;
  }
  static constexpr const char* jobDescription = "Number of a job, or \"last\" for the newest";

private:
  CLI::App& verb_;
  Options& options_;
};

void declareTypeVerbs(CLI::App& program, Options& options) {
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
      .argument("SCENE", "SCENE", options.scene, "The scene file")
      .json();
  VerbOptions(program, options, typeVerbs, "find",
              "Shows the program that jobs of a type run, and where it was found.")
      .type()
      .json();
}

void declareWritingVerbs(CLI::App& program, Options& options) {
  VerbOptions(program, options, writingVerbs, "new",
              "Writes a job type for a program: asks for what it needs at a terminal, else takes the options "
              "and what is usual.")
      .argument("NAME", "NAME", options.type, "What the type is called")
      .value("--program", "PROGRAM", options.program,
             "A path, or a name along PATH; the name of the type by default")
      .value("--scene", "ARGUMENTS", options.scene,
             "How the program is told its scene, SCENE in its place; or none. SCENE by default")
      .value("--frames", "ARGUMENTS", options.frames,
             "How it is told its frames: FIRST and LAST, or FRAME, in their places; files for a scene file "
             "each; or none. files by default")
      .value("--output", "ARGUMENTS", options.output,
             "How it is told what to write: OUTPUT for the file, or FOLDER and NAME; or none. -o OUTPUT by "
             "default")
      .value("--extension", "TEXT", options.extension, "The extension of OUTPUT; png by default")
      .value("--image-text", "TEXT", options.imageText,
             "What it prints before the name of each file it wrote")
      .values("--error", "TEXT", options.errors, "How a line begins that tells an error; may be repeated")
      .values("--success", "TEXT", options.success,
              "How a line begins that ends every good run; may be repeated")
      .value("-o,--out", "FILE", options.file,
             "The file, its folder, or - for standard output; by default among your own types")
      .flag("--force", options.force, "Replace the file")
      .flag("-y,--yes", options.yes, "Ask nothing")
      .json();
  VerbOptions(program, options, writingVerbs, "check",
              "Finds everything that is wrong or doubtful in type files.")
      .argument("FILE", "[FILE...]", options.files,
                "Type files, directories of them, or - for standard input; all of the module path by default")
      .value("--name", "FILE", options.name, "The name of what standard input holds, for messages")
      .flag("--strict", options.strict, "Warnings count as errors")
      .flag("--no-programs", options.noPrograms, "Do not look for the programs on this machine")
      .json();
  VerbOptions(program, options, writingVerbs, "replay",
              "Judges a saved log by the rules of a type, as a run would: what became of each line "
              "and by which text, the images, the verdict and the note.")
      .argument("TYPE", "TYPE", options.type, "Name, alias or ID of a job type, or the path of its .tvx file")
      .argument("LOG", "LOG", options.log, "The saved output of the program; - for standard input")
      .value("--exit", "N", options.exit,
             "How the program ended: its exit code, 0 by default, or a signal such as SIGKILL")
      .flag("--all", options.all, "Show every line, not only those that a text of the type speaks of")
      .flag("--files", options.lookAtFiles, "Look at the files as well")
      .value("--scene", "SCENE", options.scene, "The scene that the log is of")
      .value("--range", "FRAMES", options.range, "The frames that the log is of, such as 7-9")
      .value("--out", "DIR", options.out, "The folder that the program wrote to")
      .sets()
      .json();
}

/// What makes a job: the same for the verb that works it off at once and the
/// one that leaves it to an engine.
void addMaking(VerbOptions& verb, Options& options) {
  verb.type()
      .argument("SCENE", "[SCENE]", options.scene, "The scene file, or any one of a numbered sequence")
      .sets()
      .value("--range", "FRAMES", options.range, "The frames; those of the sequence found by default")
      .value("--packet", "N", options.packet, "Frames that one start of the program renders")
      .value("--out", "DIR", options.out, "The folder for what the program writes; made where it is missing")
      .value("--log-dir", "DIR", options.logDirectory, "The folder for the logs of this job")
      .flag("--missing", options.missing, "Only the frames without a good file")
      .flag("--new", options.fresh, "A job of its own even if the same one is unfinished")
      .value("--engine", "ENGINE", options.engine,
             "Where its works run: local, or slurm for a cluster; local by default")
      .value("--shared", "DIR", options.shared,
             "With Slurm: the folder that this machine and all nodes see, for what they tell each other")
      .value("--priority", "N", options.priority,
             "Jobs with a higher one are worked off first; 50 by default")
      .value("--on-end", "COMMAND", options.endCommand, "Command to start when the job has ended")
      .flag("--notify", options.notify, "A note on the desktop when the job has ended")
      .flag("--dry-run", options.dryRun, "Start nothing; print each command as text for a shell");
}

void declareWorkVerbs(CLI::App& program, Options& options) {
  VerbOptions run(program, options, workVerbs, "run",
                  "Works off a job here: finds the scene's sequence, splits its frames, runs the "
                  "program for them and judges what it did.");
  addMaking(run, options);
  run.value("--slots", "N", options.slots,
            "Programs that run at the same time; by default what the CPUs carry")
      .json("Print events as JSON, one a line, the summary last");
  VerbOptions submit(program, options, workVerbs, "submit",
                     "Puts a job into the queue, for an engine to work off.");
  addMaking(submit, options);
  submit.json();
  VerbOptions(program, options, workVerbs, "engine", "Works off the queue on this machine.")
      .value("--slots", "N", options.slots,
             "Programs that run at the same time; by default what the CPUs carry")
      .value("--job", "JOB", options.job, "Only this job: its number, or \"last\" for the newest")
      .flag("--until-empty", options.untilEmpty, "End when no work is left, instead of waiting for more")
      .json("Print events as JSON, one a line");
}

void declareReadingVerbs(CLI::App& program, Options& options) {
  VerbOptions(program, options, jobVerbs, "jobs", "Lists the jobs, the newest last.")
      .flag("--all", options.all, "All of them, not only the last 20")
      .value("--limit", "N", options.limit, "The last N jobs")
      .json();
  VerbOptions(program, options, jobVerbs, "show",
              "Tells how a job stands, why its frames failed, and what to do next.")
      .job()
      .json();
  VerbOptions(program, options, jobVerbs, "log",
              "Shows what the program said: the lines that decided, and the last ones.")
      .job()
      .argument("FRAME", "[FRAME]", options.frame, "A frame of the job")
      .value("--attempt", "N", options.attempt, "The attempt by its number; the last by default")
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
      .argument("JOB", "[JOB]", options.job, VerbOptions::jobDescription)
      .json();
  VerbOptions(program, options, jobVerbs, "sheet",
              "Draws a job's images on one contact sheet, with the holes marked.")
      .job()
      .value("-o,--out", "FILE", options.file, "The image to write")
      .value("--width", "N", options.width,
             "The width of each image in pixels; by default what suits their number")
      .value("--columns", "N", options.columns, "Images in a row; by default what suits their number")
      .value("--frames", "FRAMES", options.frames, "Only these frames")
      .json();
}

void declareSteeringVerbs(CLI::App& program, Options& options) {
  VerbOptions(program, options, jobVerbs, "retry", "Has works done again.")
      .jobs()
      .value("--frames", "FRAMES", options.frames, "Only these frames, good ones too")
      .flag("--missing", options.missing, "The frames without a good file, as a look at the files tells")
      .json();
  VerbOptions(program, options, jobVerbs, "cancel", "Ends jobs: their programs are asked to end.")
      .jobs()
      .json();
  VerbOptions(program, options, jobVerbs, "delete", "Removes jobs from the queue; images stay.")
      .jobs()
      .json();
}

void declareTaskVerb(CLI::App& program, Options& options) {
  VerbOptions(program, options, hiddenVerbs, "task",
              "Works one task of an array job: what the batch script of a cluster starts on a node.")
      .argument("FOLDER", "DIR", options.folder, "The array job's folder")
      .value("--index", "N", options.index, "The task, from 0 on; by default SLURM_ARRAY_TASK_ID");
}

} // namespace

bool isListed(const CLI::App* verb) {
  return !verb->get_group().empty();
}

void declareVerbs(CLI::App& program, Options& options, std::string& helpVerb) {
  addCommon(program, options, Queue::Used);
  declareTypeVerbs(program, options);
  declareWritingVerbs(program, options);
  declareWorkVerbs(program, options);
  declareReadingVerbs(program, options);
  declareSteeringVerbs(program, options);
  declareTaskVerb(program, options);

  CLI::App& help = *program.add_subcommand("help", "Explains a verb.");
  help.add_option("VERB", helpVerb, "The verb")->type_name("[VERB]");
  help.set_help_flag("-h,--help", "Show this help")->group(commonGroup);
  help.allow_extras();
  help.footer(helpFooter("help"));
  help.group("Help");
}

} // namespace trovik
