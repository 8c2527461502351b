#include "support/PeloraYYModel.h"

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

// Leading white space, optional sign, leading digits; the rest is ignored. Saturates.
int64_t parseIntegerPrefix(std::string_view text) {
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

}  // namespace

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
    n.i = parseIntegerPrefix(text);
    return n;
}

// ---- dates -----------------------------------------------------------------------------------

namespace {

struct DateReader {
    std::string_view s;
    std::size_t pos = 0;

    bool digits(int count, int& out) {
        out = 0;
        for (int k = 0; k < count; ++k) {
            if (pos >= s.size() || s[pos] < '0' || s[pos] > '9') return false;
            out = out * 10 + (s[pos++] - '0');
        }
        return true;
    }
    bool literal(char c) {
        if (pos >= s.size() || s[pos] != c) return false;
        ++pos;
        return true;
    }
    bool word(const std::array<std::string_view, 12>& names, std::size_t count, int& index) {
        for (std::size_t k = 0; k < count; ++k) {
            if (s.substr(pos, names[k].size()) == names[k]) {
                pos += names[k].size();
                index = static_cast<int>(k);
                return true;
            }
        }
        return false;
    }
    // "Z", "+hhmm", "+hh:mm", "GMT", "GMT+hh:mm", "UTC" — the forms a zone field accepts.
    bool zone(int& offsetSeconds) {
        offsetSeconds = 0;
        if (literal('Z')) return true;
        if (s.substr(pos, 3) == "GMT" || s.substr(pos, 3) == "UTC") {
            pos += 3;
            if (pos >= s.size() || (s[pos] != '+' && s[pos] != '-')) return true;
        }
        if (pos >= s.size() || (s[pos] != '+' && s[pos] != '-')) return false;
        const int sign = s[pos++] == '-' ? -1 : 1;
        int hh = 0, mm = 0;
        if (!digits(2, hh)) return false;
        literal(':');
        if (!digits(2, mm)) return false;
        if (hh > 23 || mm > 59) return false;
        offsetSeconds = sign * (hh * 3600 + mm * 60);
        return true;
    }
    bool done() const { return pos == s.size(); }
};

bool isLeap(int y) {
    return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

std::optional<PeloraYYDate> makeDate(int y, int mo, int d, int h, int mi, int sec, int ms,
                                     int offsetSeconds) {
    static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (mo < 1 || mo > 12 || d < 1) return std::nullopt;
    const int monthDays = kDays[mo - 1] + (mo == 2 && isLeap(y) ? 1 : 0);
    if (d > monthDays || h > 23 || mi > 59 || sec > 60) return std::nullopt;
    const auto days =
        std::chrono::sys_days(std::chrono::year(y) / std::chrono::month(mo) / std::chrono::day(d));
    return PeloraYYDate(days) + std::chrono::hours(h) + std::chrono::minutes(mi) +
           std::chrono::seconds(sec) + std::chrono::milliseconds(ms) -
           std::chrono::seconds(offsetSeconds);
}

// Formats, in this order of fields: yyyy-MM-dd, then optionally [T| ]HH:mm:ss, [.SSS], [zone].
std::optional<PeloraYYDate> readIso(std::string_view text, bool hasTime, char separator,
                                    bool hasMillis, bool hasZone) {
    DateReader r{text};
    int y = 0, mo = 0, d = 0, h = 0, mi = 0, sec = 0, ms = 0, zone = 0;
    if (!r.digits(4, y) || !r.literal('-') || !r.digits(2, mo) || !r.literal('-') ||
        !r.digits(2, d))
        return std::nullopt;
    if (hasTime) {
        if (!r.literal(separator) || !r.digits(2, h) || !r.literal(':') || !r.digits(2, mi) ||
            !r.literal(':') || !r.digits(2, sec))
            return std::nullopt;
        if (hasMillis && (!r.literal('.') || !r.digits(3, ms))) return std::nullopt;
        if (hasZone && !r.zone(zone)) return std::nullopt;
    }
    if (!r.done()) return std::nullopt;
    return makeDate(y, mo, d, h, mi, sec, ms, zone);
}

constexpr std::array<std::string_view, 12> kWeekdays = {"Sun", "Mon", "Tue", "Wed",
                                                        "Thu", "Fri", "Sat"};
constexpr std::array<std::string_view, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// "EEE MMM dd HH:mm:ss[.SSS] Z yyyy" (the weekday is read but not checked against the date).
std::optional<PeloraYYDate> readLong(std::string_view text, bool hasMillis) {
    DateReader r{text};
    int weekday = 0, mo = 0, d = 0, h = 0, mi = 0, sec = 0, ms = 0, zone = 0, y = 0;
    if (!r.word(kWeekdays, 7, weekday) || !r.literal(' ') || !r.word(kMonths, 12, mo) ||
        !r.literal(' ') || !r.digits(2, d) || !r.literal(' ') || !r.digits(2, h) ||
        !r.literal(':') || !r.digits(2, mi) || !r.literal(':') || !r.digits(2, sec))
        return std::nullopt;
    if (hasMillis && (!r.literal('.') || !r.digits(3, ms))) return std::nullopt;
    if (!r.literal(' ') || !r.zone(zone) || !r.literal(' ') || !r.digits(4, y) || !r.done())
        return std::nullopt;
    return makeDate(y, mo + 1, d, h, mi, sec, ms, zone);
}

}  // namespace

std::optional<PeloraYYDate> plyy_dateFromString(std::string_view text) {
    const bool t = text.size() > 10 && text[10] == 'T';
    switch (text.size()) {
        case 10:
            return readIso(text, false, 'T', false, false);
        case 19:
            return readIso(text, true, t ? 'T' : ' ', false, false);
        case 23:
            return readIso(text, true, t ? 'T' : ' ', true, false);
        case 20:
        case 25:
            return readIso(text, true, 'T', false, true);
        case 24:
            if (auto d = readIso(text, true, 'T', false, true)) return d;
            return readIso(text, true, 'T', true, true);
        case 28:
        case 29:
            return readIso(text, true, 'T', true, true);
        case 30:
            return readLong(text, false);
        case 34:
            return readLong(text, true);
        default:
            return std::nullopt;
    }
}

std::string plyy_stringFromDate(PeloraYYDate date) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(date);
    const auto days = std::chrono::floor<std::chrono::days>(seconds);
    const std::chrono::year_month_day ymd(days);
    const std::chrono::hh_mm_ss hms(seconds - days);
    char buf[40];
    std::snprintf(buf, sizeof buf, "%04d-%02u-%02uT%02d:%02d:%02d+0000",
                  static_cast<int>(ymd.year()), static_cast<unsigned>(ymd.month()),
                  static_cast<unsigned>(ymd.day()), static_cast<int>(hms.hours().count()),
                  static_cast<int>(hms.minutes().count()), static_cast<int>(hms.seconds().count()));
    return buf;
}

