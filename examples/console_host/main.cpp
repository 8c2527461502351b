// A console host application: no window, no display. It starts the sandbox ad server that
// comes with the SDK, then shows a splash ad, loads native ads and shows a rewarded video,
// printing what the SDK tells it. Exit status 0 when all three worked.
//
//   console_host [PATH/TO/pelora-sandbox]     (default: pelora-sandbox from PATH)

#include <pelora/Pelora.h>
#include <pelora/desktop/DesktopPlatform.h>
#include <pelora/ui/UI.h>
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

struct Native : PeloraDataFlowAdManagerDelegate {
    std::vector<std::shared_ptr<PeloraNativeAd>> ads;
    bool done = false;
    void dataFlowAdManagerDidSuccessLoad(
        std::shared_ptr<PeloraDataFlowAdManager>,
        std::vector<std::shared_ptr<PeloraNativeAd>> nativeAds) override {
        ads = std::move(nativeAds);
        for (const auto& ad : ads)
            std::printf("native: \"%s\"\n", ad->adData()->title.value_or("").c_str());
        done = true;
    }
    void dataFlowAdManagerDidFailWithError(std::shared_ptr<PeloraDataFlowAdManager>,
                                           const pelora::platform::Error& e) override {
        std::printf("native: failed (%s %lld)\n", e.domain.c_str(), static_cast<long long>(e.code));
        done = true;
    }
};

struct Reward : PeloraRewardVideoAdManagerDelegate {
    bool ready = false, failed = false, finished = false, closed = false;
    void rewardVideoAdManagerVideoDidLoad(std::shared_ptr<PeloraRewardVideoAdManager>) override {
        std::puts("reward: video downloaded");
        ready = true;
    }
    void rewardVideoAdManagerDidFailWithError(std::shared_ptr<PeloraRewardVideoAdManager>,
                                              std::optional<pelora::platform::Error>) override {
        std::puts("reward: failed");
        failed = true;
    }
    void rewardVideoAdManagerDidShow(std::shared_ptr<PeloraRewardVideoAdManager>) override {
        std::puts("reward: playing");
    }
    void rewardVideoAdManagerDidPlayFinish(std::shared_ptr<PeloraRewardVideoAdManager>) override {
        std::puts("reward: watched to the end: give the reward");
        finished = true;
    }
    void rewardVideoAdManagerDidClose(std::shared_ptr<PeloraRewardVideoAdManager>) override {
        std::puts("reward: closed");
        closed = true;
    }
};

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
    auto services = pelora::desktop::installDesktopPlatform(options);

    PeloraSDKManager::setAppID("console-host-example");
    // [doc:end]
    PeloraConstConfig::setBaseUrlOverride(sandbox.url);
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
    auto nativeDelegate = std::make_shared<Native>();
    auto slot = std::make_shared<PeloraDataFlowSlot>();
    slot->slotId = "native-demo";
    auto native = PeloraDataFlowAdManager::initWithSlot(slot);
    native->setDelegate(nativeDelegate);
    native->loadAdData();
    waitFor([&] { return nativeDelegate->done; }, 10);

    // 3. A rewarded video: downloaded first, then shown full screen and closed at its end.
    auto rewardDelegate = std::make_shared<Reward>();
    auto rewardSlot = std::make_shared<PeloraRewardVideoSlot>();
    rewardSlot->slotId = "reward-short";
    auto reward = PeloraRewardVideoAdManager::initWithSlot(rewardSlot);
    reward->setDelegate(rewardDelegate);
    reward->loadAdData();
    waitFor([&] { return rewardDelegate->ready || rewardDelegate->failed; }, 20);
    if (rewardDelegate->ready && reward->showAdFromRootViewController(root)) {
        waitFor([&] { return rewardDelegate->finished || rewardDelegate->failed; }, 20);
        // The end page: the user taps close.
        if (auto close = window->viewWithAccessibilityIdentifier("closeBtn")) {
            auto b = close->bounds();
            window->sendTap(close->convertPointToView({b.width() / 2, b.height() / 2}, nullptr));
        }
        waitFor([&] { return rewardDelegate->closed; }, 5);
    }

    const bool ok = splashDelegate->shown && !nativeDelegate->ads.empty() &&
                    rewardDelegate->finished && rewardDelegate->closed;
    std::puts(ok ? "all three ad kinds worked" : "something did not work");
    return ok ? 0 : 1;
}
