#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pelora/platform/Export.h"
#include "pelora/platform/Image.h"
#include "pelora/ui/View.h"

namespace pelora::ui {

// Control states as the phone platform numbers them (a bit set; Normal is no bit).
enum class ControlState : unsigned {
    Normal = 0,
    Highlighted = 1u << 0,
    Disabled = 1u << 1,
    Selected = 1u << 2,
};

enum class ControlEvent : unsigned {
    TouchDown = 1u << 0,
    TouchUpInside = 1u << 6,
    TouchUpOutside = 1u << 7,
    TouchCancel = 1u << 8,
};

// A tappable control with a title, an image and a title color per state. A touch that starts
// on the button and ends inside its bounds fires TouchUpInside; one that ends outside fires
// TouchUpOutside. A disabled button fires nothing and passes the touch on to its ancestors.
class PELORA_EXPORT Button : public View {
  public:
    using Action = std::function<void(Button& sender)>;

    Button();
    explicit Button(Rect frame);

    std::string className() const override { return "Button"; }

    bool enabled() const { return enabled_; }
    void setEnabled(bool enabled) { update(enabled_, enabled); }
    bool selected() const { return selected_; }
    void setSelected(bool selected) { update(selected_, selected); }
    bool highlighted() const { return highlighted_; }
    void setHighlighted(bool highlighted) { update(highlighted_, highlighted); }
    // The combination of the flags above.
    ControlState state() const;

    // Per-state values; a state without its own value shows the Normal one.
    void setTitle(std::optional<std::string> title, ControlState state);
    std::optional<std::string> titleForState(ControlState state) const;
    std::optional<std::string> currentTitle() const { return titleForState(state()); }
    void setImage(std::shared_ptr<platform::Image> image, ControlState state);
    std::shared_ptr<platform::Image> imageForState(ControlState state) const;
    std::shared_ptr<platform::Image> currentImage() const { return imageForState(state()); }
    void setTitleColor(std::optional<Color> color, ControlState state);
    std::optional<Color> titleColorForState(ControlState state) const;
    double titleFontSize() const { return titleFontSize_; }
    void setTitleFontSize(double size) { update(titleFontSize_, size); }

    // Actions run in the order they were added, for the events they were added for.
    void addTarget(Action action, ControlEvent event);
    void removeAllTargets();
    void sendActionsForControlEvents(ControlEvent event);

    std::string describeDetails() const override;

  private:
    bool enabled_ = true;
    bool selected_ = false;
    bool highlighted_ = false;
    double titleFontSize_ = 15;
    std::map<unsigned, std::optional<std::string>> titles_;
    std::map<unsigned, std::shared_ptr<platform::Image>> images_;
    std::map<unsigned, std::optional<Color>> titleColors_;
    std::vector<std::pair<ControlEvent, Action>> actions_;
};

}  // namespace pelora::ui
