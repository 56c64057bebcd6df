#pragma once

#include "trovik/machine/Interrupts.h"
#include "trovik/machine/Machine.h"
#include "trovik/page/HttpDaemon.h"
#include "trovik/page/PageGuard.h"
#include "trovik/page/PageHelpers.h"
#include "trovik/page/PageListening.h"
#include "trovik/page/PagePictures.h"
#include "trovik/page/PageRoute.h"
#include "trovik/page/PageSite.h"
#include "trovik/page/QueueChanges.h"
#include "trovik/text/Json.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace trovik {

/// What a page is to be.
struct PagePlan {
  Path site;        ///< the files that a browser shows
  Path pictures;    ///< the cache of small pictures
  Path imageHelper; ///< trovik-image
  /// A helper of the page, and its arguments: it answers questions, see PageHelper.
  std::vector<String> helper;
  /// Has it found out what became of jobs on a cluster, where there are any, as
  /// the verbs do that show jobs. Waits for nothing; the queue changes later.
  std::function<void(Queue& queue)> collect;
  /// Shows what helpers have to say to who started the page.
  std::function<void(const std::string& text)> say;
  std::string program; ///< the version
  bool readOnly = false;
};

/// The page: a reader of the queue that answers browsers, in one poll loop
/// with the queue, the helpers and the user's wish to end. While nobody asks
/// and nobody listens it sleeps. What jobs name is for helpers to open; only a
/// file that is downloaded is read here.
class PageServer final : private HttpHandler {
public:
  /// Throws a UsageError.
  PageServer(Queue& queue, PageSocket socket, PagePlan plan);
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
  HttpResponse about();
  /// What questions of this kind are about that go one after the other.
  std::string aboutOf(const PageRoute& route);
  void find(std::int64_t file, const std::function<void(const FoundFile& found)>& then);
  void sendOriginal(const FoundFile& found, HttpExchange exchange);

  std::optional<Clock::time_point> nextTurn() const;
  /// Sees what has changed. Who listens is told of it, whoever it was seen for.
  void look(bool alsoEngines = false);
  void tellChanges(Clock::time_point now);
  void tell(const char* event, const Json& data);

  Queue& queue_;
  PagePlan plan_;
  PageGuard guard_;
  PageSite site_;
  QueueChanges changes_;
  QueueWatch watch_;
  PageHelpers helpers_;
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
