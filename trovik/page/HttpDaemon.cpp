#include "trovik/page/HttpDaemon.h"

#include "host/foundation/Log.h"
#include "host/foundation/String.h"
#include "trovik/page/HttpLibrary.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <map>
#include <sys/socket.h>
#include <utility>

// The library calls back from within MHD_run, on the caller's own stack: nothing
// here is touched by two threads. An exchange belongs to its connection, and is
// made anew for each of the requests that come over it one after the other. A
// connection that waits for its answer, or for the next event of a stream, is
// suspended: the library then neither polls it nor counts its time.

namespace trovik {
namespace {

void logLine(void* /*closure*/, const char* format, std::va_list arguments) {
  char text[500];
  std::vsnprintf(text, sizeof text, format, arguments);
  LogDebug("page: " + std::string(text));
}

/// The library would decode what it hands on; nothing of ours is encoded.
std::size_t leaveAsIs(void* /*closure*/, MHD_Connection* /*connection*/, char* text) {
  return std::string_view(text).size();
}

} // namespace

class HttpDaemon::Impl {
public:
  Impl(Descriptor socket, HttpHandler& handler, const HttpLimits& limits)
      : socket_(std::move(socket)), handler_(handler), limits_(limits) {
    const auto silence =
        static_cast<unsigned>(std::chrono::duration_cast<std::chrono::seconds>(limits.silence).count());
    daemon_ = httpLibrary().startDaemon(
        MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_ERROR_LOG, 0, nullptr, nullptr, &Impl::onRequest,
        this, MHD_OPTION_EXTERNAL_LOGGER, &logLine, nullptr, MHD_OPTION_LISTEN_SOCKET, socket_.Number(),
        MHD_OPTION_CONNECTION_LIMIT, limits.connections, MHD_OPTION_PER_IP_CONNECTION_LIMIT,
        limits.ofOneAddress, MHD_OPTION_CONNECTION_MEMORY_LIMIT, limits.headers,
        MHD_OPTION_CONNECTION_TIMEOUT, silence, MHD_OPTION_URI_LOG_CALLBACK, &Impl::onTarget, this,
        MHD_OPTION_UNESCAPE_CALLBACK, &leaveAsIs, nullptr, MHD_OPTION_NOTIFY_CONNECTION, &Impl::onConnection,
        this, MHD_OPTION_NOTIFY_COMPLETED, &Impl::onCompleted, this, MHD_OPTION_STRICT_FOR_CLIENT, 1,
        MHD_OPTION_END);
    const MHD_DaemonInfo* info =
        daemon_ == nullptr ? nullptr : httpLibrary().daemonInfo(daemon_, MHD_DAEMON_INFO_EPOLL_FD);
    if (info == nullptr) {
      throw UsageError{"cannot serve the page: the library for HTTP does not start", ""};
    }
    poll_ = info->epoll_fd;
  }

  ~Impl() {
    if (daemon_ != nullptr) {
      // What is suspended has to go on before it can end.
      for (auto& [connection, exchange] : exchanges_) {
        exchange->ends = true;
        resume(*exchange);
      }
      httpLibrary().run(daemon_);
      // It closes the socket, which it was given.
      socket_.Release();
      httpLibrary().stopDaemon(daemon_);
    }
  }

  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  int descriptor() const { return poll_; }

  std::optional<Clock::time_point> deadline() const {
    std::optional<Clock::time_point> first;
    MHD_UNSIGNED_LONG_LONG milliseconds = 0;
    if (httpLibrary().timeout(daemon_, &milliseconds) == MHD_YES) {
      first = now_ + std::chrono::milliseconds(milliseconds);
    }
    for (const auto& [connection, exchange] : exchanges_) {
      if (exchange->stage == Stage::Reading && !exchange->ends) {
        const Clock::time_point end = exchange->since + limits_.request;
        first = first ? std::min(*first, end) : end;
      }
    }
    return first;
  }

  void advance(Clock::time_point now) {
    now_ = now;
    for (auto& [connection, exchange] : exchanges_) {
      if (exchange->stage == Stage::Reading && !exchange->ends && now >= exchange->since + limits_.request) {
        close(*exchange);
      }
    }
    httpLibrary().run(daemon_);
  }

  void answer(HttpExchange id, HttpResponse response) {
    const auto found = waiting_.find(id);
    if (found != waiting_.end()) {
      Exchange& exchange = *found->second;
      waiting_.erase(found);
      exchange.response = std::move(response);
      exchange.stage = Stage::Writing;
      resume(exchange);
    }
  }

