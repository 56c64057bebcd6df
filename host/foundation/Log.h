#pragma once

#include "host/foundation/String.h"

#include <functional>

/// The host's log. Each call writes one whole line in one write, so lines of
/// concurrent works never interleave. Safe from any thread.
void LogError(const String& text);
void LogWarning(const String& text);
void LogInfo(const String& text);
void LogDebug(const String& text);

enum class LogLevel { Debug, Info, Warning, Error, Off };

/// Lines below this level are dropped. Warning at first.
void SetLogLevel(LogLevel level);

/// Receives every line that passes the level, in place of standard error
/// ("trovik: warning: ..."). An empty function restores standard error.
/// Returns the sink that was in force. For programs and tests; call it while
/// no other thread logs.
using LogSink = std::function<void(LogLevel level, const String& text)>;
LogSink SetLogSink(LogSink sink);
