// The renderer, checked where each pixel is decided (a colour at a point, ink inside or
// outside a frame) rather than against whole-image goldens that a font update would break; and
// the presenter, whose frames are counted over simulated time on the manual clock.
#include <gtest/gtest.h>

#include <functional>

#include "TestPlatform.h"
#include "pelora/desktop/FramePresenter.h"
#include "pelora/desktop/ViewRenderer.h"
#include "pelora/platform/MediaPlayer.h"
#include "pelora/ui/UI.h"

namespace {

using namespace pelora;
using platform::makeRect;

struct Pixel {
    int r = 0, g = 0, b = 0, a = 0;
    bool near(int R, int G, int B, int A = 255, int tolerance = 3) const {
        return std::abs(r - R) <= tolerance && std::abs(g - G) <= tolerance &&
               std::abs(b - B) <= tolerance && std::abs(a - A) <= tolerance;
    }
    // r(ed), g(reen), b(lue), w(hite), k (black), t(ransparent), or ? for anything else.
    char letter() const {
        const int named[][5] = {{'r', 255, 0, 0, 255}, {'g', 0, 255, 0, 255},
                                {'b', 0, 0, 255, 255}, {'w', 255, 255, 255, 255},
                                {'k', 0, 0, 0, 255},   {'t', 0, 0, 0, 0}};
        for (auto& n : named)
            if (near(n[1], n[2], n[3], n[4])) return static_cast<char>(n[0]);
        return '?';
    }
    // Dark text on a light background: anything clearly darker than white.
    bool ink() const { return a > 0 && r + g + b < 600; }
};

// A drawn tree, read back pixel by pixel.
struct Picture {
    int width = 0, height = 0;
    std::vector<uint8_t> rgba;

