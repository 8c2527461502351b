#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "pelora/platform/Export.h"
#include "pelora/ui/View.h"

namespace pelora::ui {

class ViewController;
class Button;

// The root of a view tree and the entry point for touches. A renderer or a host's input
// system hands touches in window coordinates to sendTap (or touchDown/touchUp); tests call
// them directly.
class PELORA_EXPORT Window : public View {
  public:
    Window();
    explicit Window(Rect frame);
    ~Window() override;

    std::string className() const override { return "Window"; }

    // The root view controller's view fills the window and is its first subview.
    std::shared_ptr<ViewController> rootViewController() const { return rootViewController_; }
    void setRootViewController(std::shared_ptr<ViewController> controller);

    // The window made key most recently that is still alive.
    static std::shared_ptr<Window> keyWindow();
    void makeKeyAndVisible();

    // A whole tap at `point`: touchDown then touchUp at the same point. Returns true when a
    // recognizer or a button took it.
    bool sendTap(Point point);

    // The view under the point is found by hit-testing. The touch goes to the first view on
    // the way from that view up to the window that either is an enabled button (which then
    // tracks the touch: TouchDown now, TouchUpInside/Outside on touchUp) or carries an
    // enabled tap recognizer (recognized on touchUp when the touch moved no more than
    // kTapSlop points). Returns true when some view took the touch.
    bool touchDown(Point point);
    bool touchUp(Point point);
    // Ends the current touch without delivering it (TouchCancel for a tracking button).
    void touchCancel();

    static constexpr double kTapSlop = 10.0;

    // --- drawing ---------------------------------------------------------------------------
    // Counts the changes to the picture of this tree: a renderer that remembers the revision
    // it drew knows, with one comparison, whether the window needs drawing again.
    uint64_t displayRevision() const { return displayRevision_; }
    // Called on every change (on the main thread, inside the setter that made it). A presenter
    // uses it to schedule one drawing on its run loop; it must not change the tree itself.
    void setNeedsDisplayHandler(std::function<void()> handler) {
        needsDisplayHandler_ = std::move(handler);
    }

  protected:
    void treeNeedsDisplay() override;

  private:
    uint64_t displayRevision_ = 1;
    std::function<void()> needsDisplayHandler_;
    std::shared_ptr<ViewController> rootViewController_;
    std::weak_ptr<View> touchTarget_;
    bool touchActive_ = false;
    Point touchDownPoint_;
};

}  // namespace pelora::ui
