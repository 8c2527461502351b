// The GStreamer player with real decoding of the sandbox's generated creatives, on the event
// run loop and the system clock; waits are bounded in real time. Playing to the end and a
// corrupt file are covered through the SDK's player view in tests/reward/RealPlaybackTest.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <optional>

#include "HeapInUse.h"
#include "pelora/desktop/EventRunLoop.h"
#include "pelora/desktop/GstMediaPlayer.h"
#include "pelora/ui/PlayerLayer.h"

using namespace pelora;

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

class GstMediaPlayerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!desktop::GstMediaPlayerService::available()) GTEST_SKIP() << "no GStreamer";
        fs::create_directories(caches / "Pelora");
        for (const char* name : {"reward-3s.mp4", "reward-3s.webm"})
            fs::copy_file(fs::path(PELORA_SOURCE_DIR) / "tools/sandbox/creatives" / name,
                          caches / "Pelora" / name);
        media = std::make_shared<desktop::GstMediaPlayerService>(loop, caches.string());
    }
    void TearDown() override {
        std::error_code ec;
        fs::remove_all(caches.parent_path(), ec);
    }
    std::string fileUrl(const std::string& name) const {
        return "file://" + (caches / "Pelora" / name).string();
    }
    bool runUntil(const std::function<bool()>& done, double realSeconds) {
        return loop->runUntil(done, clock->monotonicSeconds() + realSeconds);
    }
    // Plays `url` as a player view would, counting what it hears: status changes and ticks.
    struct Playback {
        std::shared_ptr<platform::PlayerItem> item;
        std::shared_ptr<platform::Player> player;
        std::shared_ptr<ui::PlayerLayer> layer;
        std::shared_ptr<platform::MediaObservation> status, ticks;
        std::shared_ptr<int> reports = std::make_shared<int>(0);
        double now() const { return player->currentTime().seconds(); }
    };
    Playback play(const std::string& url) {
        Playback p;
        p.item = media->createItem(url);
        p.player = media->createPlayer(p.item);
        p.layer = ui::PlayerLayer::playerLayerWithPlayer(p.player);
        p.status = p.item->observeStatus([r = p.reports] { ++*r; }, true);
        p.ticks = p.player->addPeriodicTimeObserver({1, 1},
                                                    [r = p.reports](platform::MediaTime) { ++*r; });
        p.player->play();
        return p;
    }

    fs::path caches = fs::temp_directory_path() /
                      ("pelora-gst-" + std::to_string(::getpid()) + "-" +
                       ::testing::UnitTest::GetInstance()->current_test_info()->name()) /
                      "Caches";
    std::shared_ptr<platform::Clock> clock = std::make_shared<platform::SystemClock>();
    std::shared_ptr<desktop::EventRunLoop> loop = std::make_shared<desktop::EventRunLoop>(clock);
    std::shared_ptr<desktop::GstMediaPlayerService> media;
};

TEST_F(GstMediaPlayerTest, PausingStopsTimeAndTicksAndAReleasedPlayerReportsNothingMore) {
    auto p = play(fileUrl("reward-3s.mp4"));
    ASSERT_TRUE(runUntil([&] { return p.now() > 0.3; }, 10));
    EXPECT_EQ(p.player->timeControlStatus(), platform::TimeControlStatus::Playing);
    p.player->pause();
    EXPECT_LT(loop->nextTimerDelay(), 0) << "no tick while paused";
    runUntil([] { return false; }, 0.2);
    const double paused = p.now();
    runUntil([] { return false; }, 0.5);
    EXPECT_NEAR(p.now(), paused, 0.05);
    p.player->play();
    ASSERT_TRUE(runUntil([&] { return p.now() > paused + 0.3; }, 5));
    const int reports = *p.reports;
    std::weak_ptr<platform::Player> weak = p.player;
    p.layer.reset();
    p.ticks.reset();
    p.player.reset();
    EXPECT_TRUE(weak.expired());
    runUntil([] { return false; }, 0.5);
    EXPECT_EQ(*p.reports, reports);
}

TEST_F(GstMediaPlayerTest, NothingOutsideTheCachesIsOpened) {
    const fs::path outside = caches.parent_path() / "outside.mp4";
    fs::copy_file(caches / "Pelora" / "reward-3s.mp4", outside);
    fs::create_symlink(outside, caches / "Pelora" / "link.mp4");
    for (const auto& url :
         {"ftp://127.0.0.1/a.mp4"s, "file://" + outside.string(), fileUrl("../../outside.mp4"),
          fileUrl("link.mp4"), "file:///etc/passwd"s}) {
        auto p = play(url);
        EXPECT_EQ(p.item->status(), platform::PlayerItemStatus::Unknown)
            << "reported on the next turn";
        ASSERT_TRUE(runUntil([&] { return p.item->error().has_value(); }, 2)) << url;
        EXPECT_EQ(p.item->status(), platform::PlayerItemStatus::Failed);
        EXPECT_EQ(p.item->error()->code, platform::URLError::kUnsupportedURL);
        EXPECT_EQ(p.item->error()->domain, platform::kURLErrorDomain);
    }
}

// A host plays videos all day: each playback's pipeline, bus messages and frames are gone once
// its player is released. The first plays load GStreamer's plugins and types for good, so the
// heap is compared between the third play and the last. The bound is far below what a lost
// play costs (its bus messages alone are tens of kilobytes; unreleased, 2 MB a play) and above
// the few kilobytes a play may leave in GLib's per-thread caches when a busy machine makes
// GStreamer start extra streaming threads.
TEST_F(GstMediaPlayerTest, PlayingAgainAndAgainLeavesTheHeapWhereItWas) {
    constexpr int kPlays = 12;
    size_t afterWarmUp = 0;
    for (int i = 0; i < kPlays; ++i) {
        auto p = std::make_optional(play(fileUrl(i % 2 ? "reward-3s.webm" : "reward-3s.mp4")));
        ASSERT_TRUE(runUntil([&] { return p->now() > 0.2; }, 10)) << i;
        p.reset();
        runUntil([] { return false; }, 0.05);  // what the pipeline had posted is dropped
        if (i == 2) afterWarmUp = pelora::testing::heapInUse();
    }
    const size_t atEnd = pelora::testing::heapInUse();
    const double perPlay = (double(atEnd) - double(afterWarmUp)) / (kPlays - 3);
    std::printf("heap: %zu bytes after the third play, %zu after the last (%+.0f per play)\n",
                afterWarmUp, atEnd, perPlay);
    EXPECT_LE(perPlay, 32.0 * 1024);
}

}  // namespace
