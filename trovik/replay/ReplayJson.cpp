#include "trovik/replay/ReplayText.h"
#include "trovik/text/Json.h"

// A log may be larger than memory, so the document is written as the lines
// come, and what only the end can tell stands behind them.

namespace trovik {
namespace {

std::string compact(const Json& json) {
  std::string text = jsonLine(json);
  text.pop_back();
  return text;
}

class JsonPrinter final : public ReplayPrinter {
public:
  JsonPrinter(Console& console, const ReplayFacts& facts) : console_(console), facts_(facts) {
    Json head = jsonOfKind("replay");
    head["type"] = facts.type;
    head["typeId"] = facts.typeId;
    head["log"] = facts.log;
    head["frames"] = textOrNull(facts.frames);
    head["exitCode"] = facts.exit.Code;
    head["signal"] = facts.exit.Signal == 0 ? Json(nullptr) : Json(facts.exit.Signal);
    text_ = "{\n";
    addFields(head);
    text_ += "  \"lines\": [";
  }

  void line(const ReplayedLine& line) override {
    const LineAccount& account = line.account;
    Json json;
    json["number"] = line.number;
    json["text"] = line.text;
    json["what"] = nameOf(account.What);
    json["by"] = account.List == nullptr ? Json(nullptr) : Json(account.Text);
    json["list"] = textOrNull(listName(account));
    if (account.What == LineAccount::Fate::Image) {
      json["image"] = account.Image;
      json["end"] = textOrNull(account.Other);
    } else if (account.What == LineAccount::Fate::IgnoredError) {
      json["error"] = account.Other;
    }
    text_ += (first_ ? "\n    " : ",\n    ") + compact(json);
    first_ = false;
    if (text_.size() > flushSize) {
      print();
    }
  }

  void end(const ReplayResult& result) override {
    text_ += first_ ? "],\n" : "\n  ],\n";
    Json tail;
    tail["images"] = result.images;
    tail["files"] = nullptr;
    if (facts_.files) {
      tail["files"] = Json::array();
      for (const FileRecord& file : result.files) {
        Json json;
        json["file"] = file.path;
        json["frame"] = file.frame ? Json(*file.frame) : Json(nullptr);
        json["size"] = file.size;
        json["problem"] = textOrNull(file.problem);
        tail["files"].push_back(json);
      }
    }
    tail["verdict"] = result.good ? "good" : "bad";
    tail["note"] = textOrNull(result.note);
    tail["rule"] = nameOf(result.rule);
    tail["deciding"] = result.decidingLine ? Json(*result.decidingLine) : Json(nullptr);
    addFields(tail);
    text_.erase(text_.size() - 2); // the last comma
    text_ += "\n}\n";
    print();
  }

private:
  void addFields(const Json& fields) {
    for (const auto& [name, value] : fields.items()) {
      text_ += "  " + compact(Json(name)) + ": " + compact(value) + ",\n";
    }
  }

  void print() {
    console_.print(text_);
    text_.clear();
  }

  Console& console_;
  ReplayFacts facts_;
  std::string text_;
  bool first_ = true;
};

} // namespace

std::unique_ptr<ReplayPrinter> replayJson(Console& console, const ReplayFacts& facts) {
  return std::make_unique<JsonPrinter>(console, facts);
}

} // namespace trovik
