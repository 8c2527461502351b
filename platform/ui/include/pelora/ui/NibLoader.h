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

// A value of an interface file, as its reader hands it over: the view layer reads no file
// format itself, so any reader (JSON in the SDK, a generator in a test) can feed the loader.
struct PELORA_EXPORT NibValue {
    enum class Kind { Null, Bool, Number, String, Array, Object };
    Kind kind = Kind::Null;
    bool boolean = false;
    double number = 0;
    std::string string;
    std::vector<NibValue> array;
    std::map<std::string, NibValue> object;

    static NibValue makeBool(bool v) { return NibValue{.kind = Kind::Bool, .boolean = v}; }
    static NibValue makeNumber(double v) { return NibValue{.kind = Kind::Number, .number = v}; }
    static NibValue makeString(std::string v) {
        return NibValue{.kind = Kind::String, .string = std::move(v)};
    }
    bool isNumber() const { return kind == Kind::Number; }
    bool isString() const { return kind == Kind::String; }
    bool isBool() const { return kind == Kind::Bool; }
    bool isArray() const { return kind == Kind::Array; }
    bool isObject() const { return kind == Kind::Object; }
    const NibValue* find(const std::string& key) const;
};

// One view of an interface file: see docs/INTERFACE_FILES.md for the document around it.
struct PELORA_EXPORT NibNode {
    std::string className;
    std::string outlet;         // delivered to the file's root under this name when not empty
    std::optional<Rect> frame;  // absent: the class's default frame
    std::map<std::string, NibValue> properties;
    std::vector<NibNode> subviews;
};

// Builds view trees from interface-file nodes. Classes are created through a registry so that
// layers above this one (the SDK's own views) can be named in interface files; "View",
// "ImageView", "Label" and "Button" are always known.
class PELORA_EXPORT NibLoader {
  public:
    using Factory = std::function<std::shared_ptr<View>()>;
    // Resolves an image name of a file ("image", per-state button images).
    using ImageProvider = std::function<std::shared_ptr<platform::Image>(const std::string&)>;

    // Later registrations of the same name replace earlier ones. Thread-safe.
    static void registerClass(const std::string& className, Factory factory);
    static bool isClassRegistered(const std::string& className);

    // Builds the tree: creates every view through its factory, applies frames and properties,
    // adds subviews in order, delivers every named outlet to the root (View::setOutlet) and
    // finally calls awakeFromNib() on every view, children before their parent, so the root
    // wakes last with its outlets and subviews in place. Returns null, creating nothing
    // visible, when a class is unknown or a factory yields nothing; *error then says why.
    // Properties of the wrong type or unknown to the view's class are ignored.
    static std::shared_ptr<View> instantiate(const NibNode& root,
                                             const ImageProvider& images = nullptr,
                                             std::string* error = nullptr);
};

}  // namespace pelora::ui
