#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "../splash/AdTestSupport.h"
#include "FakeServer.h"
#include "native/PeloraNativeAdInternal.h"
#include "pelora/PeloraDataFlowAdManager.h"
#include "pelora/PeloraNativeAd.h"
#include "pelora/ui/UI.h"
#include "track/PeloraTrackEvent.h"

using namespace pelora;
using adtest::adJson;
using adtest::answer;
using pelora::platform::Error;
using pelora::platform::makeRect;
using pelora::testing::FakeServer;
using pelora::testing::LoopbackResponse;
using pelora::testing::RecordedRequest;
using pelora::testing::TestPlatform;

namespace {

const char* kFetchPath = "/api/v1/advert/fetch";

struct ManagerRecorder : PeloraDataFlowAdManagerDelegate {
    std::vector<std::shared_ptr<PeloraNativeAd>> ads;
    std::vector<Error> errors;
    int calls = 0;
    void dataFlowAdManagerDidSuccessLoad(
        std::shared_ptr<PeloraDataFlowAdManager>,
        std::vector<std::shared_ptr<PeloraNativeAd>> list) override {
        ++calls;
        ads = std::move(list);
    }
    void dataFlowAdManagerDidFailWithError(std::shared_ptr<PeloraDataFlowAdManager>,
                                           const Error& error) override {
        ++calls;
        errors.push_back(error);
    }
};

struct NativeRecorder : PeloraNativeAdDelegate {
    std::vector<std::string> events;
    std::vector<std::shared_ptr<ui::View>> tapped;
    void nativeAdDidDidShow(std::shared_ptr<PeloraNativeAd> ad) override {
        events.push_back("show " + ad->adData()->adId.value_or(""));
    }
    void nativeAdDidClickWithView(std::shared_ptr<PeloraNativeAd> ad,
                                  std::shared_ptr<ui::View> view) override {
        events.push_back("click " + ad->adData()->adId.value_or(""));
        tapped.push_back(view);
    }
};

class DataFlowAdManagerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        tp.options.serverOrigin = server.baseUrl();
        tp.install();
        setAnswer(answer({adJson(server, "n-1")}));
        server.on(kFetchPath, [this](const RecordedRequest&) {
            std::lock_guard lock(answerMutex);
            return fetchResponse;
        });
        for (const char* path : {"/imp", "/click"})
            server.on(path, LoopbackResponse::text("", 204));
        window->addSubview(container);
        container->addSubview(titleLabel);
        container->addSubview(image);
    }

    void setAnswer(std::string body, int status = 200) {
        std::lock_guard lock(answerMutex);
        fetchResponse = LoopbackResponse::json(std::move(body), status);
    }

    std::shared_ptr<PeloraDataFlowAdManager> load(
        std::shared_ptr<PeloraDataFlowSlot> slot = nullptr) {
        if (!slot) {
            slot = std::make_shared<PeloraDataFlowSlot>();
            slot->slotId = "native-slot";
            slot->slotWidth = 690;
            slot->slotHeight = 388;
        }
        auto manager = PeloraDataFlowAdManager::initWithSlot(slot);
        manager->setDelegate(recorder);
        manager->loadAdData();
        EXPECT_TRUE(tp.waitFor([&] { return recorder->calls > 0; }));
        return manager;
    }

    std::shared_ptr<PeloraNativeAd> firstAd() {
        auto manager = load();
        if (recorder->ads.empty()) return nullptr;
        auto ad = recorder->ads[0];
        ad->setDelegate(native);
        ad->setRootViewController(root);
        return ad;
    }

    // Every request issued so far has been answered once this returns.
    std::vector<RecordedRequest> settle() {
        tp.settle();
        return server.requests();
    }

    static size_t sdkRecognizers(const ui::View& view) {
        return std::count_if(
            view.gestureRecognizers().begin(), view.gestureRecognizers().end(),
            [](const auto& r) { return dynamic_cast<_PeloraApiTapGesture*>(r.get()) != nullptr; });
    }

    TestPlatform tp{TestPlatform::NetworkKind::Fake};
    FakeServer server{tp};
    adtest::LogCapture logs;
    std::mutex answerMutex;
    LoopbackResponse fetchResponse;
    std::shared_ptr<ManagerRecorder> recorder = std::make_shared<ManagerRecorder>();
    std::shared_ptr<NativeRecorder> native = std::make_shared<NativeRecorder>();
    std::shared_ptr<ui::ViewController> root = std::make_shared<ui::ViewController>();
    std::shared_ptr<ui::Window> window = std::make_shared<ui::Window>(makeRect(0, 0, 375, 667));
    std::shared_ptr<PeloraNativeRenderView> container =
        std::make_shared<PeloraNativeRenderView>(makeRect(10, 100, 345, 200));
    std::shared_ptr<ui::Label> titleLabel = std::make_shared<ui::Label>(makeRect(0, 0, 345, 40));
    std::shared_ptr<ui::ImageView> image =
        std::make_shared<ui::ImageView>(makeRect(0, 40, 345, 160));
};

