#include "Inventory.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace pelora::sandbox {

using nlohmann::json;

namespace {

bool parseBodyMode(const std::string& text, BodyMode& out) {
    static const std::pair<const char*, BodyMode> kModes[] = {
        {"ads", BodyMode::Ads},
        {"empty", BodyMode::Empty},
        {"malformed", BodyMode::Malformed},
        {"nodata", BodyMode::NoData},
        {"noads", BodyMode::NoAds},
        {"raw", BodyMode::Raw},
    };
    for (const auto& [name, mode] : kModes) {
        if (text == name) {
            out = mode;
            return true;
        }
    }
    return false;
}

}  // namespace

bool parseSimulation(const json& j, Simulation& sim, const std::string& where, std::string* error,
                     bool strict) {
    auto fail = [&](const std::string& what) {
        if (error) *error = where + ": " + what;
        return false;
    };
    if (!j.is_object()) return fail("\"simulate\" must be an object");
    if (strict) {
        static const char* kKeys[] = {"status", "delayMs", "holdMs",  "noAnswer",
                                      "body",   "code",    "rawBody", "contentType"};
        // Not a structured binding: clang before 16 cannot capture one in the lambda.
        for (const auto& item : j.items()) {
            const std::string& key = item.key();
            if (std::find_if(std::begin(kKeys), std::end(kKeys),
                             [&](const char* k) { return key == k; }) == std::end(kKeys))
                return fail("unknown key \"" + key + "\"");
        }
    }
    if (j.contains("status")) {
        if (!j["status"].is_number_integer()) return fail("\"status\" must be an integer");
        sim.status = j["status"].get<int>();
        if (sim.status < 100 || sim.status > 599) return fail("\"status\" out of range");
    }
    if (j.contains("delayMs")) {
        if (!j["delayMs"].is_number_integer() || j["delayMs"].get<int64_t>() < 0)
            return fail("\"delayMs\" must be a non-negative integer");
        sim.delayMs = j["delayMs"].get<int64_t>();
    }
    if (j.contains("holdMs")) {
        if (!j["holdMs"].is_number_integer() || j["holdMs"].get<int64_t>() < 0)
            return fail("\"holdMs\" must be a non-negative integer");
        sim.holdMs = j["holdMs"].get<int64_t>();
    }
    if (j.contains("noAnswer")) {
        if (!j["noAnswer"].is_boolean()) return fail("\"noAnswer\" must be a boolean");
        sim.noAnswer = j["noAnswer"].get<bool>();
    }
    if (j.contains("body")) {
        if (!j["body"].is_string() || !parseBodyMode(j["body"].get<std::string>(), sim.body))
            return fail("\"body\" must be one of ads, empty, malformed, nodata, noads, raw");
    }
    if (j.contains("code")) {
        if (!j["code"].is_number_integer()) return fail("\"code\" must be an integer");
        sim.code = j["code"].get<int64_t>();
    }
    if (j.contains("rawBody")) {
        if (!j["rawBody"].is_string()) return fail("\"rawBody\" must be a string");
        sim.rawBody = j["rawBody"].get<std::string>();
    }
    if (j.contains("contentType")) {
        if (!j["contentType"].is_string()) return fail("\"contentType\" must be a string");
        sim.contentType = j["contentType"].get<std::string>();
    }
    return true;
}

json simulationToJson(const Simulation& sim) {
    return json{{"status", sim.status},           {"delayMs", sim.delayMs},
                {"noAnswer", sim.noAnswer},       {"holdMs", sim.holdMs},
                {"body", bodyModeName(sim.body)}, {"code", sim.code},
                {"rawBody", sim.rawBody},         {"contentType", sim.contentType}};
}

namespace {

void replaceAll(std::string& text, const std::string& token, const std::string& value) {
    if (token.empty()) return;
    size_t pos = 0;
    while ((pos = text.find(token, pos)) != std::string::npos) {
        text.replace(pos, token.size(), value);
        pos += value.size();
    }
}

void expandStrings(json& node, const std::map<std::string, std::string>& values) {
    if (node.is_string()) {
        auto text = node.get<std::string>();
        for (const auto& [token, value] : values) replaceAll(text, token, value);
        node = text;
    } else if (node.is_array() || node.is_object()) {
        for (auto& child : node) expandStrings(child, values);
    }
}

}  // namespace

const char* bodyModeName(BodyMode mode) {
    switch (mode) {
        case BodyMode::Ads:
            return "ads";
        case BodyMode::Empty:
            return "empty";
        case BodyMode::Malformed:
            return "malformed";
        case BodyMode::NoData:
            return "nodata";
        case BodyMode::NoAds:
            return "noads";
        case BodyMode::Raw:
            return "raw";
    }
    return "ads";
}

