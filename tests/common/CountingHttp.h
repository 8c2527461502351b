#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "pelora/platform/Http.h"

namespace pelora::testing {

// Wraps a session factory and watches the traffic of the sessions it makes:
//  - counts the tasks created and completed, so a test can wait until every request the SDK
//    issued has been answered (fire-and-forget tracking gives it nothing else to wait on, and
//    requests on parallel connections may arrive in any order, so "one last request" is no
//    barrier);
//  - records every data task's request as the SDK finished it (URL, headers, time-out);
//  - with failWith() set, fails data tasks with that URL error code from resume(), without
//    any I/O, the way a platform reports a failed exchange.
class CountingHttpSessionFactory final : public platform::HttpSessionFactory {
  public:
    explicit CountingHttpSessionFactory(std::shared_ptr<platform::HttpSessionFactory> inner);
    std::shared_ptr<platform::HttpSession> createSession(
        const platform::HttpSessionConfiguration& config) override;

    // Tasks created and not yet completed.
    long outstanding() const { return state_->created.load() - state_->completed.load(); }
    std::vector<platform::HttpRequest> requests() const;
    void failWith(std::optional<int64_t> code);

    struct State {
        std::atomic<long> created{0};
        std::atomic<long> completed{0};
        mutable std::mutex mutex;
        std::vector<platform::HttpRequest> requests;
        std::optional<int64_t> failure;
    };

  private:
    std::shared_ptr<platform::HttpSessionFactory> inner_;
    std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace pelora::testing