// ---- mapping descriptions --------------------------------------------------------------------

namespace {

std::vector<std::string> splitKeyPath(const std::string& text) {
    std::vector<std::string> pieces;
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t dot = text.find('.', start);
        if (dot == std::string::npos) dot = text.size();
        if (dot > start) pieces.push_back(text.substr(start, dot - start));
        start = dot + 1;
    }
    return pieces;
}

}  // namespace

void _PeloraYYKeyTable::reserve(std::size_t keys) {
    std::size_t size = 8;
    while (size < keys * 2) size *= 2;
    entries_.assign(size, Entry{});
    mask_ = size - 1;
}

const _PeloraYYModelPropertyMeta*& _PeloraYYKeyTable::slot(const std::string& key) {
    for (std::size_t i = hashOf(key) & mask_;; i = (i + 1) & mask_) {
        Entry& e = entries_[i];
        if (!e.used) {
            e.used = true;
            e.key = key;
            return e.first;
        }
        if (e.key == key) return e.first;
    }
}

const _PeloraYYModelPropertyMeta* _PeloraYYKeyTable::find(std::string_view key) const {
    if (entries_.empty()) return nullptr;
    for (std::size_t i = hashOf(key) & mask_;; i = (i + 1) & mask_) {
        const Entry& e = entries_[i];
        if (!e.used) return nullptr;
        if (e.key.size() == key.size() && e.key == key) return e.first;
    }
}

_PeloraYYModelMeta _PeloraYYModelMeta::build(_PeloraYYModelSchema schema) {
    _PeloraYYModelMeta meta;
    meta.cls = schema.cls;
    meta.className = schema.className;

    // Later declarations of a name replace earlier ones (a subclass over its base).
    std::vector<_PeloraYYPropertyDecl> properties;
    for (auto& decl : schema.properties) {
        auto same = std::find_if(properties.begin(), properties.end(),
                                 [&](const auto& p) { return p.name == decl.name; });
        if (same != properties.end()) {
            *same = decl;
        } else {
            properties.push_back(decl);
        }
    }
    if (schema.blacklist) {
        std::erase_if(properties, [&](const auto& p) { return schema.blacklist->count(p.name); });
    }
    if (schema.whitelist) {
        std::erase_if(properties, [&](const auto& p) { return !schema.whitelist->count(p.name); });
    }

    meta.allPropertyMetas.reserve(properties.size());
    for (auto& decl : properties) {
        _PeloraYYModelPropertyMeta p;
        p.name = decl.name;
        p.type = decl.type;
        p.elementClass = decl.elementClass;
        p.access = decl.access;
        p.mappedToKey = decl.name;
        if (schema.customPropertyMapper) {
            auto it = schema.customPropertyMapper->find(decl.name);
            if (it != schema.customPropertyMapper->end()) {
                if (const auto* key = std::get_if<std::string>(&it->second)) {
                    auto path = splitKeyPath(*key);
                    if (path.size() == 1) {
                        p.mappedToKey = path.front();
                    } else if (path.size() > 1) {
                        p.mappedToKey = *key;
                        p.mappedToKeyPath = std::move(path);
                    }
                } else {
                    bool first = true;
                    for (const auto& one : std::get<std::vector<std::string>>(it->second)) {
                        auto path = splitKeyPath(one);
                        if (path.empty()) continue;
                        if (first) {
                            p.mappedToKey = path.size() == 1 ? path.front() : one;
                            if (path.size() > 1) p.mappedToKeyPath = path;
                            first = false;
                        }
                        p.mappedToKeyArray.push_back(std::move(path));
                    }
                }
            }
        }
        meta.allPropertyMetas.push_back(std::move(p));
    }
    // Pointers into allPropertyMetas are taken only now that it no longer grows; the vector
    // is moved with the description, which keeps its buffer.
    meta.mapper.reserve(meta.allPropertyMetas.size());
    for (auto& p : meta.allPropertyMetas) {
        if (p.isMultiKey()) {
            meta.multiKeysPropertyMetas.push_back(&p);
        } else if (p.isKeyPath()) {
            meta.keyPathPropertyMetas.push_back(&p);
        } else {
            auto& slot = meta.mapper.slot(p.mappedToKey);
            p.next = slot;
            slot = &p;
            ++meta.keyMappedCount;
        }
    }
    meta.writeOrder.reserve(meta.allPropertyMetas.size());
    bool anyKeyPath = false;
    for (const auto& p : meta.allPropertyMetas) {
        meta.writeOrder.push_back({&p, _plyy_dumpJSON(p.mappedToKey) + ':', false});
        anyKeyPath = anyKeyPath || p.isKeyPath();
    }
    std::stable_sort(meta.writeOrder.begin(), meta.writeOrder.end(),
                     [](const auto& a, const auto& b) {
                         return a.property->mappedToKey < b.property->mappedToKey;
                     });
    for (std::size_t i = 1; i < meta.writeOrder.size(); ++i) {
        meta.writeOrder[i].sameKeyAsPrevious = meta.writeOrder[i].property->mappedToKey ==
                                               meta.writeOrder[i - 1].property->mappedToKey;
    }
    meta.writesDirectly = !anyKeyPath && schema.transformToDictionary == nullptr;
    meta.schema = std::move(schema);
    meta.schema.properties.clear();
    return meta;
}

