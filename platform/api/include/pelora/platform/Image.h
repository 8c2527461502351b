#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace pelora::platform {

// A decoded bitmap: 8-bit RGBA, row-major, no padding. `scale` is the pixel density the
// image was made for (2 for an "@2x" file), so its size in points is pixels / scale.
struct Image {
    int pixelWidth = 0;
    int pixelHeight = 0;
    double scale = 1.0;
    std::vector<uint8_t> rgba;
    std::string name;  // resource name or source URL, for diagnostics
    double width() const { return pixelWidth / scale; }
    double height() const { return pixelHeight / scale; }
};

class ImageDecoder {
  public:
    virtual ~ImageDecoder() = default;
    // Decode PNG or JPEG (at least) bytes; absent when the bytes are not an image or the
    // declared size exceeds the decoder's pixel limit (checked before allocating).
    virtual std::shared_ptr<Image> decode(std::string_view bytes, double scale = 1.0) = 0;
};

}  // namespace pelora::platform
