#include "support/PeloraTool.h"

#include <pelora/platform/Services.h>

#include <limits>

#include "support/PeloraPercent.h"

namespace {

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// Decodes one code point at `i`; `length` is how many bytes it took. Bytes that do not form
// UTF-8 come back as themselves with length 1 and `valid` false.
struct CodePoint {
    char32_t cp = 0;
    std::size_t length = 1;
    bool valid = false;
};

CodePoint decodeAt(std::string_view s, std::size_t i) {
    const auto b0 = static_cast<unsigned char>(s[i]);
    CodePoint out;
    out.cp = b0;
    if (b0 < 0x80) {
        out.valid = true;
        return out;
    }
    std::size_t need = 0;
    char32_t cp = 0;
    char32_t min = 0;
    if ((b0 & 0xE0) == 0xC0) {
        need = 1;
        cp = b0 & 0x1F;
        min = 0x80;
    } else if ((b0 & 0xF0) == 0xE0) {
        need = 2;
        cp = b0 & 0x0F;
        min = 0x800;
    } else if ((b0 & 0xF8) == 0xF0) {
        need = 3;
        cp = b0 & 0x07;
        min = 0x10000;
    } else {
        return out;
    }
    if (i + need >= s.size()) return out;
    for (std::size_t k = 1; k <= need; ++k) {
        const auto b = static_cast<unsigned char>(s[i + k]);
        if ((b & 0xC0) != 0x80) return out;
        cp = (cp << 6) | (b & 0x3F);
    }
    if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return out;
    out.cp = cp;
    out.length = need + 1;
    out.valid = true;
    return out;
}

bool isValidUtf8(std::string_view s) {
    for (std::size_t i = 0; i < s.size();) {
        const CodePoint c = decodeAt(s, i);
        if (!c.valid) return false;
        i += c.length;
    }
    return true;
}

// Code points that attach to the one before them and never start a composed sequence.
bool isExtender(char32_t cp) {
    return (cp >= 0x0300 && cp <= 0x036F) || (cp >= 0x1AB0 && cp <= 0x1AFF) ||
           (cp >= 0x1DC0 && cp <= 0x1DFF) || (cp >= 0x20D0 && cp <= 0x20FF) ||
           (cp >= 0xFE20 && cp <= 0xFE2F) || (cp >= 0xFE00 && cp <= 0xFE0F) ||
           (cp >= 0x1F3FB && cp <= 0x1F3FF) || (cp >= 0xE0020 && cp <= 0xE007F) ||
           (cp >= 0xE0100 && cp <= 0xE01EF) || cp == 0x200D;
}

bool isRegionalIndicator(char32_t cp) {
    return cp >= 0x1F1E6 && cp <= 0x1F1FF;
}

std::size_t unitsOf(const CodePoint& c) {
    return c.valid && c.cp >= 0x10000 ? 2 : 1;
}

// Characters a URL query may carry as they are: query delimiters stay readable.
constexpr PeloraPercentEncoder kQueryEncoder("!$&'()*+,-./:;=?@_~");

// The older escaping: besides what is never legal in a URL, every reserved delimiter is
// escaped too, leaving only the unreserved marks.
constexpr PeloraPercentEncoder kLegacyEncoder("-._~");

}  // namespace

int64_t PeloraTool::toInt(const std::optional<std::string>& text) {
    if (!text) return 0;
    std::string digits;
    digits.reserve(text->size());
    for (char c : *text)
        if (c != '.') digits.push_back(c);
    std::size_t i = 0;
    while (i < digits.size() && isSpace(digits[i])) ++i;
    bool negative = false;
    if (i < digits.size() && (digits[i] == '+' || digits[i] == '-')) negative = digits[i++] == '-';
    int64_t value = 0;
    for (; i < digits.size() && digits[i] >= '0' && digits[i] <= '9'; ++i) {
        const int d = digits[i] - '0';
        if (value > (std::numeric_limits<int64_t>::max() - d) / 10)
            return negative ? std::numeric_limits<int64_t>::min()
                            : std::numeric_limits<int64_t>::max();
        value = value * 10 + d;
    }
    return negative ? -value : value;
}

