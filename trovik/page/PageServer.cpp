#include "trovik/page/PageServer.h"

#include "host/foundation/Characters.h"
#include "host/foundation/Exception.h"
#include "host/foundation/WholeNumber.h"
#include "trovik/page/PageFrames.h"
#include "trovik/page/PageMachine.h"
#include "trovik/page/PageReplies.h"
#include "trovik/page/PageToken.h"
#include "trovik/queue/QueueError.h"
#include "trovik/records/Moments.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <array>
#include <utility>

namespace trovik {
namespace {

/// What a queue without the kernel's word about it is asked.
constexpr Duration fallbackTime = std::chrono::milliseconds(500);
constexpr Duration heartbeatTime = std::chrono::seconds(15);
constexpr Duration collectingTime = std::chrono::seconds(10);
/// Between two looks, so that a burst of commits costs no more than a share of a
/// processor: a look that took long is followed by a longer pause.
constexpr Duration shortestPause = std::chrono::milliseconds(20);
constexpr Duration longestPause = std::chrono::milliseconds(300);
constexpr int costShare = 5;
/// The kernel tells of a commit while it is written. When it counts is seen a
/// moment later.
constexpr std::array<Duration, 3> followUpTimes = {
    std::chrono::milliseconds(64), std::chrono::milliseconds(16), std::chrono::milliseconds(4)};

PageGuard guardFor(const Queue& queue, const PageSocket& socket, bool readOnly) {
  PageGuard guard;
  guard.token = pageToken(queue.directory());
  guard.cookie = "trovik-" + std::to_string(socket.port);
  guard.hosts = socket.hosts;
  guard.anyAddress = socket.anyAddress;
  guard.port = socket.port;
  guard.readOnly = readOnly;
  return guard;
}

std::int64_t firstRevision() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(momentNow().time_since_epoch()).count();
}

/// The name of a file as the value of a header's parameter.
std::string asParameter(const std::string& path) {
  std::string text;
  for (const char c : path.substr(path.rfind('/') + 1)) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                       c == '.' || c == '-' || c == '_';
    text += plain ? std::string(1, c) : '%' + HexOf(std::string_view(&c, 1));
  }
  return text;
}

/// A whole number of the query; nothing where there is none.
std::optional<std::int64_t> numberIn(const HttpRequest& request, const std::string& name) {
  const auto found = request.query.find(name);
  if (found == request.query.end()) {
    return std::nullopt;
  }
  const auto number = ReadWholeNumber<std::int64_t>(found->second);
  if (!number) {
    throw UsageError{name + ": " + inQuotes(found->second) + " is not a whole number", ""};
  }
  return number;
}

} // namespace

PageServer::PageServer(Queue& queue, PageSocket socket, const PagePlan& plan, Steering& steering)
    : queue_(queue), plan_(plan), steering_(steering), guard_(guardFor(queue, socket, plan.readOnly)),
      site_(plan.site), changes_(queue, firstRevision()), answers_(queue, changes_),
      watch_(queue.directory()), pictures_(plan.pictures, plan.helper,
                                           [this](HttpExchange exchange, HttpResponse response) {
                                             daemon_->answer(exchange, secured(std::move(response)));
                                           }),
      daemon_(std::make_unique<HttpDaemon>(std::move(socket.socket), static_cast<HttpHandler&>(*this))) {}

PageServer::~PageServer() = default;

std::string PageServer::address() const {
  return "http://" + guard_.hosts.front() + "/?token=" + guard_.token;
}

void PageServer::serve(Machine& machine, InterruptSource& interrupts) {
  while (interrupts.take() == 0) {
    const bool listened = daemon_->streams() > 0;
    std::vector<pollfd> descriptors = {{daemon_->descriptor(), POLLIN, 0},
                                       {interrupts.descriptor(), POLLIN, 0}};
    if (listened) {
      descriptors.push_back({watch_.descriptor(), POLLIN, 0});
    }
    pictures_.addTo(descriptors);
    const std::optional<Clock::time_point> turn = nextTurn();
    machine.wait(descriptors, turn ? std::optional<Duration>(*turn - machine.now()) : std::nullopt);
    const Clock::time_point now = machine.now();
    pictures_.advance(now);
    if (daemon_->streams() > 0) {
      tellChanges(now);
    } else {
      untold_ = {};
    }
    daemon_->advance(now);
  }
}

