#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "pelora/platform/Log.h"
#include "pelora/platform/NotificationCenter.h"

namespace {

using pelora::platform::LogLevel;
using pelora::platform::Notification;
using pelora::platform::NotificationCenter;

TEST(NotificationCenterTest, ObserversOfANameRunInOrderWithThePostersObject) {
    NotificationCenter center;
    std::vector<std::string> calls;
    auto poster = std::make_shared<int>(7);
    auto first = center.addObserver("kPeloraNetChangeNotify", [&](const Notification& n) {
        calls.push_back("first:" + std::to_string(*std::static_pointer_cast<int>(n.object)));
    });
    center.addObserver("kPeloraNetChangeNotify",
                       [&](const Notification& n) { calls.push_back("second:" + n.name); });
    center.addObserver("Other", [&](const Notification&) { calls.push_back("other"); });
    center.post("kPeloraNetChangeNotify", poster);
    EXPECT_EQ(calls, (std::vector<std::string>{"first:7", "second:kPeloraNetChangeNotify"}));

    calls.clear();
    center.removeObserver(first);
    center.post("kPeloraNetChangeNotify");
    EXPECT_EQ(calls, (std::vector<std::string>{"second:kPeloraNetChangeNotify"}));
}

TEST(NotificationCenterTest, ObserversMayAddAndRemoveObserversWhileBeingCalled) {
    NotificationCenter center;
    int selfCalls = 0, lateCalls = 0;
    NotificationCenter::Token self = 0;
    self = center.addObserver("N", [&](const Notification&) {
        ++selfCalls;
        center.removeObserver(self);
        center.addObserver("N", [&](const Notification&) { ++lateCalls; });
    });
    center.post("N");
    center.post("N");
    EXPECT_EQ(selfCalls, 1);
    EXPECT_EQ(lateCalls, 1);  // added during the first post, called from the second on
}

class LogTest : public ::testing::Test {
  protected:
    void TearDown() override {
        pelora::platform::setLogSink(nullptr);
        pelora::platform::setMinimumLogLevel(LogLevel::Debug);
    }
};

TEST_F(LogTest, ReplacedSinkReceivesLinesAtOrAboveTheMinimumLevel) {
    std::vector<std::pair<LogLevel, std::string>> lines;
    pelora::platform::setLogSink(
        [&](LogLevel level, std::string_view message) { lines.emplace_back(level, message); });
    pelora::platform::log(LogLevel::Debug, "dealloc: PeloraSplashAdConfig");
    pelora::platform::setMinimumLogLevel(LogLevel::Warning);
    pelora::platform::log(LogLevel::Info, "dropped");
    pelora::platform::log(LogLevel::Error, "sdk: image error -1001");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0],
              std::make_pair(LogLevel::Debug, std::string("dealloc: PeloraSplashAdConfig")));
    EXPECT_EQ(lines[1], std::make_pair(LogLevel::Error, std::string("sdk: image error -1001")));
}

TEST_F(LogTest, ASinkMayLogAndReplaceItselfAndEmptyRestoresStderr) {
    std::vector<std::string> seen;
    pelora::platform::setLogSink([&](LogLevel, std::string_view message) {
        seen.emplace_back(message);
        if (seen.size() == 1) pelora::platform::log(LogLevel::Info, "nested");
        pelora::platform::setLogSink(
            [&](LogLevel, std::string_view m) { seen.push_back("replacement:" + std::string(m)); });
    });
    pelora::platform::log(LogLevel::Info, "outer");
    pelora::platform::log(LogLevel::Info, "after");
    EXPECT_EQ(seen, (std::vector<std::string>{"outer", "nested", "replacement:after"}));

    pelora::platform::setLogSink(nullptr);
    ::testing::internal::CaptureStderr();
    pelora::platform::log(LogLevel::Warning, "to stderr");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "[pelora warning] to stderr\n");
    EXPECT_STREQ(pelora::platform::logLevelName(LogLevel::Error), "error");
}

}  // namespace
