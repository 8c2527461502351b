// Image decoding from bytes: what comes out for real images, and that hostile bytes never
// get further than the header.
#include <gtest/gtest.h>
#include <stb/stb_image_write.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "pelora/desktop/StbImageDecoder.h"

namespace {

using pelora::desktop::StbImageDecoder;

void appendBytes(void* context, void* data, int size) {
    static_cast<std::string*>(context)->append(static_cast<const char*>(data),
                                               static_cast<size_t>(size));
}

std::string encodePng(int w, int h, const std::vector<uint8_t>& rgba) {
    std::string out;
    stbi_write_png_to_func(appendBytes, &out, w, h, 4, rgba.data(), w * 4);
    return out;
}

std::string encodeJpeg(int w, int h, const std::vector<uint8_t>& rgba, int quality = 95) {
    std::string out;
    stbi_write_jpg_to_func(appendBytes, &out, w, h, 4, rgba.data(), quality);
    return out;
}

std::vector<uint8_t> solid(int w, int h, uint8_t r, uint8_t g, uint8_t b, uint8_t a = 255) {
    std::vector<uint8_t> px;
    for (int i = 0; i < w * h; ++i) px.insert(px.end(), {r, g, b, a});
    return px;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

// A PNG whose header declares `w` x `h` pixels followed by a token amount of data: what an
// attacker sends to make a decoder allocate gigabytes.
std::string pngDeclaring(uint32_t w, uint32_t h) {
    std::string real = encodePng(1, 1, solid(1, 1, 1, 2, 3));
    auto put32 = [&](size_t at, uint32_t v) {
        real[at] = static_cast<char>(v >> 24);
        real[at + 1] = static_cast<char>(v >> 16);
        real[at + 2] = static_cast<char>(v >> 8);
        real[at + 3] = static_cast<char>(v);
    };
    put32(16, w);  // IHDR width and height follow the 8-byte signature and the chunk header
    put32(20, h);
    return real;
}

TEST(ImageDecoderTest, PngKeepsEveryPixelAndChannel) {
    const std::vector<uint8_t> pixels = {255, 0,  0,  255, 0,   255, 0,  128, 0, 0, 255, 0,
                                         10,  20, 30, 40,  200, 100, 50, 255, 1, 2, 3,   4};
    StbImageDecoder decoder;
    auto image = decoder.decode(encodePng(3, 2, pixels), 2.0);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->pixelWidth, 3);
    EXPECT_EQ(image->pixelHeight, 2);
    EXPECT_EQ(image->scale, 2.0);
    EXPECT_DOUBLE_EQ(image->width(), 1.5);
    EXPECT_EQ(image->rgba(), pixels);
}

TEST(ImageDecoderTest, JpegDecodesToOpaqueRgba) {
    StbImageDecoder decoder;
    auto image = decoder.decode(encodeJpeg(16, 8, solid(16, 8, 40, 120, 200)));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->pixelWidth, 16);
    EXPECT_EQ(image->pixelHeight, 8);
    EXPECT_EQ(image->scale, 1.0);
    ASSERT_EQ(image->rgba().size(), 16u * 8u * 4u);
    for (size_t i = 0; i < image->rgba().size(); i += 4) {
        EXPECT_NEAR(image->rgba()[i], 40, 4);
        EXPECT_NEAR(image->rgba()[i + 1], 120, 4);
        EXPECT_NEAR(image->rgba()[i + 2], 200, 4);
        EXPECT_EQ(image->rgba()[i + 3], 255);
    }
}

