// The video player view on the scripted player and the manual clock: its status machine as
// its owner sees it, the retry rule, the finish rule, background and foreground.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "TestPlatform.h"
#include "pelora/platform/NotificationCenter.h"
#include "pelora/testing/ScriptedMediaPlayer.h"
#include "reward/PeloraVideoPlayerVC.h"
#include "reward/PeloraVideoPlayerView.h"

using namespace pelora;
using pelora::testing::MediaScript;
using pelora::testing::ScriptedMediaPlayerService;
using pelora::testing::TestPlatform;

namespace {

class PlayerViewTest : public ::testing::Test {
  protected:
    void SetUp() override {
        tp.device->bundlePath = PELORA_SOURCE_DIR "/resources";
        tp.install();
        // The view as the page's interface file builds it, with its cover and play button.
        page = PeloraVideoPlayerVC::instance();
        page->view();
        view = page->playerView();
        ASSERT_TRUE(view);
        view->setStatusChange([this] { seen.push_back(view->status()); });
        view->setPlayTimeChange(
            [this](int64_t total, int64_t current) { times.emplace_back(total, current); });
    }

    MediaScript script(double duration) {
        MediaScript s;
        s.duration = duration;
        return s;
    }
    void load(const std::string& url, const MediaScript& s) {
        media->setScript(url, s);
        view->loadVideoUrl(url);
    }
    std::shared_ptr<pelora::testing::ScriptedPlayer> player() { return media->lastPlayer(); }
    bool coverVisible() const { return view->coverImgV() && !view->coverImgV()->hidden(); }
    bool playButtonVisible() const { return view->playBtn() && !view->playBtn()->hidden(); }

