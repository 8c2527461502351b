// `pelora demo`: a scripted host application. It starts the sandbox ad server in this process,
// points the SDK at it, shows a splash ad in a headless window (a user who watches the
// countdown, or skips or taps at a chosen second), then loads native ads, renders the first
// one in its own views, registers them and taps it, then loads a rewarded video, lets the SDK
// download it, shows it, watches it to the end (or skips it, or taps mute on the way) and
// closes the end page. It prints a timeline of what the SDK reported and what the server
// received, checks every expected step, and fails when one is missing.

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "Command.h"
#include "TrackTypeNames.h"
#include "pelora/Pelora.h"
#include "pelora/desktop/DesktopPlatform.h"
#include "pelora/desktop/DesktopWindow.h"
#include "pelora/desktop/ViewRenderer.h"
#include "pelora/platform/Log.h"
#include "pelora/platform/Services.h"
#include "pelora/platform/UrlOpener.h"
#include "pelora/sandbox/Sandbox.h"
#include "pelora/testing/ScriptedMediaPlayer.h"
#include "pelora/ui/UI.h"

namespace {

using nlohmann::json;
using pelora::platform::Error;
using pelora::platform::makeRect;
using pelora::tools::trackTypeName;
namespace ui = pelora::ui;

const char* kSplashSlot = "splash-demo";
const char* kNativeSlot = "native-demo";
const char* kRewardSlot = "reward-demo";
// The reward-demo slot's video opens its skip button at this second.
constexpr int64_t kRewardSkipSeconds = 5;

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

// --fast plays the reward demo's 10.4-second video on the scripted player, whose time is the
// demo's clock.
std::shared_ptr<pelora::platform::MediaPlayerService> fastMediaPlayer(
    std::shared_ptr<pelora::platform::RunLoop> loop) {
    auto player = std::make_shared<pelora::testing::ScriptedMediaPlayerService>(std::move(loop));
    pelora::testing::MediaScript script;
    script.duration = 10.4;
    player->setDefaultScript(script);
    return player;
}

// Tokens still in a tracking request. The click id is never known on the device, so the SDK
// always leaves "__CLICK_ID__" for the ad server to fill in; a video's end time is known only
// when it completes, so every other video event leaves "__VIDEO_END_TIME__". Every other
// token must be gone.
bool macrosLeft(const std::string& text, int64_t trackType = 0) {
    static const std::regex token("__[A-Z0-9_]+__");
    for (auto it = std::sregex_iterator(text.begin(), text.end(), token);
         it != std::sregex_iterator(); ++it) {
        if (it->str() == "__CLICK_ID__") continue;
        if (it->str() == "__VIDEO_END_TIME__" && trackType != 35) continue;
        return true;
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
                 "tracking " + trackTypeName(r.trackType) + " (" + r.slot + "/" + r.adId + ")",
                 text,
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
    size_t count(const std::string& slot, int64_t type) const {
        size_t n = 0;
        for (const auto& r : records_) n += r.slot == slot && r.trackType == type;
        return n;
    }

    struct Step {
        std::string name;
        bool ok;
        std::string detail;
    };
    void check(const std::string& name, bool ok, const std::string& detail = {}) {
        steps_.push_back({name, ok, detail});
    }
    void screenshot(const std::string& path) { screenshots_.push_back(path); }
    bool summary() const {
        bool all = true;
        for (const auto& s : steps_) all = all && s.ok;
        if (json_) {
            json list = json::array();
            for (const auto& s : steps_)
                list.push_back({{"step", s.name}, {"ok", s.ok}, {"detail", s.detail}});
            std::cout << json{{"summary", list}, {"screenshots", screenshots_}, {"ok", all}}.dump()
                      << "\n";
        } else {
            std::cout << "\nSummary\n";
            for (const auto& s : steps_)
                std::cout << "  " << (s.ok ? "[ok]   " : "[FAIL] ") << s.name
                          << (s.detail.empty() ? "" : "  (" + s.detail + ")") << "\n";
            if (!screenshots_.empty()) {
                std::cout << "\nScreenshots\n";
                for (const auto& path : screenshots_) std::cout << "  " << path << "\n";
            }
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
    std::vector<std::string> screenshots_;
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
            if (interrupted && interrupted()) return false;
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
    // The person closed the window: every wait ends at once.
    std::function<bool()> interrupted;

  private:
    Demo& demo_;
    pelora::platform::RunLoop& loop_;
    std::shared_ptr<DemoClock> fast_;
};

// ---- options ---------------------------------------------------------------------------------

struct DemoOptions {
    std::optional<int64_t> skipAt, tapAt;  // splash: seconds left on the countdown
    std::optional<int64_t> rewardSkipAt;   // rewarded video: second of playback
    std::optional<int64_t> rewardMuteAt;
    bool json = false;
    bool fast = false;
    bool window = false;      // a person plays the host in a real window
    bool serve = false;       // keep the sandbox and its inspector up after the summary
    std::string screenshots;  // directory for a PNG at each step of the timeline
};

// 0 when the options are usable, otherwise the usage error's exit status.
int parseDemoOptions(const std::vector<std::string>& args, DemoOptions& out) {
    using namespace pelora::cli;
    auto parsed =
        parseArgs(args, {"skip-at", "tap-at", "reward-skip-at", "reward-mute-at", "screenshots"},
                  {"json", "fast", "window", "serve"});
    if (!parsed.error.empty()) return usageError("demo", parsed.error);
    if (!parsed.positional.empty())
        return usageError("demo", "unexpected argument " + parsed.positional[0]);
    struct Range {
        const char* name;
        std::optional<int64_t>* target;
        int64_t low, high;
        const char* meaning;
    };
    const Range ranges[] = {
        {"skip-at", &out.skipAt, 1, 5, "a second from 5 down to 1"},
        {"tap-at", &out.tapAt, 1, 5, "a second from 5 down to 1"},
        {"reward-skip-at", &out.rewardSkipAt, kRewardSkipSeconds, 10,
         "a second of the video from 5 (when skipping opens) to 10"},
        {"reward-mute-at", &out.rewardMuteAt, 1, 9, "a second of the video from 1 to 9"},
    };
    for (const auto& r : ranges) {
        if (!parsed.has(r.name)) continue;
        int64_t v = 0;
        if (!parseInt64(parsed.options[r.name], v) || v < r.low || v > r.high)
            return usageError("demo", std::string("--") + r.name + " takes " + r.meaning);
        *r.target = v;
    }
    if (out.skipAt && out.tapAt) return usageError("demo", "give --skip-at or --tap-at, not both");
    out.json = parsed.hasFlag("json");
    out.fast = parsed.hasFlag("fast");
    out.window = parsed.hasFlag("window");
    out.serve = parsed.hasFlag("serve");
    if (parsed.has("screenshots")) out.screenshots = parsed.options["screenshots"];
    if (out.window && out.fast)
        return usageError("demo",
                          "--fast moves the clock for a scripted user; a person in a "
                          "--window watches real time");
    return 0;
}

// What every part of the demo shares: the timeline, the loop, the window and its controller.
struct DemoHost {
    Demo& demo;
    DemoRun& run;
    const DemoOptions& options;
    const pelora::platform::Services& services;
    std::shared_ptr<ui::Window> window;
    std::shared_ptr<ui::ViewController> root;
    // A person plays the host in a real window: the scripted user only does what the options
    // ask for, and the demo waits for the person's taps.
    bool person = false;
    std::unique_ptr<pelora::desktop::ViewRenderer> shots;  // --screenshots
    std::string shotsDirectory;

    // A PNG of the whole window, listed on the timeline and in the summary.
    void screenshot(const std::string& name) {
        if (!shots) return;
        const std::string path = shotsDirectory + "/" + name + ".png";
        std::string error;
        if (shots->writePNG(*window, path, &error)) {
            demo.note("host", "screenshot " + name, path, {{"path", path}});
            demo.screenshot(path);
        } else {
            demo.note("host", "screenshot " + name + " failed", error);
        }
    }

    // A tap in the middle of `view`, told on the timeline first.
    void tapCenter(const std::shared_ptr<ui::View>& view, const std::string& what,
                   const std::string& when = {}) {
        auto b = view->bounds();
        auto point = view->convertPointToView({b.width() / 2, b.height() / 2}, nullptr);
        demo.note("user", what,
                  (when.empty() ? "" : when + " ") + "at (" + std::to_string(int(point.x)) + ", " +
                      std::to_string(int(point.y)) + ")");
        window->sendTap(point);
    }
};

// ---- splash ----------------------------------------------------------------------------------

struct SplashOutcome {
    std::vector<std::string> ticks;
    std::string adId;
    bool imageReported = false;
};

SplashOutcome showSplash(DemoHost& host, SplashHost& splashHost,
                         const std::shared_ptr<SplashHost>& delegate) {
    auto& demo = host.demo;
    auto& run = host.run;
    const auto& opt = host.options;
    SplashOutcome out;
    auto splash = PeloraSplashAdView::initWithSlotID(kSplashSlot, host.window->bounds());
    if (!splash) {
        demo.note("host", "no splash view",
                  "PeloraSDKBundle.bundle was not found beside the program");
        return out;
    }
    splash->setDelegate(delegate);
    splash->setRootViewController(host.root);
    host.window->addSubview(splash);
    run.images.push_back({"splash image", splash->imageV()});
    const size_t imageIndex = run.images.size() - 1;
    bool userActed = false;
    std::weak_ptr<PeloraSplashAdView> weakSplash = splash;
    auto watchCountdown = [&, weakSplash] {
        auto view = weakSplash.lock();
        // Before the load the label holds the interface file's placeholder text.
        if (!view || !splashHost.loaded || !view->countL()) return;
        std::string label = view->countL()->text().value_or("");
        if (!out.ticks.empty() && out.ticks.back() == label) return;
        out.ticks.push_back(label);
        demo.note("splash", "countdown " + label, "", {{"countDown", label}});
        if (label == "5" || label == "4") host.screenshot("splash-" + label);
    };
    splashHost.beforeCallback = watchCountdown;
    run.onStep = [&, weakSplash, watchCountdown] {
        watchCountdown();
        auto view = weakSplash.lock();
        if (!view || !splashHost.loaded) return;
        if (out.adId.empty() && view->adData()) out.adId = view->adData()->adId.value_or("");
        std::string label = view->countL() ? view->countL()->text().value_or("") : "";
        if (userActed || splashHost.finished()) return;
        auto left = std::to_string(opt.skipAt ? *opt.skipAt : opt.tapAt ? *opt.tapAt : -1);
        if (label != left) return;
        userActed = true;
        std::shared_ptr<ui::View> target = opt.skipAt
                                               ? std::static_pointer_cast<ui::View>(view->skipBtn())
                                               : std::static_pointer_cast<ui::View>(view->imageV());
        host.tapCenter(target, opt.skipAt ? "taps skip" : "taps the ad",
                       "with " + left + " s left");
    };

    demo.note("host", "loadAdData", std::string("splash slot ") + kSplashSlot);
    splash->loadAdData();
    run.pumpUntil([&] { return splashHost.loaded || splashHost.failed; }, 10);
    if (splashHost.loaded) {
        // Let the image and the impression arrive before the first second passes, so the
        // timeline reads in the order a person would see it.
        if (opt.fast) {
            run.pumpUntil(
                [&] { return run.images[imageIndex].reported && demo.record(kSplashSlot, 1); }, 3);
            for (int i = 0; i < 10 && !splashHost.finished(); ++i) run.tick();
        } else {
            run.pumpUntil([&] { return splashHost.finished(); }, 9);
        }
        run.pumpUntil(
            [&] {
                return run.images[imageIndex].reported && demo.record(kSplashSlot, 1) &&
                       (splashHost.clicks == 0 || demo.record(kSplashSlot, 2));
            },
            3);
    }
    run.onStep = nullptr;
    splashHost.beforeCallback = nullptr;
    demo.note("host", "removes the splash view", "");
    splash->removeFromSuperview();
    splash.reset();
    run.step();
    out.imageReported = run.images[imageIndex].reported;
    return out;
}

void runSplashPart(DemoHost& host) {
    auto& demo = host.demo;
    const auto& opt = host.options;
    auto splashHost = std::make_shared<SplashHost>(demo);
    SplashOutcome out = showSplash(host, *splashHost, splashHost);

    demo.check("splash ad loaded", splashHost->loaded, out.adId);
    demo.check("splash ad shown (splashAdDidShow)", splashHost->shown);
    // What the user did: what the options asked the scripted user for, or what the person did.
    const bool skipped = opt.skipAt || (host.person && splashHost->skipped);
    const bool tapped = !skipped && (opt.tapAt || (host.person && splashHost->clicks > 0));
    std::vector<std::string> expected;
    int64_t end = opt.skipAt ? *opt.skipAt : opt.tapAt ? *opt.tapAt : 0;
    if (host.person && (skipped || tapped) && !opt.skipAt && !opt.tapAt && !out.ticks.empty())
        pelora::cli::parseInt64(out.ticks.back(), end);
    for (int64_t s = 5; s >= end; --s) expected.push_back(std::to_string(s));
    std::string seen;
    for (const auto& t : out.ticks) seen += (seen.empty() ? "" : " ") + t;
    demo.check("countdown ticked", out.ticks == expected, seen);
    if (skipped) {
        demo.check("skip reported (splashAdDidClickSkip), no time-over",
                   splashHost->skipped && !splashHost->timedOut);
    } else if (tapped) {
        demo.check("click reported (splashAdDidClick), no time-over",
                   splashHost->clicks == 1 && !splashHost->timedOut);
    } else {
        demo.check("time-over reported (splashAdTimeOver)", splashHost->timedOut);
    }
    demo.check("splash image downloaded", out.imageReported);
    auto imp = demo.record(kSplashSlot, 1);
    demo.check("splash impression tracking received, macros substituted",
               imp && !macrosLeft(imp->url + imp->body), imp ? imp->url : "none");
    if (tapped) {
        auto click = demo.record(kSplashSlot, 2);
        demo.check("splash click tracking received, macros substituted",
                   click && !macrosLeft(click->url + click->body), click ? click->url : "none");
    }
}

// ---- native ----------------------------------------------------------------------------------

// The host's own card for the first ad: icon and title on top, the picture, the description.
// Registers it and taps the picture.
void showNativeCard(DemoHost& host, NativeHost& nativeHost,
                    const std::shared_ptr<NativeHost>& delegate,
                    std::shared_ptr<PeloraNativeRenderView>& container) {
    auto& demo = host.demo;
    auto& run = host.run;
    for (size_t i = 0; i < nativeHost.ads.size(); ++i) {
        auto data = nativeHost.ads[i]->adData();
        demo.note("host", "native ad " + std::to_string(i + 1),
                  data->adId.value_or("") + ": \"" + data->title.value_or("") + "\" — " +
                      data->desc.value_or("") + " (" + data->source.value_or("") + ")",
                  {{"adId", data->adId.value_or("")}, {"title", data->title.value_or("")}});
    }
    auto ad = nativeHost.ads[0];
    auto data = ad->adData();
    container = std::make_shared<PeloraNativeRenderView>(makeRect(16, 80, 343, 300));
    auto icon = std::make_shared<ui::ImageView>(makeRect(0, 0, 48, 48));
    auto title = std::make_shared<ui::Label>(makeRect(56, 0, 287, 48));
    auto picture = std::make_shared<ui::ImageView>(makeRect(0, 56, 343, 193));
    auto desc = std::make_shared<ui::Label>(makeRect(0, 256, 343, 44));
    // The host's own look: a rounded card, a bold title, two lines of grey description.
    container->setBackgroundColor(ui::Color::rgba(0.96, 0.96, 0.97));
    container->setCornerRadius(12);
    container->setClipsToBounds(true);
    title->setText(data->title);
    title->setFontSize(17);
    title->setFontWeight(ui::FontWeight::Bold);
    title->setNumberOfLines(2);
    desc->setText(data->desc);
    desc->setFontSize(14);
    desc->setTextColor(ui::Color::rgba(0.35, 0.36, 0.4));
    desc->setNumberOfLines(2);
    for (const auto& v : std::vector<std::shared_ptr<ui::View>>{icon, title, picture, desc})
        container->addSubview(v);
    host.root->view()->addSubview(container);
    if (data->icons && !data->icons->empty()) {
        pl_setImageUrl(*icon, data->icons->front());
        run.images.push_back({"native icon", icon});
    }
    if (data->images && !data->images->empty()) {
        pl_setImageUrl(*picture, data->images->front());
        run.images.push_back({"native image", picture});
    }
    ad->setDelegate(delegate);
    ad->setRootViewController(host.root);
    demo.note("host", "registerContainer", "title and picture clickable");
    ad->registerContainer(container, {title, picture});
    run.pumpUntil(
        [&] {
            for (const auto& w : run.images)
                if (!w.reported) return false;
            return demo.record(kNativeSlot, 1) != nullptr;
        },
        3);
    host.screenshot("native");
    if (host.person) {
        demo.note("host", "waiting for a tap on the native ad", "up to 30 s");
        run.pumpUntil([&] { return nativeHost.clicks > 0; }, 30);
    } else {
        host.tapCenter(picture, "taps the native ad");
    }
    if (nativeHost.clicks > 0)
        run.pumpUntil([&] { return demo.record(kNativeSlot, 2) != nullptr; }, 3);
    run.pumpUntil([] { return false; }, host.options.fast ? 0.05 : 0.2);  // deep-link reports
}

void runNativePart(DemoHost& host) {
    auto& demo = host.demo;
    auto nativeHost = std::make_shared<NativeHost>(demo);
    auto slot = std::make_shared<PeloraDataFlowSlot>();
    slot->slotId = kNativeSlot;
    slot->slotWidth = 686;
    slot->slotHeight = 600;
    auto manager = PeloraDataFlowAdManager::initWithSlot(slot);
    manager->setDelegate(nativeHost);
    demo.note("host", "loadAdData", std::string("native slot ") + kNativeSlot);
    manager->loadAdData();
    host.run.pumpUntil([&] { return nativeHost->done; }, 10);

    std::shared_ptr<PeloraNativeRenderView> container;
    if (!nativeHost->ads.empty()) showNativeCard(host, *nativeHost, nativeHost, container);

    demo.check("native ads loaded", !nativeHost->ads.empty(),
               std::to_string(nativeHost->ads.size()) + " ads");
    demo.check("native ad shown (nativeAdDidDidShow)", nativeHost->shown);
    // A person may let the ad be: then there is no click to check.
    const bool clickExpected = !host.person || nativeHost->clicks > 0;
    if (clickExpected)
        demo.check("native ad clicked (nativeAdDidClickWithView)", nativeHost->clicks == 1);
    auto imp = demo.record(kNativeSlot, 1);
    demo.check("native impression tracking received, macros substituted",
               imp && !macrosLeft(imp->url + imp->body),
               imp ? imp->method + " " + imp->url : "none");
    auto click = demo.record(kNativeSlot, 2);
    if (clickExpected)
        demo.check("native click tracking received, macros substituted",
                   click && !macrosLeft(click->url + click->body), click ? click->url : "none");

    // The host is done with its ads.
    if (container) container->removeFromSuperview();
    container.reset();
    nativeHost->ads.clear();
    manager.reset();
    demo.drain();
}

// ---- rewarded video --------------------------------------------------------------------------

class RewardHost : public PeloraRewardVideoAdManagerDelegate {
  public:
    explicit RewardHost(Demo& demo) : demo_(demo) {}
    void rewardVideoAdManagerDidSuccessLoad(
        std::shared_ptr<PeloraRewardVideoAdManager> manager) override {
        said("rewardVideoAdManagerDidSuccessLoad");
        auto video = manager->toShowVideo();
        if (video && video->prefetch && !manager->cachedVideoPath())
            demo_.note("host", "video download started", video->videoUrl.value_or(""),
                       {{"url", video->videoUrl.value_or("")}});
    }
    void rewardVideoAdManagerVideoDidLoad(
        std::shared_ptr<PeloraRewardVideoAdManager> manager) override {
        loaded = true;
        path = manager->cachedVideoPath();
        std::error_code ec;
        if (path) bytes = std::filesystem::file_size(*path, ec);
        if (ec) bytes = 0;
        said("rewardVideoAdManagerVideoDidLoad",
             path ? *path + " (" + std::to_string(bytes) + " bytes)" : "streamed at show time");
    }
    void rewardVideoAdManagerDidFailWithError(std::shared_ptr<PeloraRewardVideoAdManager>,
                                              std::optional<Error> e) override {
        failed = true;
        said("rewardVideoAdManagerDidFailWithError",
             e ? e->domain + " " + std::to_string(e->code) : "no error object");
    }
    void rewardVideoAdManagerDidShow(std::shared_ptr<PeloraRewardVideoAdManager>) override {
        said("rewardVideoAdManagerDidShow");
    }
    void rewardVideoAdManagerDidClick(std::shared_ptr<PeloraRewardVideoAdManager>) override {
        said("rewardVideoAdManagerDidClick");
    }
    void rewardVideoAdManagerDidPlayFinish(std::shared_ptr<PeloraRewardVideoAdManager>) override {
        said("rewardVideoAdManagerDidPlayFinish");
    }
    void rewardVideoAdManagerDidClose(std::shared_ptr<PeloraRewardVideoAdManager>) override {
        said("rewardVideoAdManagerDidClose");
    }
    void rewardVideoAdManagerDidClickSkip(std::shared_ptr<PeloraRewardVideoAdManager>) override {
        said("rewardVideoAdManagerDidClickSkip");
    }

    bool heard(const std::string& callback) const {
        return std::find(order.begin(), order.end(), callback) != order.end();
    }
    bool over() const {
        return failed || heard("rewardVideoAdManagerDidClose") ||
               heard("rewardVideoAdManagerDidClickSkip");
    }

    std::vector<std::string> order;
    bool loaded = false, failed = false;
    std::optional<std::string> path;
    uintmax_t bytes = 0;

  private:
    void said(const std::string& callback, const std::string& text = {}) {
        order.push_back(callback);
        demo_.note("reward", callback, text);
    }
    Demo& demo_;
};

// What the timeline saw of the page, and what the scripted user did on it.
struct RewardWatch {
    bool presented = false, released = false, firstFrame = false, started = false;
    std::weak_ptr<ui::View> pageRoot;
    std::vector<std::string> countdown;
    bool skipShown = false, muted = false, skipped = false, closed = false;
    std::optional<double> endPageAt;
    std::string endPage;
    uint64_t frames = 0;
    bool playingShot = false;
};

bool visible(const std::shared_ptr<ui::View>& view) {
    return view && !view->hidden();
}

// The video page as a person, or a UI test, finds it on the screen: its parts by the names
// the page's interface file gives them.
struct PageOnScreen {
    std::shared_ptr<ui::View> root;
    std::shared_ptr<ui::PlayerLayer> layer;
    std::shared_ptr<ui::Button> bell, time, skip, close, endButton;
    std::shared_ptr<ui::ImageView> endImage;

    static std::optional<PageOnScreen> find(ui::Window& window) {
        auto player = window.viewWithAccessibilityIdentifier("playerView");
        if (!player || !player->superview()) return std::nullopt;
        PageOnScreen page;
        page.root = player->superview();
        for (const auto& v : player->subviews())
            if (auto layer = std::dynamic_pointer_cast<ui::PlayerLayer>(v)) page.layer = layer;
        auto button = [&](const char* name) {
            return std::dynamic_pointer_cast<ui::Button>(
                page.root->viewWithAccessibilityIdentifier(name));
        };
        page.bell = button("bellBtn");
        page.time = button("timeBtn");
        page.skip = button("skipBtn");
        page.close = button("closeBtn");
        page.endButton = button("endButton");
        page.endImage = std::dynamic_pointer_cast<ui::ImageView>(
            page.root->viewWithAccessibilityIdentifier("endImageV"));
        return page;
    }
    // The whole second the video has reached.
    int64_t second() const {
        if (!layer || !layer->player()) return 0;
        return static_cast<int64_t>(layer->player()->currentTime().seconds());
    }
};

void watchEndPage(DemoHost& host, const PageOnScreen& page, RewardWatch& watch) {
    if (!visible(page.close)) return;
    const double now = host.services.clock->monotonicSeconds();
    if (!watch.endPageAt) {
        watch.endPageAt = now;
        size_t webViews = 0;
        for (const auto& v : page.root->subviews())
            if (std::dynamic_pointer_cast<ui::WebView>(v)) ++webViews;
        watch.endPage = "close button";
        if (visible(page.endImage)) watch.endPage += ", end image";
        if (visible(page.endButton))
            watch.endPage += ", button \"" + page.endButton->currentTitle().value_or("") + "\"";
        watch.endPage += ", " + std::to_string(webViews) + " blank web views";
        host.demo.note("page", "end page", watch.endPage);
        host.screenshot("end-page");
        return;
    }
    // A person in a window closes the page when they like; the scripted one looks at the
    // end page for a moment first.
    if (host.person || watch.closed || now - *watch.endPageAt < 1.0) return;
    if (page.layer) watch.frames = page.layer->framesReceived();
    watch.closed = true;
    host.tapCenter(page.close, "taps close");
}

void watchCountdown(Demo& demo, const PageOnScreen& page, RewardWatch& watch) {
    if (!visible(page.time)) return;
    auto title = page.time->titleForState(ui::ControlState::Normal);
    if (title && (watch.countdown.empty() || watch.countdown.back() != *title)) {
        watch.countdown.push_back(*title);
        demo.note("page", "countdown " + *title, "", {{"countDown", *title}});
    }
}

void watchRewardPage(DemoHost& host, RewardWatch& watch) {
    auto& demo = host.demo;
    const auto& opt = host.options;
    auto found = PageOnScreen::find(*host.window);
    if (!found) {
        if (watch.presented && !watch.released && watch.pageRoot.expired()) {
            watch.released = true;
            demo.note("page", "dismissed and released", "");
        }
        return;
    }
    const PageOnScreen& page = *found;
    if (!watch.presented) {
        watch.presented = true;
        watch.pageRoot = page.root;
        demo.note("page", "presented over the host's screen", "");
    }
    if (page.layer && page.layer->latestFrame() && !watch.firstFrame) {
        watch.firstFrame = true;
        auto frame = page.layer->latestFrame();
        demo.note("video", "first frame decoded",
                  std::to_string(frame->width) + "x" + std::to_string(frame->height) + " px",
                  {{"width", frame->width}, {"height", frame->height}});
    }
    if (page.layer) watch.frames = std::max(watch.frames, page.layer->framesReceived());
    if (!watch.playingShot && visible(page.bell) && watch.firstFrame && page.second() >= 1) {
        watch.playingShot = true;
        host.screenshot("video-playing");
    }
    if (visible(page.bell) && !watch.started) {
        watch.started = true;
        demo.note("page", "playing: mute and countdown shown", "");
    }
    watchCountdown(demo, page, watch);
    const bool skipVisible = visible(page.skip);
    if (skipVisible && !watch.skipShown) {
        watch.skipShown = true;
        demo.note("page", "skip button shown", "");
    }
    const int64_t second = page.second();
    if (opt.rewardMuteAt && !watch.muted && visible(page.bell) && second >= *opt.rewardMuteAt) {
        watch.muted = true;
        host.tapCenter(page.bell, "taps mute", "at second " + std::to_string(second));
    }
    if (opt.rewardSkipAt && !watch.skipped && skipVisible && second >= *opt.rewardSkipAt) {
        watch.skipped = true;
        host.tapCenter(page.skip, "taps skip", "at second " + std::to_string(second));
        return;
    }
    watchEndPage(host, page, watch);
}

// The video macros of a tracking request, decoded for the timeline.
std::string videoMacros(const pelora::sandbox::TrackingRecord& r) {
    std::string out;
    for (const char* key : {"vt", "vb", "vff", "vlf", "vsc", "vpt", "vs", "vet"}) {
        auto it = r.params.find(key);
        if (it == r.params.end()) continue;
        out += (out.empty() ? "" : " ") + std::string(key) + "=" + it->second;
    }
    return out;
}

void checkRewardTracking(DemoHost& host, const RewardWatch& watch, bool skipped) {
    auto& demo = host.demo;
    std::vector<int64_t> expected = {31};
    if (skipped) {
        expected.push_back(36);
    } else {
        for (int64_t type : {32, 33, 34, 35, 8}) expected.push_back(type);
    }
    if (watch.muted) expected.push_back(41);
    for (int64_t type : expected) {
        auto r = demo.record(kRewardSlot, type);
        size_t count = demo.count(kRewardSlot, type);
        demo.check("video tracking " + trackTypeName(type) + " (" + std::to_string(type) +
                       ") received once, macros substituted",
                   r && count == 1 && !macrosLeft(r->url + r->body, type),
                   r ? videoMacros(*r) + (count == 1 ? "" : ", " + std::to_string(count) + " times")
                     : "none");
    }
    bool noneTwice = true;
    for (int64_t type : {1, 2, 8, 31, 32, 33, 34, 35, 36, 40, 41})
        noneTwice = noneTwice && demo.count(kRewardSlot, type) <= 1;
    demo.check("no reward tracking event sent twice", noneTwice);
}

void runRewardPart(DemoHost& host) {
    auto& demo = host.demo;
    auto& run = host.run;
    const auto& opt = host.options;
    auto rewardHost = std::make_shared<RewardHost>(demo);
    auto slot = std::make_shared<PeloraRewardVideoSlot>();
    slot->slotId = kRewardSlot;
    auto manager = PeloraRewardVideoAdManager::initWithSlot(slot);
    manager->setDelegate(rewardHost);
    demo.note("host", "loadAdData", std::string("reward slot ") + kRewardSlot);
    manager->loadAdData();
    run.pumpUntil([&] { return rewardHost->loaded || rewardHost->failed; }, 20);

    RewardWatch watch;
    bool shown = false;
    if (rewardHost->loaded) {
        demo.note("host", "showAdFromRootViewController", "");
        shown = manager->showAdFromRootViewController(host.root);
        run.onStep = [&] { watchRewardPage(host, watch); };
        if (opt.fast) {
            // A moment of real time after each second lets that second's beacons reach the
            // server, so the timeline shows them where they belong.
            for (int i = 0; i < 30 && !rewardHost->over(); ++i) {
                run.tick();
                run.pumpUntil([] { return false; }, 0.03);
            }
        } else {
            run.pumpUntil([&] { return rewardHost->over(); }, host.person ? 120 : 30);
        }
        run.pumpUntil([&] { return watch.released || !watch.presented; }, 2);
        run.onStep = nullptr;
        // The last beacon (close or skip) is on its way.
        const bool skip = rewardHost->heard("rewardVideoAdManagerDidClickSkip");
        run.pumpUntil([&] { return demo.record(kRewardSlot, skip ? 36 : 8); }, 3);
    }
    // What the user did: the scripted one as the options said, a person as they liked.
    const bool skipped =
        opt.rewardSkipAt || (host.person && rewardHost->heard("rewardVideoAdManagerDidClickSkip"));
    if (host.person && demo.count(kRewardSlot, 41) > 0) watch.muted = true;

    const auto& order = rewardHost->order;
    demo.check("rewarded video loaded (DidSuccessLoad, then VideoDidLoad)",
               order.size() >= 2 && order[0] == "rewardVideoAdManagerDidSuccessLoad" &&
                   order[1] == "rewardVideoAdManagerVideoDidLoad");
    demo.check(
        "video pre-downloaded into the caches directory", rewardHost->path && rewardHost->bytes > 0,
        rewardHost->path.value_or("no file") + ", " + std::to_string(rewardHost->bytes) + " bytes");
    demo.check("page presented (showAdFromRootViewController)", shown && watch.presented);
    demo.check("rewarded video shown (rewardVideoAdManagerDidShow)",
               rewardHost->heard("rewardVideoAdManagerDidShow"));
    demo.check("video decoded: frames reached the drawing layer", watch.frames > 0,
               std::to_string(watch.frames) + " frames");
    std::string seen;
    for (const auto& t : watch.countdown) seen += (seen.empty() ? "" : " ") + t;
    demo.check("video countdown ticked", watch.countdown.size() >= 2, seen);
    if (skipped) {
        demo.check("skip reported (rewardVideoAdManagerDidClickSkip), no finish",
                   rewardHost->heard("rewardVideoAdManagerDidClickSkip") &&
                       !rewardHost->heard("rewardVideoAdManagerDidPlayFinish"));
    } else {
        demo.check("played to the end (rewardVideoAdManagerDidPlayFinish)",
                   rewardHost->heard("rewardVideoAdManagerDidPlayFinish"));
        demo.check("end page shown", watch.endPageAt.has_value(), watch.endPage);
        demo.check("close reported (rewardVideoAdManagerDidClose)",
                   rewardHost->heard("rewardVideoAdManagerDidClose"));
    }
    demo.check("page dismissed and released", watch.released);
    checkRewardTracking(host, watch, skipped);

    manager.reset();
    demo.drain();
}

// ---- the demo --------------------------------------------------------------------------------

// --serve: the record stays in the inspector for a person to look at until Ctrl-C or SIGTERM.
// Whichever thread the signal lands on only writes a byte to a pipe that this thread waits on.
int gStopPipe[2] = {-1, -1};

void onStopSignal(int) {
    char byte = 1;
    [[maybe_unused]] auto n = ::write(gStopPipe[1], &byte, 1);
}

void waitForStopSignal(Demo& demo, const pelora::sandbox::Sandbox& sandbox) {
    if (::pipe(gStopPipe) != 0) return;
    struct sigaction action {};
    action.sa_handler = onStopSignal;
    sigemptyset(&action.sa_mask);
    struct sigaction oldInt {
    }, oldTerm{};
    ::sigaction(SIGINT, &action, &oldInt);
    ::sigaction(SIGTERM, &action, &oldTerm);
    demo.note("host", "serving",
              "the inspector stays at " + sandbox.inspectorUrl() + " until Ctrl-C",
              {{"url", sandbox.inspectorUrl()}});
    pollfd p{gStopPipe[0], POLLIN, 0};
    while (::poll(&p, 1, -1) < 0 && errno == EINTR) {
    }
    ::sigaction(SIGINT, &oldInt, nullptr);
    ::sigaction(SIGTERM, &oldTerm, nullptr);
    ::close(gStopPipe[0]);
    ::close(gStopPipe[1]);
}

int runDemo(const std::vector<std::string>& args) {
    DemoOptions opt;
    if (int status = parseDemoOptions(args, opt)) return status;

    pelora::sandbox::Sandbox sandbox;
    std::string why;
    if (!sandbox.start(pelora::sandbox::SandboxOptions{}, &why)) {
        std::cerr << "pelora: the sandbox did not start: " << why << "\n";
        return 1;
    }

    // --fast moves a clock of its own and plays videos on the scripted player; otherwise
    // everything is real: the system clock, libcurl and GStreamer.
    std::shared_ptr<DemoClock> fastClock = opt.fast ? std::make_shared<DemoClock>() : nullptr;
    pelora::desktop::DesktopOptions options;
    options.clock = fastClock;
    options.bundleInfo = {{pelora::platform::kCFBundleName, "PeloraDemo"},
                          {pelora::platform::kCFBundleIdentifier, "com.example.pelorademo"},
                          {pelora::platform::kCFBundleShortVersionString, "1.0.0"},
                          {pelora::platform::kCFBundleVersion, "1"}};
    auto services = pelora::desktop::makeDesktopServices(options);
    Demo demo(opt.json, services.clock.get());
    services.urlOpener = std::make_shared<DemoUrlOpener>(demo);
    if (opt.fast) services.mediaPlayer = fastMediaPlayer(services.mainRunLoop);
    pelora::platform::installServices(services);
    pelora::platform::setLogSink([&demo](pelora::platform::LogLevel, std::string_view line) {
        demo.queueLog(std::string(line));
    });
    sandbox.setTrackingObserver(
        [&demo](const pelora::sandbox::TrackingRecord& r) { demo.queueRecord(r); });

    demo.note("host", "sandbox listening", sandbox.baseUrl(), {{"baseUrl", sandbox.baseUrl()}});
    demo.note("host", "inspector", "open " + sandbox.inspectorUrl() + " in a browser",
              {{"url", sandbox.inspectorUrl()}});
    PeloraConstConfig::setBaseUrlOverride(sandbox.baseUrl());
    PeloraSDKManager::setAppID("pelora-demo-app");

    DemoRun run(demo, *services.mainRunLoop, fastClock);
    auto window = std::make_shared<ui::Window>(services.device->screenBounds());
    window->setBackgroundColor(ui::Color::white());
    auto root = std::make_shared<ui::ViewController>();
    window->setRootViewController(root);
    window->makeKeyAndVisible();
    DemoHost host{demo, run, opt, services, window, root};
    const double scale = services.device->screenScale();

    std::unique_ptr<pelora::desktop::DesktopWindow> desktopWindow;
    bool windowClosed = false;
    if (opt.window) {
        pelora::desktop::DesktopWindowOptions windowOptions;
        windowOptions.title = "Pelora demo";
        windowOptions.renderScale = scale;
        desktopWindow = pelora::desktop::DesktopWindow::open(window, *services.mainRunLoop,
                                                             windowOptions, &why);
        if (!desktopWindow) {
            std::cerr << "pelora: --window: " << why
                      << "\n(without --window the demo plays a scripted user headless)\n";
            sandbox.stop();
            return 1;
        }
        desktopWindow->setQuitHandler([&] {
            windowClosed = true;
            demo.note("user", "closes the window", "");
        });
        run.interrupted = [&] { return windowClosed; };
        host.person = true;
        demo.note("host", "window open",
                  std::to_string(int(window->bounds().width())) + "x" +
                      std::to_string(int(window->bounds().height())) +
                      " points, one screen pixel per point; drawn at scale " +
                      std::to_string(int(scale)),
                  {{"windowId", desktopWindow->nativeWindowId()}});
    }
    if (!opt.screenshots.empty()) {
        std::error_code ec;
        std::filesystem::create_directories(opt.screenshots, ec);
        if (ec) {
            std::cerr << "pelora: --screenshots: cannot make " << opt.screenshots << ": "
                      << ec.message() << "\n";
            sandbox.stop();
            return 1;
        }
        host.shots = std::make_unique<pelora::desktop::ViewRenderer>(scale);
        host.shotsDirectory = opt.screenshots;
    }

    runSplashPart(host);
    if (!windowClosed) runNativePart(host);
    if (!windowClosed) runRewardPart(host);
    if (desktopWindow)
        demo.note("host", "window frames",
                  std::to_string(desktopWindow->framesPresented()) + " presented");
    desktopWindow.reset();

    bool ok = demo.summary();
    sandbox.setTrackingObserver(nullptr);
    pelora::platform::setLogSink(nullptr);
    if (opt.serve) waitForStopSignal(demo, sandbox);
    sandbox.stop();
    return ok ? 0 : 1;
}

const bool registered = pelora::cli::registerCommand({
    "demo",
    "demo [--skip-at S | --tap-at S] [--reward-skip-at V] [--reward-mute-at V] [--fast] [--json]\n"
    "     [--window] [--screenshots DIR] [--serve]",
    "play a host app against an in-process sandbox: splash ad, native ads, rewarded video, "
    "tracking, summary (S: seconds left on the splash countdown, 5..1; V: second of the video, "
    "5..10 for skip, 1..9 for mute; --fast: the demo moves the clock itself and plays the video "
    "on a scripted player; --window: a person plays the host in a real window; --screenshots: "
    "a PNG of the screen at each step; --serve: keep the sandbox and its inspector page up after "
    "the summary until Ctrl-C)",
    runDemo,
});

}  // namespace
