#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "pelora/platform/Export.h"

namespace pelora::platform {

enum class LogLevel { Debug = 0, Info = 1, Warning = 2, Error = 3 };

using LogSink = std::function<void(LogLevel level, std::string_view message)>;

// One sink for every diagnostic line of the SDK and its backends: stderr by default.
// Hosts replace it with setLogSink (thread-safe); an empty function restores stderr.
PELORA_EXPORT void setLogSink(LogSink sink);
PELORA_EXPORT void setMinimumLogLevel(LogLevel level);
PELORA_EXPORT void log(LogLevel level, std::string_view message);

PELORA_EXPORT const char* logLevelName(LogLevel level);

}  // namespace pelora::platform
