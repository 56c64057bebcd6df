#include "trovik/images/SheetDrawing.h"

#include "trovik/machine/HelperProcess.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <optional>
#include <system_error>
#include <utility>

namespace trovik {
namespace {

constexpr int deathLimit = 20; // files that the helper may die of, each of which costs a new start

/// One start of the helper.
class Drawing {
public:
  Drawing(Machine& machine, const Path& helper, DrawnSheet& sheet, const Path& file, Duration patience)
      : machine_(machine), helper_(helper), sheet_(sheet), patience_(patience),
        process_(start(helper, file)) {}

  /// Whether the sheet is drawn; else a cell has become a damaged one.
  bool run(const std::function<void(std::size_t done)>& progress,
           const std::function<void(const std::string& warning)>& warn) {
    process_.send(planLine(sheet_.plan));
    process_.endInput();
    Clock::time_point end = machine_.now() + patience_;
    for (;;) {
      const bool runs = process_.advance();
      while (const std::optional<std::string> line = process_.line()) {
        end = machine_.now() + patience_;
        if (take(*line, progress, warn)) {
          return true;
        }
      }
      if (!runs) {
        const HelperProcess::End how = process_.end();
        giveUpCell("The image library crashed on it", inQuotes(helper_.Text()) + ' ' + how.text);
        return false;
      }
      const Clock::time_point now = machine_.now();
      if (now >= end) {
        const std::string time =
            std::to_string(std::chrono::duration_cast<std::chrono::seconds>(patience_).count()) + " s";
        giveUpCell("Could not be decoded within " + time,
                   inQuotes(helper_.Text()) + " said nothing for " + time);
        return false;
      }
      std::vector<pollfd> descriptors = {{process_.descriptor(), POLLIN, 0}};
      if (process_.sending()) {
        descriptors[0].events |= POLLOUT;
      }
      machine_.wait(descriptors, end - now);
    }
  }

private:
  static HelperProcess start(const Path& helper, const Path& file) {
    try {
      return HelperProcess({helper.Text(), "sheet", "-o", file.Text()});
    } catch (const std::system_error& error) {
      throw UsageError{"cannot start " + inQuotes(helper.Text()) + ": " + error.code().message(),
                       "it is installed beside trovik"};
    }
  }

  /// Whether that was the last report.
  bool take(const std::string& line, const std::function<void(std::size_t done)>& progress,
            const std::function<void(const std::string& warning)>& warn) {
    const std::optional<SheetReport> report = reportFrom(line);
    if (!report || report->cell >= sheet_.plan.cells.size()) {
      throw UsageError{inQuotes(helper_.Text()) + " said " + inQuotes(cutToWidth(line, 300)),
                       "it must be of the same version as trovik"};
    }
    switch (report->kind) {
    case SheetReport::Kind::Opens:
      opened_ = report->cell;
      break;
    case SheetReport::Kind::Cell:
      sheet_.plan.cells[report->cell].state = report->state;
      sheet_.plan.cells[report->cell].note = report->text;
      opened_.reset();
      progress(report->cell + 1);
      break;
    case SheetReport::Kind::Warning:
      warn(report->text);
      break;
    case SheetReport::Kind::Error:
      throw UsageError{report->text, {}};
    case SheetReport::Kind::Done:
      sheet_.width = report->width;
      sheet_.height = report->height;
      return true;
    }
    return false;
  }

  /// The helper came to no end: by the file of a cell, or else for good.
  void giveUpCell(const std::string& note, const std::string& otherwise) {
    if (!opened_ || sheet_.plan.cells[*opened_].state != CellState::Good) {
      throw UsageError{otherwise, {}};
    }
    sheet_.plan.cells[*opened_].state = CellState::Damaged;
    sheet_.plan.cells[*opened_].note = note;
  }

  Machine& machine_;
  const Path& helper_;
  DrawnSheet& sheet_;
  Duration patience_;
  HelperProcess process_;
  std::optional<std::size_t> opened_; ///< the cell that it is at
};

} // namespace

DrawnSheet drawSheet(Machine& machine, const Path& helper, SheetPlan plan, const Path& file,
                     const std::function<void(std::size_t done)>& progress,
                     const std::function<void(const std::string& warning)>& warn, Duration patience) {
  DrawnSheet sheet{std::move(plan), 0, 0};
  for (int deaths = 0; deaths <= deathLimit; ++deaths) {
    if (Drawing(machine, helper, sheet, file, patience).run(progress, warn)) {
      return sheet;
    }
  }
  throw UsageError{inQuotes(helper.Text()) + " came to no end with " + std::to_string(deathLimit + 1) +
                       " files",
                   "name frames that are good: --frames"};
}

} // namespace trovik
