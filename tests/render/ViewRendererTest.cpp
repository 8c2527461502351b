// The renderer, checked where each pixel is decided (a colour at a point, ink inside or
// outside a frame) rather than against whole-image goldens that a font update would break.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "RenderSupport.h"
#include "pelora/desktop/StbImageDecoder.h"
#include "pelora/platform/MediaPlayer.h"
#include "pelora/ui/UI.h"

namespace {

using namespace pelora;
using platform::makeRect;
using rendertest::isInk;
using rendertest::Picture;
using rendertest::Pixel;

const ui::Color kRed = ui::Color::rgba(1, 0, 0);
const ui::Color kBlue = ui::Color::rgba(0, 0, 1);

std::shared_ptr<ui::Window> whiteWindow(double w = 100, double h = 100) {
    auto window = std::make_shared<ui::Window>(makeRect(0, 0, w, h));
    window->setBackgroundColor(ui::Color::white());
    return window;
}

std::shared_ptr<ui::View> box(platform::Rect frame, ui::Color color) {
    auto v = std::make_shared<ui::View>(frame);
    v->setBackgroundColor(color);
    return v;
}

std::shared_ptr<ui::Label> label(platform::Rect frame, std::string text, double size = 14) {
    auto l = std::make_shared<ui::Label>(frame);
    l->setText(std::move(text));
    l->setFontSize(size);
    return l;
}

// An image of solid colours, one per column band, left to right.
std::shared_ptr<platform::Image> bands(int width, int height, std::vector<ui::Color> colors,
                                       double scale = 1) {
    std::vector<uint8_t> rgba(static_cast<size_t>(width) * height * 4);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const auto& c = colors[static_cast<size_t>(x) * colors.size() / width];
            uint8_t* p = &rgba[(static_cast<size_t>(y) * width + x) * 4];
            p[0] = static_cast<uint8_t>(c.red * 255);
            p[1] = static_cast<uint8_t>(c.green * 255);
            p[2] = static_cast<uint8_t>(c.blue * 255);
            p[3] = static_cast<uint8_t>(c.alpha * 255);
        }
    return std::make_shared<platform::Image>(width, height, scale, std::move(rgba));
}

std::shared_ptr<platform::VideoFrame> solidFrame(int w, int h, uint8_t r, uint8_t g, uint8_t b) {
    auto f = std::make_shared<platform::VideoFrame>();
    f->width = w;
    f->height = h;
    f->stride = w * 4;
    f->rgba.resize(static_cast<size_t>(w) * h * 4);
    for (size_t i = 0; i < f->rgba.size(); i += 4) {
        f->rgba[i] = r;
        f->rgba[i + 1] = g;
        f->rgba[i + 2] = b;
        f->rgba[i + 3] = 255;
    }
    return f;
}

// ---- geometry and scale -------------------------------------------------------------------

TEST(RendererGeometry, BackgroundFillsTheFrameScaledToPixels) {
    desktop::ViewRenderer renderer(2);
    auto window = whiteWindow();
    window->addSubview(box(makeRect(10, 10, 20, 20), kRed));
    auto p = Picture::of(renderer, *window);
    ASSERT_EQ(p.width, 200);
    ASSERT_EQ(p.height, 200);
    EXPECT_TRUE(p.at(20, 20).near(255, 0, 0));
    EXPECT_TRUE(p.at(59, 59).near(255, 0, 0));
    EXPECT_TRUE(p.at(19, 19).near(255, 255, 255));
    EXPECT_TRUE(p.at(60, 60).near(255, 255, 255));
    EXPECT_EQ(p.count([](Pixel x) { return x.near(255, 0, 0); }), 40u * 40u);
}

