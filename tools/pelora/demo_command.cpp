// `pelora demo`: a scripted host application. It starts the sandbox ad server in this process,
// points the SDK at it, shows a splash ad in a headless window (a user who watches the
// countdown, or skips or taps at a chosen second), then loads native ads, renders the first
// one in its own views, registers them and taps it, then loads a rewarded video, lets the SDK
// download it, shows it, watches it to the end (or skips it, or taps mute on the way) and
// closes the end page. It prints a timeline of what the SDK reported and what the server
// received, checks every expected step, and fails when one is missing.

// The parts live in files of their own: demo_splash.cpp, demo_native.cpp, demo_reward.cpp,
// and what they share in DemoHost.h (demo_host.cpp).

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "DemoHost.h"
#include "pelora/Pelora.h"
#include "pelora/desktop/DesktopPlatform.h"
#include "pelora/desktop/DesktopWindow.h"
#include "pelora/platform/Log.h"
#include "pelora/platform/Services.h"
#include "pelora/platform/UrlOpener.h"
#include "pelora/sandbox/Sandbox.h"
#include "pelora/testing/ScriptedMediaPlayer.h"
#include "pelora/ui/UI.h"

namespace {

using namespace pelora::cli::demo;

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
    options.sdk.serverOrigin = sandbox.baseUrl();
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
    PeloraSDKManager::setAppID("pelora-demo-app");

    DemoRun run(demo, *services.mainRunLoop, fastClock);
    auto window = std::make_shared<ui::Window>(services.device->screenBounds());
    window->setBackgroundColor(ui::Color::white());
    auto root = std::make_shared<ui::ViewController>();
    window->setRootViewController(root);
    window->makeKeyAndVisible();
    DemoHost host{demo, run, opt, services, window, root};

    std::unique_ptr<pelora::desktop::DesktopWindow> desktopWindow;
    bool windowClosed = false;
    if (opt.window) {
        desktopWindow = openPersonWindow(host, windowClosed, &why);
        if (!desktopWindow) {
            std::cerr << "pelora: --window: " << why
                      << "\n(without --window the demo plays a scripted user headless)\n";
            sandbox.stop();
            return 1;
        }
    }
    if (!opt.screenshots.empty() && !startScreenshots(host, opt.screenshots, &why)) {
        std::cerr << "pelora: --screenshots: cannot make " << opt.screenshots << ": " << why
                  << "\n";
        sandbox.stop();
        return 1;
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
