#include "trovik/reports/JobTable.h"

#include "host/foundation/Bytes.h"
#include "trovik/records/Moments.h"
#include "trovik/reports/ForerunnerText.h"
#include "trovik/text/Text.h"

#include <algorithm>
#include <array>
#include <utility>

namespace trovik {
namespace {

constexpr std::size_t stateColumn = 1;
constexpr std::size_t failedColumn = 3;
constexpr std::size_t typeColumn = 6;
constexpr std::size_t nameColumn = 7;
constexpr std::size_t widestType = 14;
constexpr std::size_t narrowestName = 10;

using Row = std::vector<std::string>;

/// Numbers stand at the right of their column. The last four columns are those
/// of the wide form.
constexpr std::array<bool, 12> toTheRight = {true,  false, true, true, true, true,
                                             false, false, true, true, true, false};

/// The jobs of which a job waits for the end or a frame, before it can go on.
std::vector<JobId> blockersOf(const JobView& view) {
  const bool waits = view.job.blocked && shownState(view) == JobState::Waiting;
  return waits ? awaitedIn(view.forerunners) : std::vector<JobId>();
}

std::string stateText(const JobView& view) {
  const std::vector<JobId> blockers = blockersOf(view);
  if (blockers.empty()) {
    return nameOf(shownState(view));
  }
  return "after " + std::to_string(blockers.front()) +
         (blockers.size() > 1 ? " +" + std::to_string(blockers.size() - 1) : std::string());
}

/// A job that waits for one which does not become good by itself needs somebody.
Colour stateColour(const JobView& view) {
  const bool stuck = std::any_of(view.forerunners.begin(), view.forerunners.end(),
                                 [](const ForerunnerStand& stand) { return stand.isStuck(); });
  return stuck && !blockersOf(view).empty() ? Colour::Yellow : colourOf(shownState(view));
}

Row rowOf(const Console& console, const JobView& view, Moment now) {
  const JobRecord& job = view.job;
  const auto time = timeOf(job, now);
  return {std::to_string(job.id),
          stateText(view),
          std::to_string(view.good()) + '/' + std::to_string(view.total()),
          view.failed() == 0 ? std::string("-") : std::to_string(view.failed()),
          time ? durationText(*time) : "-",
          ageText(job.created, now),
          console.shown(job.typeName),
          console.shown(titleOf(job))};
}

void addWide(Row& row, const Console& console, const JobRecord& job,
             const std::optional<ProcessUsage>& usage) {
  row.push_back(usage ? durationText(durationOf(std::chrono::microseconds(usage->UserTime)) +
                                     durationOf(std::chrono::microseconds(usage->SystemTime)))
                      : "-");
  row.push_back(usage ? BytesText(usage->PeakMemory) : "-");
  row.push_back(std::to_string(job.priority));
  row.push_back(job.output.empty() ? "-" : console.shown(job.output));
}

std::string cell(const std::string& text, std::size_t width, bool right) {
  const std::size_t used = displayWidth(text);
  return right && used < width ? std::string(width - used, ' ') + text : padded(text, width);
}

Json rangesOf(const JobView& view, const RunSet& frames) {
  return view.job.hasFrames ? Json(frames.text()) : Json(nullptr);
}

} // namespace

Colour colourOf(JobState state) {
  switch (state) {
  case JobState::Good:
    return Colour::Green;
  case JobState::Failed:
    return Colour::Red;
  case JobState::Canceled:
  case JobState::Stopped:
    return Colour::Yellow;
  case JobState::Running:
    return Colour::Bold;
  case JobState::Waiting:
    break;
  }
  return Colour::Plain;
}

Json jobJson(const JobView& view, Moment now) {
  const JobRecord& job = view.job;
  const auto time = timeOf(job, now);
  Json json;
  json["job"] = job.id;
  json["name"] = titleOf(job);
  json["type"] = job.typeName;
  json["typeId"] = job.type.GenString();
  json["scene"] = textOrNull(job.scene);
  json["range"] = textOrNull(job.range);
  json["state"] = nameOf(shownState(view));
  json["note"] = textOrNull(job.note);
  json["priority"] = job.priority;
  json["counts"] = {{"total", view.total()},     {"good", view.good()},   {"failed", view.failed()},
                    {"running", view.running()}, {"ready", view.ready()}, {"canceled", view.canceled()},
                    {"blocked", view.waiting()}};
  json["frames"] = nullptr;
  if (job.hasFrames) {
    json["frames"] = {
        {"good", rangesOf(view, view.frames.good)},         {"failed", rangesOf(view, view.frames.failed)},
        {"running", rangesOf(view, view.frames.running)},   {"ready", rangesOf(view, view.frames.ready)},
        {"canceled", rangesOf(view, view.frames.canceled)}, {"blocked", rangesOf(view, view.frames.waiting)}};
  }
  json["after"] = forerunnersJson(view.forerunners);
  json["submitted"] = secondsOf(job.created);
  json["started"] = job.started ? Json(secondsOf(*job.started)) : Json(nullptr);
  json["ended"] = job.ended ? Json(secondsOf(*job.ended)) : Json(nullptr);
  json["seconds"] = time ? Json(secondsOf(*time)) : Json(nullptr);
  json["output"] = textOrNull(job.output);
  json["logs"] = textOrNull(job.logs);
  return json;
}

std::string jobTable(const Console& console, const std::vector<JobView>& views, Moment now,
                     const std::optional<JobUsages>& usages) {
  std::vector<Row> rows = {{"JOB", "STATE", "GOOD", "FAILED", "TIME", "AGE", "TYPE", "NAME"}};
  for (const JobView& view : views) {
    rows.push_back(rowOf(console, view, now));
  }
  if (usages) {
    rows.front().insert(rows.front().end(), {"CPU", "MEMORY", "PRIO", "OUTPUT"});
    for (std::size_t i = 0; i < views.size(); ++i) {
      addWide(rows[i + 1], console, views[i].job, usages->at(i));
    }
  }
  const std::size_t columns = rows.front().size();
  std::vector<std::size_t> widths(columns);
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < columns; ++i) {
      widths[i] = std::max(widths[i], displayWidth(row[i]));
    }
  }
  const bool fits = console.traits().terminal && !usages;
  if (fits) {
    widths[typeColumn] = std::min(widths[typeColumn], widestType);
    std::size_t used = 0;
    for (std::size_t i = 0; i < nameColumn; ++i) {
      used += widths[i] + 2;
    }
    const std::size_t room = console.width() > used ? console.width() - used : 0;
    widths[nameColumn] = std::min(widths[nameColumn], std::max(room, narrowestName));
  }
  std::string table;
  for (std::size_t r = 0; r < rows.size(); ++r) {
    std::string line;
    for (std::size_t i = 0; i < columns; ++i) {
      const std::string text = fits ? cutToWidth(rows[r][i], widths[i]) : rows[r][i];
      std::string shown = i + 1 == columns ? text : cell(text, widths[i], toTheRight[i]);
      if (r != 0 && i == stateColumn) {
        shown = console.coloured(stateColour(views[r - 1]), shown);
      }
      if (r != 0 && i == failedColumn && views[r - 1].failed() > 0) {
        shown = console.coloured(Colour::Red, shown);
      }
      line += (i == 0 ? "" : "  ") + shown;
    }
    table += (r == 0 ? console.coloured(Colour::Bold, line) : line) + '\n';
  }
  return table;
}

} // namespace trovik
