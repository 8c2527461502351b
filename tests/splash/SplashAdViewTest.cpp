#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "AdTestSupport.h"
#include "FakeServer.h"
#include "pelora/PeloraSplashAdView.h"
#include "pelora/desktop/ViewRenderer.h"
#include "pelora/ui/UI.h"
#include "splash/PeloraSplashAdConfig.h"
#include "splash/PeloraSplashAdViewInternal.h"
#include "track/PeloraTrackEvent.h"

using namespace pelora;
using adtest::adJson;
using adtest::answer;
using pelora::platform::Error;
using pelora::platform::makeRect;
using pelora::testing::FakeServer;
using pelora::testing::LoopbackResponse;
using pelora::testing::RecordedRequest;
using pelora::testing::TestPlatform;

namespace {

const char* kFetchPath = "/api/v1/advert/fetch";

// Every callback in arrival order, with what the countdown label showed at that moment.
struct SplashRecorder : PeloraSplashAdViewDelegate {
    std::vector<std::string> events;
    std::vector<std::string> labels;
    std::vector<Error> errors;

    void note(const std::string& name, const std::shared_ptr<PeloraSplashAdView>& view) {
        events.push_back(name);
        auto label = view ? view->countL() : nullptr;
        labels.push_back(label ? label->text().value_or("") : "-");
    }
    void splashAdDidLoad(std::shared_ptr<PeloraSplashAdView> v) override { note("load", v); }
    void splashAdDidFailWithError(std::shared_ptr<PeloraSplashAdView> v, const Error& e) override {
        errors.push_back(e);
        note("fail", v);
    }
    void splashAdDidShow(std::shared_ptr<PeloraSplashAdView> v) override { note("show", v); }
    void splashAdDidClick(std::shared_ptr<PeloraSplashAdView> v) override { note("click", v); }
    void splashAdDidClickSkip(std::shared_ptr<PeloraSplashAdView> v) override { note("skip", v); }
    void splashAdTimeOver(std::shared_ptr<PeloraSplashAdView> v) override { note("timeover", v); }
};

using Events = std::vector<std::string>;

class SplashAdViewTest : public ::testing::Test {
  protected:
    void SetUp() override {
        PeloraNetwork::resetSessionsForTesting();
        tp.device->bundlePath = PELORA_SOURCE_DIR "/resources";
        tp.install();
        PeloraConstConfig::setBaseUrlOverride(server.baseUrl());
        setAnswer(answer({adJson(server, "splash-1")}));
        server.on(kFetchPath, [this](const RecordedRequest&) {
            std::lock_guard lock(answerMutex);
            return fetchResponse;
        });
        server.on("/img/splash.png", adtest::png(adtest::pngA()));
        for (const char* path : {"/imp", "/click"})
            server.on(path, LoopbackResponse::text("", 204));
        window->setRootViewController(std::make_shared<ui::ViewController>());
    }
    void TearDown() override {
        PeloraNetwork::resetSessionsForTesting();
        PeloraConstConfig::setBaseUrlOverride(std::nullopt);
    }

    void setAnswer(std::string body, int status = 200) {
        std::lock_guard lock(answerMutex);
        fetchResponse = LoopbackResponse::json(std::move(body), status);
    }
    void setResponse(LoopbackResponse response) {
        std::lock_guard lock(answerMutex);
        fetchResponse = std::move(response);
    }

    std::shared_ptr<PeloraSplashAdView> makeView() {
        auto view = PeloraSplashAdView::initWithSlotID("splash-slot", makeRect(0, 0, 375, 667));
        if (!view) return nullptr;
        view->setDelegate(recorder);
        view->setRootViewController(window->rootViewController());
        window->addSubview(view);
        return view;
    }

    // Loads and waits (in real time, bounded) for the load's outcome.
    std::shared_ptr<PeloraSplashAdView> loadedView(
        const std::function<void(PeloraSplashAdView&)>& before = nullptr) {
        auto view = makeView();
        if (!view) return nullptr;
        if (before) before(*view);
        view->loadAdData();
        EXPECT_TRUE(tp.waitFor([&] { return !recorder->events.empty(); }));
        return view;
    }

    // Every request issued so far has been answered once this returns.
    std::vector<RecordedRequest> settle() {
        tp.settle();
        return server.requests();
    }

