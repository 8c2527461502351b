// The resource bundle operations of PeloraTool: finding the bundle, loading interface files
// and images by name.
#include <cmath>
#include <mutex>
#include <nlohmann/json.hpp>

#include "pelora/PeloraSDKManager.h"
#include "pelora/platform/Log.h"
#include "pelora/platform/Services.h"
#include "pelora/ui/NibLoader.h"
#include "pelora/ui/View.h"
#include "support/PeloraResourceBundle.h"
#include "support/PeloraTool.h"

namespace {

using nlohmann::json;
using pelora::ui::NibNode;
using pelora::ui::NibValue;

constexpr int kMaxInterfaceDepth = 64;

// The cache outlives every lookup; a mutex (rather than the bare store of the original
// design) because a shared_ptr written and read on two threads at once is undefined here.
std::mutex& bundleMutex() {
    static std::mutex mutex;
    return mutex;
}
std::shared_ptr<PeloraResourceBundle>& cachedBundle() {
    static std::shared_ptr<PeloraResourceBundle> bundle;
    return bundle;
}

bool safeResourceName(const std::string& name) {
    if (name.empty() || name.size() > 255) return false;
    if (name.find('/') != std::string::npos || name.find('\\') != std::string::npos) return false;
    if (name.find('\0') != std::string::npos) return false;
    return name != "." && name != "..";
}

bool hasExtension(const std::string& name) {
    auto dot = name.rfind('.');
    return dot != std::string::npos && dot > 0 && dot + 1 < name.size();
}

// "name@3x" -> 3; 0 without a scale suffix.
int scaleSuffix(const std::string& stem) {
    if (stem.size() >= 3 && stem[stem.size() - 3] == '@' && stem.back() == 'x') {
        char digit = stem[stem.size() - 2];
        if (digit >= '1' && digit <= '9') return digit - '0';
    }
    return 0;
}

NibValue toNibValue(const json& j, int depth) {
    NibValue v;
    if (depth > kMaxInterfaceDepth) return v;
    if (j.is_boolean()) return NibValue::makeBool(j.get<bool>());
    if (j.is_number()) return NibValue::makeNumber(j.get<double>());
    if (j.is_string()) return NibValue::makeString(j.get<std::string>());
    if (j.is_array()) {
        v.kind = NibValue::Kind::Array;
        for (const auto& e : j) v.array.push_back(toNibValue(e, depth + 1));
    } else if (j.is_object()) {
        v.kind = NibValue::Kind::Object;
        for (const auto& [key, e] : j.items()) v.object.emplace(key, toNibValue(e, depth + 1));
    }
    return v;
}

bool toNibNode(const json& j, NibNode& node, int depth, std::string* error) {
    auto fail = [&](const std::string& why) {
        if (error) *error = why;
        return false;
    };
    if (depth > kMaxInterfaceDepth) return fail("views nested too deeply");
    if (!j.is_object()) return fail("a view must be an object");
    if (!j.contains("class") || !j["class"].is_string()) return fail("a view needs a \"class\"");
    node.className = j["class"].get<std::string>();
    if (j.contains("outlet")) {
        if (!j["outlet"].is_string()) return fail("\"outlet\" must be a string");
        node.outlet = j["outlet"].get<std::string>();
    }
    if (j.contains("frame")) {
        const json& f = j["frame"];
        if (!f.is_array() || f.size() != 4) return fail("\"frame\" must be [x, y, width, height]");
        double v[4];
        for (size_t i = 0; i < 4; ++i) {
            if (!f[i].is_number() || !std::isfinite(f[i].get<double>()))
                return fail("\"frame\" must hold four numbers");
            v[i] = f[i].get<double>();
        }
        node.frame = pelora::platform::makeRect(v[0], v[1], v[2], v[3]);
    }
    if (j.contains("properties")) {
        if (!j["properties"].is_object()) return fail("\"properties\" must be an object");
        for (const auto& [key, value] : j["properties"].items())
            node.properties.emplace(key, toNibValue(value, depth + 1));
    }
    if (j.contains("subviews")) {
        if (!j["subviews"].is_array()) return fail("\"subviews\" must be an array");
        for (const auto& child : j["subviews"]) {
            NibNode sub;
            if (!toNibNode(child, sub, depth + 1, error)) return false;
            node.subviews.push_back(std::move(sub));
        }
    }
    return true;
}

}  // namespace

std::optional<std::string> PeloraResourceBundle::pathForResource(const std::string& name,
                                                                 const std::string& type) const {
    const std::string file = type.empty() ? name : name + "." + type;
    if (!safeResourceName(file)) return std::nullopt;
    const std::string path = bundlePath + "/" + file;
    const auto& services = pelora::platform::services();
    bool isDirectory = false;
    if (!services.files || !services.files->fileExists(path, &isDirectory) || isDirectory)
        return std::nullopt;
    return path;
}

std::vector<std::pair<std::string, double>> PeloraResourceBundle::imageCandidates(
    const std::string& name, double screenScale) {
    std::vector<std::pair<std::string, double>> out;
    if (name.empty()) return out;
    if (hasExtension(name)) {
        std::string stem = name.substr(0, name.rfind('.'));
        int scale = scaleSuffix(stem);
        out.emplace_back(name, scale ? scale : 1.0);
        return out;
    }
    if (int scale = scaleSuffix(name)) {
        for (const char* ext : {".png", ".jpg"}) out.emplace_back(name + ext, scale);
        return out;
    }
    int preferred = static_cast<int>(std::lround(screenScale));
    preferred = preferred < 1 ? 1 : (preferred > 3 ? 3 : preferred);
    std::vector<int> order = {preferred};
    for (int s = preferred + 1; s <= 3; ++s) order.push_back(s);
    for (int s = preferred - 1; s >= 1; --s) order.push_back(s);
    for (const char* ext : {".png", ".jpg"}) {
        for (int s : order) {
            out.emplace_back(s == 1 ? name + ext : name + "@" + std::to_string(s) + "x" + ext, s);
        }
    }
    return out;
}

