#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "pelora/platform/Export.h"

namespace pelora::platform {

class RunLoop;

namespace ReachabilityFlags {
inline constexpr uint32_t kTransientConnection = 1u << 0;
inline constexpr uint32_t kReachable = 1u << 1;
inline constexpr uint32_t kConnectionRequired = 1u << 2;
inline constexpr uint32_t kConnectionOnTraffic = 1u << 3;
inline constexpr uint32_t kInterventionRequired = 1u << 4;
inline constexpr uint32_t kConnectionOnDemand = 1u << 5;
inline constexpr uint32_t kIsLocalAddress = 1u << 16;
inline constexpr uint32_t kIsDirect = 1u << 17;
inline constexpr uint32_t kIsWWAN = 1u << 18;
}  // namespace ReachabilityFlags

// A socket address as a byte record (sockaddr_in / sockaddr_in6 layout).
struct PELORA_EXPORT SocketAddressRecord {
    uint8_t length = 16;
    uint8_t family = 2;
    uint16_t port = 0;
    uint8_t address[16] = {};
};

// One reachability handle for a host name or address.
class PELORA_EXPORT ReachabilityHandle {
  public:
    virtual ~ReachabilityHandle() = default;
    // Current flags; false when they cannot be read.
    virtual bool getFlags(uint32_t& flags) = 0;
    // The callback receives the new flags on the run loop the handle is scheduled on.
    virtual bool setCallback(std::function<void(uint32_t flags)> callback) = 0;
    virtual bool scheduleWithRunLoop(RunLoop& loop) = 0;
    virtual void unscheduleFromRunLoop(RunLoop& loop) = 0;
};

class PELORA_EXPORT ReachabilityService {
  public:
    virtual ~ReachabilityService() = default;
    // Absent when the platform refuses the name.
    virtual std::unique_ptr<ReachabilityHandle> createWithName(const std::string& hostName) = 0;
    virtual std::unique_ptr<ReachabilityHandle> createWithAddress(
        const SocketAddressRecord& address) = 0;
};

}  // namespace pelora::platform