    void tapAt(const std::shared_ptr<ui::View>& view) {
        auto b = view->bounds();
        auto p = view->convertPointToView({b.width() / 2, b.height() / 2}, nullptr);
        window->sendTap(p);
    }

    void advanceSeconds(int seconds) {
        for (int i = 0; i < seconds; ++i) tp.advance(1.0);
    }

    // The fake network and the manual clock: nothing here waits in real time.
    TestPlatform tp{TestPlatform::NetworkKind::Fake};
    FakeServer server{tp};
    adtest::LogCapture logs;
    std::mutex answerMutex;
    LoopbackResponse fetchResponse;
    std::shared_ptr<SplashRecorder> recorder = std::make_shared<SplashRecorder>();
    std::shared_ptr<ui::Window> window = std::make_shared<ui::Window>(makeRect(0, 0, 375, 667));
};

// ---- showing and the countdown --------------------------------------------------------------

TEST_F(SplashAdViewTest, VisibleViewLoadsShowsAndTimesOutAfterFiveSeconds) {
    auto view = loadedView();
    ASSERT_TRUE(view);
    EXPECT_EQ(recorder->events, (Events{"load", "show"}));
    EXPECT_EQ(recorder->labels.back(), "5");  // the first countdown text precedes the show
    ASSERT_TRUE(PeloraSplashAdViewInternal::of(*view).timer());

    std::vector<std::string> seen;
    for (int i = 0; i < 4; ++i) {
        tp.advance(1.0);
        seen.push_back(view->countL()->text().value_or(""));
    }
    EXPECT_EQ(seen, (Events{"4", "3", "2", "1"}));
    EXPECT_EQ(recorder->events, (Events{"load", "show"}));

    tp.advance(1.0);
    EXPECT_EQ(recorder->events, (Events{"load", "show", "timeover"}));
    EXPECT_EQ(recorder->labels.back(), "0");
    EXPECT_FALSE(PeloraSplashAdViewInternal::of(*view).timer());
    advanceSeconds(5);
    EXPECT_EQ(recorder->events.size(), 3u);

    // The ad image lands in the image view; it was asked for as an image.
    ASSERT_TRUE(tp.waitFor([&] { return view->imageV()->image() != nullptr; }));
    auto images = server.requestsTo("/img/splash.png");
    ASSERT_EQ(images.size(), 1u);
    EXPECT_EQ(images[0].header("Accept").value_or(""), "image/*");

    // One impression, carrying the slot size the request had (the whole screen in pixels).
    auto all = settle();
    auto impressions = server.requestsTo("/imp");
    ASSERT_EQ(impressions.size(), 1u);
    EXPECT_EQ(impressions[0].param("ad").value_or(""), "splash-1");
    EXPECT_EQ(impressions[0].param("rw").value_or(""), "750");
    EXPECT_EQ(impressions[0].param("w").value_or(""), "375");
}

// What a person sees change from one second to the next: the countdown's digit, nothing else.
TEST_F(SplashAdViewTest, DrawnAtFiveAndFourTheScreenDiffersOnlyInsideTheCountdownLabel) {
    auto view = loadedView();
    ASSERT_TRUE(view);
    ASSERT_TRUE(tp.waitFor([&] { return view->imageV()->image() != nullptr; }));
    pelora::desktop::ViewRenderer renderer(2);
    const int w = renderer.pixelWidth(*window), h = renderer.pixelHeight(*window);
    auto draw = [&] {
        std::vector<uint8_t> pixels(static_cast<size_t>(w) * h * 4);
        renderer.renderInto(*window, pixels.data(), w, h, static_cast<size_t>(w) * 4);
        return pixels;
    };
    ASSERT_EQ(view->countL()->text().value_or(""), "5");
    auto five = draw();
    tp.advance(1.0);
    ASSERT_EQ(view->countL()->text().value_or(""), "4");
    auto four = draw();

    int minX = w, minY = h, maxX = -1, maxY = -1;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const size_t i = (static_cast<size_t>(y) * w + x) * 4;
            if (std::equal(&five[i], &five[i] + 4, &four[i])) continue;
            minX = std::min(minX, x), maxX = std::max(maxX, x);
            minY = std::min(minY, y), maxY = std::max(maxY, y);
        }
    ASSERT_GE(maxX, 0) << "the two seconds look the same";
    auto label = view->countL();
    auto origin = label->convertPointToView({0, 0}, nullptr);
    EXPECT_GE(minX, origin.x * 2);
    EXPECT_GE(minY, origin.y * 2);
    EXPECT_LT(maxX, (origin.x + label->bounds().width()) * 2);
    EXPECT_LT(maxY, (origin.y + label->bounds().height()) * 2);
}

