// `pelora demo`, the rewarded video: a load that downloads the video, the full-screen page
// shown over the host's screen and found on it by its parts' names, played to the end (or
// skipped, or muted on the way), the end page closed, and every video beacon checked once.

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "DemoHost.h"
#include "TrackTypeNames.h"
#include "pelora/Pelora.h"

namespace pelora::cli::demo {

namespace {

using pelora::platform::Error;
using pelora::tools::trackTypeName;

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

}  // namespace

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

}  // namespace pelora::cli::demo
