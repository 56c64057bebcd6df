#pragma once

#include "host/application/Job.h"
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

// What else says which works of a job begin, and how many frames they have.

/// From PacketSize, PacketTime and RunTimeLimit: a packet that is chosen is to
/// stay well below what ends it. Throws a UsageError for what cannot be.
PacketRule packetRuleOf(const Job& job);

/// Whether a packet size asks for packets that fit themselves.
bool isAutoPacket(const std::string& text);

/// Bytes, from the text of the parameter Memory; 0 for an empty one. Throws a
/// UsageError.
std::int64_t neededMemory(const std::string& text);

} // namespace trovik
