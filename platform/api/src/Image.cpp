#include "pelora/platform/Image.h"

#include <utility>

namespace pelora::platform {

Image::Image(int pixelWidth, int pixelHeight, double scale, std::vector<uint8_t> rgba)
    : pixelWidth(pixelWidth), pixelHeight(pixelHeight), scale(scale), rgba_(std::move(rgba)) {}

Image::Image(int pixelWidth, int pixelHeight, double scale, DeferredDecode decode)
    : pixelWidth(pixelWidth),
      pixelHeight(pixelHeight),
      scale(scale),
      decode_(std::move(decode)),
      decoded_(false) {}

const std::vector<uint8_t>& Image::rgba() const {
    if (!decoded_.load(std::memory_order_acquire)) {
        std::call_once(once_, [this] {
            if (decode_) {
                rgba_ = decode_();
                // Anything but a whole bitmap of the declared size counts as no pixels.
                const size_t expected =
                    static_cast<size_t>(pixelWidth) * static_cast<size_t>(pixelHeight) * 4;
                if (rgba_.size() != expected) rgba_.clear();
            }
            decode_ = nullptr;  // releases the encoded bytes
            decoded_.store(true, std::memory_order_release);
        });
    }
    return rgba_;
}

bool Image::isDecoded() const {
    return decoded_.load(std::memory_order_acquire);
}

}  // namespace pelora::platform
