#pragma once

#include "trovik/machine/Machine.h"
#include "trovik/page/Http.h"

#include <memory>
#include <optional>
#include <string_view>

namespace trovik {

/// Bounds of what clients may do, whoever they are.
struct HttpLimits {
  unsigned connections = 256;
  unsigned ofOneAddress = 240;
  std::size_t headers = std::size_t{16} << 10U; ///< bytes of request line and headers
  std::size_t body = std::size_t{64} << 10U;    ///< bytes
  std::size_t unsent = std::size_t{256} << 10U; ///< bytes of a stream that its client does not take
  Duration request = std::chrono::seconds(10);  ///< from the first byte, or the answer before, to the last
  Duration silence = std::chrono::seconds(30);  ///< with a client that takes nothing of its answer
};

/// HTTP, by libmicrohttpd: its connections are served within the caller's own
/// poll loop, without a thread, so that a client that only listens costs a
/// descriptor and some kilobytes. For one thread.
class HttpDaemon {
public:
  /// Serves what connects to the socket, which listens already. Throws a
  /// UsageError where that cannot be.
  HttpDaemon(Descriptor socket, HttpHandler& handler, const HttpLimits& limits = {});
  ~HttpDaemon();
  HttpDaemon(const HttpDaemon&) = delete;
  HttpDaemon& operator=(const HttpDaemon&) = delete;

  /// Readable (poll) when there is something to do.
  int descriptor() const;
  /// When `advance` is wanted though nothing is readable.
  std::optional<Clock::time_point> deadline() const;
  /// Reads, calls the handler, writes; waits for nothing.
  void advance(Clock::time_point now);

  /// The answer that was to come later. Nothing is done where its client has gone.
  void answer(HttpExchange exchange, HttpResponse response);
  /// Sends a text to the clients of all streams. One that has not taken what came
  /// before is left.
  void push(std::string_view text);
  std::size_t streams() const;
  /// Connections that are open now.
  std::size_t connections() const;

private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

} // namespace trovik
