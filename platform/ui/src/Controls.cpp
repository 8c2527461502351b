#include <cstdio>

#include "pelora/ui/Button.h"
#include "pelora/ui/ImageView.h"
#include "pelora/ui/Label.h"

namespace pelora::ui {

namespace {

std::string quoted(const std::string& text) {
    return "\"" + text + "\"";
}

template <class Map>
auto lookup(const Map& map, ControlState state) -> typename Map::mapped_type {
    auto it = map.find(static_cast<unsigned>(state));
    if (it != map.end()) return it->second;
    it = map.find(static_cast<unsigned>(ControlState::Normal));
    if (it != map.end()) return it->second;
    return {};
}

}  // namespace

ImageView::ImageView() {
    setUserInteractionEnabled(false);
}
ImageView::ImageView(Rect frame) : View(frame) {
    setUserInteractionEnabled(false);
}

std::string ImageView::describeDetails() const {
    if (!image_) return "image=none";
    char buf[64];
    std::snprintf(buf, sizeof buf, "%dx%d@%g", image_->pixelWidth, image_->pixelHeight,
                  image_->scale);
    return "image=" + (image_->name.empty() ? std::string("(unnamed)") : image_->name) + " " + buf;
}

Label::Label() {
    setUserInteractionEnabled(false);
}
Label::Label(Rect frame) : View(frame) {
    setUserInteractionEnabled(false);
}

std::string Label::describeDetails() const {
    return text_ ? "text=" + quoted(*text_) : "";
}

Button::Button() = default;
Button::Button(Rect frame) : View(frame) {}

ControlState Button::state() const {
    unsigned bits = 0;
    if (highlighted_) bits |= static_cast<unsigned>(ControlState::Highlighted);
    if (!enabled_) bits |= static_cast<unsigned>(ControlState::Disabled);
    if (selected_) bits |= static_cast<unsigned>(ControlState::Selected);
    return static_cast<ControlState>(bits);
}

void Button::setTitle(std::optional<std::string> title, ControlState state) {
    update(titles_[static_cast<unsigned>(state)], std::move(title));
}

std::optional<std::string> Button::titleForState(ControlState state) const {
    return lookup(titles_, state);
}

void Button::setImage(std::shared_ptr<platform::Image> image, ControlState state) {
    update(images_[static_cast<unsigned>(state)], std::move(image));
}

std::shared_ptr<platform::Image> Button::imageForState(ControlState state) const {
    return lookup(images_, state);
}

void Button::setTitleColor(std::optional<Color> color, ControlState state) {
    update(titleColors_[static_cast<unsigned>(state)], color);
}

std::optional<Color> Button::titleColorForState(ControlState state) const {
    return lookup(titleColors_, state);
}

void Button::addTarget(Action action, ControlEvent event) {
    if (action) actions_.emplace_back(event, std::move(action));
}

void Button::removeAllTargets() {
    actions_.clear();
}

void Button::sendActionsForControlEvents(ControlEvent event) {
    // An action may release the button (a skip button closing its ad).
    auto self = shared_from_this();
    auto actions = actions_;
    for (auto& [e, action] : actions)
        if (e == event) action(*this);
}

std::string Button::describeDetails() const {
    std::string out;
    if (auto title = currentTitle()) out += "title=" + quoted(*title);
    if (auto image = currentImage()) {
        if (!out.empty()) out += " ";
        out += "image=" + (image->name.empty() ? std::string("(unnamed)") : image->name);
    }
    if (selected_) out += out.empty() ? "selected" : " selected";
    if (!enabled_) out += out.empty() ? "disabled" : " disabled";
    return out;
}

}  // namespace pelora::ui
