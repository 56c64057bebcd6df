#include "trovik/text/Numbers.h"

#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <charconv>

namespace trovik {

std::size_t positiveNumber(const std::string& option, const std::string& text, std::size_t limit) {
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number == 0) {
    throw UsageError{option + ": " + inQuotes(text) + " is not a whole number from 1 on", {}};
  }
  if (number > limit) {
    throw UsageError{option + ": " + text + " is too many; here it can be " + std::to_string(limit), {}};
  }
  return number;
}

} // namespace trovik
