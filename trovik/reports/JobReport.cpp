#include "trovik/reports/JobReport.h"

#include "host/foundation/Bytes.h"
#include "trovik/progress/ProgressText.h"
#include "trovik/records/Moments.h"
#include "trovik/reports/AttemptText.h"
#include "trovik/reports/ForerunnerText.h"
#include "trovik/reports/UsageText.h"
#include "trovik/text/Text.h"
#include "trovik/works/FilesNow.h"

#include <algorithm>
#include <set>

namespace trovik {
namespace {

constexpr std::size_t attemptsShown = 20;
constexpr std::size_t labelWidth = 11;

/// "label      text".
std::string entry(const Console& console, const std::string& label, const std::string& text,
                  Colour colour = Colour::Plain) {
  return console.coloured(colour, padded(label, labelWidth)) + text + '\n';
}

std::string framesEntry(const Console& console, const char* label, const RunSet& frames, Colour colour) {
  return frames.empty() ? std::string() : entry(console, label, frames.text(rangesShown), colour);
}

std::string countsText(const Console& console, const JobView& view) {
  const std::string noun = view.job.hasFrames ? "frame" : "work";
  std::string text = std::to_string(view.good()) + " of " + counted(view.total(), noun) + " good";
  const auto add = [&](std::size_t count, const char* what, Colour colour) {
    if (count > 0) {
      text += ", " + console.coloured(colour, std::to_string(count) + ' ' + what);
    }
  };
  add(view.failed(), "failed", Colour::Red);
  add(view.canceled(), "canceled", Colour::Yellow);
  add(view.running(), "running", Colour::Bold);
  add(view.ready(), isOpen(view.job.state) ? "waiting" : "not done", Colour::Yellow);
  if (view.waiting() > 0 && isOpen(view.job.state)) {
    text += " (" + (view.waiting() == view.ready() ? std::string() : std::to_string(view.waiting()) + ' ') +
            "for other jobs)";
  }
  return text;
}

std::string timesText(const JobRecord& job, Moment now) {
  std::string text = momentText(job.created) + " (" + ageText(job.created, now) + " ago)";
  if (job.started && job.ended) {
    text += ", took " + durationText(between(*job.started, *job.ended));
  } else if (job.started) {
    text += ", first work " + ageText(*job.started, now) + " ago";
  }
  return text;
}

std::string failureText(const Console& console, const JobReport& report, const JobReport::Failure& failure) {
  const std::string frames = report.view.job.hasFrames ? failure.group.frames.text(rangesShown) : "work";
  std::string text = console.coloured(Colour::Red, "failed") + "  " + frames + "  " +
                     console.shown(failure.group.reason) + '\n';
  // A reason quotes what decided, but cuts what is long.
  if (failure.attempt) {
    const auto line = decidingLine(*failure.attempt);
    if (line && failure.group.reason.find(failure.attempt->lines[*line]) == std::string::npos) {
      text += "  | " + console.shown(failure.attempt->lines[*line]) + '\n';
    }
  }
  return text;
}

std::string runningText(const Console& console, const JobReport& report, Moment now) {
  std::string text;
  const auto shown = std::min(report.running.size(), attemptsShown);
  for (std::size_t i = 0; i < shown; ++i) {
    const auto& [attempt, files] = report.running[i];
    std::string line = titleOf(attempt, report.view.job.hasFrames) + "  for " +
                       durationText(timeOf(attempt, now)) +
                       (report.cluster ? runningOnCluster(*report.cluster, attempt.id, now)
                                       : ", on engine " + std::to_string(attempt.engine));
    if (attempt.number > 1) {
      line += ", attempt " + std::to_string(attempt.number);
    }
    if (files > 0) {
      line += ", " + counted(files, "file") + " so far";
    }
    text += entry(console, i == 0 ? "running" : "", line, Colour::Bold);
  }
  if (report.running.size() > shown) {
    text += entry(console, "", "and " + std::to_string(report.running.size() - shown) + " more");
  }
  return text;
}

std::string lostText(const Console& console, const JobReport& report) {
  if (report.lost.empty()) {
    return {};
  }
  RunSet frames;
  for (const AttemptRecord& attempt : report.lost) {
    frames.add(attempt.run);
  }
  return entry(console, "lost",
               counted(report.lost.size(), "attempt") + " with the engine" +
                   (report.view.job.hasFrames ? ", at " + frames.text(rangesShown) : std::string()),
               Colour::Yellow);
}

std::string limitsText(const Console& console, const JobReport& report) {
  std::string text;
  for (const auto& [share, stand] : report.limits) {
    std::string what = share.amount == 1 ? std::string() : std::to_string(share.amount) + " of ";
    what += console.shown(share.name);
    what += stand.name.empty()
                ? std::string(" (without a limit in this queue)")
                : " (" + std::to_string(stand.taken) + " of " + std::to_string(stand.amount) + " taken)";
    text += entry(console, text.empty() ? "limits" : "", what);
  }
  return text;
}

/// What it waits for, and what waits for it.
std::string forerunnersText(const Console& console, const JobReport& report) {
  std::string text;
  for (const ForerunnerStand& stand : report.view.forerunners) {
    const std::string remedy = remedyText(stand, report.view.job.id);
    text += entry(console, text.empty() ? "after" : "",
                  standText(stand) + (remedy.empty() ? std::string() : ": " + remedy),
                  stand.isStuck() ? Colour::Yellow : Colour::Plain);
  }
  if (!report.followers.empty()) {
    text += entry(console, "followers", jobsText(report.followers));
  }
  return text;
}

std::vector<Advice> adviceFor(const JobReport& report) {
  const JobView& view = report.view;
  const std::string id = std::to_string(view.job.id);
  std::vector<Advice> advice;
  if (!view.job.own && isOpen(view.job.state)) {
    return {{"trovik retry " + id, "make it your own, if you know what it starts: it is not this queue's"}};
  }
  if (view.failed() > 0) {
    std::string frame;
    if (view.job.hasFrames && !view.frames.failed.empty()) {
      const int first = view.frames.failed.runs().front().First;
      frame = (first < 0 ? " -- " : " ") + std::to_string(first);
    }
    advice.push_back({"trovik log " + id + frame, "what the program said"});
  }
  if (!report.gone.empty() && !isOpen(view.job.state)) {
    advice.push_back({"trovik retry " + id + " --missing" +
                          (report.engine ? std::string() : " && trovik engine --job " + id),
                      "render again what is gone"});
  }
  for (Advice& one : adviceOn({view.job.id, view.job.state, view.failed() > 0, view.canceled() > 0,
                               view.job.runOn == RunOn::Cluster, view.job.blocked, report.engine})) {
    advice.push_back(std::move(one));
  }
  return advice;
}

std::string adviceText(const Console& console, const JobReport& report) {
  const std::vector<Advice> advice = adviceFor(report);
  std::size_t width = 0;
  for (const Advice& one : advice) {
    width = std::max(width, one.command.size());
  }
  std::string text;
  for (std::size_t i = 0; i < advice.size(); ++i) {
    text += entry(console, i == 0 ? "next" : "", padded(advice[i].command, width) + "  " + advice[i].what);
  }
  return text;
}

} // namespace

std::optional<Duration> timeLeft(Queue& queue, const JobView& view) {
  const std::vector<AttemptId> running = queue.runningAttempts(view.job.id);
  if (running.empty()) {
    return std::nullopt;
  }
  std::vector<TimedFrames> times;
  queue.eachTime(view.job.id, [&](AttemptId /*id*/, const AttemptTime& time) {
    if (time.state == AttemptState::Good) {
      const auto frames = view.job.hasFrames ? std::max<std::int64_t>(1, time.run.Count()) : std::int64_t{1};
      times.push_back({durationOf(time.duration) / frames, static_cast<std::size_t>(frames)});
    }
  });
  if (times.empty()) {
    return std::nullopt;
  }
  std::set<EngineId> engines;
  for (const AttemptId id : running) {
    if (const std::optional<AttemptRecord> attempt = queue.attempt(id)) {
      engines.insert(attempt->engine);
    }
  }
  std::size_t slots = 0;
  for (const EngineId engine : engines) {
    slots += queue.slots(engine);
  }
  // Of what runs a half is done, as far as anybody knows.
  const double begun = 0.5 * static_cast<double>(running.size());
  const std::size_t left = view.ready() + view.running();
  return timeFor(static_cast<double>(left) - begun, medianTime(std::move(times)), std::min(slots, left));
}

JobReport reportOn(Queue& queue, JobRecord job, ImageInspector& inspector) {
  const JobId id = job.id;
  JobReport report;
  report.view = viewOf(queue, std::move(job));
  report.usage = queue.usage(id);
  report.followers = queue.followers(id, false);
  if (const std::vector<LimitShare> takes = queue.takes(id); !takes.empty()) {
    const std::vector<LimitStand> stands = queue.limits();
    for (const LimitShare& share : takes) {
      const auto stand = std::find_if(stands.begin(), stands.end(),
                                      [&](const LimitStand& one) { return one.name == share.name; });
      report.limits.emplace_back(share, stand == stands.end() ? LimitStand() : *stand);
    }
  }
  report.engine = queue.hasOtherEngine(0);
  if (report.view.job.runOn == RunOn::Cluster) {
    report.cluster = clusterReport(queue, report.view.job);
    report.engine = true; // the cluster itself
  }
  RunSummary summary = queue.summary(id);
  const FilesNow now = filesNow(queue, report.view, Decode::Changed, inspector);
  for (const JobFile& file : now.files) {
    if (isGood(file)) {
      ++report.images[Path(file.path).Branch(true, true)];
    }
  }
  report.gone = without(report.view.frames.good, without(report.view.frames.good, now.missing));

  std::map<std::string, AttemptRecord> byReason;
  std::map<AttemptId, std::size_t> files;
  JobPrograms programs(report.view.job.hasFrames);
  queue.eachAttempt(id, [&](AttemptRecord&& attempt) {
    programs.add(attempt);
    if (attempt.state == AttemptState::Running && attempt.begun) {
      files[attempt.id] = 0;
      report.running.push_back({std::move(attempt), 0});
    } else if (attempt.state == AttemptState::Failed) {
      std::string reason = attempt.reason;
      byReason.insert_or_assign(std::move(reason), std::move(attempt));
    } else if (attempt.state == AttemptState::Lost) {
      report.lost.push_back(std::move(attempt));
    }
  });
  if (!files.empty()) {
    for (const FileRecord& file : queue.files(id)) {
      if (const auto place = files.find(file.attempt); place != files.end()) {
        ++place->second;
      }
    }
    for (JobReport::Running& running : report.running) {
      running.files = files[running.attempt.id];
    }
  }
  for (FailureGroup& group : summary.failures) {
    JobReport::Failure failure;
    if (const auto place = byReason.find(group.reason); place != byReason.end()) {
      failure.attempt = std::move(place->second);
    }
    failure.group = std::move(group);
    report.failures.push_back(std::move(failure));
  }
  report.programs = programs.shares();
  report.left = timeLeft(queue, report.view);
  return report;
}

std::string reportText(const Console& console, const JobReport& report, Moment now) {
  const JobView& view = report.view;
  const JobRecord& job = view.job;
  std::string text = console.coloured(Colour::Bold, "job " + std::to_string(job.id)) + "  " +
                     console.coloured(colourOf(shownState(view)), nameOf(shownState(view))) + "  " +
                     console.shown(titleOf(job)) + '\n';
  if (!job.note.empty() && (job.state == JobState::Stopped || report.failures.empty())) {
    text += entry(console, "why", console.shown(job.note));
  }
  text += entry(console, "type", console.shown(job.typeName));
  if (!job.scene.empty()) {
    text += entry(console, "scene", console.shown(job.scene));
  }
  if (!job.range.empty()) {
    text += entry(console, "range", console.shown(job.range));
  }
  text += entry(console, "submitted", timesText(job, now));
  if (job.priority != 50) {
    text += entry(console, "priority", std::to_string(job.priority));
  }
  if (job.slotsAtMost > 0) {
    text += entry(console, "slots", std::to_string(job.slotsAtMost) + " at most");
  }
  if (job.packets.automatic) {
    text += entry(console, "packets", "as many frames as take " + durationText(job.packets.time));
  }
  if (job.memory > 0) {
    text += entry(console, "memory", std::string(BytesText(job.memory)) + " a work");
  }
  text += limitsText(console, report);
  text += entry(console, view.job.hasFrames ? "frames" : "work", countsText(console, view));
  if (job.hasFrames) {
    text += framesEntry(console, "good", view.frames.good, Colour::Green);
    if (!report.gone.empty()) {
      text += entry(console, "no longer", goneText(report.gone), Colour::Yellow);
    }
    text += framesEntry(console, "failed", view.frames.failed, Colour::Red);
    text += framesEntry(console, "canceled", view.frames.canceled, Colour::Yellow);
  }
  text += runningText(console, report, now);
  text += lostText(console, report);
  text += forerunnersText(console, report);
  if (job.hasFrames) {
    text +=
        framesEntry(console, isOpen(job.state) ? "waiting" : "not done", view.frames.ready, Colour::Yellow);
  }
  if (report.cluster) {
    for (const auto& [label, what] : clusterEntries(*report.cluster, now)) {
      text += entry(console, label, console.shown(what));
    }
  }
  if (report.left) {
    text += entry(console, "left", "about " + roughText(*report.left));
  }
  if (report.usage) {
    text += entry(console, "used", usageText(*report.usage));
  }
  if (report.programs.size() > 1) {
    text += entry(console, "programs", programsText(report.programs), Colour::Yellow);
  }
  for (const auto& [directory, count] : report.images) {
    text += entry(console, "images", std::to_string(count) + " in " + console.shown(directory));
  }
  text += entry(console, "logs", console.shown(job.logs));
  std::size_t shown = 0;
  for (const JobReport::Failure& failure : report.failures) {
    if (shown++ == reasonsShown) {
      text += "  and " + counted(report.failures.size() - reasonsShown, "further reason") + '\n';
      break;
    }
    text += failureText(console, report, failure);
  }
  return text + adviceText(console, report);
}

Json reportJson(const JobReport& report, Moment now) {
  Json document = jsonOfKind("job");
  document.update(jobJson(report.view, now));
  document["left"] = report.left ? Json(secondsOf(*report.left)) : Json(nullptr);
  document["engine"] = report.engine;
  document["running"] = Json::array();
  for (const auto& [attempt, files] : report.running) {
    document["running"].push_back(
        {{"frames", report.view.job.hasFrames ? Json(runText(attempt.run)) : Json(nullptr)},
         {"attempt", attempt.number},
         {"id", attempt.id},
         {"engine", attempt.engine},
         {"seconds", secondsOf(timeOf(attempt, now))},
         {"files", files},
         {"log", textOrNull(logOf(attempt, report.view.job).Text())}});
    if (report.cluster) {
      fillRunning(document["running"].back(), *report.cluster, attempt.id, now);
    }
  }
  document["lost"] = Json::array();
  for (const AttemptRecord& attempt : report.lost) {
    document["lost"].push_back(
        {{"frames", report.view.job.hasFrames ? Json(runText(attempt.run)) : Json(nullptr)},
         {"attempt", attempt.number},
         {"engine", attempt.engine},
         {"good", report.view.job.hasFrames ? Json(attempt.good.text()) : Json(nullptr)},
         {"reason", attempt.reason}});
  }
  document["usage"] = report.usage ? usageJson(report.usage) : Json(nullptr);
  document["followers"] = report.followers;
  document["slotsAtMost"] = report.view.job.slotsAtMost;
  const JobRecord& job = report.view.job;
  document["packetTime"] =
      job.packets.automatic ? Json(secondsOf(durationOf(job.packets.time))) : Json(nullptr);
  document["memory"] = {{"set", job.memory > 0 ? Json(job.memory) : Json(nullptr)},
                        {"seen", job.memorySeen > 0 ? Json(job.memorySeen) : Json(nullptr)}};
  document["limits"] = Json::array();
  for (const auto& [share, stand] : report.limits) {
    document["limits"].push_back({{"name", share.name},
                                  {"takes", share.amount},
                                  {"amount", stand.name.empty() ? Json(nullptr) : Json(stand.amount)},
                                  {"taken", stand.name.empty() ? Json(nullptr) : Json(stand.taken)}});
  }
  document["cluster"] = report.cluster ? clusterJson(*report.cluster, now) : Json(nullptr);
  document["failures"] = Json::array();
  for (const auto& [group, attempt] : report.failures) {
    const auto line = attempt ? decidingLine(*attempt) : std::nullopt;
    document["failures"].push_back(
        {{"frames", report.view.job.hasFrames ? Json(group.frames.text()) : Json(nullptr)},
         {"works", group.works},
         {"reason", group.reason},
         {"rule", attempt ? Json(nameOf(attempt->rule)) : Json(nullptr)},
         {"line", line ? Json(attempt->lines[*line]) : Json(nullptr)},
         {"log", textOrNull(group.log.Text())}});
  }
  document["programs"] = programsJson(report.view.job, report.programs);
  document["gone"] = report.view.job.hasFrames ? Json(report.gone.text()) : Json(nullptr);
  document["images"] = Json::array();
  for (const auto& [directory, count] : report.images) {
    document["images"].push_back({{"directory", directory}, {"count", count}});
  }
  return document;
}

} // namespace trovik
