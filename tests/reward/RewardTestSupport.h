#pragma once

// The rewarded video tests' world: a host with a window and a root controller, the fake
// network answering ad fetches (https://ads.example) and video downloads (https://cdn.example),
// the scripted player, and a delegate that records every callback by name.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "../splash/AdTestSupport.h"
#include "TestPlatform.h"
#include "pelora/PeloraRewardVideoAdManager.h"
#include "pelora/platform/NotificationCenter.h"
#include "pelora/testing/ScriptedMediaPlayer.h"
#include "pelora/ui/UI.h"
#include "reward/PeloraAdCache.h"
#include "reward/PeloraRewardVideoAdManagerInternal.h"
#include "reward/PeloraVideoPlayerVC.h"

namespace rewardtest {

using Calls = std::vector<std::string>;
using Urls = std::vector<std::string>;
using Types = std::vector<int64_t>;
using Response = pelora::testing::FakeHttpSessionFactory::Response;
inline const std::string kFetchUrl = "https://ads.example/api/v1/advert/fetch";
inline const std::string kCdn = "https://cdn.example";
inline const std::string kTrack = "https://track.example/t/";

// The video macros every tracking URL carries, so a test reads what the SDK substituted.
inline const std::string kVideoMacros =
    "?ts=__TS__&vt=__VIDEO_TIME__&vb=__VIDEO_BEHAVIOR__&vst=__VIDEO_START_TIME__"
    "&vet=__VIDEO_END_TIME__&vff=__VIDEO_PLAY_FIRSR_FRAME__&vlf=__VIDEO_PLAY_LAST_FRAME__"
    "&vsc=__VIDEO_SCENE__&vpt=__VIDEO_PLAY_TYPE__&vs=__VIDEO_STATUS__";

// One ad tracking every event the page can send; `video` null: an ad without videos.
inline nlohmann::json videoAd(const std::string& adId, const nlohmann::json& video) {
    nlohmann::json ad = {{"adId", adId},
                         {"creativeType", 4},
                         {"interactionType", 1},
                         {"clickAdUrl", "https://landing.example/" + adId},
                         {"trackUrls", nlohmann::json::array()},
                         {"videos", nlohmann::json::array()}};
    for (int64_t type : {1, 2, 8, 16, 17, 31, 32, 33, 34, 35, 36, 40, 41}) {
        const std::string url = kTrack + adId + "/" + std::to_string(type) + kVideoMacros;
        ad["trackUrls"].push_back({{"trackType", type}, {"urls", {url}}});
    }
    if (!video.is_null()) ad["videos"].push_back(video);
    return ad;
}

struct RewardRecorder : PeloraRewardVideoAdManagerDelegate {
    using M = std::shared_ptr<PeloraRewardVideoAdManager>;
    Calls calls;  // failures with their error's domain and code
    // Runs inside each callback, after it is recorded: what the host could see at that moment.
    std::function<void(const std::string&)> onCall;

    void record(const std::string& call) {
        calls.push_back(call);
        if (onCall) onCall(call);
    }
    long count(const std::string& call) const {
        return std::count(calls.begin(), calls.end(), call);
    }
    void rewardVideoAdManagerDidSuccessLoad(M) override { record("DidSuccessLoad"); }
    void rewardVideoAdManagerVideoDidLoad(M) override { record("VideoDidLoad"); }
    void rewardVideoAdManagerDidFailWithError(M,
                                              std::optional<pelora::platform::Error> e) override {
        record("DidFailWithError" + (e ? " " + e->domain + " " + std::to_string(e->code) : ""));
    }
    void rewardVideoAdManagerDidShow(M) override { record("DidShow"); }
    void rewardVideoAdManagerDidClick(M) override { record("DidClick"); }
    void rewardVideoAdManagerDidPlayFinish(M) override { record("DidPlayFinish"); }
    void rewardVideoAdManagerDidClose(M) override { record("DidClose"); }
    void rewardVideoAdManagerDidClickSkip(M) override { record("DidClickSkip"); }
};

class RewardFixture : public ::testing::Test {
  protected:
    void SetUp() override {
        tp.device->bundlePath = PELORA_SOURCE_DIR "/resources";
        tp.options.serverOrigin = std::string("https://ads.example");
        tp.install();
        // Beacons and images get an empty answer; what a test cares about it answers itself.
        tp.fake->setDefaultResponse(Response::ok("", 204));
        window->setRootViewController(root);
        window->makeKeyAndVisible();
    }