    static Picture of(desktop::ViewRenderer& renderer, const ui::View& root) {
        Picture p{renderer.pixelWidth(root), renderer.pixelHeight(root), {}};
        p.rgba.assign(static_cast<size_t>(p.width) * p.height * 4, 0xAB);
        renderer.renderInto(root, p.rgba.data(), p.width, p.height, size_t(p.width) * 4);
        return p;
    }
    Pixel at(int x, int y) const {
        const uint8_t* q = &rgba[(static_cast<size_t>(y) * width + x) * 4];
        return {q[0], q[1], q[2], q[3]};
    }
    std::string at(std::initializer_list<std::pair<int, int>> points) const {
        std::string letters;
        for (auto [x, y] : points) letters += at(x, y).letter();
        return letters;
    }
    // Pixels in [x0, x1) x [y0, y1) for which `match` holds.
    size_t count(const std::function<bool(Pixel)>& match, int x0 = 0, int y0 = 0, int x1 = 1 << 20,
                 int y1 = 1 << 20) const {
        size_t n = 0;
        for (int y = std::max(0, y0); y < std::min(height, y1); ++y)
            for (int x = std::max(0, x0); x < std::min(width, x1); ++x) n += match(at(x, y));
        return n;
    }
    size_t ink(int x0 = 0, int y0 = 0, int x1 = 1 << 20, int y1 = 1 << 20) const {
        return count(&Pixel::ink, x0, y0, x1, y1);
    }
};

const ui::Color kRed = ui::Color::rgba(1, 0, 0), kBlue = ui::Color::rgba(0, 0, 1);

std::shared_ptr<ui::Window> whiteWindow(double w = 100, double h = 100) {
    auto window = std::make_shared<ui::Window>(makeRect(0, 0, w, h));
    window->setBackgroundColor(ui::Color::white());
    return window;
}
template <class T = ui::View>
std::shared_ptr<T> add(ui::View& parent, platform::Rect frame,
                       std::optional<ui::Color> color = std::nullopt) {
    auto v = std::make_shared<T>(frame);
    if (color) v->setBackgroundColor(*color);
    parent.addSubview(v);
    return v;
}
// Solid colours, one per column band, left to right.
std::vector<uint8_t> bands(int width, int height, std::vector<ui::Color> colors) {
    std::vector<uint8_t> rgba;
    for (int i = 0; i < width * height; ++i) {
        const auto& c = colors[static_cast<size_t>(i % width) * colors.size() / width];
        for (double v : {c.red, c.green, c.blue, c.alpha}) rgba.push_back(uint8_t(v * 255));
    }
    return rgba;
}
std::shared_ptr<platform::Image> image(int w, int h, std::vector<ui::Color> colors,
                                       double scale = 1) {
    return std::make_shared<platform::Image>(w, h, scale, bands(w, h, std::move(colors)));
}

TEST(RendererGeometry, FramesScaleToPixelsLaterSubviewsDrawOnTopAndCornersRoundAndClip) {
    desktop::ViewRenderer renderer(2);
    auto window = whiteWindow(200, 100);
    auto red = add(*window, makeRect(10, 10, 20, 20), kRed);
    add(*window, makeRect(20, 20, 20, 20), kBlue);
    auto clipped = add(*window, makeRect(100, 0, 40, 40)),
         open = add(*window, makeRect(150, 0, 40, 40));
    for (auto& v : {clipped, open}) {
        v->setCornerRadius(20);
        add(*v, makeRect(0, 0, 40, 40), kRed);
    }
    clipped->setClipsToBounds(true);
    add(*window, makeRect(100, 50, 40, 40), kBlue)->setCornerRadius(10);
    auto p = Picture::of(renderer, *window);
    // At two pixels a point: the red frame's edges, the blue one over it; the clipped corner and
    // centre, the open one's corner, a rounded background's corner and its top edge mid-way.
    EXPECT_EQ(p.at({{20, 20}, {59, 20}, {20, 59}, {60, 20}, {20, 60}, {19, 19}, {50, 50}}),
              "rrrwwwb");
    EXPECT_EQ(p.at({{201, 1}, {240, 40}, {301, 1}, {201, 101}, {240, 101}}), "wrrwb");
    window->bringSubviewToFront(red);
    EXPECT_EQ(Picture::of(renderer, *window).at({{50, 50}}), "r");
}

TEST(RendererVisibility, HiddenAndTransparentSubtreesDrawNothingAndAlphaMultipliesDown) {
    desktop::ViewRenderer renderer(1);
    auto window = std::make_shared<ui::Window>(makeRect(0, 0, 100, 100));  // no background
    auto hidden = add(*window, makeRect(0, 0, 50, 50), kRed);
    hidden->setHidden(true);
    auto invisible = add(*window, makeRect(50, 0, 50, 50), kRed);
    invisible->setAlpha(0);
    auto half = add(*window, makeRect(0, 50, 40, 40), kRed);
    half->setAlpha(0.5);
    auto parent = add(*window, makeRect(50, 50, 40, 40));
    parent->setAlpha(0.5);
    for (auto& v : {hidden, invisible, parent}) add(*v, makeRect(0, 0, 40, 40), kBlue);
    parent->subviews()[0]->setAlpha(0.5);
    auto p = Picture::of(renderer, *window);
    EXPECT_EQ(p.count([](Pixel x) { return x.a == 0; }), 100u * 100u - 2 * 40u * 40u);
    // Straight alpha: the colour keeps its full strength, the alpha says how much of it.
    EXPECT_TRUE(p.at(20, 70).near(255, 0, 0, 128));
    EXPECT_TRUE(p.at(70, 70).near(0, 0, 255, 64));
}

// Wrapping and ellipsis are pango's; what is ours is that the text keeps to its frame, the
// label's line count and alignment reach the layout.
TEST(RendererText, GlyphsStayInsideTheFrameAlignedOverLinesAllowedAndEndInAnEllipsis) {
    desktop::ViewRenderer renderer(1);
    auto window = whiteWindow(300, 240);
    auto l = add<ui::Label>(*window, makeRect(20, 20, 120, 200));
    l->setText("one two three four five six seven eight nine ten eleven twelve thirteen");
    std::vector<int> rows;  // with ink, for one line (the default), two, and as many as needed
    for (int lines : {1, 2, 0}) {
        if (lines != 1) l->setNumberOfLines(lines);
        auto p = Picture::of(renderer, *window);
        EXPECT_EQ(p.ink(), p.ink(20, 20, 140, 220)) << "ink outside the frame";
        rows.push_back(0);
        for (int y = 0; y < p.height; ++y) rows.back() += p.ink(0, y, p.width, y + 1) > 0;
        EXPECT_TRUE(lines != 1 || p.ink(130, 20, 140, 220) > 0) << "no ellipsis at the right end";
    }
    EXPECT_GT(rows[0], 5);
    EXPECT_GT(rows[1], rows[0] + 5);
    EXPECT_GT(rows[2], rows[1] + 5);

    l->setFrame(makeRect(0, 0, 300, 30));
    l->setText("优惠");
    for (auto [alignment, from] : {std::pair{ui::TextAlignment::Left, 0},
                                   {ui::TextAlignment::Center, 100},
                                   {ui::TextAlignment::Right, 200}}) {
        l->setTextAlignment(alignment);
        auto p = Picture::of(renderer, *window);
        EXPECT_GT(p.ink(from, 0, from + 100, 30), 0u) << from;
        EXPECT_EQ(p.ink(), p.ink(from, 0, from + 100, 30)) << from;
    }
}

TEST(RendererImages, ContentModesAndTheImagesScalePlaceIt) {
    const auto stripes = image(20, 10, {kRed, kBlue, kRed, kBlue});  // 2:1, 5 pixels a stripe
    struct Case {
        ui::ContentMode mode;
        std::shared_ptr<platform::Image> image;
        const char* grid;  // at x and y of 5, 12, 22 and 35, row by row
    } cases[] = {
        {ui::ContentMode::ScaleToFill, stripes, "rbrb rbrb rbrb rbrb"},
        {ui::ContentMode::ScaleAspectFit, stripes, "wwww rbrb rbrb wwww"},   // rows 10-29
        {ui::ContentMode::ScaleAspectFill, stripes, "bbrr bbrr bbrr bbrr"},  // 80x40
        {ui::ContentMode::Center, stripes, "wwww wwww wrrw wwww"},           // at (10, 15)
        // An @2x image of 20x20 pixels is 10x10 points, at (15, 15).
        {ui::ContentMode::Center, image(20, 20, {kRed}, 2), "wwww wwww wwrw wwww"},
        // Pixels that cannot be decoded past the header: nothing drawn.
        {ui::ContentMode::ScaleToFill,
         std::make_shared<platform::Image>(16, 16, 1.0, [] { return std::vector<uint8_t>{}; }),
         "wwww wwww wwww wwww"}};
    desktop::ViewRenderer renderer(1);
    for (const auto& c : cases) {
        auto window = whiteWindow(40, 40);
        auto v = add<ui::ImageView>(*window, makeRect(0, 0, 40, 40));
        v->setContentMode(c.mode);
        v->setClipsToBounds(true);
        v->setImage(c.image);
        auto p = Picture::of(renderer, *window);
        std::string grid;
        for (int y : {5, 12, 22, 35})
            for (int x : {5, 12, 22, 35, -1}) grid += x < 0 ? ' ' : p.at(x, y).letter();
        grid.pop_back();
        EXPECT_EQ(grid, c.grid) << "content mode " << static_cast<int>(c.mode);
    }
}

TEST(RendererControls, ButtonTitleColourAndImageFollowTheState) {
    desktop::ViewRenderer renderer(2);
    auto window = whiteWindow(100, 40);
    auto button = add<ui::Button>(*window, makeRect(0, 0, 100, 40), ui::Color::black());
    button->setTitle("Skip ad", ui::ControlState::Normal);
    button->setTitleColor(ui::Color::white(), ui::ControlState::Normal);
    button->setTitleColor(kRed, ui::ControlState::Highlighted);
    // Pixels of a reddish and of a whitish title.
    auto title = [&] {
        auto p = Picture::of(renderer, *window);
        return std::pair(p.count([](Pixel x) { return x.r > 150 && x.g < 80 && x.b < 80; }) > 50,
                         p.count([](Pixel x) { return x.r > 200 && x.g > 200 && x.b > 200; }) > 50);
    };
    EXPECT_EQ(title(), std::pair(false, true));
    window->touchDown({50, 20});  // highlighted while the finger is down: the normal title
    EXPECT_EQ(title(), std::pair(true, false));
    window->touchCancel();
    button->setTitle(std::nullopt, ui::ControlState::Normal);
    button->setImage(image(10, 10, {ui::Color::rgba(0, 1, 0)}), ui::ControlState::Normal);
    auto withImage = Picture::of(renderer, *window);
    EXPECT_EQ(withImage.count([](Pixel x) { return x.near(0, 255, 0, 255, 40); }), 400u);
    EXPECT_EQ(withImage.at({{100, 40}}), "g");  // 10x10 points, centred, at scale 2
}

TEST(RendererMedia, PlayerLayerShowsItsLatestFrameWithBlackBars) {
    desktop::ViewRenderer renderer(1);
    auto window = whiteWindow(100, 100);
    auto layer = ui::PlayerLayer::playerLayerWithPlayer(nullptr);
    layer->setFrame(makeRect(0, 0, 100, 100));
    window->addSubview(layer);
    EXPECT_EQ(Picture::of(renderer, *window).at({{50, 50}}), "k");  // no frame yet
    for (auto [colour, seen] : {std::pair{ui::Color::rgba(0, 1, 0), "kgk"}, {kBlue, "kbk"}}) {
        layer->setVideoFrame(std::make_shared<platform::VideoFrame>(
            platform::VideoFrame{32, 16, 32 * 4, bands(32, 16, {colour})}));  // 2:1: rows 25-74
        EXPECT_EQ(Picture::of(renderer, *window).at({{50, 10}, {50, 50}, {50, 90}}), seen);
    }
}

// A writePNG file is cairo's writing of the same drawing; its size at the screen's scale is
// checked by the render tool's and the demo's tests (tests/tools/DemoAndLoadTest).
TEST(RendererOutput, ACallersBufferGetsTheTreeCutToItsSizeAndItsRowPaddingLeftAlone) {
    desktop::ViewRenderer renderer(2);
    auto window = whiteWindow(30, 20);
    add(*window, makeRect(0, 0, 10, 10), kRed);
    const int w = 30, h = 25;  // the tree is 60x40 pixels
    const size_t stride = w * 4 + 8;
    std::vector<uint8_t> buffer(stride * h, 0x5A);
    ASSERT_TRUE(renderer.renderInto(*window, buffer.data(), w, h, stride));
    EXPECT_EQ(std::vector<uint8_t>(buffer.begin() + 76, buffer.begin() + 84),
              (std::vector<uint8_t>{255, 0, 0, 255, 255, 255, 255, 255}));  // pixels 19 and 20
    for (int y = 0; y < h; ++y)
        for (size_t i = w * 4; i < stride; ++i) ASSERT_EQ(buffer[y * stride + i], 0x5A);
    EXPECT_FALSE(renderer.renderInto(*window, buffer.data(), w, h, w * 4 - 1));
}

// Frames are drawn when the tree changed and only then.
struct PresenterTest : ::testing::Test {
    pelora::testing::TestPlatform tp{pelora::testing::TestPlatform::NetworkKind::Fake};
    std::shared_ptr<ui::Window> window = std::make_shared<ui::Window>(makeRect(0, 0, 100, 50));
    std::shared_ptr<ui::Label> label = std::make_shared<ui::Label>(makeRect(0, 0, 100, 50));
    std::vector<uint64_t> revisions;  // of the frames the sink received
    std::unique_ptr<desktop::FramePresenter> presenter = std::make_unique<desktop::FramePresenter>(
        window, *tp.loop, 2, [this](const auto& f) { revisions.push_back(f.revision); });