const _PeloraYYModelMeta& _PeloraYYModelMeta::cachedMeta(std::type_index cls,
                                                         _PeloraYYModelSchema (*schema)()) {
    static std::mutex lock;
    static std::unordered_map<std::type_index, std::unique_ptr<_PeloraYYModelMeta>> cache;
    std::lock_guard<std::mutex> guard(lock);
    auto& slot = cache[cls];
    if (!slot) slot = std::make_unique<_PeloraYYModelMeta>(build(schema()));
    return *slot;
}

// ---- one set of coercion rules over two kinds of input ---------------------------------------

namespace {

enum class VKind : uint8_t { Null, Bool, Int, UInt, Real, String, Array, Object };

std::string numberText(const PeloraYYNumber& n) {
    char buf[40];
    std::to_chars_result r{};
    switch (n.kind) {
        case PeloraYYNumber::Int:
            r = std::to_chars(buf, buf + sizeof buf, n.i);
            break;
        case PeloraYYNumber::UInt:
            r = std::to_chars(buf, buf + sizeof buf, n.u);
            break;
        case PeloraYYNumber::Real:
            r = std::to_chars(buf, buf + sizeof buf, n.d);
            break;
        case PeloraYYNumber::None:
            return "0";
    }
    return std::string(buf, r.ptr);
}

// A parsed value of the byte route.
struct SimdView {
    simdjson::dom::element e;

    VKind kind() const {
        switch (e.type()) {
            case simdjson::dom::element_type::NULL_VALUE:
                return VKind::Null;
            case simdjson::dom::element_type::BOOL:
                return VKind::Bool;
            case simdjson::dom::element_type::INT64:
                return VKind::Int;
            case simdjson::dom::element_type::UINT64:
                return VKind::UInt;
            case simdjson::dom::element_type::DOUBLE:
                return VKind::Real;
            case simdjson::dom::element_type::STRING:
                return VKind::String;
            case simdjson::dom::element_type::ARRAY:
                return VKind::Array;
            case simdjson::dom::element_type::OBJECT:
                return VKind::Object;
        }
        return VKind::Null;
    }
    bool boolean() const {
        bool v = false;
        if (e.get(v) != simdjson::SUCCESS) return {};
        return v;
    }
    int64_t int64() const {
        int64_t v = 0;
        if (e.get(v) != simdjson::SUCCESS) return {};
        return v;
    }
    uint64_t uint64() const {
        uint64_t v = 0;
        if (e.get(v) != simdjson::SUCCESS) return {};
        return v;
    }
    double real() const {
        double v = 0;
        if (e.get(v) != simdjson::SUCCESS) return {};
        return v;
    }
    std::string_view text() const {
        std::string_view v;
        if (e.get(v) != simdjson::SUCCESS) return {};
        return v;
    }
    simdjson::dom::object object() const {
        simdjson::dom::object o;
        if (e.get(o)) return {};
        return o;
    }
    std::size_t objectSize() const { return object().size(); }
    std::size_t arraySize() const {
        simdjson::dom::array a;
        if (e.get(a) != simdjson::SUCCESS) return 0;
        return a.size();
    }
    template <class F>
    void eachElement(F&& f) const {
        simdjson::dom::array a;
        if (e.get(a)) return;
        for (simdjson::dom::element child : a) f(SimdView{child});
    }
    template <class F>
    void eachEntry(F&& f) const {
        simdjson::dom::object o;
        if (e.get(o)) return;
        for (auto field : o) f(field.key, SimdView{field.value});
    }
    std::optional<SimdView> find(std::string_view key) const {
        simdjson::dom::object o;
        if (e.get(o)) return std::nullopt;
        simdjson::dom::element child;
        if (o.at_key(key).get(child)) return std::nullopt;
        return SimdView{child};
    }
    nlohmann::json toJson() const;
};

nlohmann::json SimdView::toJson() const {
    switch (kind()) {
        case VKind::Null:
            return nullptr;
        case VKind::Bool:
            return boolean();
        case VKind::Int:
            return int64();
        case VKind::UInt:
            return uint64();
        case VKind::Real:
            return real();
        case VKind::String:
            return std::string(text());
        case VKind::Array: {
            auto out = nlohmann::json::array();
            eachElement([&](SimdView v) { out.push_back(v.toJson()); });
            return out;
        }
        case VKind::Object: {
            auto out = nlohmann::json::object();
            eachEntry([&](std::string_view k, SimdView v) {
                out[std::string(k)] = v.toJson();  // the last duplicate wins, as when parsing
            });
            return out;
        }
    }
    return nullptr;
}

// A value of the dictionary route.
struct JsonView {
    const nlohmann::json* j;

