#include "trovik/page/QueueChanges.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>
#include <sys/inotify.h>
#include <unistd.h>
#include <utility>

namespace trovik {

std::int64_t Revisions::of(JobId job) const {
  const auto known = jobs.find(job);
  return known == jobs.end() ? first : known->second;
}

Revisions Revisions::since(std::int64_t revision) const {
  Revisions newer{first, last, {}};
  std::copy_if(jobs.begin(), jobs.end(), std::inserter(newer.jobs, newer.jobs.end()),
               [&](const auto& job) { return job.second > revision; });
  return newer;
}

void Revisions::add(const Revisions& newer) {
  first = newer.first;
  last = newer.last;
  for (const auto& [job, revision] : newer.jobs) {
    jobs[job] = revision;
  }
}

QueueChanges::QueueChanges(Queue& queue, std::int64_t first)
    : queue_(queue), revisions_{first, first, {}}, version_(queue.dataVersion()), marks_(queue.marks()),
      machine_(queue.engineMark()) {}

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
  if (jobs) {
    std::map<JobId, std::uint64_t> marks = queue_.marks();
    for (const auto& [job, mark] : marks) {
      const auto known = marks_.find(job);
      if (known == marks_.end() || known->second != mark) {
        change.jobs.push_back(job);
      }
    }
    for (const auto& [job, mark] : marks_) {
      if (!marks.contains(job)) {
        change.jobs.push_back(job);
      }
    }
    std::sort(change.jobs.begin(), change.jobs.end());
    marks_ = std::move(marks);
  }
  const std::uint64_t machine = queue_.engineMark();
  change.machine = std::exchange(machine_, machine) != machine;
  if (change.any()) {
    ++revisions_.last;
  }
  for (const JobId job : change.jobs) {
    revisions_.jobs[job] = revisions_.last; // also of one that is gone, which somebody may still know
  }
  return change;
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
