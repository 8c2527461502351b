// `pelora demo`: a scripted host application. It starts the sandbox ad server in this process,
// points the SDK at it, shows a splash ad in a headless window (a user who watches the
// countdown, or skips or taps at a chosen second), then loads native ads, renders the first
// one in its own views, registers them and taps it. It prints a timeline of what the SDK
// reported and what the server received, checks every expected step, and fails when one is
// missing.

#include <poll.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "Command.h"
#include "native/PeloraImageDownloader.h"
#include "pelora/Pelora.h"
#include "pelora/desktop/DesktopPlatform.h"
#include "pelora/platform/Log.h"
#include "pelora/platform/Services.h"
#include "pelora/platform/UrlOpener.h"
#include "pelora/sandbox/Sandbox.h"
#include "pelora/ui/UI.h"
#include "track/PeloraTrackEvent.h"

namespace {

using nlohmann::json;
using pelora::platform::Error;
using pelora::platform::makeRect;
namespace ui = pelora::ui;

const char* kSplashSlot = "splash-demo";
const char* kNativeSlot = "native-demo";

// --fast: a clock only the demo moves, one countdown second per step.
class DemoClock final : public pelora::platform::Clock {
  public:
    DemoClock() {
        wallStart_ =
            std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
                .count();
    }
    double monotonicSeconds() const override { return now_.load(); }
    double wallSeconds() const override { return wallStart_ + now_.load(); }
    void advance(double seconds) { now_.store(now_.load() + seconds); }

  private:
    std::atomic<double> now_{0};
    double wallStart_ = 0;
};

std::string trackName(int64_t type) {
    switch (type) {
        case 1:
            return "impression";
        case 2:
            return "click";
        case 16:
            return "deep link failed";
        case 17:
            return "deep link opened";
        default:
            return "event " + std::to_string(type);
    }
}

// Tokens still in a tracking request. The click id is never known on the device, so the SDK
// always leaves "__CLICK_ID__" for the ad server to fill in; every other token must be gone.
bool macrosLeft(const std::string& text) {
    static const std::regex token("__[A-Z0-9_]+__");
    for (auto it = std::sregex_iterator(text.begin(), text.end(), token);
         it != std::sregex_iterator(); ++it) {
        if (it->str() != "__CLICK_ID__") return true;
    }
    return false;
}

// What was printed, and everything the checks at the end look at.
class Demo {
  public:
    Demo(bool jsonOutput, const pelora::platform::Clock* clock)
        : json_(jsonOutput), clock_(clock), start_(clock->monotonicSeconds()) {}

    void note(const std::string& source, const std::string& event, const std::string& text,
              json details = json::object()) {
        double t = clock_->monotonicSeconds() - start_;
        if (json_) {
            details["t"] = std::round(t * 1000) / 1000;
            details["source"] = source;
            details["event"] = event;
            std::cout << details.dump() << "\n";
        } else {
            char stamp[32];
            std::snprintf(stamp, sizeof stamp, "[%6.3fs]", t);
            std::cout << stamp << " " << source
                      << std::string(8 - std::min<size_t>(7, source.size()), ' ') << event
                      << (text.empty() ? "" : "  " + text) << "\n";
        }
        std::cout.flush();
    }

    // Things arriving from other threads (the server's records, log lines), shown from the
    // main loop so the timeline stays in order.
    void queueRecord(const pelora::sandbox::TrackingRecord& record) {
        std::lock_guard lock(mutex_);
        pendingRecords_.push_back(record);
    }
    void queueLog(std::string line) {
        std::lock_guard lock(mutex_);
        pendingLogs_.push_back(std::move(line));
    }
    void drain() {
        std::vector<pelora::sandbox::TrackingRecord> records;
        std::vector<std::string> logs;
        {
            std::lock_guard lock(mutex_);
            records.swap(pendingRecords_);
            logs.swap(pendingLogs_);
        }
        for (const auto& line : logs) note("sdk", "log: " + line, "", {{"line", line}});
        for (const auto& r : records) {
            std::string text = r.method + " " + r.url;
            if (!r.body.empty()) text += "  body " + r.body;
            note("server",
                 "tracking " + trackName(r.trackType) + " (" + r.slot + "/" + r.adId + ")", text,
                 {{"method", r.method},
                  {"url", r.url},
                  {"body", r.body},
                  {"contentType", r.contentType},
                  {"slot", r.slot},
                  {"adId", r.adId},
                  {"trackType", r.trackType}});
            records_.push_back(r);
        }
    }

