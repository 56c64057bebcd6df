#include "host/foundation/Log.h"

#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

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
};

// Never destroyed: modules and static objects may log until the very end.
State& TheState() {
  static auto* state = new State();
  return *state;
}

void Write(LogLevel level, const String& text) {
  State& state = TheState();
  if (!state.Logger->should_log(ToLibrary(level))) {
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

void LogError(const String& text) {
  Write(LogLevel::Error, text);
}
void LogWarning(const String& text) {
  Write(LogLevel::Warning, text);
}
void LogInfo(const String& text) {
  Write(LogLevel::Info, text);
}
void LogDebug(const String& text) {
  Write(LogLevel::Debug, text);
}

void SetLogLevel(LogLevel level) {
  TheState().Logger->set_level(ToLibrary(level));
}

LogSink SetLogSink(LogSink sink) {
  std::swap(TheState().Sink, sink);
  return sink;
}
