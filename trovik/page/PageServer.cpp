#include "trovik/page/PageServer.h"

#include "host/foundation/Characters.h"
#include "host/foundation/Exception.h"
#include "host/foundation/WholeNumber.h"
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

} // namespace

PageServer::PageServer(Queue& queue, PageSocket socket, PagePlan plan)
    : queue_(queue), plan_(std::move(plan)), guard_(guardFor(queue, socket, plan_.readOnly)),
      site_(plan_.site), changes_(queue, firstRevision()), watch_(queue.directory()), helpers_(plan_.helper),
      pictures_(
          plan_.pictures, plan_.imageHelper,
          [this](HttpExchange exchange, HttpResponse response) {
            daemon_->answer(exchange, secured(std::move(response)));
          },
          [this](std::int64_t file, const PagePictures::Then& then) { find(file, then); }),
      daemon_(std::make_unique<HttpDaemon>(std::move(socket.socket), static_cast<HttpHandler&>(*this))) {}

PageServer::~PageServer() = default;

std::string PageServer::address() const {
  return "http://" + guard_.hosts.front() + "/?token=" + guard_.token;
}

void PageServer::serve(Machine& machine, InterruptSource& interrupts) {
  // Who asked for a change is told what became of it.
  while (interrupts.take() == 0 || helpers_.steers()) {
    const bool listened = daemon_->streams() > 0;
    std::vector<pollfd> descriptors = {{daemon_->descriptor(), POLLIN, 0},
                                       {interrupts.descriptor(), POLLIN, 0}};
    if (listened) {
      descriptors.push_back({watch_.descriptor(), POLLIN, 0});
    }
    helpers_.addTo(descriptors);
    pictures_.addTo(descriptors);
    const std::optional<Clock::time_point> turn = nextTurn();
    machine.wait(descriptors, turn ? std::optional<Duration>(*turn - machine.now()) : std::nullopt);
    const Clock::time_point now = machine.now();
    helpers_.advance(changes_.revisions());
    if (const std::string said = helpers_.takeSaid(); !said.empty()) {
      plan_.say(said);
    }
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
  for (const auto& other : {helpers_.deadline(), pictures_.deadline()}) {
    if (other) {
      next = next ? std::min(*next, *other) : *other;
    }
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
           {{"revision", changes_.revisions().last}, {"jobs", untold_.jobs}, {"machine", untold_.machine}});
      untold_ = {};
      earliest_ = end + std::clamp<Duration>((end - now) * costShare, shortestPause, longestPause);
    }
    check_ = end + (followUps_ > 0 ? followUpTimes[static_cast<std::size_t>(--followUps_)] : fallbackTime);
  }
  if (now >= collecting_) {
    collecting_ = now + collectingTime;
    plan_.collect(queue_);
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
    answer.response.body = "retry: 2000\nevent: hello\ndata: " +
                           jsonLine({{"revision", changes_.revisions().last},
                                     {"readOnly", plan_.readOnly},
                                     {"program", plan_.program}}) +
                           '\n';
    return answer;
  }
  if (route.kind == PageRoute::Kind::Site) {
    if (std::optional<HttpResponse> file = site_.answer(request)) {
      answer.response = std::move(*file);
      return answer;
    }
  }
  if (route.kind == PageRoute::Kind::About) {
    answer.response = about();
    return answer;
  }
  if (route.kind == PageRoute::Kind::Site || route.kind == PageRoute::Kind::Unknown) {
    answer.response = problemResponse(404, "there is nothing of that name", "");
    return answer;
  }
  if (route.kind == PageRoute::Kind::Picture) {
    return pictures_.answer(request, route.number, exchange);
  }
  answer.kind = HttpAnswer::Kind::Later;
  if (route.kind == PageRoute::Kind::Original) {
    find(route.number, [this, exchange](const FoundFile& found) { sendOriginal(found, exchange); });
    return answer;
  }
  look();
  helpers_.ask(aboutOf(route), request, changes_.revisions(), [this, exchange](HttpResponse response) {
    daemon_->answer(exchange, secured(std::move(response)));
  });
  return answer;
}

std::string PageServer::aboutOf(const PageRoute& route) {
  switch (route.kind) {
  case PageRoute::Kind::Jobs:
    return "jobs";
  case PageRoute::Kind::Machine:
    return "machine";
  case PageRoute::Kind::Log: {
    const std::optional<AttemptRecord> attempt = queue_.attempt(route.number);
    return "job " + std::to_string(attempt ? attempt->job : 0);
  }
  default:
    return "job " + std::to_string(route.number);
  }
}

void PageServer::find(std::int64_t file, const std::function<void(const FoundFile& found)>& then) {
  const std::optional<FileRecord> record = queue_.file(file);
  const std::string folder = record ? record->path.substr(0, record->path.rfind('/') + 1) : std::string();
  const HttpRequest question{"GET", "/api/files/" + std::to_string(file) + "/original", {}, {}, {}, false};
  helpers_.ask("folder " + folder, question, changes_.revisions(),
               [then](HttpResponse response) { then(foundFrom(std::move(response))); });
}

void PageServer::sendOriginal(const FoundFile& found, HttpExchange exchange) {
  HttpResponse response;
  if (found.refusal) {
    response = *found.refusal;
  } else if (ServedFile file(found.path); file.identity != found.identity) {
    response = problemResponse(503, "the file has changed just now", "ask again");
  } else {
    response.type = "application/octet-stream";
    response.headers = {{"Cache-Control", "private, no-cache"},
                        {"Content-Disposition", "attachment; filename*=UTF-8''" + asParameter(found.path)}};
    response.fileSize = static_cast<std::uint64_t>(file.identity.size);
    response.file = std::make_shared<Descriptor>(std::move(file.descriptor));
  }
  daemon_->answer(exchange, secured(std::move(response)));
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

} // namespace trovik
