#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "pelora/platform/Export.h"
#include "pelora/platform/Image.h"

namespace pelora::desktop {

// Decodes PNG, JPEG, GIF (first frame), BMP, TGA and the other formats stb_image reads, into
// 8-bit RGBA. Safe to call from any thread.
class PELORA_EXPORT StbImageDecoder : public platform::ImageDecoder {
  public:
    // 16 megapixels: far above any ad creative, and at 64 MB of RGBA still a bounded cost.
    static constexpr int64_t kDefaultMaxPixels = 4096LL * 4096LL;

    explicit StbImageDecoder(int64_t maxPixels = kDefaultMaxPixels);

    // Absent for bytes that are not an image and for images whose declared size exceeds
    // maxPixels(); both are read from the header before any pixel buffer is allocated. The
    // pixels are decoded on the first rgba() call (a few milliseconds for a full-screen
    // creative, kept off the thread that receives the image); bytes that are corrupt past a
    // valid header then give an image without pixels.
    std::shared_ptr<platform::Image> decode(std::string_view bytes, double scale = 1.0) override;

    int64_t maxPixels() const { return maxPixels_; }

  private:
    int64_t maxPixels_;
};

}  // namespace pelora::desktop
