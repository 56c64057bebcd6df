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

/// SQLite counts the memory that it holds, under a lock, each time it takes or
/// gives some, which is thirty times a work. Nobody asks for the number.
void stopCountingMemory() {
  static const int ignored = sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
  static_cast<void>(ignored);
}

} // namespace

Database::Database(const Path& file, std::chrono::milliseconds patience, int pageLimit)
    : file_(file), patience_(patience), lastSync_(std::chrono::steady_clock::now()) {
  stopCountingMemory();
  sqlite3* handle = nullptr;
  const int code = sqlite3_open_v2(file.c_str(), &handle,
                                   SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
  connection_.reset(handle);
  if (code != SQLITE_OK) {
    throw error(code);
  }
  sqlite3_busy_timeout(
      handle, static_cast<int>(std::min<std::int64_t>(patience.count(), std::numeric_limits<int>::max())));
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

void Database::Close::operator()(sqlite3* connection) const {
  sqlite3_close_v2(connection);
}
void Database::Close::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

void Database::execute(const char* sql) {
  const int code = sqlite3_exec(connection_.get(), sql, nullptr, nullptr, nullptr);
  if (code != SQLITE_OK) {
    throw error(code);
  }
}

std::int64_t Database::lastId() const {
  return sqlite3_last_insert_rowid(connection_.get());
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
  if (sqlite3_get_autocommit(connection_.get()) == 0) { // a full disk undoes all by itself
    sqlite3_exec(connection_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
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
  if (!unsynced_) {
    return;
  }
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
  const int code = sqlite3_file_control(connection_.get(), "main", SQLITE_FCNTL_JOURNAL_POINTER, &log);
  if (code == SQLITE_OK && log != nullptr && log->pMethods != nullptr &&
      log->pMethods->xSync(log, SQLITE_SYNC_NORMAL | SQLITE_SYNC_DATAONLY) != SQLITE_OK) {
    return false;
  }
  lastSync_ = std::chrono::steady_clock::now();
  unsynced_ = false;
  return true;
}

QueueError Database::error(int code) {
  sqlite3* handle = connection_.get();
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
    sqlite3_stmt* statement = nullptr;
    const int code = sqlite3_prepare_v2(connection_.get(), sql, -1, &statement, nullptr);
    if (code != SQLITE_OK) {
      throw error(code);
    }
    place = kept_.try_emplace(sql).first;
    place->second.statement.reset(statement);
  }
  if (place->second.used) {
    throw std::logic_error(std::string("a statement is used twice at once: ") + sql);
  }
  return place->second;
}

Query::~Query() {
  sqlite3_reset(kept_.statement.get()); // tells the error of the last step again
  kept_.used = false;
}

bool Query::next() {
  column_ = 0;
  const int code = sqlite3_step(kept_.statement.get());
  if (code != SQLITE_ROW && code != SQLITE_DONE) {
    throw database_.error(code);
  }
  return code == SQLITE_ROW;
}

std::int64_t Query::number() {
  return sqlite3_column_int64(kept_.statement.get(), column_++);
}

int Query::integer() {
  const std::int64_t value = number();
  if (value < std::numeric_limits<int>::min() || value > std::numeric_limits<int>::max()) {
    throw database_.damaged("a number that cannot be, " + std::to_string(value));
  }
  return static_cast<int>(value);
}

std::string Query::text() {
  const void* bytes = sqlite3_column_blob(kept_.statement.get(), column_);
  const int size = sqlite3_column_bytes(kept_.statement.get(), column_++);
  return {static_cast<const char*>(bytes), static_cast<std::size_t>(size)};
}

bool Query::isNull() const {
  return sqlite3_column_type(kept_.statement.get(), column_) == SQLITE_NULL;
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

std::optional<ProcessUsage> Query::usage() {
  const std::optional<std::int64_t> user = optionalNumber();
  const std::optional<std::int64_t> system = optionalNumber();
  const std::optional<std::int64_t> memory = optionalNumber();
  const std::optional<std::int64_t> read = optionalNumber();
  const std::optional<std::int64_t> written = optionalNumber();
  if (!user || !system || !memory) {
    return std::nullopt;
  }
  return ProcessUsage{*user, *system, *memory, read, written};
}

void Query::bind(std::int64_t value) {
  check(sqlite3_bind_int64(kept_.statement.get(), ++bound_, value));
}
void Query::bind(const std::string& value) {
  check(sqlite3_bind_text64(kept_.statement.get(), ++bound_, value.data(), value.size(), SQLITE_TRANSIENT,
                            SQLITE_UTF8));
}
void Query::bind(const Blob& value) {
  check(sqlite3_bind_blob64(kept_.statement.get(), ++bound_, value.bytes.data(), value.bytes.size(),
                            SQLITE_TRANSIENT));
}
void Query::bind(const std::optional<ProcessUsage>& value) {
  if (!value) {
    for (int i = 0; i < 5; ++i) {
      bindNull();
    }
    return;
  }
  bind(value->UserTime);
  bind(value->SystemTime);
  bind(value->PeakMemory);
  bind(value->BytesRead);
  bind(value->BytesWritten);
}

void Query::bindNull() {
  check(sqlite3_bind_null(kept_.statement.get(), ++bound_));
}

void Query::check(int code) const {
  if (code != SQLITE_OK) { // a text of a gigabyte
    throw database_.error(code);
  }
}

} // namespace trovik