std::optional<Inventory> parseInventory(const std::string& text, std::string* error) {
    json root = json::parse(text, nullptr, /*allow_exceptions=*/false);
    if (root.is_discarded()) {
        if (error) *error = "inventory is not valid JSON";
        return std::nullopt;
    }
    if (!root.is_object() || !root.contains("slots") || !root["slots"].is_object()) {
        if (error) *error = "inventory needs a \"slots\" object";
        return std::nullopt;
    }
    Inventory inventory;
    if (root.contains("provider")) {
        if (!root["provider"].is_string()) {
            if (error) *error = "\"provider\" must be a string";
            return std::nullopt;
        }
        inventory.provider = root["provider"].get<std::string>();
    }
    if (root.contains("unknownSlot") &&
        !parseSimulation(root["unknownSlot"], inventory.unknownSlot, "unknownSlot", error)) {
        return std::nullopt;
    }
    for (const auto& [slotId, entry] : root["slots"].items()) {
        const std::string where = "slot \"" + slotId + "\"";
        if (!entry.is_object()) {
            if (error) *error = where + " must be an object";
            return std::nullopt;
        }
        SlotEntry slot;
        if (entry.contains("description") && entry["description"].is_string())
            slot.description = entry["description"].get<std::string>();
        if (entry.contains("simulate") &&
            !parseSimulation(entry["simulate"], slot.simulate, where, error)) {
            return std::nullopt;
        }
        if (entry.contains("ads")) {
            if (!entry["ads"].is_array()) {
                if (error) *error = where + ": \"ads\" must be an array";
                return std::nullopt;
            }
            for (const auto& ad : entry["ads"]) {
                if (!ad.is_object()) {
                    if (error) *error = where + ": every ad must be an object";
                    return std::nullopt;
                }
            }
            slot.ads = entry["ads"];
        }
        inventory.slots.emplace(slotId, std::move(slot));
    }
    return inventory;
}

std::string trackingUrl(const std::string& base, const std::string& slot, const std::string& adId,
                        int64_t trackType) {
    std::string url = base + "/track/" + slot + "/" + adId + "/" + std::to_string(trackType) +
                      "?ts=__TS__&w=__WIDTH__&h=__HEIGHT__&rw=__REQ_WIDTH__&rh=__REQ_HEIGHT__";
    if (trackType == 2) {
        url +=
            "&dx=__DOWN_X__&dy=__DOWN_Y__&ux=__UP_X__&uy=__UP_Y__&ox=__OFFSET_X__"
            "&oy=__OFFSET_Y__&es=__EVENT_TIME_START__&ee=__EVENT_TIME_END__&cid=__CLICK_ID__";
    }
    // Video page events carry the playback macros too.
    if (trackType == 8 || (trackType >= 31 && trackType <= 41)) {
        url +=
            "&vt=__VIDEO_TIME__&vb=__VIDEO_BEHAVIOR__&vst=__VIDEO_START_TIME__"
            "&vet=__VIDEO_END_TIME__&vff=__VIDEO_PLAY_FIRSR_FRAME__"
            "&vlf=__VIDEO_PLAY_LAST_FRAME__&vsc=__VIDEO_SCENE__&vpt=__VIDEO_PLAY_TYPE__"
            "&vs=__VIDEO_STATUS__";
    }
    return url;
}

json expandAds(const json& ads, const std::string& base, const std::string& slot) {
    json out = ads;
    for (auto& ad : out) {
        std::string adId;
        if (ad.contains("adId") && ad["adId"].is_string()) adId = ad["adId"].get<std::string>();
        // Tracking URLs first: "{{track}}" needs the track type of its own instruction.
        if (ad.contains("trackUrls") && ad["trackUrls"].is_array()) {
            for (auto& track : ad["trackUrls"]) {
                if (!track.is_object() || !track.contains("urls") || !track["urls"].is_array())
                    continue;
                int64_t type = track.contains("trackType") && track["trackType"].is_number_integer()
                                   ? track["trackType"].get<int64_t>()
                                   : 0;
                for (auto& url : track["urls"]) {
                    if (url.is_string() && url.get<std::string>() == "{{track}}")
                        url = trackingUrl(base, slot, adId, type);
                }
            }
        }
        expandStrings(ad, {{"{{base}}", base},
                           {"{{creatives}}", base + "/creatives"},
                           {"{{slot}}", slot},
                           {"{{adId}}", adId}});
    }
    return out;
}

}  // namespace pelora::sandbox