    VKind kind() const {
        switch (j->type()) {
            case nlohmann::json::value_t::boolean:
                return VKind::Bool;
            case nlohmann::json::value_t::number_integer:
                return VKind::Int;
            case nlohmann::json::value_t::number_unsigned:
                return VKind::UInt;
            case nlohmann::json::value_t::number_float:
                return VKind::Real;
            case nlohmann::json::value_t::string:
                return VKind::String;
            case nlohmann::json::value_t::array:
                return VKind::Array;
            case nlohmann::json::value_t::object:
                return VKind::Object;
            default:
                return VKind::Null;  // null, discarded, binary
        }
    }
    bool boolean() const { return j->get<bool>(); }
    int64_t int64() const { return j->get<int64_t>(); }
    uint64_t uint64() const { return j->get<uint64_t>(); }
    double real() const { return j->get<double>(); }
    std::string_view text() const { return j->get_ref<const std::string&>(); }
    std::size_t objectSize() const { return j->size(); }
    std::size_t arraySize() const { return j->size(); }
    template <class F>
    void eachElement(F&& f) const {
        for (const auto& child : *j) f(JsonView{&child});
    }
    template <class F>
    void eachEntry(F&& f) const {
        for (auto it = j->begin(); it != j->end(); ++it)
            f(std::string_view(it.key()), JsonView{&it.value()});
    }
    std::optional<JsonView> find(std::string_view key) const {
        auto it = j->find(key);
        if (it == j->end()) return std::nullopt;
        return JsonView{&*it};
    }
    nlohmann::json toJson() const { return *j; }
};

// Depth of a dictionary-route value, counted only as far as the limit.
bool withinDepth(const nlohmann::json& value, int depth) {
    if (!value.is_structured()) return true;
    if (depth >= kPeloraYYMaxDepth) return false;
    for (const auto& child : value)
        if (!withinDepth(child, depth + 1)) return false;
    return true;
}

struct MapContext {
    std::string* whyNot = nullptr;
    bool tooDeep = false;

