#include "trovik/verbs/Queue.h"

#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/ClusterRun.h"
#include "trovik/verbs/Session.h"

#include <charconv>
#include <filesystem>
#include <system_error>
#include <vector>

namespace trovik {

Queue::Queue(Session& session) : Queue(session.state()) {
  if (store_ != nullptr) {
    collectFromCluster(session, *store_);
  }
}

Queue::Queue(const Path& directory) {
  std::error_code error;
  const std::filesystem::path database = std::filesystem::path(directory.c_str()) / "queue.db";
  const auto kind = std::filesystem::symlink_status(database, error).type();
  if (kind != std::filesystem::file_type::not_found) {
    store_ = std::make_unique<Store>(directory);
  }
}

JobId jobNumber(const std::string& text) {
  if (text == "last") {
    return 0;
  }
  JobId number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number <= 0) {
    throw UsageError{inQuotes(text) + " is not the number of a job",
                     "jobs have whole numbers from 1 on, and the newest is \"last\"; \"trovik jobs\" lists "
                     "them"};
  }
  return number;
}

namespace {

[[noreturn]] void refuseUnknown(JobId number) {
  if (number == 0) {
    throw UsageError{"there is no job yet", "\"trovik run\" and \"trovik submit\" make one"};
  }
  throw UsageError{"there is no job " + std::to_string(number), "\"trovik jobs\" lists them"};
}

} // namespace

JobRecord findJob(Store& store, const std::string& text) {
  const JobId number = jobNumber(text);
  if (number == 0) {
    if (std::vector<JobRecord> jobs = store.jobs(); !jobs.empty()) {
      return std::move(jobs.front());
    }
  } else if (std::optional<JobRecord> job = store.job(number)) {
    return std::move(*job);
  }
  refuseUnknown(number);
}

JobRecord Queue::job(const std::string& text) {
  if (store_ == nullptr) {
    refuseUnknown(jobNumber(text));
  }
  return findJob(*store_, text);
}

} // namespace trovik
