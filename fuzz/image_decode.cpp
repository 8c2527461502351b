// Image decoding on the desktop backend. Any bytes either give no image or an image whose
// size is positive and within the decoder's pixel limit, and whose pixels, once decoded, are
// exactly width x height RGBA or nothing at all (bytes corrupt past the header). A low limit
// keeps the fuzzer's memory bounded, as the real limit does for the SDK.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "FuzzCheck.h"
#include "pelora/desktop/StbImageDecoder.h"
#include "pelora/platform/Image.h"

// Under libFuzzer the image reader itself is compiled here, instrumented like the rest: these
// definitions take the place of the system library's, so coverage guides the fuzzer through
// the decoders and AddressSanitizer watches their reads.
#if defined(PELORA_FUZZ_STB_HERE)
#define STB_IMAGE_IMPLEMENTATION
#include <stb/stb_image.h>
#endif

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr int64_t kMaxPixels = 512 * 512;
    static pelora::desktop::StbImageDecoder decoder(kMaxPixels);
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const auto image = decoder.decode(bytes, 2.0);
    if (!image) return 0;
    FUZZ_CHECK(image->pixelWidth > 0 && image->pixelHeight > 0, "an image without pixels");
    FUZZ_CHECK(static_cast<int64_t>(image->pixelWidth) * image->pixelHeight <= kMaxPixels,
               "an image above the pixel limit");
    FUZZ_CHECK(image->scale == 2.0, "the scale was not kept");
    const auto& rgba = image->rgba();
    FUZZ_CHECK(rgba.empty() || rgba.size() == static_cast<size_t>(image->pixelWidth) *
                                                  static_cast<size_t>(image->pixelHeight) * 4,
               "decoded pixels do not match the declared size");
    return 0;
}
