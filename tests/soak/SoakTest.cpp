// A thousand loads of every kind (splash, native, rewarded video) against the sandbox ad
// server over the real libcurl sessions, its failure slots mixed in (HTTP 500, empty,
// malformed, no data, no ads, a delayed answer, broken and missing videos), with taps and
// view releases at random points. It checks what a host relies on over a long session:
//  - every load ends in exactly one terminal callback, on the main run loop;
//  - the heap after the last load is within 10% of the heap after the first tenth;
//  - afterwards the run loop holds no timer and the HTTP sessions no task;
//  - (under the sanitizer run) nothing leaks.
// It has its own CTest label, "soak"; the seed is fixed so a failure repeats.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <vector>

#include "HeapInUse.h"
#include "TestPlatform.h"
#include "pelora/PeloraDataFlowAdManager.h"
#include "pelora/PeloraImageUrl.h"
#include "pelora/PeloraRewardVideoAdManager.h"
#include "pelora/PeloraSplashAdView.h"
#include "pelora/sandbox/Sandbox.h"
#include "pelora/testing/CountingHttpSession.h"
#include "pelora/ui/UI.h"

using namespace pelora;

namespace {

// The shipped inventory with the answer delay cut to a few milliseconds and the slot that
// never answers left out: time-outs are proven by the fault tests, here they would only cost
// real seconds.
std::string soakInventory(const std::string& dir) {
    std::ifstream in(pelora::sandbox::Sandbox::defaultInventoryPath());
    nlohmann::json inventory = nlohmann::json::parse(in);
    inventory["slots"]["fail-delay"]["simulate"]["delayMs"] = 5;
    inventory["slots"].erase("fail-noanswer");
    const std::string path = dir + "/soak-inventory.json";
    std::ofstream(path) << inventory.dump();
    return path;
}

constexpr double kLongestTimerInterval = 1.0;

// What each kind's delegate does with its terminal callbacks: counts them, and whether one
// arrived off the main run loop.
struct Ending {
    int count = 0;
    bool offLoop = false;
    std::shared_ptr<platform::RunLoop> loop = platform::services().mainRunLoop;
    void end() {
        ++count;
        offLoop = offLoop || !loop->isLoopThread();
    }
};

struct SplashHost : PeloraSplashAdViewDelegate, Ending {
    using V = std::shared_ptr<PeloraSplashAdView>;
    void splashAdDidLoad(V) override { end(); }
    void splashAdDidFailWithError(V, const platform::Error&) override { end(); }
};

struct NativeHost : PeloraDataFlowAdManagerDelegate, Ending {
    using M = std::shared_ptr<PeloraDataFlowAdManager>;
    using Ads = std::vector<std::shared_ptr<PeloraNativeAd>>;
    Ads ads;
    void dataFlowAdManagerDidSuccessLoad(M, Ads a) override {
        ads = std::move(a);
        end();
    }
    void dataFlowAdManagerDidFailWithError(M, const platform::Error&) override { end(); }
};

struct RewardHost : PeloraRewardVideoAdManagerDelegate, Ending {
    using M = std::shared_ptr<PeloraRewardVideoAdManager>;
    void rewardVideoAdManagerVideoDidLoad(M) override { end(); }
    void rewardVideoAdManagerDidFailWithError(M, std::optional<platform::Error>) override { end(); }
};

class SoakTest : public ::testing::Test {
  protected:
    void SetUp() override {
        tp.device->bundlePath = PELORA_SOURCE_DIR "/resources";
        counting = std::make_shared<pelora::testing::CountingHttpSessionFactory>(tp.http, tp.loop);
        tp.http = counting;
        pelora::sandbox::SandboxOptions options;
        options.inventoryPath = soakInventory(tp.rootDirectory());
        std::string error;
        ASSERT_TRUE(sandbox.start(options, &error)) << error;
        tp.options.serverOrigin = sandbox.baseUrl();
        tp.install();
        window->setRootViewController(root);
    }
    void TearDown() override { sandbox.stop(); }

