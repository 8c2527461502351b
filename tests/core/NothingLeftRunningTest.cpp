// Once a host releases its ad objects, the run loop holds no timer and no work of theirs: a
// host that sleeps on the loop's descriptor is not woken by ads it no longer has. (The
// rewarded video's case is in tests/reward.)

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "../splash/AdTestSupport.h"
#include "TestPlatform.h"
#include "native/PeloraImageDownloader.h"
#include "pelora/PeloraDataFlowAdManager.h"
#include "pelora/PeloraSplashAdView.h"
#include "pelora/ui/UI.h"
#include "splash/PeloraSplashAdViewInternal.h"

using pelora::testing::FakeHttpSessionFactory;
using pelora::testing::TestPlatform;
using Response = FakeHttpSessionFactory::Response;

namespace {

class NothingLeftRunningTest : public ::testing::Test {
  protected:
    void SetUp() override {
        PeloraNetwork::resetSessionsForTesting();
        tp.device->bundlePath = PELORA_SOURCE_DIR "/resources";
        tp.install();
        PeloraConstConfig::setBaseUrlOverride(std::string("https://ads.example"));
        nlohmann::json ad = {
            {"adId", "a-1"},
            {"creativeType", 2},
            {"images", {"https://cdn.example/a.png"}},
            {"trackUrls", {{{"trackType", 1}, {"urls", {"https://track.example/imp"}}}}}};
        tp.fake->addResponse("https://ads.example/api/v1/advert/fetch",
                             Response::ok(adtest::answer({ad})));
        tp.fake->addResponse("https://cdn.example/a.png", Response::ok(adtest::pngA()));
        tp.fake->setDefaultResponse(Response::ok("", 204));
    }
    void TearDown() override {
        PeloraNetwork::resetSessionsForTesting();
        PeloraConstConfig::setBaseUrlOverride(std::nullopt);
    }
    void expectEmptyLoop() {
        tp.pump();
        EXPECT_EQ(tp.manualLoop->timerCount(), 0u);
        EXPECT_EQ(tp.manualLoop->pendingTaskCount(), 0u);
        EXPECT_EQ(tp.fake->pendingCount(), 0u);
    }

    TestPlatform tp{TestPlatform::NetworkKind::Fake};
};

TEST_F(NothingLeftRunningTest, ASplashReleasedMidCountdownStopsTickingWithinASecond) {
    auto window = std::make_shared<pelora::ui::Window>(pelora::platform::makeRect(0, 0, 375, 667));
    auto view = PeloraSplashAdView::initWithSlotID("s", window->bounds());
    ASSERT_TRUE(view);
    window->addSubview(view);
    view->loadAdData();
    tp.advance(2);
    ASSERT_TRUE(PeloraSplashAdViewInternal::of(*view).timer()) << "the countdown runs";
    view->removeFromSuperview();
    view.reset();
    tp.advance(1);
    expectEmptyLoop();
}

TEST_F(NothingLeftRunningTest, NativeAdsLeaveNothingOnceReleased) {
    struct Host : PeloraDataFlowAdManagerDelegate {
        std::vector<std::shared_ptr<PeloraNativeAd>> ads;
        void dataFlowAdManagerDidSuccessLoad(
            std::shared_ptr<PeloraDataFlowAdManager>,
            std::vector<std::shared_ptr<PeloraNativeAd>> a) override {
            ads = std::move(a);
        }
    };
    auto host = std::make_shared<Host>();
    auto manager = PeloraDataFlowAdManager::initWithSlot(std::make_shared<PeloraDataFlowSlot>());
    manager->setDelegate(host);
    manager->loadAdData();
    tp.pump();
    ASSERT_EQ(host->ads.size(), 1u);
    auto card = std::make_shared<pelora::ui::View>(pelora::platform::makeRect(0, 0, 300, 200));
    auto image =
        std::make_shared<pelora::ui::ImageView>(pelora::platform::makeRect(0, 0, 300, 200));
    card->addSubview(image);
    pl_setImageUrl(*image, std::string("https://cdn.example/a.png"));
    host->ads[0]->registerContainer(card, {image});
    tp.advance(1);
    host->ads.clear();
    manager.reset();
    card.reset();
    image.reset();
    expectEmptyLoop();
}

}  // namespace
