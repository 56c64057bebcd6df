#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace trovik {

/// A start of a program that rendered its frames well.
struct TimedPacket {
  std::int64_t frames = 1;
  double seconds = 0; ///< more than 0
};

/// What starts and frames of a job cost, as far as packets tell.
struct FrameCosts {
  double start = 0;         ///< seconds of a start, before its first frame
  double frame = 0;         ///< seconds of a frame
  double spread = 0;        ///< how far a packet is off that, as a share of its time
  bool apart = false;       ///< packets of different lengths tell starts from frames
  double most = 0;          ///< seconds that a frame costs at most, were starts to cost nothing
  std::int64_t longest = 0; ///< frames of the longest packet
};

/// Nothing where there is no packet.
std::optional<FrameCosts> frameCosts(const std::vector<TimedPacket>& packets);

/// What a packet is to be like, in seconds.
struct PacketAim {
  double time = 60; ///< that a start should take
  double most = 0;  ///< that it may take; 0 for no limit
};

/// How a job stands whose next packet is wanted.
struct PacketMoment {
  std::int64_t left = 0; ///< frames that have not begun
  bool more = false;     ///< there are more than those
  /// When the slots that are at work at the job should be free, in seconds.
  std::vector<double> busy{};
  std::int64_t longest = 0; ///< frames of the longest packet that runs
  std::size_t free = 1;     ///< slots that are free now, the one that asks among them
};

/// How many frames the next start gets, at least one. The packets of a job
/// begin with one frame and grow fast, until they take as long as they should;
/// towards the end they are as long as all slots need to end together.
std::int64_t packetFrames(const std::optional<FrameCosts>& costs, const PacketAim& aim,
                          const PacketMoment& moment);

/// The frames of a packet that takes as long as it should, however many are
/// left.
std::int64_t fullPacket(const FrameCosts& costs, const PacketAim& aim);

/// What is known of the packets of a job that all begin at once.
struct PacketsAtOnce {
  std::int64_t frames = 1; ///< that each is to have
  bool trial = true;       ///< only some: what they take tells how long the others may be
};
PacketsAtOnce packetsAtOnce(const std::optional<FrameCosts>& costs, const PacketAim& aim);

} // namespace trovik
