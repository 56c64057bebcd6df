#include "trovik/text/Json.h"

#include "host/foundation/Characters.h"
#include "trovik/text/Text.h"

namespace trovik {
namespace {

void makeLossless(Json& json) {
  if (json.is_string()) {
    json = losslessText(json.get<std::string>());
  } else if (json.is_structured()) {
    for (Json& part : json) {
      makeLossless(part);
    }
  }
}

/// Hardly ever is there a byte that needs it.
std::string dumped(const Json& json, int indent) {
  try {
    return json.dump(indent) + '\n';
  } catch (const Json::type_error&) {
    Json lossless = json;
    makeLossless(lossless);
    // A key is ours, or a parameter's name.
    return lossless.dump(indent, ' ', false, Json::error_handler_t::replace) + '\n';
  }
}

} // namespace

Json jsonOfKind(const char* kind) {
  return Json{{"version", jsonVersion}, {"kind", kind}};
}

Json textOrNull(const std::string& text) {
  return text.empty() ? Json(nullptr) : Json(text);
}

Json losslessText(const std::string& text) {
  return isUtf8(text) ? Json(text) : Json{{"hex", HexOf(text)}};
}

std::optional<std::string> textFrom(const Json& value) {
  if (value.is_string()) {
    return value.get<std::string>();
  }
  const auto hex = value.is_object() && value.size() == 1 ? value.find("hex") : value.end();
  return hex == value.end() || !hex->is_string() ? std::nullopt
                                                 : BytesOfHex(hex->get_ref<const std::string&>());
}

std::string jsonLine(const Json& json) {
  return dumped(json, -1);
}

std::string jsonDocument(const Json& json) {
  return dumped(json, 2);
}

} // namespace trovik
