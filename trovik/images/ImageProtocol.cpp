#include "trovik/images/ImageProtocol.h"

#include "trovik/text/Json.h"

#include <array>
#include <utility>

namespace trovik {
namespace {

constexpr std::array<std::pair<CellState, const char*>, 7> cellStates = {{{CellState::Good, "good"},
                                                                          {CellState::Missing, "missing"},
                                                                          {CellState::Failed, "failed"},
                                                                          {CellState::Damaged, "damaged"},
                                                                          {CellState::Waiting, "waiting"},
                                                                          {CellState::Running, "running"},
                                                                          {CellState::Canceled, "canceled"}}};

constexpr std::array<std::pair<SheetReport::Kind, const char*>, 5> reportKinds = {
    {{SheetReport::Kind::Opens, "opens"},
     {SheetReport::Kind::Cell, "cell"},
     {SheetReport::Kind::Warning, "warning"},
     {SheetReport::Kind::Done, "done"},
     {SheetReport::Kind::Error, "error"}}};

template <typename Table, typename Value> const char* nameIn(const Table& table, Value value) {
  for (const auto& [known, name] : table) {
    if (known == value) {
      return name;
    }
  }
  return "";
}

/// The text under a key, or what it is where there is none. Throws where it is
/// no text.
std::string textIn(const Json& json, const char* key, const char* otherwise = nullptr) {
  if (otherwise != nullptr && !json.contains(key)) {
    return otherwise;
  }
  const Json& value = json.at(key);
  std::optional<std::string> text = textFrom(value);
  return text ? std::move(*text) : value.get<std::string>();
}

/// Reads an object with `read`; nothing where the text is none or a value is
/// not of the kind that it must be.
template <typename Read> auto parsed(std::string_view text, Read read) -> decltype(read(Json())) {
  try {
    const Json json = Json::parse(text);
    return json.is_object() ? read(json) : std::nullopt;
  } catch (const Json::exception&) {
    return std::nullopt;
  }
}

} // namespace

const char* nameOf(CellState state) {
  return nameIn(cellStates, state);
}

std::optional<CellState> cellStateOf(std::string_view name) {
  for (const auto& [state, known] : cellStates) {
    if (name == known) {
      return state;
    }
  }
  return std::nullopt;
}

std::string requestLine(const CheckRequest& request) {
  Json json = {{"file", request.file}, {"flat", request.refuseFlat}};
  if (!request.picture.empty()) {
    json["picture"] = request.picture;
    json["room"] = request.room;
  }
  return jsonLine(json);
}

std::optional<CheckRequest> requestFrom(std::string_view line) {
  return parsed(line, [](const Json& json) -> std::optional<CheckRequest> {
    return CheckRequest{textIn(json, "file"), json.value("flat", false), textIn(json, "picture", ""),
                        json.value("room", 0)};
  });
}

std::string answerLine(const Inspection& inspection) {
  return jsonLine({{"problem", inspection.problem},
                   {"image", inspection.image},
                   {"width", inspection.width},
                   {"height", inspection.height}});
}

std::optional<Inspection> answerFrom(std::string_view line) {
  return parsed(line, [](const Json& json) -> std::optional<Inspection> {
    return Inspection{textIn(json, "problem"), json.at("image").get<bool>(), json.at("width").get<int>(),
                      json.at("height").get<int>()};
  });
}

std::string planLine(const SheetPlan& plan) {
  Json json = {{"title", plan.title},         {"subtitle", plan.subtitle}, {"noun", plan.noun},
               {"cellWidth", plan.cellWidth}, {"columns", plan.columns},   {"cells", Json::array()}};
  for (const SheetCell& cell : plan.cells) {
    json["cells"].push_back(
        {{"label", cell.label}, {"state", nameOf(cell.state)}, {"note", cell.note}, {"file", cell.file}});
  }
  return jsonLine(json);
}

std::optional<SheetPlan> planFrom(std::string_view text) {
  return parsed(text, [](const Json& json) -> std::optional<SheetPlan> {
    SheetPlan plan;
    plan.title = textIn(json, "title", "");
    plan.subtitle = textIn(json, "subtitle", "");
    plan.noun = json.value("noun", plan.noun);
    plan.cellWidth = json.value("cellWidth", 0);
    plan.columns = json.value("columns", 0);
    for (const Json& entry : json.at("cells")) {
      const auto state = cellStateOf(entry.value("state", "good"));
      if (!state) {
        return std::nullopt;
      }
      plan.cells.push_back(
          {textIn(entry, "label", ""), textIn(entry, "file", ""), *state, textIn(entry, "note", "")});
    }
    return plan;
  });
}

std::string reportLine(const SheetReport& report) {
  Json json = {{"report", nameIn(reportKinds, report.kind)}};
  switch (report.kind) {
  case SheetReport::Kind::Opens:
    json["cell"] = report.cell;
    break;
  case SheetReport::Kind::Cell:
    json["cell"] = report.cell;
    json["state"] = nameOf(report.state);
    json["text"] = report.text;
    break;
  case SheetReport::Kind::Done:
    json["width"] = report.width;
    json["height"] = report.height;
    break;
  default:
    json["text"] = report.text;
  }
  return jsonLine(json);
}

std::optional<SheetReport> reportFrom(std::string_view line) {
  return parsed(line, [](const Json& json) -> std::optional<SheetReport> {
    const std::string name = json.at("report").get<std::string>();
    for (const auto& [kind, known] : reportKinds) {
      const auto state = cellStateOf(json.value("state", "good"));
      if (name == known && state) {
        return SheetReport{kind,
                           json.value("cell", std::size_t{0}),
                           *state,
                           textIn(json, "text", ""),
                           json.value("width", 0),
                           json.value("height", 0)};
      }
    }
    return std::nullopt;
  });
}

} // namespace trovik
