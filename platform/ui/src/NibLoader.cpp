#include "pelora/ui/NibLoader.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <mutex>
#include <utility>

#include "pelora/ui/Button.h"
#include "pelora/ui/ImageView.h"
#include "pelora/ui/Label.h"

namespace pelora::ui {

const NibValue* NibValue::find(const std::string& key) const {
    if (kind != Kind::Object) return nullptr;
    auto it = object.find(key);
    return it == object.end() ? nullptr : &it->second;
}

namespace {

std::mutex& registryMutex() {
    static std::mutex mutex;
    return mutex;
}

std::map<std::string, NibLoader::Factory>& registry() {
    static std::map<std::string, NibLoader::Factory> factories = {
        {"View", [] { return std::make_shared<View>(); }},
        {"ImageView", [] { return std::make_shared<ImageView>(); }},
        {"Label", [] { return std::make_shared<Label>(); }},
        {"Button", [] { return std::make_shared<Button>(); }},
    };
    return factories;
}

NibLoader::Factory factoryFor(const std::string& className) {
    std::lock_guard lock(registryMutex());
    auto it = registry().find(className);
    return it == registry().end() ? NibLoader::Factory() : it->second;
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// [r, g, b] or [r, g, b, a] with components in 0...1, or "#RRGGBB" / "#RRGGBBAA".
std::optional<Color> readColor(const NibValue& v) {
    if (v.isArray() && (v.array.size() == 3 || v.array.size() == 4)) {
        double c[4] = {0, 0, 0, 1};
        for (size_t i = 0; i < v.array.size(); ++i) {
            if (!v.array[i].isNumber() || !std::isfinite(v.array[i].number)) return std::nullopt;
            c[i] = std::clamp(v.array[i].number, 0.0, 1.0);
        }
        return Color::rgba(c[0], c[1], c[2], c[3]);
    }
    if (v.isString() && !v.string.empty() && v.string[0] == '#' &&
        (v.string.size() == 7 || v.string.size() == 9)) {
        double c[4] = {0, 0, 0, 1};
        for (size_t i = 1, k = 0; i < v.string.size(); i += 2, ++k) {
            int hi = hexDigit(v.string[i]), lo = hexDigit(v.string[i + 1]);
            if (hi < 0 || lo < 0) return std::nullopt;
            c[k] = (hi * 16 + lo) / 255.0;
        }
        return Color::rgba(c[0], c[1], c[2], c[3]);
    }
    return std::nullopt;
}

std::optional<double> readNumber(const NibValue& v) {
    if (v.isNumber() && std::isfinite(v.number)) return v.number;
    return std::nullopt;
}

std::optional<ControlState> readState(const std::string& name) {
    if (name == "normal") return ControlState::Normal;
    if (name == "highlighted") return ControlState::Highlighted;
    if (name == "selected") return ControlState::Selected;
    if (name == "disabled") return ControlState::Disabled;
    return std::nullopt;
}

// Calls `apply(state, value)` for each "state name": value pair of a per-state object.
template <typename F>
void forEachState(const NibValue& v, F apply) {
    if (!v.isObject()) return;
    for (const auto& [name, value] : v.object) {
        if (auto state = readState(name)) apply(*state, value);
    }
}

// Whole numbers beyond what an integer property holds are ignored like values of the wrong type:
// converting them would be undefined. 2^53 is as far as a double counts every whole number.
constexpr double kExactWhole = 9007199254740992.0;
bool fitsWhole(double number, double lowest, double highest) {
    return number >= lowest && number <= highest;
}

void applyViewProperties(View& view, const std::map<std::string, NibValue>& props) {
    for (const auto& [key, value] : props) {
        if (key == "hidden" && value.isBool()) {
            view.setHidden(value.boolean);
        } else if (key == "alpha" && readNumber(value)) {
            view.setAlpha(std::clamp(value.number, 0.0, 1.0));
        } else if (key == "backgroundColor") {
            if (auto color = readColor(value)) view.setBackgroundColor(*color);
        } else if (key == "cornerRadius" && readNumber(value)) {
            view.setCornerRadius(std::max(0.0, value.number));
        } else if (key == "clipsToBounds" && value.isBool()) {
            view.setClipsToBounds(value.boolean);
        } else if (key == "userInteractionEnabled" && value.isBool()) {
            view.setUserInteractionEnabled(value.boolean);
        } else if (key == "tag" && readNumber(value) &&
                   fitsWhole(value.number, -kExactWhole, kExactWhole)) {
            view.setTag(static_cast<int64_t>(value.number));
        } else if (key == "contentMode" && readNumber(value) && fitsWhole(value.number, 0, 4)) {
            int mode = static_cast<int>(value.number);
            if (mode == 0 || mode == 1 || mode == 2 || mode == 4)
                view.setContentMode(static_cast<ContentMode>(mode));
        } else if (key == "accessibilityIdentifier" && value.isString()) {
            view.setAccessibilityIdentifier(value.string);
        } else if (key == "autoresizingMask" && readNumber(value) && value.number >= 0 &&
                   value.number < 64) {
            view.setAutoresizingMask(static_cast<unsigned>(value.number));
        }
    }
}

void applyLabelProperties(Label& label, const std::map<std::string, NibValue>& props) {
    for (const auto& [key, value] : props) {
        if (key == "text" && value.isString()) {
            label.setText(value.string);
        } else if (key == "textColor") {
            if (auto color = readColor(value)) label.setTextColor(*color);
        } else if (key == "fontSize" && readNumber(value) && value.number > 0) {
            label.setFontSize(value.number);
        } else if (key == "textAlignment" && value.isString()) {
            if (value.string == "left") label.setTextAlignment(TextAlignment::Left);
            if (value.string == "center") label.setTextAlignment(TextAlignment::Center);
            if (value.string == "right") label.setTextAlignment(TextAlignment::Right);
        } else if (key == "numberOfLines" && readNumber(value) &&
                   fitsWhole(value.number, 0, std::numeric_limits<int>::max())) {
            label.setNumberOfLines(static_cast<int>(value.number));
        } else if (key == "fontWeight" && value.isString()) {
            if (value.string == "regular") label.setFontWeight(FontWeight::Regular);
            if (value.string == "bold") label.setFontWeight(FontWeight::Bold);
        } else if (key == "lineBreakMode" && value.isString()) {
            static const std::pair<const char*, LineBreakMode> kModes[] = {
                {"wordWrap", LineBreakMode::WordWrap},
                {"charWrap", LineBreakMode::CharWrap},
                {"clip", LineBreakMode::Clip},
                {"truncatingHead", LineBreakMode::TruncatingHead},
                {"truncatingTail", LineBreakMode::TruncatingTail},
                {"truncatingMiddle", LineBreakMode::TruncatingMiddle},
            };
            for (const auto& [name, mode] : kModes)
                if (value.string == name) label.setLineBreakMode(mode);
        }
    }
}

void applyButtonProperties(Button& button, const std::map<std::string, NibValue>& props,
                           const NibLoader::ImageProvider& images) {
    for (const auto& [key, value] : props) {
        if (key == "titles") {
            forEachState(value, [&](ControlState state, const NibValue& v) {
                if (v.isString()) button.setTitle(v.string, state);
            });
        } else if (key == "titleColors") {
            forEachState(value, [&](ControlState state, const NibValue& v) {
                if (auto color = readColor(v)) button.setTitleColor(*color, state);
            });
        } else if (key == "images") {
            forEachState(value, [&](ControlState state, const NibValue& v) {
                // A missing image leaves the button without it, as a missing resource should.
                if (v.isString() && images) button.setImage(images(v.string), state);
            });
        } else if (key == "titleFontSize" && readNumber(value) && value.number > 0) {
            button.setTitleFontSize(value.number);
        } else if (key == "enabled" && value.isBool()) {
            button.setEnabled(value.boolean);
        } else if (key == "selected" && value.isBool()) {
            button.setSelected(value.boolean);
        }
    }
}

struct Built {
    std::shared_ptr<View> view;
    std::vector<Built> children;
};

bool build(const NibNode& node, const NibLoader::ImageProvider& images, Built& out,
           std::vector<std::pair<std::string, std::shared_ptr<View>>>& outlets,
           std::string* error) {
    auto factory = factoryFor(node.className);
    if (!factory) {
        if (error) *error = "unknown view class \"" + node.className + "\"";
        return false;
    }
    auto view = factory();
    if (!view) {
        if (error) *error = "class \"" + node.className + "\" created no view";
        return false;
    }
    if (node.frame) view->setFrame(*node.frame);
    applyViewProperties(*view, node.properties);
    if (auto* label = dynamic_cast<Label*>(view.get())) {
        applyLabelProperties(*label, node.properties);
    } else if (auto* button = dynamic_cast<Button*>(view.get())) {
        applyButtonProperties(*button, node.properties, images);
    } else if (auto* imageView = dynamic_cast<ImageView*>(view.get())) {
        auto image = node.properties.find("image");
        if (image != node.properties.end() && image->second.isString() && images)
            imageView->setImage(images(image->second.string));
    }
    if (!node.outlet.empty()) {
        if (view->accessibilityIdentifier().empty()) view->setAccessibilityIdentifier(node.outlet);
        outlets.emplace_back(node.outlet, view);
    }
    out.view = view;
    out.children.reserve(node.subviews.size());
    for (const auto& child : node.subviews) {
        Built built;
        if (!build(child, images, built, outlets, error)) return false;
        view->addSubview(built.view);
        out.children.push_back(std::move(built));
    }
    return true;
}

void awake(const Built& built) {
    for (const auto& child : built.children) awake(child);
    built.view->awakeFromNib();
}

}  // namespace

void NibLoader::registerClass(const std::string& className, Factory factory) {
    std::lock_guard lock(registryMutex());
    if (factory) {
        registry()[className] = std::move(factory);
    } else {
        registry().erase(className);
    }
}

bool NibLoader::isClassRegistered(const std::string& className) {
    std::lock_guard lock(registryMutex());
    return registry().count(className) != 0;
}

std::shared_ptr<View> NibLoader::instantiate(const NibNode& root, const ImageProvider& images,
                                             std::string* error) {
    Built built;
    std::vector<std::pair<std::string, std::shared_ptr<View>>> outlets;
    if (!build(root, images, built, outlets, error)) return nullptr;
    for (auto& [name, view] : outlets) {
        if (view != built.view) built.view->setOutlet(name, view);
    }
    awake(built);
    return built.view;
}

}  // namespace pelora::ui