    const pelora::sandbox::TrackingRecord* record(const std::string& slot, int64_t type) const {
        for (const auto& r : records_)
            if (r.slot == slot && r.trackType == type) return &r;
        return nullptr;
    }

    struct Step {
        std::string name;
        bool ok;
        std::string detail;
    };
    void check(const std::string& name, bool ok, const std::string& detail = {}) {
        steps_.push_back({name, ok, detail});
    }
    bool summary() const {
        bool all = true;
        for (const auto& s : steps_) all = all && s.ok;
        if (json_) {
            json list = json::array();
            for (const auto& s : steps_)
                list.push_back({{"step", s.name}, {"ok", s.ok}, {"detail", s.detail}});
            std::cout << json{{"summary", list}, {"ok", all}}.dump() << "\n";
        } else {
            std::cout << "\nSummary\n";
            for (const auto& s : steps_)
                std::cout << "  " << (s.ok ? "[ok]   " : "[FAIL] ") << s.name
                          << (s.detail.empty() ? "" : "  (" + s.detail + ")") << "\n";
            std::cout << (all ? "\nEvery expected step happened.\n"
                              : "\nSome expected steps did not happen.\n");
        }
        std::cout.flush();
        return all;
    }

  private:
    bool json_;
    const pelora::platform::Clock* clock_;
    double start_;
    std::mutex mutex_;
    std::vector<pelora::sandbox::TrackingRecord> pendingRecords_;
    std::vector<std::string> pendingLogs_;
    std::vector<pelora::sandbox::TrackingRecord> records_;
    std::vector<Step> steps_;
};

// The browser and the other apps of this headless machine: nothing really opens. Landing
// pages "open"; no application owns a deep-link scheme here, so deep links fail and the SDK
// falls back to the landing page, as it would on a phone without the advertiser's app.
class DemoUrlOpener final : public pelora::platform::UrlOpener {
  public:
    explicit DemoUrlOpener(Demo& demo) : demo_(demo) {}
    void openURL(const std::string& url, pelora::platform::UrlOpenPurpose purpose,
                 std::function<void(bool)> completion) override {
        bool landing = purpose == pelora::platform::UrlOpenPurpose::LandingPage;
        bool ok = landing && pelora::platform::isOpenableURL(url, purpose);
        demo_.note("browser", landing ? "open landing page" : "open deep link",
                   url + (ok ? "" : "  (nothing handles it)"), {{"url", url}, {"opened", ok}});
        pelora::platform::services().mainRunLoop->post([completion, ok] {
            if (completion) completion(ok);
        });
    }

  private:
    Demo& demo_;
};

class SplashHost : public PeloraSplashAdViewDelegate {
  public:
    explicit SplashHost(Demo& demo) : demo_(demo) {}
    // Shows the countdown text before each callback, so the two read in the order they
    // happened.
    std::function<void()> beforeCallback;
    void splashAdDidLoad(std::shared_ptr<PeloraSplashAdView>) override {
        loaded = true;
        demo_.note("splash", "splashAdDidLoad", "");
    }
    void splashAdDidFailWithError(std::shared_ptr<PeloraSplashAdView>, const Error& e) override {
        if (beforeCallback) beforeCallback();
        failed = true;
        demo_.note("splash", "splashAdDidFailWithError", e.domain + " " + std::to_string(e.code),
                   {{"domain", e.domain}, {"code", e.code}});
    }
    void splashAdDidShow(std::shared_ptr<PeloraSplashAdView>) override {
        if (beforeCallback) beforeCallback();
        shown = true;
        demo_.note("splash", "splashAdDidShow", "");
    }
    void splashAdDidClick(std::shared_ptr<PeloraSplashAdView>) override {
        if (beforeCallback) beforeCallback();
        ++clicks;
        demo_.note("splash", "splashAdDidClick", "");
    }
    void splashAdDidClickSkip(std::shared_ptr<PeloraSplashAdView>) override {
        if (beforeCallback) beforeCallback();
        skipped = true;
        demo_.note("splash", "splashAdDidClickSkip", "");
    }
    void splashAdTimeOver(std::shared_ptr<PeloraSplashAdView>) override {
        if (beforeCallback) beforeCallback();
        timedOut = true;
        demo_.note("splash", "splashAdTimeOver", "");
    }
    bool finished() const { return failed || timedOut || skipped || clicks > 0; }

