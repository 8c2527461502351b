#pragma once

// Realistic ad-fetch answers for the benchmarks: each ad carries icons, images, one
// video with an end page of a few hundred bytes, and one tracking instruction for each of
// the 13 event types, each with 2-3 long URL templates full of macros. Deterministic for a
// given count and seed, so figures of different runs compare.

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

namespace pelora::fixtures {

inline constexpr int64_t kAdAnswerTrackTypes[] = {1, 2, 8, 16, 17, 31, 32, 33, 34, 35, 36, 40, 41};

namespace detail {

// Small linear congruential generator: enough variety to defeat string interning tricks.
struct Lcg {
    uint64_t state;
    uint32_t next() {
        state = state * 6364136223846793005ULL + 1442695040888963407ULL;
        return static_cast<uint32_t>(state >> 33);
    }
    std::string hex(int digits) {
        static constexpr char kHex[] = "0123456789abcdef";
        std::string out;
        for (int i = 0; i < digits; ++i) out.push_back(kHex[next() % 16]);
        return out;
    }
};

inline std::string trackingUrl(Lcg& rng, int64_t type, int index) {
    return "https://track" + std::to_string(index) +
           ".adserver.example/v2/event?type=" + std::to_string(type) + "&ad=" + rng.hex(16) +
           "&req=" + rng.hex(32) +
           "&ts=__TS__&w=__WIDTH__&h=__HEIGHT__&rw=__REQ_WIDTH__&rh=__REQ_HEIGHT__"
           "&dx=__DOWN_X__&dy=__DOWN_Y__&ux=__UP_X__&uy=__UP_Y__&click=__CLICK_ID__"
           "&vt=__VIDEO_TIME__&vb=__VIDEO_BEHAVIOR__&vs=__VIDEO_STATUS__&sig=" +
           rng.hex(40);
}

}  // namespace detail

inline nlohmann::json adObject(int index, detail::Lcg& rng) {
    const std::string id = "ad-" + std::to_string(index) + "-" + rng.hex(8);
    nlohmann::json tracks = nlohmann::json::array();
    for (int64_t type : kAdAnswerTrackTypes) {
        nlohmann::json urls = nlohmann::json::array();
        const int count = 2 + static_cast<int>(rng.next() % 2);
        for (int u = 0; u < count; ++u) urls.push_back(detail::trackingUrl(rng, type, u));
        nlohmann::json track = {{"trackType", type}, {"urls", urls}};
        if (type == 2) {
            track["method"] = "POST";
            track["contentType"] = "application/json";
            track["content"] = R"({"ad":")" + id + R"(","x":"__DOWN_X__","y":"__DOWN_Y__"})";
        }
        tracks.push_back(std::move(track));
    }
    std::string endHtml =
        "<html><head><meta name=\"viewport\" content=\"width=device-width\">"
        "</head><body style=\"margin:0\"><div class=\"end\"><img src=\"https://"
        "cdn.adserver.example/end/" +
        rng.hex(24) +
        ".jpg\"><h1>Install now</h1><p>Thousands of players already joined. "
        "Tap below to get the full game for free.</p><a href=\"https://"
        "land.adserver.example/" +
        rng.hex(12) + "\">Download</a></div></body></html>";
    nlohmann::json video = {
        {"videoUrl", "https://cdn.adserver.example/video/" + rng.hex(24) + ".mp4"},
        {"videoDuration", "30"},
        {"size", 4194304 + static_cast<int64_t>(rng.next() % 100000)},
        {"width", 720},
        {"height", 1280},
        {"coverUrls", {"https://cdn.adserver.example/cover/" + rng.hex(24) + ".jpg"}},
        {"buttonText", "Install"},
        {"endImgUrl", "https://cdn.adserver.example/end/" + rng.hex(24) + ".jpg"},
        {"endHtml", endHtml},
        {"autoLanding", false},
        {"prefetch", true},
        {"clickAble", true},
        {"skipSeconds", 5},
    };
    return {
        {"adId", id},
        {"creativeType", 2},
        {"interactionType", 1 + static_cast<int>(rng.next() % 2)},
        {"title", "Sample title " + std::to_string(index)},
        {"desc",
         "A longer description of the promoted application, number " + std::to_string(index) + "."},
        {"source", "Example Ads"},
        {"icons", {"https://cdn.adserver.example/icon/" + rng.hex(24) + ".png"}},
        {"images",
         {"https://cdn.adserver.example/img/" + rng.hex(24) + ".jpg",
          "https://cdn.adserver.example/img/" + rng.hex(24) + ".jpg"}},
        {"videos", {video}},
        {"deeplink", "exampleapp://open?item=" + rng.hex(10)},
        {"clickAdUrl", "https://land.adserver.example/" + rng.hex(16)},
        {"appName", "Example Game"},
        {"packageName", "com.example.game"},
        {"downloadUrl", "https://dl.adserver.example/" + rng.hex(16) + ".ipa"},
        {"trackUrls", tracks},
    };
}

// The answer body for `count` ads.
inline std::string adAnswer(int count, uint64_t seed = 1) {
    detail::Lcg rng{seed};
    nlohmann::json ads = nlohmann::json::array();
    for (int i = 0; i < count; ++i) ads.push_back(adObject(i, rng));
    const nlohmann::json answer = {
        {"code", 0},
        {"data", {{"reqId", rng.hex(32)}, {"provider", "example"}, {"ads", ads}}},
    };
    return answer.dump();
}

}  // namespace pelora::fixtures
