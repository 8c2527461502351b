#pragma once

// What the fuzz targets share: a check that stops the run with a readable reason (libFuzzer
// then keeps the input as a crash), a reader that takes typed values off the front of the
// input, and the small oracles the targets compare the SDK against.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace pelora_fuzz {

// Set by the replay driver to the file being replayed, so a failure names its input.
inline const char* currentInput = nullptr;

[[noreturn]] inline void fail(const char* file, int line, const char* what) {
    std::fprintf(stderr, "%s:%d: fuzz check failed: %s\n", file, line, what);
    if (currentInput) std::fprintf(stderr, "  input: %s\n", currentInput);
    std::abort();
}

#define FUZZ_CHECK(condition, what)                                                      \
    do {                                                                                 \
        if (!(condition)) ::pelora_fuzz::fail(__FILE__, __LINE__, what ": " #condition); \
    } while (0)

// Takes values off the front of the input; once the input is used up every value is 0 and
// every text empty, so a target never reads past its end.
class Reader {
  public:
    Reader(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    uint8_t byte() {
        if (size_ == 0) return 0;
        --size_;
        return *data_++;
    }
    // Little-endian, as many bytes as are left up to 8.
    uint64_t u64() {
        uint64_t v = 0;
        for (int i = 0; i < 8 && size_ > 0; ++i) v |= static_cast<uint64_t>(byte()) << (8 * i);
        return v;
    }
    // A text of the length the next byte gives.
    std::string text() {
        size_t n = byte();
        if (n > size_) n = size_;
        std::string out(reinterpret_cast<const char*>(data_), n);
        data_ += n;
        size_ -= n;
        return out;
    }
    std::string rest() {
        std::string out(reinterpret_cast<const char*>(data_), size_);
        data_ += size_;
        size_ = 0;
        return out;
    }

  private:
    const uint8_t* data_;
    size_t size_;
};

// Strict UTF-8 (no overlong forms, no surrogates, nothing above U+10FFFF).
inline bool isUtf8(std::string_view s) {
    for (size_t i = 0; i < s.size();) {
        const auto c = static_cast<unsigned char>(s[i]);
        if (c < 0x80) {
            ++i;
            continue;
        }
        const size_t n = c >= 0xF0 ? 3 : c >= 0xE0 ? 2 : 1;  // continuation bytes
        if (c < 0xC2 || c > 0xF4 || i + n >= s.size()) return false;
        uint32_t cp = c & (0x3F >> n);
        for (size_t k = 1; k <= n; ++k) {
            const auto d = static_cast<unsigned char>(s[i + k]);
            if ((d & 0xC0) != 0x80) return false;
            cp = (cp << 6) | (d & 0x3F);
        }
        if ((n == 2 && cp < 0x800) || (n == 3 && (cp < 0x10000 || cp > 0x10FFFF)) ||
            (cp >= 0xD800 && cp <= 0xDFFF))
            return false;
        i += n + 1;
    }
    return true;
}

inline bool isHexDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

}  // namespace pelora_fuzz
