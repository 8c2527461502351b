#pragma once

// The rewarded video tests' world: a host with a window and a root controller, the fake
// network answering ad fetches and video downloads, the scripted player, and a delegate that
// records every callback by name.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "../splash/AdTestSupport.h"
#include "RewardNet.h"
#include "TestPlatform.h"
#include "pelora/PeloraRewardVideoAdManager.h"
#include "pelora/testing/ScriptedMediaPlayer.h"
#include "pelora/ui/UI.h"
#include "reward/PeloraAdCache.h"

namespace rewardtest {

inline const std::string kCdn = "https://cdn.example";
inline const std::string kTrack = "https://track.example";

inline std::string cdnUrl(const std::string& path) {
    return kCdn + path;
}

// Tracking instructions for every event the page can send, each URL carrying the video
// macros, so a test reads the values the SDK substituted from the URL.
inline nlohmann::json trackUrls(const std::string& adId) {
    nlohmann::json list = nlohmann::json::array();
    for (int64_t type : {1, 2, 8, 16, 17, 31, 32, 33, 34, 35, 36, 40, 41}) {
        list.push_back({{"trackType", type},
                        {"urls",
                         {kTrack + "/t/" + adId + "/" + std::to_string(type) +
                          "?ts=__TS__&vt=__VIDEO_TIME__&vb=__VIDEO_BEHAVIOR__"
                          "&vst=__VIDEO_START_TIME__&vet=__VIDEO_END_TIME__"
                          "&vff=__VIDEO_PLAY_FIRSR_FRAME__&vlf=__VIDEO_PLAY_LAST_FRAME__"
                          "&vsc=__VIDEO_SCENE__&vpt=__VIDEO_PLAY_TYPE__&vs=__VIDEO_STATUS__"}}});
    }
    return list;
}

// One ad; `video` null gives an ad without videos.
inline nlohmann::json videoAd(const std::string& adId, const nlohmann::json& video) {
    nlohmann::json ad = {{"adId", adId},
                         {"creativeType", 4},
                         {"interactionType", 1},
                         {"title", "Title of " + adId},
                         {"clickAdUrl", "https://landing.example/" + adId},
                         {"trackUrls", trackUrls(adId)}};
    ad["videos"] = nlohmann::json::array();
    if (!video.is_null()) ad["videos"].push_back(video);
    return ad;
}

inline std::string answer(const std::vector<nlohmann::json>& ads) {
    return adtest::answer(ads);
}

// The value of one query parameter of a URL, as sent.
inline std::string param(const std::string& url, const std::string& key) {
    auto query = url.find('?');
    if (query == std::string::npos) return {};
    std::string rest = url.substr(query + 1);
    size_t start = 0;
    while (start <= rest.size()) {
        size_t end = rest.find('&', start);
        if (end == std::string::npos) end = rest.size();
        std::string pair = rest.substr(start, end - start);
        auto eq = pair.find('=');
        if (pair.substr(0, eq) == key) return eq == std::string::npos ? "" : pair.substr(eq + 1);
        start = end + 1;
    }
    return {};
}

struct RewardRecorder : PeloraRewardVideoAdManagerDelegate {
    std::vector<std::string> calls;
    std::vector<std::optional<pelora::platform::Error>> errors;
    std::function<void(const std::string&)> onCall;

    void record(const std::string& call) {
        calls.push_back(call);
        if (onCall) onCall(call);
    }
    void rewardVideoAdManagerDidSuccessLoad(std::shared_ptr<PeloraRewardVideoAdManager>) override {
        record("DidSuccessLoad");
    }
    void rewardVideoAdManagerVideoDidLoad(std::shared_ptr<PeloraRewardVideoAdManager>) override {
        record("VideoDidLoad");
    }
    void rewardVideoAdManagerDidFailWithError(
        std::shared_ptr<PeloraRewardVideoAdManager>,
        std::optional<pelora::platform::Error> error) override {
        errors.push_back(error);
        record("DidFailWithError");
    }
    void rewardVideoAdManagerDidShow(std::shared_ptr<PeloraRewardVideoAdManager>) override {
        record("DidShow");
    }
    void rewardVideoAdManagerDidClick(std::shared_ptr<PeloraRewardVideoAdManager>) override {
        record("DidClick");
    }
    void rewardVideoAdManagerDidPlayFinish(std::shared_ptr<PeloraRewardVideoAdManager>) override {
        record("DidPlayFinish");
    }
    void rewardVideoAdManagerDidClose(std::shared_ptr<PeloraRewardVideoAdManager>) override {
        record("DidClose");
    }
    void rewardVideoAdManagerDidClickSkip(std::shared_ptr<PeloraRewardVideoAdManager>) override {
        record("DidClickSkip");
    }
};

class RewardFixture : public ::testing::Test {
  protected:
    void SetUp() override {
        PeloraNetwork::resetSessionsForTesting();
        // Downloads of one test must not be found by the next: the cache lives per process.
        plFileCaches().clear();
        tp.device->bundlePath = PELORA_SOURCE_DIR "/resources";
        tp.install();
        PeloraConstConfig::setBaseUrlOverride(std::string("https://ads.example"));
        window->setRootViewController(root);
        window->makeKeyAndVisible();
    }
    void TearDown() override {
        PeloraNetwork::resetSessionsForTesting();
        PeloraConstConfig::setBaseUrlOverride(std::nullopt);
        plFileCaches().clear();
    }