  void push(std::string_view text) {
    for (auto& [connection, exchange] : exchanges_) {
      if (exchange->stage != Stage::Streaming || exchange->ends) {
        continue;
      }
      if (exchange->unsent.size() + text.size() > limits_.unsent) {
        close(*exchange);
      } else {
        exchange->unsent += text;
      }
      resume(*exchange);
    }
  }

  std::size_t streams() const {
    return static_cast<std::size_t>(std::count_if(exchanges_.begin(), exchanges_.end(), [](const auto& one) {
      return one.second->stage == Stage::Streaming && !one.second->ends;
    }));
  }
  std::size_t connections() const { return exchanges_.size(); }

private:
  enum class Stage { Reading, Waiting, Writing, Streaming };

  struct Exchange {
    MHD_Connection* connection = nullptr;
    Stage stage = Stage::Reading;
    Clock::time_point since; ///< it has been reading
    HttpExchange id = 0;
    HttpRequest request;
    bool headRead = false;
    bool suspended = false;
    bool ends = false; ///< is to be closed
    std::optional<HttpResponse> response;
    std::string unsent; ///< of a stream
  };

  static void resume(Exchange& exchange) {
    if (exchange.suspended) {
      exchange.suspended = false;
      httpLibrary().resume(exchange.connection);
    }
  }

  static void suspend(Exchange& exchange) {
    exchange.suspended = true;
    httpLibrary().suspend(exchange.connection);
  }

  /// The library sees the end of its input, or that nothing can be written.
  static void close(Exchange& exchange) {
    exchange.ends = true;
    const MHD_ConnectionInfo* info =
        httpLibrary().connectionInfo(exchange.connection, MHD_CONNECTION_INFO_CONNECTION_FD);
    if (info != nullptr) {
      shutdown(info->connect_fd, SHUT_RDWR);
    }
  }

  Exchange* find(MHD_Connection* connection) {
    const auto found = exchanges_.find(connection);
    return found == exchanges_.end() ? nullptr : found->second.get();
  }

  void begin(Exchange& exchange) {
    waiting_.erase(exchange.id);
    MHD_Connection* const connection = exchange.connection;
    exchange = Exchange();
    exchange.connection = connection;
    exchange.since = now_;
    exchange.id = ++last_;
  }

  static void onConnection(void* closure, MHD_Connection* connection, void** /*context*/,
                           MHD_ConnectionNotificationCode code) {
    Impl& self = *static_cast<Impl*>(closure);
    if (code == MHD_CONNECTION_NOTIFY_STARTED) {
      auto exchange = std::make_unique<Exchange>();
      exchange->connection = connection;
      self.begin(*exchange);
      self.exchanges_[connection] = std::move(exchange);
    } else if (const Exchange* exchange = self.find(connection)) {
      self.waiting_.erase(exchange->id);
      self.exchanges_.erase(connection);
    }
  }

  static void* onTarget(void* closure, const char* target, MHD_Connection* connection) {
    Exchange* const exchange = static_cast<Impl*>(closure)->find(connection);
    if (exchange != nullptr) {
      readTarget(target, exchange->request);
    }
    return exchange;
  }

  static void onCompleted(void* closure, MHD_Connection* connection, void** /*context*/,
                          MHD_RequestTerminationCode /*code*/) {
    Impl& self = *static_cast<Impl*>(closure);
    if (Exchange* const exchange = self.find(connection)) {
      self.begin(*exchange);
    }
  }

  static MHD_Result onHeader(void* closure, MHD_ValueKind /*kind*/, const char* name, const char* value) {
    static_cast<HttpRequest*>(closure)->headers.emplace_back(String(name).Lower(),
                                                             value == nullptr ? "" : value);
    return MHD_YES;
  }

  static MHD_Result onRequest(void* closure, MHD_Connection* connection, const char* /*url*/,
                              const char* method, const char* /*version*/, const char* data,
                              std::size_t* size, void** /*context*/) {
    Impl& self = *static_cast<Impl*>(closure);
    Exchange* const exchange = self.find(connection);
    return exchange != nullptr ? self.take(*exchange, method, {data, *size}, *size) : MHD_NO;
  }

