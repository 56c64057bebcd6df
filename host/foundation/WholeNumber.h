#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

/// The whole number that a text is from its first byte to its last: digits of
/// the base, for a signed type with "-" before them. Nothing for any other text
/// (also an empty one, "+1" and " 1") and for a number beyond the type.
template <typename Number> std::optional<Number> ReadWholeNumber(std::string_view text, int base = 10) {
  Number number = 0;
  const char* const end = text.data() + text.size();
  const auto [read, error] = std::from_chars(text.data(), end, number, base);
  return error == std::errc() && read == end ? std::optional<Number>(number) : std::nullopt;
}
