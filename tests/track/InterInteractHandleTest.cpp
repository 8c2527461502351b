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
        window->setRootViewController(root);
        tracker->setAdRootVC(root);
        ad->clickAdUrl = url;
        ad->interactionType = interactionType;
        tracker->bindAd(ad, root->view(), {});
        tracker->triggerInteraction();
        tp.pump();
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
    auto page = l.page();
    ASSERT_NE(page, nullptr);
    EXPECT_EQ(page->url(), "https://land.example/p?q=a%20bc=1");
    EXPECT_EQ(page->modalPresentationStyle(), ui::ModalPresentationStyle::OverFullScreen);
    EXPECT_TRUE(page->lastTransitionAnimated());
    EXPECT_EQ(l.window->subviews().back(), page->view());
    EXPECT_EQ(l.tp.opener->count(), 0u);
}

TEST(InteractLandingPage, EveryOtherCaseOpensOutsideOrNothing) {
    // {interaction type, landing page, what the system was asked to open ("!": refused, then
    // retried once)}
    const std::tuple<int64_t, const char*, const char*> cases[] = {
        {0, "https://land.example/p?x=1", "https://land.example/p?x=1"},
        {1, "https://land.example/p?x=1", "https://land.example/p?x=1"},
        {3, "https://land.example/p?x=1", "https://land.example/p?x=1"},
        {99, "https://land.example/p?x=1", "https://land.example/p?x=1"},
        {1, "market://details?id=com.example.app", "market://details?id=com.example.app"},
        {2, "market://details?id=com.example.app", ""},
        {1, "javascript:alert(1)", "!javascript:alert(1)!javascript:alert(1)"}};
    for (const auto& [type, url, expected] : cases) {
        Landing l(type, url);
        EXPECT_EQ(l.page(), nullptr) << url;
        std::string opened;
        for (const auto& r : l.tp.opener->requests()) opened += (r.refused ? "!" : "") + r.url;
        EXPECT_EQ(opened, expected) << type << " " << url;
        for (const auto& r : l.tp.opener->requests())
            EXPECT_EQ(r.purpose, UrlOpenPurpose::LandingPage);
    }
}

TEST(InteractLandingPage, NoPresenterMeansNoPage) {
    TestPlatform tp{TestPlatform::NetworkKind::Fake};
    auto tracker = PeloraTrackEvent::init();
    {
        auto root = std::make_shared<ui::ViewController>();
        tracker->setAdRootVC(root);
        auto ad = std::make_shared<PeloraApiAd>();
        ad->clickAdUrl = "https://land.example/p";
        ad->interactionType = 2;
        tracker->bindAd(ad, root->view(), {});
    }
    EXPECT_EQ(tracker->adRootVC(), nullptr);
    tracker->triggerInteraction();  // nothing to present on, nothing opened instead
    tp.pump();
    EXPECT_EQ(tp.opener->count(), 0u);
}

TEST(InteractLandingPage, FailedExternalOpenIsRetriedOnceWithTheRepairedUrl) {
    TestPlatform tp{TestPlatform::NetworkKind::Fake};
    tp.opener->setDefaultResult(false);
    auto ad = std::make_shared<PeloraApiAd>();
    ad->clickAdUrl = "https://land.example/p?a=1?b=x y";
    ad->interactionType = 1;
    auto tracker = PeloraTrackEvent::init();
    auto root = std::make_shared<ui::ViewController>();
    tracker->bindAd(ad, root->view(), {});
    tracker->triggerInteraction();
    tracker.reset();  // the retry keeps the handler alive even when the tracker is gone
    ASSERT_TRUE(tp.waitFor([&] { return tp.opener->count() == 2; }));
    for (int i = 0; i < 3; ++i) tp.pump();
    auto opened = tp.opener->requests();
    ASSERT_EQ(opened.size(), 2u);
    EXPECT_TRUE(opened[0].refused);  // the space makes it malformed
    EXPECT_EQ(opened[1].url, "https://land.example/p?a=1b=x%20y");
    EXPECT_FALSE(opened[1].hadCompletion);
}
