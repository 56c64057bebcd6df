#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace trovik {

/// Keys keep the order in which they are written.
using Json = nlohmann::ordered_json;

/// The version of every JSON form that the program prints; a change that
/// breaks readers raises it. New keys do not.
constexpr int jsonVersion = 1;

/// A document or event of a kind, to be filled.
inline Json jsonOfKind(const char* kind) {
  return Json{{"version", jsonVersion}, {"kind", kind}};
}

/// Null where there is no text.
inline Json textOrNull(const std::string& text) {
  return text.empty() ? Json(nullptr) : Json(text);
}

/// One line of text. Bytes that are not UTF-8 become U+FFFD.
inline std::string jsonLine(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

/// The same over several lines, for documents.
inline std::string jsonDocument(const Json& json) {
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + '\n';
}

} // namespace trovik
