// A host with a real window: the splash ad drawn by the SDK's renderer, with a countdown a
// person can skip or tap. Needs a display.
//
//   window_host [AD_SERVER_ORIGIN]     e.g. the sandbox's http://127.0.0.1:PORT

#include <pelora/Pelora.h>
#include <pelora/desktop/DesktopPlatform.h>
#include <pelora/desktop/DesktopWindow.h>
#include <pelora/ui/Window.h>

#include <cstdio>
#include <memory>
#include <string>

namespace {

struct Splash : PeloraSplashAdViewDelegate {
    bool over = false;
    void splashAdDidShow(std::shared_ptr<PeloraSplashAdView>) override { std::puts("shown"); }
    void splashAdDidClick(std::shared_ptr<PeloraSplashAdView>) override { std::puts("tapped"); }
    void splashAdDidClickSkip(std::shared_ptr<PeloraSplashAdView>) override { over = true; }
    void splashAdTimeOver(std::shared_ptr<PeloraSplashAdView>) override { over = true; }
    void splashAdDidFailWithError(std::shared_ptr<PeloraSplashAdView>,
                                  const pelora::platform::Error&) override {
        std::puts("no ad");
        over = true;
    }
};

}  // namespace

int main(int argc, char** argv) {
    auto services = pelora::desktop::installDesktopPlatform();
    if (argc > 1) PeloraConstConfig::setBaseUrlOverride(std::string(argv[1]));
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

    auto delegate = std::make_shared<Splash>();
    auto splash = PeloraSplashAdView::initWithSlotID("splash-demo", window->bounds());
    if (!splash) return 1;
    splash->setDelegate(delegate);
    splash->setRootViewController(root);
    window->addSubview(splash);
    splash->loadAdData();

    // Until the splash is over or the person closes the window.
    loop.runUntil([&] { return delegate->over || shown->closed(); },
                  loop.clock().monotonicSeconds() + 30);
    return 0;
}
