#pragma once

#include <atomic>
#include <memory>

#include "pelora/platform/Export.h"
#include "pelora/platform/Http.h"

namespace pelora::testing {

// Wraps another session factory and counts the tasks of its sessions whose completion has not
// run yet: a host (or a test) can wait until every report it started has finished, or check
// that nothing is left running once its ads are gone.
class PELORA_EXPORT CountingHttpSessionFactory final : public platform::HttpSessionFactory {
  public:
    explicit CountingHttpSessionFactory(std::shared_ptr<platform::HttpSessionFactory> inner);
    std::shared_ptr<platform::HttpSession> createSession(
        const platform::HttpSessionConfiguration& config) override;
    // Tasks created and not yet completed, over every session this factory made.
    int inFlight() const { return inFlight_->load(); }

  private:
    std::shared_ptr<platform::HttpSessionFactory> inner_;
    std::shared_ptr<std::atomic<int>> inFlight_ = std::make_shared<std::atomic<int>>(0);
};

}  // namespace pelora::testing
