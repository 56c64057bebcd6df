#include "host/application/Constants.h"
#include "host/foundation/Bytes.h"
#include "host/foundation/WholeNumber.h"
#include "trovik/jobs/JobSetup.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/ClusterRun.h"
#include "trovik/verbs/EachJob.h"
#include "trovik/verbs/Limits.h"
#include "trovik/verbs/Steer.h"
#include "trovik/verbs/Verbs.h"

#include <array>

namespace trovik {
namespace {

/// A number that may change, with what it may be.
struct Changeable {
  const char* name;
  int least;
  int most;
  std::optional<int> JobChange::*member;
  int JobRecord::*before; ///< null for one that no record has
};
constexpr std::array<Changeable, 5> changeable = {
    {{"Priority", 0, 100, &JobChange::priority, &JobRecord::priority},
     {"Retries", 0, 100, &JobChange::retries, &JobRecord::retries},
     {"StopAfter", 0, 1'000'000, &JobChange::stopAfter, &JobRecord::stopAfter},
     {"SlotsAtMost", 0, 1'000'000, &JobChange::slotsAtMost, &JobRecord::slotsAtMost},
     {"PacketSize", 1, 10'000'000, &JobChange::packet, nullptr}}};

std::string sharesText(const std::vector<LimitShare>& shares) {
  std::string text;
  for (const LimitShare& share : shares) {
    text += (text.empty() ? "" : ";") + share.name +
            (share.amount == 1 ? std::string() : '=' + std::to_string(share.amount));
  }
  return text.empty() ? "none" : text;
}

std::string packetText(const std::vector<FrameRun>& before, const std::vector<FrameRun>& after) {
  return before == after
             ? "no work that has not begun is cut anew"
             : counted(before.size(), "work") + " that " + (before.size() == 1 ? "has" : "have") +
                   " not begun become" + (before.size() == 1 ? "s " : " ") + std::to_string(after.size());
}

std::string memoryText(std::int64_t bytes) {
  return bytes == 0 ? "as learned" : BytesText(bytes).c_str();
}

} // namespace

JobChange changeOf(Session& session, const std::vector<std::string>& assignments) {
  JobChange change;
  std::vector<std::string> seen;
  for (const std::string& text : assignments) {
    const std::pair<std::string, std::string> assignment = splitAssignment(text);
    const std::string& name = assignment.first;
    const std::string& value = assignment.second;
    const bool isLimits = String::EqualNoCase(name, p_Limits);
    const bool isMemory = String::EqualNoCase(name, p_Memory);
    const auto* number = std::find_if(changeable.begin(), changeable.end(), [&](const Changeable& one) {
      return String::EqualNoCase(name, one.name);
    });
    if (!isLimits && !isMemory && number == changeable.end()) {
      throw UsageError{inQuotes(name) + " cannot change once a job is in the queue",
                       "what can: Priority, Retries, StopAfter, SlotsAtMost, Limits, Memory and PacketSize"};
    }
    const std::string known = isLimits ? p_Limits : isMemory ? p_Memory : number->name;
    if (std::find(seen.begin(), seen.end(), known) != seen.end()) {
      throw UsageError{known + " is given twice", "leave one of them out"};
    }
    seen.push_back(known);
    if (isLimits) {
      change.takes = sharesOf(value, knownLimits(existingQueue(session.state()).get()));
      continue;
    }
    if (isMemory) {
      change.memory = neededMemory(value);
      continue;
    }
    const bool isPacket = number->member == &JobChange::packet;
    if (isPacket && isAutoPacket(value)) {
      change.packet = JobChange::automatic;
      continue;
    }
    const auto given = ReadWholeNumber<int>(trimmed(value));
    if (!given || *given < number->least || *given > number->most) {
      throw UsageError{known + ": " + inQuotes(value) + " is not a whole number from " +
                           std::to_string(number->least) + " to " + std::to_string(number->most) +
                           (isPacket ? std::string(", or ") + k_AutoPacket : ""),
                       ""};
    }
    change.*number->member = *given;
  }
  return change;
}

JobDone setJob(Queue& queue, const JobRecord& job, const JobChange& change) {
  if (!isOpen(job.state) && job.state != JobState::Stopped) {
    throw UsageError{"job " + std::to_string(job.id) + " is " + nameOf(job.state) +
                         "; nothing of it is left to do",
                     "\"trovik retry " + std::to_string(job.id) + "\" opens it again"};
  }
  if (change.packet && !job.hasFrames) {
    throw UsageError{"job " + std::to_string(job.id) + " has no frames", "leave PacketSize out"};
  }
  std::vector<std::string> done;
  Json changes = Json::object();
  for (const Changeable& one : changeable) {
    if (const std::optional<int>& value = change.*one.member; value && one.before != nullptr) {
      done.push_back(std::string(one.name) + ' ' + std::to_string(job.*one.before) + " -> " +
                     std::to_string(*value));
      changes[one.name] = *value;
    }
  }
  if (change.takes) {
    done.push_back(std::string(p_Limits) + ' ' + sharesText(queue.takes(job.id)) + " -> " +
                   sharesText(*change.takes));
    changes[p_Limits] = sharesText(*change.takes);
  }
  if (change.memory) {
    done.push_back(std::string(p_Memory) + ' ' + memoryText(job.memory) + " -> " +
                   memoryText(*change.memory));
    changes[p_Memory] = *change.memory;
  }
  if (change.packet == JobChange::automatic) {
    done.push_back(std::string(p_PacketSize) +
                   " auto: works that have not begun get their frames when they do");
    changes[p_PacketSize] = k_AutoPacket;
  } else if (change.packet) {
    const std::vector<FrameRun> before = queue.worksToCut(job.id);
    done.push_back(std::string(p_PacketSize) + ' ' + std::to_string(*change.packet) + ": " +
                   packetText(before, cutAnew(before, *change.packet)));
    changes[p_PacketSize] = *change.packet;
  }
  queue.change(job.id, change);
  return {"job " + std::to_string(job.id) + "  " + joined(done, ", ") + '\n',
          {{"job", job.id}, {"changed", changes}}};
}

int setJobs(Session& session, const EachJobOptions& given) {
  EachJobOptions options = given;
  std::vector<std::string> assignments;
  std::erase_if(options.jobs, [&](const std::string& word) {
    const bool isAssignment = word.find('=') != std::string::npos;
    if (isAssignment) {
      assignments.push_back(word);
    }
    return isAssignment;
  });
  if (assignments.empty()) {
    throw UsageError{"\"trovik set\" needs what is to change", "such as trovik set 3 Priority=80"};
  }
  const JobChange change = changeOf(session, assignments);
  return forEachJob(session, options, "set",
                    [&](Queue& queue, const JobRecord& job) { return setJob(queue, job, change); });
}

} // namespace trovik
