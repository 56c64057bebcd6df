#pragma once

#include "host/foundation/Path.h"
#include "trovik/queue/QueueError.h"
#include "trovik/records/Records.h"
#include "trovik/text/Text.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace trovik {

/// A connection to the queue's file: transactions, kept statements, errors as
/// QueueError, and the syncing of the write-ahead log.
///
/// How a commit gets onto the disk: SQLite runs with "synchronous" NORMAL. A
/// commit is then some writes to the log, which survive the death of every
/// process, and the log is synced only before it is copied into the database,
/// so that a loss of power can take the last commits but never damage the file.
/// What NORMAL leaves open is how much may be lost, and that is bounded here:
/// after a commit the log is synced when it was not for a tenth of a second,
/// through SQLite's own file object. One sync covers all commits before it.
/// Switching "synchronous" to FULL for some commits would do the same at the
/// price of a statement, and could not serve `sync`.
class Database {
public:
  /// Opens the file and makes it where it is missing; nothing is read yet. For
  /// `patience` and `pageLimit` see Queue::Settings.
  explicit Database(const Path& file, std::chrono::milliseconds patience = std::chrono::seconds(30),
                    int pageLimit = 0);
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  const Path& file() const { return file_; }
  std::chrono::milliseconds patience() const { return patience_; }

  /// Runs statements that are needed once.
  void execute(const char* sql);

  /// Runs the action in a write transaction: in the surrounding one, or in one
  /// of its own. An exception undoes all of it. Who says so calls
  /// `syncSometimes` himself, as soon as what waits for the commit has begun.
  enum class Sync { Now, Later };
  template <typename Action> void write(Action action, Sync sync = Sync::Now) {
    if (inside_) {
      refuseBroken();
      try {
        action();
      } catch (...) {
        broken_ = true;
        throw;
      }
      return;
    }
    begin();
    try {
      action();
      refuseBroken();
      commit();
    } catch (...) {
      rollback();
      throw;
    }
    if (sync == Sync::Now) {
      syncSometimes();
    }
  }
  /// Runs several questions on one state of the queue; others may write
  /// meanwhile.
  template <typename Action> void read(Action action) {
    if (inside_ || reading_) {
      action();
      return;
    }
    beginReading();
    try {
      action();
    } catch (...) {
      rollback();
      throw;
    }
    rollback(); // nothing was written
  }
  bool isInTransaction() const { return inside_; }
  /// The ID of the row that was inserted last.
  std::int64_t lastId() const;

  void sync();
  /// The same where there were commits and the last sync is a tenth of a second ago.
  void syncSometimes();

  /// Keeps a file of some size beside the database, where its disk has plenty of
  /// room: it goes when the disk is full, so that there is room to write down
  /// that something is ended or removed.
  void keepReserve();
  /// The same as `write` for what makes room: where the disk is full it is done
  /// once more, in place of the reserve. So the action may run twice.
  template <typename Action> void writeFromReserve(Action action) {
    try {
      write(action);
    } catch (const QueueError& error) {
      if (error.kind != QueueError::Kind::Full || inside_ || !tookReserve_) {
        throw;
      }
      tookReserve_ = false;
      write(action);
    }
  }

  /// The error of the call that failed last, by SQLite's code.
  QueueError error(int code);
  /// What is in the file cannot be.
  QueueError damaged(const std::string& reason) const;

private:
  friend class Query;
  struct Close {
    void operator()(sqlite3* connection) const;
    void operator()(sqlite3_stmt* statement) const;
  };
  struct Kept {
    std::unique_ptr<sqlite3_stmt, Close> statement;
    bool used = false;
  };

  void begin();
  void beginReading();
  void commit();
  void rollback() noexcept;
  void refuseBroken() const;
  bool syncLog();
  Kept& kept(const char* sql);
  std::string reserveFile() const;

  Path file_;
  std::chrono::milliseconds patience_;
  std::unique_ptr<sqlite3, Close> connection_;
  // By the address of the text: each is a literal of this program.
  std::unordered_map<const char*, Kept> kept_;
  bool inside_ = false;
  bool reading_ = false;
  bool broken_ = false;   // a part of the transaction failed: the rest must not be committed
  bool unsynced_ = false; // commits since the last sync
  bool tookReserve_ = false;
  std::chrono::steady_clock::time_point lastSync_;
};

/// Bytes that are no text.
struct Blob {
  const std::string& bytes;
};

/// One use of a statement, which is prepared on its first use and kept. It is
/// reset when the use ends: a statement left in the middle of its rows would
/// hold a snapshot, and the log could not be shortened.
class Query {
public:
  template <typename... Values>
  Query(Database& database, const char* sql, const Values&... values)
      : database_(database), kept_(database.kept(sql)) {
    (bind(values), ...);
    kept_.used = true;
  }
  ~Query();
  Query(const Query&) = delete;
  Query& operator=(const Query&) = delete;

  /// To the next row; false after the last.
  bool next();
  /// Runs a statement that gives no rows.
  void run() {
    while (next()) {
    }
  }

  // The columns of a row, from left to right: each call takes the next one.
  // What cannot be in a sound queue throws QueueError Damaged.

  std::int64_t number();
  int integer();
  bool flag() { return number() != 0; }
  std::string text();
  bool isNull() const;
  std::optional<std::int64_t> optionalNumber();
  std::optional<int> optionalInteger();
  Moment moment() { return Moment(std::chrono::microseconds(number())); }
  std::optional<Moment> optionalMoment();
  std::chrono::microseconds duration() { return std::chrono::microseconds(number()); }
  FrameRun frames();                   ///< of two columns
  std::optional<ProcessUsage> usage(); ///< of five
  template <typename State> State state() {
    const std::string name = text();
    State result{};
    if (!fromName(name, result)) {
      throw database_.damaged("unknown state " + inQuotes(name));
    }
    return result;
  }

  QueueError damaged(const std::string& reason) const { return database_.damaged(reason); }

private:
  void bind(std::int64_t value);
  void bind(int value) { bind(std::int64_t{value}); }
  void bind(bool value) { bind(std::int64_t{value ? 1 : 0}); }
  void bind(std::size_t value) { bind(static_cast<std::int64_t>(value)); }
  void bind(const std::string& value);
  void bind(const Blob& value);
  void bind(const char* value) { bind(std::string(value)); }
  /// One after the other.
  void bind(const std::vector<std::int64_t>& values) {
    for (const std::int64_t value : values) {
      bind(value);
    }
  }
  void bind(const std::optional<ProcessUsage>& value);
  void bind(std::chrono::microseconds value) { bind(std::int64_t{value.count()}); }
  void bind(Moment value) { bind(value.time_since_epoch().count()); }
  template <typename Value> void bind(const std::optional<Value>& value) {
    if (value) {
      bind(*value);
    } else {
      bindNull();
    }
  }
  void bindNull();
  void check(int code) const;

  Database& database_;
  Database::Kept& kept_;
  int bound_ = 0;
  int column_ = 0;
};

} // namespace trovik
