#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>

#include "TestPlatform.h"
#include "pelora/PeloraApiAd.h"
#include "pelora/ui/UI.h"
#include "track/PeloraTrackEvent.h"

using namespace pelora;
using pelora::platform::UrlOpenPurpose;
using pelora::testing::TestPlatform;

namespace {

// An ad whose landing page `url` opens as `interactionType` says, from a tracker bound under a
// window's root controller.
struct Landing {
    TestPlatform tp{TestPlatform::NetworkKind::Fake};
    std::shared_ptr<ui::Window> window =
        std::make_shared<ui::Window>(platform::makeRect(0, 0, 320, 480));
    std::shared_ptr<ui::ViewController> root = std::make_shared<ui::ViewController>();
    std::shared_ptr<PeloraTrackEvent> tracker = PeloraTrackEvent::init();
    std::shared_ptr<PeloraApiAd> ad = std::make_shared<PeloraApiAd>();

    Landing(int64_t interactionType, const std::string& url) {
        tp.opener->failScheme("bad");
        window->setRootViewController(root);
        tracker->setAdRootVC(root);
        ad->clickAdUrl = url;
        ad->interactionType = interactionType;
        tracker->bindAd(ad, root->view(), {});
    }
    // What the system was asked to open, each one that failed after a "!". The handler
    // outlives the tracker until it is done.
    std::string open() {
        tracker->triggerInteraction();
        tracker.reset();
        tp.settle();
        std::string opened;
        for (const auto& r : tp.opener->requests()) {
            EXPECT_EQ(r.purpose, UrlOpenPurpose::LandingPage) << r.url;
            opened += (r.result ? "" : "!") + r.url;
        }
        return opened;
    }
    std::shared_ptr<ui::BrowserViewController> page() {
        return std::dynamic_pointer_cast<ui::BrowserViewController>(
            root->presentedViewController());
    }
};

}  // namespace

// Type 2 shows web pages in the in-app browser, over full screen, repaired where the text is
// malformed (further "?" dropped, the rest escaped); anything else goes to the system.
TEST(InteractLandingPage, TypeTwoPresentsTheInAppBrowserOverFullScreen) {
    Landing l(2, "https://land.example/p?q=a b?c=1");
    EXPECT_EQ(l.open(), "");
    auto page = l.page();
    ASSERT_NE(page, nullptr);
    EXPECT_EQ(page->url(), "https://land.example/p?q=a%20bc=1");
    EXPECT_EQ(page->modalPresentationStyle(), ui::ModalPresentationStyle::OverFullScreen);
    EXPECT_TRUE(page->lastTransitionAnimated());
    EXPECT_EQ(l.window->subviews().back(), page->view());
}

TEST(InteractLandingPage, EveryOtherCaseOpensOutsideOrNothing) {
    // {interaction type, landing page, what the system was asked to open}: a URL the system
    // cannot open is retried once, repaired.
    const std::tuple<int64_t, const char*, const char*> cases[] = {
        {0, "https://land.example/p?x=1", "https://land.example/p?x=1"},
        {1, "https://land.example/p?x=1", "https://land.example/p?x=1"},
        {3, "https://land.example/p?x=1", "https://land.example/p?x=1"},
        {99, "https://land.example/p?x=1", "https://land.example/p?x=1"},
        {1, "market://details?id=com.example.app", "market://details?id=com.example.app"},
        {2, "market://details?id=com.example.app", ""},
        {1, "javascript:alert(1)", "!javascript:alert(1)!javascript:alert(1)"},
        {1, "https://land.example/p?a=1?b=x y",
         "!https://land.example/p?a=1?b=x yhttps://land.example/p?a=1b=x%20y"},
        {1, "bad://p?a=1?b=2", "!bad://p?a=1?b=2!bad://p?a=1b=2"}};
    for (const auto& [type, url, expected] : cases) {
        Landing l(type, url);
        EXPECT_EQ(l.open(), expected) << type << " " << url;
        EXPECT_EQ(l.page(), nullptr) << url;
    }
}

TEST(InteractLandingPage, NoPresenterMeansNoPage) {
    Landing l(2, "https://land.example/p");
    l.window.reset();
    l.root.reset();
    EXPECT_EQ(l.tracker->adRootVC(), nullptr);  // held weakly
    EXPECT_EQ(l.open(), "");                    // nothing to present on, nothing opened instead
}
