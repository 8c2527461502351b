// Image decoding from bytes: what the decoder adds to stb (sizes read before any pixel, the
// pixel limit, its fixes of stb's faults) and that decoding is safe on several threads. Pixels of
// a sound file are stb's (the empty-chunk case below reads a real file's pixels back); the
// bundle's tests check the scale, the image download's tests a body that is no image. (The fuzz
// targets' replays check that nothing crashes.)
#include <gtest/gtest.h>
#include <stb/stb_image_write.h>

#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "pelora/desktop/StbImageDecoder.h"

namespace {

using pelora::desktop::StbImageDecoder;

// PNG, or JPEG of quality 95, of `w` x `h` pixels of one colour.
std::string encode(bool png, int w, int h) {
    std::vector<uint8_t> rgba;
    for (int i = 0; i < w * h; ++i) rgba.insert(rgba.end(), {9, 8, 7, 255});
    std::string out;
    auto append = [](void* to, void* data, int size) {
        static_cast<std::string*>(to)->append(static_cast<const char*>(data), size_t(size));
    };
    png ? stbi_write_png_to_func(append, &out, w, h, 4, rgba.data(), w * 4)
        : stbi_write_jpg_to_func(append, &out, w, h, 4, rgba.data(), 95);
    return out;
}

TEST(ImageDecoderTest, RefusesGarbageAndImagesAboveThePixelLimitFromTheHeaderAlone) {
    StbImageDecoder decoder, small(100);
    EXPECT_TRUE(small.decode(encode(true, 10, 10)));
    EXPECT_FALSE(small.decode(encode(true, 11, 10)));
    // A header declaring far more than the default limit over a token of data: a decoder that
    // allocated first would ask for gigabytes here.
    const std::string real = encode(true, 1, 1);
    for (auto [w, h] : {std::pair<uint32_t, uint32_t>{5000, 5000}, {0x7fffffff, 2}, {4097, 4096}}) {
        std::string declared = real;
        for (int i = 0; i < 4; ++i) {  // IHDR's width and height, big-endian, from byte 16
            declared[16 + i] = static_cast<char>(w >> (24 - 8 * i));
            declared[20 + i] = static_cast<char>(h >> (24 - 8 * i));
        }
        EXPECT_FALSE(decoder.decode(declared)) << w << "x" << h;
    }
    // A download cut short: once the header is there the image has its size, but no pixels.
    const std::string png = encode(true, 8, 8);
    auto half = decoder.decode(std::string_view(png).substr(0, png.size() / 2));
    ASSERT_TRUE(half);
    EXPECT_EQ(std::pair(half->pixelWidth, half->rgba().empty()), std::pair(8, true));
}

// The system's JPEG reader writes a Huffman table of more than 256 codes past its arrays; such
// a file (a few hundred bytes from any server) is refused before the reader sees it, whether
// the table comes before or after the frame header.
TEST(ImageDecoderTest, RefusesJpegHuffmanTablesOfMoreThan256Codes) {
    StbImageDecoder decoder;
    std::string oversized = encode(false, 16, 16);
    ASSERT_TRUE(decoder.decode(oversized));
    const size_t table = oversized.find("\xFF\xC4"), frame = oversized.find("\xFF\xC0");
    ASSERT_LT(frame, table);
    for (size_t k = 0; k < 16; ++k) oversized[table + 5 + k] = static_cast<char>(0xFF);
    EXPECT_FALSE(decoder.decode(oversized));
    const size_t length = 2 + ((static_cast<unsigned char>(oversized[table + 2]) << 8) |
                               static_cast<unsigned char>(oversized[table + 3]));
    std::string early = oversized;
    early.erase(table, length);
    early.insert(frame, oversized.substr(table, length));  // where the header pass reads it
    EXPECT_FALSE(decoder.decode(early));
}

// An empty IDAT chunk before the data (PNG allows it) had the system's reader copy from a null
// pointer; the image decodes as if the empty chunk were not there.
TEST(ImageDecoderTest, PngWithAnEmptyFirstDataChunkDecodesItsPixels) {
    std::stringstream png;
    png << std::ifstream(PELORA_SOURCE_DIR
                         "/fuzz/regressions/image_decode/png-empty-first-idat.png",
                         std::ios::binary)
               .rdbuf();
    auto image = StbImageDecoder().decode(png.str());
    ASSERT_TRUE(image);
    EXPECT_EQ(image->rgba(), (std::vector<uint8_t>{200, 30, 60, 255, 10, 20, 30, 255}));
}

// Images are decoded on the sessions' threads; an image's pixels once, by whoever asks first.
TEST(ImageDecoderTest, DecodesOnSeveralThreadsAtOnceAndAnImagesPixelsOnce) {
    StbImageDecoder decoder;
    const std::string png = encode(true, 32, 32);
    const std::string jpeg = encode(false, 32, 32);
    auto shared = decoder.decode(encode(true, 64, 64));
    ASSERT_TRUE(shared);
    std::vector<int> decoded(4, 0);
    std::vector<const std::vector<uint8_t>*> seen(4, nullptr);
    std::vector<std::thread> threads;
    for (size_t t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            seen[t] = &shared->rgba();
            for (int i = 0; i < 50; ++i) {
                auto image = decoder.decode(i % 2 ? png : jpeg);
                decoded[t] += image && image->rgba().size() == 32u * 32u * 4u;
                decoder.decode("garbage");
            }
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(decoded, std::vector<int>(4, 50));
    EXPECT_EQ(seen, decltype(seen)(4, seen[0]));
    EXPECT_EQ((*seen[0])[0], 9);
}

}  // namespace