    // Runs the loop until `host` heard the end and every request the SDK started has finished.
    void settle(const Ending& host) {
        EXPECT_TRUE(tp.waitFor([&] { return host.count > 0 && counting->inFlight() == 0; }, 30));
        tp.pump();
    }
    void drain() {
        tp.waitFor([&] { return counting->inFlight() == 0; }, 30);
        tp.pump();
    }

    // Moves the manual clock forward in small steps, letting answers arrive in between.
    void advance(double seconds) {
        for (double s = 0; s < seconds; s += 0.5) {
            tp.advance(0.5);
            tp.waitFor([&] { return counting->inFlight() == 0; }, 10);
        }
    }

    void splash(const std::string& slot) {
        auto host = std::make_shared<SplashHost>();
        auto view = PeloraSplashAdView::initWithSlotID(slot, window->bounds());
        ASSERT_TRUE(view);
        view->setDelegate(host);
        view->loadAdData();
        if (random() % 4 == 0) window->addSubview(view);  // shown before the answer
        settle(*host);
        if (!view->superview()) window->addSubview(view);
        advance(static_cast<double>(random() % 7));  // impression, countdown, maybe its end
        if (random() % 3 == 0) window->sendTap(platform::Point{187, 333});
        view->removeFromSuperview();
        view.reset();
        tp.pump();
        check(*host, "splash " + slot);
    }

    void native(const std::string& slot) {
        auto host = std::make_shared<NativeHost>();
        auto s = std::make_shared<PeloraDataFlowSlot>();
        s->slotId = slot;
        auto manager = PeloraDataFlowAdManager::initWithSlot(s);
        manager->setDelegate(host);
        manager->loadAdData();
        settle(*host);
        std::vector<std::shared_ptr<ui::View>> cards;
        for (const auto& ad : host->ads) {
            auto card = std::make_shared<ui::View>(platform::makeRect(0, 0, 320, 200));
            auto image = std::make_shared<ui::ImageView>(platform::makeRect(0, 0, 320, 160));
            card->addSubview(image);
            if (ad->adData()->images && !ad->adData()->images->empty())
                pl_setImageUrl(*image, ad->adData()->images->front());
            ad->setRootViewController(root);
            root->view()->addSubview(card);
            ad->registerContainer(card, {image});
            cards.push_back(card);
            if (random() % 3 == 0) break;  // the rest are released unregistered
        }
        if (!cards.empty() && random() % 2 == 0) window->sendTap(platform::Point{10, 10});
        advance(static_cast<double>(random() % 2));
        for (auto& card : cards) card->removeFromSuperview();
        if (auto shown = root->presentedViewController())
            root->dismissViewControllerAnimated(false, nullptr);
        host->ads.clear();
        manager.reset();
        drain();
        check(*host, "native " + slot);
    }

    void reward(const std::string& slot) {
        auto host = std::make_shared<RewardHost>();
        auto s = std::make_shared<PeloraRewardVideoSlot>();
        s->slotId = slot;
        auto manager = PeloraRewardVideoAdManager::initWithSlot(s);
        manager->setDelegate(host);
        manager->loadAdData();
        settle(*host);
        manager.reset();
        tp.pump();
        check(*host, "reward " + slot);
    }

    void check(const Ending& host, const std::string& what) {
        EXPECT_EQ(host.count, 1) << what;
        EXPECT_FALSE(host.offLoop) << what;
        if (host.count != 1) ++badLoads;
    }

    std::mt19937::result_type random() { return rng(); }

