// The real window on a virtual display (the test program runs under xvfb-run): what the
// window system hands SDL becomes touches, life-cycle notifications and a quit. (Frames are
// presented only when the tree changed: the presenter's tests in tests/render count them.) Events
// are queued through SDL, the way the X server's arrive; the run loop is the manual one, so its
// clock drives the window's input polling and nothing waits in real time.
#include <SDL.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TestPlatform.h"
#include "pelora/desktop/DesktopWindow.h"
#include "pelora/platform/NotificationCenter.h"
#include "pelora/ui/UI.h"

namespace {

namespace ui = pelora::ui;
namespace platform = pelora::platform;

// SDL's video subsystem stays up for the whole program: each window's close then leaves the
// X11 libraries SDL loaded in place, so whatever they keep until exit is theirs, by name, for
// the leak checker.
struct KeepVideoLoaded : ::testing::Environment {
    void SetUp() override { SDL_InitSubSystem(SDL_INIT_VIDEO); }
};
const auto* const keepVideo = ::testing::AddGlobalTestEnvironment(new KeepVideoLoaded);

// What the closed window leaves in SDL's queue (the quit among it) would reach any window
// opened after it in the same program.
TEST(DesktopWindowTest, MouseMinimiseRestoreAndCloseBecomeTapsNotificationsAndOneQuit) {
    pelora::testing::TestPlatform tp{pelora::testing::TestPlatform::NetworkKind::Fake};
    auto window = std::make_shared<ui::Window>(platform::makeRect(0, 0, 200, 100));
    auto button = std::make_shared<ui::Button>(platform::makeRect(100, 0, 100, 50));
    int taps = 0;
    button->addTarget([&](ui::Button&) { ++taps; }, ui::ControlEvent::TouchUpInside);
    window->addSubview(button);
    // SDL's software renderer: the virtual display has no GPU, and a GL driver that SDL loads
    // and unloads again leaves the leak checker allocations it cannot attribute.
    SDL_SetHint(SDL_HINT_RENDER_DRIVER, "software");
    std::string why;
    auto shown = pelora::desktop::DesktopWindow::open(window, *tp.loop,
                                                      {.renderScale = 2, .windowScale = 1}, &why);
    if (!shown) GTEST_SKIP() << "no display: " << why;
    // One window-system event, then a sixtieth of a second for the window to look at it.
    auto send = [&](SDL_Event event) {
        SDL_PushEvent(&event);
        tp.advance(1.0 / 60);
    };
    auto mouse = [&](Uint32 type, int x, int y) {
        send({.button = {.type = type, .button = SDL_BUTTON_LEFT, .x = x, .y = y}});
    };
    auto windowEvent = [&](Uint8 what) {
        send({.window = {.type = SDL_WINDOWEVENT, .event = what}});
    };

    // A press and a release a little apart, in window pixels; a person's click through the X
    // server is WindowEndToEnd's (tests/window).
    mouse(SDL_MOUSEBUTTONDOWN, 150, 25);
    mouse(SDL_MOUSEBUTTONUP, 152, 27);
    EXPECT_EQ(taps, 1);

    std::vector<std::string> heard;
    auto& center = platform::NotificationCenter::defaultCenter();
    auto note = [&](const platform::Notification& n) { heard.push_back(n.name); };
    auto background =
        center.addObserver(platform::kApplicationDidEnterBackgroundNotification, note);
    auto foreground =
        center.addObserver(platform::kApplicationWillEnterForegroundNotification, note);
    for (Uint8 what : {SDL_WINDOWEVENT_MINIMIZED, SDL_WINDOWEVENT_MINIMIZED,
                       SDL_WINDOWEVENT_RESTORED, SDL_WINDOWEVENT_RESTORED})
        windowEvent(what);
    tp.pump();
    center.removeObserver(background);
    center.removeObserver(foreground);
    EXPECT_EQ(heard,
              (std::vector<std::string>{platform::kApplicationDidEnterBackgroundNotification,
                                        platform::kApplicationWillEnterForegroundNotification}));

    int quits = 0;
    shown->setQuitHandler([&] { ++quits; });
    windowEvent(SDL_WINDOWEVENT_CLOSE);
    send(SDL_Event{.type = SDL_QUIT});
    EXPECT_EQ(quits, 1);
    EXPECT_TRUE(shown->closed());
    mouse(SDL_MOUSEBUTTONDOWN, 150, 25);  // a closed window takes no more touches
    mouse(SDL_MOUSEBUTTONUP, 150, 25);
    EXPECT_EQ(taps, 1);
}

}  // namespace
