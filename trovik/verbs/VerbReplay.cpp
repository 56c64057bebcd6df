#include "host/foundation/Descriptor.h"
#include "trovik/images/ImageHelper.h"
#include "trovik/jobs/JobSetup.h"
#include "trovik/jobs/SceneSequence.h"
#include "trovik/jobs/Types.h"
#include "trovik/jobs/WorkMaker.h"
#include "trovik/machine/Locations.h"
#include "trovik/replay/ReplayText.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/EngineRun.h"
#include "trovik/verbs/Verbs.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace trovik {
namespace {

constexpr std::size_t logPieceSize = std::size_t{256} << 10;

/// A log that is read from its beginning to its end: a file, a pipe, or
/// standard input for "-".
class SavedLog {
public:
  explicit SavedLog(const std::string& name) : name_(name) {
    if (name == "-") {
      return;
    }
    file_.Reset(open(name.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file_.IsOpen()) {
      const int error = errno;
      throw UsageError{error == ENOENT ? "there is no log " + inQuotes(name) : problem(error),
                       "name the file that holds the program's output, or - for standard input"};
    }
    struct stat facts {};
    if (fstat(file_.Number(), &facts) == 0 && S_ISDIR(facts.st_mode)) {
      throw UsageError{inQuotes(name) + " is a folder", "name one log in it"};
    }
  }

  void feed(Replay& replay) const {
    const int descriptor = file_.IsOpen() ? file_.Number() : STDIN_FILENO;
    std::string buffer(logPieceSize, '\0');
    while (true) {
      const ssize_t got = read(descriptor, buffer.data(), buffer.size());
      if (got == 0) {
        return;
      }
      if (got < 0 && errno != EINTR) {
        throw UsageError{problem(errno), {}};
      }
      if (got > 0) {
        replay.feed(std::string_view(buffer).substr(0, static_cast<std::size_t>(got)));
      }
    }
  }

private:
  std::string problem(int error) const {
    return "the log " + inQuotes(name_) + " cannot be read: " + std::system_category().message(error);
  }

  std::string name_;
  Descriptor file_; // none for standard input
};

void setUp(JobSetup& setup, const ReplayOptions& options) {
  if (options.scene) {
    setup.setScene(Path(*options.scene).TranslateToLocal().Text()); // a job's files are translated anyway
  }
  setup.setAll(options.sets);
  if (options.out) {
    setup.setOutputFolder(*options.out);
  }
  setup.detect();
}

/// The frames of the one start of the program that the log is of: those that
/// the user names, else the one that the picked scene of a sequence has.
WorkInfo workOf(const Job& job, const ReplayOptions& options) {
  WorkInfo work;
  work.hasFrames = false;
  if (options.range) {
    const std::vector<FrameRun> runs = orRefuse("--range: ", "", [&] {
      return FrameSet::Parse(String(*options.range)).Split(static_cast<int>(FrameSet::k_CountLimit));
    });
    if (runs.size() != 1) {
      throw UsageError{"--range: " + inQuotes(*options.range) + " is not one run of frames",
                       "a log is of one start of the program: name its frames as FIRST-LAST"};
    }
    work.run = runs.front();
    work.hasFrames = true;
    return work;
  }
  const String format = job.GetParameterOrOption(sceneNameFormat, true, true);
  if (format.empty()) {
    return work;
  }
  const String scene = job.GetParameterOrOption(p_Scene, true, true);
  const FrameSet frames = FrameSet::Parse(job.GetParameterOrOption(p_Range, true, true));
  for (const int frame : frames.Frames()) {
    if (sequenceScene(format, frame).Text() == scene) {
      work.run = {frame, frame};
      work.hasFrames = true;
      break;
    }
  }
  return work;
}

/// Whether TYPE names a type's file instead of a type that is known.
bool isTypeFile(const std::string& type) {
  return type.find('/') != std::string::npos || String(type).Lower().ends_with(".tvx");
}

int replayAs(Session& session, const UID& type, const ReplayOptions& options) {
  ReplayFacts facts;
  facts.type = typeTitle(type);
  facts.typeId = UID(type).GenString();
  facts.log = *options.log;
  facts.exit = exitFrom(options.exit.value_or("0"));
  facts.exitTold = options.exit.has_value();
  facts.files = options.checkFiles;

  JobSetup setup(type, session.detection());
  setUp(setup, options);
  const WorkInfo work = workOf(*setup.job(), options);
  facts.frames = work.hasFrames ? runText(work.run) : std::string();

  std::optional<ImageHelper> inspector;
  if (options.checkFiles) {
    inspector.emplace(imageHelper(session));
  }
  const SavedLog log(*options.log);
  const std::unique_ptr<ReplayPrinter> printer =
      options.json ? replayJson(session.console(), facts) : replayText(session.console(), facts, options.all);
  Replay replay(WorkMaker(*setup.job()).make(work),
                [&printer](const ReplayedLine& line) { printer->line(line); });
  log.feed(replay);
  LocalMachine machine;
  const ReplayResult result = replay.finish(facts.exit, inspector ? &*inspector : nullptr, machine);
  printer->end(result);
  return result.good ? exitGood : exitFailed;
}

/// A file that is being written is tried as it is, wherever it lies.
int replayAsFile(Session& session, const Path& file, const ReplayOptions& options) {
  struct stat facts {};
  if (stat(file.c_str(), &facts) != 0 || !S_ISREG(facts.st_mode)) {
    throw UsageError{"there is no type file " + inQuotes(file.Text()),
                     "\"trovik types\" lists the types that are known by name"};
  }
  std::optional<int> code;
  const auto replay = [&](const UID& type) { code = replayAs(session, type, options); };
  if (!session.loadLibraries().TryTypeFile(file, replay) || !code) {
    throw UsageError{inQuotes(file.Text()) + " is no job type",
                     "it needs a section [Module] with an ID, see \"trovik check\""};
  }
  return *code;
}

} // namespace

int replayLog(Session& session, const ReplayOptions& options) {
  const std::string& type = *options.type;
  if (isTypeFile(type)) {
    return replayAsFile(session, absolutePath(type), options);
  }
  session.loadModules();
  return replayAs(session, findType(type), options);
}

} // namespace trovik