    bool loaded = false, failed = false, shown = false, skipped = false, timedOut = false;
    int clicks = 0;

  private:
    Demo& demo_;
};

class NativeHost : public PeloraDataFlowAdManagerDelegate, public PeloraNativeAdDelegate {
  public:
    explicit NativeHost(Demo& demo) : demo_(demo) {}
    void dataFlowAdManagerDidSuccessLoad(
        std::shared_ptr<PeloraDataFlowAdManager>,
        std::vector<std::shared_ptr<PeloraNativeAd>> list) override {
        ads = std::move(list);
        done = true;
        json ids = json::array();
        for (const auto& ad : ads) ids.push_back(ad->adData()->adId.value_or(""));
        demo_.note("native", "dataFlowAdManagerDidSuccessLoad", std::to_string(ads.size()) + " ads",
                   {{"ads", ids}});
    }
    void dataFlowAdManagerDidFailWithError(std::shared_ptr<PeloraDataFlowAdManager>,
                                           const Error& e) override {
        done = true;
        demo_.note("native", "dataFlowAdManagerDidFailWithError",
                   e.domain + " " + std::to_string(e.code),
                   {{"domain", e.domain}, {"code", e.code}});
    }
    void nativeAdDidDidShow(std::shared_ptr<PeloraNativeAd> ad) override {
        shown = true;
        demo_.note("native", "nativeAdDidDidShow", ad->adData()->adId.value_or(""));
    }
    void nativeAdDidClickWithView(std::shared_ptr<PeloraNativeAd> ad,
                                  std::shared_ptr<ui::View> view) override {
        ++clicks;
        demo_.note("native", "nativeAdDidClickWithView",
                   ad->adData()->adId.value_or("") + " on " + (view ? view->className() : "?"));
    }

    std::vector<std::shared_ptr<PeloraNativeAd>> ads;
    bool done = false, shown = false;
    int clicks = 0;

  private:
    Demo& demo_;
};

// Image views whose downloads the timeline reports once they arrive.
struct WatchedImage {
    std::string name;
    std::weak_ptr<ui::ImageView> view;
    bool reported = false;
};

class DemoRun {
  public:
    DemoRun(Demo& demo, pelora::platform::RunLoop& loop, std::shared_ptr<DemoClock> fastClock)
        : demo_(demo), loop_(loop), fast_(std::move(fastClock)) {}

    // Runs the loop until `done` holds or `realSeconds` of real time passed. The wait is in
    // real time in both modes: the network answers in real time even when the countdown's
    // clock is the demo's own.
    bool pumpUntil(const std::function<bool()>& done, double realSeconds) {
        auto deadline = std::chrono::steady_clock::now() +
                        std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                            std::chrono::duration<double>(realSeconds));
        for (;;) {
            step();
            if (done()) return true;
            auto now = std::chrono::steady_clock::now();
            if (now >= deadline) return false;
            double wait = std::min(0.05, std::chrono::duration<double>(deadline - now).count());
            if (!fast_) {
                double timer = loop_.nextTimerDelay();
                if (timer >= 0) wait = std::min(wait, timer);
            }
            pollfd p{loop_.wakeFd(), POLLIN, 0};
            ::poll(&p, 1, static_cast<int>(wait * 1000) + 1);
        }
    }

    // One pass: due work, then what the timeline and the scripted user look at.
    void step() {
        loop_.pump();
        demo_.drain();
        for (auto& w : images) {
            auto view = w.view.lock();
            if (!w.reported && view && view->image()) {
                w.reported = true;
                demo_.note("image", "downloaded " + w.name,
                           std::to_string(view->image()->pixelWidth) + "x" +
                               std::to_string(view->image()->pixelHeight) + " px",
                           {{"image", w.name},
                            {"width", view->image()->pixelWidth},
                            {"height", view->image()->pixelHeight}});
            }
        }
        if (onStep) onStep();
    }

    // --fast: one second of the countdown.
    void tick() {
        if (fast_) fast_->advance(1.0);
        step();
    }

