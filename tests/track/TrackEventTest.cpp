#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "FakeServer.h"
#include "LoopbackServer.h"
#include "TestPlatform.h"
#include "pelora/PeloraApiAd.h"
#include "pelora/ui/UI.h"
#include "track/PeloraTrackEvent.h"

using namespace pelora;
using pelora::platform::makeRect;
using pelora::platform::UrlOpenPurpose;
using pelora::testing::FakeServer;
using pelora::testing::RecordedRequest;
using pelora::testing::TestPlatform;
using Texts = std::vector<std::string>;

namespace {

constexpr const char* kNowMs = "1767225600000";  // the manual clock's wall time

class TrackEventTest : public ::testing::Test {
  protected:
    void SetUp() override {
        window->addSubview(container);
        container->addSubview(clickView);
    }

    std::shared_ptr<PeloraRespTrackObject> track(
        int64_t type, std::vector<std::string> urls,
        std::optional<std::string> method = std::nullopt,
        std::optional<std::string> contentType = std::nullopt,
        std::optional<std::string> content = std::nullopt) {
        for (auto& u : urls) u = server.url(u);
        return std::make_shared<PeloraRespTrackObject>(
            PeloraRespTrackObject{type, urls, method, contentType, content});
    }

    std::shared_ptr<PeloraApiAd> ad(std::vector<std::shared_ptr<PeloraRespTrackObject>> tracks,
                                    std::optional<std::string> deeplink = std::nullopt) {
        auto a = std::make_shared<PeloraApiAd>();
        a->adId = "ad-1";
        a->reqSlotW = 640;
        a->reqSlotH = 100;
        a->clickAdUrl = "https://land.example/page";
        a->interactionType = 1;
        a->deeplink = deeplink;
        a->setTrackUrls(std::move(tracks));
        return a;
    }

    // Keep the tracker while tapping: a recognizer whose tracker is gone does nothing.
    std::shared_ptr<PeloraTrackEvent> tracker() {
        auto t = PeloraTrackEvent::init();
        t->setOnAdExposed([this](std::shared_ptr<PeloraApiAd> a) { exposed.push_back(a); });
        t->setOnAdClicked([this](std::shared_ptr<ui::View> v, std::shared_ptr<PeloraApiAd>) {
            clicked.push_back(v);
        });
        return t;
    }

    // The requests to `path` once every request issued so far has been answered.
    std::vector<RecordedRequest> to(const std::string& path) {
        tp.settle();
        std::vector<RecordedRequest> out;
        for (auto& r : server.requests())
            if (r.path == path) out.push_back(r);
        return out;
    }

    // Window (35.7, 75.9) is (15.7, 35.9) in the container, inside the click view.
    void tap() { window->sendTap({35.7, 75.9}); }

    // What the system was asked to open, each as "<purpose> <url>" ("!" when it failed).
    Texts opened() {
        Texts out;
        for (const auto& o : tp.opener->requests())
            out.push_back(std::string(o.result ? "" : "!") +
                          (o.purpose == UrlOpenPurpose::DeepLink ? "link " : "page ") + o.url);
        return out;
    }

    TestPlatform tp{TestPlatform::NetworkKind::Fake};
    FakeServer server{tp};
    std::shared_ptr<ui::Window> window = std::make_shared<ui::Window>(makeRect(0, 0, 320, 480));
    std::shared_ptr<ui::View> container =
        std::make_shared<ui::View>(makeRect(20, 40, 300.9, 250.5));
    std::shared_ptr<ui::View> clickView = std::make_shared<ui::View>(makeRect(10, 10, 100, 50));
    std::vector<std::shared_ptr<PeloraApiAd>> exposed;
    std::vector<std::shared_ptr<ui::View>> clicked;
};

}  // namespace

