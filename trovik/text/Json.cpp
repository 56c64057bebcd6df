#include "trovik/text/Json.h"

namespace trovik {

Json jsonOfKind(const char* kind) {
  return Json{{"version", jsonVersion}, {"kind", kind}};
}

Json textOrNull(const std::string& text) {
  return text.empty() ? Json(nullptr) : Json(text);
}

std::string jsonLine(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

std::string jsonDocument(const Json& json) {
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + '\n';
}

} // namespace trovik
