#include "pelora/ui/View.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "pelora/ui/GestureRecognizer.h"
#include "pelora/ui/Window.h"

namespace pelora::ui {

namespace {

// Offset of a view's coordinate space in its superview's: the frame origin (bounds always
// start at 0,0 in this tree). Returns the point in the root's coordinates.
Point toRoot(const View* view, Point p) {
    for (const View* v = view; v != nullptr;) {
        auto super = v->superview();
        if (!super) break;
        p.x += v->frame().origin.x;
        p.y += v->frame().origin.y;
        v = super.get();
    }
    return p;
}

Point fromRoot(const View* view, Point p) {
    Point offset = toRoot(view, Point{0, 0});
    return Point{p.x - offset.x, p.y - offset.y};
}

std::string formatNumber(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%g", v);
    return buf;
}

}  // namespace

View::View() = default;
View::View(Rect frame) : frame_(frame) {}

View::~View() = default;

namespace {

// Shares `delta` among the flexible ones of three consecutive lengths, in proportion to their
// lengths (equally when they are all zero); returns the change of each.
void distribute(double delta, const double lengths[3], const bool flexible[3], double out[3]) {
    double total = 0;
    int count = 0;
    for (int i = 0; i < 3; ++i) {
        out[i] = 0;
        if (flexible[i]) {
            total += lengths[i];
            ++count;
        }
    }
    if (count == 0) return;
    for (int i = 0; i < 3; ++i) {
        if (!flexible[i]) continue;
        out[i] = total > 0 ? delta * lengths[i] / total : delta / count;
    }
}

}  // namespace

void View::setFrame(Rect frame) {
    const Size old = frame_.size;
    if (frame_ == frame) return;
    frame_ = frame;
    setNeedsDisplay();
    if (old.width == frame.size.width && old.height == frame.size.height) return;
    const double dw = frame.size.width - old.width;
    const double dh = frame.size.height - old.height;
    for (const auto& sub : subviews_) {
        const unsigned mask = sub->autoresizingMask();
        if (mask == AutoresizingNone) continue;
        Rect f = sub->frame();
        double out[3];
        {
            const double lengths[3] = {f.origin.x, f.size.width,
                                       old.width - f.origin.x - f.size.width};
            const bool flex[3] = {(mask & AutoresizingFlexibleLeftMargin) != 0,
                                  (mask & AutoresizingFlexibleWidth) != 0,
                                  (mask & AutoresizingFlexibleRightMargin) != 0};
            distribute(dw, lengths, flex, out);
            f.origin.x += out[0];
            f.size.width += out[1];
        }
        {
            const double lengths[3] = {f.origin.y, f.size.height,
                                       old.height - f.origin.y - f.size.height};
            const bool flex[3] = {(mask & AutoresizingFlexibleTopMargin) != 0,
                                  (mask & AutoresizingFlexibleHeight) != 0,
                                  (mask & AutoresizingFlexibleBottomMargin) != 0};
            distribute(dh, lengths, flex, out);
            f.origin.y += out[0];
            f.size.height += out[1];
        }
        sub->setFrame(f);
    }
}

Point View::center() const {
    return Point{frame_.origin.x + frame_.size.width / 2, frame_.origin.y + frame_.size.height / 2};
}

Point View::convertPointToView(Point point, const View* view) const {
    Point root = toRoot(this, point);
    return view ? fromRoot(view, root) : root;
}

Point View::convertPointFromView(Point point, const View* view) const {
    Point root = view ? toRoot(view, point) : point;
    return fromRoot(this, root);
}

bool View::pointInside(Point point) const {
    return bounds().contains(point);
}

std::shared_ptr<View> View::hitTest(Point point) {
    if (hidden_ || alpha_ < 0.01 || !userInteractionEnabled_) return nullptr;
    if (!pointInside(point)) return nullptr;
    // Copy: a view's hitTest override could change the list.
    auto subs = subviews_;
    for (auto it = subs.rbegin(); it != subs.rend(); ++it) {
        Point local{point.x - (*it)->frame_.origin.x, point.y - (*it)->frame_.origin.y};
        if (auto hit = (*it)->hitTest(local)) return hit;
    }
    return shared_from_this();
}

void View::addGestureRecognizer(const std::shared_ptr<GestureRecognizer>& recognizer) {
    if (!recognizer) return;
    if (auto owner = recognizer->view()) {
        if (owner.get() == this) return;
        owner->removeGestureRecognizer(recognizer);
    }
    gestureRecognizers_.push_back(recognizer);
    recognizer->view_ = weak_from_this();
}

void View::removeGestureRecognizer(const std::shared_ptr<GestureRecognizer>& recognizer) {
    auto it = std::find(gestureRecognizers_.begin(), gestureRecognizers_.end(), recognizer);
    if (it == gestureRecognizers_.end()) return;
    (*it)->view_.reset();
    gestureRecognizers_.erase(it);
}

std::shared_ptr<Window> View::window() const {
    const View* v = this;
    std::shared_ptr<View> holder;
    while (auto super = v->superview()) {
        holder = super;
        v = holder.get();
    }
    auto* w = dynamic_cast<const Window*>(v);
    if (!w) return nullptr;
    return std::static_pointer_cast<Window>(std::const_pointer_cast<View>(w->shared_from_this()));
}

void View::setNeedsDisplay() {
    View* v = this;
    std::shared_ptr<View> holder;
    while (auto super = v->superview()) {
        holder = std::move(super);
        v = holder.get();
    }
    v->treeNeedsDisplay();
}

bool View::isDescendantOfView(const View* view) const {
    if (!view) return false;
    const View* v = this;
    std::shared_ptr<View> holder;
    while (v) {
        if (v == view) return true;
        holder = v->superview();
        v = holder.get();
    }
    return false;
}

void View::notifyMoveToWindow(View& view) {
    view.didMoveToWindow();
    auto subs = view.subviews_;
    for (auto& s : subs) notifyMoveToWindow(*s);
}

void View::attach(const std::shared_ptr<View>& view, size_t index) {
    if (!view || view.get() == this || isDescendantOfView(view.get())) return;
    auto oldWindow = view->window();
    auto keep = view;  // survives removal from the old superview
    if (auto old = view->superview()) {
        auto& list = old->subviews_;
        list.erase(std::remove(list.begin(), list.end(), view), list.end());
    }
    if (oldWindow) oldWindow->setNeedsDisplay();
    index = std::min(index, subviews_.size());
    subviews_.insert(subviews_.begin() + static_cast<std::ptrdiff_t>(index), view);
    view->superview_ = weak_from_this();
    setNeedsDisplay();
    view->didMoveToSuperview();
    if (view->window() != oldWindow) notifyMoveToWindow(*view);
}

void View::addSubview(const std::shared_ptr<View>& view) {
    attach(view, SIZE_MAX);
}

void View::insertSubview(const std::shared_ptr<View>& view, size_t index) {
    attach(view, index);
}

void View::bringSubviewToFront(const std::shared_ptr<View>& view) {
    auto it = std::find(subviews_.begin(), subviews_.end(), view);
    if (it == subviews_.end()) return;
    subviews_.erase(it);
    subviews_.push_back(view);
    setNeedsDisplay();
}

void View::sendSubviewToBack(const std::shared_ptr<View>& view) {
    auto it = std::find(subviews_.begin(), subviews_.end(), view);
    if (it == subviews_.end()) return;
    subviews_.erase(it);
    subviews_.insert(subviews_.begin(), view);
    setNeedsDisplay();
}

void View::removeFromSuperview() {
    auto super = superview();
    if (!super) return;
    auto self = shared_from_this();  // the superview held the last reference, maybe
    auto oldWindow = window();
    super->setNeedsDisplay();
    auto& list = super->subviews_;
    list.erase(std::remove(list.begin(), list.end(), self), list.end());
    superview_.reset();
    didMoveToSuperview();
    if (oldWindow) notifyMoveToWindow(*this);
}

std::shared_ptr<View> View::viewWithTag(int64_t tag) {
    if (tag_ == tag) return shared_from_this();
    for (auto& s : subviews_)
        if (auto v = s->viewWithTag(tag)) return v;
    return nullptr;
}

std::shared_ptr<View> View::viewWithAccessibilityIdentifier(const std::string& identifier) {
    if (accessibilityIdentifier_ == identifier) return shared_from_this();
    for (auto& s : subviews_)
        if (auto v = s->viewWithAccessibilityIdentifier(identifier)) return v;
    return nullptr;
}

void View::setOutlet(const std::string& name, std::shared_ptr<View> view) {
    if (view)
        outlets_[name] = std::move(view);
    else
        outlets_.erase(name);
}

std::shared_ptr<View> View::outlet(const std::string& name) const {
    auto it = outlets_.find(name);
    return it == outlets_.end() ? nullptr : it->second;
}

void View::setAssociatedObject(const void* key, std::shared_ptr<void> value) {
    if (value)
        associated_[key] = std::move(value);
    else
        associated_.erase(key);
}

std::shared_ptr<void> View::associatedObject(const void* key) const {
    auto it = associated_.find(key);
    return it == associated_.end() ? nullptr : it->second;
}

std::string View::describeTree() const {
    std::string out;
    describeInto(out, 0);
    return out;
}

void View::describeInto(std::string& out, int depth) const {
    out.append(static_cast<size_t>(depth) * 2, ' ');
    out += className();
    out += " frame=(" + formatNumber(frame_.origin.x) + "," + formatNumber(frame_.origin.y) + "," +
           formatNumber(frame_.size.width) + "," + formatNumber(frame_.size.height) + ")";
    if (hidden_) out += " hidden";
    if (alpha_ != 1.0) out += " alpha=" + formatNumber(alpha_);
    if (!userInteractionEnabled_) out += " noninteractive";
    if (!accessibilityIdentifier_.empty()) out += " id=" + accessibilityIdentifier_;
    if (tag_ != 0) out += " tag=" + std::to_string(tag_);
    if (!gestureRecognizers_.empty())
        out += " recognizers=" + std::to_string(gestureRecognizers_.size());
    std::string details = describeDetails();
    if (!details.empty()) out += " " + details;
    out += "\n";
    for (auto& s : subviews_) s->describeInto(out, depth + 1);
}

}  // namespace pelora::ui