TEST(RendererGeometry, PhoneWindowAtScaleTwoIsTwiceTheSizeInPixels) {
    desktop::ViewRenderer two(2), one(1);
    auto window = whiteWindow(375, 667);
    window->addSubview(box(makeRect(100, 100, 10, 10), kRed));
    auto big = Picture::of(two, *window);
    auto small = Picture::of(one, *window);
    EXPECT_EQ(big.width, 750);
    EXPECT_EQ(big.height, 1334);
    auto red = [](Pixel x) { return x.near(255, 0, 0); };
    EXPECT_EQ(small.count(red), 100u);
    EXPECT_EQ(big.count(red), 400u);
}

TEST(RendererGeometry, LaterSubviewsDrawOnTopUntilTheOrderChanges) {
    desktop::ViewRenderer renderer(1);
    auto window = whiteWindow();
    auto red = box(makeRect(0, 0, 60, 60), kRed);
    auto blue = box(makeRect(30, 30, 60, 60), kBlue);
    window->addSubview(red);
    window->addSubview(blue);
    EXPECT_TRUE(Picture::of(renderer, *window).at(45, 45).near(0, 0, 255));
    window->bringSubviewToFront(red);
    EXPECT_TRUE(Picture::of(renderer, *window).at(45, 45).near(255, 0, 0));
}

// ---- visibility -------------------------------------------------------------------------------

TEST(RendererVisibility, HiddenAndTransparentViewsDrawNothingWithTheirSubtrees) {
    desktop::ViewRenderer renderer(1);
    auto window = whiteWindow();
    auto hidden = box(makeRect(0, 0, 50, 50), kRed);
    hidden->setHidden(true);
    hidden->addSubview(box(makeRect(0, 0, 10, 10), kBlue));
    auto invisible = box(makeRect(50, 50, 50, 50), kRed);
    invisible->setAlpha(0);
    invisible->addSubview(box(makeRect(0, 0, 10, 10), kBlue));
    window->addSubview(hidden);
    window->addSubview(invisible);
    auto p = Picture::of(renderer, *window);
    EXPECT_EQ(p.count([](Pixel x) { return x.near(255, 255, 255); }), 100u * 100u);
}

TEST(RendererVisibility, AlphaBlendsAndMultipliesDownTheTree) {
    desktop::ViewRenderer renderer(1);
    auto window = whiteWindow();
    auto half = box(makeRect(0, 0, 40, 40), kRed);
    half->setAlpha(0.5);
    auto parent = std::make_shared<ui::View>(makeRect(50, 50, 40, 40));
    parent->setAlpha(0.5);
    auto quarter = box(makeRect(0, 0, 40, 40), kRed);
    quarter->setAlpha(0.5);
    parent->addSubview(quarter);
    window->addSubview(half);
    window->addSubview(parent);
    auto p = Picture::of(renderer, *window);
    EXPECT_TRUE(p.at(20, 20).near(255, 128, 128)) << p.at(20, 20).g;
    EXPECT_TRUE(p.at(70, 70).near(255, 191, 191)) << p.at(70, 70).g;
}

TEST(RendererVisibility, PixelsNoViewCoversAreTransparent) {
    desktop::ViewRenderer renderer(1);
    auto window = std::make_shared<ui::Window>(makeRect(0, 0, 20, 20));
    window->addSubview(box(makeRect(0, 0, 10, 20), ui::Color::rgba(0, 1, 0, 0.5)));
    auto p = Picture::of(renderer, *window);
    EXPECT_TRUE(p.at(15, 5).near(0, 0, 0, 0));
    // Straight alpha: the colour keeps its full strength, the alpha says how much of it.
    EXPECT_TRUE(p.at(5, 5).near(0, 255, 0, 128));
}

// ---- corner radius and clipping ---------------------------------------------------------------

