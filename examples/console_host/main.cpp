// A console host application: no window, no display. It starts the sandbox ad server that
// comes with the SDK, then shows a splash ad, loads native ads and shows a rewarded video,
// printing what the SDK tells it. Exit status 0 when all three worked.
//
//   console_host [PATH/TO/pelora-sandbox]     (default: pelora-sandbox from PATH)

#include <pelora/Pelora.h>
#include <pelora/desktop/Desktop.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

namespace {

// --- the sandbox ad server, as a child process ----------------------------------------------
class Sandbox {
  public:
    bool start(const std::string& program) {
        int fds[2];
        if (::pipe(fds) != 0) return false;
        pid_ = ::fork();
        if (pid_ == 0) {
            ::dup2(fds[1], STDOUT_FILENO);
            ::close(fds[0]);
            ::close(fds[1]);
            // "--port 0" takes a free port; the first line printed is the server's origin.
            ::execlp(program.c_str(), program.c_str(), "--port", "0", static_cast<char*>(nullptr));
            ::_exit(127);
        }
        ::close(fds[1]);
        if (pid_ < 0) return false;
        out_ = ::fdopen(fds[0], "r");
        char line[256];
        if (!out_ || !std::fgets(line, sizeof line, out_)) return false;
        url = line;
        while (!url.empty() && (url.back() == '\n' || url.back() == '\r')) url.pop_back();
        return url.rfind("http://", 0) == 0;
    }
    ~Sandbox() {
        if (pid_ > 0) {
            ::kill(pid_, SIGTERM);
            ::waitpid(pid_, nullptr, 0);
        }
        if (out_) std::fclose(out_);
    }
    std::string url;

  private:
    pid_t pid_ = -1;
    FILE* out_ = nullptr;
};

// --- the host's delegates ---------------------------------------------------------------------
struct Splash : PeloraSplashAdViewDelegate {
    bool shown = false, over = false;
    void splashAdDidShow(std::shared_ptr<PeloraSplashAdView>) override {
        std::puts("splash: shown");
        shown = true;
    }
    void splashAdTimeOver(std::shared_ptr<PeloraSplashAdView>) override {
        std::puts("splash: countdown over");
        over = true;
    }
    void splashAdDidFailWithError(std::shared_ptr<PeloraSplashAdView>,
                                  const pelora::platform::Error& e) override {
        std::printf("splash: failed (%s %lld)\n", e.domain.c_str(), static_cast<long long>(e.code));
        over = true;
    }
};

// [doc:feed]
class Feed : public PeloraDataFlowAdManagerDelegate,
             public PeloraNativeAdDelegate,
             public std::enable_shared_from_this<Feed> {
  public:
    void dataFlowAdManagerDidSuccessLoad(
        std::shared_ptr<PeloraDataFlowAdManager>,
        std::vector<std::shared_ptr<PeloraNativeAd>> ads) override {
        ads_ = std::move(ads);  // keep them: the SDK does not
        for (auto& ad : ads_) render(ad);
    }
    void dataFlowAdManagerDidFailWithError(std::shared_ptr<PeloraDataFlowAdManager>,
                                           const pelora::platform::Error& error) override {
        std::fprintf(stderr, "native: %s %lld\n", error.domain.c_str(),
                     static_cast<long long>(error.code));
        failed = true;
    }
    void nativeAdDidDidShow(std::shared_ptr<PeloraNativeAd>) override { ++shown; }
    void nativeAdDidClickWithView(std::shared_ptr<PeloraNativeAd>,
                                  std::shared_ptr<pelora::ui::View>) override {}

    void render(const std::shared_ptr<PeloraNativeAd>& ad) {
        auto data = ad->adData();  // title, desc, source, icons, images, ...
        auto card =
            std::make_shared<PeloraNativeRenderView>(pelora::platform::makeRect(0, 0, 343, 300));
        auto title =
            std::make_shared<pelora::ui::Label>(pelora::platform::makeRect(56, 0, 287, 48));
        title->setText(data->title);
        card->addSubview(title);
        // ... image views, description, call to action ...
        feedView->addSubview(card);

        ad->setDelegate(shared_from_this());
        ad->setRootViewController(rootController);
        ad->registerContainer(card, {title /*, image, button ... */});
    }

    std::shared_ptr<pelora::ui::View> feedView;                  // where your cards go
    std::shared_ptr<pelora::ui::ViewController> rootController;  // landing pages open over it
    std::vector<std::shared_ptr<PeloraNativeAd>> ads_;
    bool failed = false;
    int shown = 0;
};
// [doc:end]

// [doc:reward-host]
class RewardHost : public PeloraRewardVideoAdManagerDelegate {
  public:
    void rewardVideoAdManagerVideoDidLoad(std::shared_ptr<PeloraRewardVideoAdManager>) override {
        ready = true;  // enable your "watch a video" button
    }
    void rewardVideoAdManagerDidPlayFinish(std::shared_ptr<PeloraRewardVideoAdManager>) override {
        grantReward();  // the one signal that the video was watched to the end
    }
    void rewardVideoAdManagerDidClose(std::shared_ptr<PeloraRewardVideoAdManager>) override {
        over = true;
    }
    void rewardVideoAdManagerDidClickSkip(std::shared_ptr<PeloraRewardVideoAdManager>) override {
        over = true;
    }
    void rewardVideoAdManagerDidFailWithError(
        std::shared_ptr<PeloraRewardVideoAdManager>,
        std::optional<pelora::platform::Error> error) override {
        if (error)
            std::fprintf(stderr, "reward: %s %lld\n", error->domain.c_str(),
                         static_cast<long long>(error->code));
        over = true;
    }
    void grantReward() {
        std::puts("reward: watched to the end: give the reward");
        rewarded = true;
    }
    bool ready = false, rewarded = false, over = false;
};
// [doc:end]

}  // namespace

