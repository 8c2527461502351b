#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "pelora/platform/Export.h"
#include "pelora/platform/Reachability.h"

namespace pelora::testing {

// Reachability whose flags the test sets. Every handle reads the service's current flags;
// fireChange() delivers them to the callback of every scheduled handle through that handle's
// run loop (posted, so the test pumps the loop to see it), as a real change would arrive.
class PELORA_EXPORT FakeReachabilityService final : public platform::ReachabilityService {
  public:
    FakeReachabilityService();
    ~FakeReachabilityService() override;

    void setFlags(uint32_t flags);
    uint32_t flags() const;
    // When set, getFlags() reports failure.
    void setFlagsReadable(bool readable);
    // When set, createWithName/createWithAddress return null.
    void setRefuseCreation(bool refuse);
    // When set, scheduleWithRunLoop reports failure.
    void setRefuseScheduling(bool refuse);

    // Post the current flags to every scheduled handle's callback. Returns how many handles
    // were notified.
    size_t fireChange();

    // Names and addresses asked for, in order (addresses as "family:port:a.b.c.d").
    std::vector<std::string> requestedTargets() const;
    size_t scheduledHandleCount() const;

    std::unique_ptr<platform::ReachabilityHandle> createWithName(
        const std::string& hostName) override;
    std::unique_ptr<platform::ReachabilityHandle> createWithAddress(
        const platform::SocketAddressRecord& address) override;

    struct State;

  private:
    std::shared_ptr<State> state_;
};

}  // namespace pelora::testing
