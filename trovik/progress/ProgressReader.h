#pragma once

#include "trovik/records/RunEvents.h"
#include "trovik/text/Console.h"

#include <memory>

namespace trovik {

/// The reader of events that fits what the output goes to: JSON where it is
/// wanted, a live line on a terminal, plain lines elsewhere.
std::unique_ptr<RunEvents> progressFor(Console& console, bool json);

} // namespace trovik
