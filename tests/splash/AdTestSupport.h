#pragma once

// Shared by the splash and native tests: answer bodies in the ad server's format, creatives,
// and a log capture. (Recording and failing requests is TestPlatform's `traffic`.)

#include <atomic>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "LoopbackServer.h"
#include "TestPlatform.h"
#include "core/PeloraNetwork.h"
#include "pelora/PeloraSDKManager.h"
#include "pelora/platform/Http.h"
#include "pelora/platform/Log.h"

namespace adtest {

// Collects the SDK's log lines for the test's lifetime.
class LogCapture {
  public:
    LogCapture() {
        auto lines = lines_;
        auto mutex = mutex_;
        pelora::platform::setLogSink(
            [lines, mutex](pelora::platform::LogLevel, std::string_view m) {
                std::lock_guard lock(*mutex);
                lines->emplace_back(m);
            });
    }
    ~LogCapture() { pelora::platform::setLogSink(nullptr); }
    std::vector<std::string> lines() const {
        std::lock_guard lock(*mutex_);
        return *lines_;
    }
    bool contains(const std::string& line) const {
        for (const auto& l : lines())
            if (l == line) return true;
        return false;
    }
    size_t count(const std::string& line) const {
        size_t n = 0;
        for (const auto& l : lines())
            if (l == line) ++n;
        return n;
    }

  private:
    std::shared_ptr<std::vector<std::string>> lines_ = std::make_shared<std::vector<std::string>>();
    std::shared_ptr<std::mutex> mutex_ = std::make_shared<std::mutex>();
};

// One ad of an answer, with impression and click tracking pointing at `server` (a loopback
// or a fake server: anything with url()).
template <class Server>
nlohmann::json adJson(const Server& server, const std::string& adId, int creativeType = 2,
                      std::optional<std::string> image = std::string("/img/splash.png")) {
    nlohmann::json ad = {
        {"adId", adId},
        {"creativeType", creativeType},
        {"interactionType", 1},
        {"title", "Title of " + adId},
        {"desc", "Description of " + adId},
        {"clickAdUrl", "https://landing.example/" + adId},
        {"trackUrls",
         nlohmann::json::array(
             {{{"trackType", 1},
               {"urls", {server.url("/imp?ad=" + adId + "&w=__WIDTH__&rw=__REQ_WIDTH__")}}},
              {{"trackType", 2},
               {"urls", {server.url("/click?ad=" + adId + "&dx=__DOWN_X__&dy=__DOWN_Y__")}}}})},
    };
    ad["images"] = nlohmann::json::array();
    if (image) ad["images"].push_back(server.url(*image));
    return ad;
}

// An answer carrying `ads` in order (a vector, so one ad still makes a list).
inline std::string answer(const std::vector<nlohmann::json>& ads) {
    nlohmann::json list = nlohmann::json::array();
    for (const auto& ad : ads) list.push_back(ad);
    return nlohmann::json{{"code", 0}, {"data", {{"reqId", "r-1"}, {"ads", list}}}}.dump();
}

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

// Real image bytes from the sandbox's creatives: two files of different sizes.
inline std::string pngA() {
    return readFile(PELORA_SOURCE_DIR "/tools/sandbox/creatives/native-icon-1.png");
}
inline std::string pngB() {
    return readFile(PELORA_SOURCE_DIR "/tools/sandbox/creatives/native-image-1.png");
}

inline pelora::testing::LoopbackResponse png(std::string bytes) {
    pelora::testing::LoopbackResponse r;
    r.body = std::move(bytes);
    r.contentType = "image/png";
    return r;
}

// The JSON body of the idx-th ad fetch the server received.
template <class Server>
nlohmann::json fetchBody(const Server& server, size_t idx = 0) {
    auto fetches = server.requestsTo("/api/v1/advert/fetch");
    if (fetches.size() <= idx) return nullptr;
    return nlohmann::json::parse(fetches[idx].body, nullptr, false);
}

}  // namespace adtest