std::optional<NibNode> PeloraParseInterfaceFile(const std::string& text, std::string* error) {
    json doc = json::parse(text, nullptr, /*allow_exceptions=*/false);
    if (doc.is_discarded()) {
        if (error) *error = "not JSON";
        return std::nullopt;
    }
    if (!doc.is_object() || !doc.contains("objects") || !doc["objects"].is_array() ||
        doc["objects"].empty()) {
        if (error) *error = "an interface file needs a non-empty \"objects\" list";
        return std::nullopt;
    }
    if (doc.contains("format") && doc["format"] != "pelora-interface") {
        if (error) *error = "unknown \"format\"";
        return std::nullopt;
    }
    NibNode node;
    if (!toNibNode(doc["objects"][0], node, 0, error)) return std::nullopt;
    return node;
}

void PeloraResetApiBundleCache() {
    std::lock_guard lock(bundleMutex());
    cachedBundle().reset();
}

namespace {

std::string withoutTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

}  // namespace

std::shared_ptr<PeloraResourceBundle> PeloraTool::apiBundle() {
    {
        std::lock_guard lock(bundleMutex());
        if (cachedBundle()) return cachedBundle();
    }
    if (!pelora::platform::hasServices()) return nullptr;
    const auto& services = pelora::platform::services();
    const auto& chosen = services.options.resourceBundlePath;
    if (!services.device || !services.files) return nullptr;
    const std::string bundleDir = std::string(PeloraResourceBundle::kBundleName) + "." +
                                  PeloraResourceBundle::kBundleExtension;
    // The host's choice alone when it made one; otherwise beside the host, then where the SDK
    // was installed.
    std::vector<std::string> candidates;
    if (chosen) {
        candidates.push_back(withoutTrailingSlashes(*chosen));
    } else {
        std::string main = withoutTrailingSlashes(services.device->mainBundlePath());
        candidates.push_back((main.empty() ? std::string(".") : main) + "/" + bundleDir);
#ifdef PELORA_INSTALL_DATA_DIR
        candidates.push_back(std::string(PELORA_INSTALL_DATA_DIR) + "/" + bundleDir);
#endif
    }
    for (const auto& path : candidates) {
        bool isDirectory = false;
        if (!services.files->fileExists(path, &isDirectory) || !isDirectory) continue;
        auto bundle = std::make_shared<PeloraResourceBundle>();
        bundle->bundlePath = path;
        std::lock_guard lock(bundleMutex());
        // Two first lookups may race; both found the same directory, the first store stays.
        if (!cachedBundle()) cachedBundle() = bundle;
        return cachedBundle();
    }
    static std::once_flag logged;
    std::call_once(logged, [&] {
        std::string looked;
        for (const auto& path : candidates) looked += (looked.empty() ? "" : ", ") + path;
        pelora::platform::log(pelora::platform::LogLevel::Error,
                              "sdk: resource bundle " + bundleDir + " not found (looked in " +
                                  looked + "); splash and video views cannot be made");
    });
    return nullptr;
}

std::shared_ptr<pelora::ui::View> PeloraTool::loadNib(const std::string& name) {
    auto bundle = apiBundle();
    if (!bundle) return nullptr;
    std::string stem = name;
    if (stem.size() > 5 && stem.compare(stem.size() - 5, 5, ".json") == 0)
        stem.resize(stem.size() - 5);
    auto path = bundle->pathForResource(stem, "json");
    if (!path) return nullptr;
    auto text = pelora::platform::services().files->readFile(*path);
    if (!text) return nullptr;
    std::string error;
    auto node = PeloraParseInterfaceFile(*text, &error);
    if (!node) {
        pelora::platform::log(pelora::platform::LogLevel::Error,
                              "interface file " + stem + ": " + error);
        return nullptr;
    }
    auto view = pelora::ui::NibLoader::instantiate(
        *node, [](const std::string& image) { return PeloraTool::imageWithName(image); }, &error);
    if (!view) {
        pelora::platform::log(pelora::platform::LogLevel::Error,
                              "interface file " + stem + ": " + error);
    }
    return view;
}

std::shared_ptr<pelora::platform::Image> PeloraTool::imageWithName(const std::string& name) {
    auto bundle = apiBundle();
    if (!bundle) return nullptr;
    const auto& services = pelora::platform::services();
    if (!services.imageDecoder) return nullptr;
    const double screenScale = services.device ? services.device->screenScale() : 1.0;
    for (const auto& [file, scale] : PeloraResourceBundle::imageCandidates(name, screenScale)) {
        auto path = bundle->pathForResource(file, "");
        if (!path) continue;
        auto bytes = services.files->readFile(*path);
        if (!bytes) continue;
        auto image = services.imageDecoder->decode(*bytes, scale);
        if (!image) continue;
        image->name = file;
        return image;
    }
    return nullptr;
}

void PeloraTool::screenPixels(int64_t& width, int64_t& height) {
    width = 0;
    height = 0;
    if (!pelora::platform::hasServices()) return;
    const auto& device = pelora::platform::services().device;
    if (!device) return;
    auto bounds = device->screenBounds();
    double scale = device->screenScale();
    width = static_cast<int64_t>(std::trunc(bounds.width() * scale));
    height = static_cast<int64_t>(std::trunc(bounds.height() * scale));
}
