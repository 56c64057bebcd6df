#include "trovik/page/PageFrames.h"

#include "trovik/page/PageAnswers.h"
#include "trovik/page/ServedFile.h"
#include "trovik/records/Moments.h"
#include "trovik/reports/AttemptText.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace trovik {
namespace {

constexpr std::int64_t pieceSize = std::int64_t{64} << 10U;
constexpr std::size_t longestCharacter = 4;

const char* wordOf(char letter) {
  switch (letter) {
  case 'g':
    return "good";
  case 'm':
    return "missing";
  case 'd':
    return "damaged";
  case 'f':
    return "failed";
  case 'r':
  case 'R':
    return "running";
  case 'c':
    return "canceled";
  default:
    return "waiting";
  }
}

bool isContinuation(char byte) {
  return (static_cast<unsigned char>(byte) & 0xc0U) == 0x80U;
}

/// How many bytes the character has that begins so; 0 for none.
std::size_t lengthOf(char first) {
  const auto byte = static_cast<unsigned char>(first);
  return byte < 0x80U ? 1 : byte >= 0xf0U ? 4 : byte >= 0xe0U ? 3 : byte >= 0xc0U ? 2 : 0;
}

/// Why the frame is not good.
std::string noteOf(char letter, const std::vector<AttemptRecord>& attempts, const JobCells& cells,
                   std::size_t place) {
  if (letter == 'm') {
    return "Its file is not there any more";
  }
  if (letter == 'd') {
    const auto problem = cells.problems.find(place);
    return problem == cells.problems.end() ? std::string() : problem->second;
  }
  if ((letter == 'f' || letter == 'w' || letter == 'c') && !attempts.empty()) {
    return attempts.back().reason;
  }
  return {};
}

/// How far `place` lies behind the start or before the end of a log.
std::int64_t beginOf(std::optional<std::int64_t> from, std::int64_t size) {
  if (!from) {
    return std::max<std::int64_t>(0, size - pieceSize);
  }
  return *from < 0 ? (*from < -size ? 0 : size + *from) : std::min(*from, size);
}

} // namespace

Json frameJson(Queue& queue, const JobView& view, std::optional<int> frame, const JobCells& cells) {
  const bool hasFrames = view.job.hasFrames;
  std::size_t place = 0;
  if (hasFrames) {
    const auto found =
        frame ? std::lower_bound(cells.frames.begin(), cells.frames.end(), *frame) : cells.frames.end();
    if (found == cells.frames.end() || *found != *frame) {
      throw PageMissing{"job " + std::to_string(view.job.id) +
                        (frame ? " has no frame " + std::to_string(*frame) : std::string(" has frames"))};
    }
    place = static_cast<std::size_t>(found - cells.frames.begin());
  } else if (frame) {
    throw PageMissing{"job " + std::to_string(view.job.id) + " has no frames"};
  }
  const std::vector<AttemptRecord> attempts =
      hasFrames ? queue.attemptsAt(view.job.id, *frame) : queue.attempts(view.job.id);
  const std::vector<JobFile> all = filesOf(queue, view);
  std::vector<const JobFile*> files;
  for (const JobFile& file : all) {
    const bool ofAttempt = !file.frame && std::any_of(attempts.begin(), attempts.end(), [&](const auto& one) {
      return one.id == file.attempt;
    });
    if (!hasFrames || file.frame == frame || file.frames.contains(*frame) || ofAttempt) {
      files.push_back(&file);
    }
  }
  const Moment now = momentNow();
  const char letter = cells.states[place];
  Json document = jsonOfKind("page.frame");
  document["job"] = view.job.id;
  document["frame"] = frame ? Json(*frame) : Json(nullptr);
  document["state"] = wordOf(letter);
  document["note"] = textOrNull(noteOf(letter, attempts, cells, place));
  document["file"] = cells.files[place];
  document["attempts"] = Json::array();
  for (const AttemptRecord& attempt : attempts) {
    const Path log = logOf(attempt, view.job);
    Json json =
        attemptJson(view.job, attempt, ServedFile(log.Text()).isThere() ? readLogEnd(log) : LogEnd(), now);
    json["id"] = attempt.id;
    json["running"] = attempt.state == AttemptState::Running;
    document["attempts"].push_back(std::move(json));
  }
  document["files"] = Json::array();
  for (const JobFile* file : files) {
    document["files"].push_back({{"id", file->id},
                                 {"frame", file->frame ? Json(*file->frame) : Json(nullptr)},
                                 {"file", file->path},
                                 {"checked", file->checked},
                                 {"size", file->size},
                                 {"problem", textOrNull(file->problem)},
                                 {"modified", std::round(static_cast<double>(file->modified) / 1e6) / 1e3}});
  }
  return document;
}

std::pair<std::size_t, std::size_t> cutCharacters(std::string_view piece) {
  std::size_t front = 0;
  while (front < piece.size() && front < longestCharacter && isContinuation(piece[front])) {
    ++front;
  }
  front = front == longestCharacter ? 0 : front;
  std::size_t back = 0;
  while (back < piece.size() && back < longestCharacter && isContinuation(piece[piece.size() - 1 - back])) {
    ++back;
  }
  const bool within = back < piece.size() && lengthOf(piece[piece.size() - 1 - back]) > back + 1;
  return {front, within ? back + 1 : 0};
}

Json logPieceJson(Queue& queue, AttemptId id, std::optional<std::int64_t> from) {
  const std::optional<AttemptRecord> attempt = queue.attempt(id);
  const std::optional<JobRecord> job = attempt ? queue.job(attempt->job) : std::nullopt;
  if (!job) {
    throw PageMissing{"there is no attempt " + std::to_string(id)};
  }
  const JobView view = viewOf(queue, *job); // which knows the usual folder of logs
  const ServedFile log(logOf(*attempt, view.job).Text());
  Json document = jsonOfKind("page.log");
  document["attempt"] = id;
  std::int64_t begin = log.isThere() ? beginOf(from, log.identity.size) : 0;
  std::string text(pieceSize, '\0');
  text.resize(log.isThere() ? log.read(begin, text) : 0);
  const auto [front, back] = cutCharacters(text);
  // What the piece before ended with is not cut again, and the end of the log is
  // its end: a character that is half there may be completed yet.
  const bool isMiddle = from.value_or(-1) < 0;
  text.erase(text.size() - back);
  if (isMiddle && begin > 0) {
    text.erase(0, front);
    begin += static_cast<std::int64_t>(front);
  }
  document["from"] = begin;
  document["next"] = begin + static_cast<std::int64_t>(text.size());
  document["size"] = log.identity.size;
  document["running"] = attempt->state == AttemptState::Running;
  document["text"] = losslessText(text);
  return document;
}

} // namespace trovik
