#include "trovik/page/PageQuestion.h"

#include "trovik/text/Json.h"

#include <utility>

namespace trovik {
namespace {

/// Reads an object with `read`; nothing where a value is missing or of another
/// kind.
template <typename Read>
auto parsed(std::string_view line, Read read) -> std::optional<decltype(read(Json()))> {
  try {
    return read(Json::parse(line));
  } catch (const Json::exception&) {
    return std::nullopt;
  }
}

std::string textIn(const Json& value) {
  std::optional<std::string> text = textFrom(value);
  return text ? std::move(*text) : value.get<std::string>();
}

template <typename Pairs> Json pairsJson(const Pairs& pairs) {
  Json json = Json::array();
  for (const auto& [name, value] : pairs) {
    json.push_back(Json::array({name, value}));
  }
  return json;
}

} // namespace

std::string questionLine(const PageQuestion& question) {
  return jsonLine({{"method", question.request.method},
                   {"path", question.request.path},
                   {"query", pairsJson(question.request.query)},
                   {"body", question.request.body},
                   {"first", question.revisions.first},
                   {"last", question.revisions.last},
                   {"jobs", pairsJson(question.revisions.jobs)}});
}

std::optional<PageQuestion> questionFrom(std::string_view line) {
  return parsed(line, [](const Json& json) {
    PageQuestion question;
    question.request.method = textIn(json.at("method"));
    question.request.path = textIn(json.at("path"));
    for (const Json& pair : json.at("query")) {
      question.request.query[textIn(pair.at(0))] = textIn(pair.at(1));
    }
    question.request.body = textIn(json.at("body"));
    question.revisions.first = json.at("first").get<std::int64_t>();
    question.revisions.last = json.at("last").get<std::int64_t>();
    for (const Json& pair : json.at("jobs")) {
      question.revisions.jobs[pair.at(0).get<JobId>()] = pair.at(1).get<std::int64_t>();
    }
    return question;
  });
}

std::string replyText(const HttpResponse& response, const std::string& said) {
  return jsonLine({{"status", response.status},
                   {"type", response.type},
                   {"headers", pairsJson(response.headers)},
                   {"size", response.body.size()},
                   {"said", said}}) +
         response.body;
}

std::optional<PageReplyHead> replyHeadFrom(std::string_view line) {
  return parsed(line, [](const Json& json) {
    PageReplyHead head;
    head.response.status = json.at("status").get<int>();
    head.response.type = textIn(json.at("type"));
    for (const Json& pair : json.at("headers")) {
      head.response.headers.emplace_back(textIn(pair.at(0)), textIn(pair.at(1)));
    }
    head.size = json.at("size").get<std::size_t>();
    head.said = textIn(json.at("said"));
    return head;
  });
}

} // namespace trovik