    void refuseDepth() {
        if (!tooDeep && whyNot)
            *whyNot = "input nests deeper than " + std::to_string(kPeloraYYMaxDepth) + " levels";
        tooDeep = true;
    }
};

template <class V>
bool setWithObject(const _PeloraYYModelMeta& meta, void* model, V dict, int depth, MapContext& ctx,
                   bool transformed = false);

template <class V>
std::shared_ptr<void> newModelFrom(const _PeloraYYModelMeta& meta, V dict, int depth,
                                   MapContext& ctx) {
    if (depth >= kPeloraYYMaxDepth) {
        ctx.refuseDepth();
        return nullptr;
    }
    std::shared_ptr<void> one = meta.schema.newInstance();
    // A nested record is kept even when its own hooks refuse the input, as a fresh record.
    setWithObject(meta, one.get(), dict, depth + 1, ctx);
    return one;
}

template <class V>
PeloraYYNumber numberOf(V value) {
    PeloraYYNumber n;
    switch (value.kind()) {
        case VKind::Bool:
            n.kind = PeloraYYNumber::Int;
            n.i = value.boolean() ? 1 : 0;
            break;
        case VKind::Int:
            n.kind = PeloraYYNumber::Int;
            n.i = value.int64();
            break;
        case VKind::UInt:
            n.kind = PeloraYYNumber::UInt;
            n.u = value.uint64();
            break;
        case VKind::Real:
            n.kind = PeloraYYNumber::Real;
            n.d = value.real();
            if (!std::isfinite(n.d)) n.kind = PeloraYYNumber::None;
            break;
        case VKind::String:
            n = plyy_numberFromText(value.text());
            break;
        default:
            break;  // null and containers: no number, the property becomes 0
    }
    return n;
}

template <class V>
void setProperty(const _PeloraYYModelPropertyMeta& p, void* model, V value, int depth,
                 MapContext& ctx) {
    const VKind kind = value.kind();
    const auto& a = p.access;
    switch (p.type) {
        case PeloraYYEncodingType::Bool:
        case PeloraYYEncodingType::Int8:
        case PeloraYYEncodingType::UInt8:
        case PeloraYYEncodingType::Int16:
        case PeloraYYEncodingType::UInt16:
        case PeloraYYEncodingType::Int32:
        case PeloraYYEncodingType::UInt32:
        case PeloraYYEncodingType::Int64:
        case PeloraYYEncodingType::UInt64:
        case PeloraYYEncodingType::Float:
        case PeloraYYEncodingType::Double:
            a.setNumber(model, numberOf(value));
            return;
        case PeloraYYEncodingType::String:
            if (kind == VKind::Null) {
                a.setText(model, std::nullopt);
            } else if (kind == VKind::String) {
                a.setText(model, std::string(value.text()));
            } else if (kind != VKind::Array && kind != VKind::Object) {
                a.setText(model, numberText(numberOf(value)));
            }
            return;
        case PeloraYYEncodingType::Date:
            if (kind == VKind::Null) {
                a.setDate(model, std::nullopt);
            } else if (kind == VKind::String) {
                a.setDate(model, plyy_dateFromString(value.text()));
            }
            return;
        case PeloraYYEncodingType::StringList:
            if (kind == VKind::Null) {
                a.setTextList(model, std::nullopt);
            } else if (kind == VKind::Array) {
                // Elements that already are text are kept; anything else is not an element of
                // this list and is dropped.
                std::vector<std::string> list;
                list.reserve(value.arraySize());
                value.eachElement([&](V one) {
                    if (one.kind() == VKind::String) list.emplace_back(one.text());
                });
                a.setTextList(model, std::move(list));
            }
            return;
        case PeloraYYEncodingType::Dictionary:
            if (kind == VKind::Null) {
                a.setDictionary(model, std::nullopt);
            } else if (kind == VKind::Object) {
                nlohmann::json copy = value.toJson();
                if (!withinDepth(copy, depth)) return ctx.refuseDepth();
                a.setDictionary(model, std::move(copy));
            }
            return;
        case PeloraYYEncodingType::Model:
            if (kind == VKind::Null) {
                a.setModel(model, nullptr);
            } else if (kind == VKind::Object) {
                auto one = newModelFrom(a.elementMeta(), value, depth, ctx);
                if (one) a.setModel(model, std::move(one));
            }
            return;
        case PeloraYYEncodingType::ModelList:
            if (kind == VKind::Null) {
                a.setModelList(model, std::nullopt);
            } else if (kind == VKind::Array) {
                const _PeloraYYModelMeta& element = a.elementMeta();
                std::vector<std::shared_ptr<void>> list;
                list.reserve(value.arraySize());
                value.eachElement([&](V one) {
                    if (ctx.tooDeep || one.kind() != VKind::Object) return;
                    if (auto made = newModelFrom(element, one, depth + 1, ctx))
                        list.push_back(std::move(made));
                });
                if (!ctx.tooDeep) a.setModelList(model, std::move(list));
            }
            return;
        case PeloraYYEncodingType::ModelDictionary:
            if (kind == VKind::Null) {
                a.setModelDictionary(model, std::nullopt);
            } else if (kind == VKind::Object) {
                const _PeloraYYModelMeta& element = a.elementMeta();
                std::map<std::string, std::shared_ptr<void>> map;
                value.eachEntry([&](std::string_view key, V one) {
                    if (ctx.tooDeep || one.kind() != VKind::Object) return;
                    if (auto made = newModelFrom(element, one, depth + 1, ctx))
                        map.insert_or_assign(std::string(key), std::move(made));
                });
                if (!ctx.tooDeep) a.setModelDictionary(model, std::move(map));
            }
            return;
    }
}

template <class V>
std::optional<V> lookupPath(V dict, const std::vector<std::string>& path) {
    std::optional<V> current = dict;
    for (std::size_t i = 0; i < path.size(); ++i) {
        if (current->kind() != VKind::Object) return std::nullopt;
        current = current->find(path[i]);
        if (!current) return std::nullopt;
    }
    return current;
}

template <class V>
std::optional<V> lookup(const _PeloraYYModelPropertyMeta& p, V dict) {
    if (p.isMultiKey()) {
        for (const auto& candidate : p.mappedToKeyArray) {
            if (auto v = lookupPath(dict, candidate)) return v;
        }
        return std::nullopt;
    }
    if (p.isKeyPath()) return lookupPath(dict, p.mappedToKeyPath);
    return dict.find(p.mappedToKey);
}

template <class V>
bool setWithObject(const _PeloraYYModelMeta& meta, void* model, V dict, int depth, MapContext& ctx,
                   bool transformed) {
    if (dict.kind() != VKind::Object) return false;
    if (meta.allPropertyMetas.empty()) return false;
    if (depth > kPeloraYYMaxDepth) {
        ctx.refuseDepth();
        return false;
    }
    const auto& s = meta.schema;
    if (s.willTransform && !transformed) {
        const nlohmann::json original = dict.toJson();
        nlohmann::json replaced;
        if (!s.willTransform(model, original, replaced)) return false;
        return setWithObject(meta, model, JsonView{&replaced}, depth, ctx, true) && !ctx.tooDeep;
    }

    if (meta.keyMappedCount >= dict.objectSize()) {
        dict.eachEntry([&](std::string_view key, V value) {
            if (ctx.tooDeep) return;
            for (const auto* p = meta.mapper.find(key); p != nullptr; p = p->next)
                setProperty(*p, model, value, depth, ctx);
        });
        for (const auto* p : meta.keyPathPropertyMetas) {
            if (auto v = lookup(*p, dict)) setProperty(*p, model, *v, depth, ctx);
        }
        for (const auto* p : meta.multiKeysPropertyMetas) {
            if (auto v = lookup(*p, dict)) setProperty(*p, model, *v, depth, ctx);
        }
    } else {
        for (const auto& p : meta.allPropertyMetas) {
            if (ctx.tooDeep) break;
            if (auto v = lookup(p, dict)) setProperty(p, model, *v, depth, ctx);
        }
    }
    if (ctx.tooDeep) return false;
    if (s.transformFromDictionary) return s.transformFromDictionary(model, dict.toJson());
    return true;
}

// One reusable parser per thread: answers are parsed on whichever thread maps them, and the
// parser's buffers are kept between answers.
simdjson::dom::parser& threadParser() {
    thread_local simdjson::dom::parser parser;
    return parser;
}

std::optional<simdjson::dom::element> parseBytes(std::string_view bytes, std::string* whyNot) {
    simdjson::dom::parser& parser = threadParser();
    if (parser.capacity() < bytes.size() || parser.max_depth() != kPeloraYYMaxDepth) {
        const std::size_t capacity = std::max<std::size_t>(bytes.size(), 4096);
        if (auto err = parser.allocate(capacity, kPeloraYYMaxDepth)) {
            if (whyNot) *whyNot = std::string("cannot parse JSON: ") + simdjson::error_message(err);
            return std::nullopt;
        }
    }
    // The parser reads a little past the end of its input; the bytes are copied into a
    // padded buffer kept per thread, instead of a fresh allocation for every answer.
    thread_local std::unique_ptr<char[]> padded;
    thread_local std::size_t paddedCapacity = 0;
    if (paddedCapacity < bytes.size() + simdjson::SIMDJSON_PADDING) {
        paddedCapacity = std::max(bytes.size() + simdjson::SIMDJSON_PADDING, paddedCapacity * 2);
        padded.reset(new char[paddedCapacity]);
    }
    if (!bytes.empty()) std::memcpy(padded.get(), bytes.data(), bytes.size());
    std::memset(padded.get() + bytes.size(), 0, simdjson::SIMDJSON_PADDING);
    simdjson::dom::element root;
    if (auto err = parser.parse(padded.get(), bytes.size(), false).get(root)) {
        if (whyNot) {
            *whyNot =
                err == simdjson::DEPTH_ERROR
                    ? "input nests deeper than " + std::to_string(kPeloraYYMaxDepth) + " levels"
                    : std::string("not valid JSON: ") + simdjson::error_message(err);
        }
        return std::nullopt;
    }
    return root;
}

}  // namespace

