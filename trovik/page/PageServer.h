#pragma once

#include "trovik/machine/Interrupts.h"
#include "trovik/machine/Machine.h"
#include "trovik/page/HttpDaemon.h"
#include "trovik/page/PageAnswers.h"
#include "trovik/page/PageGuard.h"
#include "trovik/page/PageListening.h"
#include "trovik/page/PagePictures.h"
#include "trovik/page/PageRoute.h"
#include "trovik/page/PageSite.h"
#include "trovik/page/QueueChanges.h"
#include "trovik/page/Steering.h"

#include <memory>
#include <string>

namespace trovik {

/// What a page is to be.
struct PagePlan {
  Path site;           ///< the files that a browser shows
  Path pictures;       ///< the cache of small pictures
  Path helper;         ///< trovik-image
  std::string program; ///< the version
  bool readOnly = false;
};

/// The page: a reader of the queue that answers browsers, in one poll loop
/// with the queue, the image helper and the user's wish to end. While nobody
/// asks and nobody listens it sleeps.
class PageServer final : private HttpHandler {
public:
  /// Throws a UsageError.
  PageServer(Queue& queue, PageSocket socket, const PagePlan& plan, Steering& steering);
  ~PageServer() override;
  PageServer(const PageServer&) = delete;
  PageServer& operator=(const PageServer&) = delete;

  /// The address to be opened, with the token.
  std::string address() const;
  /// Serves until the user asks for the end.
  void serve(Machine& machine, InterruptSource& interrupts);

private:
  std::optional<HttpResponse> refusal(const HttpRequest& request) override;
  HttpAnswer answer(const HttpRequest& request, HttpExchange exchange) override;
  HttpAnswer routed(const HttpRequest& request, HttpExchange exchange);
  HttpAnswer picture(const HttpRequest& request, std::int64_t file, HttpExchange exchange);
  HttpResponse original(std::int64_t file);
  HttpResponse read(const HttpRequest& request, const PageRoute& route);
  HttpResponse steered(const HttpRequest& request, const PageRoute& route);
  HttpResponse about();

  std::optional<Clock::time_point> nextTurn() const;
  /// Sees what has changed. Who listens is told of it, whoever it was seen for.
  void look(bool alsoEngines = false);
  void tellChanges(Clock::time_point now);
  void tell(const char* event, const Json& data);

  Queue& queue_;
  PagePlan plan_;
  Steering& steering_;
  PageGuard guard_;
  PageSite site_;
  QueueChanges changes_;
  PageAnswers answers_;
  QueueWatch watch_;
  PagePictures pictures_;
  std::unique_ptr<HttpDaemon> daemon_;

  QueueChanges::Change untold_; ///< that was seen
  // When what is looked for next, while somebody listens.
  Clock::time_point check_{};
  Clock::time_point earliest_{};
  Clock::time_point heartbeat_{};
  Clock::time_point collecting_{};
  int followUps_ = 0; ///< checks still to come after the kernel's word
};

} // namespace trovik
