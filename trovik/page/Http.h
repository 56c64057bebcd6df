#pragma once

#include "host/foundation/Descriptor.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace trovik {

/// What a client asks for, byte for byte as it came.
struct HttpRequest {
  std::string method; ///< "GET"
  std::string path;   ///< up to the question mark; nothing is decoded
  std::map<std::string, std::string> query;
  std::vector<std::pair<std::string, std::string>> headers; ///< names in small letters
  std::string body;
  bool tooLong = false; ///< its body is; nothing of it is kept

  /// The value of a header; nothing where it is missing.
  std::optional<std::string> header(const std::string& name) const;
  std::size_t count(const std::string& name) const;
};

/// Splits "/path?name=value&…". Of a name that is given twice the last counts.
void readTarget(const std::string& target, HttpRequest& request);

struct HttpResponse {
  int status = 200;
  std::string type; ///< of the content; empty for none
  std::string body;
  std::vector<std::pair<std::string, std::string>> headers;
  std::shared_ptr<Descriptor> file; ///< is sent instead of the body, from its start
  std::uint64_t fileSize = 0;
};

/// Which exchange an answer belongs to; never used again.
using HttpExchange = std::uint64_t;

/// What becomes of a request.
struct HttpAnswer {
  enum class Kind {
    Now,    ///< the response
    Later,  ///< given by HttpDaemon::answer
    Stream, ///< the response's body is the begin; HttpDaemon::push goes on, until the client leaves
  };
  Kind kind = Kind::Now;
  HttpResponse response{};
};

/// Answers requests. Calls come from HttpDaemon::advance, and never within
/// another call; none may throw.
class HttpHandler {
public:
  virtual ~HttpHandler() = default;
  /// Before its body is read: a response for one that is refused.
  virtual std::optional<HttpResponse> refusal(const HttpRequest& request) = 0;
  virtual HttpAnswer answer(const HttpRequest& request, HttpExchange exchange) = 0;
};

} // namespace trovik
