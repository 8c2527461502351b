// The player view on the real GStreamer backend with the sandbox's generated creatives: the
// MP4 and the WebM decode to the finish status, the corrupt file ends in the error status.
// Real time, bounded: each file plays about three seconds.

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "TestPlatform.h"
#include "pelora/desktop/GstMediaPlayer.h"
#include "pelora/ui/PlayerLayer.h"
#include "reward/PeloraAdCache.h"
#include "reward/PeloraVideoPlayerVC.h"
#include "reward/PeloraVideoPlayerView.h"

using namespace pelora;

namespace {

namespace fs = std::filesystem;
using Statuses = std::vector<int64_t>;

class RealPlaybackTest : public ::testing::TestWithParam<const char*> {
  protected:
    void SetUp() override {
        if (!desktop::GstMediaPlayerService::available()) GTEST_SKIP() << "no GStreamer";
        tp.device->bundlePath = PELORA_SOURCE_DIR "/resources";
        fs::create_directories(tp.cachesDirectory() + "/Pelora");
        auto services = tp.services();
        services.mediaPlayer =
            std::make_shared<desktop::GstMediaPlayerService>(tp.loop, tp.cachesDirectory());
        platform::installServices(services);
    }

    // Plays a creative copied into the caches, as a downloaded video would be, until the
    // view reaches `status`; returns the statuses its owner heard.
    Statuses playUntil(const std::string& name, PeloraPlayerStatus status) {
        const fs::path file = fs::path(tp.cachesDirectory()) / "Pelora" / name;
        fs::copy_file(fs::path(PELORA_SOURCE_DIR) / "tools/sandbox/creatives" / name, file);
        auto page = PeloraVideoPlayerVC::instance();
        page->view();
        auto view = page->playerView();
        Statuses heard;
        if (!view) {
            ADD_FAILURE() << "the page's interface file gave no player view";
            return heard;
        }
        view->setStatusChange([&] { heard.push_back(view->status()); });
        view->loadVideoUrl(pl_fileURLWithPath(file.string()));
        EXPECT_TRUE(tp.waitFor([&] { return view->status() == status; }, 12))
            << name << " ended at status " << view->status();
        if (status == PeloraPlayerStatusPlayFinish) {
            EXPECT_GE(view->playerLayer()->framesReceived(), 30u);
            EXPECT_EQ(view->playItemDuration(), 3);
        }
        return heard;
    }

    // The event run loop on the system clock.
    pelora::testing::TestPlatform tp{pelora::testing::TestPlatform::ClockKind::System};
};

TEST_P(RealPlaybackTest, PlaysToTheFinishStatus) {
    EXPECT_EQ(
        playUntil(GetParam(), PeloraPlayerStatusPlayFinish),
        (Statuses{PeloraPlayerStatusIdle, PeloraPlayerStatusStart, PeloraPlayerStatusPlayFinish}));
}

INSTANTIATE_TEST_SUITE_P(Creatives, RealPlaybackTest,
                         ::testing::Values("reward-3s.mp4", "reward-3s.webm"));

TEST_F(RealPlaybackTest, ACorruptFileEndsInTheErrorStatus) {
    // The first failure is retried, not reported: the owner heard only the start of loading.
    EXPECT_EQ(playUntil("reward-corrupt.mp4", PeloraPlayerStatusPlayError),
              Statuses{PeloraPlayerStatusIdle});
}

}  // namespace
