// Interface files: JSON text -> the loader's nodes -> a view tree. Any text either fails with
// a reason or gives a tree of exactly the file's shape, with every named outlet below the root
// delivered to the root.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "FuzzCheck.h"
#include "pelora/platform/Image.h"
#include "pelora/ui/NibLoader.h"
#include "pelora/ui/View.h"
#include "support/PeloraResourceBundle.h"

namespace {

using pelora::ui::NibNode;
using pelora::ui::View;

// Plain views stand in for the SDK's own classes named in the bundled files, which need a
// running platform to be made.
void registerStandIns() {
    static const bool done = [] {
        for (const char* name : {"PeloraSplashAdView", "PeloraVideoPlayerView"})
            pelora::ui::NibLoader::registerClass(name, [] { return std::make_shared<View>(); });
        return true;
    }();
    (void)done;
}

void checkShape(const NibNode& node, const View& view, const View& root) {
    FUZZ_CHECK(view.subviews().size() == node.subviews.size(),
               "the tree has another number of subviews than the file");
    // The root's own outlet is not delivered to itself (it would keep itself alive).
    if (!node.outlet.empty() && &view != &root)
        FUZZ_CHECK(root.outlet(node.outlet) != nullptr, "a named outlet was not delivered");
    for (size_t i = 0; i < node.subviews.size(); ++i) {
        FUZZ_CHECK(view.subviews()[i] != nullptr, "a null subview");
        checkShape(node.subviews[i], *view.subviews()[i], root);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    registerStandIns();
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::string error;
    const auto node = PeloraParseInterfaceFile(text, &error);
    if (!node) {
        FUZZ_CHECK(!error.empty(), "a refused file without a reason");
        return 0;
    }
    auto images = [](const std::string& name) -> std::shared_ptr<pelora::platform::Image> {
        if (name.empty()) return nullptr;
        auto image = std::make_shared<pelora::platform::Image>(1, 1, 1.0,
                                                               std::vector<uint8_t>{0, 0, 0, 255});
        image->name = name;
        return image;
    };
    const auto view = pelora::ui::NibLoader::instantiate(*node, images, &error);
    if (!view) {
        FUZZ_CHECK(!error.empty(), "a tree refused without a reason");
        return 0;
    }
    checkShape(*node, *view, *view);
    return 0;
}
