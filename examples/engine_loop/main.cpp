// A game engine showing a splash ad as a texture. Once per frame the engine pumps the SDK's
// run loop, asks the renderer whether the ad's window changed, uploads the pixels only when
// it did, and hands the player's clicks on the texture to the window as taps.
//
//   engine_loop [AD_SERVER_ORIGIN]     e.g. the sandbox's http://127.0.0.1:PORT
//
// The engine here is a stand-in (a texture that counts uploads, a click on the skip button at
// frame 90) so the sample runs anywhere; replace it with your engine's calls.

#include <pelora/Pelora.h>
#include <pelora/desktop/Desktop.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <thread>

namespace {

// --- your engine -------------------------------------------------------------------------
struct Texture {
    int width = 0, height = 0, uploads = 0;
    // glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, w, h, GL_RGBA, GL_UNSIGNED_BYTE, rgba), or your
    // engine's equivalent. The pixels are RGBA with straight alpha.
    void upload(const uint8_t* rgba, int w, int h) {
        (void)rgba;
        width = w;
        height = h;
        ++uploads;
    }
};

struct Click {
    int x, y;  // in texture pixels
};

std::optional<Click> engineClickAt(int frame) {
    if (frame == 90) return Click{984, 180};  // the skip button, at scale 3
    return std::nullopt;
}

// --- the ad ------------------------------------------------------------------------------
class SplashListener : public PeloraSplashAdViewDelegate {
  public:
    void splashAdDidShow(std::shared_ptr<PeloraSplashAdView>) override { std::puts("shown"); }
    void splashAdDidClickSkip(std::shared_ptr<PeloraSplashAdView>) override {
        std::puts("skipped");
        done = true;
    }
    void splashAdTimeOver(std::shared_ptr<PeloraSplashAdView>) override { done = true; }
    void splashAdDidFailWithError(std::shared_ptr<PeloraSplashAdView>,
                                  const pelora::platform::Error& error) override {
        std::printf("no ad: %s %lld\n", error.domain.c_str(), static_cast<long long>(error.code));
        done = true;
    }
    bool done = false;
};

}  // namespace

int main(int argc, char** argv) {
    pelora::desktop::DesktopOptions options;
    options.screenScale = 3;
    if (argc > 1) options.sdk.serverOrigin = std::string(argv[1]);
    auto services = pelora::desktop::installDesktopPlatform(options);
    PeloraSDKManager::setAppID("engine-sample");

    // The ad lives in a window of its own that the engine never shows directly.
    auto window = std::make_shared<pelora::ui::Window>(services.device->screenBounds());
    auto listener = std::make_shared<SplashListener>();
    auto splash = PeloraSplashAdView::initWithSlotID("splash-demo", window->bounds());
    if (!splash) {
        std::puts("PeloraSDKBundle.bundle was not found beside the program");
        return 1;
    }
    splash->setDelegate(listener);
    window->addSubview(splash);
    splash->loadAdData();

    // [doc:game-loop]
    pelora::desktop::ViewRenderer renderer(services.device->screenScale());
    Texture texture;
    auto& loop = *services.mainRunLoop;
    for (int frame = 0; frame < 600 && !listener->done; ++frame) {  // ten seconds at 60 Hz
        loop.pump();  // SDK work that is due: network results, the countdown, callbacks
        if (renderer.update(*window)) {
            const auto& picture = renderer.frame();
            texture.upload(picture.rgba.data(), picture.width, picture.height);
        }
        if (auto click = engineClickAt(frame)) {
            // Texture pixels to the window's points.
            window->sendTap({click->x / renderer.scale(), click->y / renderer.scale()});
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(16));  // the engine's frame
    }
    // [doc:end]
    std::printf("%d uploads of %dx%d pixels, %llu frames drawn\n", texture.uploads, texture.width,
                texture.height, static_cast<unsigned long long>(renderer.framesRendered()));
    return 0;
}