TEST(RendererShape, CornerRadiusRoundsTheBackgroundAndClipsSubviewsWhenAsked) {
    desktop::ViewRenderer renderer(2);
    auto window = whiteWindow();
    auto clipped = std::make_shared<ui::View>(makeRect(0, 0, 40, 40));
    clipped->setCornerRadius(20);
    clipped->setClipsToBounds(true);
    clipped->addSubview(box(makeRect(0, 0, 40, 40), kRed));
    auto open = std::make_shared<ui::View>(makeRect(50, 0, 40, 40));
    open->setCornerRadius(20);
    open->addSubview(box(makeRect(0, 0, 40, 40), kRed));
    auto rounded = box(makeRect(0, 50, 40, 40), kBlue);
    rounded->setCornerRadius(10);
    window->addSubview(clipped);
    window->addSubview(open);
    window->addSubview(rounded);
    auto p = Picture::of(renderer, *window);
    EXPECT_TRUE(p.at(1, 1).near(255, 255, 255));    // the clipped corner
    EXPECT_TRUE(p.at(40, 40).near(255, 0, 0));      // its centre
    EXPECT_TRUE(p.at(101, 1).near(255, 0, 0));      // not clipped: the child's corner shows
    EXPECT_TRUE(p.at(1, 101).near(255, 255, 255));  // a rounded background's corner
    EXPECT_TRUE(p.at(40, 101).near(0, 0, 255));     // its top edge, mid-way
}

// ---- text -------------------------------------------------------------------------------------

TEST(RendererText, GlyphsStayInsideTheLabelsFrame) {
    desktop::ViewRenderer renderer(2);
    auto window = whiteWindow(200, 100);
    auto l = label(makeRect(20, 30, 120, 20),
                   "A long advertising title that cannot fit on one line of this label", 16);
    window->addSubview(l);
    auto p = Picture::of(renderer, *window);
    const size_t inside = p.count(40, 60, 280, 100, isInk);
    EXPECT_GT(inside, 200u);
    EXPECT_EQ(p.count(isInk), inside);
    // The tail is cut with an ellipsis: ink reaches the right end of the frame.
    EXPECT_GT(p.count(260, 60, 280, 100, isInk), 0u);
}

TEST(RendererText, AlignmentPlacesShortTextLeftCentreOrRight) {
    desktop::ViewRenderer renderer(1);
    auto window = whiteWindow(300, 30);
    auto l = label(makeRect(0, 0, 300, 30), "Go", 16);
    window->addSubview(l);
    auto left = Picture::of(renderer, *window);
    l->setTextAlignment(ui::TextAlignment::Center);
    auto centre = Picture::of(renderer, *window);
    l->setTextAlignment(ui::TextAlignment::Right);
    auto right = Picture::of(renderer, *window);
    EXPECT_GT(left.count(0, 0, 100, 30, isInk), 0u);
    EXPECT_EQ(left.count(100, 0, 300, 30, isInk), 0u);
    EXPECT_GT(centre.count(100, 0, 200, 30, isInk), 0u);
    EXPECT_EQ(centre.count(0, 0, 100, 30, isInk) + centre.count(200, 0, 300, 30, isInk), 0u);
    EXPECT_GT(right.count(200, 0, 300, 30, isInk), 0u);
    EXPECT_EQ(right.count(0, 0, 200, 30, isInk), 0u);
}

TEST(RendererText, NumberOfLinesLimitsTheLinesAndZeroFillsTheFrame) {
    desktop::ViewRenderer renderer(1);
    auto window = whiteWindow(120, 200);
    auto l = label(makeRect(0, 0, 120, 200),
                   "one two three four five six seven eight nine ten eleven twelve thirteen", 14);
    window->addSubview(l);
    auto rowsWithInk = [&](const Picture& p) {
        int rows = 0;
        for (int y = 0; y < p.height; ++y)
            if (p.count(0, y, p.width, y + 1, isInk) > 0) ++rows;
        return rows;
    };
    const int one = rowsWithInk(Picture::of(renderer, *window));
    l->setNumberOfLines(0);
    const int all = rowsWithInk(Picture::of(renderer, *window));
    l->setNumberOfLines(2);
    const int two = rowsWithInk(Picture::of(renderer, *window));
    EXPECT_GT(one, 5);
    EXPECT_GT(two, one + 5);
    EXPECT_GT(all, two + 5);
}

