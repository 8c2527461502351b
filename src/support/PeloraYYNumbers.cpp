// The mapping's number rules: narrowing to a field's width, and numbers read from text.

#include <locale.h>
#include <simdjson.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>
#include <unordered_map>

#include "support/PeloraYYModel.h"

// ---- number narrowing ------------------------------------------------------------------------

namespace {

// Doubles outside the 64-bit range would make the cast undefined; they saturate instead.
int64_t realToInt64(double d) {
    if (std::isnan(d)) return 0;
    if (d >= 9223372036854775807.0) return std::numeric_limits<int64_t>::max();
    if (d <= -9223372036854775808.0) return std::numeric_limits<int64_t>::min();
    return static_cast<int64_t>(d);
}

uint64_t realToUInt64(double d) {
    if (std::isnan(d)) return 0;
    if (d >= 18446744073709551615.0) return std::numeric_limits<uint64_t>::max();
    if (d < 0) return static_cast<uint64_t>(realToInt64(d));
    return static_cast<uint64_t>(d);
}

int64_t asInt64(const PeloraYYNumber& n) {
    switch (n.kind) {
        case PeloraYYNumber::Int:
            return n.i;
        case PeloraYYNumber::UInt:
            return static_cast<int64_t>(n.u);
        case PeloraYYNumber::Real:
            return realToInt64(n.d);
        case PeloraYYNumber::None:
            break;
    }
    return 0;
}

uint64_t asUInt64(const PeloraYYNumber& n) {
    switch (n.kind) {
        case PeloraYYNumber::Int:
            return static_cast<uint64_t>(n.i);
        case PeloraYYNumber::UInt:
            return n.u;
        case PeloraYYNumber::Real:
            return realToUInt64(n.d);
        case PeloraYYNumber::None:
            break;
    }
    return 0;
}

double asDouble(const PeloraYYNumber& n) {
    switch (n.kind) {
        case PeloraYYNumber::Int:
            return static_cast<double>(n.i);
        case PeloraYYNumber::UInt:
            return static_cast<double>(n.u);
        case PeloraYYNumber::Real:
            return n.d;
        case PeloraYYNumber::None:
            break;
    }
    return 0.0;
}

}  // namespace

namespace plyy_detail {

template <class To>
To narrow(const PeloraYYNumber& n) {
    if constexpr (std::is_floating_point_v<To>) {
        const To v = static_cast<To>(asDouble(n));
        return std::isfinite(v) ? v : To(0);
    } else if constexpr (std::is_signed_v<To>) {
        return static_cast<To>(asInt64(n));
    } else {
        return static_cast<To>(asUInt64(n));
    }
}

template <>
bool narrow<bool>(const PeloraYYNumber& n) {
    switch (n.kind) {
        case PeloraYYNumber::Int:
            return n.i != 0;
        case PeloraYYNumber::UInt:
            return n.u != 0;
        case PeloraYYNumber::Real:
            return std::isfinite(n.d) && n.d != 0.0;
        case PeloraYYNumber::None:
            break;
    }
    return false;
}

template int8_t narrow<int8_t>(const PeloraYYNumber&);
template uint8_t narrow<uint8_t>(const PeloraYYNumber&);
template int16_t narrow<int16_t>(const PeloraYYNumber&);
template uint16_t narrow<uint16_t>(const PeloraYYNumber&);
template int32_t narrow<int32_t>(const PeloraYYNumber&);
template uint32_t narrow<uint32_t>(const PeloraYYNumber&);
template int64_t narrow<int64_t>(const PeloraYYNumber&);
template uint64_t narrow<uint64_t>(const PeloraYYNumber&);
template float narrow<float>(const PeloraYYNumber&);
template double narrow<double>(const PeloraYYNumber&);

}  // namespace plyy_detail

// ---- text to number --------------------------------------------------------------------------

namespace {

enum class Word : uint8_t { True, False, Null };

// Exact, case-sensitive spellings servers use for booleans and for "no value".
const std::unordered_map<std::string_view, Word>& wordTable() {
    static const std::unordered_map<std::string_view, Word> table = {
        {"TRUE", Word::True},   {"True", Word::True},   {"true", Word::True},
        {"YES", Word::True},    {"Yes", Word::True},    {"yes", Word::True},
        {"FALSE", Word::False}, {"False", Word::False}, {"false", Word::False},
        {"NO", Word::False},    {"No", Word::False},    {"no", Word::False},
        {"NIL", Word::Null},    {"Nil", Word::Null},    {"nil", Word::Null},
        {"NULL", Word::Null},   {"Null", Word::Null},   {"null", Word::Null},
        {"(NULL)", Word::Null}, {"(Null)", Word::Null}, {"(null)", Word::Null},
        {"<NULL>", Word::Null}, {"<Null>", Word::Null}, {"<null>", Word::Null},
    };
    return table;
}

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// Like the C library's decimal reader, but independent of the process locale (a host may
// have switched to one with a decimal comma).
double parseDecimalPrefix(std::string_view text) {
    static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    const std::string copy(text);
    if (cLocale == static_cast<locale_t>(nullptr)) return std::strtod(copy.c_str(), nullptr);
    return strtod_l(copy.c_str(), nullptr, cLocale);
}

}  // namespace

// Leading white space, optional sign, leading digits; the rest is ignored. Saturates.
int64_t plyy_integerPrefix(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size() && isSpace(text[i])) ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
    uint64_t magnitude = 0;
    bool overflow = false;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        const auto digit = static_cast<uint64_t>(text[i] - '0');
        if (magnitude > (std::numeric_limits<uint64_t>::max() - digit) / 10) {
            overflow = true;
            break;
        }
        magnitude = magnitude * 10 + digit;
    }
    constexpr uint64_t kMaxPositive = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
    if (negative) {
        if (overflow || magnitude > kMaxPositive + 1) return std::numeric_limits<int64_t>::min();
        return magnitude == kMaxPositive + 1 ? std::numeric_limits<int64_t>::min()
                                             : -static_cast<int64_t>(magnitude);
    }
    if (overflow || magnitude > kMaxPositive) return std::numeric_limits<int64_t>::max();
    return static_cast<int64_t>(magnitude);
}

PeloraYYNumber plyy_numberFromText(std::string_view text) {
    PeloraYYNumber n;
    const auto& words = wordTable();
    if (auto it = words.find(text); it != words.end()) {
        if (it->second == Word::Null) return n;
        n.kind = PeloraYYNumber::Int;
        n.i = it->second == Word::True ? 1 : 0;
        return n;
    }
    if (text.find('.') != std::string_view::npos) {
        const double d = parseDecimalPrefix(text);
        if (!std::isfinite(d)) return n;
        n.kind = PeloraYYNumber::Real;
        n.d = d;
        return n;
    }
    n.kind = PeloraYYNumber::Int;
    n.i = plyy_integerPrefix(text);
    return n;
}