  MHD_Result take(Exchange& exchange, const char* method, std::string_view data, std::size_t& left) {
    HttpRequest& request = exchange.request;
    if (exchange.ends) {
      return MHD_NO;
    }
    if (exchange.response) {
      return write(exchange);
    }
    if (!exchange.headRead) {
      exchange.headRead = true;
      request.method = method;
      httpLibrary().connectionValues(exchange.connection, MHD_HEADER_KIND, &Impl::onHeader, &request);
      exchange.response = handler_.refusal(request);
      return exchange.response ? write(exchange) : MHD_YES;
    }
    if (left > 0) { // what is too long is read to its end, and forgotten
      request.tooLong = request.tooLong || request.body.size() + data.size() > limits_.body;
      if (request.tooLong) {
        request.body.clear();
      } else {
        request.body += data;
      }
      left = 0;
      return MHD_YES;
    }
    HttpAnswer answer = handler_.answer(request, exchange.id);
    if (answer.kind == HttpAnswer::Kind::Later) {
      exchange.stage = Stage::Waiting;
      waiting_[exchange.id] = &exchange;
      suspend(exchange);
      return MHD_YES;
    }
    exchange.response = std::move(answer.response);
    return answer.kind == HttpAnswer::Kind::Stream ? stream(exchange) : write(exchange);
  }

  MHD_Result write(Exchange& exchange) {
    exchange.stage = Stage::Writing;
    const HttpResponse& response = *exchange.response;
    if (!response.file) {
      return queue(exchange, httpLibrary().responseFromBuffer(response.body.size(),
                                                              const_cast<char*>(response.body.data()),
                                                              MHD_RESPMEM_MUST_COPY));
    }
    const int copy = fcntl(response.file->Number(), F_DUPFD_CLOEXEC, 0); // which is closed with the response
    return copy < 0 ? MHD_NO : queue(exchange, httpLibrary().responseFromFile(response.fileSize, copy));
  }

  MHD_Result stream(Exchange& exchange) {
    constexpr std::size_t block = 2048;
    exchange.stage = Stage::Streaming;
    exchange.unsent = exchange.response->body;
    return queue(exchange, httpLibrary().responseFromCallback(MHD_SIZE_UNKNOWN, block, &Impl::onMore,
                                                              &exchange, nullptr));
  }

  static ssize_t onMore(void* closure, std::uint64_t /*position*/, char* buffer, std::size_t room) {
    Exchange& exchange = *static_cast<Exchange*>(closure);
    if (exchange.ends || exchange.stage != Stage::Streaming) {
      return MHD_CONTENT_READER_END_OF_STREAM;
    }
    if (exchange.unsent.empty()) {
      suspend(exchange);
      return 0;
    }
    const std::size_t count = exchange.unsent.copy(buffer, room);
    exchange.unsent.erase(0, count);
    return static_cast<ssize_t>(count);
  }

  static MHD_Result queue(Exchange& exchange, MHD_Response* response) {
    if (response == nullptr) {
      return MHD_NO;
    }
    if (!exchange.response->type.empty()) {
      httpLibrary().addHeader(response, MHD_HTTP_HEADER_CONTENT_TYPE, exchange.response->type.c_str());
    }
    for (const auto& [name, value] : exchange.response->headers) {
      httpLibrary().addHeader(response, name.c_str(), value.c_str());
    }
    const MHD_Result result = httpLibrary().queueResponse(
        exchange.connection, static_cast<unsigned>(exchange.response->status), response);
    httpLibrary().destroyResponse(response);
    return result;
  }

  Descriptor socket_;
  HttpHandler& handler_;
  HttpLimits limits_;
  MHD_Daemon* daemon_ = nullptr;
  int poll_ = -1;
  Clock::time_point now_ = Clock::now();
  HttpExchange last_ = 0;
  std::map<MHD_Connection*, std::unique_ptr<Exchange>> exchanges_; ///< one a connection
  std::map<HttpExchange, Exchange*> waiting_;                      ///< for an answer that comes later
};

HttpDaemon::HttpDaemon(Descriptor socket, HttpHandler& handler, const HttpLimits& limits)
    : impl_(std::make_unique<Impl>(std::move(socket), handler, limits)) {}
HttpDaemon::~HttpDaemon() = default;

int HttpDaemon::descriptor() const {
  return impl_->descriptor();
}
std::optional<Clock::time_point> HttpDaemon::deadline() const {
  return impl_->deadline();
}
void HttpDaemon::advance(Clock::time_point now) {
  impl_->advance(now);
}
void HttpDaemon::answer(HttpExchange exchange, HttpResponse response) {
  impl_->answer(exchange, std::move(response));
}
void HttpDaemon::push(std::string_view text) {
  impl_->push(text);
}
std::size_t HttpDaemon::streams() const {
  return impl_->streams();
}
std::size_t HttpDaemon::connections() const {
  return impl_->connections();
}

} // namespace trovik
