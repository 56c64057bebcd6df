#include "trovik/page/PageReplies.h"

#include "trovik/text/Text.h"

#include <algorithm>
#include <utility>

namespace trovik {
namespace {

constexpr const char* policy = "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' "
                               "data: blob:; connect-src 'self'; "
                               "font-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

} // namespace

std::string asMarkup(const std::string& text) {
  std::string markup;
  for (const char c : printable(text, OddBytes::Show)) {
    switch (c) {
    case '<':
      markup += "&lt;";
      break;
    case '>':
      markup += "&gt;";
      break;
    case '&':
      markup += "&amp;";
      break;
    case '"':
      markup += "&quot;";
      break;
    default:
      markup += c;
    }
  }
  return markup;
}

HttpResponse jsonTextResponse(std::string text) {
  return {200, "application/json", std::move(text), {{"Cache-Control", "no-store"}}, nullptr, 0};
}

HttpResponse jsonResponse(const Json& document, int status) {
  HttpResponse response = jsonTextResponse(jsonLine(document));
  response.status = status;
  return response;
}

HttpResponse problemResponse(int status, const std::string& message, const std::string& hint) {
  Json document = jsonOfKind("page.problem");
  document["message"] = message;
  document["hint"] = textOrNull(hint);
  HttpResponse response = jsonResponse(document, status);
  if (status == 405) {
    response.headers.emplace_back("Allow", "GET, HEAD, POST");
  }
  return response;
}

HttpResponse wordsResponse(int status, const std::string& message, const std::string& hint) {
  HttpResponse response;
  response.status = status;
  response.type = "text/html; charset=utf-8";
  response.body = "<!doctype html>\n<html lang=\"en\">\n<meta charset=\"utf-8\">\n<meta name=\"viewport\" "
                  "content=\"width=device-width\">\n<title>trovik</title>\n<h1>" +
                  asMarkup(message) + "</h1>\n<p>" + asMarkup(hint) + "</p>\n</html>\n";
  response.headers = {{"Cache-Control", "no-store"}};
  return response;
}

HttpResponse secured(HttpResponse response) {
  response.headers.insert(response.headers.end(), {{"Content-Security-Policy", policy},
                                                   {"X-Content-Type-Options", "nosniff"},
                                                   {"Referrer-Policy", "no-referrer"},
                                                   {"Cross-Origin-Resource-Policy", "same-origin"},
                                                   {"Cross-Origin-Opener-Policy", "same-origin"}});
  return response;
}

} // namespace trovik
