#include "trovik/page/PageAnswers.h"

#include "host/foundation/Exception.h"
#include "host/foundation/Log.h"
#include "host/foundation/Stream.h"
#include "trovik/images/ImageInspector.h"
#include "trovik/records/Moments.h"
#include "trovik/reports/JobReport.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <set>
#include <utility>

namespace trovik {
namespace {

constexpr std::size_t stripCells = 400;
constexpr Duration latestTime = std::chrono::seconds(2);
constexpr Duration checkingTime = std::chrono::seconds(2); // of files that were changed

/// Takes every file as it is: a server answers at once, and what a picture shows
/// is seen when it is made.
class NoInspector final : public ImageInspector {
public:
  void ask(const Path& /*file*/, bool /*refuseFlat*/, Answer answer) override { answer({}); }
  int descriptor() const override { return -1; }
  std::optional<Clock::time_point> deadline() const override { return std::nullopt; }
  void advance(Clock::time_point /*now*/) override {}
};

JobRecord recordOf(Queue& queue, JobId id) {
  std::optional<JobRecord> record = queue.job(id);
  if (!record) {
    throw PageMissing{"there is no job " + std::to_string(id)};
  }
  return std::move(*record);
}

void appendPairs(InStream& stream, Json& parameters) {
  unsigned int count = 0;
  stream.Get(count);
  for (unsigned int i = 0; i < count; ++i) {
    String name;
    String value;
    stream.Get(name);
    stream.Get(value);
    if (!value.empty()) {
      parameters.push_back({{"name", name}, {"value", value}});
    }
  }
}

/// What was set of the job, as its stream has it; what cannot be read is left out.
Json parametersOf(const std::string& packed) {
  Json parameters = Json::array();
  try {
    InStream stream(packed);
    std::array<unsigned char, 16> type{};
    stream.GetBytes(type.data(), type.size());
    appendPairs(stream, parameters);
    unsigned int version = 0;
    stream.Get(version);
    for (int i = 0; i < 3; ++i) { // texts of the type
      String text;
      stream.Get(text);
    }
    appendPairs(stream, parameters);
  } catch (Exception* exception) {
    LogDebug("parameters of a job: " + takeText(exception));
  }
  return parameters;
}

template <typename Number> void append(std::string& text, Number number) {
  char digits[32];
  const auto end = std::to_chars(digits, digits + sizeof digits, number);
  text.append(digits, end.ptr);
}

template <typename Values> void appendList(std::string& text, const char* key, const Values& values) {
  text += ",\"";
  text += key;
  text += "\":[";
  bool first = true;
  for (const auto value : values) {
    if (!first) {
      text += ',';
    }
    first = false;
    append(text, value);
  }
  text += ']';
}

} // namespace

const PageAnswers::Kept& PageAnswers::kept(JobId id, JobRecord record) {
  Kept& one = kept_[id];
  const std::int64_t revision = revisions_.of(id);
  if (one.revision != revision) {
    one.view = viewOf(queue_, std::move(record));
    one.strip = stripOf(one.view, stripCells);
    one.left = timeLeft(queue_, one.view);
    one.revision = revision;
  }
  return one;
}

const JobView& PageAnswers::view(JobId id) {
  return kept(id, recordOf(queue_, id)).view;
}

Json PageAnswers::jobs() {
  std::vector<JobRecord> records = queue_.jobs();
  std::reverse(records.begin(), records.end());
  const Moment now = momentNow();
  Json document = jsonOfKind("jobs");
  document["revision"] = revisions_.last;
  document["jobs"] = Json::array();
  std::set<JobId> there;
  for (JobRecord& record : records) {
    const JobId id = record.id;
    there.insert(id);
    const Kept& one = kept(id, std::move(record));
    Json job = jobJson(one.view, now);
    job["left"] = one.left ? Json(secondsOf(*one.left)) : Json(nullptr);
    job["strip"] = one.strip;
    job["revision"] = one.revision;
    document["jobs"].push_back(std::move(job));
  }
  std::erase_if(kept_, [&](const auto& one) { return !there.contains(one.first); });
  document["more"] = 0;
  return document;
}

Json PageAnswers::versionsOf(const JobRecord& job) {
  Json versions = Json::array();
  for (const JobRecord& other : queue_.jobs()) {
    const bool sameScene = !job.scene.empty() && other.scene == job.scene;
    if (other.id != job.id && other.type == job.type &&
        (sameScene || (!job.name.empty() && other.name == job.name))) {
      versions.push_back(
          {{"job", other.id}, {"submitted", secondsOf(other.created)}, {"state", nameOf(other.state)}});
    }
  }
  return versions;
}

Json PageAnswers::job(JobId id) {
  const Clock::time_point now = Clock::now();
  const std::int64_t revision = revisions_.of(id);
  if (latestJob_.job != id || latestJob_.revision != revision || now >= latestJob_.asked + latestTime) {
    NoInspector inspector;
    const JobReport report = reportOn(queue_, recordOf(queue_, id), inspector);
    Json document = reportJson(report, momentNow());
    document["revision"] = revision;
    document["parameters"] = parametersOf(queue_.packed(id));
    document["versions"] = versionsOf(report.view.job);
    latestJob_ = {id, revision, now, std::move(document)};
  }
  return latestJob_.document;
}

const JobCells& PageAnswers::cellsNow(JobId id) {
  const Clock::time_point now = Clock::now();
  const std::int64_t revision = revisions_.of(id);
  const JobView& stands = view(id);
  if (latest_.job != id || latest_.revision != revision || now >= latest_.asked + latestTime) {
    states_.begin(now, now + checkingTime);
    latest_ = {id, revision, now, cellsOf(queue_, stands, states_, now)};
  }
  return latest_.cells;
}

RunSet PageAnswers::missingNow(JobId id) {
  FileStates states(inspector_);
  const Clock::time_point now = Clock::now();
  states.begin(now, Clock::time_point::max());
  return missingFrames(cellsOf(queue_, view(id), states, now));
}

std::string PageAnswers::cells(JobId id) {
  const JobCells& cells = cellsNow(id);
  std::string text = "{\"version\":";
  append(text, jsonVersion);
  text += ",\"kind\":\"page.cells\",\"job\":";
  append(text, id);
  text += ",\"revision\":";
  append(text, revisions_.of(id));
  text += view(id).job.hasFrames ? ",\"hasFrames\":true" : ",\"hasFrames\":false";
  appendList(text, "frames", cells.frames);
  text += ",\"states\":\"" + cells.states + '"';
  appendList(text, "files", cells.files);
  // To the microsecond: a packet of a thousand small frames may take less than a second.
  std::vector<double> seconds = cells.seconds;
  for (double& value : seconds) {
    value = std::round(value * 1e6) / 1e6;
  }
  appendList(text, "seconds", seconds);
  return text + "}\n";
}

} // namespace trovik
