#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace pelora::platform {

enum class LogLevel { Debug = 0, Info = 1, Warning = 2, Error = 3 };

using LogSink = std::function<void(LogLevel level, std::string_view message)>;

// One sink for every diagnostic line of the SDK and its backends: stderr by default.
// Hosts replace it with setLogSink (thread-safe); an empty function restores stderr.
void setLogSink(LogSink sink);
void setMinimumLogLevel(LogLevel level);
void log(LogLevel level, std::string_view message);

const char* logLevelName(LogLevel level);

}  // namespace pelora::platform