std::optional<Clock::time_point> PageServer::nextTurn() const {
  std::optional<Clock::time_point> next = daemon_->deadline();
  if (const std::optional<Clock::time_point> pictures = pictures_.deadline()) {
    next = next ? std::min(*next, *pictures) : *pictures;
  }
  if (daemon_->streams() > 0) {
    const Clock::time_point own = std::min({std::max(check_, earliest_), heartbeat_, collecting_});
    next = next ? std::min(*next, own) : own;
  }
  return next;
}

void PageServer::look(bool alsoEngines) {
  untold_.add(alsoEngines ? changes_.updateWithEngines() : changes_.update());
  if (untold_.any()) {
    check_ = Clock::time_point();
  }
}

void PageServer::tellChanges(Clock::time_point now) {
  if (watch_.take()) {
    check_ = now;
    followUps_ = static_cast<int>(followUpTimes.size());
  }
  if (now >= check_ && now >= earliest_) {
    try {
      look(followUps_ == 0);
    } catch (const QueueError&) {
      // Asked again the next time; who asks for a job hears of it.
    }
    const Clock::time_point end = Clock::now();
    if (untold_.any()) {
      tell("change",
           {{"revision", changes_.revision()}, {"jobs", untold_.jobs}, {"machine", untold_.machine}});
      untold_ = {};
      earliest_ = end + std::clamp<Duration>((end - now) * costShare, shortestPause, longestPause);
    }
    check_ = end + (followUps_ > 0 ? followUpTimes[static_cast<std::size_t>(--followUps_)] : fallbackTime);
  }
  if (now >= collecting_) {
    collecting_ = now + collectingTime;
    steering_.collect(queue_);
  }
  if (now >= heartbeat_) {
    heartbeat_ = now + heartbeatTime;
    daemon_->push(": all is well\n\n");
  }
}

void PageServer::tell(const char* event, const Json& data) {
  // A line ends with its line feed, which the second one makes an event of.
  daemon_->push(std::string("event: ") + event + "\ndata: " + jsonLine(data) + '\n');
}

std::optional<HttpResponse> PageServer::refusal(const HttpRequest& request) {
  const std::optional<PageRefusal> refusal = refusalOf(guard_, request);
  if (!refusal) {
    return std::nullopt;
  }
  const bool isData = request.path.starts_with("/api/") || request.path.starts_with("/assets/");
  return secured(isData ? problemResponse(refusal->status, refusal->message, refusal->hint)
                        : wordsResponse(refusal->status, refusal->message, refusal->hint));
}

HttpAnswer PageServer::answer(const HttpRequest& request, HttpExchange exchange) {
  HttpAnswer answer;
  try {
    answer = routed(request, exchange);
  } catch (const PageMissing& missing) {
    answer.response = problemResponse(404, missing.message, "");
  } catch (const UsageError& error) {
    answer.response = problemResponse(400, error.message, error.hint);
  } catch (const QueueError& error) {
    answer.response = problemResponse(503, error.message, error.hint);
  } catch (...) {
    answer.response = problemResponse(500, TakeCaughtText(), "");
  }
  answer.response = secured(std::move(answer.response));
  return answer;
}

HttpAnswer PageServer::routed(const HttpRequest& request, HttpExchange exchange) {
  HttpAnswer answer;
  if (opensWithToken(guard_, request)) {
    answer.response.status = 303;
    answer.response.headers = {
        {"Location", "/"}, {"Set-Cookie", cookieOf(guard_)}, {"Cache-Control", "no-store"}};
    return answer;
  }
  if (request.tooLong) {
    answer.response = problemResponse(413, "the request is too long", "");
    return answer;
  }
  const PageRoute route = routeOf(request.path);
  const bool steers = request.method == "POST";
  if (steers != (route.kind == PageRoute::Kind::Steer) && route.kind != PageRoute::Kind::Unknown) {
    answer.response =
        problemResponse(405, inQuotes(request.method) + " is nothing that can be done with this", "");
    return answer;
  }
  if (route.kind == PageRoute::Kind::Events) {
    answer.kind = HttpAnswer::Kind::Stream;
    answer.response.type = "text/event-stream";
    answer.response.headers = {{"Cache-Control", "no-store"}};
    look(); // what came before is no news
    answer.response.body =
        "retry: 2000\nevent: hello\ndata: " +
        jsonLine(
            {{"revision", changes_.revision()}, {"readOnly", plan_.readOnly}, {"program", plan_.program}}) +
        '\n';
    return answer;
  }
  if (route.kind == PageRoute::Kind::Picture) {
    return picture(request, route.number, exchange);
  }
  answer.response = steers                                    ? steered(request, route)
                    : route.kind == PageRoute::Kind::Original ? original(route.number)
                                                              : read(request, route);
  return answer;
}

