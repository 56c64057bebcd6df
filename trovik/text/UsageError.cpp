#include "trovik/text/UsageError.h"

#include "host/application/Excerpt.h"
#include "host/foundation/Suggest.h"

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

} // namespace trovik
