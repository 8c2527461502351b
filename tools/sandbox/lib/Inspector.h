#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "pelora/sandbox/Sandbox.h"

namespace pelora::sandbox {

// The inspector's reading of what the sandbox received: every fetch with its request and
// answer decoded, every beacon with its event, its macro values decoded and what is wrong
// with it, and per served ad the once-only events that came and those that never did.
//
// Not thread-safe: the sandbox calls it under its own lock, in the order requests arrived.
class Inspector {
  public:
    // A fetch was answered (or is held). Returns the timeline entry; each ad the answer
    // carried becomes a serving whose beacons are checked from now on.
    nlohmann::json addFetch(const FetchRecord& fetch);
    // A beacon arrived. Returns the timeline entry with its decoded macros and its flags.
    nlohmann::json addBeacon(const TrackingRecord& beacon);

    // The served ad's checklist (as in "ads" of exportJson()); null for an unknown id.
    nlohmann::json serving(const std::string& id) const;
    // The serving a beacon entry was attributed to, "" when none.
    static std::string servingOf(const nlohmann::json& beaconEntry);
    // Ids of the servings created by a fetch entry.
    static std::vector<std::string> servingsOf(const nlohmann::json& fetchEntry);

    // {"fetches": [...], "beacons": [...], "ads": [...]}, everything in arrival order.
    nlohmann::json exportJson() const;
    void clear();

  private:
    struct Template {
        std::string url;  // as served, macros still in it
        std::string method;
        std::string content;
    };
    struct Serving {
        std::string id;
        std::string fetchId;
        std::string slot;
        std::string adId;
        int64_t timeMs = 0;
        std::map<int64_t, std::vector<Template>> templates;  // by track type, in answer order
        // Beacons by track type, as (beacon id, time) in arrival order.
        std::map<int64_t, std::vector<std::pair<std::string, int64_t>>> sent;
        // Which (track type, template index) pairs were already sent.
        std::map<std::pair<int64_t, int>, std::string> sentTemplates;
    };

    // The served URL a beacon is: its index in the event's list, the template and the values
    // its macros took; index -1 and no template when none fits.
    struct TemplateMatch {
        int index = -1;
        const Template* chosen = nullptr;
        std::vector<std::pair<std::string, std::string>> values;
    };

    Serving* latestServing(const std::string& slot, const std::string& adId);
    static TemplateMatch matchServedUrl(const Serving& serving, const TrackingRecord& beacon);
    // The flags that depend on what was served and sent before (a repeat, a click before the
    // impression, a quartile after completion); records the beacon as sent.
    static void checkAgainstServing(Serving& serving, const TrackingRecord& beacon,
                                    int templateIndex, const std::string& id,
                                    const std::string& event, nlohmann::json& flags);
    // A beacon of an ad no fetch served, and its repeats.
    void checkUnserved(const TrackingRecord& beacon, const std::string& id,
                       const std::string& event, nlohmann::json& flags);
    nlohmann::json servingJson(const Serving& s) const;

    std::vector<nlohmann::json> fetches_;
    std::vector<nlohmann::json> beacons_;
    std::vector<Serving> servings_;
    // Beacons of ads never served, by "slot/adId/type", so their repeats are caught too.
    std::map<std::string, std::string> unservedSent_;
    uint64_t nextFetch_ = 1, nextBeacon_ = 1, nextServing_ = 1;
};

// The event a track type stands for: "impression", "click", "video 25%" ...
std::string trackEventName(int64_t trackType);

// A tracking record as the records endpoint serves it; the inspector's beacons add to it.
nlohmann::json trackingRecordToJson(const TrackingRecord& record);

// Whether the SDK legitimately leaves `macro` in a beacon of `trackType` because it has no
// value for it (a click id and an action id are never known on the device, a video's end
// time only at its end, a touch offset only for a click, video values only for video events).
bool macroMayStayUnset(const std::string& macro, int64_t trackType);

// A macro's value as a person reads it: {"kind": "time", "text": "2026-01-02 03:04:05.678 UTC",
// ...}. Values the SDK left literal or filled with its fallback say so.
nlohmann::json decodeMacro(const std::string& macro, const std::string& raw);

// Matches a received text against a template holding __MACRO__ tokens; the value each token
// took, in template order, or nullopt when the literal parts differ.
std::optional<std::vector<std::pair<std::string, std::string>>> matchTemplate(
    const std::string& templ, const std::string& received);

}  // namespace pelora::sandbox