std::string PeloraTool::imsi() {
    std::optional<std::string> mcc;
    std::optional<std::string> mnc;
    if (pelora::platform::hasServices()) {
        if (const auto& device = pelora::platform::services().device) {
            mcc = device->mobileCountryCode();
            mnc = device->mobileNetworkCode();
        }
    }
    // An absent part prints as the placeholder a format gives for a missing object.
    return mcc.value_or("(null)") + mnc.value_or("(null)");
}

bool PeloraTool::arrayIsEmpty(const std::any& object) {
    if (const auto* v = std::any_cast<std::vector<std::any>>(&object)) return v->empty();
    if (const auto* v = std::any_cast<std::vector<std::string>>(&object)) return v->empty();
    if (const auto* v = std::any_cast<std::optional<std::vector<std::string>>>(&object))
        return !*v || (*v)->empty();
    if (const auto* v = std::any_cast<std::vector<int64_t>>(&object)) return v->empty();
    if (const auto* v = std::any_cast<std::vector<int>>(&object)) return v->empty();
    if (const auto* v = std::any_cast<std::vector<double>>(&object)) return v->empty();
    return true;
}

bool PeloraTool::stringIsEmpty(const std::any& object) {
    if (const auto* v = std::any_cast<std::string>(&object)) return v->empty();
    if (const auto* v = std::any_cast<std::optional<std::string>>(&object))
        return !*v || (*v)->empty();
    if (const auto* v = std::any_cast<std::string_view>(&object)) return v->empty();
    if (const auto* v = std::any_cast<const char*>(&object)) return *v == nullptr || **v == '\0';
    return true;
}

bool PeloraTool::dataIsEmpty(const std::any& object) {
    if (const auto* v = std::any_cast<std::vector<uint8_t>>(&object)) return v->empty();
    if (const auto* v = std::any_cast<std::vector<char>>(&object)) return v->empty();
    if (const auto* v = std::any_cast<std::vector<std::byte>>(&object)) return v->empty();
    return true;
}

std::size_t PeloraTool::utf16Length(std::string_view utf8) {
    std::size_t units = 0;
    for (std::size_t i = 0; i < utf8.size();) {
        const CodePoint c = decodeAt(utf8, i);
        units += unitsOf(c);
        i += c.length;
    }
    return units;
}

std::vector<std::string_view> PeloraTool::composedBatches(std::string_view utf8,
                                                          std::size_t maxUnits) {
    if (maxUnits == 0) maxUnits = 1;
    std::vector<std::string_view> pieces;
    std::size_t pieceStart = 0;
    std::size_t pieceUnits = 0;
    std::size_t i = 0;
    while (i < utf8.size()) {
        // One composed sequence: a base and everything that attaches to it.
        const std::size_t start = i;
        CodePoint c = decodeAt(utf8, i);
        std::size_t units = unitsOf(c);
        i += c.length;
        bool pendingIndicator = c.valid && isRegionalIndicator(c.cp);
        bool joinNext = false;
        while (i < utf8.size()) {
            const CodePoint next = decodeAt(utf8, i);
            const bool attaches =
                next.valid && (joinNext || isExtender(next.cp) ||
                               (pendingIndicator && isRegionalIndicator(next.cp)));
            if (!attaches) break;
            if (pendingIndicator && isRegionalIndicator(next.cp)) pendingIndicator = false;
            joinNext = next.cp == 0x200D;
            units += unitsOf(next);
            i += next.length;
        }
        // A sequence starting inside the current window belongs to the current piece.
        if (pieceUnits >= maxUnits) {
            pieces.push_back(utf8.substr(pieceStart, start - pieceStart));
            pieceStart = start;
            pieceUnits = 0;
        }
        pieceUnits += units;
    }
    if (i > pieceStart) pieces.push_back(utf8.substr(pieceStart, i - pieceStart));
    return pieces;
}

std::string PeloraTool::stringByURLEncode(const std::string& text, bool legacyPath) {
    std::string out;
    if (legacyPath) {
        kLegacyEncoder.append(out, text);
        return out;
    }
    // Escaped piece by piece so a long text is never cut inside a character.
    kQueryEncoder.appendInBatches(out, text);
    return out;
}

std::optional<std::string> PeloraTool::stringByURLDecode(const std::string& text, bool legacyPath) {
    std::string source = text;
    if (legacyPath) {
        for (char& c : source)
            if (c == '+') c = ' ';
    }
    auto out = pl_percentDecode(source, PeloraBadEscape::Refuse);
    if (!out || !isValidUtf8(*out)) return std::nullopt;
    return out;
}
