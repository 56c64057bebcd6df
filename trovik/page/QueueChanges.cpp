#include "trovik/page/QueueChanges.h"

#include <algorithm>
#include <cstring>
#include <iterator>
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

void QueueChanges::Change::add(const Change& next) {
  std::vector<JobId> all;
  std::set_union(jobs.begin(), jobs.end(), next.jobs.begin(), next.jobs.end(), std::back_inserter(all));
  jobs = std::move(all);
  machine = machine || next.machine;
}

QueueChanges::Change QueueChanges::update() {
  const std::int64_t version = queue_.dataVersion();
  // Before the marks, so that what comes meanwhile is seen the next time.
  return std::exchange(version_, version) != version ? compare(true) : Change();
}

QueueChanges::Change QueueChanges::updateWithEngines() {
  Change change = update();
  change.add(compare(false));
  return change;
}

QueueChanges::Change QueueChanges::compare(bool jobs) {
  Change change;
  const std::map<JobId, std::uint64_t> marks = jobs ? queue_.marks() : std::map<JobId, std::uint64_t>();
  for (const auto& [job, mark] : marks) {
    const auto known = jobs_.find(job);
    if (known == jobs_.end() || known->second.mark != mark) {
      change.jobs.push_back(job);
    }
  }
  for (auto known = jobs_.begin(); jobs && known != jobs_.end();) {
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
