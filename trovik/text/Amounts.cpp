#include "trovik/text/Amounts.h"

#include "host/foundation/String.h"
#include "host/foundation/WholeNumber.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string_view>

namespace trovik {
namespace {

constexpr double mostMemory = 1024.0 * 1024 * 1024; // mebibytes: a pebibyte

/// Mebibytes of the unit; 0 for an unknown one.
double unitOf(const String& unit) {
  const auto is = [&unit](const char* letter) {
    return unit == letter || unit == String(letter) + "b" || unit == String(letter) + "ib";
  };
  if (unit.empty() || is("m")) {
    return 1;
  }
  return is("g") ? 1024 : is("t") ? 1024 * 1024 : 0;
}

} // namespace

std::int64_t memoryOf(const std::string& parameter, const std::string& text, const std::string& otherwise) {
  const String trimmed = String(text).Trim();
  if (trimmed.empty()) {
    return 0;
  }
  double number = 0;
  const char* const end = trimmed.data() + trimmed.size();
  const auto [rest, error] = std::from_chars(trimmed.data(), end, number, std::chars_format::fixed);
  const double unit = unitOf(String(std::string(rest, end)).Trim().Lower());
  const double memory = std::ceil(number * unit);
  // A word such as "inf" is a number, too.
  if (error != std::errc() || unit == 0 || !(memory <= mostMemory) || !(memory >= 0)) {
    throw UsageError{parameter + ": " + inQuotes(text) + " is no amount of memory",
                     "write 500M, 4G or 1T; a number alone is MiB"};
  }
  if (memory == 0) {
    throw UsageError{parameter + ": " + inQuotes(text) + " is no memory at all",
                     "leave it empty " + otherwise};
  }
  return static_cast<std::int64_t>(memory);
}

bool isLimitName(const std::string& name) {
  return !name.empty() && name.find_first_of(",:;= \t\n\"'") == std::string::npos && name.front() != '-';
}

std::vector<std::pair<std::string, int>> amountsOf(const std::string& parameter, const std::string& text) {
  std::vector<std::pair<std::string, int>> amounts;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find_first_of(";,", at), text.size());
    const std::string piece(trimmed(std::string_view(text).substr(at, end - at)));
    at = end + 1;
    if (piece.empty()) {
      continue;
    }
    const std::size_t equals = piece.find('=');
    const std::string name = String(trimmed(std::string_view(piece).substr(0, equals))).Lower();
    const auto amount = equals == std::string::npos
                            ? std::optional(1)
                            : ReadWholeNumber<int>(trimmed(std::string_view(piece).substr(equals + 1)));
    if (!isLimitName(name) || !amount || *amount < 1 || *amount > mostOfALimit) {
      throw UsageError{parameter + ": " + inQuotes(piece) + " is no part of a limit",
                       "write a name, or a name and a number: renderer=2"};
    }
    if (std::any_of(amounts.begin(), amounts.end(), [&](const auto& one) { return one.first == name; })) {
      throw UsageError{parameter + ": " + inQuotes(name) + " is named twice", "leave one of them out"};
    }
    amounts.emplace_back(name, *amount);
  }
  std::sort(amounts.begin(), amounts.end());
  return amounts;
}

} // namespace trovik
