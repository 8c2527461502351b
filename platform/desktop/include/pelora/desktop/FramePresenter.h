#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "pelora/desktop/ViewRenderer.h"
#include "pelora/platform/Export.h"
#include "pelora/platform/RunLoop.h"

namespace pelora::ui {
class Window;
}

namespace pelora::desktop {

// Keeps a picture of a window up to date on its run loop: the first change to the tree after
// a drawing posts one drawing task, so any number of changes made in one turn of the loop
// (a countdown tick that sets a label and a button) cost one frame, and a tree nobody changes
// costs nothing at all, not even a wake-up. Each new frame goes to the sink: a window's
// texture, an engine's upload, a test's counter.
//
// Takes over the window's needs-display handler while it lives. Main thread only.
class PELORA_EXPORT FramePresenter {
  public:
    using Sink = std::function<void(const RenderedFrame&)>;

    // Draws the window's current picture on the loop's next turn.
    FramePresenter(std::shared_ptr<ui::Window> window, platform::RunLoop& loop, double scale,
                   Sink sink);
    ~FramePresenter();
    FramePresenter(const FramePresenter&) = delete;
    FramePresenter& operator=(const FramePresenter&) = delete;

    // Draws now if the picture changed since the last frame (a window system asking for its
    // contents, a screenshot).
    void presentNow();
    const RenderedFrame& lastFrame() const { return renderer_.frame(); }
    uint64_t framesPresented() const { return framesPresented_; }
    ViewRenderer& renderer() { return renderer_; }

  private:
    void schedule();

    std::weak_ptr<ui::Window> window_;
    platform::RunLoop& loop_;
    ViewRenderer renderer_;
    Sink sink_;
    bool scheduled_ = false;
    uint64_t framesPresented_ = 0;
    // Posted drawings hold this weakly and do nothing once the presenter is gone.
    std::shared_ptr<FramePresenter*> self_;
};

}  // namespace pelora::desktop
