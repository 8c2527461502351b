#include "pelora/ui/Window.h"

#include <cmath>

#include "pelora/ui/Button.h"
#include "pelora/ui/GestureRecognizer.h"
#include "pelora/ui/ViewController.h"

namespace pelora::ui {

namespace {

std::weak_ptr<Window>& keyWindowSlot() {
    static std::weak_ptr<Window> slot;
    return slot;
}

bool hasEnabledTapRecognizer(const View& view) {
    for (auto& r : view.gestureRecognizers())
        if (r->enabled() && dynamic_cast<TapGestureRecognizer*>(r.get())) return true;
    return false;
}

}  // namespace

Window::Window() = default;
Window::Window(Rect frame) : View(frame) {}
Window::~Window() = default;

void Window::setRootViewController(std::shared_ptr<ViewController> controller) {
    if (controller == rootViewController_) return;
    if (rootViewController_ && rootViewController_->isViewLoaded()) {
        auto old = rootViewController_->view();
        if (old->superview().get() == this) old->removeFromSuperview();
    }
    rootViewController_ = std::move(controller);
    if (rootViewController_) {
        auto v = rootViewController_->view();
        v->setFrame(bounds());
        insertSubview(v, 0);
    }
}

std::shared_ptr<Window> Window::keyWindow() {
    return keyWindowSlot().lock();
}

void Window::makeKeyAndVisible() {
    setHidden(false);
    keyWindowSlot() = std::static_pointer_cast<Window>(shared_from_this());
}

void Window::treeNeedsDisplay() {
    ++displayRevision_;
    if (needsDisplayHandler_) needsDisplayHandler_();
}

bool Window::sendTap(Point point) {
    if (!touchDown(point)) return false;
    return touchUp(point);
}

bool Window::touchDown(Point point) {
    if (touchActive_) touchCancel();
    auto hit = hitTest(point);
    for (auto v = hit; v; v = v->superview()) {
        if (auto* button = dynamic_cast<Button*>(v.get()); button && button->enabled()) {
            touchTarget_ = v;
            touchActive_ = true;
            touchDownPoint_ = point;
            button->setHighlighted(true);
            button->sendActionsForControlEvents(ControlEvent::TouchDown);
            return true;
        }
        if (hasEnabledTapRecognizer(*v)) {
            touchTarget_ = v;
            touchActive_ = true;
            touchDownPoint_ = point;
            return true;
        }
    }
    return false;
}

bool Window::touchUp(Point point) {
    if (!touchActive_) return false;
    touchActive_ = false;
    auto target = touchTarget_.lock();
    touchTarget_.reset();
    if (!target) return false;

    if (auto button = std::dynamic_pointer_cast<Button>(target)) {
        button->setHighlighted(false);
        bool inside = button->pointInside(button->convertPointFromView(point, nullptr));
        button->sendActionsForControlEvents(inside ? ControlEvent::TouchUpInside
                                                   : ControlEvent::TouchUpOutside);
        return inside;
    }

    if (std::hypot(point.x - touchDownPoint_.x, point.y - touchDownPoint_.y) > kTapSlop)
        return false;
    // Like the phone platform, one recognizer takes a tap: the first enabled tap recognizer
    // of the view, in the order they were added.
    auto recognizers = target->gestureRecognizers();
    for (auto& r : recognizers) {
        if (!r->enabled() || !dynamic_cast<TapGestureRecognizer*>(r.get())) continue;
        return r->deliverTap(point);
    }
    return false;
}

void Window::touchCancel() {
    if (!touchActive_) return;
    touchActive_ = false;
    auto target = touchTarget_.lock();
    touchTarget_.reset();
    if (auto button = std::dynamic_pointer_cast<Button>(target)) {
        button->setHighlighted(false);
        button->sendActionsForControlEvents(ControlEvent::TouchCancel);
    }
}

}  // namespace pelora::ui
