// The real window on a virtual display (the test program runs under xvfb-run): what the
// window system hands SDL becomes touches, life-cycle notifications, a quit and presented
// frames. Events are queued through SDL, the way the X server's arrive; the run loop is the
// manual one, so its clock drives the window's input polling and nothing waits in real time.

#include <SDL.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TestPlatform.h"
#include "pelora/desktop/DesktopWindow.h"
#include "pelora/platform/MediaPlayer.h"
#include "pelora/platform/NotificationCenter.h"
#include "pelora/ui/UI.h"

namespace {

namespace ui = pelora::ui;
using pelora::platform::makeRect;
using pelora::testing::TestPlatform;

// SDL's video subsystem stays up for the whole program: each window's close then leaves the
// X11 libraries SDL loaded in place, so whatever they keep until exit is theirs, by name, for
// the leak checker.
class KeepVideoLoaded : public ::testing::Environment {
  public:
    void SetUp() override { SDL_InitSubSystem(SDL_INIT_VIDEO); }
};
const auto* const keepVideo = ::testing::AddGlobalTestEnvironment(new KeepVideoLoaded);

class DesktopWindowTest : public ::testing::Test {
  protected:
    void SetUp() override {
        window->setBackgroundColor(ui::Color::white());
        button->addTarget([this](ui::Button&) { ++taps; }, ui::ControlEvent::TouchUpInside);
        window->addSubview(button);
        // SDL's software renderer: the virtual display has no GPU, and a GL driver that SDL
        // loads and unloads again leaves the leak checker allocations it cannot attribute.
        SDL_SetHint(SDL_HINT_RENDER_DRIVER, "software");
        std::string why;
        pelora::desktop::DesktopWindowOptions options;
        options.renderScale = 2;
        options.windowScale = 1;
        shown = pelora::desktop::DesktopWindow::open(window, *tp.loop, options, &why);
        if (!shown) GTEST_SKIP() << "no display: " << why;
        for (const char* name : {pelora::platform::kApplicationDidEnterBackgroundNotification,
                                 pelora::platform::kApplicationWillEnterForegroundNotification}) {
            tokens.push_back(pelora::platform::NotificationCenter::defaultCenter().addObserver(
                name,
                [this](const pelora::platform::Notification& n) { heard.push_back(n.name); }));
        }
    }
    void TearDown() override {
        for (auto& t : tokens)
            pelora::platform::NotificationCenter::defaultCenter().removeObserver(t);
    }

    // One window-system event, then a sixtieth of a second for the window to look at it.
    void send(SDL_Event event) {
        SDL_PushEvent(&event);
        tp.advance(1.0 / 60);
    }
    void mouse(Uint32 type, int x, int y) {
        SDL_Event e{};
        e.type = type;
        e.button.button = SDL_BUTTON_LEFT;
        e.button.x = x;
        e.button.y = y;
        send(e);
    }
    void windowEvent(Uint8 what) {
        SDL_Event e{};
        e.type = SDL_WINDOWEVENT;
        e.window.event = what;
        send(e);
    }

    TestPlatform tp{TestPlatform::NetworkKind::Fake};
    std::shared_ptr<ui::Window> window = std::make_shared<ui::Window>(makeRect(0, 0, 200, 100));
    std::shared_ptr<ui::Button> button = std::make_shared<ui::Button>(makeRect(100, 0, 100, 50));
    std::unique_ptr<pelora::desktop::DesktopWindow> shown;
    std::vector<pelora::platform::NotificationCenter::Token> tokens;
    std::vector<std::string> heard;
    int taps = 0;
};

TEST_F(DesktopWindowTest, MousePressAndReleaseAreATapOnTheButtonUnderThem) {
    mouse(SDL_MOUSEBUTTONDOWN, 150, 25);
    EXPECT_TRUE(button->highlighted());
    mouse(SDL_MOUSEBUTTONUP, 152, 27);
    EXPECT_EQ(taps, 1);
    EXPECT_FALSE(button->highlighted());

    // A press outside the button reaches nothing; a release without a press is ignored.
    mouse(SDL_MOUSEBUTTONDOWN, 20, 80);
    mouse(SDL_MOUSEBUTTONUP, 20, 80);
    mouse(SDL_MOUSEBUTTONUP, 150, 25);
    EXPECT_EQ(taps, 1);
}

TEST_F(DesktopWindowTest, MinimiseAndRestoreAreBackgroundAndForegroundOnce) {
    windowEvent(SDL_WINDOWEVENT_MINIMIZED);
    windowEvent(SDL_WINDOWEVENT_MINIMIZED);
    tp.pump();
    EXPECT_EQ(
        heard,
        (std::vector<std::string>{pelora::platform::kApplicationDidEnterBackgroundNotification}));
    windowEvent(SDL_WINDOWEVENT_RESTORED);
    windowEvent(SDL_WINDOWEVENT_RESTORED);
    tp.pump();
    EXPECT_EQ(heard, (std::vector<std::string>{
                         pelora::platform::kApplicationDidEnterBackgroundNotification,
                         pelora::platform::kApplicationWillEnterForegroundNotification}));
}

TEST_F(DesktopWindowTest, FramesArePresentedOnlyWhenTheTreeChanged) {
    tp.advance(1.0 / 60);
    const auto first = shown->framesPresented();
    EXPECT_EQ(first, 1u);
    for (int i = 0; i < 120; ++i) tp.advance(1.0 / 60);  // two idle seconds
    windowEvent(SDL_WINDOWEVENT_EXPOSED);  // shows the last picture again, draws nothing
    EXPECT_EQ(shown->framesPresented(), first);
    button->setBackgroundColor(ui::Color::rgba(0.2, 0.4, 0.8));
    tp.advance(1.0 / 60);
    EXPECT_EQ(shown->framesPresented(), first + 1);
}

TEST_F(DesktopWindowTest, ClosingTheWindowCallsTheQuitHandlerOnce) {
    int quits = 0;
    shown->setQuitHandler([&] { ++quits; });
    windowEvent(SDL_WINDOWEVENT_CLOSE);
    SDL_Event quit{};
    quit.type = SDL_QUIT;
    send(quit);
    EXPECT_EQ(quits, 1);
    EXPECT_TRUE(shown->closed());
    // A closed window takes no more touches.
    mouse(SDL_MOUSEBUTTONDOWN, 150, 25);
    mouse(SDL_MOUSEBUTTONUP, 150, 25);
    EXPECT_EQ(taps, 0);
}

}  // namespace
