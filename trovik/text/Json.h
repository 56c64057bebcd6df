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
Json jsonOfKind(const char* kind);

/// Null where there is no text.
Json textOrNull(const std::string& text);

/// One line of text. Bytes that are not UTF-8 become U+FFFD.
std::string jsonLine(const Json& json);

/// The same over several lines, for documents.
std::string jsonDocument(const Json& json);

} // namespace trovik
