#pragma once

#include <atomic>
#include <memory>

#include "pelora/platform/Http.h"

namespace pelora::testing {

// Wraps a session factory and counts the tasks its sessions create and complete, so a test
// can wait until every request the SDK issued has been answered (fire-and-forget tracking
// gives it nothing else to wait on, and requests on parallel connections may arrive in any
// order, so "one last request" is no barrier).
class CountingHttpSessionFactory final : public platform::HttpSessionFactory {
  public:
    explicit CountingHttpSessionFactory(std::shared_ptr<platform::HttpSessionFactory> inner);
    std::shared_ptr<platform::HttpSession> createSession(
        const platform::HttpSessionConfiguration& config) override;

    // Tasks created and not yet completed.
    long outstanding() const { return created_->load() - completed_->load(); }

  private:
    std::shared_ptr<platform::HttpSessionFactory> inner_;
    std::shared_ptr<std::atomic<long>> created_ = std::make_shared<std::atomic<long>>(0);
    std::shared_ptr<std::atomic<long>> completed_ = std::make_shared<std::atomic<long>>(0);
};

}  // namespace pelora::testing
