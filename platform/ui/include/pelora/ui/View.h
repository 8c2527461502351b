#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "pelora/platform/Export.h"
#include "pelora/platform/Geometry.h"

namespace pelora::ui {

using platform::Point;
using platform::Rect;
using platform::Size;

// Components in 0...1.
struct PELORA_EXPORT Color {
    double red = 0;
    double green = 0;
    double blue = 0;
    double alpha = 0;
    static Color clear() { return {0, 0, 0, 0}; }
    static Color black() { return {0, 0, 0, 1}; }
    static Color white() { return {1, 1, 1, 1}; }
    static Color rgba(double r, double g, double b, double a = 1) { return {r, g, b, a}; }
    bool operator==(const Color&) const = default;
};

// How a view's content (an image view's image) fills its bounds. Values as the phone
// platform numbers them, so interface files can carry them as plain integers.
enum class ContentMode : int {
    ScaleToFill = 0,
    ScaleAspectFit = 1,
    ScaleAspectFill = 2,
    Center = 4,
};

// How a view follows its superview's size changes: the flexible parts share the change in
// proportion to their current lengths. Bits as the phone platform numbers them.
enum AutoresizingMask : unsigned {
    AutoresizingNone = 0,
    AutoresizingFlexibleLeftMargin = 1u << 0,
    AutoresizingFlexibleWidth = 1u << 1,
    AutoresizingFlexibleRightMargin = 1u << 2,
    AutoresizingFlexibleTopMargin = 1u << 3,
    AutoresizingFlexibleHeight = 1u << 4,
    AutoresizingFlexibleBottomMargin = 1u << 5,
};

class GestureRecognizer;
class Window;

// A rectangle in the tree the SDK draws into. There is no drawing here: the tree holds the
// state that a renderer, a host's input system or a test inspects. Every change that alters
// the picture (geometry, appearance, content, the hierarchy) tells the window holding the
// view, so a renderer draws only after something changed. Main thread only.
//
// Views live in std::shared_ptr (create them with std::make_shared); a superview owns its
// subviews, a subview points back weakly.
class PELORA_EXPORT View : public std::enable_shared_from_this<View> {
  public:
    View();
    explicit View(Rect frame);
    virtual ~View();
    View(const View&) = delete;
    View& operator=(const View&) = delete;

    // Name used in diagnostics ("dealloc %@", describeTree()); subclasses return their own.
    virtual std::string className() const { return "View"; }

    // --- geometry ------------------------------------------------------------------------
    Rect frame() const { return frame_; }
    // A size change resizes the subviews by their autoresizing masks.
    virtual void setFrame(Rect frame);
    unsigned autoresizingMask() const { return autoresizingMask_; }
    void setAutoresizingMask(unsigned mask) { autoresizingMask_ = mask; }
    // Origin (0, 0), size of the frame.
    Rect bounds() const { return Rect{{0, 0}, frame_.size}; }
    Point center() const;

    // Converts a point given in this view's coordinates into `view`'s coordinates; a null
    // view means the coordinates of the tree's root (the window when the view is in one).
    Point convertPointToView(Point point, const View* view) const;
    // Converts a point given in `view`'s coordinates (null: the root's) into this view's.
    Point convertPointFromView(Point point, const View* view) const;

    // --- appearance ----------------------------------------------------------------------
    bool hidden() const { return hidden_; }
    void setHidden(bool hidden) { update(hidden_, hidden); }
    double alpha() const { return alpha_; }
    void setAlpha(double alpha) { update(alpha_, alpha); }
    Color backgroundColor() const { return backgroundColor_; }
    void setBackgroundColor(Color color) { update(backgroundColor_, color); }
    double cornerRadius() const { return cornerRadius_; }
    void setCornerRadius(double radius) { update(cornerRadius_, radius); }
    bool clipsToBounds() const { return clipsToBounds_; }
    void setClipsToBounds(bool clips) { update(clipsToBounds_, clips); }
    ContentMode contentMode() const { return contentMode_; }
    void setContentMode(ContentMode mode) { update(contentMode_, mode); }
    int64_t tag() const { return tag_; }
    void setTag(int64_t tag) { tag_ = tag; }
    // Names a view for interface files (outlets) and tests.
    const std::string& accessibilityIdentifier() const { return accessibilityIdentifier_; }
    void setAccessibilityIdentifier(std::string identifier) {
        accessibilityIdentifier_ = std::move(identifier);
    }

    // --- interaction ---------------------------------------------------------------------
    bool userInteractionEnabled() const { return userInteractionEnabled_; }
    void setUserInteractionEnabled(bool enabled) { userInteractionEnabled_ = enabled; }

