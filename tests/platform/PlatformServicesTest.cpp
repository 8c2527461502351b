// The small platform services: notifications, the log, and opening URLs outside the SDK.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "pelora/desktop/EventRunLoop.h"
#include "pelora/desktop/XdgUrlOpener.h"
#include "pelora/platform/Log.h"
#include "pelora/platform/NotificationCenter.h"
#include "pelora/platform/UrlOpener.h"
#include "pelora/testing/ManualClock.h"

namespace {

using namespace pelora::platform;

TEST(NotificationCenterTest, ObserversOfANameRunInOrderAndMayChangeTheListWhileCalled) {
    NotificationCenter center;
    std::vector<std::string> calls;
    auto first = center.addObserver("Net", [&](const Notification& n) {
        calls.push_back("first:" + std::to_string(*std::static_pointer_cast<int>(n.object)));
    });
    NotificationCenter::Token self = 0;
    self = center.addObserver("Net", [&](const Notification& n) {
        calls.push_back("second:" + n.name);
        center.removeObserver(self);
        center.addObserver("Net", [&](const Notification&) { calls.push_back("late"); });
    });
    center.addObserver("Other", [&](const Notification&) { calls.push_back("other"); });
    center.post("Net", std::make_shared<int>(7));
    EXPECT_EQ(calls, (std::vector<std::string>{"first:7", "second:Net"}));
    center.removeObserver(first);
    center.post("Net");
    EXPECT_EQ(calls, (std::vector<std::string>{"first:7", "second:Net", "late"}));
}

TEST(LogTest, TheSinkGetsLinesAtTheMinimumLevelAndMayLogAndReplaceItself) {
    std::vector<std::string> seen;
    setLogSink([&](LogLevel level, std::string_view message) {
        seen.push_back(std::string(logLevelName(level)) + ":" + std::string(message));
        if (seen.size() == 1) log(LogLevel::Info, "nested");
        if (message == "replace")
            setLogSink(
                [&](LogLevel, std::string_view m) { seen.push_back("new:" + std::string(m)); });
    });
    log(LogLevel::Debug, "outer");
    setMinimumLogLevel(LogLevel::Warning);
    log(LogLevel::Info, "dropped");
    log(LogLevel::Error, "replace");
    log(LogLevel::Error, "after");
    setLogSink(nullptr);
    setMinimumLogLevel(LogLevel::Debug);
    EXPECT_EQ(seen, (std::vector<std::string>{"debug:outer", "info:nested", "error:replace",
                                              "new:after"}));
}

// Local schemes (file, data, javascript) are refused over the whole WHATWG URL corpus in
// tests/track/UrlCorpusTest, which spells them in lower case; here, their other cases and the
// rest of what makes a URL fit to open. The purpose changes nothing: both go to the system.
TEST(UrlOpenerRules, EverySchemeButTheLocalOnesLeavesAndOnlyWebUrlsAreWebPages) {
    // A lone "%4" at the end, with a hex digit right behind the text that must not be read.
    const std::string_view loneEscape("myapp://x%4F", 11);
    for (std::string_view good : {"https://a.example/p?x=%41", "HTTP://a.example", "myapp://x",
                                  "market://details?id=com.example", "ftp://a.example"})
        EXPECT_TRUE(isOpenableURL(good, UrlOpenPurpose::DeepLink)) << good;
    for (std::string_view bad : std::initializer_list<std::string_view>{
             "FILE:/x", "JavaScript:x", "-x://y", "://y", "noscheme", "", "a b://x", "myapp://x y",
             "myapp://x\n", "myapp://%zz", "myapp://a#b#c", "myapp://x\x7f", loneEscape})
        EXPECT_FALSE(isOpenableURL(bad, UrlOpenPurpose::LandingPage)) << bad;
    EXPECT_TRUE(isWebURL("HTTP://a.example"));
    EXPECT_FALSE(isWebURL("https://a.example/p q"));
    EXPECT_EQ(urlScheme("My-App+1.x:rest"), "my-app+1.x");
}

TEST(XdgUrlOpener, ExitStatusIsTheResultAndRefusedUrlsStartNothing) {
    auto clock = std::make_shared<pelora::testing::ManualClock>();
    auto loop = std::make_shared<pelora::desktop::EventRunLoop>(clock);
    std::vector<bool> results;
    auto done = [&](bool ok) { results.push_back(ok); };
    {
        // "true" and "false" stand in for the handler: they ignore the URL argument. Handed to
        // a shell, the second URL would end in "false" and fail.
        pelora::desktop::XdgUrlOpener succeeds("true", loop), fails("false", loop),
            missing("pelora-no-such-handler", loop);
        succeeds.openURL("https://a.example/p?q=1 x", UrlOpenPurpose::DeepLink, done);
        succeeds.openURL("https://a.example/p?q=$(false);false", UrlOpenPurpose::LandingPage, done);
        fails.openURL("myapp://x", UrlOpenPurpose::DeepLink, done);
        missing.openURL("myapp://x", UrlOpenPurpose::DeepLink, done);
        ASSERT_TRUE(
            loop->runUntil([&] { return results.size() == 4; }, clock->monotonicSeconds() + 10));
    }
    // The malformed one is refused first; the others in whatever order the handlers finish.
    EXPECT_FALSE(results[0]);
    EXPECT_EQ(std::count(results.begin(), results.end(), true), 1);
}

}  // namespace
