// The mapping's dates: the fixed text formats it reads and the one it writes.

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