int main(int argc, char** argv) {
    Sandbox sandbox;
    if (!sandbox.start(argc > 1 ? argv[1] : "pelora-sandbox")) {
        std::puts("the sandbox did not start (is pelora-sandbox on PATH?)");
        return 1;
    }
    std::printf("sandbox: %s\n", sandbox.url.c_str());

    // [doc:setup]
    pelora::desktop::DesktopOptions options;
    options.bundleInfo = {{"CFBundleName", "Console Host"},
                          {"CFBundleIdentifier", "com.example.consolehost"},
                          {"CFBundleShortVersionString", "1.0.0"},
                          {"CFBundleVersion", "1"}};
    // [doc:end]
    // [doc:limits]
    // What one ad load may cost: bodies past these limits fail with -1103 as they arrive.
    options.sdk.limits.answerBytes = 512 * 1024;      // an ad answer or a tracking reply (1 MiB)
    options.sdk.limits.imageBytes = 8 * 1024 * 1024;  // one image (16 MiB)
    options.sdk.limits.videoBytes = 64ull * 1024 * 1024;  // one video file, on disk (256 MiB)
    // [doc:end]
    // [doc:server]
    // A sandbox or staging server in place of the ad server.
    options.sdk.serverOrigin = sandbox.url;
    // [doc:end]
    // [doc:install]
    auto services = pelora::desktop::installDesktopPlatform(options);
    PeloraSDKManager::setAppID("console-host-example");
    // [doc:end]
    auto& loop = *services.mainRunLoop;
    auto waitFor = [&](const std::function<bool()>& done, double seconds) {
        return loop.runUntil(done, loop.clock().monotonicSeconds() + seconds);
    };

    // The host's screen: a window with a root controller, never drawn here.
    auto window = std::make_shared<pelora::ui::Window>(services.device->screenBounds());
    auto root = std::make_shared<pelora::ui::ViewController>();
    window->setRootViewController(root);
    window->makeKeyAndVisible();

    // 1. A splash ad, watched to the end of its countdown.
    auto splashDelegate = std::make_shared<Splash>();
    auto splash = PeloraSplashAdView::initWithSlotID("splash-demo", window->bounds());
    if (!splash) return 1;  // the SDK logged where it looked for its resource bundle
    splash->setDelegate(splashDelegate);
    splash->setRootViewController(root);
    window->addSubview(splash);
    splash->loadAdData();
    waitFor([&] { return splashDelegate->over; }, 10);
    splash->removeFromSuperview();

    // 2. Native ads: the host draws them from their data.
    auto feed = std::make_shared<Feed>();
    feed->feedView = root->view();
    feed->rootController = root;
    // [doc:native-load]
    auto slot = std::make_shared<PeloraDataFlowSlot>();
    slot->slotId = "native-demo";
    slot->slotWidth = 686;  // sent to the server as is: use the unit your ad platform expects
    slot->slotHeight = 600;
    slot->tolerateTimeout = 3;  // whole seconds
    auto manager = PeloraDataFlowAdManager::initWithSlot(slot);
    manager->setDelegate(feed);
    manager->loadAdData();
    // [doc:end]
    waitFor([&] { return !feed->ads_.empty() || feed->failed; }, 10);
    for (const auto& ad : feed->ads_)
        std::printf("native: \"%s\"\n", ad->adData()->title.value_or("").c_str());
    std::printf("native: %d shown\n", feed->shown);

    // 3. A rewarded video: downloaded first, then shown full screen and closed at its end.
    // [doc:reward-load]
    auto rewardSlot = std::make_shared<PeloraRewardVideoSlot>();
    rewardSlot->slotId = "reward-short";
    rewardSlot->tolerateTimeout = 3;  // whole seconds, for the ad request
    auto host = std::make_shared<RewardHost>();
    auto reward =
        PeloraRewardVideoAdManager::initWithSlot(rewardSlot);  // keep it while the page is up
    reward->setDelegate(host);
    reward->loadAdData();
    // [doc:end]
    waitFor([&] { return host->ready || host->over; }, 20);
    if (host->ready && reward->showAdFromRootViewController(root)) {
        std::puts("reward: playing");
        waitFor([&] { return host->rewarded || host->over; }, 20);
        // The end page: the user taps close.
        if (auto close = window->viewWithAccessibilityIdentifier("closeBtn")) {
            auto b = close->bounds();
            window->sendTap(close->convertPointToView({b.width() / 2, b.height() / 2}, nullptr));
        }
        waitFor([&] { return host->over; }, 5);
        if (host->over) std::puts("reward: closed");
    }

    const bool ok = splashDelegate->shown && !feed->ads_.empty() && feed->shown > 0 &&
                    host->rewarded && host->over;
    std::puts(ok ? "all three ad kinds worked" : "something did not work");
    return ok ? 0 : 1;
}
