// The rewarded video from the host's side: loading, choosing, pre-downloading, showing on the
// page, the beacons the ad server receives and the delegate's callbacks, all on the fake
// network, the scripted player and the manual clock.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "RewardTestSupport.h"
#include "track/PeloraPluginStatusStore.h"
#include "pelora/PeloraRewardVideoAdManager.h"
#include "reward/PeloraAdCache.h"
#include "reward/PeloraRewardVideoAdManagerInternal.h"
#include "reward/PeloraVideoPlayerVC.h"
#include "track/PeloraTrackEvent.h"

using namespace pelora;
using pelora::platform::Error;
using rewardtest::RewardFixture;
using rewardtest::videoAd;

namespace {

using Calls = std::vector<std::string>;

class RewardVideoTest : public RewardFixture {};

// ---- a whole showing -------------------------------------------------------------------------

TEST_F(RewardVideoTest, AFullShowingReportsInOrderAndSendsEveryVideoBeaconOnce) {
    auto manager = loadedManager({videoAd("r-1", video("/v/clip.mp4", 3))});
    EXPECT_EQ(host->calls, (Calls{"DidSuccessLoad", "VideoDidLoad"}));
    // The file is where the cache says, under the caches directory's "Pelora" folder.
    auto path = manager->cachedVideoPath();
    ASSERT_TRUE(path);
    EXPECT_EQ(*path, tp.cachesDirectory() + "/Pelora/clip.mp4");
    EXPECT_EQ(adtest::readFile(*path), "video bytes of /v/clip.mp4");

    ASSERT_TRUE(manager->showAdFromRootViewController(root));
    auto page = PeloraRewardVideoAdManagerInternal::of(*manager).videoPage();
    ASSERT_TRUE(page);
    auto nav = root->presentedViewController();
    ASSERT_TRUE(nav);
    EXPECT_EQ(nav->className(), "PeloraRootNavVC");
    EXPECT_EQ(nav->modalPresentationStyle(), ui::ModalPresentationStyle::OverFullScreen);
    EXPECT_TRUE(nav->lastTransitionAnimated());
    EXPECT_EQ(media->itemURLs().back(), pl_fileURLWithPath(*path));

    tp.advance(0.1);  // ready: playback starts
    EXPECT_FALSE(page->bellBtn()->hidden());
    EXPECT_FALSE(page->timeBtn()->hidden());
    tp.advance(1);
    EXPECT_EQ(page->timeBtn()->titleForState(ui::ControlState::Normal), "2");
    tp.advance(2);
    EXPECT_EQ(host->calls, (Calls{"DidSuccessLoad", "VideoDidLoad", "DidShow", "DidPlayFinish"}));
    // 34 and 35 went out at the same tick, 34 first; 32 at 0.33 and 33 at 0.67.
    EXPECT_EQ(beaconTypes(), (std::vector<int64_t>{1, 31, 32, 33, 34, 35}));
    EXPECT_TRUE(page->closeBtn() && !page->closeBtn()->hidden());
    EXPECT_TRUE(page->skipBtn()->hidden());

    tapCenter(page->closeBtn());
    EXPECT_EQ(host->calls.back(), "DidClose");
    EXPECT_EQ(beaconTypes().back(), 8);
    page.reset();
    nav.reset();
    EXPECT_FALSE(root->presentedViewController());
    EXPECT_FALSE(PeloraRewardVideoAdManagerInternal::of(*manager).videoPage())
        << "the page is released once dismissed";
    manager.reset();
    tp.advance(5);
    expectNothingLeftRunning();
}

TEST_F(RewardVideoTest, EachQuartileGoesOutAtTheFirstTickPastIt) {
    auto manager = loadedManager({videoAd("r-1", video("/v/ten.mp4", 10))});
    manager->showAdFromRootViewController(root);
    tp.advance(0.1);
    std::vector<std::vector<int64_t>> perSecond;
    for (int second = 1; second <= 10; ++second) {
        const size_t before = beaconTypes().size();
        tp.advance(1);
        auto types = beaconTypes();
        perSecond.emplace_back(types.begin() + static_cast<long>(before), types.end());
    }
    EXPECT_EQ(perSecond,
              (std::vector<std::vector<int64_t>>{{}, {}, {32}, {}, {33}, {}, {}, {34}, {}, {35}}));
}

TEST_F(RewardVideoTest, VideoMacrosCarryDurationBehaviourAndTheCompletionsEndTime) {
    auto manager = loadedManager({videoAd("r-1", video("/v/clip.mp4", 4))});
    manager->showAdFromRootViewController(root);
    tp.advance(4.1);
    auto start = beacon(31);
    ASSERT_TRUE(start);
    EXPECT_EQ(rewardtest::param(*start, "vt"), "4");
    EXPECT_EQ(rewardtest::param(*start, "vb"), "0");
    EXPECT_EQ(rewardtest::param(*start, "vff"), "1");
    EXPECT_EQ(rewardtest::param(*start, "vlf"), "0");
    EXPECT_EQ(rewardtest::param(*start, "vsc"), "3");
    EXPECT_EQ(rewardtest::param(*start, "vpt"), "1");
    EXPECT_EQ(rewardtest::param(*start, "vs"), "0");
    EXPECT_EQ(rewardtest::param(*start, "vst"), "0");
    EXPECT_EQ(rewardtest::param(*start, "vet"), "__VIDEO_END_TIME__");
    auto complete = beacon(35);
    ASSERT_TRUE(complete);
    EXPECT_EQ(rewardtest::param(*complete, "vlf"), "1");
    EXPECT_EQ(rewardtest::param(*complete, "vet"), "4");
}

TEST_F(RewardVideoTest, WithoutAutoPlayTheBehaviourIsOneAndTimeFallsBackToTheServersDuration) {
    auto v = video("/v/clip.mp4", 6);
    v["videoDuration"] = "7 seconds";
    pelora::testing::MediaScript script;
    script.duration = 6;
    script.durationKnown = false;
    media->setScript(fileUrlFor("clip.mp4"), script);
    auto manager = loadedManager({videoAd("r-1", v)});
    manager->setAutoPlay(false);
    manager->showAdFromRootViewController(root);
    auto page = PeloraRewardVideoAdManagerInternal::of(*manager).videoPage();
    tp.advance(1);
    EXPECT_TRUE(beaconTypes() == std::vector<int64_t>{1}) << "nothing plays before the tap";
    ASSERT_TRUE(page->playerView()->playBtn());
    tapCenter(page->playerView()->playBtn());
    auto start = beacon(31);
    ASSERT_TRUE(start);
    EXPECT_EQ(rewardtest::param(*start, "vb"), "1");
    EXPECT_EQ(rewardtest::param(*start, "vt"), "7");
}

// ---- controls --------------------------------------------------------------------------------

TEST_F(RewardVideoTest, SkipAppearsAtTheAdsSkipSecondAndClosesThePage) {
    auto v = video("/v/clip.mp4", 12);
    v["skipSeconds"] = 5;
    auto manager = loadedManager({videoAd("r-1", v)});
    manager->showAdFromRootViewController(root);
    auto page = PeloraRewardVideoAdManagerInternal::of(*manager).videoPage();
    EXPECT_TRUE(page->skipBtn()->hidden());
    tp.advance(4.5);
    EXPECT_TRUE(page->skipBtn()->hidden());
    tp.advance(0.5);
    ASSERT_FALSE(page->skipBtn()->hidden());
    tapCenter(page->skipBtn());
    EXPECT_EQ(host->calls.back(), "DidClickSkip");
    EXPECT_EQ(beaconTypes().back(), 36);
    EXPECT_EQ(std::count(host->calls.begin(), host->calls.end(), "DidPlayFinish"), 0);
    page.reset();
    EXPECT_FALSE(PeloraRewardVideoAdManagerInternal::of(*manager).videoPage());
}

TEST_F(RewardVideoTest, SkipSecondsZeroNeverShowsSkip) {
    auto v = video("/v/clip.mp4", 8);
    v["skipSeconds"] = 0;
    auto manager = loadedManager({videoAd("r-1", v)});
    manager->showAdFromRootViewController(root);
    auto page = PeloraRewardVideoAdManagerInternal::of(*manager).videoPage();
    for (int i = 0; i < 9; ++i) {
        tp.advance(1);
        EXPECT_TRUE(page->skipBtn()->hidden()) << "second " << i + 1;
    }
    EXPECT_FALSE(page->closeBtn()->hidden());
}

TEST_F(RewardVideoTest, MutingTwiceTogglesTheImageButReportsOnce) {
    auto manager = loadedManager({videoAd("r-1", video("/v/clip.mp4", 10))});
    manager->showAdFromRootViewController(root);
    auto page = PeloraRewardVideoAdManagerInternal::of(*manager).videoPage();
    tp.advance(1);
    auto bell = page->bellBtn();
    auto soundOn = bell->imageForState(ui::ControlState::Normal);
    tapCenter(bell);
    EXPECT_TRUE(media->lastPlayer()->muted());
    EXPECT_NE(bell->imageForState(ui::ControlState::Normal), soundOn);
    EXPECT_EQ(bell->imageForState(ui::ControlState::Normal)->name.find("bu_voice_silent"), 0u);
    tapCenter(bell);
    EXPECT_FALSE(media->lastPlayer()->muted());
    EXPECT_EQ(bell->imageForState(ui::ControlState::Normal)->name.find("bu_voice@"), 0u);
    EXPECT_EQ(beaconCount(41), 1);
}

TEST_F(RewardVideoTest, EndPageShowsItsPartsAndEndHtmlAddsTwoBlankWebViews) {
    auto v = video("/v/clip.mp4", 2);
    v["endHtml"] = "<p>end</p>";
    v["buttonText"] = "Install";
    v["endImgUrl"] = "https://cdn.example/end.png";
    auto manager = loadedManager({videoAd("r-1", v)});
    manager->showAdFromRootViewController(root);
    auto page = PeloraRewardVideoAdManagerInternal::of(*manager).videoPage();
    tp.advance(2.1);
    ASSERT_FALSE(page->endButton()->hidden());
    EXPECT_EQ(page->endButton()->titleForState(ui::ControlState::Normal), "Install");
    EXPECT_FALSE(page->endImageV()->hidden());
    EXPECT_TRUE(net.requested("https://cdn.example/end.png"));
    const auto& subviews = page->view()->subviews();
    auto player = std::find(subviews.begin(), subviews.end(), page->playerView());
    ASSERT_NE(player, subviews.end());
    ASSERT_LT(player + 2, subviews.end());
    for (auto it = player + 1; it <= player + 2; ++it) {
        auto web = std::dynamic_pointer_cast<ui::WebView>(*it);
        ASSERT_TRUE(web) << "a web view right above the player view";
        EXPECT_FALSE(web->loadedHTML()) << "nothing is ever loaded into it";
    }
    EXPECT_EQ(std::count_if(subviews.begin(), subviews.end(),
                            [](auto& v) { return v->className() == "WebView"; }),
              2);
    EXPECT_FALSE(page->endWebView()) << "the accessor never keeps what it makes";
}

TEST_F(RewardVideoTest, AutoLandingOpensTheDestinationWithoutCountingAClick) {
    auto v = video("/v/clip.mp4", 2);
    v["autoLanding"] = true;
    auto manager = loadedManager({videoAd("r-1", v)});
    manager->showAdFromRootViewController(root);
    tp.advance(2.1);
    tp.pump();
    EXPECT_EQ(tp.opener->openedURLs().size() + (root->presentedViewController() ? 0 : 1), 1u);
    EXPECT_EQ(beaconCount(2), 0);
    EXPECT_EQ(std::count(host->calls.begin(), host->calls.end(), "DidClick"), 0);
}

TEST_F(RewardVideoTest, EveryTapOnAClickableVideoIsReportedAndTheClickBeaconOnce) {
    auto manager = loadedManager({videoAd("r-1", video("/v/clip.mp4", 10))});
    manager->showAdFromRootViewController(root);
    tp.advance(1);
    auto page = PeloraRewardVideoAdManagerInternal::of(*manager).videoPage();
    tapCenter(page->playerView());
    tp.pump();
    tapCenter(page->playerView());
    tp.pump();
    EXPECT_EQ(std::count(host->calls.begin(), host->calls.end(), "DidClick"), 2);
    EXPECT_EQ(beaconCount(2), 1);
}

// ---- showing again ---------------------------------------------------------------------------

TEST_F(RewardVideoTest, TheSameAdShownTwiceSendsNoVideoBeaconsTheSecondTime) {
    auto manager = loadedManager({videoAd("r-1", video("/v/clip.mp4", 2))});
    manager->showAdFromRootViewController(root);
    tp.advance(2.1);
    tapCenter(PeloraRewardVideoAdManagerInternal::of(*manager).videoPage()->closeBtn());
    const auto first = beaconTypes();
    ASSERT_TRUE(manager->showAdFromRootViewController(root));
    tp.advance(2.1);
    tapCenter(PeloraRewardVideoAdManagerInternal::of(*manager).videoPage()->closeBtn());
    EXPECT_EQ(beaconTypes(), first);
    EXPECT_EQ(std::count(host->calls.begin(), host->calls.end(), "DidPlayFinish"), 2);
    EXPECT_EQ(std::count(host->calls.begin(), host->calls.end(), "DidClose"), 2);
}

TEST_F(RewardVideoTest, ShowingWhileThePageIsUpReusesItWithANewStore) {
    auto manager = loadedManager({videoAd("r-1", video("/v/clip.mp4", 20))});
    manager->showAdFromRootViewController(root);
    auto page = PeloraRewardVideoAdManagerInternal::of(*manager).videoPage();
    auto firstStore = PeloraRewardVideoAdManagerInternal::of(*manager).store();
    tp.advance(2);
    ASSERT_TRUE(manager->showAdFromRootViewController(root));
    EXPECT_EQ(PeloraRewardVideoAdManagerInternal::of(*manager).videoPage(), page);
    EXPECT_NE(PeloraRewardVideoAdManagerInternal::of(*manager).store(), firstStore);
    EXPECT_EQ(page->store(), PeloraRewardVideoAdManagerInternal::of(*manager).store());
    EXPECT_EQ(media->playersCreated(), 1u);
}

TEST_F(RewardVideoTest, ShowBeforeAnyLoadPresentsNothing) {
    auto manager = PeloraRewardVideoAdManager::initWithSlot(slot());
    EXPECT_FALSE(manager->showAdFromRootViewController(root));
    EXPECT_FALSE(root->presentedViewController());
}

// ---- loading ---------------------------------------------------------------------------------

TEST_F(RewardVideoTest, TheRequestAsksForTypeFourFullScreenInPixelsWithTheSlotsTimeOut) {
    auto s = slot();
    s->tolerateTimeout = 7;
    auto manager = PeloraRewardVideoAdManager::initWithSlot(s);
    manager->setDelegate(host);
    net.answerFetches(rewardtest::answer({}));
    manager->loadAdData();
    tp.advance(0.1);
    auto fetch = net.lastFetch();
    ASSERT_TRUE(fetch);
    EXPECT_EQ(fetch->timeoutInterval, 7.0);
    auto body = nlohmann::json::parse(fetch->body);
    EXPECT_EQ(body["slot"]["adType"], 4);
    EXPECT_EQ(body["slot"]["position"], 5);
    EXPECT_EQ(body["slot"]["width"], 750);
    EXPECT_EQ(body["slot"]["height"], 1334);
    EXPECT_EQ(body["slot"]["slotId"], "reward-slot");
}

TEST_F(RewardVideoTest, EveryLoadFailureReachesTheDelegateWithItsDomainAndCode) {
    struct Case {
        const char* name;
        std::function<void()> arrange;
        std::string domain;
        int64_t code;
    };
    const std::vector<Case> cases = {
        {"time-out", [&] { net.failFetches(platform::URLError::kTimedOut); }, "NSURLErrorDomain",
         -1001},
        {"no ads", [&] { net.answerFetches(rewardtest::answer({})); }, "sdk.data.err", -1},
        {"first ad without video",
         [&] {
             net.answerFetches(rewardtest::answer(
                 {videoAd("r-1", nullptr), videoAd("r-2", video("/v/clip.mp4", 3))}));
         },
         "sdk.data.err", -1},
        {"video without URL",
         [&] {
             auto v = video("/v/clip.mp4", 3);
             v.erase("videoUrl");
             net.answerFetches(rewardtest::answer({videoAd("r-1", v)}));
         },
         "sdk.data.err", -1},
        {"download failed",
         [&] {
             net.answerFetches(rewardtest::answer({videoAd("r-1", video("/v/gone.mp4", 3))}));
             net.fail(cdn("/v/gone.mp4"), platform::URLError::kCannotConnectToHost);
         },
         "sdk.data.err.download", -1004},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        host->calls.clear();
        host->errors.clear();
        c.arrange();
        auto manager = PeloraRewardVideoAdManager::initWithSlot(slot());
        manager->setDelegate(host);
        manager->loadAdData();
        runUntilIdle();
        ASSERT_EQ(host->errors.size(), 1u);
        ASSERT_TRUE(host->errors[0]);
        EXPECT_EQ(host->errors[0]->domain, c.domain);
        EXPECT_EQ(host->errors[0]->code, c.code);
        EXPECT_EQ(host->calls.back(), "DidFailWithError");
    }
}

TEST_F(RewardVideoTest, AFirstAdWithoutVideoLeavesNothingToShow) {
    net.answerFetches(
        rewardtest::answer({videoAd("r-1", nullptr), videoAd("r-2", video("/v/clip.mp4", 3))}));
    auto manager = PeloraRewardVideoAdManager::initWithSlot(slot());
    manager->setDelegate(host);
    manager->loadAdData();
    tp.advance(0.1);
    EXPECT_EQ(host->calls, Calls{"DidFailWithError"});
    EXPECT_FALSE(manager->showAdFromRootViewController(root));
    EXPECT_EQ(net.downloads(), 0u);
}

TEST_F(RewardVideoTest, AStreamedVideoIsReadyInTheSameTurnAndPlaysItsRemoteUrl) {
    auto v = video("/v/live.mp4", 3);
    v["prefetch"] = false;
    net.answerFetches(rewardtest::answer({videoAd("r-1", v)}));
    auto manager = PeloraRewardVideoAdManager::initWithSlot(slot());
    manager->setDelegate(host);
    manager->loadAdData();
    host->onCall = [&](const std::string& call) {
        if (call == "DidSuccessLoad") host->calls.push_back("(same turn)");
    };
    tp.advance(0.1);
    EXPECT_EQ(host->calls, (Calls{"DidSuccessLoad", "(same turn)", "VideoDidLoad"}));
    EXPECT_EQ(net.downloads(), 0u);
    manager->showAdFromRootViewController(root);
    EXPECT_EQ(media->itemURLs().back(), cdn("/v/live.mp4"));
}

TEST_F(RewardVideoTest, ADownloadedUrlIsNotDownloadedAgainAndPlaysFromTheFile) {
    auto first = loadedManager({videoAd("r-1", video("/v/clip.mp4", 3))});
    ASSERT_EQ(net.downloads(), 1u);
    host->calls.clear();
    auto second = loadedManager({videoAd("r-2", video("/v/clip.mp4", 3))});
    EXPECT_EQ(host->calls, (Calls{"DidSuccessLoad", "VideoDidLoad"}));
    EXPECT_EQ(net.downloads(), 1u);
    second->showAdFromRootViewController(root);
    EXPECT_EQ(media->itemURLs().back(), fileUrlFor("clip.mp4"));
}

TEST_F(RewardVideoTest, ASecondLoadCancelsTheRunningDownload) {
    auto manager = PeloraRewardVideoAdManager::initWithSlot(slot());
    manager->setDelegate(host);
    net.answerFetches(rewardtest::answer({videoAd("r-1", video("/v/one.mp4", 3))}));
    net.hold(cdn("/v/one.mp4"));
    manager->loadAdData();
    tp.advance(0.1);
    ASSERT_EQ(host->calls, Calls{"DidSuccessLoad"});
    net.answerFetches(rewardtest::answer({videoAd("r-2", video("/v/two.mp4", 3))}));
    net.hold(cdn("/v/two.mp4"));
    manager->loadAdData();
    runUntilIdle();
    ASSERT_EQ(host->errors.size(), 1u);
    EXPECT_EQ(host->errors[0]->domain, "sdk.data.err.download");
    EXPECT_EQ(host->errors[0]->code, -999);
    EXPECT_EQ(host->calls, (Calls{"DidSuccessLoad", "DidSuccessLoad", "DidFailWithError"}));
    // The failed download leaves the new choice showable: it streams.
    EXPECT_TRUE(manager->showAdFromRootViewController(root));
    EXPECT_EQ(media->itemURLs().back(), cdn("/v/two.mp4"));
}

// ---- failures while playing ------------------------------------------------------------------

TEST_F(RewardVideoTest, APlaybackThatKeepsFailingIsReportedOnTheThirdEntry) {
    auto v = video("/v/clip.mp4", 3);
    v["prefetch"] = false;
    pelora::testing::MediaScript broken;
    broken.failToLoad = true;
    media->setScript(cdn("/v/clip.mp4"), broken);
    auto manager = loadedManager({videoAd("r-1", v)});
    for (int show = 1; show <= 3; ++show) {
        manager->showAdFromRootViewController(root);
        tp.advance(0.5);
        EXPECT_EQ(host->errors.size(), show < 3 ? 0u : 1u) << "show " << show;
    }
    ASSERT_EQ(host->errors.size(), 1u);
    ASSERT_TRUE(host->errors[0]);
    EXPECT_EQ(host->errors[0]->domain, platform::kMediaErrorDomain);
    auto error = beacon(40);
    ASSERT_TRUE(error);
    EXPECT_EQ(rewardtest::param(*error, "vs"), "2");
    // No close button before the video ever started.
    EXPECT_TRUE(PeloraRewardVideoAdManagerInternal::of(*manager).videoPage()->closeBtn()->hidden());
}

TEST_F(RewardVideoTest, AVanishedCachedFileIsAPlayerErrorNotACrash) {
    auto manager = loadedManager({videoAd("r-1", video("/v/clip.mp4", 3))});
    std::filesystem::remove(*manager->cachedVideoPath());
    pelora::testing::MediaScript missing;
    missing.failToLoad = true;
    missing.error = {platform::kMediaErrorDomain, platform::MediaError::kCannotOpen, "no file"};
    media->setScript(fileUrlFor("clip.mp4"), missing);
    EXPECT_TRUE(manager->showAdFromRootViewController(root));
    tp.advance(1);
    EXPECT_EQ(PeloraRewardVideoAdManagerInternal::of(*manager).videoPage()->playerView()->status(),
              PeloraPlayerStatusPlayError);
}

// ---- ownership -------------------------------------------------------------------------------

TEST_F(RewardVideoTest, AManagerReleasedWhileThePageIsUpSilencesTheDelegateButNotThePage) {
    auto manager = loadedManager({videoAd("r-1", video("/v/clip.mp4", 3))});
    manager->showAdFromRootViewController(root);
    std::weak_ptr<PeloraVideoPlayerVC> page =
        PeloraRewardVideoAdManagerInternal::of(*manager).videoPage();
    host->calls.clear();
    manager.reset();
    tp.advance(3.1);
    ASSERT_FALSE(page.expired()) << "the page is the presenter's until it is dismissed";
    EXPECT_TRUE(host->calls.empty());
    EXPECT_FALSE(page.lock()->closeBtn()->hidden());
    EXPECT_EQ(beaconCount(35), 1);
    tapCenter(page.lock()->closeBtn());
    EXPECT_TRUE(page.expired());
    EXPECT_TRUE(host->calls.empty());
    tp.advance(5);
    expectNothingLeftRunning();
}

// ---- where downloads land --------------------------------------------------------------------

TEST_F(RewardVideoTest, DownloadsLandOnlyInThePeloraFolderUnderTheirLastPathComponent) {
    struct Case {
        std::string path;                     // on the CDN
        std::optional<std::string> fileName;  // in <caches>/Pelora, or refused
    };
    const std::vector<Case> cases = {
        {"/v/ad.mp4?sig=a%2Fb&x=1", "ad.mp4?sig=a%2Fb&x=1"},
        {"/v/..", std::nullopt},
        {"/v/.", std::nullopt},
        {"/v/dir/", "dir"},
        {"/v/" + std::string(4096, 'n') + ".mp4", std::nullopt},
        {"/v/..%2F..%2Fescape.mp4", "..%2F..%2Fescape.mp4"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path.substr(0, 40));
        host->calls.clear();
        auto manager = loadedManager({videoAd("r-1", video(c.path, 3))});
        ASSERT_EQ(host->calls, (Calls{"DidSuccessLoad", "VideoDidLoad"}));
        auto path = manager->cachedVideoPath();
        ASSERT_TRUE(path);
        if (c.fileName) {
            EXPECT_EQ(*path, tp.cachesDirectory() + "/Pelora/" + *c.fileName);
            EXPECT_TRUE(std::filesystem::exists(*path));
        } else {
            // A refused name counts as a failed move: the temporary file is handed on and is
            // gone once the download's completion returned.
            EXPECT_EQ(path->rfind(tp.cachesDirectory() + "/Pelora/", 0), std::string::npos);
            EXPECT_FALSE(std::filesystem::exists(*path));
        }
    }
    // Nothing was written beside the Pelora folder.
    for (const auto& entry : std::filesystem::directory_iterator(tp.cachesDirectory()))
        EXPECT_EQ(entry.path().filename(), "Pelora");
}

TEST(RewardFileCache, EntriesAreSharedAndAnAbsentPathRemovesOne) {
    auto a = PeloraAdCache::init();
    auto b = PeloraAdCache::init();
    a->storeFilePath(std::string("/tmp/x.mp4"), std::string("https://cdn.example/x.mp4"));
    EXPECT_TRUE(b->isDownloadUrl(std::string("https://cdn.example/x.mp4")));
    EXPECT_FALSE(b->isDownloadUrl(std::string("https://cdn.example/x.mp4?")));
    a->storeFilePath(std::string("/tmp/x.mp4"), std::string(""));
    EXPECT_FALSE(b->filePathForRequestUrl(std::string("")));
    a->storeFilePath(std::nullopt, std::string("https://cdn.example/x.mp4"));
    EXPECT_FALSE(b->isDownloadUrl(std::string("https://cdn.example/x.mp4")));
}

TEST(RewardFileCache, FileUrlsKeepAQueryInTheNameAndRoundTrip) {
    const std::string path = "/c/Pelora/ad.mp4?sig=1#x y%";
    const std::string url = pl_fileURLWithPath(path);
    EXPECT_EQ(url, "file:///c/Pelora/ad.mp4%3Fsig=1%23x%20y%25");
    EXPECT_EQ(pl_pathOfFileURL(url), path);
    EXPECT_FALSE(pl_pathOfFileURL("https://cdn.example/a.mp4"));
    EXPECT_FALSE(pl_pathOfFileURL("file:relative.mp4"));
}

}  // namespace