TEST_F(TrackEventTest, ImpressionNeedsOpacityOfAtLeastPointTwoAtBindTimeAndGoesOutOnce) {
    auto a = ad({track(
        1, {"/imp?w=__WIDTH__&h=__HEIGHT__&rw=__REQ_WIDTH__&rh=__REQ_HEIGHT__"
            "&ts=__TS__&es=__EVENT_TIME_START__&dx=__DOWN_X__&ox=__OFFSET_X__&c=__CLICK_ID__"})});
    auto t = tracker();
    container->setAlpha(0.19);
    t->bindAd(a, container, {clickView});
    EXPECT_TRUE(to("/imp").empty());
    EXPECT_TRUE(exposed.empty());

    // Becoming visible later does not count by itself; binding again does.
    container->setAlpha(0.2);
    EXPECT_TRUE(to("/imp").empty());
    t->bindAd(a, container, {clickView});
    auto imps = to("/imp");
    ASSERT_EQ(imps.size(), 1u);
    EXPECT_EQ(imps[0].method, "GET");
    EXPECT_EQ(imps[0].query, std::string("w=300&h=250&rw=640&rh=100&ts=") + kNowMs +
                                 "&es=" + kNowMs + "&dx=-999&ox=__OFFSET_X__&c=__CLICK_ID__");
    EXPECT_EQ(exposed, std::vector<std::shared_ptr<PeloraApiAd>>{a});

    // The mark lives on the ad: a second bind, even by another tracker, sends nothing.
    t->bindAd(a, container, {clickView});
    tracker()->bindAd(a, container, {clickView});
    EXPECT_EQ(to("/imp").size(), 1u);
    EXPECT_EQ(exposed.size(), 1u);

    // A hidden container exposes nothing; without an impression object an ad still counts as
    // exposed, silently.
    auto hiddenAd = ad({track(1, {"/imp"})});
    container->setHidden(true);
    tracker()->bindAd(hiddenAd, container, {});
    container->setHidden(false);
    auto bare = ad({track(2, {"/click"})});
    tracker()->bindAd(bare, container, {});
    EXPECT_FALSE(hiddenAd->exposed_upload);
    EXPECT_TRUE(bare->exposed_upload);
    EXPECT_EQ(to("/imp").size(), 1u);
    EXPECT_TRUE(to("/click").empty());
    EXPECT_EQ(exposed.size(), 1u);
}

// The recognizer is added once and keeps its tracker: binding again, or from another tracker,
// changes nothing, and once the tracker is gone a tap does nothing.
TEST_F(TrackEventTest, ThreeTapsOpenThreeTimesButTrackTheClickOnce) {
    auto a =
        ad({track(2, {"/click?dx=__DOWN_X__&dy=__DOWN_Y__&ux=__UP_X__&uy=__UP_Y__&ox=__OFFSET_X__"
                      "&oy=__OFFSET_Y__&w=__WIDTH__&ts=__TS__"})});
    auto t = tracker();
    t->bindAd(a, container, {clickView});
    t->bindAd(a, container, {clickView});
    auto second = PeloraTrackEvent::init();
    int secondClicks = 0;
    second->setOnAdClicked([&](auto, auto) { ++secondClicks; });
    second->bindAd(a, container, {clickView});
    EXPECT_EQ(clickView->gestureRecognizers().size(), 1u);
    for (int i = 0; i < 3; ++i) tap();
    EXPECT_EQ(clicked, (std::vector<std::shared_ptr<ui::View>>(3, clickView)));
    EXPECT_EQ(secondClicks, 0);
    EXPECT_EQ(opened(), Texts(3, "page https://land.example/page"));
    // Measured in the container, not in the tapped view.
    auto clicks = to("/click");
    ASSERT_EQ(clicks.size(), 1u);
    EXPECT_EQ(clicks[0].query,
              std::string("dx=15&dy=35&ux=15&uy=35&ox=15&oy=35&w=300&ts=") + kNowMs);
    t.reset();
    tap();
    EXPECT_EQ(clicked.size(), 3u);
}

TEST_F(TrackEventTest, PostObjectsSendTheRewrittenBodyWithTheirContentType) {
    auto a = ad({
        track(1, {"/imp?m=put"}, "PUT", "text/plain"),
        track(2, {"/post?n=1&x=__DOWN_X__", "/post?n=2"}, "post", "application/json",
              "{\"ts\":__TS__,\"x\":__DOWN_X__,\"w\":__WIDTH__}"),
    });
    auto t = tracker();
    t->bindAd(a, container, {clickView});
    tap();
    auto imps = to("/imp");
    ASSERT_EQ(imps.size(), 1u);
    EXPECT_EQ(imps[0].method, "GET");  // any method but POST is a GET
    EXPECT_EQ(imps[0].header("Content-Type"), "text/plain");
    Texts queries;
    for (auto& p : to("/post")) {
        EXPECT_EQ(p.method, "POST");
        EXPECT_EQ(p.header("Content-Type"), "application/json");
        EXPECT_EQ(p.body, std::string("{\"ts\":") + kNowMs + ",\"x\":15,\"w\":300}");
        queries.push_back(p.query);
    }
    std::sort(queries.begin(), queries.end());
    EXPECT_EQ(queries, (Texts{"n=1&x=15", "n=2"}));
}

