#include "host/foundation/WholeNumber.h"
#include "trovik/queue/JobView.h"
#include "trovik/records/Moments.h"
#include "trovik/reports/AttemptText.h"
#include "trovik/reports/UsageText.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/ClusterRun.h"
#include "trovik/verbs/Session.h"
#include "trovik/verbs/Verbs.h"

#include <algorithm>

namespace trovik {
namespace {

constexpr std::size_t failuresShown = 5;

/// The attempts to show, and the frames of those that were left out.
struct Chosen {
  std::vector<AttemptRecord> attempts;
  RunSet more;
  std::size_t moreWorks = 0;
};

int frameIn(const std::string& text) {
  const auto frame = ReadWholeNumber<int>(text);
  if (!frame) {
    throw UsageError{inQuotes(text) + " is not the number of a frame",
                     "one frame is wanted, such as 17; see \"trovik log --help\""};
  }
  return *frame;
}

std::string jobText(const JobView& view) {
  return "job " + std::to_string(view.job.id);
}

/// The attempt by its number, or the last of those.
AttemptRecord numbered(std::vector<AttemptRecord> attempts, const LogOptions& options,
                       const std::string& what) {
  if (options.attempt) {
    const std::size_t number = positiveNumber("--attempt", *options.attempt, 1'000'000'000);
    std::string known;
    std::optional<AttemptRecord> found;
    for (AttemptRecord& attempt : attempts) {
      known += (known.empty() ? "" : ", ") + std::to_string(attempt.number);
      if (attempt.number == static_cast<int>(number)) {
        found = std::move(attempt);
      }
    }
    if (!found) {
      throw UsageError{what + " had no attempt " + std::to_string(number),
                       "its attempts are " + cutToWidth(known, 60)};
    }
    return std::move(*found);
  }
  return std::move(attempts.back());
}

AttemptRecord attemptAt(const JobView& view, std::vector<AttemptRecord> attempts, const LogOptions& options) {
  const std::string job = jobText(view);
  if (!view.job.hasFrames) {
    throw UsageError{job + " has no frames", "leave the frame out: \"trovik log " +
                                                 std::to_string(view.job.id) + "\" shows its work"};
  }
  const int frame = frameIn(*options.frame);
  const std::string what = "frame " + std::to_string(frame) + " of " + job;
  const RunSet all = allFrames(view.frames);
  if (!all.contains(frame)) {
    throw UsageError{job + " has no frame " + std::to_string(frame), "its frames are " + all.text(10)};
  }
  std::erase_if(attempts, [&](const AttemptRecord& attempt) {
    return frame < attempt.run.First || frame > attempt.run.Last;
  });
  if (attempts.empty()) {
    throw UsageError{what + (view.frames.good.contains(frame) ? " was good before; nothing was started for it"
                                                              : " was not started yet"),
                     "\"trovik show " + std::to_string(view.job.id) + "\" tells how the job stands"};
  }
  return numbered(std::move(attempts), options, what);
}

Chosen choose(Queue& queue, const JobView& view, const LogOptions& options) {
  std::vector<AttemptRecord> attempts = queue.attempts(view.job.id);
  Chosen chosen;
  if (options.frame) {
    chosen.attempts.push_back(attemptAt(view, std::move(attempts), options));
    return chosen;
  }
  if (attempts.empty()) {
    throw UsageError{"nothing of " + jobText(view) + " was started yet",
                     "\"trovik show " + std::to_string(view.job.id) + "\" tells how it stands"};
  }
  if (options.attempt) {
    if (view.job.hasFrames) {
      throw UsageError{"--attempt needs a frame", "such as \"trovik log " + std::to_string(view.job.id) +
                                                      ' ' + std::to_string(attempts.back().run.First) +
                                                      " --attempt 1\""};
    }
    chosen.attempts.push_back(numbered(std::move(attempts), options, jobText(view)));
    return chosen;
  }
  std::map<AttemptId, const AttemptRecord*> byId;
  for (const AttemptRecord& attempt : attempts) {
    byId[attempt.id] = &attempt;
  }
  for (const WorkRecord& work : queue.works(view.job.id, WorkState::Failed)) {
    const auto place = byId.find(work.attempt);
    if (place == byId.end()) {
      continue;
    }
    if (chosen.attempts.size() < failuresShown) {
      chosen.attempts.push_back(*place->second);
    } else {
      chosen.more.add(work.run);
      ++chosen.moreWorks;
    }
  }
  if (chosen.attempts.empty()) {
    chosen.attempts.push_back(std::move(attempts.back()));
  }
  return chosen;
}

Colour colourOf(AttemptState state) {
  switch (state) {
  case AttemptState::Good:
    return Colour::Green;
  case AttemptState::Failed:
    return Colour::Red;
  case AttemptState::Running:
    return Colour::Bold;
  case AttemptState::Canceled:
  case AttemptState::Lost:
    break;
  }
  return Colour::Yellow;
}

std::string entry(const char* label, const std::string& text) {
  return padded(label, 9) + text + '\n';
}

/// What stands above the lines of a log: the verdict, its reason, the command. A
/// command of a hundred scenes would push all else from a terminal, so it is
/// cut there unless `all` is wanted.
std::string headText(const Console& console, const JobView& view, const AttemptRecord& attempt, Moment now,
                     bool all) {
  std::string text = console.coloured(colourOf(attempt.state), nameOf(attempt.state)) + "  " +
                     titleOf(attempt, view.job.hasFrames) + "  " + jobText(view) + ", attempt " +
                     std::to_string(attempt.number) + ", started " + momentText(attempt.started) +
                     (attempt.state == AttemptState::Running ? ", for " : ", took ") +
                     durationText(timeOf(attempt, now)) + '\n';
  if (!attempt.reason.empty()) {
    text += entry("reason", console.shown(attempt.reason));
  }
  if (attempt.rule != VerdictRule::None) {
    text += entry("rule", ruleText(attempt.rule));
  }
  if (!attempt.good.empty() && attempt.state != AttemptState::Good) {
    text += entry("good", attempt.good.text(20));
  }
  if (!attempt.command.empty()) {
    const std::string command = console.shown(attempt.command);
    text += entry("command",
                  console.traits().terminal && !all ? cutToWidth(command, 4 * console.width()) : command);
  }
  if (attempt.signal != 0) {
    text += entry("ended", "by signal " + std::to_string(attempt.signal));
  } else if (attempt.state == AttemptState::Failed && attempt.rule != VerdictRule::Start &&
             attempt.rule != VerdictRule::Cluster) {
    text += entry("ended", "with exit code " + std::to_string(attempt.exitCode));
  }
  if (attempt.usage) {
    text += entry("used", usageText(*attempt.usage));
  }
  const auto deciding = decidingLine(attempt);
  for (std::size_t i = 0; i < attempt.lines.size(); ++i) {
    const std::string line = console.shown(attempt.lines[i]);
    text += i == deciding ? console.coloured(Colour::Red, "  > " + line) + '\n'
                          : console.coloured(Colour::Faint, "  | " + line) + '\n';
  }
  return text;
}

/// Where the whole log is, and its last lines unless they stand above already.
std::string logText(const Console& console, const AttemptRecord& attempt, const Path& log, const LogEnd& end,
                    bool all) {
  if (log.empty() || (!end.there && attempt.state == AttemptState::Running)) {
    return entry("log", attempt.state == AttemptState::Running ? "it has printed nothing yet"
                                                               : "it printed nothing");
  }
  if (!end.there) {
    return entry("log", console.shown(log.Text()) + "  (cannot be read)");
  }
  std::string text = entry("log", console.shown(log.Text()) + "  " + std::to_string(end.bytes) + " bytes");
  const bool known = !attempt.lines.empty() && !end.lines.empty() && attempt.lines.back() == end.lines.back();
  if (!all && !known) {
    for (const std::string& line : end.lines) {
      text += "  | " + console.shown(line) + '\n';
    }
  }
  return text;
}

} // namespace

int showLog(Session& session, const LogOptions& options) {
  Console& console = session.console();
  if (options.all && options.json) {
    throw UsageError{"--all and --json exclude each other", "the JSON form tells where the whole log is"};
  }
  const std::unique_ptr<Queue> queue = collectedQueue(session);
  JobRecord job = findJob(queue.get(), *options.job);
  const JobView view = viewOf(*queue, std::move(job));
  const Chosen chosen = choose(*queue, view, options);
  const Moment now = momentNow();
  if (options.json) {
    Json document = jsonOfKind("log");
    document["job"] = view.job.id;
    document["attempts"] = Json::array();
    for (const AttemptRecord& attempt : chosen.attempts) {
      document["attempts"].push_back(
          attemptJson(view.job, attempt, readLogEnd(logOf(attempt, view.job)), now));
    }
    document["more"] = view.job.hasFrames ? Json(chosen.more.text()) : Json(nullptr);
    console.print(jsonDocument(document));
    return exitGood;
  }
  bool first = true;
  for (const AttemptRecord& attempt : chosen.attempts) {
    const Path log = logOf(attempt, view.job);
    const LogEnd end = readLogEnd(log);
    console.print((first ? "" : "\n") + headText(console, view, attempt, now, options.all) +
                  logText(console, attempt, log, end, options.all));
    if (options.all && end.there) {
      printLog(console, log);
    }
    first = false;
  }
  if (chosen.moreWorks > 0) {
    std::string text = "\nand " + counted(chosen.moreWorks, "more failed work");
    if (!chosen.more.empty()) {
      text += ": " + chosen.more.text(20) + "; name one to see it";
    }
    console.print(text + '\n');
  }
  return exitGood;
}

} // namespace trovik