TEST_F(SplashAdViewTest, RequestDescribesTheWholeScreenInPixels) {
    tp.device->bounds = makeRect(0, 0, 414, 896);
    tp.device->scale = 3;
    auto view = loadedView();
    ASSERT_TRUE(view);
    auto body = adtest::fetchBody(server);
    ASSERT_TRUE(body.is_object());
    EXPECT_EQ(body["slot"]["slotId"], "splash-slot");
    EXPECT_EQ(body["slot"]["adType"], 0);
    EXPECT_EQ(body["slot"]["position"], 5);
    EXPECT_EQ(body["slot"]["width"], 1242);
    EXPECT_EQ(body["slot"]["height"], 2688);
}

TEST_F(SplashAdViewTest, SkipAtThreeSecondsLeftStopsTheCountdown) {
    auto view = loadedView();
    ASSERT_TRUE(view);
    advanceSeconds(2);
    ASSERT_EQ(view->countL()->text().value_or(""), "3");

    tapAt(view->skipBtn());
    EXPECT_EQ(recorder->events, (Events{"load", "show", "skip"}));
    EXPECT_FALSE(PeloraSplashAdViewInternal::of(*view).timer());

    advanceSeconds(10);
    EXPECT_EQ(view->countL()->text().value_or(""), "3");
    EXPECT_EQ(recorder->events, (Events{"load", "show", "skip"}));
}

TEST_F(SplashAdViewTest, EveryTapOnTheAdReportsAClickAndStopsTheCountdown) {
    auto view = loadedView();
    ASSERT_TRUE(view);
    advanceSeconds(1);
    for (int i = 0; i < 3; ++i) window->sendTap({100, 400});
    EXPECT_EQ(recorder->events, (Events{"load", "show", "click", "click", "click"}));
    EXPECT_EQ(recorder->labels.back(), "4");

    advanceSeconds(10);
    EXPECT_EQ(recorder->events.size(), 5u);  // no time-over after a click
    EXPECT_EQ(view->countL()->text().value_or(""), "4");

    // Each tap opens the landing page; the click is reported to the server once.
    ASSERT_TRUE(tp.waitFor([&] { return tp.opener->openedURLs().size() == 3; }));
    EXPECT_EQ(tp.opener->openedURLs()[0], "https://landing.example/splash-1");
    settle();
    auto clicks = server.requestsTo("/click");
    ASSERT_EQ(clicks.size(), 1u);
    EXPECT_EQ(clicks[0].param("dx").value_or(""), "100");
    EXPECT_EQ(clicks[0].param("dy").value_or(""), "400");
}

TEST_F(SplashAdViewTest, HiddenSkipButtonStillCountsDownAndTimesOut) {
    auto view = loadedView([](PeloraSplashAdView& v) { v.setHideSkipButton(true); });
    ASSERT_TRUE(view);
    EXPECT_TRUE(view->countL()->hidden());
    EXPECT_TRUE(view->skipBtn()->hidden());
    EXPECT_TRUE(view->skipCV()->hidden());
    advanceSeconds(5);
    EXPECT_EQ(recorder->events, (Events{"load", "show", "timeover"}));

    view->setHideSkipButton(false);
    EXPECT_FALSE(view->countL()->hidden());
    EXPECT_FALSE(view->skipBtn()->hidden());
    EXPECT_FALSE(view->skipCV()->hidden());
}

TEST_F(SplashAdViewTest, NearlyTransparentViewNeverShowsButStillTimesOut) {
    auto view = loadedView([](PeloraSplashAdView& v) { v.setAlpha(0.1); });
    ASSERT_TRUE(view);
    EXPECT_EQ(recorder->events, (Events{"load"}));
    advanceSeconds(5);
    EXPECT_EQ(recorder->events, (Events{"load", "timeover"}));
    settle();
    EXPECT_TRUE(server.requestsTo("/imp").empty());
}

