#include "Inspector.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <ctime>
#include <set>

#include "Inventory.h"
#include "TrackTypeNames.h"

namespace pelora::sandbox {

using nlohmann::json;

namespace {

// The macros the SDK knows. Any other __WORD__ in a template is the ad server's business.
const std::set<std::string>& knownMacros() {
    static const std::set<std::string> kMacros = {
        "__REQ_WIDTH__",
        "__REQ_HEIGHT__",
        "__WIDTH__",
        "__HEIGHT__",
        "__DOWN_X__",
        "__DOWN_Y__",
        "__UP_X__",
        "__UP_Y__",
        "__TS__",
        "__ACTION_ID__",
        "__CLICK_ID__",
        "__EVENT_TIME_START__",
        "__EVENT_TIME_END__",
        "__OFFSET_X__",
        "__OFFSET_Y__",
        "__VIDEO_TIME__",
        "__VIDEO_BEHAVIOR__",
        "__VIDEO_START_TIME__",
        "__VIDEO_END_TIME__",
        "__VIDEO_PLAY_FIRSR_FRAME__",
        "__VIDEO_PLAY_LAST_FRAME__",
        "__VIDEO_SCENE__",
        "__VIDEO_PLAY_TYPE__",
        "__VIDEO_STATUS__",
    };
    return kMacros;
}

bool isTokenChar(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

// Length of the "__WORD__" token starting at `i`, 0 when none starts there. A word is runs of
// upper-case letters and digits joined by single underscores.
size_t tokenAt(const std::string& text, size_t i) {
    const size_t n = text.size();
    if (i + 5 > n || text[i] != '_' || text[i + 1] != '_') return 0;
    size_t j = i + 2;
    for (;;) {
        size_t run = j;
        while (j < n && isTokenChar(text[j])) ++j;
        if (j == run) return 0;
        if (j + 1 < n && text[j] == '_' && text[j + 1] == '_') return j + 2 - i;
        if (j + 1 < n && text[j] == '_' && isTokenChar(text[j + 1])) {
            ++j;
            continue;
        }
        return 0;
    }
}

// Splits a template into literal text and tokens: literals[0] token[0] literals[1] ...
void splitTemplate(const std::string& templ, std::vector<std::string>& literals,
                   std::vector<std::string>& tokens) {
    literals.assign(1, std::string());
    tokens.clear();
    for (size_t i = 0; i < templ.size();) {
        if (size_t len = tokenAt(templ, i)) {
            tokens.push_back(templ.substr(i, len));
            literals.emplace_back();
            i += len;
        } else {
            literals.back() += templ[i++];
        }
    }
}

std::vector<std::string> tokensIn(const std::string& text) {
    std::vector<std::string> literals, tokens;
    splitTemplate(text, literals, tokens);
    return tokens;
}

// "/track/a/b/1?x=1" from "http://host:port/track/a/b/1?x=1".
std::string pathAndQuery(const std::string& url) {
    auto scheme = url.find("://");
    if (scheme == std::string::npos) return url;
    auto slash = url.find('/', scheme + 3);
    return slash == std::string::npos ? std::string("/") : url.substr(slash);
}

std::optional<int64_t> parseInteger(const std::string& text) {
    int64_t value = 0;
    const char* begin = text.data();
    const char* end = begin + text.size();
    if (begin != end && *begin == '+') return std::nullopt;
    auto [ptr, ec] = std::from_chars(begin, end, value);
    if (ec != std::errc() || ptr != end || text.empty()) return std::nullopt;
    return value;
}

std::string formatTimeMs(int64_t ms) {
    std::time_t seconds = static_cast<std::time_t>(ms >= 0 ? ms / 1000 : (ms - 999) / 1000);
    int64_t rest = ms - static_cast<int64_t>(seconds) * 1000;
    std::tm tm{};
    if (!gmtime_r(&seconds, &tm)) return std::to_string(ms);
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d UTC", tm.tm_year + 1900,
                  tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec,
                  static_cast<int>(rest));
    return text;
}

json flag(const char* code, const char* title, const std::string& text) {
    return json{{"code", code}, {"title", title}, {"text", text}};
}

bool isVideoEvent(int64_t type) {
    return type == 8 || (type >= 31 && type <= 41);
}

// The query parameters of the sandbox's standard tracking URL and the macro each carries, for
// beacons that match no template the sandbox served (an ad it never served, a hand-made URL).
std::map<std::string, std::string> standardParams(int64_t trackType) {
    std::map<std::string, std::string> out;
    const std::string url = trackingUrl("", "s", "a", trackType);
    std::string query = url.substr(url.find('?') + 1);
    size_t start = 0;
    while (start <= query.size()) {
        size_t amp = query.find('&', start);
        std::string pair = query.substr(start, amp == std::string::npos ? amp : amp - start);
        auto eq = pair.find('=');
        if (eq != std::string::npos) out[pair.substr(0, eq)] = pair.substr(eq + 1);
        if (amp == std::string::npos) break;
        start = amp + 1;
    }
    return out;
}

json macroEntry(const std::string& macro, const std::string& where, const std::string& raw) {
    json entry = decodeMacro(macro, raw);
    entry["macro"] = macro;
    entry["where"] = where;
    entry["raw"] = raw;
    return entry;
}

json parseOrNull(const std::string& text) {
    if (text.empty()) return nullptr;
    json parsed = json::parse(text, nullptr, /*allow_exceptions=*/false);
    return parsed.is_discarded() ? json(nullptr) : parsed;
}

}  // namespace

json trackingRecordToJson(const TrackingRecord& r) {
    return json{{"timeMs", r.timeMs},
                {"method", r.method},
                {"url", r.url},
                {"path", r.path},
                {"query", r.query},
                {"params", r.params},
                {"contentType", r.contentType},
                {"body", r.body},
                {"slot", r.slot},
                {"adId", r.adId},
                {"trackType", r.trackType}};
}

std::string trackEventName(int64_t type) {
    return pelora::tools::trackTypeName(type);
}

bool macroMayStayUnset(const std::string& macro, int64_t trackType) {
    if (macro == "__CLICK_ID__" || macro == "__ACTION_ID__") return true;
    if (macro == "__VIDEO_END_TIME__") return trackType != 35;
    if (macro == "__OFFSET_X__" || macro == "__OFFSET_Y__") return trackType != 2;
    if (macro == "__VIDEO_TIME__" || macro == "__VIDEO_SCENE__") return !isVideoEvent(trackType);
    return !knownMacros().count(macro);
}

json decodeMacro(const std::string& macro, const std::string& raw) {
    auto out = [](const char* kind, const char* state, const std::string& text) {
        return json{{"kind", kind}, {"state", state}, {"text", text}};
    };
    const char* kind = "other";
    if (macro == "__TS__" || macro == "__EVENT_TIME_START__" || macro == "__EVENT_TIME_END__")
        kind = "time";
    else if (macro == "__WIDTH__" || macro == "__HEIGHT__" || macro == "__REQ_WIDTH__" ||
             macro == "__REQ_HEIGHT__")
        kind = "size";
    else if (macro == "__DOWN_X__" || macro == "__DOWN_Y__" || macro == "__UP_X__" ||
             macro == "__UP_Y__" || macro == "__OFFSET_X__" || macro == "__OFFSET_Y__")
        kind = "touch";
    else if (macro == "__ACTION_ID__" || macro == "__CLICK_ID__")
        kind = "id";
    else if (macro.rfind("__VIDEO_", 0) == 0 && knownMacros().count(macro))
        kind = "video";

    if (raw == macro) return out(kind, "left", "left in place (no value substituted)");
    if (!knownMacros().count(macro)) return out(kind, "filled", raw);
    if (std::string(kind) == "id") return out(kind, "filled", raw);

    auto number = parseInteger(raw);
    if (!number) return out(kind, "bad", "not a whole number: " + raw);
    const int64_t v = *number;
    json result = out(kind, "filled", std::to_string(v));
    result["value"] = v;
    std::string& text = result["text"].get_ref<std::string&>();
    if (std::string(kind) == "time") {
        text = formatTimeMs(v);
    } else if (macro == "__REQ_WIDTH__" || macro == "__REQ_HEIGHT__") {
        text = std::to_string(v) + " px requested";
    } else if (macro == "__WIDTH__" || macro == "__HEIGHT__") {
        text = std::to_string(v) + " pt on screen";
    } else if (std::string(kind) == "touch") {
        if (v == -999 && macro.find("OFFSET") == std::string::npos) {
            result["state"] = "fallback";
            text = "-999: no touch point";
        } else {
            text = std::to_string(v) + " pt in the ad";
        }
    } else if (macro == "__VIDEO_TIME__") {
        text = std::to_string(v) + " s long";
    } else if (macro == "__VIDEO_START_TIME__") {
        text = "from " + std::to_string(v) + " s";
    } else if (macro == "__VIDEO_END_TIME__") {
        text = "to " + std::to_string(v) + " s";
    } else if (macro == "__VIDEO_BEHAVIOR__") {
        text = v == 0 ? "0: played by itself" : v == 1 ? "1: not auto-played" : std::to_string(v);
    } else if (macro == "__VIDEO_PLAY_FIRSR_FRAME__") {
        text = v == 1   ? "1: first frame shown"
               : v == 0 ? "0: first frame not shown"
                        : std::to_string(v);
    } else if (macro == "__VIDEO_PLAY_LAST_FRAME__") {
        text = v == 1   ? "1: played to the last frame"
               : v == 0 ? "0: last frame not reached"
                        : std::to_string(v);
    } else if (macro == "__VIDEO_SCENE__") {
        text = "scene " + std::to_string(v);
    } else if (macro == "__VIDEO_PLAY_TYPE__") {
        text = "play type " + std::to_string(v);
    } else if (macro == "__VIDEO_STATUS__") {
        text = v == 0   ? "0: playing normally"
               : v == 2 ? "2: play error"
                        : "status " + std::to_string(v);
    }
    return result;
}

std::optional<std::vector<std::pair<std::string, std::string>>> matchTemplate(
    const std::string& templ, const std::string& received) {
    std::vector<std::string> literals, tokens;
    splitTemplate(templ, literals, tokens);
    if (received.compare(0, literals[0].size(), literals[0]) != 0) return std::nullopt;
    if (tokens.empty()) {
        if (received != templ) return std::nullopt;
        return std::vector<std::pair<std::string, std::string>>{};
    }
    std::vector<std::pair<std::string, std::string>> values;
    size_t pos = literals[0].size();
    for (size_t i = 0; i < tokens.size(); ++i) {
        const std::string& next = literals[i + 1];
        size_t end;
        if (i + 1 == tokens.size()) {
            // The last literal closes the text.
            if (received.size() < pos + next.size() ||
                received.compare(received.size() - next.size(), next.size(), next) != 0)
                return std::nullopt;
            end = received.size() - next.size();
        } else if (next.empty()) {
            end = pos;  // two tokens back to back: the first takes nothing
        } else {
            end = received.find(next, pos);
            if (end == std::string::npos) return std::nullopt;
        }
        values.emplace_back(tokens[i], received.substr(pos, end - pos));
        pos = end + next.size();
    }
    return values;
}

Inspector::Serving* Inspector::latestServing(const std::string& slot, const std::string& adId) {
    for (auto it = servings_.rbegin(); it != servings_.rend(); ++it)
        if (it->slot == slot && it->adId == adId) return &*it;
    return nullptr;
}

json Inspector::addFetch(const FetchRecord& f) {
    json entry = {{"kind", "fetch"},
                  {"id", "f" + std::to_string(nextFetch_++)},
                  {"timeMs", f.timeMs},
                  {"slot", f.slotId},
                  {"url", f.url},
                  {"query", f.query},
                  {"params", f.params},
                  {"contentType", f.contentType},
                  {"body", f.body},
                  {"bodyJson", parseOrNull(f.body)},
                  {"status", f.status},
                  {"answer", f.answer},
                  {"answerJson", parseOrNull(f.answer)},
                  {"ads", json::array()}};
    const json& answer = entry["answerJson"];
    if (answer.is_object() && answer.contains("data") && answer["data"].is_object() &&
        answer["data"].contains("ads") && answer["data"]["ads"].is_array()) {
        for (const auto& ad : answer["data"]["ads"]) {
            if (!ad.is_object() || !ad.contains("adId") || !ad["adId"].is_string()) continue;
            Serving s;
            s.id = "s" + std::to_string(nextServing_++);
            s.fetchId = entry["id"];
            s.slot = f.slotId;
            s.adId = ad["adId"].get<std::string>();
            s.timeMs = f.timeMs;
            if (ad.contains("trackUrls") && ad["trackUrls"].is_array()) {
                for (const auto& track : ad["trackUrls"]) {
                    if (!track.is_object() || !track.contains("trackType") ||
                        !track["trackType"].is_number_integer())
                        continue;
                    int64_t type = track["trackType"].get<int64_t>();
                    // The SDK only ever uses the first tracking object of a type.
                    if (s.templates.count(type)) continue;
                    auto& list = s.templates[type];
                    std::string method = track.value("method", std::string());
                    std::string content = track.contains("content") && track["content"].is_string()
                                              ? track["content"].get<std::string>()
                                              : std::string();
                    if (track.contains("urls") && track["urls"].is_array()) {
                        for (const auto& url : track["urls"])
                            if (url.is_string()) list.push_back({url, method, content});
                    }
                }
            }
            entry["ads"].push_back({{"adId", s.adId}, {"serving", s.id}});
            servings_.push_back(std::move(s));
        }
    }
    fetches_.push_back(entry);
    return entry;
}

namespace {

using MacroValues = std::vector<std::pair<std::string, std::string>>;

// A beacon that fits no URL the sandbox served: its macros read from the standard
// parameter names.
json standardMacros(const TrackingRecord& r) {
    json macros = json::array();
    for (const auto& [param, macro] : standardParams(r.trackType)) {
        auto p = r.params.find(param);
        if (p != r.params.end()) macros.push_back(macroEntry(macro, "url " + param, p->second));
    }
    return macros;
}

// A beacon that fits a served URL: the values its URL's macros took (`urlValues`), each named
// by the query parameter it came in where the template says, then those of the body template.
json templateMacros(const MacroValues& urlValues, const std::string& templateUrl,
                    const std::string& content, const TrackingRecord& r) {
    std::string tq = pathAndQuery(templateUrl);
    tq = tq.find('?') == std::string::npos ? std::string() : tq.substr(tq.find('?') + 1);
    std::map<std::string, std::string> paramOf;
    size_t start = 0;
    while (start < tq.size()) {
        size_t amp = tq.find('&', start);
        std::string pair = tq.substr(start, amp == std::string::npos ? amp : amp - start);
        auto eq = pair.find('=');
        if (eq != std::string::npos)
            for (const auto& token : tokensIn(pair.substr(eq + 1)))
                paramOf.emplace(token, pair.substr(0, eq));
        if (amp == std::string::npos) break;
        start = amp + 1;
    }
    json macros = json::array();
    for (const auto& [macro, raw] : urlValues) {
        auto p = paramOf.find(macro);
        macros.push_back(macroEntry(macro, p != paramOf.end() ? "url " + p->second : "url", raw));
    }
    if (!content.empty()) {
        if (auto values = matchTemplate(content, r.body)) {
            for (const auto& [macro, raw] : *values)
                macros.push_back(macroEntry(macro, "body", raw));
        }
    }
    return macros;
}

// A macro the SDK has no value for on this event stays as written, which is no fault.
void markUnsetMacros(json& macros, int64_t trackType, const std::string& event) {
    for (auto& m : macros) {
        if (m["state"] == "left" && macroMayStayUnset(m["macro"], trackType)) {
            m["state"] = "unset";
            m["text"] = "left in place: the SDK has no value for it on a " + event;
        }
    }
}

// Macros still in the URL or body although the SDK had a value for them.
std::set<std::string> leftMacros(const TrackingRecord& r) {
    std::set<std::string> left;
    for (const std::string* text : {&r.url, &r.body})
        for (const auto& token : tokensIn(*text))
            if (knownMacros().count(token) && !macroMayStayUnset(token, r.trackType))
                left.insert(token);
    return left;
}

}  // namespace

Inspector::TemplateMatch Inspector::matchServedUrl(const Serving& serving,
                                                   const TrackingRecord& r) {
    TemplateMatch match;
    auto it = serving.templates.find(r.trackType);
    if (it == serving.templates.end()) return match;
    const std::string received = pathAndQuery(r.url);
    // An event may list the same URL twice, and the SDK then calls it twice: the first
    // matching URL not yet called is the one this beacon is.
    for (size_t i = 0; i < it->second.size(); ++i) {
        auto values = matchTemplate(pathAndQuery(it->second[i].url), received);
        if (!values) continue;
        const int index = static_cast<int>(i);
        const bool called = serving.sentTemplates.count({r.trackType, index}) != 0;
        if (!match.chosen || !called) {
            match.values = std::move(*values);
            match.index = index;
            match.chosen = &it->second[i];
        }
        if (!called) break;
    }
    return match;
}

void Inspector::checkAgainstServing(Serving& serving, const TrackingRecord& r, int templateIndex,
                                    const std::string& id, const std::string& event, json& flags) {
    const auto key = std::make_pair(r.trackType, templateIndex);
    auto [it, fresh] = serving.sentTemplates.emplace(key, id);
    if (!fresh)
        flags.push_back(flag("duplicate", "sent twice",
                             "a second " + event + " for " + r.adId + " of fetch " +
                                 serving.fetchId + " (the first was " + it->second + ")"));
    if (r.trackType == 2 && serving.templates.count(1) && serving.sent[1].empty())
        flags.push_back(flag("click-without-impression", "click without impression",
                             "a click for " + r.adId + " before any impression of it"));
    if (r.trackType >= 32 && r.trackType <= 34 && !serving.sent[35].empty())
        flags.push_back(flag("quartile-after-complete", "quartile after completion",
                             event + " for " + r.adId + " after its video complete (" +
                                 serving.sent[35].front().first + ")"));
    serving.sent[r.trackType].emplace_back(id, r.timeMs);
}

void Inspector::checkUnserved(const TrackingRecord& r, const std::string& id,
                              const std::string& event, json& flags) {
    flags.push_back(flag("never-served", "ad never served",
                         "no fetch answered slot \"" + r.slot + "\" with ad \"" + r.adId +
                             "\" before this " + event));
    const std::string key = r.slot + "/" + r.adId + "/" + std::to_string(r.trackType);
    auto [it, fresh] = unservedSent_.emplace(key, id);
    if (!fresh)
        flags.push_back(
            flag("duplicate", "sent twice",
                 "a second " + event + " for " + r.adId + " (the first was " + it->second + ")"));
}

json Inspector::addBeacon(const TrackingRecord& r) {
    const std::string id = "b" + std::to_string(nextBeacon_++);
    const std::string event = trackEventName(r.trackType);
    json entry = trackingRecordToJson(r);
    entry["kind"] = "beacon";
    entry["id"] = id;
    entry["bodyJson"] = parseOrNull(r.body);
    entry["event"] = event;
    entry["serving"] = nullptr;

    // Which of the served URLs this beacon is, so the macros read from the same places.
    Serving* serving = r.slot.empty() ? nullptr : latestServing(r.slot, r.adId);
    TemplateMatch match;
    if (serving) {
        entry["serving"] = serving->id;
        match = matchServedUrl(*serving, r);
    }
    json macros = match.chosen
                      ? templateMacros(match.values, match.chosen->url, match.chosen->content, r)
                      : standardMacros(r);
    markUnsetMacros(macros, r.trackType, event);
    entry["macros"] = std::move(macros);

    json flags = json::array();
    if (auto left = leftMacros(r); !left.empty()) {
        std::string names;
        for (const auto& token : left) names += (names.empty() ? "" : ", ") + token;
        flags.push_back(flag("macro-left", "macro left in place",
                             names + (left.size() == 1 ? " was" : " were") +
                                 " sent as written although the SDK has a value for " +
                                 (left.size() == 1 ? "it" : "them") + " on a " + event));
        entry["leftMacros"] = left;
    }
    if (serving) {
        checkAgainstServing(*serving, r, match.index, id, event, flags);
    } else {
        checkUnserved(r, id, event, flags);
    }
    entry["flags"] = std::move(flags);
    beacons_.push_back(entry);
    return entry;
}

json Inspector::servingJson(const Serving& s) const {
    std::set<int64_t> types;
    for (const auto& [type, list] : s.templates) types.insert(type);
    for (const auto& [type, list] : s.sent)
        if (!list.empty()) types.insert(type);
    json events = json::array();
    json missing = json::array();
    for (int64_t type : types) {
        json sent = json::array();
        if (auto it = s.sent.find(type); it != s.sent.end())
            for (const auto& [beacon, time] : it->second)
                sent.push_back({{"beacon", beacon}, {"timeMs", time}});
        const bool expected = s.templates.count(type) != 0;
        if (expected && sent.empty()) missing.push_back(trackEventName(type));
        events.push_back({{"trackType", type},
                          {"event", trackEventName(type)},
                          {"hasUrl", expected},
                          {"sent", sent}});
    }
    return json{{"id", s.id},         {"fetch", s.fetchId}, {"slot", s.slot},    {"adId", s.adId},
                {"timeMs", s.timeMs}, {"events", events},   {"missing", missing}};
}

json Inspector::serving(const std::string& id) const {
    for (const auto& s : servings_)
        if (s.id == id) return servingJson(s);
    return nullptr;
}

std::string Inspector::servingOf(const json& beaconEntry) {
    const json& s = beaconEntry["serving"];
    return s.is_string() ? s.get<std::string>() : std::string();
}

std::vector<std::string> Inspector::servingsOf(const json& fetchEntry) {
    std::vector<std::string> out;
    for (const auto& ad : fetchEntry["ads"]) out.push_back(ad["serving"]);
    return out;
}

json Inspector::exportJson() const {
    json ads = json::array();
    for (const auto& s : servings_) ads.push_back(servingJson(s));
    return json{{"fetches", fetches_}, {"beacons", beacons_}, {"ads", ads}};
}

void Inspector::clear() {
    fetches_.clear();
    beacons_.clear();
    servings_.clear();
    unservedSent_.clear();
}

}  // namespace pelora::sandbox
