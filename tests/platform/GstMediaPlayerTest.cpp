// The GStreamer player with real decoding of the sandbox's generated creatives, on the event
// run loop and the system clock. Waits are bounded in real time; a whole file plays in about
// three seconds.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "../splash/AdTestSupport.h"
#include "HeapInUse.h"
#include "UrlCorpus.h"
#include "pelora/desktop/EventRunLoop.h"
#include "pelora/desktop/GstMediaPlayer.h"
#include "pelora/platform/Services.h"
#include "pelora/ui/PlayerLayer.h"

using namespace pelora;
using platform::MediaTime;
using platform::PlayerItemStatus;
using platform::TimeControlStatus;

namespace {

namespace fs = std::filesystem;

class GstMediaPlayerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!desktop::GstMediaPlayerService::available()) GTEST_SKIP() << "no GStreamer";
        root = fs::temp_directory_path() /
               ("pelora-gst-" + std::to_string(::getpid()) + "-" +
                ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::create_directories(root / "Caches" / "Pelora");
        for (const char* name : {"reward-3s.mp4", "reward-3s.webm", "reward-corrupt.mp4"})
            fs::copy_file(fs::path(PELORA_SOURCE_DIR) / "tools/sandbox/creatives" / name,
                          root / "Caches" / "Pelora" / name, fs::copy_options::overwrite_existing);
        media = std::make_shared<desktop::GstMediaPlayerService>(loop, (root / "Caches").string());
    }
    void TearDown() override {
        std::error_code ec;
        fs::remove_all(root, ec);
    }

    std::string fileUrl(const std::string& name) const {
        return "file://" + (root / "Caches" / "Pelora" / name).string();
    }
    bool runUntil(const std::function<bool()>& done, double realSeconds) {
        return loop->runUntil(done, clock->monotonicSeconds() + realSeconds);
    }

    // Plays `url` and keeps what a player view would see.
    struct Playback {
        std::shared_ptr<platform::PlayerItem> item;
        std::shared_ptr<platform::Player> player;
        std::shared_ptr<ui::PlayerLayer> layer;
        std::shared_ptr<platform::MediaObservation> status, ticks;
        std::vector<PlayerItemStatus> statuses;
        std::vector<double> times;
    };
    std::unique_ptr<Playback> start(const std::string& url, bool play = true) {
        auto p = std::make_unique<Playback>();
        p->item = media->createItem(url);
        p->player = media->createPlayer(p->item);
        p->layer = ui::PlayerLayer::playerLayerWithPlayer(p->player);
        auto* raw = p.get();
        p->status =
            p->item->observeStatus([raw] { raw->statuses.push_back(raw->item->status()); }, true);
        p->ticks = p->player->addPeriodicTimeObserver(
            MediaTime{1, 1}, [raw](MediaTime t) { raw->times.push_back(t.seconds()); });
        if (play) p->player->play();
        return p;
    }

    std::shared_ptr<platform::Clock> clock = std::make_shared<platform::SystemClock>();
    std::shared_ptr<desktop::EventRunLoop> loop = std::make_shared<desktop::EventRunLoop>(clock);
    std::shared_ptr<desktop::GstMediaPlayerService> media;
    fs::path root;
};

class GstPlaysToTheEnd : public GstMediaPlayerTest,
                         public ::testing::WithParamInterface<const char*> {};

