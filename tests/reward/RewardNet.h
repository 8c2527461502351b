#pragma once

// The rewarded video tests' view of the fake network: ad fetches answered with a body (or a
// URL error), video files served by URL, and what was sent.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pelora/testing/FakeHttpSession.h"

namespace rewardtest {

class RewardNet {
  public:
    using Response = pelora::testing::FakeHttpSessionFactory::Response;
    static constexpr const char* kFetchUrl = "https://ads.example/api/v1/advert/fetch";

    explicit RewardNet(std::shared_ptr<pelora::testing::FakeHttpSessionFactory> fake)
        : fake_(std::move(fake)) {
        // Beacons and images get an empty answer; what a test cares about it answers itself.
        fake_->setDefaultResponse(Response::ok("", 204));
    }

    void answerFetches(std::string body) { fake_->addResponse(kFetchUrl, Response::ok(body)); }
    void failFetches(int64_t code) { fake_->addResponse(kFetchUrl, Response::failure(code)); }
    void serve(const std::string& url, std::string bytes) {
        fake_->addResponse(url, Response::ok(std::move(bytes)));
    }
    void fail(const std::string& url, int64_t code) {
        fake_->addResponse(url, Response::failure(code));
    }
    // Requests to `url` stay pending until cancelled.
    void hold(const std::string& url) {
        fake_->removeResponse(url);
        fake_->setDefaultResponse(std::nullopt);
    }

    std::vector<std::string> urlsStartingWith(const std::string& prefix) const {
        return fake_->urlsStartingWith(prefix);
    }
    bool requested(const std::string& url) const {
        for (const auto& r : fake_->requests())
            if (r.request.url == url) return true;
        return false;
    }
    std::optional<pelora::platform::HttpRequest> lastFetch() const {
        std::optional<pelora::platform::HttpRequest> last;
        for (const auto& r : fake_->requests())
            if (r.request.url.rfind(kFetchUrl, 0) == 0) last = r.request;
        return last;
    }
    size_t downloads() const {
        size_t n = 0;
        for (const auto& r : fake_->requests()) n += r.download;
        return n;
    }

  private:
    std::shared_ptr<pelora::testing::FakeHttpSessionFactory> fake_;
};

}  // namespace rewardtest
