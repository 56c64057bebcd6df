#include "trovik/page/PageGuard.h"

#include "host/foundation/WholeNumber.h"
#include "trovik/text/Text.h"

#include <algorithm>
#include <arpa/inet.h>

namespace trovik {
namespace {

/// "127.0.0.1:7780" and "[::1]:7780": an address by its number, with this port.
bool isAddress(const std::string& host, unsigned port) {
  const std::string ending = ":" + std::to_string(port);
  if (!host.ends_with(ending)) {
    return false;
  }
  std::string name = host.substr(0, host.size() - ending.size());
  in6_addr address{};
  if (name.size() > 2 && name.front() == '[' && name.back() == ']') {
    name = name.substr(1, name.size() - 2);
    return inet_pton(AF_INET6, name.c_str(), &address) == 1;
  }
  return inet_pton(AF_INET, name.c_str(), &address) == 1;
}

bool isOurs(const PageGuard& guard, const std::string& host) {
  return std::find(guard.hosts.begin(), guard.hosts.end(), host) != guard.hosts.end() ||
         (guard.anyAddress && isAddress(host, guard.port));
}

constexpr const char* openAgain = "open the address that \"trovik page\" has printed";

std::optional<PageRefusal> strangerRefusal(const PageGuard& guard, const HttpRequest& request) {
  const std::optional<std::string> host = request.header("host");
  if (request.count("host") != 1 || !isOurs(guard, *host)) {
    return PageRefusal{403, "this page is not known by that name", openAgain};
  }
  // Another page of this machine has another port, and so another origin, but the
  // browser gives it our cookie all the same.
  const std::optional<std::string> origin = request.header("origin");
  if (request.count("origin") > 1 || (origin && *origin != "http://" + *host)) {
    return PageRefusal{403, "another page has asked for this", openAgain};
  }
  const std::optional<std::string> site = request.header("sec-fetch-site");
  if (site && *site != "same-origin" && *site != "none" && request.path != "/") {
    return PageRefusal{403, "another page has asked for this", openAgain};
  }
  return std::nullopt;
}

} // namespace

bool isSameSecret(std::string_view one, std::string_view other) {
  if (one.size() != other.size()) { // which is no secret
    return false;
  }
  unsigned difference = 0;
  for (std::size_t i = 0; i < one.size(); ++i) {
    difference |=
        static_cast<unsigned>(static_cast<unsigned char>(one[i])) ^ static_cast<unsigned char>(other[i]);
  }
  return difference == 0;
}

std::optional<std::string> cookieIn(const std::string& header, const std::string& name) {
  std::size_t begin = 0;
  while (begin < header.size()) {
    const std::size_t end = std::min(header.find(';', begin), header.size());
    const std::string_view part = trimmed(std::string_view(header).substr(begin, end - begin));
    if (part.size() > name.size() && part.starts_with(name) && part[name.size()] == '=') {
      return std::string(part.substr(name.size() + 1));
    }
    begin = end + 1;
  }
  return std::nullopt;
}

std::string cookieOf(const PageGuard& guard) {
  return guard.cookie + '=' + guard.token + "; HttpOnly; SameSite=Strict; Path=/";
}

bool opensWithToken(const PageGuard& guard, const HttpRequest& request) {
  const auto token = request.query.find("token");
  return request.path == "/" && token != request.query.end() && isSameSecret(token->second, guard.token);
}

std::optional<PageRefusal> refusalOf(const PageGuard& guard, const HttpRequest& request) {
  if (std::optional<PageRefusal> refusal = strangerRefusal(guard, request)) {
    return refusal;
  }
  const bool reads = request.method == "GET" || request.method == "HEAD";
  if (!opensWithToken(guard, request) || !reads) {
    const std::optional<std::string> cookie =
        request.count("cookie") == 1 ? cookieIn(*request.header("cookie"), guard.cookie) : std::nullopt;
    if (!cookie || !isSameSecret(*cookie, guard.token)) {
      return PageRefusal{403, "this page opens by its own address alone", openAgain};
    }
  }
  if (reads) {
    return std::nullopt;
  }
  if (request.method != "POST") {
    return PageRefusal{405, inQuotes(cutToWidth(request.method, 20)) + " is nothing that this page does",
                       "GET reads, and POST steers"};
  }
  if (guard.readOnly) {
    return PageRefusal{403, "this page only shows", "it was started with --read-only"};
  }
  const std::string type = request.header("content-type").value_or("");
  if (trimmed(type.substr(0, type.find(';'))) != "application/json") {
    return PageRefusal{415, "the body is to be JSON", "send it with Content-Type: application/json"};
  }
  return std::nullopt;
}

} // namespace trovik
