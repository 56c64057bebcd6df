#include "trovik/progress/ProgressReader.h"

#include "trovik/progress/JsonProgress.h"
#include "trovik/progress/PlainProgress.h"
#include "trovik/progress/TerminalProgress.h"

namespace trovik {

std::unique_ptr<RunEvents> progressFor(Console& console, bool json) {
  if (json) {
    return std::make_unique<JsonProgress>(console);
  }
  if (console.traits().terminal) {
    return std::make_unique<TerminalProgress>(console);
  }
  return std::make_unique<PlainProgress>(console);
}

} // namespace trovik
