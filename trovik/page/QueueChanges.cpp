#include "trovik/page/QueueChanges.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <sys/inotify.h>
#include <unistd.h>
#include <utility>

namespace trovik {

QueueChanges::QueueChanges(Queue& queue, std::int64_t first)
    : queue_(queue), first_(first), revision_(first), version_(queue.dataVersion()),
      machine_(queue.engineMark()) {
  for (const auto& [job, mark] : queue.marks()) {
    jobs_[job] = {mark, first};
  }
}

QueueChanges::Change QueueChanges::update() {
  Change change;
  const std::int64_t version = queue_.dataVersion();
  if (version == version_) {
    return change;
  }
  version_ = version; // before the marks, so that what comes meanwhile is seen the next time
  const std::map<JobId, std::uint64_t> marks = queue_.marks();
  for (const auto& [job, mark] : marks) {
    const auto known = jobs_.find(job);
    if (known == jobs_.end() || known->second.mark != mark) {
      change.jobs.push_back(job);
    }
  }
  for (auto known = jobs_.begin(); known != jobs_.end();) {
    const bool gone = !marks.contains(known->first);
    if (gone) {
      change.jobs.push_back(known->first);
    }
    known = gone ? jobs_.erase(known) : std::next(known);
  }
  std::sort(change.jobs.begin(), change.jobs.end());
  const std::uint64_t machine = queue_.engineMark();
  change.machine = std::exchange(machine_, machine) != machine;
  if (change.any()) {
    ++revision_;
  }
  for (const JobId job : change.jobs) {
    if (const auto mark = marks.find(job); mark != marks.end()) {
      jobs_[job] = {mark->second, revision_};
    }
  }
  return change;
}

std::int64_t QueueChanges::revisionOf(JobId job) const {
  const auto known = jobs_.find(job);
  return known == jobs_.end() ? first_ : known->second.revision;
}

QueueWatch::QueueWatch(const Path& directory) : notify_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  if (notify_.IsOpen() &&
      inotify_add_watch(notify_.Number(), directory.c_str(), IN_MODIFY | IN_CREATE | IN_DELETE) < 0) {
    notify_.Reset();
  }
}

bool QueueWatch::take() {
  bool seen = false;
  alignas(inotify_event) char buffer[4096];
  ssize_t got = 0;
  while (notify_.IsOpen() && (got = read(notify_.Number(), buffer, sizeof buffer)) > 0) {
    for (ssize_t place = 0; place < got;) {
      inotify_event event{};
      std::memcpy(&event, buffer + place, sizeof event);
      const char* const name = buffer + place + sizeof event;
      // An event without a name says that some were lost.
      seen = seen || event.len == 0 || std::string_view(name).starts_with("queue.db");
      place += static_cast<ssize_t>(sizeof event + event.len);
    }
  }
  return seen;
}

} // namespace trovik
