#include "trovik/text/UsageError.h"

#include <memory>

namespace trovik {

std::string takeText(Exception* exception) {
  const std::unique_ptr<Exception> owned(exception);
  return owned == nullptr ? std::string() : std::string(owned->Text());
}

} // namespace trovik