// ---- loading --------------------------------------------------------------------------------

// The slot goes out as given (no scaling), a missing slot as zeros, with the slot's time-out.
TEST_F(DataFlowAdManagerTest, TheRequestCarriesTheSlotAsGiven) {
    auto bare = std::make_shared<PeloraDataFlowSlot>();
    bare->tolerateTimeout = 7;
    load();
    load(bare);
    const auto& requests = tp.fake->requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(nlohmann::json::parse(requests[0].request.body)["slot"],
              (nlohmann::json{{"slotId", "native-slot"},
                              {"adType", 5},
                              {"position", 3},
                              {"width", 690},
                              {"height", 388},
                              {"acceptedCreativeTypes", 2},
                              {"acceptedInteractionType", 1}}));
    EXPECT_DOUBLE_EQ(requests[0].request.timeoutInterval, 3.0);
    EXPECT_EQ(nlohmann::json::parse(requests[1].request.body)["slot"],
              (nlohmann::json{{"adType", 5},
                              {"position", 3},
                              {"width", 0},
                              {"height", 0},
                              {"acceptedCreativeTypes", 2},
                              {"acceptedInteractionType", 1}}));
    EXPECT_DOUBLE_EQ(requests[1].request.timeoutInterval, 7.0);
}

TEST_F(DataFlowAdManagerTest, FiveAdsArriveInServerOrderEachWithItsOwnTracker) {
    std::vector<nlohmann::json> ads;
    for (int i = 1; i <= 5; ++i) ads.push_back(adJson(server, "n-" + std::to_string(i)));
    setAnswer(answer(ads));
    auto manager = load();
    ASSERT_EQ(recorder->calls, 1);
    ASSERT_EQ(recorder->ads.size(), 5u);
    std::set<PeloraTrackEvent*> trackers;
    for (size_t i = 0; i < 5; ++i) {
        const auto& ad = recorder->ads[i];
        EXPECT_EQ(ad->adData()->adId.value_or(""), "n-" + std::to_string(i + 1));
        EXPECT_EQ(ad->ad()->reqSlotW, 690);
        trackers.insert(PeloraNativeAdInternal::trackEvent(*ad).get());
    }
    EXPECT_EQ(trackers.size(), 5u);
}

