#include "trovik/text/UsageError.h"

#include "host/application/Excerpt.h"
#include "host/foundation/Suggest.h"
#include "host/foundation/WholeNumber.h"
#include "trovik/text/Text.h"

#include <memory>

namespace trovik {

std::string didYouMean(std::string_view unknown, const std::vector<String>& known, const std::string& help) {
  const String near = SuggestName(unknown, known);
  if (near.empty()) {
    return help;
  }
  return "did you mean \"" + Shown(near) + "\"?" + (help.empty() ? "" : ' ' + help);
}

std::string takeText(Exception* exception) {
  const std::unique_ptr<Exception> owned(exception);
  return owned == nullptr ? std::string() : std::string(owned->Text());
}

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
