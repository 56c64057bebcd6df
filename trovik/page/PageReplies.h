#pragma once

#include "trovik/page/Http.h"
#include "trovik/text/Json.h"

#include <string>

namespace trovik {

/// A document as a response.
HttpResponse jsonResponse(const Json& document, int status = 200);
HttpResponse jsonTextResponse(std::string text);

/// {kind: "page.problem", message, hint}.
HttpResponse problemResponse(int status, const std::string& message, const std::string& hint);

/// A small page in words, for who opened no page of ours.
HttpResponse wordsResponse(int status, const std::string& message, const std::string& hint);

/// Adds what every response has: what a browser may do with it.
HttpResponse secured(HttpResponse response);

/// A text within HTML.
std::string asMarkup(const std::string& text);

} // namespace trovik
