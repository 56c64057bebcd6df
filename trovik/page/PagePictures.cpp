#include "trovik/page/PagePictures.h"

#include "host/foundation/WholeNumber.h"
#include "trovik/page/PageReplies.h"

#include <algorithm>
#include <array>
#include <thread>
#include <unistd.h>
#include <utility>

namespace trovik {
namespace {

constexpr std::array<int, 6> widths = {80, 160, 320, 640, 1280, 2560};
constexpr std::size_t wantedLimit = 256;
constexpr std::size_t problemsLimit = 10'000;
constexpr std::size_t helperLimit = 2; // the other processors belong to the renderers
constexpr Duration patience = std::chrono::seconds(60);
constexpr Duration restTime = std::chrono::seconds(60);

HttpResponse noPicture(const std::string& problem) {
  Json document = jsonOfKind("page.problem");
  document["message"] = "there is no picture of it";
  document["hint"] = nullptr;
  document["problem"] = problem;
  return jsonResponse(document, 415);
}

HttpResponse tryAgain(const std::string& message) {
  HttpResponse response = problemResponse(503, message, "ask again");
  response.headers.emplace_back("Retry-After", "1");
  return response;
}

} // namespace

PagePictures::PagePictures(const Path& cache, const Path& helper, Deliver deliver, Find find)
    : cache_(cache), deliver_(std::move(deliver)), find_(std::move(find)) {
  const std::size_t count = std::clamp<std::size_t>(std::thread::hardware_concurrency() / 2, 1, helperLimit);
  for (std::size_t i = 0; i < count; ++i) {
    helpers_.push_back(std::make_unique<ImageHelper>(helper, Clock::now, patience, ImageHelper::oneAtATime));
  }
}

HttpResponse PagePictures::pictureResponse(ServedFile picture, const std::string& tag) const {
  HttpResponse response;
  response.type = "image/jpeg";
  response.headers = {{"Cache-Control", "private, no-cache"}, {"ETag", tag}};
  response.fileSize = static_cast<std::uint64_t>(picture.identity.size);
  response.file = std::make_shared<Descriptor>(std::move(picture.descriptor));
  return response;
}

HttpAnswer PagePictures::answer(const HttpRequest& request, std::int64_t file, HttpExchange exchange) {
  HttpAnswer answer;
  const auto text = request.query.find("w");
  const auto width = text == request.query.end() ? std::nullopt : ReadWholeNumber<int>(text->second);
  if (!width || std::find(widths.begin(), widths.end(), *width) == widths.end()) {
    answer.response =
        problemResponse(400, "a picture needs its width", "w is 80, 160, 320, 640, 1280 or 2560");
    return answer;
  }
  answer.kind = HttpAnswer::Kind::Later;
  find_(file, [this, file, width = *width, known = request.header("if-none-match"),
               exchange](const FoundFile& found) {
    if (std::optional<HttpResponse> response = pictureOf(found, file, width, known, exchange)) {
      deliver_(exchange, std::move(*response));
    }
  });
  return answer;
}

std::optional<HttpResponse> PagePictures::pictureOf(const FoundFile& found, std::int64_t file, int width,
                                                    const std::optional<std::string>& known,
                                                    HttpExchange exchange) {
  if (found.refusal) {
    return found.refusal;
  }
  const std::string key = found.identity.text() + '-' + std::to_string(width);
  const std::string tag = '"' + key + '"';
  if (known == tag) {
    HttpResponse same;
    same.status = 304;
    same.headers = {{"Cache-Control", "private, no-cache"}, {"ETag", tag}};
    return same;
  }
  if (std::optional<ServedFile> picture = cache_.find(found.identity, width)) {
    return pictureResponse(std::move(*picture), tag);
  }
  if (const auto problem = problems_.find(found.identity.text()); problem != problems_.end()) {
    return noPicture(problem->second);
  }
  if (const auto same = wanted_.find(key); same != wanted_.end()) {
    same->second.exchanges.push_back(exchange);
    return std::nullopt;
  }
  if (wanted_.size() >= wantedLimit) {
    return tryAgain("too many pictures are waited for");
  }
  wanted_[key] = {file, found.identity, width, {exchange}};
  rest_.reset();
  const Path draft = cache_.draft();
  const auto idlest = std::min_element(helpers_.begin(), helpers_.end(), [](const auto& a, const auto& b) {
    return a->waiting() < b->waiting();
  });
  // It may answer at once, while somebody walks through what is wanted.
  (*idlest)->draw(Path(found.path), draft, width, [this, key, draft](const Inspection& inspection) {
    finished_.push_back({key, draft, inspection});
  });
  return std::nullopt;
}

void PagePictures::addTo(std::vector<pollfd>& descriptors) const {
  for (const auto& helper : helpers_) {
    descriptors.push_back({helper->descriptor(), POLLIN, 0});
  }
}

std::optional<Clock::time_point> PagePictures::deadline() const {
  if (!finished_.empty()) {
    return Clock::time_point();
  }
  std::optional<Clock::time_point> first = rest_;
  for (const auto& helper : helpers_) {
    if (const std::optional<Clock::time_point> end = helper->deadline()) {
      first = first ? std::min(*first, *end) : *end;
    }
  }
  return first;
}

void PagePictures::advance(Clock::time_point now) {
  for (const auto& helper : helpers_) {
    helper->advance(now);
  }
  if (!finished_.empty()) {
    const std::vector<Finished> finished = std::exchange(finished_, {});
    for (const Finished& one : finished) {
      finish(one);
    }
    rest_ = now + restTime;
  }
  if (rest_ && now >= *rest_) {
    rest_.reset();
    for (const auto& helper : helpers_) {
      helper->rest();
    }
  }
}

void PagePictures::finish(const Finished& finished) {
  // The helper was told a name, and what lies there may be another file by now.
  find_(wanted_.at(finished.key).file, [this, finished](const FoundFile& found) {
    const auto place = wanted_.find(finished.key);
    const Wanted wanted = std::move(place->second);
    wanted_.erase(place);
    for (const HttpExchange exchange : wanted.exchanges) {
      deliver_(exchange, made(wanted, finished, found));
    }
    unlink(finished.draft.c_str()); // where it was not kept
  });
}

HttpResponse PagePictures::made(const Wanted& wanted, const Finished& finished, const FoundFile& found) {
  if (found.refusal || found.identity != wanted.identity) {
    return found.refusal && found.refusal->status == 503 ? *found.refusal
                                                         : tryAgain("the file has changed just now");
  }
  const Inspection& inspection = finished.inspection;
  if (inspection.problem.starts_with(notLookedInto) || inspection.problem.starts_with(notDrawn)) {
    return tryAgain(inspection.problem);
  }
  if (!inspection.problem.empty() || !inspection.image) {
    if (problems_.size() >= problemsLimit) {
      problems_.clear();
    }
    return noPicture(problems_[wanted.identity.text()] = inspection.image || !inspection.problem.empty()
                                                             ? inspection.problem
                                                             : "It is no image");
  }
  if (access(finished.draft.c_str(), F_OK) == 0) {
    cache_.keep(finished.draft, wanted.identity, wanted.width);
  }
  std::optional<ServedFile> picture = cache_.find(wanted.identity, wanted.width);
  return picture ? pictureResponse(std::move(*picture), '"' + finished.key + '"')
                 : tryAgain("the picture could not be kept");
}

} // namespace trovik