    void SetUp() override {
        label->setText("5");
        window->addSubview(label);
    }
};

// Ten seconds at 60 Hz draw the first picture and one per tick: idle turns draw nothing.
TEST_F(PresenterTest, ChangesInOneTurnCostOneFrameAndEachTickItsOwn) {
    EXPECT_TRUE(revisions.empty());  // drawn on the loop's turn, not inside the constructor
    tp.pump();
    int left = 5;  // a countdown: once a second a tick changes the label's text and colour
    auto timer = tp.loop->scheduleTimer(1.0, true, [&](platform::Timer& t) {
        label->setText(std::to_string(--left));
        label->setTextColor(left % 2 ? ui::Color::black() : ui::Color::rgba(0.2, 0.2, 0.2));
        if (left == 2) t.invalidate();
    });
    for (int i = 0; i < 10 * 60; ++i) tp.advance(1.0 / 60);
    EXPECT_EQ(revisions.size(), 4u);  // the first picture and three ticks
    EXPECT_EQ(tp.loop->nextTimerDelay(), -1.0) << "an idle window schedules nothing";
    EXPECT_EQ(presenter->lastFrame().revision, window->displayRevision());
    label->setHidden(true);  // undone in the same turn: still one frame
    label->setHidden(false);
    tp.pump();
    label->setText("2");  // what is already there: no frame
    tp.pump();
    EXPECT_EQ(revisions.size(), 5u);
    label->setText("1");  // posts a drawing that finds its presenter gone
    presenter.reset();
    tp.pump();
    EXPECT_EQ(revisions.size(), 5u);
}

}  // namespace
