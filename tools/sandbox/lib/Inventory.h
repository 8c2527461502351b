#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace pelora::sandbox {

// What a slot's answer looks like apart from its ads: lets integrators rehearse the failures
// a real ad server produces without touching one.
enum class BodyMode {
    Ads,        // the normal envelope with the slot's ads
    Empty,      // status line and headers, no body bytes
    Malformed,  // bytes that are not JSON
    NoData,     // a valid envelope without "data"
    NoAds,      // an envelope whose "data" has an empty "ads" list
    Raw,        // "rawBody" verbatim
};

struct Simulation {
    int status = 200;
    int64_t delayMs = 0;
    bool noAnswer = false;
    int64_t holdMs = 60000;  // bound on a held request, so a forgotten client frees the worker
    BodyMode body = BodyMode::Ads;
    int64_t code = 0;  // the envelope's "code"
    std::string rawBody;
    std::string contentType = "application/json";
};

struct SlotEntry {
    std::string description;
    Simulation simulate;
    nlohmann::json ads = nlohmann::json::array();  // templates with {{...}} placeholders
};

struct Inventory {
    std::string provider = "pelora-sandbox";
    std::map<std::string, SlotEntry> slots;
    // Answer for slot ids the inventory does not know.
    Simulation unknownSlot{.body = BodyMode::NoAds};
};

// Parses inventory JSON text; nullopt with a reason in *error when it is not usable.
std::optional<Inventory> parseInventory(const std::string& text, std::string* error);

const char* bodyModeName(BodyMode mode);

// Reads a "simulate" object onto `sim` (keys it lacks keep their value in `sim`); false with a
// reason naming `where` in *error when a key has the wrong type or range, or is unknown and
// `strict` is set.
bool parseSimulation(const nlohmann::json& j, Simulation& sim, const std::string& where,
                     std::string* error, bool strict = false);
nlohmann::json simulationToJson(const Simulation& sim);

// Expands the placeholders of one slot's ad templates for a server at `base`.
// "{{base}}" -> base, "{{creatives}}" -> base + "/creatives", "{{slot}}" -> slot id,
// "{{adId}}" -> the ad's id, and a tracking URL "{{track}}" -> the standard tracking URL of
// that slot, ad and track type with every macro the SDK substitutes.
nlohmann::json expandAds(const nlohmann::json& ads, const std::string& base,
                         const std::string& slot);

// The standard tracking URL the sandbox records for an event.
std::string trackingUrl(const std::string& base, const std::string& slot, const std::string& adId,
                        int64_t trackType);

}  // namespace pelora::sandbox
