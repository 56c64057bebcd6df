#pragma once

#include "trovik/queue/Queue.h"

#include <string>
#include <vector>

namespace trovik {

// What is scarce, such as licences, is named in the settings:
//
//   [Limits]
//   renderer=2
//
// The queue keeps it for all of its engines, whatever their own settings say.

/// What the settings say; throws a UsageError for what is no number.
std::vector<LimitShare> limitsInSettings();

/// Gives the queue what the settings say, where they say something.
void tellLimits(Queue& queue);

/// What there is, by the settings, or by the queue where those say nothing.
/// The queue may be null: there is none yet.
std::vector<LimitShare> knownLimits(Queue* queue);

/// What a work takes, from the text of a parameter: "renderer;floating=2".
/// Throws a UsageError for a text that is no such thing, a limit that there is
/// not, and more than there is.
std::vector<LimitShare> sharesOf(const std::string& text, const std::vector<LimitShare>& known);

} // namespace trovik
