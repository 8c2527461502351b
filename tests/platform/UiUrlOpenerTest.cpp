#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "pelora/desktop/EventRunLoop.h"
#include "pelora/desktop/XdgUrlOpener.h"
#include "pelora/platform/UrlOpener.h"
#include "pelora/testing/ManualClock.h"

using namespace pelora;
using platform::UrlOpenPurpose;

TEST(UrlOpenerRules, EverySchemeButTheLocalOnesLeavesAndOnlyWebUrlsAreWebPages) {
    for (auto purpose : {UrlOpenPurpose::LandingPage, UrlOpenPurpose::DeepLink}) {
        for (const char* good : {"https://a.example/p?x=1", "HTTP://a.example", "myapp://x",
                                 "market://details?id=com.example", "ftp://a.example"})
            EXPECT_TRUE(platform::isOpenableURL(good, purpose)) << good;
        for (const char* bad :
             {"file:///etc/passwd", "FILE:/x", "data:text/html,x", "javascript:x", "JavaScript:x",
              "-x://y", "://y", "noscheme", "", "a b://x", "my app://x", "myapp://x y",
              "myapp://x\n", "myapp://%zz", "myapp://a#b#c"})
            EXPECT_FALSE(platform::isOpenableURL(bad, purpose)) << bad;
    }
    EXPECT_TRUE(platform::isWebURL("https://a.example/p"));
    EXPECT_TRUE(platform::isWebURL("HTTP://a.example"));
    EXPECT_FALSE(platform::isWebURL("market://details?id=x"));
    EXPECT_FALSE(platform::isWebURL("https://a.example/p q"));
    EXPECT_EQ(platform::urlScheme("My-App+1.x:rest"), "my-app+1.x");
}

TEST(XdgUrlOpener, ExitStatusIsTheResultAndRefusedUrlsStartNothing) {
    auto clock = std::make_shared<pelora::testing::ManualClock>();
    auto loop = std::make_shared<desktop::EventRunLoop>(clock);
    std::vector<bool> results;
    auto done = [&](bool ok) { results.push_back(ok); };
    {
        // "true" and "false" stand in for the handler: they ignore the URL argument.
        desktop::XdgUrlOpener succeeds("true", loop);
        desktop::XdgUrlOpener fails("false", loop);
        desktop::XdgUrlOpener missing("pelora-no-such-handler", loop);
        succeeds.openURL("https://a.example/p?q=1;rm -rf", UrlOpenPurpose::DeepLink,
                         done);  // malformed
        succeeds.openURL("https://a.example/p?q=$(id)", UrlOpenPurpose::LandingPage, done);
        fails.openURL("myapp://x", UrlOpenPurpose::DeepLink, done);
        missing.openURL("myapp://x", UrlOpenPurpose::DeepLink, done);
        ASSERT_TRUE(
            loop->runUntil([&] { return results.size() == 4; }, clock->monotonicSeconds() + 10));
    }
    // The refusal is answered first; the others in whatever order the handlers finish.
    EXPECT_FALSE(results[0]);
    EXPECT_EQ(std::count(results.begin(), results.end(), true), 1);
}
