#include "trovik/cluster/FolderForms.h"

#include "host/foundation/Characters.h"
#include "trovik/records/Records.h"
#include "trovik/text/Json.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <array>
#include <limits>
#include <type_traits>
#include <utility>

namespace trovik {
namespace {

constexpr std::size_t depthLimit = 6; // an end's files are at depth 4

// In the order of the enumeration.
constexpr std::array endings = {"itself", "canceled", "interrupted", "given up"};

Json written(const std::string& text) {
  return losslessText(text);
}

Json written(const std::vector<std::string>& texts) {
  Json list = Json::array();
  for (const std::string& text : texts) {
    list.push_back(written(text));
  }
  return list;
}

Json written(const std::vector<FileRecord>& files) {
  Json list = Json::array();
  for (const FileRecord& file : files) {
    Json entry{{"path", written(file.path)}};
    if (file.frame) {
      entry["frame"] = *file.frame;
    }
    entry["checked"] = file.checked;
    entry["problem"] = written(file.problem);
    entry["size"] = file.size;
    entry["modified"] = file.modified;
    list.push_back(std::move(entry));
  }
  return list;
}

std::int64_t written(Moment moment) {
  return moment.time_since_epoch().count();
}

/// One object of a form that is being read; the name is for messages.
class Reader {
public:
  explicit Reader(const Json& json, std::string name = "the text") : json_(json), name_(std::move(name)) {
    if (!json_.is_object()) {
      throw FormProblem{name_ + " is no JSON object"};
    }
  }

  const Json& at(const char* key) const {
    const auto found = json_.find(key);
    if (found == json_.end()) {
      throw FormProblem{"\"" + std::string(key) + "\" is missing"};
    }
    return *found;
  }
  bool has(const char* key) const { return json_.contains(key); }

  std::string text(const char* key) const { return textOf(at(key), key); }

  std::vector<std::string> texts(const char* key) const {
    std::vector<std::string> result;
    for (const Json& entry : list(key)) {
      result.push_back(textOf(entry, key));
    }
    return result;
  }

  template <typename Number> Number number(const char* key) const {
    return number<Number>(key, std::numeric_limits<Number>::min(), std::numeric_limits<Number>::max());
  }
  template <typename Number>
  Number number(const char* key, Number least, Number most = std::numeric_limits<Number>::max()) const {
    return numberOf<Number>(at(key), key, least, most);
  }

  double seconds(const char* key) const {
    const Json& value = at(key);
    if (!value.is_number() || !(value.get<double>() >= 0)) {
      throw FormProblem{"\"" + std::string(key) + "\" is no number of seconds"};
    }
    return value.get<double>();
  }

  bool flag(const char* key) const {
    const Json& value = at(key);
    if (!value.is_boolean()) {
      throw FormProblem{"\"" + std::string(key) + "\" is neither true nor false"};
    }
    return value.get<bool>();
  }

  const Json& list(const char* key) const {
    const Json& value = at(key);
    if (!value.is_array()) {
      throw FormProblem{"\"" + std::string(key) + "\" is no list"};
    }
    return value;
  }

  Moment moment(const char* key) const {
    return Moment(std::chrono::microseconds(number<std::int64_t>(key)));
  }

  FrameRun run() const {
    const FrameRun run{number<int>("first"), number<int>("last")};
    if (run.Last < run.First) {
      throw FormProblem{"\"last\" is before \"first\""};
    }
    return run;
  }

