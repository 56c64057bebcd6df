#pragma once

#include "trovik/page/Http.h"
#include "trovik/page/QueueChanges.h"

#include <optional>
#include <string>
#include <string_view>

namespace trovik {

// What the page's server and its helpers say to each other. A question is one
// line of JSON. A reply is one too, with the number of the body's bytes, which
// follow. Lines end with a line feed where they are written; they are read
// without it.

/// Something that is to be answered.
struct PageQuestion {
  HttpRequest request; ///< headers are not told
  Revisions revisions; ///< what is newer than at the question before
};
std::string questionLine(const PageQuestion& question);
/// Nothing for a line that is no question.
std::optional<PageQuestion> questionFrom(std::string_view line);

/// What a reply begins with.
struct PageReplyHead {
  HttpResponse response; ///< without its body
  std::size_t size = 0;  ///< bytes of the body
  std::string said;      ///< warnings and the like, for who started the page
};
/// The whole reply.
std::string replyText(const HttpResponse& response, const std::string& said);
/// Nothing for a line that begins no reply.
std::optional<PageReplyHead> replyHeadFrom(std::string_view line);

} // namespace trovik
