#include "pelora/platform/Log.h"

#include <atomic>
#include <cstdio>
#include <memory>
#include <mutex>

namespace pelora::platform {
namespace {

std::mutex& sinkMutex() {
    static std::mutex m;
    return m;
}
std::shared_ptr<LogSink>& sinkSlot() {
    static std::shared_ptr<LogSink> sink;
    return sink;
}
std::atomic<int> minimumLevel{static_cast<int>(LogLevel::Debug)};

}  // namespace

const char* logLevelName(LogLevel level) {
    switch (level) {
        case LogLevel::Debug:
            return "debug";
        case LogLevel::Info:
            return "info";
        case LogLevel::Warning:
            return "warning";
        case LogLevel::Error:
            return "error";
    }
    return "?";
}

void setLogSink(LogSink sink) {
    std::lock_guard lock(sinkMutex());
    sinkSlot() = sink ? std::make_shared<LogSink>(std::move(sink)) : nullptr;
}

void setMinimumLogLevel(LogLevel level) {
    minimumLevel = static_cast<int>(level);
}

void log(LogLevel level, std::string_view message) {
    if (static_cast<int>(level) < minimumLevel.load()) return;
    std::shared_ptr<LogSink> sink;
    {
        std::lock_guard lock(sinkMutex());
        sink = sinkSlot();
    }
    // The sink runs outside the lock so that it may log or replace itself.
    if (sink) {
        (*sink)(level, message);
    } else {
        std::fprintf(stderr, "[pelora %s] %.*s\n", logLevelName(level),
                     static_cast<int>(message.size()), message.data());
    }
}

}  // namespace pelora::platform
