#include "trovik/queue/Database.h"

#include "host/foundation/Descriptor.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sqlite3.h>
#include <stdexcept>
#include <sys/statvfs.h>
#include <system_error>
#include <unistd.h>

namespace trovik {
namespace {

constexpr auto syncInterval = std::chrono::milliseconds(100);

// The log is copied into the database when it holds so many pages (8 MiB), so
// that it stays about that long; one that a long reading made longer is cut.
constexpr int pagesOfLog = 2000;
constexpr int longestLog = 64 << 20;

constexpr std::uint64_t reserveSize = std::uint64_t{4} << 20U;
constexpr std::uint64_t plentyOfRoom = 64 * reserveSize;

bool isFull(int code, int systemError) {
  return code == SQLITE_FULL ||
         (code == SQLITE_IOERR && (systemError == ENOSPC || systemError == EDQUOT || systemError == EFBIG));
}

QueueError errorOf(const Path& file, int code, const std::string& message, int systemError) {
  const std::string name = inQuotes(file.Text());
  const int kind = code & 0xff; // without the particulars
  std::string reason = message;
  if (systemError != 0 && (kind == SQLITE_IOERR || kind == SQLITE_CANTOPEN)) {
    reason += ", " + std::error_code(systemError, std::generic_category()).message();
  }
  if (kind == SQLITE_IOERR && systemError == EFBIG) {
    return {QueueError::Kind::Full, "The queue may not become larger: " + name,
            "raise the limit of this shell for the size of files, ulimit -f"};
  }
  if (isFull(kind, systemError)) {
    return {QueueError::Kind::Full, "The disk of the queue is full: " + name,
            "make room there; nothing that was recorded is lost"};
  }
  switch (kind) {
  case SQLITE_BUSY:
  case SQLITE_LOCKED:
    return {QueueError::Kind::Busy, "The queue is locked by another process for too long: " + name,
            "try again; if it stays so, look which process has the file open"};
  case SQLITE_CORRUPT:
  case SQLITE_NOTADB:
    return {QueueError::Kind::Damaged, "The queue is damaged: " + name + " (" + reason + ")",
            "move the file away, and a new queue is begun; logs and images stay where they are"};
  case SQLITE_CANTOPEN:
  case SQLITE_PERM:
  case SQLITE_READONLY:
    return {QueueError::Kind::Other, "Cannot use the queue " + name + ": " + reason,
            "give yourself the right to write there, or choose another directory with --state"};
  default:
    return {QueueError::Kind::Other, "The queue " + name + " failed: " + reason, ""};
  }
}

} // namespace

Database::Database(const Path& file, std::chrono::milliseconds patience, int pageLimit)
    : file_(file), patience_(patience), connection_(open(file)), lastSync_(std::chrono::steady_clock::now()) {
  sqlite3* handle = connection_.getHandle();
  connection_.setBusyTimeout(
      static_cast<int>(std::min<std::int64_t>(patience.count(), std::numeric_limits<int>::max())));
  // The file may come from anybody: nothing in it is to be run.
  sqlite3_db_config(handle, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_db_config(handle, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
  sqlite3_db_config(handle, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
  sqlite3_db_config(handle, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  execute("PRAGMA foreign_keys = ON");
  execute("PRAGMA synchronous = NORMAL");
  execute("PRAGMA temp_store = MEMORY");
  execute("PRAGMA cell_size_check = ON");
  execute("PRAGMA secure_delete = OFF");
  execute(("PRAGMA wal_autocheckpoint = " + std::to_string(pagesOfLog)).c_str());
  execute(("PRAGMA journal_size_limit = " + std::to_string(longestLog)).c_str());
  if (pageLimit > 0) {
    execute(("PRAGMA max_page_count = " + std::to_string(pageLimit)).c_str());
  }
}

SQLite::Database Database::open(const Path& file) const {
  try {
    return SQLite::Database(file.Text(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE | SQLite::OPEN_NOMUTEX);
  } catch (const SQLite::Exception& exception) {
    throw errorOf(file, exception.getErrorCode(), exception.what(), errno);
  }
}

void Database::execute(const char* sql) {
  const int code = connection_.tryExec(sql);
  if (code != SQLITE_OK) {
    throw error(code);
  }
}

void Database::begin() {
  // Taking the right to write at once: a reading transaction that wants to
  // write later may be refused, since others have written in between.
  Query(*this, "BEGIN IMMEDIATE").run();
  inside_ = true;
  broken_ = false;
}

void Database::beginReading() {
  Query(*this, "BEGIN").run();
  reading_ = true;
}

void Database::commit() {
  Query(*this, "COMMIT").run();
  inside_ = false;
  unsynced_ = true;
}

void Database::rollback() noexcept {
  inside_ = false;
  reading_ = false;
  broken_ = false;
  if (sqlite3_get_autocommit(connection_.getHandle()) == 0) { // a full disk undoes all by itself
    connection_.tryExec("ROLLBACK");
  }
}

void Database::refuseBroken() const {
  if (broken_) {
    throw QueueError{
        QueueError::Kind::Other,
        "A part of a change of the queue " + inQuotes(file_.Text()) + " failed, so all of it is undone", ""};
  }
}

void Database::syncSometimes() {
  const auto now = std::chrono::steady_clock::now();
  if (now - lastSync_ >= syncInterval) {
    // The commit stands whether this succeeds or not; where it does not,
    // `sync` tells.
    lastSync_ = now;
    syncLog();
  }
}

void Database::sync() {
  if (unsynced_ && !syncLog()) {
    throw QueueError{QueueError::Kind::Other,
                     "Cannot sync the queue " + inQuotes(file_.Text()) + ": " +
                         std::error_code(errno, std::generic_category()).message(),
                     "look whether its disk is sound"};
  }
}

bool Database::syncLog() {
  sqlite3_file* log = nullptr;
  const int code = sqlite3_file_control(connection_.getHandle(), "main", SQLITE_FCNTL_JOURNAL_POINTER, &log);
  if (code == SQLITE_OK && log != nullptr && log->pMethods != nullptr &&
      log->pMethods->xSync(log, SQLITE_SYNC_NORMAL | SQLITE_SYNC_DATAONLY) != SQLITE_OK) {
    return false;
  }
  lastSync_ = std::chrono::steady_clock::now();
  unsynced_ = false;
  return true;
}

QueueError Database::error(int code) {
  sqlite3* handle = connection_.getHandle();
  QueueError result = errorOf(file_, code, sqlite3_errmsg(handle), sqlite3_system_errno(handle));
  if (result.kind == QueueError::Kind::Full && unlink(reserveFile().c_str()) == 0) {
    tookReserve_ = true;
  }
  return result;
}

std::string Database::reserveFile() const {
  return file_.Branch(true, true) + "/reserve";
}

void Database::keepReserve() {
  const std::string name = reserveFile();
  struct statvfs disk {};
  if (access(name.c_str(), F_OK) == 0 || statvfs(file_.c_str(), &disk) != 0 ||
      std::uint64_t{disk.f_bavail} * disk.f_frsize < plentyOfRoom) {
    return;
  }
  const Descriptor file(::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (file.IsOpen() && posix_fallocate(file.Number(), 0, reserveSize) != 0) {
    unlink(name.c_str());
  }
}

QueueError Database::damaged(const std::string& reason) const {
  return errorOf(file_, SQLITE_CORRUPT, reason, 0);
}

Database::Kept& Database::kept(const char* sql) {
  auto place = kept_.find(sql);
  if (place == kept_.end()) {
    try {
      place = kept_.try_emplace(sql, Kept{SQLite::Statement(connection_, sql)}).first;
    } catch (const SQLite::Exception& exception) {
      throw error(exception.getErrorCode());
    }
  }
  if (place->second.used) {
    throw std::logic_error(std::string("a statement is used twice at once: ") + sql);
  }
  return place->second;
}

Query::~Query() {
  kept_.statement.tryReset(); // tells the error of the last step again
  kept_.used = false;
}

bool Query::next() {
  column_ = 0;
  const int code = kept_.statement.tryExecuteStep();
  if (code != SQLITE_ROW && code != SQLITE_DONE) {
    throw database_.error(code);
  }
  return code == SQLITE_ROW;
}

std::int64_t Query::number() {
  return kept_.statement.getColumn(column_++).getInt64();
}

int Query::integer() {
  const std::int64_t value = number();
  if (value < std::numeric_limits<int>::min() || value > std::numeric_limits<int>::max()) {
    throw database_.damaged("a number that cannot be, " + std::to_string(value));
  }
  return static_cast<int>(value);
}

std::string Query::text() {
  return kept_.statement.getColumn(column_++).getString();
}

std::optional<std::int64_t> Query::optionalNumber() {
  if (isNull()) {
    ++column_;
    return std::nullopt;
  }
  return number();
}

std::optional<int> Query::optionalInteger() {
  if (isNull()) {
    ++column_;
    return std::nullopt;
  }
  return integer();
}

std::optional<Moment> Query::optionalMoment() {
  const std::optional<std::int64_t> value = optionalNumber();
  return value ? std::optional(Moment(std::chrono::microseconds(*value))) : std::nullopt;
}

FrameRun Query::frames() {
  FrameRun run;
  run.First = integer();
  run.Last = integer();
  if (run.First > run.Last) {
    throw database_.damaged("frames that cannot be, " + runText(run));
  }
  return run;
}

void Query::bind(std::int64_t value) {
  kept_.statement.bind(++bound_, value);
}
void Query::bind(const std::string& value) {
  kept_.statement.bind(++bound_, value);
}
void Query::bind(const Blob& value) {
  kept_.statement.bind(++bound_, value.bytes.data(), static_cast<int>(value.bytes.size()));
}
void Query::bindNull() {
  kept_.statement.bind(++bound_);
}

} // namespace trovik
