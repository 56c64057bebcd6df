#include "trovik/queue/Queue.h"

#include "host/foundation/Descriptor.h"
#include "host/foundation/WriteFile.h"
#include "trovik/queue/NetworkFileSystem.h"
#include "trovik/queue/QueueImpl.h"
#include "trovik/queue/Schema.h"

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace trovik {
namespace {

/// The leaves that the program itself has in the folder.
constexpr std::array ownLeaves = {"queue.db", "queue.db-wal", "queue.db-shm", "reserve",
                                  "engines",  "logs",         "page-token"};

/// The directory, absolute (SQLite reads other names as addresses), made where
/// it is missing.
Path prepared(const Path& wanted, const Queue::Settings& settings) {
  std::error_code error;
  const std::filesystem::path directory = std::filesystem::absolute(wanted.c_str(), error);
  if (!error) {
    error = {MakePrivateFolder(Path(directory.string())), std::generic_category()};
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

/// Takes the rights of all others from what is this user's own.
void makePrivate(const std::filesystem::path& file) {
  struct stat status {};
  if (lstat(file.c_str(), &status) == 0 && status.st_uid == geteuid() && !S_ISLNK(status.st_mode) &&
      (status.st_mode & 077U) != 0) {
    chmod(file.c_str(), status.st_mode & 0700U); // where that fails all stays as open as it was
  }
}

/// What an older version made under the user's umask: commands and output that
/// are nobody else's business. A folder that holds other things as well is not
/// the queue's own.
void closeToOthers(const Path& directory) {
  std::error_code ignored;
  bool isOwn = true;
  for (const auto& entry : std::filesystem::directory_iterator(directory.c_str(), ignored)) {
    const bool known =
        std::find(ownLeaves.begin(), ownLeaves.end(), entry.path().filename()) != ownLeaves.end();
    isOwn = isOwn && known;
    if (known) {
      makePrivate(entry.path());
    }
  }
  if (isOwn) {
    makePrivate(directory.c_str());
  }
}

/// Makes the file for this user alone before SQLite makes it for all; the
/// others beside it get the same rights.
Path privateFile(const Path& file) {
  const Descriptor made(open(file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (made.IsOpen()) {
    static_cast<void>(fchmod(made.Number(), 0600));
  }
  return file;
}

std::string homeOf(const Path& file) {
  struct statx status {};
  if (statx(AT_FDCWD, file.c_str(), 0, STATX_INO | STATX_BTIME, &status) != 0) {
    throw QueueError{QueueError::Kind::Other,
                     "Cannot use the queue " + inQuotes(file.Text()) + ": " +
                         std::error_code(errno, std::generic_category()).message(),
                     "check whether somebody removes it"};
  }
  std::string home = std::to_string(status.stx_ino);
  if ((status.stx_mask & STATX_BTIME) != 0) {
    home += ' ' + std::to_string(status.stx_btime.tv_sec) + '.' + std::to_string(status.stx_btime.tv_nsec);
  }
  return home;
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
    : directory(prepared(wantedDirectory, settings)), clock(settings.clock),
      database(privateFile(below(directory, "queue.db")), settings.patience, settings.pageLimit),
      locks(below(directory, "engines")) {
  if (bringUpToDate(database, schemaSteps())) {
    closeToOthers(directory);
  }
  database.keepReserve();
  queueId = idOf(database);
  home = homeOf(database.file());
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

bool Queue::ownsLogs(const JobRecord& job) const {
  const Path own = logDirectory(job.id);
  return job.own && (job.logs == own.Text() || job.logs == own.Text() + impl_->suffix());
}

void Queue::inTransaction(const std::function<void()>& action, Sync sync) {
  if (impl_->database.isInTransaction()) {
    throw QueueError{QueueError::Kind::Other, "A transaction of the queue was begun within another", ""};
  }
  impl_->database.write(action, sync == Sync::Now ? Database::Sync::Now : Database::Sync::Later);
}

void Queue::syncWhenDue() {
  impl_->database.syncSometimes();
}

void Queue::inSnapshot(const std::function<void()>& action) {
  impl_->database.read(action);
}

std::int64_t Queue::dataVersion() {
  Query query(impl_->database, "PRAGMA data_version");
  return (query.next() ? query.number() : 0) + (impl_->freed << 32U);
}

void Queue::sync() {
  impl_->database.sync();
}

} // namespace trovik