  std::vector<FileRecord> files(const char* key) const {
    std::vector<FileRecord> result;
    for (const Json& entry : list(key)) {
      const Reader reader(entry, "a file");
      FileRecord file;
      file.path = reader.text("path");
      if (reader.has("frame")) {
        file.frame = reader.number<int>("frame");
      }
      file.checked = reader.flag("checked");
      file.problem = reader.text("problem");
      file.size = reader.number<std::int64_t>("size", 0);
      file.modified = reader.number<std::int64_t>("modified");
      result.push_back(std::move(file));
    }
    return result;
  }

private:
  template <typename Number>
  static Number numberOf(const Json& value, const char* key, Number least, Number most) {
    static_assert(std::is_integral_v<Number>);
    if (!value.is_number_integer()) {
      throw FormProblem{"\"" + std::string(key) + "\" is no whole number"};
    }
    // What is beyond 63 bits is nobody's number.
    const auto number =
        value.is_number_unsigned() &&
                value.get<std::uint64_t>() > std::uint64_t{std::numeric_limits<std::int64_t>::max()}
            ? std::numeric_limits<std::int64_t>::min()
            : value.get<std::int64_t>();
    if (!std::in_range<Number>(number) || static_cast<Number>(number) < least ||
        static_cast<Number>(number) > most) {
      throw FormProblem{"\"" + std::string(key) + "\" is out of its range"};
    }
    return static_cast<Number>(number);
  }

  static std::string textOf(const Json& value, const char* key) {
    std::optional<std::string> text = textFrom(value);
    if (!text) {
      const bool hex =
          value.is_object() && value.size() == 1 && value.contains("hex") && value["hex"].is_string();
      throw FormProblem{"\"" + std::string(key) +
                        (hex ? "\" has a \"hex\" that is not one" : "\" is no text")};
    }
    return std::move(*text);
  }

  const Json& json_;
  std::string name_;
};

/// The parser could say it itself, but at the price of going through a list once
/// more with each of its elements.
bool isTooDeep(std::string_view text) {
  std::size_t depth = 0;
  bool inText = false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char byte = text[at];
    if (inText) {
      at += byte == '\\' ? 1 : 0;
      inText = byte != '"';
    } else if (byte == '"') {
      inText = true;
    } else if (byte == '[' || byte == '{') {
      if (++depth > depthLimit) {
        return true;
      }
    } else if ((byte == ']' || byte == '}') && depth > 0) {
      --depth;
    }
  }
  return false;
}

/// A document of a kind, parsed.
Json parsed(std::string_view text, const char* kind) {
  if (isTooDeep(text)) {
    throw FormProblem{"it is nested too deeply"};
  }
  Json json;
  try {
    json = Json::parse(text);
  } catch (const Json::exception& error) {
    throw FormProblem{error.what()};
  }
  const Reader reader(json);
  if (reader.number<int>("version") != jsonVersion) {
    throw FormProblem{"its version is not " + std::to_string(jsonVersion) + "; another trovik wrote it"};
  }
  if (const std::string found = reader.text("kind"); found != kind) {
    throw FormProblem{"its kind is " + inQuotes(cutToWidth(found, 40)) + " instead of \"" + kind + '"'};
  }
  return json;
}

void writeUsage(Json& json, const std::optional<ProcessUsage>& usage) {
  if (!usage) {
    return;
  }
  Json& object = json["usage"];
  object = {
      {"userTime", usage->UserTime}, {"systemTime", usage->SystemTime}, {"peakMemory", usage->PeakMemory}};
  if (usage->BytesRead) {
    object["bytesRead"] = *usage->BytesRead;
  }
  if (usage->BytesWritten) {
    object["bytesWritten"] = *usage->BytesWritten;
  }
}

/// Missing where it is not known, and in what an older trovik wrote.
std::optional<ProcessUsage> readUsage(const Reader& parent) {
  if (!parent.has("usage")) {
    return std::nullopt;
  }
  const Reader reader(parent.at("usage"), "the usage");
  const auto number = [&reader](const char* key) { return reader.number<std::int64_t>(key, 0); };
  const auto optional = [&](const char* key) {
    return reader.has(key) ? std::optional(number(key)) : std::nullopt;
  };
  return ProcessUsage{number("userTime"), number("systemTime"), number("peakMemory"), optional("bytesRead"),
                      optional("bytesWritten")};
}

Json writtenOutcome(const Outcome& outcome) {
  Json json{{"state", nameOf(outcome.state)},    {"rule", nameOf(outcome.rule)},
            {"reason", written(outcome.reason)}, {"lines", written(outcome.lines)},
            {"log", written(outcome.log)},       {"command", written(outcome.command)},
            {"exitCode", outcome.exitCode},      {"signal", outcome.signal}};
  writeUsage(json, outcome.usage);
  json["good"] = Json::array();
  for (const FrameRun& run : outcome.good.runs()) {
    json["good"].push_back({{"first", run.First}, {"last", run.Last}});
  }
  json["retryable"] = outcome.retryable;
  json["alike"] = written(outcome.alike);
  json["duration"] = outcome.duration.count();
  json["files"] = written(outcome.files);
  return json;
}

Outcome readOutcome(const Reader& reader) {
  Outcome outcome;
  if (!fromName(reader.text("state"), outcome.state) || outcome.state == AttemptState::Running) {
    throw FormProblem{"\"state\" is none of an attempt's ends"};
  }
  if (!fromName(reader.text("rule"), outcome.rule)) {
    throw FormProblem{"\"rule\" is no rule"};
  }
  outcome.reason = reader.text("reason");
  outcome.lines = reader.texts("lines");
  outcome.log = reader.text("log");
  outcome.command = reader.text("command");
  outcome.exitCode = reader.number<int>("exitCode");
  outcome.signal = reader.number<int>("signal");
  outcome.usage = readUsage(reader);
  for (const Json& run : reader.list("good")) {
    outcome.good.add(Reader(run, "a run of frames").run());
  }
  outcome.retryable = reader.flag("retryable");
  outcome.alike = reader.text("alike");
  outcome.duration = std::chrono::microseconds(reader.number<std::int64_t>("duration", 0));
  outcome.files = reader.files("files");
  return outcome;
}

} // namespace

