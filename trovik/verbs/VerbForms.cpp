#include "trovik/verbs/Verbs.h"

namespace trovik {
namespace {

constexpr const char* typeVerbs = "Job types";
constexpr const char* writingVerbs = "Job types of your own";
constexpr const char* workVerbs = "Rendering";
constexpr const char* jobVerbs = "Jobs";
constexpr const char* hiddenVerbs = ""; // help does not list them

/// Whether a verb works with job types, or with the queue alone.
enum class Types { Needed, NotNeeded };

/// One verb with the function that does it.
template <typename Options>
VerbForm<Options> declare(CommandForm& form, const char* group, const char* name,
                          int (*function)(Session& session, const Options& options), Types types,
                          const char* description) {
  VerbForm<Options> verb(form, group, name, description, group == workVerbs || group == jobVerbs);
  verb.calls([=](Console& console, const Options& options) {
    Session session(options, console);
    if (types == Types::Needed) {
      session.loadModules();
    }
    return function(session, options);
  });
  return verb;
}

void declareTypeVerbs(CommandForm& form) {
  declare(form, typeVerbs, "types", listTypes, Types::Needed, "Lists the job types.")
      .flag("--all", &TypesOptions::all, "Also those that are switched off")
      .json();
  declare(form, typeVerbs, "type", describeType, Types::Needed,
          "Describes a job type: its parameters as a form groups them, and its commands.")
      .type()
      .flag("--all", &TypeOptions::all, "Also what is hidden from forms")
      .json("Print JSON, with the flags of each parameter");
  declare(form, typeVerbs, "detect", detectScene, Types::Needed,
          "Shows what would be filled in for a scene: the sequence that it belongs to and what "
          "the type's rules add.")
      .type()
      .argument("SCENE", "SCENE", &DetectOptions::scene, "The scene file", {"needs a scene file", {}})
      .sets()
      .json();
  declare(form, typeVerbs, "find", findProgram, Types::Needed,
          "Shows the program that jobs of a type run, and where it was found.")
      .type()
      .json();
}

void declareWritingVerbs(CommandForm& form) {
  declare(form, writingVerbs, "new", makeType, Types::Needed,
          "Writes a job type for a program: asks for what it needs at a terminal, else takes the options "
          "and what is usual.")
      .argument("NAME", "NAME", &NewOptions::type, "What the type is called",
                {"needs a name for the type", "such as trovik new Sketch", true})
      .value("--program", "PROGRAM", &NewOptions::program,
             "A path, or a name along PATH; the name of the type by default")
      .value("--scene", "ARGUMENTS", &NewOptions::scene,
             "How the program is told its scene, SCENE in its place; or none. SCENE by default")
      .value("--frames", "ARGUMENTS", &NewOptions::frames,
             "How it is told its frames: FIRST and LAST, or FRAME, in their places; files for a scene file "
             "each; or none. files by default")
      .value("--output", "ARGUMENTS", &NewOptions::output,
             "How it is told what to write: OUTPUT for the file, or FOLDER and NAME; or none. -o OUTPUT by "
             "default")
      .value("--extension", "TEXT", &NewOptions::extension, "The extension of OUTPUT; png by default")
      .value("--image-text", "TEXT", &NewOptions::imageText,
             "What it prints before the name of each file it wrote")
      .value("--error", "TEXT", &NewOptions::errors, "How a line begins that tells an error; may be repeated")
      .value("--success", "TEXT", &NewOptions::success,
             "How a line begins that ends every good run; may be repeated")
      .value("--out", "FILE", &NewOptions::file,
             "The file, its folder, or - for standard output; by default among your own types")
      .letter('o')
      .flag("--force", &NewOptions::force, "Replace the file")
      .flag("--yes", &NewOptions::yes, "Ask nothing")
      .letter('y')
      .json();
  declare(form, writingVerbs, "check", checkTypes, Types::NotNeeded,
          "Finds everything that is wrong or doubtful in type files.")
      .argument("FILE", "[FILE...]", &CheckOptions::files,
                "Type files, directories of them, or - for standard input; all of the module path by default")
      .value("--name", "FILE", &CheckOptions::name, "The name of what standard input holds, for messages")
      .flag("--strict", &CheckOptions::strict, "Warnings count as errors")
      .flag("--no-programs", &CheckOptions::noPrograms, "Do not look for the programs on this machine")
      .json();
  declare(form, writingVerbs, "replay", replayLog, Types::NotNeeded,
          "Judges a saved log by the rules of a type, as a run would: what became of each line "
          "and by which text, the images, the verdict and the note.")
      .argument("TYPE", "TYPE", &ReplayOptions::type,
                "Name, alias or ID of a job type, or the path of its .tvx file",
                VerbForm<ReplayOptions>::neededType())
      .argument("LOG", "LOG", &ReplayOptions::log, "The saved output of the program; - for standard input",
                {"needs a saved log, or - for standard input", {}})
      .value("--exit", "N", &ReplayOptions::exit,
             "How the program ended: its exit code, 0 by default, or a signal such as SIGKILL")
      .flag("--all", &ReplayOptions::all, "Show every line, not only those that a text of the type speaks of")
      .flag("--files", &ReplayOptions::checkFiles, "Check the files as well")
      .value("--scene", "SCENE", &ReplayOptions::scene, "The scene that the log is of")
      .value("--range", "FRAMES", &ReplayOptions::range, "The frames that the log is of, such as 7-9")
      .value("--out", "DIR", &ReplayOptions::out, "The folder that the program wrote to")
      .sets()
      .json();
}

/// What makes a job: the same for the verb that works it off at once and the
/// one that leaves it to an engine.
template <typename Options> void addMaking(VerbForm<Options>& verb) {
  verb.type()
      .argument("SCENE", "[SCENE]", &MakingOptions::scene,
                "The scene file, or any one of a numbered sequence")
      .sets()
      .value("--range", "FRAMES", &MakingOptions::range, "The frames; those of the sequence found by default")
      .value("--packet", "N", &MakingOptions::packet,
             "Frames that one start of the program renders; auto: as many as suit")
      .value("--out", "DIR", &MakingOptions::out,
             "The folder for what the program writes; made where it is missing")
      .value("--log-dir", "DIR", &MakingOptions::logDirectory, "The folder for the logs of this job")
      .flag("--missing", &MakingOptions::missing, "Only the frames without a good file")
      .flag("--verify", &MakingOptions::verify,
            "With --missing: check every file again, also those known to be good")
      .flag("--new", &MakingOptions::fresh,
            "Render all in a new job, also where one of this command is not done")
      .value("--engine", "ENGINE", &MakingOptions::engine,
             "Where its works run: local, or slurm for a cluster; local by default")
      .value("--shared", "DIR", &MakingOptions::shared,
             "With Slurm: the folder that this machine and all nodes see, for what they tell each other")
      .value("--priority", "N", &MakingOptions::priority,
             "Jobs with a higher one are worked off first; 50 by default")
      .value("--after", "JOB", &MakingOptions::after,
             "Begin when these jobs are good: JOB[,JOB]; may be repeated")
      .value("--after-frames", "JOB", &MakingOptions::afterFrames,
             "Begin each frame when that frame of the job is good; JOB:-1..1 waits for its neighbours too")
      .value("--on-end", "COMMAND", &MakingOptions::endCommand, "Command to start when the job has ended")
      .flag("--notify", &MakingOptions::notify, "A note on the desktop when the job has ended")
      .flag("--dry-run", &MakingOptions::dryRun, "Start nothing; print each command as text for a shell");
}

void declareWorkVerbs(CommandForm& form) {
  VerbForm<RunOptions> run =
      declare(form, workVerbs, "run", runJob, Types::Needed,
              "Works off a job here: finds the scene's sequence, splits its frames, runs the "
              "program for them and judges what it did.");
  addMaking(run);
  run.value("--slots", "N", &RunOptions::slots,
            "Programs that run at the same time; by default what the CPUs carry")
      .json("Print events as JSON, one a line, the summary last");
  VerbForm<MakingOptions> submit = declare(form, workVerbs, "submit", submitJob, Types::Needed,
                                           "Puts a job into the queue, for an engine to work off.");
  addMaking(submit);
  submit.json();
  declare(form, workVerbs, "engine", runEngine, Types::Needed, "Works off the queue on this machine.")
      .value("--slots", "N", &EngineOptions::slots,
             "Programs that run at the same time; by default what the CPUs carry")
      .value("--job", "JOB", &EngineOptions::job, "Only this job: its number, or \"last\" for the newest")
      .flag("--until-empty", &EngineOptions::untilEmpty,
            "End when no work is left, instead of waiting for more")
      .json("Print events as JSON, one a line");
}

void declareReadingVerbs(CommandForm& form) {
  declare(form, jobVerbs, "jobs", listJobs, Types::NotNeeded, "Lists the jobs, the newest last.")
      .flag("--all", &JobsOptions::all, "All of them, not only the last 20")
      .value("--limit", "N", &JobsOptions::limit, "The last N jobs")
      .flag("--wide", &JobsOptions::wide, "Also what programs used, the priority and the output folder")
      .json();
  declare(form, jobVerbs, "show", showJob, Types::NotNeeded,
          "Tells how a job stands, why its frames failed, and what to do next.")
      .job()
      .json();
  declare(form, jobVerbs, "log", showLog, Types::NotNeeded,
          "Shows what the program said: the lines that decided, and the last ones.")
      .job()
      .argument("FRAME", "[FRAME]", &LogOptions::frame, "A frame of the job")
      .value("--attempt", "N", &LogOptions::attempt, "The attempt by its number; the last by default")
      .flag("--all", &LogOptions::all, "Print the whole log, byte for byte in a pipe")
      .json();
  declare(form, jobVerbs, "images", listImages, Types::NotNeeded,
          "Lists a job's files in the order of their frames, a path a line.")
      .job()
      .flag("--missing", &ImagesOptions::missing, "The frames without a good file, instead")
      .flag("--verify", &ImagesOptions::verify, "Check every file again, also those known to be good")
      .json();
  declare(form, jobVerbs, "watch", watchJob, Types::NotNeeded,
          "Follows a job, whichever engine works on it, to its end.")
      .job()
      .json("Print events as JSON, one a line, the summary last");
  declare(form, jobVerbs, "stats", showStats, Types::NotNeeded,
          "Tells what frames took and used, what retries cost, and how the slots were used.")
      .argument("JOB", "[JOB]", &StatsOptions::job, VerbForm<JobOptions>::jobDescription)
      .flag("--csv", &StatsOptions::csv, "A line for each attempt as comma-separated values, instead")
      .json();
  declare(form, jobVerbs, "sheet", drawSheet, Types::NotNeeded,
          "Draws a job's images on one contact sheet, with the holes marked.")
      .job()
      .value("--out", "FILE", &SheetOptions::file, "The image to write",
             {"needs the name of the image to write", "such as -o sheet.png"})
      .letter('o')
      .value("--width", "N", &SheetOptions::width,
             "The width of each image in pixels; by default what suits their number")
      .value("--columns", "N", &SheetOptions::columns, "Images in a row; by default what suits their number")
      .value("--frames", "FRAMES", &SheetOptions::frames, "Only these frames")
      .flag("--verify", &SheetOptions::verify, "Check every file again, also those known to be good")
      .json();
  declare(form, jobVerbs, "page", servePage, Types::NotNeeded,
          "Shows the queue in a browser: every frame as it appears. Prints the address; Ctrl-C ends it.")
      .value("--port", "N", &PageOptions::port, "The port; by default the first that is free from 7780 on")
      .flag("--open", &PageOptions::open, "Open it in your browser")
      .flag("--read-only", &PageOptions::readOnly, "Only show: nothing can be steered from it")
      .value("--listen", "ADDRESS", &PageOptions::listen,
             "Serve other machines as well, at this address of yours; only this one by default")
      .json("Print the address as JSON");
}

void declareSteeringVerbs(CommandForm& form) {
  declare(form, jobVerbs, "retry", retryJobs, Types::NotNeeded, "Has works done again.")
      .jobs()
      .chosenJobs()
      .value("--frames", "FRAMES", &RetryOptions::frames, "Only these frames, good ones too")
      .flag("--missing", &RetryOptions::missing, "The frames without a good file, as the files are now")
      .flag("--verify", &RetryOptions::verify,
            "With --missing: check every file again, also those known to be good")
      .json();
  declare(form, jobVerbs, "hold", holdJobs, Types::NotNeeded,
          "Holds jobs: what runs goes on to its end, nothing new begins.")
      .jobs()
      .chosenJobs()
      .dryRun()
      .json();
  declare(form, jobVerbs, "set", setJobs, Types::NotNeeded,
          "Changes jobs that are in the queue: Priority, Retries, StopAfter, SlotsAtMost, Limits, Memory, "
          "PacketSize.")
      .argument("JOB", "JOB... NAME=VALUE...", &EachJobOptions::jobs,
                "Numbers of jobs, or \"last\" for the newest, and what is to change")
      .chosenJobs()
      .dryRun()
      .json();
  declare(form, jobVerbs, "release", releaseJobs, Types::NotNeeded,
          "Lets jobs go: those that were held or stopped, and those that wait for others.")
      .jobs()
      .chosenJobs()
      .dryRun()
      .json();
  declare(form, jobVerbs, "cancel", cancelJobs, Types::NotNeeded,
          "Ends jobs: their programs are asked to end.")
      .jobs()
      .chosenJobs()
      .dryRun()
      .flag("--with-followers", &CancelOptions::withFollowers, "And the jobs that wait for them")
      .json();
  declare(form, jobVerbs, "delete", deleteJobs, Types::NotNeeded, "Removes jobs from the queue; images stay.")
      .jobs()
      .chosenJobs()
      .json();
}

void declareHiddenVerbs(CommandForm& form) {
  declare(form, hiddenVerbs, "page-helper", helpPage, Types::NotNeeded,
          "Answers the questions of a page, which starts it.");
  declare(form, hiddenVerbs, "task", runTask, Types::NotNeeded,
          "Works one task of an array job: what the batch script of a cluster starts on a node.")
      .argument("FOLDER", "DIR", &TaskOptions::folder, "The array job's folder",
                {"needs the folder of an array job", {}})
      .value("--index", "N", &TaskOptions::index, "The task, from 0 on; by default SLURM_ARRAY_TASK_ID");
}

} // namespace

CommandForm allVerbs() {
  CommandForm form("Runs render jobs whose types are described by small text files.");
  declareTypeVerbs(form);
  declareWritingVerbs(form);
  declareWorkVerbs(form);
  declareReadingVerbs(form);
  declareSteeringVerbs(form);
  declareHiddenVerbs(form);
  form.addHelp();
  return form;
}

} // namespace trovik
