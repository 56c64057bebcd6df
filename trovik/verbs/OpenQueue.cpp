#include "trovik/verbs/OpenQueue.h"

#include "host/foundation/WholeNumber.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

namespace trovik {

std::unique_ptr<Queue> existingQueue(const Path& directory) {
  std::error_code error;
  const std::filesystem::path database = std::filesystem::path(directory.c_str()) / "queue.db";
  const auto kind = std::filesystem::symlink_status(database, error).type();
  return kind == std::filesystem::file_type::not_found ? nullptr : std::make_unique<Queue>(directory);
}

JobId jobNumber(const std::string& text) {
  if (text == "last") {
    return 0;
  }
  const JobId number = ReadWholeNumber<JobId>(text).value_or(0);
  if (number <= 0) {
    throw UsageError{inQuotes(text) + " is not the number of a job",
                     "jobs have whole numbers from 1 on, and the newest is \"last\"; \"trovik jobs\" lists "
                     "them"};
  }
  return number;
}

JobRecord findJob(Queue* queue, const std::string& text) {
  const JobId number = jobNumber(text);
  if (queue != nullptr) {
    if (number == 0) {
      if (std::vector<JobRecord> jobs = queue->jobs(); !jobs.empty()) {
        return std::move(jobs.front());
      }
    } else if (std::optional<JobRecord> job = queue->job(number)) {
      return std::move(*job);
    }
  }
  if (number == 0) {
    throw UsageError{"there is no job yet", "\"trovik run\" and \"trovik submit\" make one"};
  }
  throw UsageError{"there is no job " + std::to_string(number), "\"trovik jobs\" lists them"};
}

} // namespace trovik
