// The player view on the real GStreamer backend with the sandbox's generated creatives: the
// MP4 and the WebM decode to the finish status, the corrupt file ends in the error status.
// Real time, bounded: each file plays about three seconds.

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "pelora/desktop/DesktopFileSystem.h"
#include "pelora/desktop/EventRunLoop.h"
#include "pelora/desktop/GstMediaPlayer.h"
#include "pelora/platform/Services.h"
#include "pelora/testing/FakeDeviceInfo.h"
#include "pelora/ui/PlayerLayer.h"
#include "reward/PeloraAdCache.h"
#include "reward/PeloraVideoPlayerVC.h"
#include "reward/PeloraVideoPlayerView.h"

using namespace pelora;

namespace {

namespace fs = std::filesystem;

class RealPlaybackTest : public ::testing::TestWithParam<const char*> {
  protected:
    void SetUp() override {
        if (!desktop::GstMediaPlayerService::available()) GTEST_SKIP() << "no GStreamer";
        caches = fs::temp_directory_path() / ("pelora-real-playback-" + std::to_string(::getpid()));
        fs::create_directories(caches / "Pelora");
        platform::Services s;
        s.clock = clock;
        s.mainRunLoop = loop;
        auto device = std::make_shared<pelora::testing::FakeDeviceInfo>();
        device->bundlePath = PELORA_SOURCE_DIR "/resources";
        s.device = device;
        desktop::DesktopFileSystem::Options files;
        files.cachesDirectoryOverride = caches.string();
        s.files = std::make_shared<desktop::DesktopFileSystem>(files);
        s.mediaPlayer = std::make_shared<desktop::GstMediaPlayerService>(loop, caches.string());
        platform::installServices(s);
    }
    void TearDown() override {
        std::error_code ec;
        fs::remove_all(caches, ec);
    }

    // Plays a creative copied into the caches, as a downloaded video would be, until the
    // view reaches `status`; returns the statuses its owner heard.
    std::vector<int64_t> playUntil(const std::string& name, PeloraPlayerStatus status) {
        const fs::path file = caches / "Pelora" / name;
        fs::copy_file(fs::path(PELORA_SOURCE_DIR) / "tools/sandbox/creatives" / name, file,
                      fs::copy_options::overwrite_existing);
        auto page = PeloraVideoPlayerVC::instance();
        page->view();
        auto view = page->playerView();
        std::vector<int64_t> heard;
        if (!view) {
            ADD_FAILURE() << "the page's interface file gave no player view";
            return heard;
        }
        view->setStatusChange([&] { heard.push_back(view->status()); });
        view->loadVideoUrl(pl_fileURLWithPath(file.string()));
        EXPECT_TRUE(loop->runUntil([&] { return view->status() == status; },
                                   clock->monotonicSeconds() + 12))
            << name << " ended at status " << view->status();
        if (status == PeloraPlayerStatusPlayFinish) {
            EXPECT_GE(view->playerLayer()->framesReceived(), 30u);
            EXPECT_EQ(view->playItemDuration(), 3);
        }
        return heard;
    }

    std::shared_ptr<platform::Clock> clock = std::make_shared<platform::SystemClock>();
    std::shared_ptr<desktop::EventRunLoop> loop = std::make_shared<desktop::EventRunLoop>(clock);
    fs::path caches;
};

TEST_P(RealPlaybackTest, PlaysToTheFinishStatus) {
    auto heard = playUntil(GetParam(), PeloraPlayerStatusPlayFinish);
    EXPECT_EQ(heard, (std::vector<int64_t>{PeloraPlayerStatusIdle, PeloraPlayerStatusStart,
                                           PeloraPlayerStatusPlayFinish}));
}

INSTANTIATE_TEST_SUITE_P(Creatives, RealPlaybackTest,
                         ::testing::Values("reward-3s.mp4", "reward-3s.webm"));

TEST_F(RealPlaybackTest, ACorruptFileEndsInTheErrorStatus) {
    auto heard = playUntil("reward-corrupt.mp4", PeloraPlayerStatusPlayError);
    // The first failure is retried, not reported: the owner heard only the start of loading.
    EXPECT_EQ(heard, std::vector<int64_t>{PeloraPlayerStatusIdle});
}

}  // namespace