TEST_P(GstPlaysToTheEnd, BecomesReadyDecodesFramesAndStopsAtItsEnd) {
    auto p = start(fileUrl(GetParam()));
    ASSERT_TRUE(runUntil([&] { return p->item->status() != PlayerItemStatus::Unknown; }, 10));
    ASSERT_EQ(p->item->status(), PlayerItemStatus::ReadyToPlay)
        << (p->item->error() ? p->item->error()->description : "");
    EXPECT_NEAR(p->item->assetDuration().seconds(), 3.0, 0.15);
    EXPECT_NE(p->player->timeControlStatus(), TimeControlStatus::Paused);
    ASSERT_TRUE(runUntil([&] { return p->player->rate() == 0; }, 10)) << "never reached the end";
    EXPECT_EQ(p->player->timeControlStatus(), TimeControlStatus::Paused);
    // Frames reached the drawing layer: the first already while prerolling, and most of the
    // 90 since (a slow machine may drop some).
    EXPECT_GE(p->layer->framesReceived(), 30u);
    ASSERT_TRUE(p->layer->latestFrame());
    EXPECT_EQ(p->layer->latestFrame()->width, 360);
    EXPECT_EQ(p->layer->latestFrame()->height, 640);
    EXPECT_EQ(p->layer->latestFrame()->rgba.size(), 360u * 640u * 4u);
    // Ticks once a second of the loop's clock, then the end time once more.
    ASSERT_GE(p->times.size(), 3u);
    EXPECT_NEAR(p->times.back(), p->item->duration().seconds(), 0.05);
    EXPECT_EQ(p->statuses.front(), PlayerItemStatus::Unknown);
    EXPECT_EQ(p->statuses.back(), PlayerItemStatus::ReadyToPlay);
    // Nothing ticks after the end.
    EXPECT_LT(loop->nextTimerDelay(), 0);
}

INSTANTIATE_TEST_SUITE_P(Creatives, GstPlaysToTheEnd,
                         ::testing::Values("reward-3s.mp4", "reward-3s.webm"));

TEST_F(GstMediaPlayerTest, ACorruptFileFailsWithAMediaError) {
    auto p = start(fileUrl("reward-corrupt.mp4"));
    ASSERT_TRUE(runUntil([&] { return p->item->status() == PlayerItemStatus::Failed; }, 10));
    ASSERT_TRUE(p->item->error());
    EXPECT_EQ(p->item->error()->domain, platform::kMediaErrorDomain);
    EXPECT_EQ(p->layer->framesReceived(), 0u);
    EXPECT_EQ(p->player->timeControlStatus(), TimeControlStatus::Paused);
}

TEST_F(GstMediaPlayerTest, AMissingFileInTheCachesCannotBeOpened) {
    auto p = start(fileUrl("vanished.mp4"));
    ASSERT_TRUE(runUntil([&] { return p->item->status() == PlayerItemStatus::Failed; }, 10));
    EXPECT_EQ(p->item->error()->domain, platform::kMediaErrorDomain);
    EXPECT_EQ(p->item->error()->code, platform::MediaError::kCannotOpen);
}

TEST_F(GstMediaPlayerTest, UrlsOutsideTheCachesOrOfOtherSchemesAreRefused) {
    fs::copy_file(root / "Caches" / "Pelora" / "reward-3s.mp4", root / "outside.mp4");
    fs::create_symlink(root / "outside.mp4", root / "Caches" / "Pelora" / "link.mp4");
    adtest::LogCapture logs;
    for (const std::string& url :
         {std::string("ftp://127.0.0.1/a.mp4"), std::string("data:video/mp4;base64,AAAA"),
          "file://" + (root / "outside.mp4").string(), fileUrl("../../outside.mp4"),
          fileUrl("link.mp4"), std::string("file:///etc/passwd")}) {
        SCOPED_TRACE(url);
        auto p = start(url);
        EXPECT_EQ(p->item->status(), PlayerItemStatus::Unknown) << "reported on the next turn";
        ASSERT_TRUE(runUntil([&] { return p->item->status() == PlayerItemStatus::Failed; }, 2));
        EXPECT_EQ(p->item->error()->domain, platform::kURLErrorDomain);
        EXPECT_EQ(p->item->error()->code, platform::URLError::kUnsupportedURL);
    }
    size_t refusals = 0;
    for (const auto& line : logs.lines()) refusals += line.find("media: refused") == 0;
    EXPECT_EQ(refusals, 6u);
}