bool plyy_isValidJSON(std::string_view bytes, std::string* whyNot) {
    return parseBytes(bytes, whyNot).has_value();
}

std::shared_ptr<void> _plyy_modelWithBytes(const _PeloraYYModelMeta& meta, std::string_view bytes,
                                           std::string* whyNot) {
    auto root = parseBytes(bytes, whyNot);
    if (!root) return nullptr;
    SimdView view{*root};
    if (view.kind() != VKind::Object) {
        if (whyNot) *whyNot = "the JSON text is not an object";
        return nullptr;
    }
    std::shared_ptr<void> one = meta.schema.newInstance();
    MapContext ctx{whyNot};
    if (!setWithObject(meta, one.get(), view, 0, ctx)) {
        if (whyNot && !ctx.tooDeep) *whyNot = "the object does not map onto " + meta.className;
        return nullptr;
    }
    return one;
}

std::shared_ptr<void> _plyy_modelWithDictionary(const _PeloraYYModelMeta& meta,
                                                const nlohmann::json& dict, std::string* whyNot) {
    if (!dict.is_object()) {
        if (whyNot) *whyNot = "input is not a JSON object";
        return nullptr;
    }
    std::shared_ptr<void> one = meta.schema.newInstance();
    if (!_plyy_modelSetWithDictionary(meta, one.get(), dict, whyNot)) return nullptr;
    return one;
}

bool _plyy_modelSetWithBytes(const _PeloraYYModelMeta& meta, void* model, std::string_view bytes,
                             std::string* whyNot) {
    auto root = parseBytes(bytes, whyNot);
    if (!root) return false;
    MapContext ctx{whyNot};
    if (!setWithObject(meta, model, SimdView{*root}, 0, ctx)) {
        if (whyNot && !ctx.tooDeep) *whyNot = "the JSON text does not map onto " + meta.className;
        return false;
    }
    return true;
}

bool _plyy_modelSetWithDictionary(const _PeloraYYModelMeta& meta, void* model,
                                  const nlohmann::json& dict, std::string* whyNot) {
    MapContext ctx{whyNot};
    if (!setWithObject(meta, model, JsonView{&dict}, 0, ctx)) {
        if (whyNot && !ctx.tooDeep) *whyNot = "the dictionary does not map onto " + meta.className;
        return false;
    }
    return true;
}

namespace {

template <class V>
std::vector<std::shared_ptr<void>> arrayOf(const _PeloraYYModelMeta& meta, V array) {
    std::vector<std::shared_ptr<void>> out;
    if (array.kind() != VKind::Array) return out;
    array.eachElement([&](V one) {
        if (one.kind() != VKind::Object) return;
        std::shared_ptr<void> made = meta.schema.newInstance();
        MapContext ctx;
        if (setWithObject(meta, made.get(), one, 1, ctx)) out.push_back(std::move(made));
    });
    return out;
}

template <class V>
std::map<std::string, std::shared_ptr<void>> dictionaryOf(const _PeloraYYModelMeta& meta, V dict) {
    std::map<std::string, std::shared_ptr<void>> out;
    if (dict.kind() != VKind::Object) return out;
    dict.eachEntry([&](std::string_view key, V one) {
        if (one.kind() != VKind::Object) return;
        std::shared_ptr<void> made = meta.schema.newInstance();
        MapContext ctx;
        if (setWithObject(meta, made.get(), one, 1, ctx))
            out.insert_or_assign(std::string(key), std::move(made));
    });
    return out;
}

}  // namespace

std::vector<std::shared_ptr<void>> _plyy_modelArrayWithBytes(const _PeloraYYModelMeta& meta,
                                                             std::string_view bytes) {
    auto root = parseBytes(bytes, nullptr);
    if (!root) return {};
    return arrayOf(meta, SimdView{*root});
}

std::vector<std::shared_ptr<void>> _plyy_modelArrayWithJSON(const _PeloraYYModelMeta& meta,
                                                            const nlohmann::json& array) {
    return arrayOf(meta, JsonView{&array});
}

std::map<std::string, std::shared_ptr<void>> _plyy_modelDictionaryWithBytes(
    const _PeloraYYModelMeta& meta, std::string_view bytes) {
    auto root = parseBytes(bytes, nullptr);
    if (!root) return {};
    return dictionaryOf(meta, SimdView{*root});
}

std::map<std::string, std::shared_ptr<void>> _plyy_modelDictionaryWithJSON(
    const _PeloraYYModelMeta& meta, const nlohmann::json& dict) {
    return dictionaryOf(meta, JsonView{&dict});
}

// ---- writing ---------------------------------------------------------------------------------

