// Drawing the view tree: a full-screen splash and a list of native ads at scale 3 into a
// caller's RGBA buffer (the engine path), and an idle window's frame rate.
//
// Target: under 4 ms a frame. For the share of a frame spent outside cairo and pango (and the
// pixman, FreeType and HarfBuzz they drive), run bench/render_profile.sh.

#include <benchmark/benchmark.h>

#include <fstream>
#include <iterator>
#include <string>

#include "pelora/desktop/FramePresenter.h"
#include "pelora/desktop/StbImageDecoder.h"
#include "pelora/desktop/ViewRenderer.h"
#include "pelora/testing/ManualClock.h"
#include "pelora/testing/ManualRunLoop.h"
#include "pelora/ui/NibLoader.h"
#include "pelora/ui/UI.h"
#include "support/PeloraResourceBundle.h"

namespace {

namespace ui = pelora::ui;
using pelora::platform::makeRect;

constexpr double kScale = 3;

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

std::shared_ptr<pelora::platform::Image> creative(const std::string& name) {
    static pelora::desktop::StbImageDecoder decoder;
    auto image = decoder.decode(readFile(PELORA_SOURCE_DIR "/tools/sandbox/creatives/" + name));
    if (!image) std::abort();
    image->rgba();  // decoded here, not inside the first measured frame
    return image;
}

// The splash as the SDK shows it: its interface file, the creative, the countdown running.
std::shared_ptr<ui::Window> splashWindow(std::shared_ptr<ui::Label>& countdown) {
    auto file =
        readFile(PELORA_SOURCE_DIR "/resources/PeloraSDKBundle.bundle/PeloraSplashAdView.json");
    auto node = PeloraParseInterfaceFile(file);
    if (!node) std::abort();
    if (!ui::NibLoader::isClassRegistered(node->className))
        ui::NibLoader::registerClass(node->className, [] { return std::make_shared<ui::View>(); });
    auto splash = ui::NibLoader::instantiate(*node);
    auto image = std::dynamic_pointer_cast<ui::ImageView>(splash->outlet("imageV"));
    image->setImage(creative("splash-demo.png"));
    countdown = std::dynamic_pointer_cast<ui::Label>(splash->outlet("countL"));
    auto window = std::make_shared<ui::Window>(makeRect(0, 0, 375, 667));
    window->addSubview(splash);
    return window;
}

// A feed of native cards, each drawn by the host from the ad's data: icon, title, picture,
// description.
std::shared_ptr<ui::Window> nativeListWindow() {
    auto window = std::make_shared<ui::Window>(makeRect(0, 0, 375, 667));
    window->setBackgroundColor(ui::Color::white());
    const char* titles[] = {"Harbor Lights Weekend", "Trailhead Boots", "Pocket Planetarium",
                            "限时优惠：新品上市"};
    for (int i = 0; i < 4; ++i) {
        auto card = std::make_shared<ui::View>(makeRect(16, 16 + i * 212.0, 343, 200));
        card->setBackgroundColor(ui::Color::rgba(0.96, 0.96, 0.97));
        card->setCornerRadius(12);
        card->setClipsToBounds(true);
        auto icon = std::make_shared<ui::ImageView>(makeRect(8, 8, 40, 40));
        icon->setImage(creative("native-icon-" + std::to_string(i + 1) + ".png"));
        auto title = std::make_shared<ui::Label>(makeRect(56, 8, 279, 40));
        title->setText(std::string(titles[i]));
        title->setFontWeight(ui::FontWeight::Bold);
        auto picture = std::make_shared<ui::ImageView>(makeRect(0, 56, 343, 110));
        picture->setContentMode(ui::ContentMode::ScaleAspectFill);
        picture->setClipsToBounds(true);
        picture->setImage(creative(i == 1 ? "native-image-2.jpg" : "native-image-1.png"));
        auto desc = std::make_shared<ui::Label>(makeRect(8, 168, 327, 28));
        desc->setText(std::string("Two nights by the water, breakfast included."));
        desc->setFontSize(14);
        for (const auto& v : std::vector<std::shared_ptr<ui::View>>{icon, title, picture, desc})
            card->addSubview(v);
        window->addSubview(card);
    }
    return window;
}

void renderLoop(benchmark::State& state, ui::Window& window,
                const std::function<void(int)>& change) {
    pelora::desktop::ViewRenderer renderer(kScale);
    const int w = renderer.pixelWidth(window), h = renderer.pixelHeight(window);
    std::vector<uint8_t> buffer(static_cast<size_t>(w) * h * 4);
    int i = 0;
    for (auto _ : state) {
        if (change) change(i++);
        renderer.renderInto(window, buffer.data(), w, h, static_cast<size_t>(w) * 4);
        benchmark::DoNotOptimize(buffer.data());
    }
    state.counters["pixels"] = static_cast<double>(w) * h;
}

// Every frame differs from the last: the countdown's text changes.
void BM_RenderSplashScale3(benchmark::State& state) {
    std::shared_ptr<ui::Label> countdown;
    auto window = splashWindow(countdown);
    renderLoop(state, *window, [&](int i) { countdown->setText(std::to_string(5 - i % 5)); });
}
BENCHMARK(BM_RenderSplashScale3)->Unit(benchmark::kMillisecond);

void BM_RenderNativeListScale3(benchmark::State& state) {
    auto window = nativeListWindow();
    renderLoop(state, *window, nullptr);
}
BENCHMARK(BM_RenderNativeListScale3)->Unit(benchmark::kMillisecond);

// A window nobody changes, pumped by a 60 Hz host loop for simulated seconds: no frames.
void BM_IdleWindowFramesPerSecond(benchmark::State& state) {
    auto clock = std::make_shared<pelora::testing::ManualClock>();
    pelora::testing::ManualRunLoop loop(clock);
    std::shared_ptr<ui::Label> countdown;
    auto window = splashWindow(countdown);
    uint64_t frames = 0;
    pelora::desktop::FramePresenter presenter(
        window, loop, kScale, [&](const pelora::desktop::RenderedFrame&) { ++frames; });
    loop.pump();  // the first picture
    const uint64_t first = frames;
    double seconds = 0;
    for (auto _ : state) {
        for (int i = 0; i < 60; ++i) {
            clock->advance(1.0 / 60);
            loop.pump();
        }
        seconds += 1;
    }
    state.counters["frames_per_second"] = static_cast<double>(frames - first) / seconds;
}
BENCHMARK(BM_IdleWindowFramesPerSecond)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
