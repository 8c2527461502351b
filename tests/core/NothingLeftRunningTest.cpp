// Once a host releases its ad objects, the run loop holds no timer and no work of theirs and
// the network no request: a host that sleeps on the loop's descriptor is not woken by ads it
// no longer has. (The splash released mid-countdown is in tests/splash
// (TheHostMayReleaseTheViewAtAnyPoint), the rewarded video in tests/reward.)

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "../splash/AdTestSupport.h"
#include "TestPlatform.h"
#include "native/PeloraImageDownloader.h"
#include "pelora/PeloraDataFlowAdManager.h"
#include "pelora/ui/UI.h"

namespace {

using pelora::platform::makeRect;
using Response = pelora::testing::FakeHttpSessionFactory::Response;

struct NativeHost : PeloraDataFlowAdManagerDelegate {
    std::vector<std::shared_ptr<PeloraNativeAd>> ads;
    void dataFlowAdManagerDidSuccessLoad(std::shared_ptr<PeloraDataFlowAdManager>,
                                         std::vector<std::shared_ptr<PeloraNativeAd>> a) override {
        ads = std::move(a);
    }
};

TEST(NothingLeftRunningTest, ReleasedNativeAdsLeaveNoTimerTaskOrRequest) {
    pelora::testing::TestPlatform tp{pelora::testing::TestPlatform::NetworkKind::Fake};
    tp.device->bundlePath = PELORA_SOURCE_DIR "/resources";
    tp.options.serverOrigin = std::string("https://ads.example");
    tp.install();
    const auto ad = nlohmann::json::parse(R"({"adId":"a-1","creativeType":2,
        "images":["https://cdn.example/a.png"],
        "trackUrls":[{"trackType":1,"urls":["https://track.example/imp"]}]})");
    tp.fake->addResponse("https://ads.example/api/v1/advert/fetch",
                         Response::ok(adtest::answer({ad})));
    tp.fake->addResponse("https://cdn.example/a.png", Response::ok(adtest::pngA()));
    tp.fake->setDefaultResponse(Response::ok("", 204));

    // Native ads, their image shown and their impression tracked.
    auto host = std::make_shared<NativeHost>();
    auto manager = PeloraDataFlowAdManager::initWithSlot(std::make_shared<PeloraDataFlowSlot>());
    manager->setDelegate(host);
    manager->loadAdData();
    tp.pump();
    ASSERT_EQ(host->ads.size(), 1u);
    auto card = std::make_shared<pelora::ui::View>(makeRect(0, 0, 300, 200));
    auto image = std::make_shared<pelora::ui::ImageView>(makeRect(0, 0, 300, 200));
    card->addSubview(image);
    pl_setImageUrl(*image, std::string("https://cdn.example/a.png"));
    host->ads[0]->registerContainer(card, {image});
    tp.advance(1);
    host->ads.clear();
    manager.reset();
    card.reset();
    image.reset();
    tp.pump();
    EXPECT_EQ(tp.manualLoop->timerCount(), 0u);
    EXPECT_EQ(tp.manualLoop->pendingTaskCount(), 0u);
    EXPECT_EQ(tp.fake->pendingCount(), 0u);
}

}  // namespace
