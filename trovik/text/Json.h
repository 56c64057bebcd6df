#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string>

namespace trovik {

/// Keys keep the order in which they are written.
using Json = nlohmann::ordered_json;

/// The version of every JSON form that the program prints; a change that
/// breaks readers raises it. New keys do not.
constexpr int jsonVersion = 1;

/// A document or event of a kind, to be filled.
Json jsonOfKind(const char* kind);

/// Null where there is no text.
Json textOrNull(const std::string& text);

/// A text that may hold any bytes, so that each comes back: one that is not
/// UTF-8 is {"hex": "6f7574ff"}.
Json losslessText(const std::string& text);
/// The text of such a value; nothing where it is neither form.
std::optional<std::string> textFrom(const Json& value);

/// One line of text. Texts that are not UTF-8 are lossless texts.
std::string jsonLine(const Json& json);

/// The same over several lines, for documents.
std::string jsonDocument(const Json& json);

} // namespace trovik
