#pragma once

#include "host/foundation/String.h"

#include <cstddef>
#include <functional>

/// The host's log. Each call writes one whole line in one write, so lines of
/// concurrent works never interleave. Safe from any thread.
void LogError(const String& text);
void LogWarning(const String& text);
void LogInfo(const String& text);
void LogDebug(const String& text);

/// Bounds the warnings of this thread while it lives: the first so many are
/// logged, the others are counted. For what a stranger's small file could make
/// warn without end. One within another takes its place meanwhile.
class WarningBudget {
public:
  static constexpr std::size_t k_Usual = 20;

  explicit WarningBudget(std::size_t limit = k_Usual);
  ~WarningBudget();
  WarningBudget(const WarningBudget&) = delete;
  WarningBudget& operator=(const WarningBudget&) = delete;

  /// The warnings that were not logged.
  std::size_t Dropped() const { return m_Dropped; }
  /// Whether this thread's next warning would not be logged: what it would say
  /// need not be found out.
  static bool IsSpent();
  /// Counts one; false when it is not to be logged.
  static bool Take();

private:
  std::size_t m_Left;
  std::size_t m_Dropped = 0;
  WarningBudget* m_Outer;
};

enum class LogLevel { Debug, Info, Warning, Error, Off };

/// What a warning is about, for a host that treats some unlike others: never
/// tell that from its words.
enum class LogSubject {
  TypeInUse, ///< a type is left out, since another has its ID
};

/// A warning about a subject, at the level that the subject has.
void LogWarning(const String& text, LogSubject subject);

/// The level of a subject's warnings. Warning at first.
void SetSubjectLevel(LogSubject subject, LogLevel level);

/// Lines below this level are dropped. Warning at first.
void SetLogLevel(LogLevel level);

/// Whether lines of a level pass it: what others would say need not be made.
bool IsLogged(LogLevel level);

/// Receives every line that passes the level, in place of standard error
/// ("trovik: warning: ..."). An empty function restores standard error.
/// Returns the sink that was in force. For programs and tests; call it while
/// no other thread logs.
using LogSink = std::function<void(LogLevel level, const String& text)>;
LogSink SetLogSink(LogSink sink);
