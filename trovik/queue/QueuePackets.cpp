#include "trovik/queue/QueueImpl.h"
#include "trovik/queue/Statements.h"
#include "trovik/records/PacketPlan.h"

#include <algorithm>

// Packets that get their frames when they begin: their works are cut into single
// frames, and a claim joins as many as suit. So a frame that waits for other jobs
// is never in a packet, and what is lost or failed stays with the frames that
// had begun.

namespace trovik {
namespace {

double secondsIn(std::chrono::microseconds time) {
  return std::chrono::duration<double>(time).count();
}

struct ReadyWork {
  WorkId id = 0;
  FrameRun run;
  int attempts = 0;
  int tries = 0;
};

/// Whether frames may follow each other in one packet, in either direction;
/// `towards` is that of the packet so far, 0 for one of one work.
bool follows(const FrameRun& packet, const FrameRun& next, int towards) {
  return (towards >= 0 && std::int64_t{packet.Last} + 1 == next.First) ||
         (towards <= 0 && std::int64_t{next.Last} + 1 == packet.First);
}

} // namespace

std::vector<TimedPacket> Queue::Impl::timedPackets(JobId job) {
  std::vector<TimedPacket> packets;
  // The first ones were short: they tell best what a start costs.
  for (const char* sql : {statements::firstPackets, statements::lastPackets}) {
    for (Query row(database, sql, job); row.next();) {
      TimedPacket packet;
      packet.frames = row.number();
      packet.seconds = secondsIn(row.duration());
      packets.push_back(packet);
    }
  }
  return packets;
}

std::optional<FrameCosts> Queue::Impl::costsOf(JobId job) {
  if (std::optional<FrameCosts> costs = frameCosts(timedPackets(job))) {
    return costs;
  }
  // It may have been rendered before.
  Query row(database, statements::earlierOfScene, job);
  return row.next() ? frameCosts(timedPackets(row.number())) : std::nullopt;
}

PacketAim Queue::Impl::aimOf(JobId job) {
  PacketAim aim;
  if (Query row(database, statements::packetRule, job); row.next()) {
    aim.time = std::max(secondsIn(row.duration()), 1e-3);
    aim.most = secondsIn(row.duration());
  }
  return aim;
}

void Queue::Impl::claimPackets(JobId job, std::size_t count, Found& found, std::vector<Claim>& claims) {
  const std::optional<FrameCosts> costs = costsOf(job);
  const PacketAim aim = aimOf(job);
  PacketMoment moment;
  moment.free = count;
  for (Query row(database, statements::runningPackets, job); row.next();) {
    const std::int64_t length = row.number();
    const auto frames = static_cast<double>(length);
    moment.longest = std::max(moment.longest, length);
    const double ran = secondsIn(std::max(found.start - row.moment(), Moment::duration(0)));
    moment.busy.push_back(costs ? std::max(costs->start + costs->frame * frames - ran, 0.0) : 0);
  }
  // More than these are as good as without end.
  const std::int64_t full = costs ? fullPacket(*costs, aim) : 1;
  constexpr std::int64_t rounds = 8;
  const std::int64_t enough = rounds * full * static_cast<std::int64_t>(moment.busy.size() + count);
  if (Query row(database, statements::framesToBegin, job, enough); row.next()) {
    moment.left = row.number();
    moment.more = moment.left >= enough;
  }
  for (; count > 0; --count, --moment.free) {
    const std::int64_t frames = packetFrames(costs, aim, moment);
    std::optional<Claim> claim = joinPacket(job, frames);
    if (!claim) {
      return;
    }
    begin(*claim, found); // so that the next one takes other frames
    claims.push_back(*claim);
    moment.left -= claim->run.Count();
    moment.longest = std::max(moment.longest, claim->run.Count());
    moment.busy.push_back(costs ? costs->start + costs->frame * static_cast<double>(claim->run.Count()) : 0);
  }
}

PacketsAtOnce Queue::packetsAtOnce(JobId id) {
  PacketsAtOnce packets;
  impl_->database.read([&] { packets = trovik::packetsAtOnce(impl_->costsOf(id), impl_->aimOf(id)); });
  return packets;
}

/// Makes the next work one of so many frames, or of fewer where they are not
/// neighbours. What was begun before stays as it was: its past is that of all
/// its frames.
std::optional<Claim> Queue::Impl::joinPacket(JobId job, std::int64_t frames) {
  std::vector<ReadyWork> works;
  FrameRun packet;
  int towards = 0;
  for (Query row(database, statements::readyWorks, job, frames); row.next();) {
    ReadyWork work;
    work.id = row.number();
    work.run = row.frames();
    work.attempts = row.integer();
    work.tries = row.integer();
    if (works.empty()) {
      packet = work.run;
    } else {
      if (work.attempts > 0 || packet.Count() + work.run.Count() > frames ||
          !trovik::follows(packet, work.run, towards)) {
        break;
      }
      towards = work.run.First > packet.Last ? 1 : -1;
      packet = {std::min(packet.First, work.run.First), std::max(packet.Last, work.run.Last)};
    }
    works.push_back(work);
    if (work.attempts > 0) {
      break;
    }
  }
  if (works.empty()) {
    return std::nullopt;
  }
  const ReadyWork& first = works.front();
  if (works.size() > 1) {
    for (const ReadyWork& work : works) {
      if (work.id != first.id) {
        Query(database, statements::dropWork, work.id).run();
      }
    }
    Query(database, statements::widenWork, first.id, packet.First, packet.Last).run();
  }
  Claim claim;
  claim.job = job;
  claim.work = first.id;
  claim.run = packet;
  claim.number = first.attempts + 1;
  claim.tries = first.tries;
  return claim;
}

} // namespace trovik