    std::vector<WatchedImage> images;
    std::function<void()> onStep;

  private:
    Demo& demo_;
    pelora::platform::RunLoop& loop_;
    std::shared_ptr<DemoClock> fast_;
};

int runDemo(const std::vector<std::string>& args) {
    using namespace pelora::cli;
    auto parsed = parseArgs(args, {"skip-at", "tap-at"}, {"json", "fast"});
    if (!parsed.error.empty()) return usageError("demo", parsed.error);
    if (!parsed.positional.empty())
        return usageError("demo", "unexpected argument " + parsed.positional[0]);
    std::optional<int64_t> skipAt, tapAt;
    for (const char* name : {"skip-at", "tap-at"}) {
        if (!parsed.has(name)) continue;
        int64_t v = 0;
        if (!parseInt64(parsed.options[name], v) || v < 1 || v > 5)
            return usageError("demo",
                              std::string("--") + name + " takes a second from 5 down to 1");
        (std::string(name) == "skip-at" ? skipAt : tapAt) = v;
    }
    if (skipAt && tapAt) return usageError("demo", "give --skip-at or --tap-at, not both");
    const bool jsonOutput = parsed.hasFlag("json");
    const bool fast = parsed.hasFlag("fast");

    // --- the ad server -------------------------------------------------------------------
    pelora::sandbox::Sandbox sandbox;
    std::string why;
    if (!sandbox.start(pelora::sandbox::SandboxOptions{}, &why)) {
        std::cerr << "pelora: the sandbox did not start: " << why << "\n";
        return 1;
    }

    // --- the platform --------------------------------------------------------------------
    std::shared_ptr<DemoClock> fastClock = fast ? std::make_shared<DemoClock>() : nullptr;
    pelora::desktop::DesktopOptions options;
    options.clock = fastClock;
    options.bundleInfo = {{pelora::platform::kCFBundleName, "PeloraDemo"},
                          {pelora::platform::kCFBundleIdentifier, "com.example.pelorademo"},
                          {pelora::platform::kCFBundleShortVersionString, "1.0.0"},
                          {pelora::platform::kCFBundleVersion, "1"}};
    auto services = pelora::desktop::makeDesktopServices(options);
    Demo demo(jsonOutput, services.clock.get());
    services.urlOpener = std::make_shared<DemoUrlOpener>(demo);
    pelora::platform::installServices(services);
    pelora::platform::setLogSink([&demo](pelora::platform::LogLevel, std::string_view line) {
        demo.queueLog(std::string(line));
    });
    sandbox.setTrackingObserver(
        [&demo](const pelora::sandbox::TrackingRecord& r) { demo.queueRecord(r); });

    demo.note("host", "sandbox listening", sandbox.baseUrl(), {{"baseUrl", sandbox.baseUrl()}});
    PeloraConstConfig::setBaseUrlOverride(sandbox.baseUrl());
    PeloraSDKManager::setAppID("pelora-demo-app");

    auto& loop = *services.mainRunLoop;
    DemoRun run(demo, loop, fastClock);

    auto window = std::make_shared<ui::Window>(services.device->screenBounds());
    auto root = std::make_shared<ui::ViewController>();
    window->setRootViewController(root);
    window->makeKeyAndVisible();

    // --- splash --------------------------------------------------------------------------
    auto splashHost = std::make_shared<SplashHost>(demo);
    auto splash = PeloraSplashAdView::initWithSlotID(kSplashSlot, window->bounds());
    std::vector<std::string> ticks;
    std::string adId;
    bool userActed = false;
    if (!splash) {
        demo.note("host", "no splash view",
                  "PeloraSDKBundle.bundle was not found beside the program");
    } else {
        splash->setDelegate(splashHost);
        splash->setRootViewController(root);
        window->addSubview(splash);
        run.images.push_back({"splash image", splash->imageV()});
        std::weak_ptr<PeloraSplashAdView> weakSplash = splash;
        auto watchCountdown = [&, weakSplash] {
            auto view = weakSplash.lock();
            if (!view || !splashHost->loaded || !view->countL()) return;
            std::string label = view->countL()->text().value_or("");
            if (!ticks.empty() && ticks.back() == label) return;
            if (!view->timer() && label != "0") return;  // the file's placeholder text
            ticks.push_back(label);
            demo.note("splash", "countdown " + label, "", {{"countDown", label}});
        };
        splashHost->beforeCallback = watchCountdown;
        run.onStep = [&, weakSplash, watchCountdown] {
            watchCountdown();
            auto view = weakSplash.lock();
            if (!view || !splashHost->loaded) return;
            if (adId.empty() && view->trackEvent() && view->trackEvent()->ad())
                adId = view->trackEvent()->ad()->adId.value_or("");
            std::string label = view->countL() ? view->countL()->text().value_or("") : "";
            if (userActed || splashHost->finished() || !view->timer()) return;
            auto left = std::to_string(skipAt ? *skipAt : tapAt ? *tapAt : -1);
            if (label != left) return;
            userActed = true;
            std::shared_ptr<ui::View> target =
                skipAt ? std::static_pointer_cast<ui::View>(view->skipBtn())
                       : std::static_pointer_cast<ui::View>(view->imageV());
            auto b = target->bounds();
            auto point = target->convertPointToView({b.width() / 2, b.height() / 2}, nullptr);
            demo.note("user", skipAt ? "taps skip" : "taps the ad",
                      "with " + left + " s left at (" + std::to_string(int(point.x)) + ", " +
                          std::to_string(int(point.y)) + ")");
            window->sendTap(point);
        };

        demo.note("host", "loadAdData", std::string("splash slot ") + kSplashSlot);
        splash->loadAdData();
        run.pumpUntil([&] { return splashHost->loaded || splashHost->failed; }, 10);
        if (splashHost->loaded) {
            // Let the image and the impression arrive before the first second passes, so the
            // timeline reads in the order a person would see it.
            if (fast) {
                run.pumpUntil([&] { return run.images[0].reported && demo.record(kSplashSlot, 1); },
                              3);
                for (int i = 0; i < 10 && !splashHost->finished(); ++i) run.tick();
            } else {
                run.pumpUntil([&] { return splashHost->finished(); }, 9);
            }
            run.pumpUntil(
                [&] {
                    return run.images[0].reported && demo.record(kSplashSlot, 1) &&
                           (!tapAt || demo.record(kSplashSlot, 2));
                },
                3);
        }
        run.onStep = nullptr;
        splashHost->beforeCallback = nullptr;
        demo.note("host", "removes the splash view", "");
        splash->removeFromSuperview();
        splash.reset();
        run.step();
    }

    demo.check("splash ad loaded", splashHost->loaded, adId);
    demo.check("splash ad shown (splashAdDidShow)", splashHost->shown);
    {
        std::vector<std::string> expected;
        int64_t end = skipAt ? *skipAt : tapAt ? *tapAt : 0;
        for (int64_t s = 5; s >= end; --s) expected.push_back(std::to_string(s));
        std::string seen;
        for (const auto& t : ticks) seen += (seen.empty() ? "" : " ") + t;
        demo.check("countdown ticked", ticks == expected, seen);
    }
    if (skipAt) {
        demo.check("skip reported (splashAdDidClickSkip), no time-over",
                   splashHost->skipped && !splashHost->timedOut);
    } else if (tapAt) {
        demo.check("click reported (splashAdDidClick), no time-over",
                   splashHost->clicks == 1 && !splashHost->timedOut);
    } else {
        demo.check("time-over reported (splashAdTimeOver)", splashHost->timedOut);
    }
    demo.check("splash image downloaded", !run.images.empty() && run.images[0].reported);
    {
        auto imp = demo.record(kSplashSlot, 1);
        demo.check("splash impression tracking received, macros substituted",
                   imp && !macrosLeft(imp->url + imp->body), imp ? imp->url : "none");
        if (tapAt) {
            auto click = demo.record(kSplashSlot, 2);
            demo.check("splash click tracking received, macros substituted",
                       click && !macrosLeft(click->url + click->body), click ? click->url : "none");
        }
    }

    // --- native --------------------------------------------------------------------------
    auto nativeHost = std::make_shared<NativeHost>(demo);
    auto slot = std::make_shared<PeloraDataFlowSlot>();
    slot->slotId = kNativeSlot;
    slot->slotWidth = 686;
    slot->slotHeight = 600;
    auto manager = PeloraDataFlowAdManager::initWithSlot(slot);
    manager->setDelegate(nativeHost);
    demo.note("host", "loadAdData", std::string("native slot ") + kNativeSlot);
    manager->loadAdData();
    run.pumpUntil([&] { return nativeHost->done; }, 10);

    std::shared_ptr<PeloraNativeRenderView> container;
    if (!nativeHost->ads.empty()) {
        for (size_t i = 0; i < nativeHost->ads.size(); ++i) {
            auto data = nativeHost->ads[i]->adData();
            demo.note("host", "native ad " + std::to_string(i + 1),
                      data->adId.value_or("") + ": \"" + data->title.value_or("") + "\" — " +
                          data->desc.value_or("") + " (" + data->source.value_or("") + ")",
                      {{"adId", data->adId.value_or("")}, {"title", data->title.value_or("")}});
        }
        auto ad = nativeHost->ads[0];
        auto data = ad->adData();
        // The host's own card: icon and title on top, the picture, the description.
        container = std::make_shared<PeloraNativeRenderView>(makeRect(16, 80, 343, 300));
        auto icon = std::make_shared<ui::ImageView>(makeRect(0, 0, 48, 48));
        auto title = std::make_shared<ui::Label>(makeRect(56, 0, 287, 48));
        auto picture = std::make_shared<ui::ImageView>(makeRect(0, 56, 343, 193));
        auto desc = std::make_shared<ui::Label>(makeRect(0, 256, 343, 44));
        title->setText(data->title);
        desc->setText(data->desc);
        for (const auto& v : std::vector<std::shared_ptr<ui::View>>{icon, title, picture, desc})
            container->addSubview(v);
        root->view()->addSubview(container);
        if (data->icons && !data->icons->empty()) {
            pl_setImageUrl(*icon, data->icons->front());
            run.images.push_back({"native icon", icon});
        }
        if (data->images && !data->images->empty()) {
            pl_setImageUrl(*picture, data->images->front());
            run.images.push_back({"native image", picture});
        }
        ad->setDelegate(nativeHost);
        ad->setRootViewController(root);
        demo.note("host", "registerContainer", "title and picture clickable");
        ad->registerContainer(container, {title, picture});
        run.pumpUntil(
            [&] {
                for (const auto& w : run.images)
                    if (!w.reported) return false;
                return demo.record(kNativeSlot, 1) != nullptr;
            },
            3);
        auto b = picture->bounds();
        auto point = picture->convertPointToView({b.width() / 2, b.height() / 2}, nullptr);
        demo.note(
            "user", "taps the native ad",
            "at (" + std::to_string(int(point.x)) + ", " + std::to_string(int(point.y)) + ")");
        window->sendTap(point);
        run.pumpUntil([&] { return demo.record(kNativeSlot, 2) != nullptr; }, 3);
        run.pumpUntil([] { return false; }, fast ? 0.05 : 0.2);  // stragglers (deep-link reports)
    }

    demo.check("native ads loaded", !nativeHost->ads.empty(),
               std::to_string(nativeHost->ads.size()) + " ads");
    demo.check("native ad shown (nativeAdDidDidShow)", nativeHost->shown);
    demo.check("native ad clicked (nativeAdDidClickWithView)", nativeHost->clicks == 1);
    {
        auto imp = demo.record(kNativeSlot, 1);
        demo.check("native impression tracking received, macros substituted",
                   imp && !macrosLeft(imp->url + imp->body),
                   imp ? imp->method + " " + imp->url : "none");
        auto click = demo.record(kNativeSlot, 2);
        demo.check("native click tracking received, macros substituted",
                   click && !macrosLeft(click->url + click->body), click ? click->url : "none");
    }

    // The host is done with its ads.
    if (container) container->removeFromSuperview();
    container.reset();
    nativeHost->ads.clear();
    manager.reset();
    demo.drain();

    bool ok = demo.summary();
    sandbox.setTrackingObserver(nullptr);
    pelora::platform::setLogSink(nullptr);
    sandbox.stop();
    return ok ? 0 : 1;
}

const bool registered = pelora::cli::registerCommand({
    "demo",
    "demo [--skip-at S | --tap-at S] [--fast] [--json]",
    "play a host app against an in-process sandbox: splash ad, native ads, tracking, summary "
    "(S: seconds left on the countdown, 5..1; --fast: the demo moves the clock itself)",
    runDemo,
});

}  // namespace
