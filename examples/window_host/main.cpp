// A host with a real window: the splash ad drawn by the SDK's renderer, with a countdown a
// person can skip or tap. Needs a display.
//
//   window_host [AD_SERVER_ORIGIN]     e.g. the sandbox's http://127.0.0.1:PORT

#include <pelora/Pelora.h>
#include <pelora/desktop/Desktop.h>

#include <cstdio>
#include <memory>
#include <string>

namespace {

// [doc:launch-screen]
class LaunchScreen : public PeloraSplashAdViewDelegate {
  public:
    void show(const std::shared_ptr<pelora::ui::Window>& window,
              const std::shared_ptr<pelora::ui::ViewController>& root,
              const std::shared_ptr<LaunchScreen>& self) {
        splash_ = PeloraSplashAdView::initWithSlotID("splash-demo", window->bounds());
        if (!splash_) return enterApp();       // resource bundle missing
        splash_->setDelegate(self);            // held weakly: keep the LaunchScreen alive
        splash_->setRootViewController(root);  // landing pages are presented from here
        splash_->setTolerateTimeout(3.0);      // the ad request's time-out, whole seconds
        window->addSubview(splash_);
        splash_->loadAdData();
    }

    void splashAdDidFailWithError(std::shared_ptr<PeloraSplashAdView>,
                                  const pelora::platform::Error&) override {
        close();
    }
    void splashAdDidClick(std::shared_ptr<PeloraSplashAdView>) override { close(); }
    void splashAdDidClickSkip(std::shared_ptr<PeloraSplashAdView>) override { close(); }
    void splashAdTimeOver(std::shared_ptr<PeloraSplashAdView>) override { close(); }

    bool inApp = false;

  private:
    void close() {
        if (splash_) splash_->removeFromSuperview();
        splash_.reset();
        enterApp();
    }
    void enterApp() { inApp = true; }             // the host's own first screen goes here
    std::shared_ptr<PeloraSplashAdView> splash_;  // you own the view while it is up
};
// [doc:end]

}  // namespace

int main(int argc, char** argv) {
    pelora::desktop::DesktopOptions platform;
    if (argc > 1) platform.sdk.serverOrigin = std::string(argv[1]);
    auto services = pelora::desktop::installDesktopPlatform(platform);
    PeloraSDKManager::setAppID("window-host-example");

    auto window = std::make_shared<pelora::ui::Window>(services.device->screenBounds());
    auto root = std::make_shared<pelora::ui::ViewController>();
    window->setRootViewController(root);
    window->makeKeyAndVisible();

    std::string why;
    pelora::desktop::DesktopWindowOptions options;
    options.title = "Pelora window host";
    options.renderScale = services.device->screenScale();
    auto shown = pelora::desktop::DesktopWindow::open(window, *services.mainRunLoop, options, &why);
    if (!shown) {
        std::fprintf(stderr, "no window: %s\n", why.c_str());
        return 1;
    }
    auto& loop = *services.mainRunLoop;
    shown->setQuitHandler([&] { loop.stop(); });

    auto launch = std::make_shared<LaunchScreen>();
    launch->show(window, root, launch);

    // Until the person is in the app or closes the window.
    loop.runUntil([&] { return launch->inApp || shown->closed(); },
                  loop.clock().monotonicSeconds() + 30);
    return 0;
}
