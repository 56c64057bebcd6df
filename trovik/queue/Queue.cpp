#include "trovik/queue/Queue.h"

#include "trovik/queue/NetworkFileSystem.h"
#include "trovik/queue/QueueImpl.h"
#include "trovik/queue/Schema.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace trovik {
namespace {

/// The directory, absolute (SQLite reads other names as addresses), made where
/// it is missing.
Path prepared(const Path& wanted, const Queue::Settings& settings) {
  std::error_code error;
  const std::filesystem::path directory = std::filesystem::absolute(wanted.c_str(), error);
  if (!error) {
    std::filesystem::create_directories(directory, error);
  }
  if (error) {
    const bool full = error == std::errc::no_space_on_device;
    throw QueueError{full ? QueueError::Kind::Full : QueueError::Kind::Other,
                     "Cannot make the folder of the queue " + inQuotes(wanted.Text()) + ": " +
                         error.message(),
                     "choose another with --state"};
  }
  Path result(directory.string());
  const std::string network =
      settings.networkFileSystem ? settings.networkFileSystem(result) : networkFileSystem(result);
  if (!network.empty()) {
    throw QueueError{QueueError::Kind::Other,
                     "The folder of the queue " + inQuotes(result.Text()) +
                         " lies on a network file system (" + network + "), whose locks cannot be trusted",
                     "choose a folder on a local disk with --state"};
  }
  return result;
}

Path below(Path directory, const String& name) {
  directory /= name;
  return directory;
}

std::string idOf(Database& database) {
  Query query(database, "SELECT id FROM queue");
  if (!query.next()) {
    throw database.damaged("it has no ID");
  }
  std::string id = query.text();
  // It goes into the environment of programs.
  if (id.empty() || id.size() > 64 || !std::all_of(id.begin(), id.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
      })) {
    throw database.damaged("an ID that cannot be, " + inQuotes(id));
  }
  return id;
}

} // namespace

Queue::Impl::Impl(const Path& wantedDirectory, const Settings& settings)
    : directory(prepared(wantedDirectory, settings)),
      database(below(directory, "queue.db"), settings.patience, settings.pageLimit),
      locks(below(directory, "engines")) {
  bringUpToDate(database, schemaSteps());
  queueId = idOf(database);
}

Queue::Queue(const Path& directory, const Settings& settings)
    : impl_(std::make_unique<Impl>(directory, settings)) {}
Queue::Queue(const Path& directory) : Queue(directory, Settings()) {}
Queue::~Queue() = default;

const Path& Queue::directory() const {
  return impl_->directory;
}

Path Queue::logDirectory(JobId job) const {
  return below(below(impl_->directory, "logs"), String(std::to_string(job)));
}

void Queue::inTransaction(const std::function<void()>& action) {
  if (impl_->database.isInTransaction()) {
    throw QueueError{QueueError::Kind::Other, "A transaction of the queue was begun within another", ""};
  }
  impl_->database.write(action);
}

void Queue::inSnapshot(const std::function<void()>& action) {
  impl_->database.read(action);
}

std::int64_t Queue::dataVersion() {
  Query query(impl_->database, "PRAGMA data_version");
  return query.next() ? query.number() : 0;
}

void Queue::sync() {
  impl_->database.sync();
}

} // namespace trovik
