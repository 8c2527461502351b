#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "pelora/platform/Export.h"
#include "pelora/ui/View.h"

namespace pelora::ui {

enum class GestureRecognizerState {
    Possible = 0,
    Began = 1,
    Changed = 2,
    Ended = 3,
    Cancelled = 4,
    Failed = 5,
    Recognized = Ended,
};

// Base of the recognizers a view carries. A recognizer belongs to at most one view, which it
// points to weakly: once the view is gone, view() is null.
class PELORA_EXPORT GestureRecognizer : public std::enable_shared_from_this<GestureRecognizer> {
  public:
    GestureRecognizer() = default;
    virtual ~GestureRecognizer() = default;
    GestureRecognizer(const GestureRecognizer&) = delete;
    GestureRecognizer& operator=(const GestureRecognizer&) = delete;

    virtual std::string className() const { return "GestureRecognizer"; }

    std::shared_ptr<View> view() const { return view_.lock(); }
    bool enabled() const { return enabled_; }
    void setEnabled(bool enabled) { enabled_ = enabled; }
    GestureRecognizerState state() const { return state_; }

    // The touch point of the gesture being delivered (or the last one delivered) in `view`'s
    // coordinates; a null view gives the coordinates of the tree's root (the window).
    Point locationInView(const View* view) const;

  protected:
    // Delivers a touch sequence that ended at `rootPoint` (root coordinates). Returns true
    // when the recognizer recognized it and ran its actions.
    virtual bool deliverTap(Point rootPoint) = 0;

    GestureRecognizerState state_ = GestureRecognizerState::Possible;

  private:
    friend class View;
    friend class Window;

    std::weak_ptr<View> view_;
    bool enabled_ = true;
    Point rootLocation_;

  protected:
    void setLocation(Point rootPoint);
};

// Recognizes a single tap and calls its actions in the order they were added.
class PELORA_EXPORT TapGestureRecognizer : public GestureRecognizer {
  public:
    using Action = std::function<void(TapGestureRecognizer&)>;

    TapGestureRecognizer() = default;
    explicit TapGestureRecognizer(Action action);

    std::string className() const override { return "TapGestureRecognizer"; }

    void addTarget(Action action);
    size_t numberOfTapsRequired() const { return 1; }

  protected:
    bool deliverTap(Point rootPoint) override;

  private:
    std::vector<Action> actions_;
};

}  // namespace pelora::ui
