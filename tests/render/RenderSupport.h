#pragma once

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <vector>

#include "pelora/desktop/ViewRenderer.h"
#include "pelora/platform/Geometry.h"
#include "pelora/ui/View.h"

namespace rendertest {

struct Pixel {
    int r = 0, g = 0, b = 0, a = 0;
    bool near(int R, int G, int B, int A = 255, int tolerance = 3) const {
        return std::abs(r - R) <= tolerance && std::abs(g - G) <= tolerance &&
               std::abs(b - B) <= tolerance && std::abs(a - A) <= tolerance;
    }
};

// A drawn tree, read back pixel by pixel.
struct Picture {
    int width = 0, height = 0;
    std::vector<uint8_t> rgba;

    static Picture of(pelora::desktop::ViewRenderer& renderer, const pelora::ui::View& root) {
        Picture p;
        p.width = renderer.pixelWidth(root);
        p.height = renderer.pixelHeight(root);
        p.rgba.assign(static_cast<size_t>(p.width) * p.height * 4, 0xAB);
        renderer.renderInto(root, p.rgba.data(), p.width, p.height,
                            static_cast<size_t>(p.width) * 4);
        return p;
    }

    Pixel at(int x, int y) const {
        const uint8_t* q = &rgba[(static_cast<size_t>(y) * width + x) * 4];
        return {q[0], q[1], q[2], q[3]};
    }

    // Pixels in [x0, x1) x [y0, y1) for which `match` holds.
    size_t count(int x0, int y0, int x1, int y1, const std::function<bool(Pixel)>& match) const {
        size_t n = 0;
        for (int y = std::max(0, y0); y < std::min(height, y1); ++y)
            for (int x = std::max(0, x0); x < std::min(width, x1); ++x)
                if (match(at(x, y))) ++n;
        return n;
    }
    size_t count(const std::function<bool(Pixel)>& match) const {
        return count(0, 0, width, height, match);
    }
};

inline bool isInk(Pixel p) {
    // Dark text on a light background: anything clearly darker than white.
    return p.a > 0 && p.r + p.g + p.b < 600;
}

}  // namespace rendertest
