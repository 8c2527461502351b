#include "pelora/testing/RecordingUrlOpener.h"

#include <cctype>

#include "pelora/platform/Services.h"

namespace pelora::testing {

namespace {

std::string lower(std::string s) {
    for (auto& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

}  // namespace

RecordingUrlOpener::RecordingUrlOpener(std::shared_ptr<platform::RunLoop> mainLoop)
    : mainLoop_(std::move(mainLoop)) {}

bool RecordingUrlOpener::decide(const std::string& url, platform::UrlOpenPurpose purpose) const {
    for (auto& [u, result] : urlResults_)
        if (u == url) return result;
    if (responder_) return responder_(url, purpose);
    if (failingSchemes_.count(platform::urlScheme(url))) return false;
    return defaultResult_;
}

void RecordingUrlOpener::openURL(const std::string& url, platform::UrlOpenPurpose purpose,
                                 std::function<void(bool success)> completion) {
    Request request{url, purpose, false, false, completion != nullptr};
    {
        std::lock_guard<std::mutex> lock(mutex_);
        request.refused = !platform::isOpenableURL(url, purpose);
        request.result = !request.refused && decide(url, purpose);
        requests_.push_back(request);
    }
    if (!completion) return;
    auto loop = mainLoop_ ? mainLoop_ : platform::services().mainRunLoop;
    bool result = request.result;
    loop->post([completion = std::move(completion), result] { completion(result); });
}

void RecordingUrlOpener::setDefaultResult(bool success) {
    std::lock_guard<std::mutex> lock(mutex_);
    defaultResult_ = success;
}

void RecordingUrlOpener::failScheme(const std::string& scheme) {
    std::lock_guard<std::mutex> lock(mutex_);
    failingSchemes_.insert(lower(scheme));
}

void RecordingUrlOpener::setResultForURL(const std::string& url, bool success) {
    std::lock_guard<std::mutex> lock(mutex_);
    urlResults_.emplace_back(url, success);
}

void RecordingUrlOpener::setResponder(
    std::function<bool(const std::string& url, platform::UrlOpenPurpose)> responder) {
    std::lock_guard<std::mutex> lock(mutex_);
    responder_ = std::move(responder);
}

std::vector<RecordingUrlOpener::Request> RecordingUrlOpener::requests() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
}

std::vector<std::string> RecordingUrlOpener::openedURLs() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> out;
    for (auto& r : requests_)
        if (!r.refused) out.push_back(r.url);
    return out;
}

size_t RecordingUrlOpener::count() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_.size();
}

void RecordingUrlOpener::clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    requests_.clear();
}

}  // namespace pelora::testing
