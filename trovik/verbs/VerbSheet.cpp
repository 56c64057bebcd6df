#include "host/application/FrameRange.h"
#include "trovik/images/ImageHelper.h"
#include "trovik/images/SheetDrawing.h"
#include "trovik/queue/JobView.h"
#include "trovik/reports/SheetCells.h"
#include "trovik/text/Console.h"
#include "trovik/text/Json.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/ClusterRun.h"
#include "trovik/verbs/Session.h"
#include "trovik/verbs/Verbs.h"
#include "trovik/works/FilesNow.h"

#include <algorithm>
#include <array>

namespace trovik {
namespace {

constexpr std::array<CellState, 7> states = {CellState::Good,    CellState::Missing, CellState::Failed,
                                             CellState::Damaged, CellState::Waiting, CellState::Running,
                                             CellState::Canceled};

std::size_t countOf(const SheetPlan& plan, CellState state) {
  return static_cast<std::size_t>(std::count_if(
      plan.cells.begin(), plan.cells.end(), [state](const SheetCell& cell) { return cell.state == state; }));
}

/// "24 frames: 18 good, 3 missing, 3 damaged".
std::string countsText(const SheetPlan& plan) {
  std::vector<std::string> counts;
  for (const CellState state : states) {
    if (const std::size_t count = countOf(plan, state); count > 0) {
      counts.push_back(std::to_string(count) + ' ' + nameOf(state));
    }
  }
  return counted(plan.cells.size(), plan.noun) + ": " + joined(counts, ", ");
}

Json sheetJson(JobId job, const Path& file, const DrawnSheet& sheet) {
  Json document = jsonOfKind("sheet");
  document["job"] = job;
  document["file"] = file.Text();
  document["width"] = sheet.width;
  document["height"] = sheet.height;
  for (const CellState state : states) {
    document["counts"][nameOf(state)] = countOf(sheet.plan, state);
  }
  document["cells"] = Json::array();
  for (const SheetCell& cell : sheet.plan.cells) {
    document["cells"].push_back({{"label", cell.label},
                                 {"state", nameOf(cell.state)},
                                 {"file", textOrNull(cell.file)},
                                 {"note", textOrNull(cell.note)}});
  }
  return document;
}

std::optional<RunSet> framesIn(const std::optional<std::string>& range) {
  if (!range) {
    return std::nullopt;
  }
  const FrameSet frames = orRefuse("--frames: ", "such as 1-100, 1-100x10 or 1,4,9-12",
                                   [&] { return FrameSet::Parse(String(*range)); });
  if (frames.empty()) {
    throw UsageError{"--frames names no frame", "leave it out for all of them"};
  }
  RunSet set;
  for (const FrameRun& run : frames.Split(static_cast<int>(FrameSet::k_CountLimit))) {
    set.add(run);
  }
  return set;
}

} // namespace

int drawSheet(Session& session, const SheetOptions& options) {
  Console& console = session.console();
  std::size_t width = 0;
  if (options.width) {
    width = positiveNumber("--width", *options.width, cellWidthMaximum);
    if (width < cellWidthMinimum) {
      throw UsageError{"--width: a cell has at least " + counted(cellWidthMinimum, "pixel"),
                       "leave it out for a width that suits the number of images"};
    }
  }
  const std::size_t columns =
      options.columns ? positiveNumber("--columns", *options.columns, sheetCellLimit) : 0;
  const std::optional<RunSet> only = framesIn(options.frames);
  const Path file = absolutePath(*options.file);

  const std::unique_ptr<Queue> queue = collectedQueue(session);
  JobRecord job = findJob(queue.get(), *options.job);
  const JobView view = viewOf(*queue, std::move(job));
  ImageHelper images(session.locations().imageHelper());
  const Decode decode = options.verify ? Decode::All : Decode::Changed;
  SheetPlan plan = sheetPlan(*queue, view, filesNow(*queue, view, decode, images).files, only);
  plan.cellWidth = static_cast<int>(width);
  plan.columns = static_cast<int>(columns);
  const std::string total = counted(plan.cells.size(), plan.noun);
  LocalMachine machine;
  const DrawnSheet sheet = drawSheet(
      machine, session.locations().imageHelper(), std::move(plan), file,
      [&](std::size_t done) { console.setLive("drawing  " + std::to_string(done) + " of " + total); },
      [&](const std::string& warning) {
        console.printError(messageText(console, Colour::Yellow, "trovik: warning:", warning));
      });
  console.setLive({});
  if (options.json) {
    console.print(jsonDocument(sheetJson(view.job.id, file, sheet)));
  } else {
    console.print("sheet  " + console.shown(file.Text()) + "  " + countsText(sheet.plan) + '\n');
  }
  return exitGood;
}

} // namespace trovik