TEST(RendererText, ChineseTitleDrawsGlyphsNotBoxes) {
    desktop::ViewRenderer renderer(2);
    auto window = whiteWindow(300, 40);
    window->addSubview(label(makeRect(0, 0, 300, 40), "限时优惠：新品上市", 20));
    auto p = Picture::of(renderer, *window);
    EXPECT_GT(p.count(isInk), 500u);
    EXPECT_EQ(renderer.unknownGlyphs(), 0u) << "no installed font has these characters";

    // The counter itself works: a private-use character has a glyph in no font.
    auto other = whiteWindow(100, 40);
    other->addSubview(label(makeRect(0, 0, 100, 40), "\xEE\x80\x80", 20));
    Picture::of(renderer, *other);
    EXPECT_GT(renderer.unknownGlyphs(), 0u);
}

// ---- images -----------------------------------------------------------------------------------

TEST(RendererImages, ContentModesPlaceAndScaleTheImage) {
    desktop::ViewRenderer renderer(1);
    auto image = bands(20, 10, {kRed, kBlue});  // 2:1, red left half, blue right half
    auto draw = [&](ui::ContentMode mode, bool clips) {
        auto window = whiteWindow(40, 40);
        auto v = std::make_shared<ui::ImageView>(makeRect(0, 0, 40, 40));
        v->setContentMode(mode);
        v->setClipsToBounds(clips);
        v->setImage(image);
        window->addSubview(v);
        return Picture::of(renderer, *window);
    };
    auto fill = draw(ui::ContentMode::ScaleToFill, false);
    EXPECT_TRUE(fill.at(5, 2).near(255, 0, 0));
    EXPECT_TRUE(fill.at(35, 37).near(0, 0, 255));

    auto fit = draw(ui::ContentMode::ScaleAspectFit, false);  // 40x20, centred: rows 10..29
    EXPECT_TRUE(fit.at(5, 5).near(255, 255, 255));
    EXPECT_TRUE(fit.at(5, 20).near(255, 0, 0));
    EXPECT_TRUE(fit.at(35, 20).near(0, 0, 255));
    EXPECT_TRUE(fit.at(35, 34).near(255, 255, 255));

    auto aspectFill = draw(ui::ContentMode::ScaleAspectFill, true);  // 80x40, cut to the middle
    EXPECT_TRUE(aspectFill.at(1, 1).near(255, 0, 0));
    EXPECT_TRUE(aspectFill.at(38, 38).near(0, 0, 255));
    EXPECT_EQ(aspectFill.count([](Pixel x) { return x.near(255, 255, 255); }), 0u);

    auto centre = draw(ui::ContentMode::Center, false);  // 20x10 at (10, 15)
    EXPECT_TRUE(centre.at(12, 20).near(255, 0, 0));
    EXPECT_TRUE(centre.at(28, 20).near(0, 0, 255));
    EXPECT_TRUE(centre.at(5, 20).near(255, 255, 255));
    EXPECT_TRUE(centre.at(20, 12).near(255, 255, 255));
}

TEST(RendererImages, ImageScaleMakesItsSizeInPoints) {
    desktop::ViewRenderer renderer(1);
    auto window = whiteWindow(40, 40);
    auto v = std::make_shared<ui::ImageView>(makeRect(0, 0, 40, 40));
    v->setContentMode(ui::ContentMode::Center);
    v->setImage(bands(20, 20, {kRed}, 2));  // an @2x image: 10x10 points
    window->addSubview(v);
    auto p = Picture::of(renderer, *window);
    EXPECT_EQ(p.count([](Pixel x) { return x.near(255, 0, 0, 255, 40); }), 100u);
}