TEST(ImageDecoderTest, ShippedArtworkAndCreativesDecode) {
    StbImageDecoder decoder;
    const std::string root = PELORA_SOURCE_DIR;
    struct Case {
        std::string path;
        int width, height;
    } cases[] = {
        {root + "/resources/PeloraSDKBundle.bundle/bu_play@2x.png", 60, 60},
        {root + "/resources/PeloraSDKBundle.bundle/bu_voice_silent@3x.png", 90, 90},
        {root + "/resources/PeloraSDKBundle.bundle/bu_skip@2x.png", 120, 60},
        {root + "/tools/sandbox/creatives/splash-demo.png", 540, 960},
        {root + "/tools/sandbox/creatives/native-image-2.jpg", 640, 360},
        {root + "/tools/sandbox/creatives/native-icon-1.png", 128, 128},
    };
    for (const auto& c : cases) {
        auto image = decoder.decode(readFile(c.path));
        ASSERT_TRUE(image) << c.path;
        EXPECT_EQ(image->pixelWidth, c.width) << c.path;
        EXPECT_EQ(image->pixelHeight, c.height) << c.path;
    }
    // The JPEG is written by the project's own encoder: its top-left corner must still show
    // the gradient's first colour (0.25, 0.45, 0.20), not noise.
    auto jpeg = decoder.decode(readFile(root + "/tools/sandbox/creatives/native-image-2.jpg"));
    ASSERT_TRUE(jpeg);
    EXPECT_NEAR(jpeg->rgba()[0], 64, 12);
    EXPECT_NEAR(jpeg->rgba()[1], 115, 12);
    EXPECT_NEAR(jpeg->rgba()[2], 51, 12);
}

TEST(ImageDecoderTest, RefusesImagesAboveThePixelLimit) {
    StbImageDecoder small(100);
    EXPECT_TRUE(small.decode(encodePng(10, 10, solid(10, 10, 9, 9, 9))));
    EXPECT_FALSE(small.decode(encodePng(11, 10, solid(11, 10, 9, 9, 9))));
    EXPECT_FALSE(small.decode(encodeJpeg(101, 1, solid(101, 1, 9, 9, 9))));

    // Declared sizes far beyond the default limit are refused from the header alone (a
    // decoder that allocated first would ask for gigabytes here).
    StbImageDecoder decoder;
    EXPECT_EQ(decoder.maxPixels(), StbImageDecoder::kDefaultMaxPixels);
    EXPECT_FALSE(decoder.decode(pngDeclaring(5000, 5000)));
    EXPECT_FALSE(decoder.decode(pngDeclaring(0x7fffffff, 2)));
    EXPECT_FALSE(decoder.decode(pngDeclaring(4097, 4096)));
}

TEST(ImageDecoderTest, GarbageYieldsNothingAndBrokenBodiesNoPixels) {
    StbImageDecoder decoder;
    EXPECT_FALSE(decoder.decode(""));
    EXPECT_FALSE(decoder.decode("not an image at all"));
    EXPECT_FALSE(decoder.decode("<html><body>404</body></html>"));
    EXPECT_FALSE(decoder.decode(std::string("\x89PNG\r\n\x1a\n", 8)));
    EXPECT_FALSE(decoder.decode(std::string("\xff\xd8\xff", 3)));

    std::mt19937 random(1234);
    for (int round = 0; round < 200; ++round) {
        std::string bytes(static_cast<size_t>(random() % 2048), '\0');
        for (auto& b : bytes) b = static_cast<char>(random());
        EXPECT_FALSE(decoder.decode(bytes)) << "round " << round;
    }

    // Every prefix of a real PNG and JPEG: once the header is there the image has its size,
    // and its pixels are either the whole declared bitmap (a partial JPEG may be recovered)
    // or none.
    const std::string png = encodePng(8, 8, solid(8, 8, 1, 2, 3));
    const std::string jpeg = encodeJpeg(24, 24, solid(24, 24, 1, 2, 3));
    for (const std::string* full : {&png, &jpeg}) {
        for (size_t cut = 0; cut < full->size(); ++cut) {
            auto image = decoder.decode(std::string_view(*full).substr(0, cut));
            if (image && !image->rgba().empty()) {
                EXPECT_EQ(image->rgba().size(),
                          static_cast<size_t>(image->pixelWidth * image->pixelHeight * 4));
            }
        }
    }
    auto half = decoder.decode(std::string_view(png).substr(0, png.size() / 2));
    ASSERT_TRUE(half);
    EXPECT_EQ(half->pixelWidth, 8);
    EXPECT_FALSE(half->isDecoded());
    EXPECT_TRUE(half->rgba().empty());
    EXPECT_TRUE(half->isDecoded());

    // Corrupted bodies behind a valid header.
    std::string flipped = jpeg;
    for (size_t i = 200; i < flipped.size(); i += 7) flipped[i] = static_cast<char>(~flipped[i]);
    auto image = decoder.decode(flipped);
    if (image) {
        EXPECT_EQ(image->pixelWidth, 24);
    }
}