// The ad server's values cannot add headers to a tracking request or cut its URL short: the URL
// with a NUL goes nowhere (not even to its part before the NUL), the others without the type.
TEST_F(TrackEventTest, ServerValuesNeitherAddHeadersNorCutTheUrl) {
    auto a = ad({
        track(1, {"/imp?k=1"}, std::nullopt, "application/json\r\nX-Injected: 1"),
        track(2, {std::string("/click?a=1\0/elsewhere", 20), "/click?b=2"}, std::nullopt,
              std::string("text/plain\nX-Injected: 2", 24)),
    });
    auto t = tracker();
    t->bindAd(a, container, {clickView});
    tap();
    auto clicks = to("/click");
    ASSERT_EQ(clicks.size(), 1u);
    EXPECT_EQ(clicks[0].query, "b=2");
    ASSERT_EQ(to("/imp").size(), 1u);
    for (const auto& r : {to("/imp")[0], clicks[0]}) {
        EXPECT_FALSE(r.header("Content-Type")) << r.path;
        EXPECT_FALSE(r.header("X-Injected")) << r.path;
    }
}

// A deep link is tried first: one the system cannot open falls back to the landing page and
// tracks 16 with the click's record, one it opens tracks 17 and nothing else, each once per ad.
// An interaction the host triggers opens the same way, without click tracking.
TEST_F(TrackEventTest, DeepLinkOutcomesAreTrackedOncePerAd) {
    tp.opener->failScheme("bad");
    auto tracks = [&] {
        return std::vector{track(2, {"/click"}), track(16, {"/dl16?dx=__DOWN_X__&dy=__DOWN_Y__"}),
                           track(17, {"/dl17"})};
    };
    auto t = tracker();
    t->bindAd(ad(tracks(), "bad://item"), container, {clickView});
    for (size_t opens : {2u, 4u}) {
        tap();
        ASSERT_TRUE(tp.waitFor([&] { return tp.opener->count() == opens; }));
    }
    const std::string page = "page https://land.example/page";
    EXPECT_EQ(opened(), (Texts{"!link bad://item", page, "!link bad://item", page}));
    auto failures = to("/dl16");
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].query, "dx=15&dy=35");  // the record the click built
    EXPECT_TRUE(to("/dl17").empty());
    EXPECT_EQ(to("/click").size(), 1u);

    tp.opener->clear();
    server.clearRequests();
    auto u = tracker();
    u->bindAd(ad(tracks(), "myapp://item"), container, {});
    u->triggerInteraction();
    u->triggerInteraction();
    EXPECT_TRUE(to("/dl16").empty());
    EXPECT_EQ(to("/dl17").size(), 1u);
    EXPECT_TRUE(to("/click").empty());
    EXPECT_EQ(opened(), (Texts{"link myapp://item", "link myapp://item"}));
    EXPECT_EQ(clicked.size(), 2u);  // the taps only
}

TEST_F(TrackEventTest, VideoEventsGoOutOncePerAdAndOnlyWithAnObject) {
    auto video = std::make_shared<PeloraRespVideoObject>();
    auto stranger = std::make_shared<PeloraRespVideoObject>();
    auto startTrack =
        track(31, {"/v31?t=__VIDEO_TIME__&sc=__VIDEO_SCENE__&f=__VIDEO_PLAY_FIRSR_FRAME__"});
    auto clickTrack = track(2, {"/click"});
    auto a = ad({startTrack, clickTrack});
    a->videos = std::vector<std::shared_ptr<PeloraRespVideoObject>>{video};
    auto t = tracker();
    t->bindAd(a, container, {});
    auto modifier = [](PeloraTrackReplace& r) {
        r.__VIDEO_TIME__ = 30;
        r.__VIDEO_SCENE__ = 3;
    };
    t->triggerTrackAdVideo(video, modifier, 31);
    t->triggerTrackAdVideo(video, modifier, 31);
    t->triggerTrackAdVideo(stranger, modifier, 32);
    t->triggerTrackAdVideo(video, modifier, 2);   // clicks only come from taps
    t->triggerTrackAdVideo(video, modifier, 32);  // no object yet: not marked
    EXPECT_EQ(a->uploadEventTypes, std::vector<int64_t>{31});

    a->setTrackUrls(std::vector<std::shared_ptr<PeloraRespTrackObject>>{startTrack, clickTrack,
                                                                        track(32, {"/v32"})});
    t->triggerTrackAdVideo(video, nullptr, 32);
    t->triggerTrackAdVideo(stranger, nullptr, 32);
    auto starts = to("/v31");
    ASSERT_EQ(starts.size(), 1u);
    EXPECT_EQ(starts[0].query, "t=30&sc=3&f=1");
    EXPECT_EQ(to("/v32").size(), 1u);
    EXPECT_TRUE(to("/click").empty());
}
