#pragma once

#include "trovik/commandline/CommandForm.h"
#include "trovik/newtype/TypeAnswers.h"
#include "trovik/verbs/Session.h"

#include <optional>
#include <string>
#include <vector>

namespace trovik {

// What each verb can be given, and one function a verb. Each prints to the
// session's console and returns the program's exit code; what the user got
// wrong is thrown as UsageError.

struct TypesOptions : CommonOptions {
  bool all = false; ///< also those that are switched off
  bool json = false;
};
int listTypes(Session& session, const TypesOptions& options);

struct TypeOptions : CommonOptions {
  std::optional<std::string> type;
  bool all = false; ///< also what is hidden from forms
  bool json = false;
};
int describeType(Session& session, const TypeOptions& options);

struct DetectOptions : CommonOptions {
  std::optional<std::string> type;
  std::optional<std::string> scene;
  std::vector<std::string> sets; ///< NAME=VALUE, in their order
  bool json = false;
};
int detectScene(Session& session, const DetectOptions& options);

struct FindOptions : CommonOptions {
  std::optional<std::string> type;
  bool json = false;
};
int findProgram(Session& session, const FindOptions& options);

struct NewOptions : CommonOptions, GivenAnswers {
  std::optional<std::string> type; ///< what it is called
  std::optional<std::string> file; ///< to be written
  bool force = false;              ///< replace it
  bool yes = false;                ///< ask nothing
  bool json = false;
};
int makeType(Session& session, const NewOptions& options);

struct CheckOptions : CommonOptions {
  std::vector<std::string> files;
  std::optional<std::string> name; ///< of the text on standard input
  bool strict = false;             ///< warnings count as errors
  bool noPrograms = false;         ///< do not look for programs on this machine
  bool json = false;
};
int checkTypes(Session& session, const CheckOptions& options);

struct ReplayOptions : CommonOptions {
  std::optional<std::string> type;
  std::optional<std::string> log;  ///< "-" for standard input
  std::optional<std::string> exit; ///< how the program ended
  bool all = false;                ///< show every line
  bool checkFiles = false;         ///< at those that the log names, too
  std::optional<std::string> scene;
  std::optional<std::string> range;
  std::optional<std::string> out;
  std::vector<std::string> sets; ///< NAME=VALUE, in their order
  bool json = false;
};
int replayLog(Session& session, const ReplayOptions& options);

/// What makes a job.
struct MakingOptions : CommonOptions {
  std::optional<std::string> type;
  std::optional<std::string> scene;
  std::vector<std::string> sets; ///< NAME=VALUE, in their order
  std::optional<std::string> range;
  std::optional<std::string> packet;
  std::optional<std::string> out;
  std::optional<std::string> logDirectory;
  bool missing = false;              ///< only the frames without a good file
  bool verify = false;               ///< with that: decode files that are known to be good as well
  bool fresh = false;                ///< a new job even where the same one is unfinished
  std::optional<std::string> engine; ///< local or slurm
  std::optional<std::string> shared; ///< the folder that a cluster's nodes see as well
  std::optional<std::string> priority;
  std::vector<std::string> after;       ///< jobs that are to be good before, JOB[,JOB]
  std::vector<std::string> afterFrames; ///< the same frame by frame, JOB[:LOW[..HIGH]]
  std::optional<std::string> endCommand;
  bool notify = false;
  bool dryRun = false;
  bool json = false;
};
struct RunOptions : MakingOptions {
  std::optional<std::string> slots;
};
int runJob(Session& session, const RunOptions& options);
int submitJob(Session& session, const MakingOptions& options);

struct EngineOptions : CommonOptions {
  std::optional<std::string> slots;
  std::optional<std::string> job; ///< a number, or "last"
  bool untilEmpty = false;
  bool json = false;
};
int runEngine(Session& session, const EngineOptions& options);

struct JobsOptions : CommonOptions {
  bool all = false;
  bool wide = false; ///< with what programs used, and where the images are
  std::optional<std::string> limit;
  bool json = false;
};
int listJobs(Session& session, const JobsOptions& options);

/// One job, by its number or as "last".
struct JobOptions : CommonOptions {
  std::optional<std::string> job;
  bool json = false;
};
int showJob(Session& session, const JobOptions& options);
int watchJob(Session& session, const JobOptions& options);

struct PageOptions : CommonOptions {
  std::optional<std::string> port;
  std::optional<std::string> listen; ///< the address, in numbers
  bool open = false;                 ///< in the user's browser
  bool readOnly = false;
  bool json = false;
};
int servePage(Session& session, const PageOptions& options);
/// What the page starts: answers its questions.
int helpPage(Session& session, const CommonOptions& options);

/// Of all jobs where none is named.
struct StatsOptions : JobOptions {
  bool csv = false; ///< a line for each attempt, instead
};
int showStats(Session& session, const StatsOptions& options);

struct LogOptions : JobOptions {
  std::optional<std::string> frame;
  std::optional<std::string> attempt;
  bool all = false; ///< the whole log
};
int showLog(Session& session, const LogOptions& options);

struct ImagesOptions : JobOptions {
  bool missing = false; ///< the frames without a good file, instead
  bool verify = false;  ///< decode files that are known to be good as well
};
int listImages(Session& session, const ImagesOptions& options);

struct SheetOptions : JobOptions {
  std::optional<std::string> file; ///< to be written
  std::optional<std::string> width;
  std::optional<std::string> columns;
  std::optional<std::string> frames;
  bool verify = false; ///< decode files that are known to be good as well
};
int drawSheet(Session& session, const SheetOptions& options);

/// Several jobs, each as above, or all that are alike in some way.
struct EachJobOptions : CommonOptions {
  std::vector<std::string> jobs;
  std::optional<std::string> status;
  std::optional<std::string> type; ///< a pattern of its name, as the next
  std::optional<std::string> name;
  bool yes = false;    ///< ask nothing
  bool dryRun = false; ///< of verbs that only change the queue
  bool json = false;

  bool areChosen() const { return status || type || name; }
};
/// Its words with "=" are what is to change.
int setJobs(Session& session, const EachJobOptions& options);
int holdJobs(Session& session, const EachJobOptions& options);
int releaseJobs(Session& session, const EachJobOptions& options);
int deleteJobs(Session& session, const EachJobOptions& options);

struct CancelOptions : EachJobOptions {
  bool withFollowers = false; ///< and the jobs that wait for them
};
int cancelJobs(Session& session, const CancelOptions& options);

struct RetryOptions : EachJobOptions {
  std::optional<std::string> frames;
  bool missing = false; ///< those without a good file, as a check of the files tells
  bool verify = false;  ///< with that: decode files that are known to be good as well
};
int retryJobs(Session& session, const RetryOptions& options);

struct TaskOptions : CommonOptions {
  std::optional<std::string> folder; ///< of the array job
  std::optional<std::string> index;  ///< of the task
};
int runTask(Session& session, const TaskOptions& options);

/// All verbs, as help lists them.
CommandForm allVerbs();

/// What the shells ask: prints the candidates for the last word, one a line, a
/// tab before the description; ":files" or ":folders", a tab and what stands
/// before the name, where the shell has to look for files. Prints nothing
/// where anything is wrong: a shell that waits for a word is no place for
/// messages. Returns the exit code.
int completeWords(const std::vector<std::string>& words, Console& console);

} // namespace trovik
