// The rewarded video from the host's side: loading, choosing, pre-downloading, showing on the
// page, the beacons the ad server receives and the delegate's callbacks, all on the fake
// network, the scripted player and the manual clock.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "RewardTestSupport.h"

using namespace pelora;
using namespace rewardtest;

namespace {

class RewardVideoTest : public RewardFixture {};

// ---- a whole showing -------------------------------------------------------------------------

TEST_F(RewardVideoTest, AFullShowingReportsInOrderSendsEachBeaconOnceAtItsTickAndEndsOnClose) {
    // A signed CDN URL: the query stays in the file's name, escaped in the file URL. The
    // player counts whole seconds: 10.4 seconds are 10, and the video finishes at the tenth.
    auto v = video("/v/clip.mp4?sig=1", 10.4);
    v["videoDuration"] = "7 seconds";  // the player's figure wins once it knows one
    v["endImgUrl"] = kCdn + "/end.png";
    auto manager = loaded({videoAd("r-1", v)});
    EXPECT_EQ(host->calls, (Calls{"DidSuccessLoad", "VideoDidLoad"}));
    const std::string file = tp.cachesDirectory() + "/Pelora/clip.mp4?sig=1";
    EXPECT_EQ(manager->cachedVideoPath(), file);
    EXPECT_EQ(adtest::readFile(file), "video bytes of /v/clip.mp4?sig=1");

    ASSERT_TRUE(manager->showAdFromRootViewController(root));
    auto page = pageOf(*manager);
    auto nav = root->presentedViewController();
    ASSERT_TRUE(page && nav);
    EXPECT_EQ(nav->modalPresentationStyle(), ui::ModalPresentationStyle::OverFullScreen);
    EXPECT_EQ(media->itemURLs(),
              Urls{"file://" + tp.cachesDirectory() + "/Pelora/clip.mp4%3Fsig=1"});
    // The picture lies below the cover, which stays until the item is ready.
    auto player = page->playerView();
    EXPECT_EQ(player->subviews().at(0), player->playerLayer());
    EXPECT_FALSE(player->coverImgV()->hidden());
    EXPECT_TRUE(page->bellBtn()->hidden());
    // What the host would find when it hears of the finish and of the close.
    bool endPageAtFinish = false, pageUpAtClose = true;
    host->onCall = [&](const std::string& call) {
        if (call == "DidPlayFinish")
            endPageAtFinish = !page->endButton()->hidden() && page->bellBtn()->hidden();
        if (call == "DidClose") pageUpAtClose = root->presentedViewController() != nullptr;
    };

    tp.advance(0.1);  // ready: playback starts
    EXPECT_EQ(beaconTypes(), (Types{1, 31}));
    EXPECT_TRUE(player->coverImgV()->hidden());
    EXPECT_FALSE(page->bellBtn()->hidden());
    EXPECT_GE(player->playerLayer()->framesReceived(), 1u);
    // Each quartile goes out at the first whole-second tick past it; skip seconds 0: no skip.
    std::vector<Types> perSecond;
    Calls countdown;
    for (int second = 1; second <= 10; ++second) {
        const size_t before = beaconTypes().size();
        tp.advance(1);
        auto types = beaconTypes();
        perSecond.emplace_back(types.begin() + static_cast<long>(before), types.end());
        countdown.push_back(page->timeBtn()->titleForState(ui::ControlState::Normal).value_or(""));
        EXPECT_TRUE(page->skipBtn()->hidden());
    }
    EXPECT_EQ(perSecond, (std::vector<Types>{{}, {}, {32}, {}, {33}, {}, {}, {34}, {}, {35}}));
    EXPECT_EQ(countdown, (Calls{"9", "8", "7", "6", "5", "4", "3", "2", "1", "0"}));
    EXPECT_EQ(macros(31), "vt=10&vb=0&vst=0&vet=__VIDEO_END_TIME__&vff=1&vlf=0&vsc=3&vpt=1&vs=0");
    EXPECT_EQ(macros(35), "vt=10&vb=0&vst=0&vet=10&vff=1&vlf=1&vsc=3&vpt=1&vs=0");
    EXPECT_EQ(host->calls, (Calls{"DidSuccessLoad", "VideoDidLoad", "DidShow", "DidPlayFinish"}));
    EXPECT_TRUE(endPageAtFinish) << "the end page is up before the host hears of the finish";
    EXPECT_FALSE(page->closeBtn()->hidden());
    EXPECT_EQ(page->endButton()->titleForState(ui::ControlState::Normal), "Install");
    EXPECT_FALSE(page->endImageV()->hidden());
    EXPECT_FALSE(tp.fake->urlsStartingWith(kCdn + "/end.png").empty());
    tapCenter(page->closeBtn());
    EXPECT_EQ(host->calls.back(), "DidClose");
    EXPECT_FALSE(pageUpAtClose) << "the page is gone before the host hears of the close";
    EXPECT_EQ(beaconTypes().back(), 8);
    host->onCall = nullptr;
    page.reset();
    player.reset();
    nav.reset();
    EXPECT_FALSE(pageOf(*manager)) << "the page is released once dismissed";
    manager.reset();
    expectNothingLeftRunning();
}

// The player does not know this video's duration: the server's figure stands in.
TEST_F(RewardVideoTest, WithoutAutoPlayThePageWaitsForTheTapOnItsPlayButton) {
    auto v = video("/v/clip.mp4", 4);
    v["videoDuration"] = "7 seconds";
    media->setScript(fileUrlFor("clip.mp4"), {.duration = 4, .durationKnown = false});
    auto manager = loaded({videoAd("r-1", v)});
    manager->setAutoPlay(false);
    manager->showAdFromRootViewController(root);
    auto player = pageOf(*manager)->playerView();
    tp.advance(3);
    EXPECT_EQ(beaconTypes(), Types{1}) << "nothing plays before the tap";
    EXPECT_FALSE(player->playBtn()->hidden() || player->coverImgV()->hidden());
    EXPECT_EQ(media->lastPlayer()->rate(), 0);
    tapCenter(player->playBtn());
    EXPECT_TRUE(player->playBtn()->hidden());
    EXPECT_EQ(media->lastPlayer()->rate(), 1.0);
    EXPECT_EQ(macros(31), "vt=7&vb=1&vst=0&vet=__VIDEO_END_TIME__&vff=1&vlf=0&vsc=3&vpt=1&vs=0");
    tp.advance(6);
    EXPECT_EQ(host->count("DidPlayFinish"), 0) << "with no known duration time never finishes it";
}

// ---- controls --------------------------------------------------------------------------------

TEST_F(RewardVideoTest, SkipShowsFromTheAdsSkipSecondAndClosesThePageBeforeTheHostHears) {
    auto v = video("/v/clip.mp4", 12);
    v["skipSeconds"] = 5;
    auto manager = loaded({videoAd("r-1", v)});
    manager->showAdFromRootViewController(root);
    auto page = pageOf(*manager);
    tp.advance(4.5);
    EXPECT_TRUE(page->skipBtn()->hidden());
    tp.advance(0.5);
    ASSERT_FALSE(page->skipBtn()->hidden());
    bool pageUpAtSkip = true;
    host->onCall = [&](const std::string&) {
        pageUpAtSkip = root->presentedViewController() != nullptr;
    };
    tapCenter(page->skipBtn());
    EXPECT_EQ(host->calls, (Calls{"DidSuccessLoad", "VideoDidLoad", "DidShow", "DidClickSkip"}));
    EXPECT_FALSE(pageUpAtSkip);
    EXPECT_EQ(beaconTypes().back(), 36);
}

TEST_F(RewardVideoTest, TheBellMutesAndUnmutesThePlayerAndReportsTheMuteOnce) {
    auto manager = loaded({videoAd("r-1", video("/v/clip.mp4", 10))});
    manager->showAdFromRootViewController(root);
    tp.advance(1);
    auto bell = pageOf(*manager)->bellBtn();
    for (bool muted : {true, false}) {
        tapCenter(bell);
        EXPECT_EQ(media->lastPlayer()->muted(), muted);
        const auto& image = bell->imageForState(ui::ControlState::Normal)->name;
        EXPECT_EQ(image.rfind(muted ? "bu_voice_silent@" : "bu_voice@", 0), 0u) << image;
    }
    EXPECT_EQ(beaconTypes(), (Types{1, 31, 41}));
}

// Every tap on a clickable video is reported, its beacon sent once; landing by itself at the
// end opens the destination without counting a click.
TEST_F(RewardVideoTest, TapsAreReportedEachTimeTheClickBeaconOnceAndAutoLandingIsNoClick) {
    auto v = video("/v/clip.mp4", 3);
    v["autoLanding"] = true;
    auto manager = loaded({videoAd("r-1", v)});
    manager->showAdFromRootViewController(root);
    tp.advance(1);
    for (int tap = 0; tap < 2; ++tap) {
        tapCenter(pageOf(*manager)->playerView());
        tp.pump();
    }
    const auto openedByTaps = tp.opener->openedURLs();
    tp.advance(2.1);
    EXPECT_EQ(host->count("DidClick"), 2);
    EXPECT_EQ(beaconTypes(), (Types{1, 31, 32, 2, 33, 34, 35}));
    EXPECT_EQ(tp.opener->openedURLs().size(), openedByTaps.size() + 1);
    EXPECT_EQ(tp.opener->openedURLs().back(), "https://landing.example/r-1");
}

// ---- loading ---------------------------------------------------------------------------------

TEST_F(RewardVideoTest, TheFetchAsksForTypeFourFullScreenInPixelsWithTheSlotsTimeOut) {
    auto manager = newManager();
    manager->adSlot()->tolerateTimeout = 7;
    manager->loadAdData();
    const auto fetch = tp.fake->requests().at(0).request;
    EXPECT_EQ(fetch.timeoutInterval, 7.0);
    EXPECT_EQ(nlohmann::json::parse(fetch.body)["slot"].dump(),
              R"({"acceptedCreativeTypes":2,"acceptedInteractionType":1,"adType":4,)"
              R"("height":1334,"position":5,"slotId":"reward-slot","width":750})");
}

TEST_F(RewardVideoTest, EveryLoadFailureReachesTheDelegateWithItsDomainAndCode) {
    auto noUrl = video("/v/clip.mp4", 3);
    noUrl.erase("videoUrl");
    const std::tuple<const char*, Response, Calls> cases[] = {
        {"time-out",
         Response::failure(platform::URLError::kTimedOut),
         {"DidFailWithError NSURLErrorDomain -1001"}},
        {"no ads", answerWith({}), {"DidFailWithError sdk.data.err -1"}},
        // Only the first ad is considered, even when a later one has a video.
        {"first ad without video",
         answerWith({videoAd("r-1", nullptr), videoAd("r-2", video("/v/clip.mp4", 3))}),
         {"DidFailWithError sdk.data.err -1"}},
        {"video without URL",
         answerWith({videoAd("r-1", noUrl)}),
         {"DidFailWithError sdk.data.err -1"}},
        {"download failed",
         answerWith({videoAd("r-1", video("/v/gone.mp4", 3))}),
         {"DidSuccessLoad", "DidFailWithError sdk.data.err.download -1004"}},
    };
    tp.fake->addResponse(kCdn + "/v/gone.mp4",
                         Response::failure(platform::URLError::kCannotConnectToHost));
    std::shared_ptr<PeloraRewardVideoAdManager> manager;
    for (const auto& [name, fetch, calls] : cases) {
        SCOPED_TRACE(name);
        host->calls.clear();
        tp.fake->addResponse(kFetchUrl, fetch);
        manager = newManager();
        EXPECT_FALSE(manager->showAdFromRootViewController(root)) << "nothing to show unloaded";
        manager->loadAdData();
        tp.pump();
        EXPECT_EQ(host->calls, calls);
    }
    // A failed download leaves the ad chosen: shown, it streams.
    EXPECT_TRUE(manager->showAdFromRootViewController(root));
    EXPECT_EQ(media->itemURLs(), Urls{kCdn + "/v/gone.mp4"});
    EXPECT_TRUE(tp.fake->urlsStartingWith(kCdn + "/v/clip.mp4").empty())
        << "no video of an ad not chosen is fetched";
}

// A video is downloaded once, whichever ad names it, and played from its file; a video not to
// prefetch is ready at once and streams.
TEST_F(RewardVideoTest, AVideoIsDownloadedOnceAndPlayedFromItsFileUnlessItStreams) {
    auto live = video("/v/live.mp4", 3);
    live["prefetch"] = false;
    for (const auto& v : {video("/v/clip.mp4", 3), video("/v/clip.mp4", 3), live}) {
        host->calls.clear();
        auto manager = loaded({videoAd("r-1", v)});
        EXPECT_EQ(host->calls, (Calls{"DidSuccessLoad", "VideoDidLoad"}));
        manager->showAdFromRootViewController(root);
        root->dismissViewControllerAnimated(false, nullptr);
    }
    EXPECT_EQ(tp.fake->urlsStartingWith(kCdn + "/v/"), Urls{kCdn + "/v/clip.mp4"});
    EXPECT_EQ(media->itemURLs(),
              (Urls{fileUrlFor("clip.mp4"), fileUrlFor("clip.mp4"), kCdn + "/v/live.mp4"}));
}

TEST_F(RewardVideoTest, ASecondLoadCancelsTheRunningDownload) {
    tp.fake->setDefaultResponse(std::nullopt);  // the videos never arrive
    auto manager = newManager();
    for (const char* ad : {"r-1", "r-2"}) {
        tp.fake->addResponse(kFetchUrl,
                             answerWith({videoAd(ad, video("/v/" + std::string(ad) + ".mp4", 3))}));
        tp.fake->removeResponse(kCdn + "/v/" + ad + ".mp4");
        manager->loadAdData();
        tp.pump();
    }
    EXPECT_EQ(host->calls, (Calls{"DidSuccessLoad", "DidSuccessLoad",
                                  "DidFailWithError sdk.data.err.download -999"}));
}

// ---- failures while playing ------------------------------------------------------------------

TEST_F(RewardVideoTest, APlaybackFailingOnceIsRetriedAndNeverReported) {
    auto manager = loaded({videoAd("r-1", video("/v/clip.mp4", 5))});
    media->setScript(fileUrlFor("clip.mp4"), {.duration = 5, .failOnPlay = {1}});
    manager->showAdFromRootViewController(root);
    tp.advance(1.5);
    EXPECT_EQ(host->calls, (Calls{"DidSuccessLoad", "VideoDidLoad", "DidShow"}));
    EXPECT_EQ(beaconTypes(), (Types{1, 31}));
    EXPECT_EQ(media->lastPlayer()->playCalls(), 2);
}

TEST_F(RewardVideoTest, APlaybackThatKeepsFailingIsReportedOnTheThirdEntry) {
    auto v = video("/v/clip.mp4", 3);
    v["prefetch"] = false;
    media->setScript(kCdn + "/v/clip.mp4", {.failToLoad = true});
    auto manager = loaded({videoAd("r-1", v)});
    Calls lastHeard;
    for (int show = 0; show < 3; ++show) {
        manager->showAdFromRootViewController(root);
        tp.advance(0.5);
        lastHeard.push_back(host->calls.back());
    }
    EXPECT_EQ(lastHeard, (Calls{"DidShow", "DidShow",
                                "DidFailWithError " + std::string(platform::kMediaErrorDomain) +
                                    " " + std::to_string(platform::MediaError::kDecodeFailed)}));
    EXPECT_EQ(macros(40), "vt=3&vb=0&vst=0&vet=__VIDEO_END_TIME__&vff=1&vlf=0&vsc=3&vpt=1&vs=2");
    EXPECT_EQ(media->playersCreated(), 1u) << "every show played on the page still up";
    EXPECT_TRUE(pageOf(*manager)->closeBtn()->hidden()) << "no close before the video started";
}

// ---- background and foreground ------------------------------------------------------------

TEST_F(RewardVideoTest, ReturningFromTheBackgroundResumesOnlyAVideoThatWasPlaying) {
    auto manager = loaded({videoAd("r-1", video("/v/clip.mp4", 20))});
    manager->showAdFromRootViewController(root);
    tp.advance(2);
    auto view = pageOf(*manager)->playerView();
    auto& center = platform::NotificationCenter::defaultCenter();
    for (bool playing : {true, false}) {
        if (!playing) view->pause();
        center.post(platform::kApplicationDidEnterBackgroundNotification);
        EXPECT_EQ(view->isPlaying(), playing) << "leaving does not pause by itself";
        view->pause();
        center.post(platform::kApplicationWillEnterForegroundNotification);
        EXPECT_EQ(view->isPlaying(), playing);
    }
}

// ---- ownership -------------------------------------------------------------------------------

TEST_F(RewardVideoTest, AManagerReleasedWhileThePageIsUpSilencesTheDelegateButNotThePage) {
    auto manager = loaded({videoAd("r-1", video("/v/clip.mp4", 3))});
    manager->showAdFromRootViewController(root);
    std::weak_ptr<PeloraVideoPlayerVC> page = pageOf(*manager);
    host->calls.clear();
    manager.reset();
    tp.advance(3.1);
    ASSERT_FALSE(page.expired()) << "the page is the presenter's until it is dismissed";
    EXPECT_EQ(beaconTypes(), (Types{1, 31, 32, 33, 34, 35}));
    tapCenter(page.lock()->closeBtn());
    EXPECT_TRUE(page.expired());
    EXPECT_TRUE(host->calls.empty());
    expectNothingLeftRunning();
}

}  // namespace