// The system's JPEG reader writes a Huffman table of more than 256 codes past its arrays; such
// a file (a few hundred bytes from any server) is refused before the reader sees it, whether
// the table comes before or after the frame header.
TEST(ImageDecoderTest, RefusesJpegHuffmanTablesOfMoreThan256Codes) {
    StbImageDecoder decoder;
    const std::string jpeg = encodeJpeg(16, 16, solid(16, 16, 9, 8, 7));
    ASSERT_TRUE(decoder.decode(jpeg));
    const size_t table = jpeg.find("\xFF\xC4");
    ASSERT_NE(table, std::string::npos);

    std::string oversized = jpeg;
    for (size_t k = 0; k < 16; ++k) oversized[table + 5 + k] = static_cast<char>(0xFF);
    EXPECT_FALSE(decoder.decode(oversized));

    // The same table moved in front of the frame header, where the header pass reads it.
    const size_t frame = oversized.find("\xFF\xC0");
    ASSERT_NE(frame, std::string::npos);
    const size_t length = (static_cast<unsigned char>(oversized[table + 2]) << 8) |
                          static_cast<unsigned char>(oversized[table + 3]);
    std::string early = oversized;
    const std::string segment = early.substr(table, 2 + length);
    early.erase(table, 2 + length);
    early.insert(std::min(frame, table), segment);
    EXPECT_FALSE(decoder.decode(early));
}

// An empty IDAT chunk before the data (PNG allows it) had the system's reader copy from a null
// pointer; the image decodes as if the empty chunk were not there.
TEST(ImageDecoderTest, PngWithAnEmptyFirstDataChunkDecodesItsPixels) {
    std::ifstream in(PELORA_SOURCE_DIR "/fuzz/regressions/image_decode/png-empty-first-idat.png",
                     std::ios::binary);
    const std::string png((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ASSERT_FALSE(png.empty());
    auto image = StbImageDecoder().decode(png);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->rgba(), (std::vector<uint8_t>{200, 30, 60, 255, 10, 20, 30, 255}));
}

TEST(ImageDecoderTest, DecodesOnSeveralThreadsAtOnce) {
    StbImageDecoder decoder;
    const std::string png = encodePng(32, 32, solid(32, 32, 5, 6, 7));
    const std::string jpeg = encodeJpeg(32, 32, solid(32, 32, 5, 6, 7));
    std::vector<std::thread> threads;
    std::vector<int> decoded(4, 0);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 50; ++i) {
                auto image = decoder.decode(i % 2 ? png : jpeg);
                if (image && image->rgba().size() == 32u * 32u * 4u) {
                    ++decoded[static_cast<size_t>(t)];
                }
                decoder.decode("garbage");
            }
        });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(decoded, std::vector<int>(4, 50));
}

TEST(ImageDecoderTest, PixelsAreDecodedOnceWhoeverAsksFirst) {
    StbImageDecoder decoder;
    auto image = decoder.decode(encodePng(64, 64, solid(64, 64, 9, 8, 7)));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->pixelWidth, 64);
    EXPECT_FALSE(image->isDecoded());
    std::vector<const std::vector<uint8_t>*> seen(4, nullptr);
    std::vector<std::thread> threads;
    for (size_t t = 0; t < seen.size(); ++t) {
        threads.emplace_back([&, t] { seen[t] = &image->rgba(); });
    }
    for (auto& t : threads) t.join();
    for (const auto* pixels : seen) EXPECT_EQ(pixels, seen[0]);
    ASSERT_EQ(seen[0]->size(), 64u * 64u * 4u);
    EXPECT_EQ((*seen[0])[0], 9);
    EXPECT_TRUE(image->isDecoded());
}

}  // namespace