    // A video of `seconds` at `path` on the CDN, downloaded before it is shown, with an end
    // page button; the scripted player plays both its remote and its local URL that long.
    nlohmann::json video(const std::string& path, double seconds) {
        const pelora::testing::MediaScript script{.duration = seconds};
        media->setScript(kCdn + path, script);
        media->setScript(fileUrlFor(path.substr(path.rfind('/') + 1)), script);
        tp.fake->addResponse(kCdn + path, Response::ok("video bytes of " + path));
        auto v = nlohmann::json::parse(R"({"buttonText": "Install", "prefetch": true,
            "clickAble": true, "skipSeconds": 0, "coverUrls": ["https://cdn.example/cover.png"]})");
        v["videoUrl"] = kCdn + path;
        v["videoDuration"] = std::to_string(static_cast<int>(seconds));
        return v;
    }
    std::string fileUrlFor(const std::string& name) const {
        return pl_fileURLWithPath(tp.cachesDirectory() + "/Pelora/" + name);
    }
    static Response answerWith(const std::vector<nlohmann::json>& ads) {
        return Response::ok(adtest::answer(ads));
    }

    std::shared_ptr<PeloraRewardVideoAdManager> newManager() {
        auto slot = std::make_shared<PeloraRewardVideoSlot>();
        slot->slotId = "reward-slot";
        auto manager = PeloraRewardVideoAdManager::initWithSlot(slot);
        manager->setDelegate(host);
        return manager;
    }
    // A manager that loaded these ads, once the answer and the download have come in.
    std::shared_ptr<PeloraRewardVideoAdManager> loaded(const std::vector<nlohmann::json>& ads) {
        tp.fake->addResponse(kFetchUrl, answerWith(ads));
        auto manager = newManager();
        manager->loadAdData();
        tp.pump();
        return manager;
    }
    static std::shared_ptr<PeloraVideoPlayerVC> pageOf(const PeloraRewardVideoAdManager& m) {
        return PeloraRewardVideoAdManagerInternal::of(m).videoPage();
    }

    // Track types of the beacons sent so far, in order.
    Types beaconTypes() const {
        Types types;
        for (const auto& url : tp.fake->urlsStartingWith(kTrack))
            types.push_back(std::stoll(url.substr(url.rfind('/', url.find('?')) + 1)));
        return types;
    }
    // The video macros ("vt=..." to the end) of the first beacon of this type; empty if none.
    std::string macros(int64_t type) const {
        for (const auto& url : tp.fake->urlsStartingWith(kTrack))
            if (url.find("/" + std::to_string(type) + "?") != std::string::npos)
                return url.substr(url.find("&vt=") + 1);
        return {};
    }

    void tapCenter(const std::shared_ptr<pelora::ui::View>& view) {
        ASSERT_TRUE(view);
        auto b = view->bounds();
        window->sendTap(view->convertPointToView({b.width() / 2, b.height() / 2}, nullptr));
    }

    // Once every ad object is gone, the run loop holds no timer and no work, and the player
    // view's observers went with it.
    void expectNothingLeftRunning() {
        pelora::platform::NotificationCenter::defaultCenter().post(
            pelora::platform::kApplicationWillEnterForegroundNotification);
        tp.advance(5);
        EXPECT_EQ(tp.manualLoop->timerCount(), 0u) << "a timer outlived its owner";
        EXPECT_EQ(tp.manualLoop->pendingTaskCount(), 0u);
    }

    pelora::testing::TestPlatform tp{pelora::testing::TestPlatform::NetworkKind::Fake};
    std::shared_ptr<pelora::testing::ScriptedMediaPlayerService> media = tp.mediaPlayer;
    std::shared_ptr<RewardRecorder> host = std::make_shared<RewardRecorder>();
    std::shared_ptr<pelora::ui::Window> window =
        std::make_shared<pelora::ui::Window>(pelora::platform::makeRect(0, 0, 375, 667));
    std::shared_ptr<pelora::ui::ViewController> root =
        std::make_shared<pelora::ui::ViewController>();
};

}  // namespace rewardtest
