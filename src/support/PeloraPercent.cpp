#include "support/PeloraPercent.h"

#include <cstring>

#include "support/PeloraTool.h"

namespace {

// Eight bytes at a time: whether no byte has its high bit set.
bool isAscii(std::string_view text) {
    uint64_t seen = 0;
    size_t i = 0;
    for (; i + 8 <= text.size(); i += 8) {
        uint64_t word;
        std::memcpy(&word, text.data() + i, 8);
        seen |= word;
    }
    for (; i < text.size(); ++i) seen |= static_cast<unsigned char>(text[i]);
    return (seen & 0x8080808080808080ULL) == 0;
}

}  // namespace

// Writes the escaped piece at `dst` and returns the end. Needs room for three bytes per input
// byte plus one: the last byte's four-byte write may reach one past its width.
char* PeloraPercentEncoder::escapeInto(std::string_view piece, char* dst) const {
    for (unsigned char c : piece) {
        std::memcpy(dst, code_[c].data(), 4);
        dst += width_[c];
    }
    return dst;
}

void PeloraPercentEncoder::append(std::string& out, std::string_view text) const {
    if (text.empty()) return;
    const size_t start = out.size();
    // Worst case three bytes per byte (and the spare byte); trimmed once at the end.
    out.resize(start + text.size() * 3 + 1);
    char* dst = escapeInto(text, out.data() + start);
    out.resize(static_cast<size_t>(dst - out.data()));
}

void PeloraPercentEncoder::appendInBatches(std::string& out, std::string_view text) const {
    // Pure ASCII has no surrogate pairs and nothing that attaches to a previous character, so
    // its 50-unit batches are plain slices and escaping it whole gives the same bytes.
    if (isAscii(text)) return append(out, text);
    const size_t start = out.size();
    out.resize(start + text.size() * 3 + 1);
    char* dst = out.data() + start;
    for (std::string_view batch : PeloraTool::composedBatches(text, 50))
        dst = escapeInto(batch, dst);
    out.resize(static_cast<size_t>(dst - out.data()));
}

int pl_hexDigitValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::optional<std::string> pl_percentDecode(std::string_view text, PeloraBadEscape badEscape) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out.push_back(text[i]);
            continue;
        }
        const int high = i + 2 < text.size() ? pl_hexDigitValue(text[i + 1]) : -1;
        const int low = high >= 0 ? pl_hexDigitValue(text[i + 2]) : -1;
        if (low < 0) {
            if (badEscape == PeloraBadEscape::Refuse) return std::nullopt;
            out.push_back('%');
            continue;
        }
        out.push_back(static_cast<char>(high * 16 + low));
        i += 2;
    }
    return out;
}
