#include "pelora/desktop/StbImageDecoder.h"

#include <stb/stb_image.h>

#include <climits>
#include <cstring>
#include <string>

#include "pelora/platform/Log.h"

namespace pelora::desktop {

StbImageDecoder::StbImageDecoder(int64_t maxPixels) : maxPixels_(maxPixels > 0 ? maxPixels : 1) {}

std::shared_ptr<platform::Image> StbImageDecoder::decode(std::string_view bytes, double scale) {
    if (bytes.empty() || bytes.size() > static_cast<size_t>(INT_MAX)) return nullptr;
    const auto* data = reinterpret_cast<const stbi_uc*>(bytes.data());
    const int length = static_cast<int>(bytes.size());

    // The header alone says how big the bitmap would be: refuse oversized images (a few bytes
    // of PNG can declare gigapixels) before stb allocates anything for them.
    int width = 0, height = 0, channels = 0;
    if (!stbi_info_from_memory(data, length, &width, &height, &channels)) return nullptr;
    if (width <= 0 || height <= 0) return nullptr;
    if (static_cast<int64_t>(width) * static_cast<int64_t>(height) > maxPixels_) {
        platform::log(platform::LogLevel::Warning,
                      "image refused: " + std::to_string(width) + "x" + std::to_string(height) +
                          " exceeds the pixel limit of " + std::to_string(maxPixels_));
        return nullptr;
    }

    // The pixels are decoded when first asked for, from a copy of the bytes (the caller's
    // buffer does not outlive this call).
    return std::make_shared<platform::Image>(
        width, height, scale > 0 ? scale : 1.0,
        [encoded = std::string(bytes)]() -> std::vector<uint8_t> {
            int w = 0, h = 0, c = 0;
            stbi_uc* pixels =
                stbi_load_from_memory(reinterpret_cast<const stbi_uc*>(encoded.data()),
                                      static_cast<int>(encoded.size()), &w, &h, &c, 4);
            if (!pixels) return {};
            std::vector<uint8_t> rgba(pixels,
                                      pixels + static_cast<size_t>(w) * static_cast<size_t>(h) * 4);
            stbi_image_free(pixels);
            return rgba;
        });
}

}  // namespace pelora::desktop
