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
        tp.device->bundlePath = PELORA_SOURCE_DIR "/resources";
        tp.options.serverOrigin = server.baseUrl();
        tp.install();
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

// Of several ads the first is shown; it counts down 5..1, ends once at 0, asks for its image as
// an image and is exposed once, with the request's slot size in the impression.
TEST_F(SplashAdViewTest, TheFirstAdCountsDownFromFiveAndEndsOnce) {
    setAnswer(answer({adJson(server, "first"), adJson(server, "second")}));
    auto view = loadedView();
    ASSERT_TRUE(view);
    EXPECT_EQ(recorder->events, (Events{"load", "show"}));
    EXPECT_EQ(recorder->labels.back(), "5");  // the first countdown text precedes the show
    EXPECT_EQ(view->adData()->adId.value_or(""), "first");

    Events seen;
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

    ASSERT_TRUE(tp.waitFor([&] { return view->imageV()->image() != nullptr; }));
    auto images = server.requestsTo("/img/splash.png");
    ASSERT_EQ(images.size(), 1u);
    EXPECT_EQ(images[0].header("Accept").value_or(""), "image/*");
    settle();
    auto impressions = server.requestsTo("/imp");
    ASSERT_EQ(impressions.size(), 1u);
    EXPECT_EQ(impressions[0].param("ad").value_or(""), "first");
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
    auto five = draw();
    tp.advance(1.0);
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

// The request: the slot, the whole screen in pixels, the time-out cut to whole seconds.
TEST_F(SplashAdViewTest, TheRequestCarriesTheSlotTheScreenInPixelsAndWholeSeconds) {
    tp.device->bounds = makeRect(0, 0, 414, 896);
    tp.device->scale = 3;
    for (auto [tolerate, sent] : {std::pair{-1.0, 3.0}, {2.9, 2.0}, {0.5, 0.0}}) {
        SCOPED_TRACE(tolerate);
        auto view = loadedView([&](PeloraSplashAdView& v) {
            if (tolerate >= 0) v.setTolerateTimeout(tolerate);
        });
        ASSERT_TRUE(view);
        auto body = adtest::fetchBody(server);
        EXPECT_EQ(body["slot"], (nlohmann::json{{"slotId", "splash-slot"},
                                                {"adType", 0},
                                                {"position", 5},
                                                {"width", 1242},
                                                {"height", 2688},
                                                {"acceptedCreativeTypes", 2},
                                                {"acceptedInteractionType", 1}}));
        EXPECT_DOUBLE_EQ(tp.fake->requests()[0].request.timeoutInterval, sent);
        tp.fake->clearRequests();
        server.clearRequests();
        view->removeFromSuperview();
    }
}

// Skip and a tap on the ad both stop the countdown for good; a tap opens the landing page every
// time and sends the click beacon, with the tap's place, once.
TEST_F(SplashAdViewTest, SkipAndTapsStopTheCountdown) {
    for (std::string how : {"skip", "click"}) {
        SCOPED_TRACE(how);
        recorder = std::make_shared<SplashRecorder>();
        auto view = loadedView();
        ASSERT_TRUE(view);
        advanceSeconds(2);
        Events expected{"load", "show"};
        if (how == "skip") {
            tapAt(view->skipBtn());
            expected.push_back("skip");
        } else {
            for (int i = 0; i < 3; ++i) window->sendTap({100, 400});
            expected.insert(expected.end(), 3, "click");
        }
        EXPECT_EQ(recorder->events, expected);
        EXPECT_FALSE(PeloraSplashAdViewInternal::of(*view).timer());
        advanceSeconds(10);
        EXPECT_EQ(view->countL()->text().value_or(""), "3");
        EXPECT_EQ(recorder->events, expected);
        view->removeFromSuperview();
    }
    ASSERT_TRUE(tp.waitFor([&] { return tp.opener->openedURLs().size() == 3; }));
    EXPECT_EQ(tp.opener->openedURLs()[0], "https://landing.example/splash-1");
    settle();
    auto clicks = server.requestsTo("/click");
    ASSERT_EQ(clicks.size(), 1u);
    EXPECT_EQ(clicks[0].param("dx").value_or(""), "100");
    EXPECT_EQ(clicks[0].param("dy").value_or(""), "400");
}

// What the view shows for each kind of ad and set-up; the countdown runs out in every case.
TEST_F(SplashAdViewTest, EachCreativeAndSetUpShowsWhatItShould) {
    struct Case {
        const char* name;
        nlohmann::json ad;
        std::function<void(PeloraSplashAdView&)> before;
        Events afterLoad;
        std::function<void(PeloraSplashAdView&)> check;
    };
    const Events shown{"load", "show"};
    std::vector<Case> cases = {
        {"hidden skip button", adJson(server, "a"), [](auto& v) { v.setHideSkipButton(true); },
         shown,
         [](PeloraSplashAdView& v) {
             EXPECT_TRUE(v.countL()->hidden() && v.skipBtn()->hidden() && v.skipCV()->hidden());
             v.setHideSkipButton(false);
             EXPECT_FALSE(v.countL()->hidden() || v.skipBtn()->hidden() || v.skipCV()->hidden());
         }},
        {"nearly transparent",
         adJson(server, "a"),
         [](auto& v) { v.setAlpha(0.1); },
         {"load"},
         [&](PeloraSplashAdView&) { EXPECT_TRUE(server.requestsTo("/imp").empty()); }},
        {"title creative", adJson(server, "t", 1), nullptr, shown,
         [&](PeloraSplashAdView& v) {
             EXPECT_FALSE(v.titleL()->hidden());
             EXPECT_EQ(v.titleL()->text().value_or(""), "Title of t");
             EXPECT_TRUE(server.requestsTo("/img/splash.png").empty());
             tapAt(v.titleL());  // tappable like the image
             EXPECT_EQ(recorder->events.back(), "click");
         }},
        {"image creative", adJson(server, "i", 3), [](auto& v) { v.titleL()->setHidden(false); },
         shown,
         [&](PeloraSplashAdView& v) {
             EXPECT_TRUE(v.titleL()->hidden());
             EXPECT_TRUE(tp.waitFor([&] { return v.imageV()->image() != nullptr; }));
         }},
        {"no image", adJson(server, "n", 2, std::nullopt), nullptr, shown,
         [&](PeloraSplashAdView& v) {
             EXPECT_TRUE(tp.waitFor([&] {
                 for (const auto& line : logs.lines())
                     if (line.rfind("sdk: image error ", 0) == 0) return true;
                 return false;
             }));
             EXPECT_FALSE(v.imageV()->image());
         }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        setAnswer(answer({c.ad}));
        server.clearRequests();
        recorder = std::make_shared<SplashRecorder>();
        auto view = loadedView(c.before);
        ASSERT_TRUE(view);
        EXPECT_EQ(recorder->events, c.afterLoad);
        settle();
        c.check(*view);
        if (recorder->events.back() == "click") continue;
        advanceSeconds(5);
        EXPECT_EQ(recorder->events.back(), "timeover");
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
}

// A host closes the splash from inside the final callback: it removes the view and drops its
// last reference while the SDK is still on the stack. A view released mid-countdown is quiet.
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

TEST_F(SplashAdViewTest, TheHostMayReleaseTheViewAtAnyPoint) {
    for (std::string how : {"timeover", "skip", "click", "mid-countdown"}) {
        SCOPED_TRACE(how);
        auto host = std::make_shared<ClosingHost>();
        host->view = PeloraSplashAdView::initWithSlotID("s", makeRect(0, 0, 375, 667));
        ASSERT_TRUE(host->view);
        host->view->setDelegate(host);
        window->addSubview(host->view);
        std::weak_ptr<PeloraSplashAdView> weak = host->view;
        host->view->loadAdData();
        ASSERT_TRUE(tp.waitFor([&] { return !host->events.empty(); }));
        if (how == "skip") {
            tapAt(weak.lock()->skipBtn());
        } else if (how == "click") {
            window->sendTap({100, 400});
        } else if (how == "timeover") {
            advanceSeconds(5);
        } else {
            host->close(host->view);
            how = "show";
        }
        EXPECT_EQ(host->events.back(), how);
        EXPECT_TRUE(weak.expired());
        advanceSeconds(6);
        EXPECT_EQ(host->events.back(), how);
    }
    EXPECT_TRUE(logs.contains("dealloc PeloraSplashAdView"));
    EXPECT_TRUE(logs.contains("dealloc: PeloraSplashAdConfig"));
    EXPECT_EQ(tp.manualLoop->timerCount(), 0u);
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

// The loader tells a time-out apart from other failures, and an answer without ads is data.
TEST_F(SplashAdViewTest, TheLoaderReportsTimeOutsApartAndEmptyAnswersAsData) {
    struct Loader : PeloraSplashAdConfigDelegate {
        Events events;
        void pl_onConfigTimeout(std::shared_ptr<PeloraSplashAdConfig>) override {
            events.push_back("timeout");
        }
        void pl_onConfigFetchError(std::shared_ptr<PeloraSplashAdConfig>, const Error& e) override {
            events.push_back("error " + std::to_string(e.code));
        }
        void pl_onConfigFetchData(std::shared_ptr<PeloraSplashAdConfig>,
                                  std::shared_ptr<PeloraSplashAd> ad) override {
            events.push_back(ad && !ad->ad ? "no ad" : "ad");
        }
    };
    auto config = PeloraSplashAdConfig::init();
    auto delegate = std::make_shared<Loader>();
    config->setDelegate(delegate);
    auto slot = std::make_shared<PeloraSplashSlot>();
    for (auto [fail, answerBody] : {std::pair<std::optional<int>, std::string>{-1001, ""},
                                    {-1004, ""},
                                    {std::nullopt, answer({})}}) {
        server.failWith(fail);
        setAnswer(answerBody);
        config->loadSplashAd(slot);
        settle();
    }
    EXPECT_EQ(delegate->events, (Events{"timeout", "error -1004", "no ad"}));
}

TEST_F(SplashAdViewTest, TheInterfaceFileGivesAWiredViewAndAPlainFrameAnInertOne) {
    auto view = PeloraSplashAdView::initWithSlotID("abc", makeRect(0, 0, 320, 480));
    ASSERT_TRUE(view);
    EXPECT_EQ(view->slotID().value_or(""), "abc");
    EXPECT_EQ(view->frame(), makeRect(0, 0, 320, 480));
    EXPECT_EQ(view->countDown(), 5);
    ASSERT_TRUE(view->imageV() && view->titleL() && view->countL() && view->skipBtn() &&
                view->skipCV());
    EXPECT_DOUBLE_EQ(view->skipCV()->cornerRadius(), view->skipCV()->frame().height() * 0.5);

    auto inert = PeloraSplashAdView::initWithFrame(makeRect(0, 0, 10, 10));
    EXPECT_TRUE(inert->subviews().empty());
    inert->setDelegate(recorder);
    inert->loadAdData();
    settle();
    EXPECT_TRUE(server.requestsTo(kFetchPath).empty());
    EXPECT_TRUE(recorder->events.empty());
}

}  // namespace
