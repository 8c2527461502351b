#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "TestPlatform.h"
#include "pelora/PeloraApiAd.h"
#include "pelora/ui/UI.h"
#include "track/PeloraTrackEvent.h"

using namespace pelora;
using pelora::platform::UrlOpenPurpose;
using pelora::testing::TestPlatform;

namespace {

struct Landing {
    TestPlatform tp{TestPlatform::NetworkKind::Fake};
    std::shared_ptr<ui::Window> window =
        std::make_shared<ui::Window>(platform::makeRect(0, 0, 320, 480));
    std::shared_ptr<ui::ViewController> root = std::make_shared<ui::ViewController>();
    std::shared_ptr<PeloraTrackEvent> tracker = PeloraTrackEvent::init();
    std::shared_ptr<PeloraApiAd> ad = std::make_shared<PeloraApiAd>();

    explicit Landing(int64_t interactionType) {
        window->setRootViewController(root);
        tracker->setAdRootVC(root);
        ad->clickAdUrl = "https://land.example/p?x=1";
        ad->interactionType = interactionType;
        tracker->bindAd(ad, root->view(), {});
    }
};

}  // namespace

TEST(InteractFormatUrl, KeepsTheBaseAndEncodesTheRestWithoutFurtherQuestionMarks) {
    PeloraInterInteractHandle handle;
    EXPECT_EQ(handle.formatUrl("https://a.example/p"), "https://a.example/p");
    EXPECT_EQ(handle.formatUrl("a?b=1?c=2"), "a?b=1c=2");
    EXPECT_EQ(handle.formatUrl("https://a.example/p?q=a b&r=\"x\""),
              "https://a.example/p?q=a%20b&r=%22x%22");
    EXPECT_EQ(handle.formatUrl("https://a.example/p?"), "https://a.example/p?");
}

TEST(InteractLandingPage, InteractionTypeTwoPresentsTheInAppBrowserOverFullScreen) {
    Landing l(2);
    l.tracker->triggerInteraction();
    auto page =
        std::dynamic_pointer_cast<ui::BrowserViewController>(l.root->presentedViewController());
    ASSERT_NE(page, nullptr);
    EXPECT_EQ(page->url(), "https://land.example/p?x=1");
    EXPECT_EQ(page->modalPresentationStyle(), ui::ModalPresentationStyle::OverFullScreen);
    EXPECT_TRUE(page->lastTransitionAnimated());
    EXPECT_EQ(l.window->subviews().back(), page->view());
    EXPECT_EQ(l.tp.opener->count(), 0u);
}

TEST(InteractLandingPage, MalformedTextIsRepairedForTheInAppBrowser) {
    Landing l(2);
    l.ad->clickAdUrl = "https://land.example/p?q=a b?c=1";
    l.tracker->triggerInteraction();
    auto page =
        std::dynamic_pointer_cast<ui::BrowserViewController>(l.root->presentedViewController());
    ASSERT_NE(page, nullptr);
    EXPECT_EQ(page->url(), "https://land.example/p?q=a%20bc=1");
}

TEST(InteractLandingPage, NoPresenterMeansNoPage) {
    Landing l(2);
    auto root = l.root;
    l.window->setRootViewController(nullptr);
    l.root.reset();
    root.reset();
    EXPECT_EQ(l.tracker->adRootVC(), nullptr);
    l.tracker->triggerInteraction();  // nothing to present on, nothing opened instead
    l.tp.pump();
    EXPECT_EQ(l.tp.opener->count(), 0u);
}

TEST(InteractLandingPage, OtherInteractionTypesOpenTheExternalBrowser) {
    for (int64_t type : {0, 1, 3, 99}) {
        Landing l(type);
        l.tracker->triggerInteraction();
        l.tp.pump();
        EXPECT_EQ(l.root->presentedViewController(), nullptr) << type;
        ASSERT_EQ(l.tp.opener->count(), 1u) << type;
        EXPECT_EQ(l.tp.opener->requests()[0].purpose, UrlOpenPurpose::LandingPage);
    }
}

// An app-store link or a custom scheme as the landing page goes to whichever app handles it;
// the in-app browser still shows web pages only.
TEST(InteractLandingPage, NonWebLandingPagesGoToTheSystemButNeverToTheInAppBrowser) {
    {
        Landing l(1);
        l.ad->clickAdUrl = "market://details?id=com.example.app";
        l.tracker->triggerInteraction();
        l.tp.pump();
        ASSERT_EQ(l.tp.opener->count(), 1u);
        EXPECT_EQ(l.tp.opener->requests()[0].url, "market://details?id=com.example.app");
        EXPECT_FALSE(l.tp.opener->requests()[0].refused);
    }
    {
        Landing l(2);
        l.ad->clickAdUrl = "market://details?id=com.example.app";
        l.tracker->triggerInteraction();
        l.tp.pump();
        EXPECT_EQ(l.root->presentedViewController(), nullptr);
    }
    {
        Landing l(1);
        l.ad->clickAdUrl = "javascript:alert(1)";
        l.tracker->triggerInteraction();
        l.tp.pump();
        for (const auto& r : l.tp.opener->requests()) EXPECT_TRUE(r.refused) << r.url;
    }
}

TEST(InteractLandingPage, FailedExternalOpenIsRetriedOnceWithTheRepairedUrl) {
    Landing l(1);
    l.ad->clickAdUrl = "https://land.example/p?a=1?b=x y";
    l.tp.opener->setDefaultResult(false);
    l.tracker->triggerInteraction();
    // The retry keeps the handler alive even when the tracker is gone.
    l.tracker.reset();
    ASSERT_TRUE(l.tp.waitFor([&] { return l.tp.opener->count() == 2; }));
    for (int i = 0; i < 3; ++i) l.tp.pump();
    auto opened = l.tp.opener->requests();
    ASSERT_EQ(opened.size(), 2u);
    EXPECT_TRUE(opened[0].refused);  // the space makes it malformed
    EXPECT_EQ(opened[1].url, "https://land.example/p?a=1b=x%20y");
    EXPECT_FALSE(opened[1].hadCompletion);
}

TEST(InteractDeepLink, SchemesOutsideTheRulesAreRefused) {
    TestPlatform tp{TestPlatform::NetworkKind::Fake};
    auto handle = std::make_shared<PeloraInterInteractHandle>();
    std::vector<bool> results;
    for (const char* url :
         {"file:///etc/passwd", "javascript:alert(1)", "DATA:text/plain,x", "myapp://ok"})
        handle->openDeepLink(url, [&](bool ok) { results.push_back(ok); });
    ASSERT_TRUE(tp.waitFor([&] { return results.size() == 4; }));
    EXPECT_EQ(results, (std::vector<bool>{false, false, false, true}));
    EXPECT_EQ(tp.opener->openedURLs(), std::vector<std::string>{"myapp://ok"});
}
