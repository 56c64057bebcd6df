#include "trovik/reports/AttemptText.h"

#include "host/application/jobs/NoteText.h"
#include "host/foundation/LineSplitter.h"
#include "trovik/records/Moments.h"
#include "trovik/records/RunSet.h"
#include "trovik/reports/UsageText.h"
#include "trovik/text/LogTail.h"
#include "trovik/works/LogFile.h"
#include "trovik/works/RunLogs.h"

#include <algorithm>

namespace trovik {
namespace {

constexpr std::size_t chunk = std::size_t{64} << 10;

} // namespace

std::string titleOf(const AttemptRecord& attempt, bool hasFrames) {
  return hasFrames ? runText(attempt.run) : "work";
}

std::optional<std::size_t> decidingLine(const AttemptRecord& attempt) {
  std::optional<std::size_t> best;
  std::size_t length = 0;
  for (std::size_t i = 0; i < attempt.lines.size(); ++i) {
    const String quoted = NoteText(attempt.lines[i]);
    // An error line decides where it stands first, what the program said last
    // where it stands last.
    const bool better =
        quoted.size() > length || (quoted.size() == length && attempt.rule != VerdictRule::ErrorLine);
    if (!quoted.empty() && better && attempt.reason.find(quoted) != std::string::npos) {
      best = i;
      length = quoted.size();
    }
  }
  return best;
}

std::string ruleText(VerdictRule rule) {
  switch (rule) {
  case VerdictRule::None:
    break;
  case VerdictRule::Canceled:
    return "canceled";
  case VerdictRule::RunTimeLimit:
    return "the limit of its run time";
  case VerdictRule::SilenceLimit:
    return "the limit of its silence";
  case VerdictRule::Start:
    return "the program could not be started";
  case VerdictRule::ErrorLine:
    return "an error line";
  case VerdictRule::Signal:
    return "death by a signal";
  case VerdictRule::Result:
    return "success texts, else the exit code";
  case VerdictRule::Files:
    return "the check of its files";
  case VerdictRule::Engine:
    return "its engine died";
  case VerdictRule::Cluster:
    return "the cluster ended it";
  }
  return "none yet";
}

Path logOf(const AttemptRecord& attempt, const JobRecord& job) {
  if (!attempt.log.empty()) {
    return Path(attempt.log);
  }
  if (attempt.state != AttemptState::Running || job.logs.empty()) {
    return {};
  }
  return logFile(job, attempt);
}

Duration timeOf(const AttemptRecord& attempt, Moment now) {
  return attempt.state == AttemptState::Running ? between(attempt.started, now)
                                                : durationOf(attempt.duration);
}

LogEnd readLogEnd(const Path& log) {
  LogEnd end;
  const LogFile file(log);
  if (!file.isThere()) {
    return end;
  }
  end.there = true;
  end.bytes = file.size();
  const std::int64_t begin = std::max<std::int64_t>(0, end.bytes - static_cast<std::int64_t>(chunk));
  std::string buffer(chunk, '\0');
  std::size_t count = file.read(begin, buffer);
  std::string_view text(buffer.data(), count);
  if (begin > 0) { // the first line is only the end of one
    text.remove_prefix(std::min(text.find('\n') + 1, text.size()));
  }
  LogTail tail;
  LineSplitter splitter([&tail](std::string_view line) { tail.add(line); });
  splitter.Feed(text);
  splitter.Finish();
  end.lines = tail.lines();
  return end;
}

Json attemptJson(const JobRecord& job, const AttemptRecord& attempt, const LogEnd& end, Moment now) {
  const auto deciding = decidingLine(attempt);
  Json json;
  json["frames"] = job.hasFrames ? Json(runText(attempt.run)) : Json(nullptr);
  json["attempt"] = attempt.number;
  json["state"] = nameOf(attempt.state);
  json["rule"] = attempt.rule == VerdictRule::None ? Json(nullptr) : Json(nameOf(attempt.rule));
  json["reason"] = textOrNull(attempt.reason);
  json["lines"] = attempt.lines;
  json["deciding"] = deciding ? Json(attempt.lines[*deciding]) : Json(nullptr);
  json["good"] = job.hasFrames ? Json(attempt.good.text()) : Json(nullptr);
  json["command"] = textOrNull(attempt.command);
  json["exitCode"] = attempt.state == AttemptState::Running ? Json(nullptr) : Json(attempt.exitCode);
  json["signal"] = attempt.signal == 0 ? Json(nullptr) : Json(attempt.signal);
  json["started"] = secondsOf(attempt.started);
  json["seconds"] = secondsOf(timeOf(attempt, now));
  json["usage"] = usageJson(attempt.usage);
  json["log"] = end.there ? Json(logOf(attempt, job).Text()) : Json(nullptr);
  json["bytes"] = end.bytes;
  json["last"] = end.lines;
  return json;
}

bool printLog(Console& console, const Path& log) {
  const LogFile file(log);
  if (!file.isThere()) {
    return false;
  }
  std::string buffer(chunk, '\0');
  std::int64_t position = 0;
  std::string line; // of a terminal: not yet shown
  const auto show = [&](bool ends) {
    console.print(console.shown(line) + (ends ? "\n" : ""));
    line.clear();
  };
  while (const std::size_t count = file.read(position, buffer)) {
    position += static_cast<std::int64_t>(count);
    std::string_view bytes(buffer.data(), count);
    if (!console.traits().terminal) {
      console.print(bytes);
      continue;
    }
    while (!bytes.empty()) {
      const std::size_t end = bytes.find('\n');
      line += bytes.substr(0, end);
      if (end != std::string_view::npos) {
        show(true);
      } else if (line.size() > chunk) {
        show(false);
      }
      bytes.remove_prefix(end == std::string_view::npos ? bytes.size() : end + 1);
    }
  }
  if (!line.empty()) {
    show(true);
  }
  return true;
}

} // namespace trovik
