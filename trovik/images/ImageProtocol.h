#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace trovik {

/// What the check of a file gave.
struct Inspection {
  std::string problem; ///< why it is not good ("Truncated image (...)"); empty for good or no image
  bool image = false;  ///< whether it is of a format that was decoded
  int width = 0;
  int height = 0;
};

// How problems begin that say nothing of the file itself.
constexpr std::string_view notLookedInto = "Cannot be looked into: ";
constexpr std::string_view notDrawn = "No picture of it could be made: ";
// What the problem of a file says that may have had too little beside others.
constexpr std::string_view tooMuchMemory = "decoding it needs too much memory";

// What trovik and trovik-image say to each other: JSON, one object a line.
// File names are bytes; one that is no UTF-8 travels as hexadecimal digits
// under another key ("fileHex" for "file"). Lines end with a line feed where
// they are written; they are read without it.

/// A file to be checked (trovik-image check), and perhaps shown.
struct CheckRequest {
  std::string file;
  bool refuseFlat = false;
  std::string picture{}; ///< a file for a small picture of it (JPEG); empty for none
  int room = 0;          ///< the picture's width and height at most, in pixels
};
std::string requestLine(const CheckRequest& request);
/// Nothing for a line that is no request.
std::optional<CheckRequest> requestFrom(std::string_view line);

std::string answerLine(const Inspection& inspection);
/// Nothing for a line that is no answer.
std::optional<Inspection> answerFrom(std::string_view line);

/// What a cell of a contact sheet shows.
enum class CellState { Good, Missing, Failed, Damaged, Waiting, Running, Canceled };

/// How a state is written in the protocol and on the sheet: "missing".
const char* nameOf(CellState state);
std::optional<CellState> cellStateOf(std::string_view name);

struct SheetCell {
  std::string label; ///< "12"
  std::string file;  ///< empty for none
  CellState state = CellState::Good;
  std::string note; ///< why it is not good
};

/// A contact sheet to be drawn (trovik-image sheet).
struct SheetPlan {
  std::string title;          ///< the job's name
  std::string subtitle;       ///< its type
  std::string noun = "frame"; ///< what a cell is: "frame" or "file"
  int cellWidth = 0;          ///< pixels; 0 for a width that suits their number
  int columns = 0;            ///< 0 for a sheet that is a bit wider than high
  std::vector<SheetCell> cells;
};
std::string planLine(const SheetPlan& plan);
/// Nothing for a text that is no plan.
std::optional<SheetPlan> planFrom(std::string_view text);

constexpr std::size_t sheetCellLimit = 10000;
constexpr int cellWidthMinimum = 32;
constexpr int cellWidthMaximum = 1024;

/// What the drawing tells as it goes: which cell's file it opens (so that one
/// that it dies of is known), a cell that is done, a warning, or how it ended.
struct SheetReport {
  enum class Kind { Opens, Cell, Warning, Done, Error };
  Kind kind = Kind::Cell;
  std::size_t cell = 0;              ///< its index
  CellState state = CellState::Good; ///< what it turned out to be
  std::string text;                  ///< the cell's note, the warning, the error
  int width = 0;                     ///< pixels of the sheet
  int height = 0;
};
std::string reportLine(const SheetReport& report);
/// Nothing for a line that is no report.
std::optional<SheetReport> reportFrom(std::string_view line);

} // namespace trovik