TEST_F(SplashAdViewTest, CreativeTypeOneShowsTheTitleAndDownloadsNoImage) {
    setAnswer(answer({adJson(server, "title-ad", 1)}));
    auto view = loadedView();
    ASSERT_TRUE(view);
    EXPECT_EQ(recorder->events, (Events{"load", "show"}));
    EXPECT_FALSE(view->titleL()->hidden());
    EXPECT_EQ(view->titleL()->text().value_or(""), "Title of title-ad");
    settle();
    EXPECT_TRUE(server.requestsTo("/img/splash.png").empty());
    EXPECT_FALSE(view->imageV()->image());

    // The title is tappable like the image.
    tapAt(view->titleL());
    EXPECT_EQ(recorder->events.back(), "click");
}

TEST_F(SplashAdViewTest, OtherCreativeTypesHideTheTitleAndShowTheImage) {
    setAnswer(answer({adJson(server, "image-ad", 3)}));
    auto view = loadedView([](PeloraSplashAdView& v) { v.titleL()->setHidden(false); });
    ASSERT_TRUE(view);
    EXPECT_TRUE(view->titleL()->hidden());
    EXPECT_TRUE(tp.waitFor([&] { return view->imageV()->image() != nullptr; }));
}

TEST_F(SplashAdViewTest, EmptyImageListLeavesTheImageEmptyAndRunsAsUsual) {
    setAnswer(answer({adJson(server, "no-image", 2, std::nullopt)}));
    auto view = loadedView();
    ASSERT_TRUE(view);
    EXPECT_EQ(recorder->events, (Events{"load", "show"}));
    ASSERT_TRUE(tp.waitFor([&] {
        for (const auto& line : logs.lines())
            if (line.rfind("sdk: image error ", 0) == 0) return true;
        return false;
    }));
    advanceSeconds(5);
    EXPECT_EQ(recorder->events, (Events{"load", "show", "timeover"}));
    EXPECT_FALSE(view->imageV()->image());
}

TEST_F(SplashAdViewTest, TolerateTimeoutIsTruncatedToWholeSeconds) {
    struct Case {
        std::optional<double> tolerate;
        double sent;
    };
    for (auto c : {Case{std::nullopt, 3.0}, Case{2.9, 2.0}, Case{0.5, 0.0}}) {
        recorder->events.clear();
        auto view = loadedView([&](PeloraSplashAdView& v) {
            if (c.tolerate) v.setTolerateTimeout(*c.tolerate);
        });
        ASSERT_TRUE(view);
        std::optional<platform::HttpRequest> fetch;
        for (const auto& r : tp.fake->requests())
            if (r.request.url.find(kFetchPath) != std::string::npos) fetch = r.request;
        ASSERT_TRUE(fetch);
        EXPECT_DOUBLE_EQ(fetch->timeoutInterval, c.sent);
        view->removeFromSuperview();
    }
}

TEST_F(SplashAdViewTest, SecondLoadAfterTheCountReachedZeroTimesOutAtOnce) {
    auto view = loadedView();
    ASSERT_TRUE(view);
    advanceSeconds(5);
    ASSERT_EQ(recorder->events, (Events{"load", "show", "timeover"}));

    setAnswer(answer({adJson(server, "splash-2")}));
    view->loadAdData();
    ASSERT_TRUE(tp.waitFor([&] { return recorder->events.size() >= 6; }));
    EXPECT_EQ(recorder->events, (Events{"load", "show", "timeover", "load", "timeover", "show"}));
    EXPECT_FALSE(PeloraSplashAdViewInternal::of(*view).timer());
}

TEST_F(SplashAdViewTest, ReleasedViewIgnoresItsTimerAndLogsItsEnd) {
    auto view = loadedView();
    ASSERT_TRUE(view);
    ASSERT_TRUE(PeloraSplashAdViewInternal::of(*view).timer());
    std::weak_ptr<PeloraSplashAdView> weak = view;
    view->removeFromSuperview();
    view.reset();
    EXPECT_TRUE(weak.expired());
    EXPECT_TRUE(logs.contains("dealloc PeloraSplashAdView"));
    EXPECT_TRUE(logs.contains("dealloc: PeloraSplashAdConfig"));
    advanceSeconds(6);
    EXPECT_EQ(recorder->events, (Events{"load", "show"}));
}