TEST_F(GstMediaPlayerTest, NoUrlOfTheCorpusBeyondTheWebIsEverPlayed) {
    // Web URLs would go out to the network: only the others are tried here, and each must be
    // refused before GStreamer sees it.
    size_t tried = 0;
    for (const auto& url : pelora::testing::corpusUrls()) {
        std::string compact;
        for (char c : url)
            if (static_cast<unsigned char>(c) > 0x20)
                compact += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        if (compact.rfind("http", 0) == 0) continue;
        SCOPED_TRACE(url);
        ++tried;
        auto p = start(url, false);
        ASSERT_TRUE(runUntil([&] { return p->item->status() == PlayerItemStatus::Failed; }, 2));
        EXPECT_EQ(p->item->error()->code, platform::URLError::kUnsupportedURL);
    }
    EXPECT_GT(tried, 300u);
}

TEST_F(GstMediaPlayerTest, PausingStopsTimeAndTicksAndMutingIsThePlayers) {
    auto p = start(fileUrl("reward-3s.mp4"));
    ASSERT_TRUE(
        runUntil([&] { return p->player->timeControlStatus() == TimeControlStatus::Playing; }, 10));
    ASSERT_TRUE(runUntil([&] { return p->player->currentTime().seconds() > 0.3; }, 5));
    p->player->setMuted(true);
    EXPECT_TRUE(p->player->muted());
    p->player->pause();
    EXPECT_EQ(p->player->timeControlStatus(), TimeControlStatus::Paused);
    EXPECT_LT(loop->nextTimerDelay(), 0) << "no tick while paused";
    runUntil([] { return false; }, 0.2);
    const double paused = p->player->currentTime().seconds();
    runUntil([] { return false; }, 0.5);
    EXPECT_NEAR(p->player->currentTime().seconds(), paused, 0.05);
    p->player->play();
    ASSERT_TRUE(runUntil([&] { return p->player->currentTime().seconds() > paused + 0.3; }, 5));
}

TEST_F(GstMediaPlayerTest, APlayerReleasedWhilePlayingReportsNothingMore) {
    auto p = start(fileUrl("reward-3s.mp4"));
    ASSERT_TRUE(runUntil([&] { return p->layer->framesReceived() > 3; }, 10));
    const auto statuses = p->statuses.size();
    const auto times = p->times.size();
    std::weak_ptr<platform::Player> weak = p->player;
    p->layer.reset();
    p->ticks.reset();
    p->player.reset();
    EXPECT_TRUE(weak.expired());
    runUntil([] { return false; }, 0.5);
    EXPECT_EQ(p->statuses.size(), statuses);
    EXPECT_EQ(p->times.size(), times);
}

// A host plays videos all day: each playback's pipeline, bus messages and frames are gone once
// its player is released. The first plays load GStreamer's plugins and types for good, so the
// heap is compared between the third play and the last.
TEST_F(GstMediaPlayerTest, PlayingAgainAndAgainLeavesTheHeapWhereItWas) {
    constexpr int kPlays = 12;
    constexpr size_t kAllowedGrowthPerPlay = 1024;
    size_t afterWarmUp = 0;
    for (int i = 0; i < kPlays; ++i) {
        auto p = start(fileUrl(i % 2 ? "reward-3s.webm" : "reward-3s.mp4"));
        ASSERT_TRUE(runUntil([&] { return p->player->currentTime().seconds() > 0.2; }, 10)) << i;
        p.reset();
        runUntil([] { return false; }, 0.05);  // what the pipeline had posted is dropped
        if (i == 2) afterWarmUp = pelora::testing::heapInUse();
    }
    const size_t atEnd = pelora::testing::heapInUse();
    const double perPlay = (static_cast<double>(atEnd) - static_cast<double>(afterWarmUp)) /
                           static_cast<double>(kPlays - 3);
    std::printf("heap: %zu bytes after the third play, %zu after the last (%+.0f per play)\n",
                afterWarmUp, atEnd, perPlay);
    EXPECT_LE(perPlay, static_cast<double>(kAllowedGrowthPerPlay));
}

}  // namespace