TEST(RendererImages, ImageCorruptPastItsHeaderDrawsNothing) {
    desktop::ViewRenderer renderer(1);
    auto window = whiteWindow(40, 40);
    auto v = std::make_shared<ui::ImageView>(makeRect(0, 0, 40, 40));
    v->setImage(
        std::make_shared<platform::Image>(16, 16, 1.0, [] { return std::vector<uint8_t>{}; }));
    window->addSubview(v);
    auto p = Picture::of(renderer, *window);
    EXPECT_EQ(p.count([](Pixel x) { return x.near(255, 255, 255); }), 40u * 40u);
}

// ---- controls and media -----------------------------------------------------------------------

TEST(RendererControls, ButtonTitleColourAndImageFollowTheState) {
    desktop::ViewRenderer renderer(2);
    auto window = whiteWindow(100, 40);
    auto button = std::make_shared<ui::Button>(makeRect(0, 0, 100, 40));
    button->setBackgroundColor(ui::Color::black());
    button->setTitle("Skip ad", ui::ControlState::Normal);
    button->setTitleColor(ui::Color::white(), ui::ControlState::Normal);
    button->setTitleColor(kRed, ui::ControlState::Highlighted);
    window->addSubview(button);
    auto reddish = [](Pixel x) { return x.r > 150 && x.g < 80 && x.b < 80; };
    auto whitish = [](Pixel x) { return x.r > 200 && x.g > 200 && x.b > 200; };
    auto normal = Picture::of(renderer, *window);
    EXPECT_GT(normal.count(whitish), 50u);
    EXPECT_EQ(normal.count(reddish), 0u);

    window->touchDown({50, 20});  // the button highlights while the finger is down
    auto pressed = Picture::of(renderer, *window);
    EXPECT_GT(pressed.count(reddish), 50u);
    EXPECT_EQ(pressed.count(whitish), 0u);
    window->touchCancel();

    button->setTitle(std::nullopt, ui::ControlState::Normal);
    button->setImage(bands(10, 10, {ui::Color::rgba(0, 1, 0)}), ui::ControlState::Normal);
    auto withImage = Picture::of(renderer, *window);
    auto green = [](Pixel x) { return x.near(0, 255, 0, 255, 40); };
    EXPECT_EQ(withImage.count(green), 400u);  // 10x10 points at scale 2
    EXPECT_TRUE(withImage.at(100, 40).near(0, 255, 0));
}

TEST(RendererMedia, PlayerLayerShowsItsLatestFrameWithBlackBars) {
    desktop::ViewRenderer renderer(1);
    auto window = whiteWindow(100, 100);
    auto layer = ui::PlayerLayer::playerLayerWithPlayer(nullptr);
    layer->setFrame(makeRect(0, 0, 100, 100));
    window->addSubview(layer);
    EXPECT_TRUE(Picture::of(renderer, *window).at(50, 50).near(0, 0, 0));  // no frame yet

    layer->setVideoFrame(solidFrame(32, 16, 0, 200, 0));  // 2:1: rows 25..74
    auto p = Picture::of(renderer, *window);
    EXPECT_TRUE(p.at(50, 50).near(0, 200, 0));
    EXPECT_TRUE(p.at(50, 10).near(0, 0, 0));
    EXPECT_TRUE(p.at(50, 90).near(0, 0, 0));
    layer->setVideoFrame(solidFrame(32, 16, 0, 0, 200));
    EXPECT_TRUE(Picture::of(renderer, *window).at(50, 50).near(0, 0, 200));
}

TEST(RendererMedia, WebViewIsABlankPage) {
    desktop::ViewRenderer renderer(1);
    auto window = std::make_shared<ui::Window>(makeRect(0, 0, 50, 50));
    window->setBackgroundColor(ui::Color::black());
    auto web = std::make_shared<ui::WebView>(makeRect(10, 10, 20, 20));
    web->loadHTMLString("<h1>Offer</h1>", std::nullopt);
    window->addSubview(web);
    auto p = Picture::of(renderer, *window);
    EXPECT_EQ(p.count([](Pixel x) { return x.near(255, 255, 255); }), 400u);
}