// A host closes the splash from inside the final callback: it removes the view and drops
// its last reference while the SDK is still on the stack.
struct ClosingHost : SplashRecorder {
    std::shared_ptr<PeloraSplashAdView> view;
    void close(const std::shared_ptr<PeloraSplashAdView>& v) {
        if (v) v->removeFromSuperview();
        view.reset();
    }
    void splashAdDidClick(std::shared_ptr<PeloraSplashAdView> v) override {
        SplashRecorder::splashAdDidClick(v);
        close(v);
    }
    void splashAdDidClickSkip(std::shared_ptr<PeloraSplashAdView> v) override {
        SplashRecorder::splashAdDidClickSkip(v);
        close(v);
    }
    void splashAdTimeOver(std::shared_ptr<PeloraSplashAdView> v) override {
        SplashRecorder::splashAdTimeOver(v);
        close(v);
    }
};

TEST_F(SplashAdViewTest, HostMayReleaseTheViewInsideItsFinalCallback) {
    for (const char* how : {"timeover", "skip", "click"}) {
        SCOPED_TRACE(how);
        auto host = std::make_shared<ClosingHost>();
        host->view = PeloraSplashAdView::initWithSlotID("s", makeRect(0, 0, 375, 667));
        ASSERT_TRUE(host->view);
        host->view->setDelegate(host);
        window->addSubview(host->view);
        std::weak_ptr<PeloraSplashAdView> weak = host->view;
        host->view->loadAdData();
        ASSERT_TRUE(tp.waitFor([&] { return !host->events.empty(); }));
        std::string what = how;
        if (what == "skip") {
            tapAt(weak.lock()->skipBtn());
        } else if (what == "click") {
            window->sendTap({100, 400});
        } else {
            advanceSeconds(5);
        }
        EXPECT_EQ(host->events.back(), what);
        EXPECT_TRUE(weak.expired());
        advanceSeconds(6);
        EXPECT_EQ(host->events.back(), what);
    }
}

// ---- the load's outcomes --------------------------------------------------------------------

