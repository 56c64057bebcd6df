#include "host/foundation/Log.h"

#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <atomic>
#include <memory>
#include <mutex>

namespace {

spdlog::level::level_enum ToLibrary(LogLevel level) {
  switch (level) {
  case LogLevel::Debug:
    return spdlog::level::debug;
  case LogLevel::Info:
    return spdlog::level::info;
  case LogLevel::Warning:
    return spdlog::level::warn;
  case LogLevel::Error:
    return spdlog::level::err;
  case LogLevel::Off:
    break;
  }
  return spdlog::level::off;
}

struct State {
  State()
      : Logger(
            std::make_shared<spdlog::logger>("trovik", std::make_shared<spdlog::sinks::stderr_sink_mt>())) {
    Logger->set_pattern("%n: %l: %v");
    Logger->set_level(spdlog::level::warn);
    Logger->flush_on(spdlog::level::debug);
  }
  std::shared_ptr<spdlog::logger> Logger;
  LogSink Sink;
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
  if ((level == LogLevel::Warning && !WarningBudget::Take()) || !state.Logger->should_log(ToLibrary(level))) {
    return;
  }
  if (state.Sink) {
    state.Sink(level, text);
  } else {
    // A text is never a format: braces in file names are plain.
    state.Logger->log(ToLibrary(level), spdlog::string_view_t(text.data(), text.size()));
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
  TheState().Logger->set_level(ToLibrary(level));
}

LogSink SetLogSink(LogSink sink) {
  std::swap(TheState().Sink, sink);
  return sink;
}
