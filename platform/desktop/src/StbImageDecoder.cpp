#include "pelora/desktop/StbImageDecoder.h"

#include <stb/stb_image.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "pelora/platform/Log.h"

namespace pelora::desktop {

namespace {

// The system's stb_image (2.27) trusts a JPEG's Huffman table header: a table declaring more
// than 256 codes is written past its fixed arrays, in the header pass as well as in decoding.
// A JPEG is therefore walked segment by segment first, as the reader will walk it (fill bytes,
// stuffed and restart markers skipped; the tables of a DHT segment read one after another), and
// refused when any table declares more than 256 codes. Bytes that cannot be a JPEG (the
// reader wants 0xFF first) pass.
bool jpegHuffmanTablesFit(std::string_view bytes) {
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    const size_t n = bytes.size();
    // The reader takes any run of fill bytes before the start marker too.
    if (n < 2 || p[0] != 0xFF) return true;
    size_t i = 0;
    while (i < n) {
        if (p[i] != 0xFF) {  // entropy-coded data, or junk the reader skips byte by byte
            ++i;
            continue;
        }
        while (i < n && p[i] == 0xFF) ++i;
        if (i >= n) break;
        const unsigned char marker = p[i++];
        if (marker == 0x00 || marker == 0x01 || marker == 0xD8 ||
            (marker >= 0xD0 && marker <= 0xD7))
            continue;  // no length follows
        if (marker == 0xD9 || i + 2 > n) break;
        const size_t length = (static_cast<size_t>(p[i]) << 8) | p[i + 1];
        if (marker == 0xC4) {
            // Past the end the reader sees zeros, which add no codes.
            long left = static_cast<long>(length) - 2;
            size_t table = i + 2;
            while (left > 0 && table < n) {
                size_t codes = 0;
                for (size_t k = 1; k <= 16 && table + k < n; ++k) codes += p[table + k];
                if (codes > 256) return false;
                table += 17 + codes;
                left -= static_cast<long>(17 + codes);
            }
        }
        i += length;
    }
    return true;
}

// The system's stb_image (2.27) copies a PNG's IDAT chunk into a buffer it allocates when the
// first bytes arrive; an empty IDAT before any data has it copy zero bytes from a null pointer
// (undefined behaviour). Empty IDAT chunks carry nothing and PNG allows them, so those that come
// before the first non-empty one are cut out of the bytes the reader sees; the image is the same.
// Returns the bytes to decode: `bytes` itself, or `storage` holding the trimmed copy.
std::string_view withoutLeadingEmptyIdat(std::string_view bytes, std::string& storage) {
    static constexpr std::string_view kSignature("\x89PNG\r\n\x1a\n", 8);
    if (bytes.substr(0, kSignature.size()) != kSignature) return bytes;
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    std::vector<size_t> empties;  // offsets of the 12-byte empty chunks to cut
    size_t at = kSignature.size();
    while (at + 12 <= bytes.size()) {
        const uint32_t length = (uint32_t{p[at]} << 24) | (uint32_t{p[at + 1]} << 16) |
                                (uint32_t{p[at + 2]} << 8) | uint32_t{p[at + 3]};
        const std::string_view type = bytes.substr(at + 4, 4);
        if (type == "IDAT") {
            if (length != 0) break;  // stb has its buffer from here on
            empties.push_back(at);
        }
        if (length > bytes.size() - at - 12) break;  // the reader stops there too
        at += 12 + length;
    }
    if (empties.empty()) return bytes;
    storage.clear();
    storage.reserve(bytes.size() - 12 * empties.size());
    size_t from = 0;
    for (size_t cut : empties) {
        storage.append(bytes.substr(from, cut - from));
        from = cut + 12;
    }
    storage.append(bytes.substr(from));
    return storage;
}

}  // namespace

StbImageDecoder::StbImageDecoder(int64_t maxPixels) : maxPixels_(maxPixels > 0 ? maxPixels : 1) {}

std::shared_ptr<platform::Image> StbImageDecoder::decode(std::string_view bytes, double scale) {
    if (bytes.empty() || bytes.size() > static_cast<size_t>(INT_MAX)) return nullptr;
    if (!jpegHuffmanTablesFit(bytes)) return nullptr;
    std::string trimmed;
    bytes = withoutLeadingEmptyIdat(bytes, trimmed);
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
