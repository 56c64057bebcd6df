#include "trovik/progress/ProgressText.h"

#include "trovik/text/Text.h"

namespace trovik {
namespace {

std::string framesOrWork(const RunInfo& info, std::size_t count) {
  return info.hasFrames ? counted(count, "frame") : counted(count, "work");
}

/// "23 of 24 frames good, 1 failed", each piece through `paint`.
template <typename Paint> std::string countsText(const RunSummary& summary, Paint paint) {
  const bool frames = summary.info.hasFrames;
  const std::size_t good = frames ? summary.good.count() : summary.goodWorks;
  const std::size_t failed = frames ? summary.failed.count() : summary.failedWorks;
  const std::size_t notDone = frames ? summary.notDone.count() : summary.notDoneWorks;
  const std::size_t total = good + failed + notDone;
  std::string text = good == total ? (total == 1 ? framesOrWork(summary.info, 1)
                                                 : "all " + framesOrWork(summary.info, total))
                                   : std::to_string(good) + " of " + framesOrWork(summary.info, total);
  text = paint(summary.allGood() ? Colour::Green : Colour::Bold, text + " good");
  if (failed > 0) {
    text += ", " + paint(Colour::Red, std::to_string(failed) + " failed");
  }
  if (notDone > 0) {
    text += ", " + paint(Colour::Yellow, std::to_string(notDone) + " not done");
  }
  return text;
}

/// How to go on after a run that left something to do.
std::string restText(const RunSummary& summary) {
  const RunInfo& info = summary.info;
  if (info.job != 0) {
    const std::vector<Advice> advice =
        adviceOn({info.job, summary.state, summary.failedWorks > 0, summary.canceledWorks > 0, info.onCluster,
                  false, summary.engine});
    return advice.empty() ? std::string() : "To " + advice[0].what + ", give \"" + advice[0].command + "\"\n";
  }
  RunSet again = summary.failed;
  again.add(summary.notDone);
  if (again.empty() || summary.goodWorks == 0) {
    return {};
  }
  return "To do the rest, give the same command with --range " + again.text() + '\n';
}

} // namespace

std::string startText(const Console& console, const RunInfo& info) {
  std::string text = info.job == 0 ? std::string() : "job " + std::to_string(info.job) + "  ";
  text += console.coloured(Colour::Bold, console.shown(info.type)) + ": ";
  text += framesOrWork(info, info.frames);
  if (info.hasFrames) {
    text += " (" + cutToWidth(info.range, 60) + ")";
    if (info.works != info.frames && info.goodBefore == 0) {
      text += " in " + counted(info.works, "work");
    }
  }
  text += info.slots == 0 ? "\n" : " on " + counted(info.slots, "slot") + '\n';
  if (!info.scene.empty()) {
    text += "scene  " + console.shown(info.scene) + '\n';
  }
  if (info.goodBefore > 0) {
    text += framesOrWork(info, info.goodBefore) + (info.goodBefore == 1 ? " is" : " are") + " good already\n";
  }
  if (!info.logs.empty()) {
    text += "logs  " + console.shown(info.logs.Text()) + '\n';
  }
  return text;
}

std::string imageText(const Console& console, const Path& file) {
  return "image  " + console.shown(file.Text()) + '\n';
}

std::string goneText(const RunSet& frames) {
  return frames.text(rangesShown) + "  " + (frames.count() == 1 ? "its file is" : "their files are") +
         " gone, damaged or changed since";
}

std::vector<Advice> adviceOn(const RestOfJob& rest) {
  const std::string id = std::to_string(rest.job);
  const bool taken = rest.engine || rest.onCluster; // what is ready is taken by itself
  const bool open = isOpen(rest.state);
  std::vector<Advice> advice;
  std::string command;
  // An engine that is started for a job alone opens one that was stopped.
  if (rest.failed || rest.canceled || (rest.state == JobState::Stopped && taken)) {
    command = "trovik retry " + id;
  }
  if (rest.blocked && open && !taken) {
    advice.push_back({"trovik engine", "do what it waits for, then this"});
    return advice;
  }
  if (!taken && (!command.empty() || open || rest.state == JobState::Stopped)) {
    command += (command.empty() ? "" : " && ") + ("trovik engine --job " + id);
  }
  if (!command.empty()) {
    advice.push_back({command, "do the rest"});
  }
  if (open && taken) {
    advice.push_back({"trovik watch " + id, "follow it"});
  }
  return advice;
}

std::string failureText(const Console& console, const WorkInfo& work, const WorkResult& result) {
  const bool lost = result.verdict == Verdict::Lost;
  std::string text = console.coloured(lost ? Colour::Yellow : Colour::Red, lost ? "lost" : "failed") + "  " +
                     work.title() + "  ";
  if (work.attempts > 1 && !lost) {
    text += "attempt " + std::to_string(work.attempt) + " of " + std::to_string(work.attempts) + ": ";
  }
  text += console.shown(result.reason) + '\n';
  for (const std::string& line : result.lines) {
    text += console.coloured(Colour::Faint, "  | " + console.shown(line)) + '\n';
  }
  if (!result.log.empty()) {
    text += "  log  " + console.shown(result.log.Text()) + '\n';
  }
  if (!result.good.empty()) {
    text += "  good  " + result.good.text(rangesShown) + '\n';
  }
  if (result.again) {
    text += std::string("  ") + (result.good.empty() ? "it" : "the rest") +
            (lost ? " is rendered again\n" : " will be tried again\n");
  }
  return text;
}

std::string summaryText(const Console& console, const RunSummary& summary) {
  const RunInfo& info = summary.info;
  std::string text = summary.interrupted ? console.coloured(Colour::Yellow, "stopped") + ": " : std::string();
  text += countsText(summary, [&](Colour colour,
                                  const std::string& piece) { return console.coloured(colour, piece); }) +
          ", in " + durationText(summary.duration) + '\n';
  std::size_t shown = 0;
  for (const FailureGroup& group : summary.failures) {
    if (shown == reasonsShown) {
      text += "  and " + counted(summary.failures.size() - shown, "further reason") + '\n';
      break;
    }
    const std::string frames = info.hasFrames ? group.frames.text(rangesShown) : "work";
    text +=
        console.coloured(Colour::Red, "failed") + "  " + frames + "  " + console.shown(group.reason) + '\n';
    ++shown;
  }
  if (info.hasFrames && !summary.notDone.empty()) {
    text += console.coloured(Colour::Yellow, "not done") + "  " + summary.notDone.text(rangesShown) + '\n';
  }
  for (const auto& [directory, count] : summary.images) {
    text += "images  " + std::to_string(count) + " in " + console.shown(directory) + '\n';
  }
  if (!summary.allGood()) {
    if (!info.logs.empty()) {
      text += "logs  " + console.shown(info.logs.Text()) + '\n';
    }
    text += restText(summary);
  }
  return text;
}

std::string summaryLine(const RunSummary& summary) {
  return countsText(summary, [](Colour /*colour*/, const std::string& piece) { return piece; });
}

std::string interruptText(const Console& console, int times, std::size_t running) {
  if (times > 1) {
    return console.coloured(Colour::Yellow, "stopping") + "  killing what still runs\n";
  }
  if (running == 0) {
    return console.coloured(Colour::Yellow, "stopping") + '\n';
  }
  return console.coloured(Colour::Yellow, "stopping") + "  asked " + counted(running, "program") +
         " to end; once more kills at once\n";
}

} // namespace trovik