std::string formOf(const FolderJob& job) {
  Json json = jsonOfKind("cluster.job");
  json["queue"] = written(job.queue);
  json["job"] = job.job;
  json["name"] = written(job.name);
  json["type"] = job.type.GenString();
  json["typeName"] = written(job.typeName);
  json["hasFrames"] = job.hasFrames;
  return jsonDocument(json);
}

FolderJob jobFromForm(std::string_view text) {
  const Json json = parsed(text, "cluster.job");
  const Reader reader(json);
  FolderJob job;
  job.queue = reader.text("queue");
  job.job = reader.number<JobId>("job", 1);
  job.name = reader.text("name");
  try {
    job.type.FromString(reader.text("type").c_str());
  } catch (Exception* exception) {
    throw FormProblem{takeText(exception)};
  }
  job.typeName = reader.text("typeName");
  job.hasFrames = reader.flag("hasFrames");
  return job;
}

std::string formOf(const ArrayPlan& plan) {
  Json json = jsonOfKind("cluster.plan");
  json["perTask"] = plan.perTask;
  json["logs"] = written(plan.logs);
  json["stage"] = plan.stage;
  json["patience"] = plan.patience.count();
  json["works"] = Json::array();
  for (const PlannedWork& work : plan.works) {
    json["works"].push_back({{"first", work.run.First}, {"last", work.run.Last}, {"attempt", work.attempt}});
    for (const std::string& image : work.imagesBefore) {
      json["works"].back()["imagesBefore"].push_back(written(image));
    }
  }
  return jsonLine(json);
}

ArrayPlan planFromForm(std::string_view text) {
  const Json json = parsed(text, "cluster.plan");
  const Reader reader(json);
  ArrayPlan plan;
  plan.perTask = reader.number<std::size_t>("perTask", 1);
  plan.logs = reader.text("logs");
  plan.stage = reader.flag("stage");
  // A year is as good as for ever, and fits every clock.
  plan.patience = std::chrono::seconds(reader.number<std::int64_t>("patience", 1, 366LL * 24 * 3600));
  for (const Json& entry : reader.list("works")) {
    const Reader work(entry, "a work");
    plan.works.push_back(
        {work.run(), work.number<int>("attempt", 1),
         work.has("imagesBefore") ? work.texts("imagesBefore") : std::vector<std::string>()});
  }
  return plan;
}

