#pragma once

#include "trovik/text/Console.h"
#include "trovik/text/UsageError.h"

#include <string>

namespace trovik {

/// A message for standard error with a head such as "trovik: warning:" before
/// its first line; every line of the text, which may hold names from outside,
/// is made visible.
std::string messageText(const Console& console, Colour colour, const std::string& head,
                        const std::string& text);

/// Something that the user should know, though it goes on, and the hint below.
void printWarning(Console& console, const UsageError& warning);

/// What was refused, and the hint below it.
void printRefusal(Console& console, const UsageError& error);

} // namespace trovik