TEST_F(DataFlowAdManagerTest, FailuresCarryTheirDomainAndCode) {
    struct Case {
        const char* name;
        std::function<void()> arrange;
        std::string domain;
        int64_t code;
    };
    const std::string url = pelora::platform::kURLErrorDomain;
    std::vector<Case> cases = {
        {"time-out", [&] { server.failWith(-1001); }, url, -1001},
        {"transport failure", [&] { server.failWith(-1009); }, url, -1009},
        {"empty body", [&] { setAnswer(""); }, url, -1},
        {"no payload", [&] { setAnswer("{\"code\":0}"); }, url, -1},
        {"malformed", [&] { setAnswer("[1,2"); }, url, -1},
        {"no ads", [&] { setAnswer(answer({})); }, "sdk.data.err", -1},
        {"ads missing", [&] { setAnswer("{\"code\":0,\"data\":{\"reqId\":\"r\"}}"); },
         "sdk.data.err", -1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        server.failWith(std::nullopt);
        recorder = std::make_shared<ManagerRecorder>();
        c.arrange();
        auto manager = load();
        ASSERT_EQ(recorder->calls, 1);
        ASSERT_EQ(recorder->errors.size(), 1u);
        EXPECT_EQ(recorder->errors[0].domain, c.domain);
        EXPECT_EQ(recorder->errors[0].code, c.code);
    }
}

TEST_F(DataFlowAdManagerTest, ReleasedManagerIsNeverCalledBack) {
    auto slot = std::make_shared<PeloraDataFlowSlot>();
    {
        auto manager = PeloraDataFlowAdManager::initWithSlot(slot);
        manager->setDelegate(recorder);
        manager->loadAdData();
    }
    EXPECT_TRUE(logs.contains("dealloc: PeloraDataFlowAdManager"));
    auto other = std::make_shared<ManagerRecorder>();
    auto alive = PeloraDataFlowAdManager::initWithSlot(slot);
    alive->setDelegate(other);
    alive->loadAdData();
    settle();
    EXPECT_EQ(server.requestsTo(kFetchPath).size(), 2u);
    EXPECT_EQ(other->calls, 1);
    EXPECT_EQ(recorder->calls, 0);
}

// ---- registration, exposure and clicks ------------------------------------------------------

// Registered (twice: the second adds nothing), the ad is exposed once; every tap on a bound view
// is a click with that view, the click beacon goes out once with the tap's place in the
// container, and each tap opens the landing page.
TEST_F(DataFlowAdManagerTest, RegistrationCountsOneExposureAndEveryTapClicks) {
    auto ad = firstAd();
    ASSERT_TRUE(ad);
    ad->registerContainer(container, {titleLabel, image});
    ad->registerContainer(container, {titleLabel, image});
    EXPECT_EQ(sdkRecognizers(*image), 1u);
    EXPECT_EQ(native->events, (std::vector<std::string>{"show n-1"}));

    window->sendTap({50, 120});   // title
    window->sendTap({100, 200});  // image
    window->sendTap({100, 200});
    EXPECT_EQ(native->events,
              (std::vector<std::string>{"show n-1", "click n-1", "click n-1", "click n-1"}));
    EXPECT_EQ(native->tapped, (std::vector<std::shared_ptr<ui::View>>{titleLabel, image, image}));
    settle();
    EXPECT_EQ(server.requestsTo("/imp").size(), 1u);
    auto clicks = server.requestsTo("/click");
    ASSERT_EQ(clicks.size(), 1u);
    EXPECT_EQ(clicks[0].param("dx").value_or(""), "40");
    EXPECT_EQ(clicks[0].param("dy").value_or(""), "20");
    ASSERT_TRUE(tp.waitFor([&] { return tp.opener->openedURLs().size() == 3; }));
}

// Exposure is decided at registration only, and needs an opacity of at least 0.2; a container
// registered without views is still exposed, and nothing in it takes taps.
TEST_F(DataFlowAdManagerTest, ExposureIsDecidedAtRegistrationFromTheOpacity) {
    auto ad = firstAd();
    ASSERT_TRUE(ad);
    container->setAlpha(0.1);
    ad->registerContainer(container, {});
    container->setAlpha(0.2);
    EXPECT_TRUE(native->events.empty());
    settle();
    EXPECT_TRUE(server.requestsTo("/imp").empty());

    ad->registerContainer(container, {});
    EXPECT_EQ(native->events, (std::vector<std::string>{"show n-1"}));
    window->sendTap({100, 200});
    EXPECT_EQ(native->events.size(), 1u);
    settle();
    EXPECT_EQ(server.requestsTo("/imp").size(), 1u);
}

TEST_F(DataFlowAdManagerTest, ReleasedNativeAdIsNotCalledAndRenderViewLogsItsEnd) {
    auto ad = firstAd();
    ASSERT_TRUE(ad);
    ad->registerContainer(container, {image});
    std::weak_ptr<PeloraNativeAd> weak = ad;
    ad.reset();
    recorder->ads.clear();
    EXPECT_TRUE(weak.expired());
    window->sendTap({100, 200});
    EXPECT_EQ(native->events, (std::vector<std::string>{"show n-1"}));
    container->removeFromSuperview();
    container.reset();
    EXPECT_TRUE(logs.contains("dealloc PeloraNativeRenderView"));
}

}  // namespace
