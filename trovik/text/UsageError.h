#pragma once

#include "host/foundation/Exception.h"
#include "host/foundation/String.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace trovik {

/// Exit codes of the program; docs and scripts rely on them.
enum ExitCode : int {
  exitGood = 0,   ///< all went well
  exitFailed = 1, ///< some work failed or was not done, or nothing was found
  exitUsage = 2,  ///< wrong usage or input; nothing was started
};

/// Thrown by value where the user asked for something that cannot be done.
/// The message states one fact; the hint (may be empty) says what to do.
struct UsageError {
  std::string message;
  std::string hint;
};

/// A hint for a mistyped name: "did you mean "near"?" with the known name that is
/// nearest, where one is near, and what else may help.
std::string didYouMean(std::string_view unknown, const std::vector<String>& known,
                       const std::string& help = {});

/// The text of a host exception, which is deleted.
std::string takeText(Exception* exception);

/// Calls `action`; a host exception becomes a UsageError with `before` in
/// front of its text.
template <typename Action> auto orRefuse(const std::string& before, const std::string& hint, Action action) {
  try {
    return action();
  } catch (Exception* exception) {
    throw UsageError{before + takeText(exception), hint};
  }
}

/// A number of at least 1 behind an option. Throws a UsageError.
std::size_t positiveNumber(const std::string& option, const std::string& text, std::size_t limit);

} // namespace trovik
