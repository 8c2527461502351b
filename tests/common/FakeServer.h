#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "LoopbackServer.h"
#include "TestPlatform.h"

namespace pelora::testing {

// The loopback server's interface on the fake network: routes by path, every request
// recorded as sent. Nothing listens anywhere; the SDK's requests to baseUrl() are answered by
// the test platform's FakeHttpSessionFactory, through the manual run loop. A route's
// `delaySeconds` counts on the manual clock; `neverAnswer` leaves the request pending.
// Unregistered paths answer 404.
class FakeServer {
  public:
    explicit FakeServer(TestPlatform& platform, std::string origin = "http://ads.test");
    ~FakeServer();
    FakeServer(const FakeServer&) = delete;
    FakeServer& operator=(const FakeServer&) = delete;

    void on(const std::string& path, LoopbackHandler handler);
    void on(const std::string& path, LoopbackResponse fixed);
    // Every request fails with this URL error code (absent: back to the routes).
    void failWith(std::optional<int64_t> code);

    std::string baseUrl() const { return origin_; }
    std::string url(const std::string& pathAndQuery) const { return origin_ + pathAndQuery; }

    std::vector<RecordedRequest> requests() const;
    size_t requestCount() const { return requests().size(); }
    std::vector<RecordedRequest> requestsTo(const std::string& path) const;
    void clearRequests();

  private:
    struct Routes;
    TestPlatform& platform_;
    std::string origin_;
    std::shared_ptr<Routes> routes_;
};

}  // namespace pelora::testing
