#include "trovik/page/Http.h"

#include <algorithm>

namespace trovik {

std::optional<std::string> HttpRequest::header(const std::string& name) const {
  const auto found =
      std::find_if(headers.begin(), headers.end(), [&](const auto& one) { return one.first == name; });
  return found == headers.end() ? std::nullopt : std::optional(found->second);
}

std::size_t HttpRequest::count(const std::string& name) const {
  return static_cast<std::size_t>(
      std::count_if(headers.begin(), headers.end(), [&](const auto& one) { return one.first == name; }));
}

void readTarget(const std::string& target, HttpRequest& request) {
  const std::size_t mark = target.find('?');
  request.path = target.substr(0, mark);
  request.query.clear();
  std::size_t begin = mark == std::string::npos ? target.size() : mark + 1;
  while (begin < target.size()) {
    const std::size_t end = std::min(target.find('&', begin), target.size());
    const std::string part = target.substr(begin, end - begin);
    const std::size_t equals = std::min(part.find('='), part.size());
    request.query[part.substr(0, equals)] = equals < part.size() ? part.substr(equals + 1) : std::string();
    begin = end + 1;
  }
}

} // namespace trovik
