#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "pelora/platform/Export.h"

namespace pelora::ui {
class View;
class Window;
}  // namespace pelora::ui

namespace pelora::desktop {

// A picture of a view tree: 8-bit RGBA with straight (not premultiplied) alpha, row-major,
// width * 4 bytes a row, ready for a PNG encoder or a texture upload.
struct PELORA_EXPORT RenderedFrame {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> rgba;
    // The window's display revision this picture shows (0 before the first drawing).
    uint64_t revision = 0;
};

// Draws view trees into pixels with cairo, and their text with pango (fontconfig and HarfBuzz
// underneath, so Chinese titles get glyphs from a CJK font). It draws everything the SDK's
// views use: background colours, alpha multiplied down the tree, hidden views, corner radii
// with clipping, sub-view order, images by content mode, labels (size, weight, colour,
// alignment, lines, truncation), buttons by control state, the latest video frame of a
// player layer and web views as blank pages.
//
// A tree of w x h points draws into ceil(w * scale) x ceil(h * scale) pixels. Converted images,
// video frames and text layouts are kept between drawings while their views still show them.
// Main thread only, like the tree it reads.
class PELORA_EXPORT ViewRenderer {
  public:
    // `scale`: pixels per point (the device's screen scale, usually); values <= 0 mean 1.
    explicit ViewRenderer(double scale);
    ~ViewRenderer();
    ViewRenderer(const ViewRenderer&) = delete;
    ViewRenderer& operator=(const ViewRenderer&) = delete;

    double scale() const;
    // The pixel size a tree draws into: its bounds times the scale, rounded up.
    int pixelWidth(const ui::View& root) const;
    int pixelHeight(const ui::View& root) const;

    // Draws `root` and its subtree into the caller's buffer: `width` x `height` pixels of RGBA
    // (straight alpha), `stride` bytes a row (at least width * 4). The tree's origin is the
    // buffer's top-left corner; what lies outside the buffer is cut and pixels no view covers
    // are transparent. Returns false, touching nothing, for a null buffer, a non-positive size
    // or a short stride.
    bool renderInto(const ui::View& root, uint8_t* rgba, int width, int height, size_t stride);

    // Draws `window` into frame() when its picture changed since the last call (a different
    // window always counts as changed) and returns whether it drew. An unchanged window costs
    // one comparison: a game loop calls this every frame and uploads only when it says true.
    bool update(const ui::Window& window);
    const RenderedFrame& frame() const;
    // Drawings made so far, by update() and renderInto().
    uint64_t framesRendered() const;
    // Characters the last drawing showed as boxes because no installed font has them (a
    // machine without the CJK font package shows Chinese titles so).
    uint64_t unknownGlyphs() const;

    // Writes a PNG of `root`'s tree (headless; no display is involved). On failure returns
    // false and says why in `error`.
    bool writePNG(const ui::View& root, const std::string& path, std::string* error = nullptr);

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace pelora::desktop