    std::shared_ptr<PeloraRewardVideoSlot> slot() {
        auto s = std::make_shared<PeloraRewardVideoSlot>();
        s->slotId = "reward-slot";
        return s;
    }

    // A video of `seconds` at `path` on the CDN, downloaded before it is shown, with an end
    // page button; the scripted player plays both its remote and its local URL that long.
    nlohmann::json video(const std::string& path, double seconds) {
        pelora::testing::MediaScript script;
        script.duration = seconds;
        media->setScript(cdnUrl(path), script);
        auto slash = path.rfind('/');
        std::string name = path.substr(slash + 1);
        if (!name.empty()) media->setScript(fileUrlFor(name), script);
        net.serve(cdnUrl(path), "video bytes of " + path);
        return {{"videoUrl", cdnUrl(path)},
                {"videoDuration", std::to_string(static_cast<int>(seconds))},
                {"coverUrls", {kCdn + "/cover.png"}},
                {"buttonText", "Install"},
                {"prefetch", true},
                {"clickAble", true},
                {"skipSeconds", 0}};
    }
    std::string cdn(const std::string& path) const { return cdnUrl(path); }
    std::string fileUrlFor(const std::string& name) const {
        return pl_fileURLWithPath(tp.cachesDirectory() + "/Pelora/" + name);
    }

    // A manager that loaded these ads and reported its video ready (or failed).
    std::shared_ptr<PeloraRewardVideoAdManager> loadedManager(
        const std::vector<nlohmann::json>& ads) {
        net.answerFetches(answer(ads));
        auto manager = PeloraRewardVideoAdManager::initWithSlot(slot());
        manager->setDelegate(host);
        const size_t before = host->calls.size();
        manager->loadAdData();
        for (int i = 0; i < 20 && host->calls.size() < before + 2; ++i) tp.advance(0.01);
        return manager;
    }

    // Track types of the beacons sent so far, in order.
    std::vector<int64_t> beaconTypes() const {
        std::vector<int64_t> types;
        for (const auto& url : net.urlsStartingWith(kTrack + "/t/")) {
            auto query = url.find('?');
            auto slash = url.rfind('/', query);
            types.push_back(std::stoll(url.substr(slash + 1, query - slash - 1)));
        }
        return types;
    }
    long beaconCount(int64_t type) const {
        auto types = beaconTypes();
        return std::count(types.begin(), types.end(), type);
    }
    // The URL of the first beacon of this type.
    std::optional<std::string> beacon(int64_t type) const {
        for (const auto& url : net.urlsStartingWith(kTrack + "/t/")) {
            auto query = url.find('?');
            auto slash = url.rfind('/', query);
            if (std::stoll(url.substr(slash + 1, query - slash - 1)) == type) return url;
        }
        return std::nullopt;
    }

    // Runs posted work until none is left (completions hop through the loop more than once).
    void runUntilIdle() { tp.pump(); }

    void tapCenter(const std::shared_ptr<pelora::ui::View>& view) {
        ASSERT_TRUE(view);
        auto b = view->bounds();
        window->sendTap(view->convertPointToView({b.width() / 2, b.height() / 2}, nullptr));
    }

    // Once every ad object is gone, the run loop holds no timer and no work.
    void expectNothingLeftRunning() {
        tp.pump();
        EXPECT_EQ(tp.manualLoop->timerCount(), 0u) << "a timer outlived its owner";
        EXPECT_EQ(tp.manualLoop->pendingTaskCount(), 0u);
    }

    pelora::testing::TestPlatform tp{pelora::testing::TestPlatform::NetworkKind::Fake};
    RewardNet net{tp.fake};
    std::shared_ptr<pelora::testing::ScriptedMediaPlayerService> media = tp.mediaPlayer;
    std::shared_ptr<RewardRecorder> host = std::make_shared<RewardRecorder>();
    std::shared_ptr<pelora::ui::Window> window =
        std::make_shared<pelora::ui::Window>(pelora::platform::makeRect(0, 0, 375, 667));
    std::shared_ptr<pelora::ui::ViewController> root =
        std::make_shared<pelora::ui::ViewController>();
};

}  // namespace rewardtest