namespace {

nlohmann::json numberJson(PeloraYYEncodingType type, const PeloraYYNumber& n) {
    if (type == PeloraYYEncodingType::Bool) return n.i != 0;
    switch (n.kind) {
        case PeloraYYNumber::Int:
            return n.i;
        case PeloraYYNumber::UInt:
            return n.u;
        case PeloraYYNumber::Real:
            return n.d;
        case PeloraYYNumber::None:
            break;
    }
    return 0;
}

nlohmann::json toObject(const _PeloraYYModelMeta& meta, const void* model, int depth);

// Null json: the property has no value and is left out.
nlohmann::json propertyJson(const _PeloraYYModelPropertyMeta& p, const void* model, int depth) {
    const auto& a = p.access;
    switch (p.type) {
        case PeloraYYEncodingType::String: {
            const auto& v = a.getText(model);
            return v ? nlohmann::json(*v) : nlohmann::json();
        }
        case PeloraYYEncodingType::Date: {
            const auto v = a.getDate(model);
            return v ? nlohmann::json(plyy_stringFromDate(*v)) : nlohmann::json();
        }
        case PeloraYYEncodingType::StringList: {
            const auto& v = a.getTextList(model);
            return v ? nlohmann::json(*v) : nlohmann::json();
        }
        case PeloraYYEncodingType::Dictionary: {
            const auto& v = a.getDictionary(model);
            return v ? *v : nlohmann::json();
        }
        case PeloraYYEncodingType::Model: {
            const void* one = a.getModel(model);
            return one ? toObject(a.elementMeta(), one, depth + 1) : nlohmann::json();
        }
        case PeloraYYEncodingType::ModelList: {
            std::vector<const void*> list;
            if (!a.getModelList(model, list)) return nullptr;
            auto out = nlohmann::json::array();
            const auto& element = a.elementMeta();
            for (const void* one : list) {
                if (!one) continue;
                auto j = toObject(element, one, depth + 1);
                if (!j.is_null()) out.push_back(std::move(j));
            }
            return out;
        }
        case PeloraYYEncodingType::ModelDictionary: {
            std::vector<std::pair<const std::string*, const void*>> map;
            if (!a.getModelDictionary(model, map)) return nullptr;
            auto out = nlohmann::json::object();
            const auto& element = a.elementMeta();
            for (const auto& [key, one] : map) {
                if (!one) continue;
                auto j = toObject(element, one, depth + 1);
                if (!j.is_null()) out[*key] = std::move(j);
            }
            return out;
        }
        default:
            return numberJson(p.type, a.getNumber(model));
    }
}

nlohmann::json toObject(const _PeloraYYModelMeta& meta, const void* model, int depth) {
    // Records that hold themselves (through shared pointers) would otherwise recurse forever.
    if (depth > kPeloraYYMaxDepth || meta.allPropertyMetas.empty()) return nullptr;
    auto dic = nlohmann::json::object();
    for (const auto& p : meta.allPropertyMetas) {
        nlohmann::json value = propertyJson(p, model, depth);
        if (value.is_null()) continue;
        if (p.isKeyPath()) {
            // Build the intermediate dictionaries; a key already holding something else stops
            // the walk, and an existing value is never overwritten.
            nlohmann::json* super = &dic;
            const auto& path = p.mappedToKeyPath;
            for (std::size_t i = 0; i + 1 < path.size(); ++i) {
                auto& sub = (*super)[path[i]];
                if (sub.is_null()) sub = nlohmann::json::object();
                if (!sub.is_object()) {
                    super = nullptr;
                    break;
                }
                super = &sub;
            }
            if (super && !super->contains(path.back())) (*super)[path.back()] = std::move(value);
        } else if (!dic.contains(p.mappedToKey)) {
            dic[p.mappedToKey] = std::move(value);
        }
    }
    if (meta.schema.transformToDictionary && !meta.schema.transformToDictionary(model, dic))
        return nullptr;
    return dic;
}

}  // namespace

nlohmann::json _plyy_modelToJSONObject(const _PeloraYYModelMeta& meta, const void* model) {
    if (model == nullptr) return nullptr;
    nlohmann::json out = toObject(meta, model, 0);
    if (!out.is_object() && !out.is_array()) return nullptr;
    return out;
}

std::string _plyy_dumpJSON(const nlohmann::json& value) {
    return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

// ---- writing bytes directly --------------------------------------------------------------------
//
// Produces exactly the bytes of building the dictionary and dumping it: keys in the
// dictionary's (byte) order, no spaces, text kept as UTF-8 with only quotes, backslashes and
// control characters escaped. The rare values whose dumped form has subtleties (text that is
// not valid UTF-8, fractional or huge reals, raw dictionaries) are handed to the dumper
// itself, so the two ways can never disagree.

namespace {

void appendDumped(std::string& out, const nlohmann::json& value) {
    out += _plyy_dumpJSON(value);
}

void appendText(std::string& out, std::string_view text) {
    // Nearly every text is ASCII with nothing to escape: one scan, one copy.
    unsigned char high = 0;
    bool verbatim = true;
    for (unsigned char c : text) {
        high |= c;
        verbatim &= (c >= 0x20) & (c != '"') & (c != '\\');
    }
    if ((high & 0x80) && !simdjson::validate_utf8(text.data(), text.size())) {
        appendDumped(out, nlohmann::json(std::string(text)));
        return;
    }
    if (verbatim) {
        const std::size_t at = out.size();
        out.resize(at + text.size() + 2);
        char* dst = out.data() + at;
        dst[0] = '"';
        std::memcpy(dst + 1, text.data(), text.size());
        dst[text.size() + 1] = '"';
        return;
    }
    out.push_back('"');
    std::size_t plain = 0;  // start of the run not yet copied
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c >= 0x20 && c != '"' && c != '\\') continue;
        out.append(text.data() + plain, i - plain);
        plain = i + 1;
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\b':
                out += "\\b";
                break;
            case '\f':
                out += "\\f";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default: {
                static constexpr char kLowerHex[] = "0123456789abcdef";
                const char escaped[] = {'\\', 'u', '0', '0', kLowerHex[c >> 4], kLowerHex[c & 0xF]};
                out.append(escaped, sizeof escaped);
            }
        }
    }
    out.append(text.data() + plain, text.size() - plain);
    out.push_back('"');
}

template <class I>
void appendInteger(std::string& out, I value) {
    char buf[24];
    auto r = std::to_chars(buf, buf + sizeof buf, value);
    out.append(buf, r.ptr);
}