TEST_F(SplashAdViewTest, EveryLoadOutcomeReachesTheDelegateWithItsDomainAndCode) {
    struct Case {
        const char* name;
        std::function<void()> arrange;
        std::string domain;
        int64_t code;
    };
    const std::string url = pelora::platform::kURLErrorDomain;
    std::vector<Case> cases = {
        {"time-out", [&] { server.failWith(-1001); }, url, -1001},
        {"transport failure", [&] { server.failWith(-1005); }, url, -1005},
        {"refused connection", [&] { server.failWith(-1004); }, url, -1004},
        {"empty body", [&] { setAnswer("", 200); }, url, -1},
        {"server error without payload", [&] { setAnswer("{\"code\":500}", 500); }, url, -1},
        {"malformed answer", [&] { setAnswer("{\"code\":0,\"data\":", 200); }, url, -1},
        {"no ads", [&] { setAnswer(answer({})); }, "sdk.data.error", -1},
        {"ad without id",
         [&] {
             auto ad = adJson(server, "x");
             ad.erase("adId");
             setAnswer(answer({ad}));
         },
         "sdk.data.error", -1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        server.failWith(std::nullopt);
        PeloraConstConfig::setBaseUrlOverride(server.baseUrl());
        setAnswer(answer({adJson(server, "splash-1")}));
        recorder = std::make_shared<SplashRecorder>();
        c.arrange();
        auto view = loadedView();
        ASSERT_TRUE(view);
        ASSERT_EQ(recorder->events, (Events{"fail"}));
        EXPECT_EQ(recorder->errors[0].domain, c.domain);
        EXPECT_EQ(recorder->errors[0].code, c.code);
        EXPECT_FALSE(PeloraSplashAdViewInternal::of(*view).timer());
        view->removeFromSuperview();
    }
}

TEST_F(SplashAdViewTest, OnlyTheFirstOfSeveralAdsIsShown) {
    setAnswer(answer({adJson(server, "first"), adJson(server, "second"), adJson(server, "third")}));
    auto view = loadedView();
    ASSERT_TRUE(view);
    EXPECT_EQ(recorder->events, (Events{"load", "show"}));
    ASSERT_TRUE(PeloraSplashAdViewInternal::of(*view).trackEvent()->ad());
    EXPECT_EQ(PeloraSplashAdViewInternal::of(*view).trackEvent()->ad()->adId.value_or(""), "first");
    settle();
    auto impressions = server.requestsTo("/imp");
    ASSERT_EQ(impressions.size(), 1u);
    EXPECT_EQ(impressions[0].param("ad").value_or(""), "first");
}

// ---- making the view ------------------------------------------------------------------------

TEST_F(SplashAdViewTest, InterfaceFileGivesAWiredView) {
    auto view = PeloraSplashAdView::initWithSlotID("abc", makeRect(0, 0, 320, 480));
    ASSERT_TRUE(view);
    EXPECT_EQ(view->slotID().value_or(""), "abc");
    EXPECT_EQ(view->frame(), makeRect(0, 0, 320, 480));
    EXPECT_EQ(view->countDown(), 5);
    EXPECT_DOUBLE_EQ(view->tolerateTimeout(), 3.0);
    ASSERT_TRUE(view->imageV() && view->titleL() && view->countL() && view->skipBtn() &&
                view->skipCV());
    EXPECT_DOUBLE_EQ(view->skipCV()->cornerRadius(), view->skipCV()->frame().height() * 0.5);
    EXPECT_TRUE(PeloraSplashAdViewInternal::of(*view).config());
    EXPECT_TRUE(PeloraSplashAdViewInternal::of(*view).trackEvent());
    EXPECT_FALSE(PeloraSplashAdViewInternal::of(*view).timer());
}

TEST_F(SplashAdViewTest, PlainFrameInitializerMakesAnInertView) {
    auto view = PeloraSplashAdView::initWithFrame(makeRect(0, 0, 10, 10));
    ASSERT_TRUE(view);
    EXPECT_TRUE(view->subviews().empty());
    EXPECT_FALSE(PeloraSplashAdViewInternal::of(*view).config());
    view->setDelegate(recorder);
    view->loadAdData();
    settle();
    EXPECT_TRUE(server.requestsTo(kFetchPath).empty());
    EXPECT_TRUE(recorder->events.empty());
}

// ---- the loader on its own ------------------------------------------------------------------

struct ConfigRecorder : PeloraSplashAdConfigDelegate {
    std::vector<std::string> events;
    std::shared_ptr<PeloraSplashAd> data;
    void pl_onConfigTimeout(std::shared_ptr<PeloraSplashAdConfig>) override {
        events.push_back("timeout");
    }
    void pl_onConfigFetchError(std::shared_ptr<PeloraSplashAdConfig>, const Error& e) override {
        events.push_back("error " + e.domain + " " + std::to_string(e.code));
    }
    void pl_onConfigFetchData(std::shared_ptr<PeloraSplashAdConfig>,
                              std::shared_ptr<PeloraSplashAd> ad) override {
        data = ad;
        events.push_back("data");
    }
};

TEST_F(SplashAdViewTest, LoaderReportsTimeOutSeparatelyAndEmptyAnswersAsData) {
    auto config = PeloraSplashAdConfig::init();
    auto delegate = std::make_shared<ConfigRecorder>();
    config->setDelegate(delegate);
    auto slot = std::make_shared<PeloraSplashSlot>();
    slot->slotId = "s";

    server.failWith(-1001);
    config->loadSplashAd(slot);
    ASSERT_TRUE(tp.waitFor([&] { return delegate->events.size() == 1; }));
    EXPECT_EQ(delegate->events[0], "timeout");

    server.failWith(std::nullopt);
    setAnswer(answer({}));
    config->loadSplashAd(slot);
    ASSERT_TRUE(tp.waitFor([&] { return delegate->events.size() == 2; }));
    EXPECT_EQ(delegate->events[1], "data");
    ASSERT_TRUE(delegate->data);
    EXPECT_FALSE(delegate->data->ad);
}

TEST_F(SplashAdViewTest, ReleasedLoaderDropsItsAnswer) {
    auto delegate = std::make_shared<ConfigRecorder>();
    auto slot = std::make_shared<PeloraSplashSlot>();
    slot->slotId = "s";
    {
        auto doomed = PeloraSplashAdConfig::init();
        doomed->setDelegate(delegate);
        doomed->loadSplashAd(slot);
    }
    EXPECT_TRUE(logs.contains("dealloc: PeloraSplashAdConfig"));
    tp.pump();
    ASSERT_EQ(server.requestCount(), 1u);

    // A second loader's answer comes after the first one's was sent.
    auto alive = PeloraSplashAdConfig::init();
    auto other = std::make_shared<ConfigRecorder>();
    alive->setDelegate(other);
    alive->loadSplashAd(slot);
    ASSERT_TRUE(tp.waitFor([&] { return !other->events.empty(); }));
    settle();
    EXPECT_TRUE(delegate->events.empty());
}

}  // namespace
