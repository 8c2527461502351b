#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "pelora/platform/Export.h"
#include "pelora/platform/Geometry.h"
#include "pelora/platform/RunLoop.h"

namespace pelora::ui {
class Window;
}

namespace pelora::desktop {

struct PELORA_EXPORT DesktopWindowOptions {
    std::string title = "Pelora";
    // Pixels per point of the picture (the device's screen scale, usually).
    double renderScale = 2;
    // Size of the window on the screen, in screen pixels per point of the tree: 1 shows a
    // 375x667-point phone in a 375x667 window, drawn at renderScale and scaled down to fit.
    double windowScale = 1;
};

// A real window (SDL2) that shows a view tree and lets a person use it: mouse presses and
// releases become the tree's touches (so tapping an ad, skip, mute and close work as on a
// phone), minimising and restoring the window become the application's background and
// foreground notifications, and closing it calls the quit handler.
//
// Everything runs on the given run loop: the window system's connection is one of its
// watched descriptors, and a frame is drawn and presented only when the tree changed or a
// video frame arrived. An idle window costs no frames and no wake-ups.
//
// One window per process, on the main thread; it needs a display ($DISPLAY under X11).
class PELORA_EXPORT DesktopWindow {
  public:
    // Opens the window; null, with the reason in *error, when there is no display to open it on.
    static std::unique_ptr<DesktopWindow> open(std::shared_ptr<ui::Window> window,
                                               platform::RunLoop& loop,
                                               const DesktopWindowOptions& options = {},
                                               std::string* error = nullptr);
    ~DesktopWindow();
    DesktopWindow(const DesktopWindow&) = delete;
    DesktopWindow& operator=(const DesktopWindow&) = delete;

    // Called once when the person closes the window.
    void setQuitHandler(std::function<void()> handler);
    bool closed() const;
    uint64_t framesPresented() const;
    // The window's identifier in the window system (an X11 window id), 0 when unknown; for
    // tools that drive the window from outside.
    uint64_t nativeWindowId() const;
    // Converts a position in the window (screen pixels) into the tree's points.
    platform::Point pointForWindowPosition(int x, int y) const;

  private:
    struct Impl;
    explicit DesktopWindow(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

}  // namespace pelora::desktop
