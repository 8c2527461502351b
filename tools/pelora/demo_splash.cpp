// `pelora demo`, the splash ad: a full-screen splash view in the host's window, its countdown
// watched second by second, and a scripted user who lets it run out, skips it or taps the ad
// at the second the options name.

#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "DemoHost.h"
#include "pelora/Pelora.h"

namespace pelora::cli::demo {

namespace {

using pelora::platform::Error;

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

}  // namespace

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

}  // namespace pelora::cli::demo