HttpAnswer PageServer::picture(const HttpRequest& request, std::int64_t number, HttpExchange exchange) {
  const std::optional<FileRecord> file = queue_.file(number);
  if (!file) {
    throw PageMissing{"there is no file " + std::to_string(number)};
  }
  return pictures_.answer(request, file->path, exchange);
}

HttpResponse PageServer::original(std::int64_t number) {
  const std::optional<FileRecord> record = queue_.file(number);
  if (!record) {
    throw PageMissing{"there is no file " + std::to_string(number)};
  }
  ServedFile file(record->path);
  if (!file.isThere()) {
    return problemResponse(404, "the file is not sent: " + file.problem, "");
  }
  HttpResponse response;
  response.type = "application/octet-stream";
  response.headers = {{"Cache-Control", "private, no-cache"},
                      {"Content-Disposition", "attachment; filename*=UTF-8''" + asParameter(record->path)}};
  response.fileSize = static_cast<std::uint64_t>(file.identity.size);
  response.file = std::make_shared<Descriptor>(std::move(file.descriptor));
  return response;
}

HttpResponse PageServer::about() {
  Json document = jsonOfKind("page.about");
  document["readOnly"] = plan_.readOnly;
  document["name"] = nameOfMachine();
  document["directory"] = queue_.directory().Text();
  document["program"] = plan_.program;
  document["now"] = secondsOf(momentNow());
  return jsonResponse(document);
}

HttpResponse PageServer::read(const HttpRequest& request, const PageRoute& route) {
  look();
  HttpResponse response;
  queue_.inSnapshot([&] {
    switch (route.kind) {
    case PageRoute::Kind::About:
      response = about();
      break;
    case PageRoute::Kind::Jobs:
      response = jsonResponse(answers_.jobs());
      break;
    case PageRoute::Kind::Job:
      response = jsonResponse(answers_.job(route.number));
      break;
    case PageRoute::Kind::Cells:
      response = jsonTextResponse(answers_.cells(route.number));
      break;
    case PageRoute::Kind::Frame:
      response = jsonResponse(
          frameJson(queue_, answers_.view(route.number), route.frame, answers_.cellsNow(route.number)));
      break;
    case PageRoute::Kind::Log:
      response = jsonResponse(logPieceJson(queue_, route.number, numberIn(request, "from")));
      break;
    case PageRoute::Kind::Machine:
      response = jsonResponse(machineJson(queue_));
      break;
    case PageRoute::Kind::Site:
      if (std::optional<HttpResponse> file = site_.answer(request)) {
        response = std::move(*file);
        break;
      }
      [[fallthrough]];
    default:
      throw PageMissing{"there is nothing of that name"};
    }
  });
  return response;
}

HttpResponse PageServer::steered(const HttpRequest& request, const PageRoute& route) {
  if (route.kind != PageRoute::Kind::Steer) {
    throw PageMissing{"there is nothing of that name"};
  }
  const bool missing = route.action == "missing";
  SteeringWish wish = steeringWish(steeringActionOf(route.action).value_or(SteeringWish::Action::Retry),
                                   route.number, request.body);
  look();
  const JobView& view = answers_.view(wish.job); // throws for an unknown one
  Json document = jsonOfKind("page.done");
  document["job"] = wish.job;
  document["dryRun"] = wish.dryRun;
  if (missing) {
    if (wish.frames || !view.job.hasFrames) {
      throw UsageError{"\"missing\" names its frames by itself, of a job with frames",
                       "\"retry\" takes frames, or does the work again"};
    }
    const RunSet frames = answers_.missingNow(wish.job);
    if (frames.empty()) {
      throw UsageError{"job " + std::to_string(wish.job) + ": nothing is missing", ""};
    }
    wish.frames = frames.text();
  }
  const SteeringDone done = steering_.steer(wish);
  document["text"] = done.text;
  document["command"] = done.command;
  return jsonResponse(document);
}

} // namespace trovik