// ---- the outputs ------------------------------------------------------------------------------

TEST(RendererOutput, BufferOfAnotherSizeCutsTheTreeAndKeepsTheRowPadding) {
    desktop::ViewRenderer renderer(1);
    auto window = whiteWindow(100, 100);
    window->addSubview(box(makeRect(0, 0, 10, 10), kRed));
    const int w = 20, h = 15;
    const size_t stride = w * 4 + 8;
    std::vector<uint8_t> buffer(stride * h, 0x5A);
    ASSERT_TRUE(renderer.renderInto(*window, buffer.data(), w, h, stride));
    EXPECT_EQ(buffer[0], 255);
    EXPECT_EQ(buffer[1], 0);
    EXPECT_EQ(buffer[(14 * stride) + 19 * 4 + 1], 255);  // white, last pixel
    for (int y = 0; y < h; ++y)
        for (size_t i = w * 4; i < stride; ++i) ASSERT_EQ(buffer[y * stride + i], 0x5A);

    EXPECT_FALSE(renderer.renderInto(*window, buffer.data(), w, h, w * 4 - 1));
    EXPECT_FALSE(renderer.renderInto(*window, nullptr, w, h, stride));
    EXPECT_FALSE(renderer.renderInto(*window, buffer.data(), 0, h, stride));
}

TEST(RendererOutput, UpdateDrawsOnlyWhenTheWindowChanged) {
    desktop::ViewRenderer renderer(2);
    auto window = whiteWindow(50, 50);
    auto l = label(makeRect(0, 0, 50, 50), "5");
    window->addSubview(l);
    EXPECT_TRUE(renderer.update(*window));
    EXPECT_EQ(renderer.frame().width, 100);
    EXPECT_FALSE(renderer.update(*window));
    l->setText("5");  // the same text: nothing to draw
    l->setHidden(false);
    EXPECT_FALSE(renderer.update(*window));
    l->setText("4");
    EXPECT_TRUE(renderer.update(*window));
    auto detached = box(makeRect(0, 0, 5, 5), kRed);
    detached->setBackgroundColor(kBlue);  // not in the window: not its change
    EXPECT_FALSE(renderer.update(*window));
    window->addSubview(detached);
    EXPECT_TRUE(renderer.update(*window));
    detached->removeFromSuperview();
    EXPECT_TRUE(renderer.update(*window));
    EXPECT_EQ(renderer.framesRendered(), 4u);
}

TEST(RendererOutput, PNGOfTheTreeDecodesToTheSamePixels) {
    desktop::ViewRenderer renderer(2);
    auto window = whiteWindow(30, 20);
    window->addSubview(box(makeRect(0, 0, 10, 10), kRed));
    auto dir = std::filesystem::temp_directory_path() / "pelora-render-png";
    std::filesystem::create_directories(dir);
    const auto path = (dir / "tree.png").string();
    std::string error;
    ASSERT_TRUE(renderer.writePNG(*window, path, &error)) << error;
    std::ifstream in(path, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    desktop::StbImageDecoder decoder;
    auto image = decoder.decode(bytes);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->pixelWidth, 60);
    EXPECT_EQ(image->pixelHeight, 40);
    const auto& px = image->rgba();
    EXPECT_EQ(px[0], 255);
    EXPECT_EQ(px[1], 0);
    EXPECT_EQ(px[(39 * 60 + 59) * 4 + 1], 255);

    EXPECT_FALSE(renderer.writePNG(*window, (dir / "missing" / "x.png").string(), &error));
    EXPECT_NE(error.find("missing"), std::string::npos) << error;
    std::filesystem::remove_all(dir);
}

}  // namespace
