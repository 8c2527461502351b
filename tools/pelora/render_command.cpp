// `pelora render`: draws an interface file of the resource bundle into a PNG, so a layout can
// be looked at without a host, a device or an ad.

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Command.h"
#include "pelora/desktop/StbImageDecoder.h"
#include "pelora/desktop/ViewRenderer.h"
#include "pelora/ui/NibLoader.h"
#include "pelora/ui/View.h"
#include "support/PeloraResourceBundle.h"

namespace {

namespace fs = std::filesystem;
namespace ui = pelora::ui;

std::optional<std::string> readWhole(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

// The SDK's own view classes behave only inside an ad; here they draw as the plain views
// their file describes.
void registerUnknownClasses(const ui::NibNode& node, std::set<std::string>& standIns) {
    if (!ui::NibLoader::isClassRegistered(node.className)) {
        ui::NibLoader::registerClass(node.className, [] { return std::make_shared<ui::View>(); });
        standIns.insert(node.className);
    }
    for (const auto& sub : node.subviews) registerUnknownClasses(sub, standIns);
}

std::vector<std::string> splitNames(const std::string& list) {
    std::vector<std::string> out;
    std::stringstream in(list);
    for (std::string name; std::getline(in, name, ',');)
        if (!name.empty()) out.push_back(name);
    return out;
}

int runRender(const std::vector<std::string>& args) {
    using namespace pelora::cli;
    auto parsed = parseArgs(args, {"out", "scale", "show"});
    if (!parsed.error.empty()) return usageError("render", parsed.error);
    if (parsed.positional.size() != 1) return usageError("render", "expected one FILE.json");
    if (!parsed.has("out")) return usageError("render", "--out FILE.png is required");
    double scale = 2;
    if (parsed.has("scale") &&
        (!parseDouble(parsed.options["scale"], scale) || scale <= 0 || scale > 4))
        return usageError("render", "--scale takes a number above 0, at most 4");

    const fs::path file = parsed.positional[0];
    auto text = readWhole(file);
    if (!text) {
        std::cerr << "pelora: cannot read " << file.string() << "\n";
        return 1;
    }
    std::string error;
    auto node = PeloraParseInterfaceFile(*text, &error);
    if (!node) {
        std::cerr << "pelora: " << file.string() << ": " << error << "\n";
        return 1;
    }
    std::set<std::string> standIns;
    registerUnknownClasses(*node, standIns);

    // Images by name from the file's own directory, best scale first, as the SDK finds them.
    const fs::path dir = file.has_parent_path() ? file.parent_path() : fs::path(".");
    pelora::desktop::StbImageDecoder decoder;
    std::vector<std::string> missingImages;
    auto images = [&](const std::string& name) -> std::shared_ptr<pelora::platform::Image> {
        for (const auto& [candidate, imageScale] :
             PeloraResourceBundle::imageCandidates(name, scale)) {
            if (candidate.find('/') != std::string::npos ||
                candidate.find("..") != std::string::npos)
                continue;
            auto bytes = readWhole(dir / candidate);
            if (!bytes) continue;
            if (auto image = decoder.decode(*bytes, imageScale)) {
                image->name = candidate;
                return image;
            }
        }
        missingImages.push_back(name);
        return nullptr;
    };
    auto root = ui::NibLoader::instantiate(*node, images, &error);
    if (!root) {
        std::cerr << "pelora: " << file.string() << ": " << error << "\n";
        return 1;
    }
    // Parts a page shows only later (buttons, an end page) can be shown for the picture.
    if (parsed.has("show")) {
        for (const auto& name : splitNames(parsed.options["show"])) {
            auto view = root->viewWithAccessibilityIdentifier(name);
            if (!view) {
                std::cerr << "pelora: no view named " << name << " in " << file.string() << "\n";
                return 1;
            }
            for (auto v = view; v; v = v->superview()) v->setHidden(false);
        }
    }

    pelora::desktop::ViewRenderer renderer(scale);
    if (!renderer.writePNG(*root, parsed.options["out"], &error)) {
        std::cerr << "pelora: " << error << "\n";
        return 1;
    }
    std::cout << "rendered " << file.filename().string() << " (" << root->frame().size.width << "x"
              << root->frame().size.height << " points) into " << parsed.options["out"] << ", "
              << renderer.pixelWidth(*root) << "x" << renderer.pixelHeight(*root) << " px\n";
    for (const auto& name : standIns) std::cout << "note: " << name << " drawn as a plain view\n";
    for (const auto& name : missingImages)
        std::cout << "note: image \"" << name << "\" not found beside the file\n";
    if (renderer.unknownGlyphs() > 0)
        std::cout << "note: " << renderer.unknownGlyphs()
                  << " characters have no installed font and show as boxes\n";
    return 0;
}

const bool registered = pelora::cli::registerCommand({
    "render",
    "render FILE.json --out FILE.png [--scale S] [--show NAME,...]",
    "draw an interface file of the resource bundle into a PNG (S: pixels per point, default 2; "
    "--show: unhide the named views and their ancestors)",
    runRender,
});

}  // namespace