    pelora::testing::TestPlatform tp;  // the real libcurl sessions, a manual clock
    std::shared_ptr<pelora::testing::CountingHttpSessionFactory> counting;
    pelora::sandbox::Sandbox sandbox;
    std::shared_ptr<ui::Window> window =
        std::make_shared<ui::Window>(platform::makeRect(0, 0, 375, 667));
    std::shared_ptr<ui::ViewController> root = std::make_shared<ui::ViewController>();
    std::mt19937 rng{20261123};
    int badLoads = 0;
};

TEST_F(SoakTest, AThousandLoadsOfEveryKindEndOnceAndLeaveNothingBehind) {
    const std::vector<std::string> failures = {"fail-delay",     "fail-500",    "fail-empty",
                                               "fail-malformed", "fail-nodata", "fail-noads",
                                               "no-such-slot"};
    const std::map<char, std::vector<std::string>> slots = {
        {'s', {"splash-demo", "splash-title"}},
        {'n', {"native-demo"}},
        {'r',
         {"reward-demo", "reward-short", "reward-stream", "reward-webm", "reward-novideo-first",
          "reward-nourl", "reward-broken", "reward-missing"}}};
    auto load = [&](char kind, const std::string& slot) {
        if (kind == 's') splash(slot);
        if (kind == 'n') native(slot);
        if (kind == 'r') reward(slot);
    };
    auto pick = [&](char kind) {
        // About one load in four goes to a failing slot.
        if (random() % 4 == 0) return failures[random() % failures.size()];
        return slots.at(kind)[random() % slots.at(kind).size()];
    };

    // PELORA_SOAK_KINDS narrows the run to some kinds ("s", "n", "r") when looking into one.
    const char* only = std::getenv("PELORA_SOAK_KINDS");
    std::string kinds;
    for (char kind : std::string("snr"))
        if (!only || std::string(only).find(kind) != std::string::npos) kinds += kind;
    // PELORA_SOAK_LOADS changes the number of loads of each kind (1000).
    const char* loads = std::getenv("PELORA_SOAK_LOADS");
    const int kLoadsPerKind = loads ? std::max(10, std::atoi(loads)) : 1000;
    size_t heapAfterFirstTenth = 0, tracked = 0, fetched = 0;
    auto forgetRecords = [&] {
        // The sandbox runs in this process: its records are let go of, like a long-running
        // server's would be, so they do not count as the SDK's memory.
        tracked += sandbox.trackingRecords().size();
        fetched += sandbox.fetchRecords().size();
        sandbox.clearRecords();
        tp.device->forgetIssuedUUIDs();  // the fake device's record of the request ids
    };
    // Every slot of every kind once first: what is made once for the life of the process
    // (thread-local parser buffers, connection caches, loaded interface files) is made before
    // the heap is first counted, so the check means the same for ten loads as for a thousand.
    for (char kind : kinds) {
        for (const auto& slot : slots.at(kind)) load(kind, slot);
        for (const auto& slot : failures) load(kind, slot);
    }
    forgetRecords();
    for (int i = 0; i < kLoadsPerKind && badLoads < 5; ++i) {
        for (char kind : kinds) load(kind, pick(kind));
        forgetRecords();
        if (i + 1 == kLoadsPerKind / 10) heapAfterFirstTenth = pelora::testing::heapInUse();
    }
    const size_t heapAtEnd = pelora::testing::heapInUse();
    const double growth = static_cast<double>(heapAtEnd) / static_cast<double>(heapAfterFirstTenth);
    std::printf(
        "soak: %d loads of each kind; heap %.2f MiB after the first tenth, %.2f MiB at "
        "the end (%+.1f%%); %zu tracking calls, %zu fetches\n",
        kLoadsPerKind, heapAfterFirstTenth / 1048576.0, heapAtEnd / 1048576.0,
        100.0 * (growth - 1.0), tracked, fetched);
    EXPECT_EQ(badLoads, 0);
    EXPECT_LE(growth, 1.10);

    // Nothing is left running once the host let go of everything. A released splash view's
    // countdown (it holds the view weakly) stops itself at its next tick, so the clock first
    // passes every such tick: the longest repeating interval the SDK schedules is a second.
    drain();
    advance(kLongestTimerInterval + 0.5);
    tp.pump();
    EXPECT_EQ(counting->inFlight(), 0);
    EXPECT_LT(tp.loop->nextTimerDelay(), 0) << "a timer is still scheduled";
}

}  // namespace