void appendNumber(std::string& out, PeloraYYEncodingType type, const PeloraYYNumber& n) {
    if (type == PeloraYYEncodingType::Bool) {
        out += n.i != 0 ? "true" : "false";
        return;
    }
    switch (n.kind) {
        case PeloraYYNumber::Int:
            return appendInteger(out, n.i);
        case PeloraYYNumber::UInt:
            return appendInteger(out, n.u);
        case PeloraYYNumber::Real:
            // Whole numbers below 1e15 are dumped as their digits and ".0"; other reals use
            // the dumper's shortest form and exponent rules.
            if (std::isfinite(n.d) && n.d == std::trunc(n.d) && std::fabs(n.d) < 1e15 &&
                !(n.d == 0 && std::signbit(n.d))) {
                appendInteger(out, static_cast<int64_t>(n.d));
                out += ".0";
                return;
            }
            return appendDumped(out, nlohmann::json(n.d));
        case PeloraYYNumber::None:
            break;
    }
    out.push_back('0');
}

bool writeObject(const _PeloraYYModelMeta& meta, const void* model, int depth, std::string& out);

// False (and nothing written) when the property has no value and is left out.
bool writeValue(const _PeloraYYModelPropertyMeta& p, const void* model, int depth,
                std::string& out) {
    const auto& a = p.access;
    switch (p.type) {
        case PeloraYYEncodingType::String: {
            const auto& v = a.getText(model);
            if (!v) return false;
            appendText(out, *v);
            return true;
        }
        case PeloraYYEncodingType::Date: {
            const auto v = a.getDate(model);
            if (!v) return false;
            appendText(out, plyy_stringFromDate(*v));
            return true;
        }
        case PeloraYYEncodingType::StringList: {
            const auto& v = a.getTextList(model);
            if (!v) return false;
            out.push_back('[');
            for (std::size_t i = 0; i < v->size(); ++i) {
                if (i) out.push_back(',');
                appendText(out, (*v)[i]);
            }
            out.push_back(']');
            return true;
        }
        case PeloraYYEncodingType::Dictionary: {
            const auto& v = a.getDictionary(model);
            if (!v || v->is_null()) return false;
            appendDumped(out, *v);
            return true;
        }
        case PeloraYYEncodingType::Model: {
            const void* one = a.getModel(model);
            return one && writeObject(a.elementMeta(), one, depth + 1, out);
        }
        case PeloraYYEncodingType::ModelList: {
            std::vector<const void*> list;
            if (!a.getModelList(model, list)) return false;
            const auto& element = a.elementMeta();
            out.push_back('[');
            bool first = true;
            for (const void* one : list) {
                if (!one) continue;
                const std::size_t mark = out.size();
                if (!first) out.push_back(',');
                if (writeObject(element, one, depth + 1, out)) {
                    first = false;
                } else {
                    out.resize(mark);
                }
            }
            out.push_back(']');
            return true;
        }
        case PeloraYYEncodingType::ModelDictionary: {
            std::vector<std::pair<const std::string*, const void*>> map;
            if (!a.getModelDictionary(model, map)) return false;
            const auto& element = a.elementMeta();
            out.push_back('{');
            bool first = true;
            for (const auto& [key, one] : map) {
                if (!one) continue;
                const std::size_t mark = out.size();
                if (!first) out.push_back(',');
                appendText(out, *key);
                out.push_back(':');
                if (writeObject(element, one, depth + 1, out)) {
                    first = false;
                } else {
                    out.resize(mark);
                }
            }
            out.push_back('}');
            return true;
        }
        default:
            appendNumber(out, p.type, a.getNumber(model));
            return true;
    }
}

bool writeObject(const _PeloraYYModelMeta& meta, const void* model, int depth, std::string& out) {
    if (depth > kPeloraYYMaxDepth || meta.allPropertyMetas.empty()) return false;
    if (!meta.writesDirectly) {
        nlohmann::json dic = toObject(meta, model, depth);
        if (dic.is_null()) return false;
        appendDumped(out, dic);
        return true;
    }
    out.push_back('{');
    bool first = true;
    bool keyTaken = false;
    for (const auto& slot : meta.writeOrder) {
        // Properties sharing a key sit side by side; the first one with a value holds it.
        if (!slot.sameKeyAsPrevious) keyTaken = false;
        if (keyTaken) continue;
        const std::size_t mark = out.size();
        if (!first) out.push_back(',');
        out += slot.key;
        if (writeValue(*slot.property, model, depth, out)) {
            first = false;
            keyTaken = true;
        } else {
            out.resize(mark);
        }
    }
    out.push_back('}');
    return true;
}

}  // namespace

bool _plyy_modelVisitValues(const _PeloraYYModelMeta& meta, const void* model,
                            PeloraYYValueVisitor visit, void* context) {
    if (model == nullptr || !meta.writesDirectly || meta.allPropertyMetas.empty()) return false;
    bool keyTaken = false;
    for (const auto& slot : meta.writeOrder) {
        if (!slot.sameKeyAsPrevious) keyTaken = false;
        if (keyTaken) continue;
        const auto& p = *slot.property;
        PeloraYYValueRef value;
        value.type = p.type;
        if (p.type == PeloraYYEncodingType::String) {
            const auto& text = p.access.getText(model);
            if (!text) continue;
            value.text = &*text;
        } else if (p.type <= PeloraYYEncodingType::Double) {
            value.number = p.access.getNumber(model);
        } else {
            value.other = propertyJson(p, model, 0);
            if (value.other.is_null()) continue;
        }
        keyTaken = true;
        visit(context, p.mappedToKey, value);
    }
    return true;
}

std::optional<std::string> _plyy_modelToJSONBytes(const _PeloraYYModelMeta& meta,
                                                  const void* model) {
    if (model == nullptr) return std::nullopt;
    std::string out;
    out.reserve(512);
    if (!writeObject(meta, model, 0, out)) return std::nullopt;
    return out;
}