std::string formOf(const WorkClaim& claim) {
  Json json = jsonOfKind("cluster.claim");
  json["number"] = claim.number;
  json["host"] = written(claim.host);
  json["boot"] = written(claim.boot);
  json["process"] = claim.process;
  json["mark"] = written(claim.mark);
  json["node"] = written(claim.node);
  json["task"] = written(claim.task);
  json["restarts"] = claim.restarts;
  json["started"] = written(claim.started);
  json["stage"] = written(claim.stage);
  return jsonDocument(json);
}

WorkClaim claimFromForm(std::string_view text) {
  const Json json = parsed(text, "cluster.claim");
  const Reader reader(json);
  WorkClaim claim;
  claim.number = reader.number<int>("number", 1);
  claim.host = reader.text("host");
  claim.boot = reader.text("boot");
  claim.process = reader.number<int>("process", 1);
  claim.mark = reader.text("mark");
  claim.node = reader.text("node");
  claim.task = reader.text("task");
  claim.restarts = reader.number<int>("restarts", 0);
  claim.started = reader.moment("started");
  claim.stage = reader.text("stage");
  return claim;
}

std::string formOf(const WorkBeat& beat) {
  Json json = jsonOfKind("cluster.beat");
  json["count"] = beat.count;
  json["claim"] = beat.claim;
  json["stage"] = written(beat.stage);
  json["log"] = written(beat.log);
  json["logBytes"] = beat.logBytes;
  json["silent"] = beat.silent;
  json["running"] = beat.running;
  json["command"] = written(beat.command);
  json["files"] = written(beat.files);
  if (!beat.filesBefore.empty()) {
    json["filesBefore"] = written(beat.filesBefore);
  }
  if (beat.end) {
    json["end"] = {{"exitCode", beat.end->Code}, {"signal", beat.end->Signal}};
    writeUsage(json["end"], beat.end->Usage);
  }
  json["whole"] = beat.count;
  return jsonLine(json);
}

WorkBeat beatFromForm(std::string_view text) {
  const Json json = parsed(text, "cluster.beat");
  const Reader reader(json);
  WorkBeat beat;
  beat.count = reader.number<std::int64_t>("count", 0);
  if (reader.number<std::int64_t>("whole") != beat.count) {
    throw FormProblem{"it holds parts of two beats"};
  }
  beat.claim = reader.number<int>("claim", 1);
  beat.stage = reader.text("stage");
  beat.log = reader.text("log");
  beat.logBytes = reader.number<std::int64_t>("logBytes", 0);
  beat.silent = reader.seconds("silent");
  beat.running = reader.seconds("running");
  beat.command = reader.text("command");
  beat.files = reader.files("files");
  if (json.contains("filesBefore")) {
    beat.filesBefore = reader.text("filesBefore");
  }
  if (const auto entry = json.find("end"); entry != json.end()) {
    const Reader end(*entry, "the end");
    beat.end = ProcessExit{end.number<int>("exitCode"), end.number<int>("signal", 0), readUsage(end)};
  }
  return beat;
}

std::string formOf(const WorkEnd& end) {
  Json json = jsonOfKind("cluster.end");
  json["by"] = endings.at(static_cast<std::size_t>(end.by));
  json["claim"] = end.claim;
  json["node"] = written(end.node);
  json["started"] = written(end.started);
  json["ended"] = written(end.ended);
  json.update(writtenOutcome(end.outcome));
  return jsonDocument(json);
}

WorkEnd endFromForm(std::string_view text) {
  const Json json = parsed(text, "cluster.end");
  const Reader reader(json);
  WorkEnd end;
  const std::string by = reader.text("by");
  std::size_t position = 0;
  while (position < endings.size() && by != endings.at(position)) {
    ++position;
  }
  if (position == endings.size()) {
    throw FormProblem{"\"by\" is none of the ways to end"};
  }
  end.by = static_cast<WorkEnd::By>(position);
  end.claim = reader.number<int>("claim", 0);
  end.node = reader.text("node");
  end.started = reader.moment("started");
  end.ended = reader.moment("ended");
  end.outcome = readOutcome(reader);
  return end;
}

} // namespace trovik
