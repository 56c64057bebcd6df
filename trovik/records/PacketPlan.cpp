#include "trovik/records/PacketPlan.h"

#include <algorithm>
#include <cmath>

// How many frames one start of a program gets where that is not said.
//
// A start costs time before its first frame: a scene is loaded, a licence is
// waited for. So packets should be long, but one that is too long leaves slots
// idle at the end of a job, and has much to lose when it fails.
//
// A packet of n frames is taken to need start + n * frame seconds. Both are
// found by a line through the packets that were seen. Their errors grow with
// their length, so each counts by the inverse square of its time; else the long
// ones would decide about the start, of which they know least. As long as all
// packets were equally long nothing tells the two apart, and all counts as the
// frames' time. That errs on the safe side, packets come out too short; so one
// is tried that is twice as long.
//
// Near the end the common end of all slots is reckoned: each is busy for a
// while, pays for a start and then renders frames, and all frames that are left
// have to fit in. What is left for a slot is cut into packets of the same time.
// The last one is halved where its time is so unsure that slots would wait for
// each other: half of what it may be off is saved, and another start is paid.

namespace trovik {
namespace {

constexpr double leastFrame = 1e-3; ///< of a start, where frames seem to cost nothing
constexpr double startShare = 0.2;  ///< of a packet's time that starts may cost

/// A packet that is longer than the others would be the last one to end, where
/// few are left.
bool leavesRoomForTrials(const PacketMoment& moment, std::int64_t frames) {
  constexpr std::int64_t rounds = 4;
  const auto slots = static_cast<std::int64_t>(moment.busy.size() + moment.free);
  return moment.more || moment.left >= rounds * slots * frames;
}

/// Whether the next packet is to be the one that tells starts from frames.
bool isTrial(const FrameCosts& costs, const PacketMoment& moment) {
  return !costs.apart && moment.longest <= costs.longest && leavesRoomForTrials(moment, costs.longest);
}

/// The seconds until all slots end together, where each that is busy is free
/// after its time and all render what is left.
double commonEnd(double work, double start, std::vector<double> freeAfter) {
  std::sort(freeAfter.begin(), freeAfter.end());
  double begun = 0;
  double end = 0;
  for (std::size_t i = 0; i < freeAfter.size(); ++i) {
    begun += freeAfter[i] + start;
    end = (work + begun) / static_cast<double>(i + 1);
    // The next one is free too late to take part.
    if (i + 1 < freeAfter.size() && end <= freeAfter[i + 1] + start) {
      break;
    }
  }
  return end;
}

double packetTime(const FrameCosts& costs, const PacketAim& aim) {
  const double time = std::max(aim.time, costs.start / startShare);
  return aim.most > 0 ? std::min(time, aim.most) : time;
}

/// The most frames that what was seen allows. Frames may be as unlike as black
/// ones and the shot that they lead in. And a start that seems to cost all the
/// time may be a frame that was slow: were it so, the packet must not take more
/// than some times what it should.
double mostFrames(const FrameCosts& costs, const PacketAim& aim) {
  constexpr double growth = 16;
  constexpr double growthApart = 128;
  constexpr double patience = 8;
  return std::max(1.0, std::min((costs.apart ? growthApart : growth) * static_cast<double>(costs.longest),
                                patience * aim.time / costs.most));
}

std::int64_t wholeFrames(double frames, const FrameCosts& costs, const PacketAim& aim) {
  constexpr double rounding = 1e-6;
  return static_cast<std::int64_t>(std::clamp(std::ceil(frames - rounding), 1.0, mostFrames(costs, aim)));
}

double framesIn(double seconds, const FrameCosts& costs) {
  return (seconds - costs.start) / costs.frame;
}

} // namespace

std::optional<FrameCosts> frameCosts(const std::vector<TimedPacket>& packets) {
  if (packets.empty()) {
    return std::nullopt;
  }
  double sum = 0;
  double sumFrames = 0;
  double sumSeconds = 0;
  double sumSquares = 0;
  double sumProducts = 0;
  FrameCosts costs;
  for (const TimedPacket& packet : packets) {
    const double weight = 1 / (packet.seconds * packet.seconds);
    const auto frames = static_cast<double>(packet.frames);
    sum += weight;
    sumFrames += weight * frames;
    sumSeconds += weight * packet.seconds;
    sumSquares += weight * frames * frames;
    sumProducts += weight * frames * packet.seconds;
    costs.longest = std::max(costs.longest, packet.frames);
    const double perFrame = packet.seconds / frames;
    costs.most = costs.most > 0 ? std::min(costs.most, perFrame) : perFrame;
  }
  constexpr double likeness = 1e-9; // of packets that are equally long
  if (const double width = sum * sumSquares - sumFrames * sumFrames; width > likeness * sum * sumSquares) {
    costs.apart = true;
    costs.frame = (sum * sumProducts - sumFrames * sumSeconds) / width;
    costs.start = (sumSeconds - costs.frame * sumFrames) / sum;
    if (costs.frame <= 0) { // starts differ by more than frames cost
      costs.start = sumSeconds / sum;
      costs.frame = costs.start * leastFrame;
    }
  }
  if (!costs.apart || costs.start < 0) {
    costs.start = 0;
    costs.frame = sumProducts / sumSquares;
  }
  double squares = 0;
  double seconds = 0;
  for (const TimedPacket& packet : packets) {
    const double expected = costs.start + costs.frame * static_cast<double>(packet.frames);
    // Those of long ones count, since long ones are to be foretold.
    squares += packet.seconds * (packet.seconds / expected - 1) * (packet.seconds / expected - 1);
    seconds += packet.seconds;
  }
  costs.spread = std::sqrt(squares / seconds);
  return costs;
}

std::int64_t fullPacket(const FrameCosts& costs, const PacketAim& aim) {
  return wholeFrames(framesIn(packetTime(costs, aim), costs), costs, aim);
}

PacketsAtOnce packetsAtOnce(const std::optional<FrameCosts>& costs, const PacketAim& aim) {
  PacketsAtOnce packets;
  if (costs) {
    packets.frames = std::max(fullPacket(*costs, aim), costs->apart ? std::int64_t{1} : 2 * costs->longest);
    packets.trial = !costs->apart || framesIn(packetTime(*costs, aim), *costs) > mostFrames(*costs, aim);
  }
  return packets;
}

std::int64_t packetFrames(const std::optional<FrameCosts>& costs, const PacketAim& aim,
                          const PacketMoment& moment) {
  if (!costs) {
    // One of the first tells what a frame costs, the others what a start does.
    return moment.longest > 0 && leavesRoomForTrials(moment, 2) ? 2 : 1;
  }
  const std::int64_t least = isTrial(*costs, moment) ? 2 * costs->longest : std::int64_t{1};
  if (moment.more) {
    return std::min(std::max(fullPacket(*costs, aim), least), moment.left);
  }
  std::vector<double> freeAfter = moment.busy;
  freeAfter.resize(freeAfter.size() + std::max<std::size_t>(moment.free, 1), 0);
  const double end =
      commonEnd(static_cast<double>(moment.left) * costs->frame, costs->start, std::move(freeAfter));
  const double share = framesIn(end, *costs);
  const double full = std::max(framesIn(packetTime(*costs, aim), *costs), 1.0);
  const double packets = std::max(std::ceil(share / full), 1.0);
  const bool unsure = packets == 1 && costs->spread * end / 2 > costs->start;
  const std::int64_t frames = std::max(wholeFrames(share / (unsure ? 2 : packets), *costs, aim), least);
  return std::min(frames, std::max<std::int64_t>(moment.left, 1));
}

} // namespace trovik
