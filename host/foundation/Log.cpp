#include "host/foundation/Log.h"

#include <atomic>
#include <cstdio>
#include <utility>

namespace {

const char* NameOf(LogLevel level) {
  switch (level) {
  case LogLevel::Debug:
    return "debug";
  case LogLevel::Info:
    return "info";
  case LogLevel::Warning:
    return "warning";
  case LogLevel::Error:
  case LogLevel::Off:
    break;
  }
  return "error";
}

struct State {
  LogSink Sink;
  std::atomic<LogLevel> Least{LogLevel::Warning};
  std::atomic<LogLevel> TypeInUse{LogLevel::Warning};
};

// Never destroyed: modules and static objects may log until the very end.
State& TheState() {
  static auto* state = new State();
  return *state;
}

std::atomic<LogLevel>& LevelOf(LogSubject subject) {
  switch (subject) {
  case LogSubject::TypeInUse:
    break;
  }
  return TheState().TypeInUse;
}

thread_local WarningBudget* t_Budget = nullptr;

void Write(LogLevel level, const String& text) {
  State& state = TheState();
  if ((level == LogLevel::Warning && !WarningBudget::Take()) || !IsLogged(level)) {
    return;
  }
  if (state.Sink) {
    state.Sink(level, text);
  } else {
    // One call, so one write: standard error has no buffer.
    const String line = String("trovik: ") + NameOf(level) + ": " + text + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
  }
}

} // namespace

WarningBudget::WarningBudget(std::size_t limit) : m_Left(limit), m_Outer(t_Budget) {
  t_Budget = this;
}

WarningBudget::~WarningBudget() {
  t_Budget = m_Outer;
}

bool WarningBudget::IsSpent() {
  return t_Budget != nullptr && t_Budget->m_Left == 0;
}

bool WarningBudget::Take() {
  if (IsSpent()) {
    ++t_Budget->m_Dropped;
    return false;
  }
  if (t_Budget != nullptr) {
    --t_Budget->m_Left;
  }
  return true;
}

void LogError(const String& text) {
  Write(LogLevel::Error, text);
}
void LogWarning(const String& text) {
  Write(LogLevel::Warning, text);
}
void LogWarning(const String& text, LogSubject subject) {
  Write(LevelOf(subject), text);
}
void LogInfo(const String& text) {
  Write(LogLevel::Info, text);
}
void LogDebug(const String& text) {
  Write(LogLevel::Debug, text);
}

void SetSubjectLevel(LogSubject subject, LogLevel level) {
  LevelOf(subject) = level;
}

void SetLogLevel(LogLevel level) {
  TheState().Least = level;
}

bool IsLogged(LogLevel level) {
  return level >= TheState().Least;
}

LogSink SetLogSink(LogSink sink) {
  std::swap(TheState().Sink, sink);
  return sink;
}
