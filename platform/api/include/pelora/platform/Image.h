#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "pelora/platform/Export.h"

namespace pelora::platform {

// A bitmap: 8-bit RGBA, row-major, no padding. `scale` is the pixel density the image was
// made for (2 for an "@2x" file), so its size in points is pixels / scale.
//
// Like a phone platform's images, a decoded image may hold its encoded bytes and decode the
// pixels only when something first asks for them (a renderer, on whichever thread draws), so
// that receiving an image on the main thread costs no decoding there. Size and scale are
// known from the start either way.
class PELORA_EXPORT Image {
  public:
    using DeferredDecode = std::function<std::vector<uint8_t>()>;

    Image() = default;
    Image(int pixelWidth, int pixelHeight, double scale, std::vector<uint8_t> rgba);
    // Pixels produced by `decode` on first use: pixelWidth * pixelHeight * 4 bytes, or none
    // when the bytes turn out to be corrupt past their header (the image then draws as
    // nothing).
    Image(int pixelWidth, int pixelHeight, double scale, DeferredDecode decode);
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;

    int pixelWidth = 0;
    int pixelHeight = 0;
    double scale = 1.0;
    std::string name;  // resource name or source URL, for diagnostics
    double width() const { return pixelWidth / scale; }
    double height() const { return pixelHeight / scale; }

    // The pixels, decoding them now if that was deferred. Thread-safe.
    const std::vector<uint8_t>& rgba() const;
    // Whether the pixels are already there (no decoding would happen on rgba()).
    bool isDecoded() const;

  private:
    mutable std::once_flag once_;
    mutable DeferredDecode decode_;
    mutable std::vector<uint8_t> rgba_;
    mutable std::atomic<bool> decoded_{true};
};

class PELORA_EXPORT ImageDecoder {
  public:
    virtual ~ImageDecoder() = default;
    // Decode PNG or JPEG (at least) bytes; absent when the bytes are not an image or the
    // declared size exceeds the decoder's pixel limit (both checked from the header, before
    // allocating). A decoder may defer the pixels (see Image).
    virtual std::shared_ptr<Image> decode(std::string_view bytes, double scale = 1.0) = 0;
};

}  // namespace pelora::platform
