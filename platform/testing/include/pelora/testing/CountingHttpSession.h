#pragma once

#include <atomic>
#include <memory>

#include "pelora/platform/Export.h"
#include "pelora/platform/Http.h"
#include "pelora/platform/RunLoop.h"

namespace pelora::testing {

// Wraps another session factory and counts the tasks of its sessions whose completion has not
// run yet: a host (or a test) can wait until every report it started has finished, or check
// that nothing is left running once its ads are gone. When the count drops to zero, an empty
// task is posted to `wake` (when given), so a loop waiting for the count sees it change even
// when the last completion posts nothing itself.
class PELORA_EXPORT CountingHttpSessionFactory final : public platform::HttpSessionFactory {
  public:
    explicit CountingHttpSessionFactory(std::shared_ptr<platform::HttpSessionFactory> inner,
                                        std::shared_ptr<platform::RunLoop> wake = nullptr);
    std::shared_ptr<platform::HttpSession> createSession(
        const platform::HttpSessionConfiguration& config) override;
    // Tasks created and not yet completed, over every session this factory made.
    int inFlight() const { return inFlight_->load(); }

  private:
    std::shared_ptr<platform::HttpSessionFactory> inner_;
    std::weak_ptr<platform::RunLoop> wake_;
    std::shared_ptr<std::atomic<int>> inFlight_ = std::make_shared<std::atomic<int>>(0);
};

}  // namespace pelora::testing
