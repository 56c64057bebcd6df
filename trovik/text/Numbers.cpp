#include "trovik/text/Numbers.h"

#include "host/foundation/WholeNumber.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

namespace trovik {

std::size_t positiveNumber(const std::string& option, const std::string& text, std::size_t limit) {
  const std::size_t number = ReadWholeNumber<std::size_t>(text).value_or(0);
  if (number == 0) {
    throw UsageError{option + ": " + inQuotes(text) + " is not a whole number from 1 on", {}};
  }
  if (number > limit) {
    throw UsageError{option + ": " + text + " is too many; here it can be " + std::to_string(limit), {}};
  }
  return number;
}

} // namespace trovik