    TestPlatform tp{TestPlatform::NetworkKind::Fake};
    std::shared_ptr<ScriptedMediaPlayerService> media = tp.mediaPlayer;
    std::shared_ptr<PeloraVideoPlayerVC> page;
    std::shared_ptr<PeloraVideoPlayerView> view;
    std::vector<int64_t> seen;
    std::vector<std::pair<int64_t, int64_t>> times;
};

using V = std::vector<int64_t>;

TEST_F(PlayerViewTest, AutoPlayIsIdleWithItsCoverUntilTheItemIsReady) {
    MediaScript s = script(8);
    s.timeToReady = 0.5;
    load("file:///videos/a.mp4", s);
    EXPECT_EQ(seen, V{PeloraPlayerStatusIdle});
    EXPECT_TRUE(coverVisible());
    EXPECT_FALSE(playButtonVisible());
    // The picture lies below the cover and the play button.
    ASSERT_FALSE(view->subviews().empty());
    EXPECT_EQ(view->subviews().front(), view->playerLayer());

    tp.advance(0.4);
    EXPECT_EQ(seen, V{PeloraPlayerStatusIdle});
    tp.advance(0.1);
    EXPECT_EQ(seen, (V{PeloraPlayerStatusIdle, PeloraPlayerStatusStart}));
    EXPECT_FALSE(coverVisible());
    EXPECT_TRUE(view->isPlaying());
    EXPECT_EQ(view->playItemDuration(), 8);
    // The first frame is in the drawing layer as soon as the item is ready.
    EXPECT_GE(view->playerLayer()->framesReceived(), 1u);
}

TEST_F(PlayerViewTest, WithoutAutoPlayWaitsAgainOnTheNextTurnAndStartsAtTheTap) {
    view->setAutoPlay(false);
    load("file:///videos/a.mp4", script(8));
    EXPECT_EQ(seen, V{PeloraPlayerStatusWait});
    EXPECT_TRUE(playButtonVisible());
    EXPECT_TRUE(coverVisible());

    tp.pump();
    EXPECT_EQ(seen, (V{PeloraPlayerStatusWait, PeloraPlayerStatusRearm, PeloraPlayerStatusWait}));
    EXPECT_EQ(player()->rate(), 0);
    EXPECT_FALSE(view->isPlaying());
    // Ready in a paused player changes nothing: it waits for the button.
    tp.advance(3);
    EXPECT_EQ(seen.back(), PeloraPlayerStatusWait);
    EXPECT_TRUE(times.empty());

    view->onPlayBtnTap(view->playBtn().get());
    EXPECT_EQ(seen.back(), PeloraPlayerStatusStart);
    EXPECT_FALSE(playButtonVisible());
    EXPECT_EQ(player()->rate(), 1.0);
    tp.advance(1);
    ASSERT_FALSE(times.empty());
    EXPECT_EQ(times.back(), std::make_pair(int64_t{8}, int64_t{1}));
}

TEST_F(PlayerViewTest, FinishesAtTheTickWhoseWholeSecondReachesTheWholeTotal) {
    load("file:///videos/long.mp4", script(10.4));
    tp.pump();
    ASSERT_EQ(seen.back(), PeloraPlayerStatusStart);
    tp.advance(9.9);
    EXPECT_EQ(seen.back(), PeloraPlayerStatusStart);
    EXPECT_EQ(times.back(), std::make_pair(int64_t{10}, int64_t{9}));
    tp.advance(0.1);
    EXPECT_EQ(seen.back(), PeloraPlayerStatusPlayFinish);
    EXPECT_EQ(times.back(), std::make_pair(int64_t{10}, int64_t{10}));
    // Nothing leaves the finished state: the end of the item changes nothing.
    tp.advance(2);
    EXPECT_EQ(std::count(seen.begin(), seen.end(), PeloraPlayerStatusPlayFinish), 1);
}

TEST_F(PlayerViewTest, UnknownDurationReportsZeroTotalAndNeverFinishesByTime) {
    MediaScript s = script(4);
    s.durationKnown = false;
    load("file:///videos/a.mp4", s);
    tp.advance(6);
    ASSERT_FALSE(times.empty());
    EXPECT_EQ(times.front(), std::make_pair(int64_t{0}, int64_t{1}));
    EXPECT_EQ(seen.back(), PeloraPlayerStatusStart);
    EXPECT_EQ(view->playItemDuration(), 0);
}

TEST_F(PlayerViewTest, OneFailureIsRetriedOnceAndNeverReported) {
    MediaScript s = script(5);
    s.failOnPlay = {1};
    load("file:///videos/a.mp4", s);
    tp.advance(0.1);
    // The owner never hears of the error; the retry plays and starts.
    EXPECT_EQ(seen, (V{PeloraPlayerStatusIdle, PeloraPlayerStatusStart}));
    EXPECT_EQ(player()->playCalls(), 2);
    EXPECT_EQ(view->retryTimes(), 0);
}

TEST_F(PlayerViewTest, AnItemThatStaysFailedIsRetriedOnceAndTheThirdEntryIsReported) {
    MediaScript broken = script(5);
    broken.failToLoad = true;
    load("file:///videos/bad-1.mp4", broken);
    tp.advance(1);
    // Failing again while already failed is no new entry: one retry, nothing reported.
    EXPECT_EQ(seen, V{PeloraPlayerStatusIdle});
    EXPECT_EQ(view->status(), PeloraPlayerStatusPlayError);
    EXPECT_EQ(view->retryTimes(), 1);
    EXPECT_EQ(player()->playCalls(), 2);

    load("file:///videos/bad-2.mp4", broken);
    tp.advance(1);
    EXPECT_EQ(view->retryTimes(), 2);
    EXPECT_EQ(seen.back(), PeloraPlayerStatusIdle);

    load("file:///videos/bad-3.mp4", broken);
    tp.advance(1);
    EXPECT_EQ(seen.back(), PeloraPlayerStatusPlayError);
    EXPECT_EQ(view->playItemError()->code, platform::MediaError::kDecodeFailed);
    // The second load reused the player; each load observed its own item.
    EXPECT_EQ(media->playersCreated(), 1u);
    EXPECT_EQ(media->itemURLs().size(), 3u);
    EXPECT_EQ(player()->currentItem()->url(), "file:///videos/bad-3.mp4");
}

TEST_F(PlayerViewTest, ForegroundResumesOnlyWhatWasPlayingWhenTheApplicationLeft) {
    auto& center = platform::NotificationCenter::defaultCenter();
    load("file:///videos/a.mp4", script(20));
    tp.advance(2);
    center.post(platform::kApplicationDidEnterBackgroundNotification);
    EXPECT_TRUE(view->frontToPlay());
    EXPECT_TRUE(view->isPlaying());  // leaving does not pause by itself
    view->pause();
    center.post(platform::kApplicationWillEnterForegroundNotification);
    EXPECT_TRUE(view->isPlaying());

    view->pause();
    center.post(platform::kApplicationDidEnterBackgroundNotification);
    EXPECT_FALSE(view->frontToPlay());
    center.post(platform::kApplicationWillEnterForegroundNotification);
    EXPECT_FALSE(view->isPlaying());
}

TEST_F(PlayerViewTest, AbsentUrlHidesTheControlsAndLeavesThePlayerAlone) {
    load("file:///videos/a.mp4", script(20));
    tp.advance(1);
    auto before = player();
    view->playBtn()->setHidden(false);
    view->loadVideoUrl(std::nullopt);
    EXPECT_TRUE(view->playBtn()->hidden());
    EXPECT_TRUE(view->coverImgV()->hidden());
    EXPECT_FALSE(view->playerLayer()->hidden());
    EXPECT_EQ(player(), before);
    EXPECT_TRUE(view->isPlaying());
}

TEST_F(PlayerViewTest, MuteReachesThePlayer) {
    load("file:///videos/a.mp4", script(5));
    view->setMute(true);
    EXPECT_TRUE(player()->muted());
    view->setMute(false);
    EXPECT_FALSE(player()->muted());
}

TEST_F(PlayerViewTest, AReleasedViewLeavesNoTimerAndNoObserverBehind) {
    load("file:///videos/a.mp4", script(30));
    tp.advance(2);
    std::weak_ptr<pelora::testing::ScriptedPlayer> weakPlayer = player();
    view.reset();
    page.reset();
    tp.pump();
    EXPECT_TRUE(weakPlayer.expired());
    EXPECT_EQ(tp.manualLoop->timerCount(), 0u);
    // Notifications reach nobody and break nothing.
    platform::NotificationCenter::defaultCenter().post(
        platform::kApplicationWillEnterForegroundNotification);
}

}  // namespace