    // The deepest visible, interactive descendant (or this view) containing `point`, given
    // in this view's coordinates. Hidden views, views with alpha below 0.01 and views with
    // user interaction off are skipped together with their subtrees; later subviews (the
    // ones drawn on top) are asked first; a point outside a view's bounds reaches none of
    // its subviews.
    virtual std::shared_ptr<View> hitTest(Point point);
    virtual bool pointInside(Point point) const;

    void addGestureRecognizer(const std::shared_ptr<GestureRecognizer>& recognizer);
    void removeGestureRecognizer(const std::shared_ptr<GestureRecognizer>& recognizer);
    const std::vector<std::shared_ptr<GestureRecognizer>>& gestureRecognizers() const {
        return gestureRecognizers_;
    }

    // --- hierarchy -----------------------------------------------------------------------
    const std::vector<std::shared_ptr<View>>& subviews() const { return subviews_; }
    std::shared_ptr<View> superview() const { return superview_.lock(); }
    // The window whose tree holds this view, or null.
    std::shared_ptr<Window> window() const;

    // Adding a view that has another superview moves it; adding a view to itself or to one
    // of its descendants is refused.
    void addSubview(const std::shared_ptr<View>& view);
    void insertSubview(const std::shared_ptr<View>& view, size_t index);
    void bringSubviewToFront(const std::shared_ptr<View>& view);
    void sendSubviewToBack(const std::shared_ptr<View>& view);
    void removeFromSuperview();
    bool isDescendantOfView(const View* view) const;

    // Depth-first search of this view and its descendants.
    std::shared_ptr<View> viewWithTag(int64_t tag);
    std::shared_ptr<View> viewWithAccessibilityIdentifier(const std::string& identifier);

    // Called when the superview or the window changed (after the change).
    virtual void didMoveToSuperview() {}
    virtual void didMoveToWindow() {}

    // --- interface files -----------------------------------------------------------------
    // Called once on every view of a loaded interface file after the whole tree is built.
    virtual void awakeFromNib() {}
    // Named outlets delivered by the interface-file loader to the file's root view. The
    // default keeps them for outlet(name); subclasses may override to bind members.
    virtual void setOutlet(const std::string& name, std::shared_ptr<View> view);
    std::shared_ptr<View> outlet(const std::string& name) const;

    // --- per-view state attached by other layers -----------------------------------------
    // Keys are addresses of static variables. A null value removes the entry.
    void setAssociatedObject(const void* key, std::shared_ptr<void> value);
    std::shared_ptr<void> associatedObject(const void* key) const;

    // --- drawing ----------------------------------------------------------------------------
    // Tells the window holding this view (if any) that its picture changed. The setters of
    // the tree call it; a view subclass whose own content changes calls it too.
    void setNeedsDisplay();

    // --- debugging -----------------------------------------------------------------------
    // Indented dump of this subtree, one view per line: class, frame, hidden, alpha and the
    // view's own details (text, title, image).
    std::string describeTree() const;
    // This view's line of describeTree() after the common part; subclasses add their details.
    virtual std::string describeDetails() const { return {}; }

  protected:
    // Stores `value` and marks the picture changed when it differs from what was there.
    template <class T, class U>
    void update(T& field, U&& value) {
        if (field == value) return;
        field = std::forward<U>(value);
        setNeedsDisplay();
    }
    // Called on the root of the tree when something in it changed; a window counts it.
    virtual void treeNeedsDisplay() {}

  private:
    void attach(const std::shared_ptr<View>& view, size_t index);
    void describeInto(std::string& out, int depth) const;
    static void notifyMoveToWindow(View& view);

    Rect frame_;
    bool hidden_ = false;
    double alpha_ = 1.0;
    Color backgroundColor_ = Color::clear();
    double cornerRadius_ = 0;
    bool clipsToBounds_ = false;
    ContentMode contentMode_ = ContentMode::ScaleToFill;
    int64_t tag_ = 0;
    unsigned autoresizingMask_ = AutoresizingNone;
    std::string accessibilityIdentifier_;
    bool userInteractionEnabled_ = true;

    std::vector<std::shared_ptr<View>> subviews_;
    std::weak_ptr<View> superview_;
    std::vector<std::shared_ptr<GestureRecognizer>> gestureRecognizers_;
    std::map<std::string, std::shared_ptr<View>> outlets_;
    std::map<const void*, std::shared_ptr<void>> associated_;
};

}  // namespace pelora::ui
