#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "pelora/platform/Export.h"

namespace pelora::platform {
class ReachabilityHandle;
class RunLoop;
struct SocketAddressRecord;
}  // namespace pelora::platform

// Name of the notification posted on NotificationCenter::defaultCenter() whenever the
// platform reports a reachability change; its object is the PeloraNetReachable instance.
inline constexpr const char kPeloraNetChangeNotify[] = "kPeloraNetChangeNotify";

// The kind of network the device is on. The ad server only ever sees the text form, but the
// numbers (with the gap between 4 and 9) are fixed: do not renumber.
enum PeloraNetworkStatus : int64_t {
    PeloraNetworkStatusNotReachable = 0,
    PeloraNetworkStatusUnknown = 1,  // cellular of unknown generation
    PeloraNetworkStatus2G = 2,
    PeloraNetworkStatus3G = 3,
    PeloraNetworkStatus4G = 4,
    PeloraNetworkStatusWiFi = 9,  // any reachable non-cellular path
};

// Tells which network the device is on and announces changes. Status reads go to the
// platform each time; the instance keeps no cached state.
class PELORA_EXPORT PeloraNetReachable final
    : public std::enable_shared_from_this<PeloraNetReachable> {
    struct PrivateTag {};

  public:
    PeloraNetReachable(PrivateTag, std::unique_ptr<pelora::platform::ReachabilityHandle> ref);
    ~PeloraNetReachable();
    PeloraNetReachable(const PeloraNetReachable&) = delete;
    PeloraNetReachable& operator=(const PeloraNetReachable&) = delete;

    // Null when the platform cannot create a handle for the name (or address).
    static std::shared_ptr<PeloraNetReachable> reachabilityWithHostName(
        const std::string& hostName);
    static std::shared_ptr<PeloraNetReachable> reachabilityWithAddress(
        const pelora::platform::SocketAddressRecord& address);
    // The IPv4 "any" address.
    static std::shared_ptr<PeloraNetReachable> reachabilityForInternetConnection();

    // Registers the change callback (holding this instance weakly) and schedules the handle
    // on the main run loop; true only when both succeed.
    bool startNotifier();
    // Unschedules the handle; the callback stays registered.
    void stopNotifier();

    PeloraNetworkStatus currentReachabilityStatus() const;
    static PeloraNetworkStatus networkStatusForFlags(uint32_t flags);
    // "wifi", "4g", "3g", "2g", "未知" or "无法连接".
    std::string localizeCurrentReachabilityStatus() const;
    static std::string textForStatus(PeloraNetworkStatus status);

    pelora::platform::ReachabilityHandle* reachabilityRef() const { return reachabilityRef_.get(); }

  private:
    std::unique_ptr<pelora::platform::ReachabilityHandle> reachabilityRef_;
    // The loop the handle is scheduled on, held weakly: a loop torn down first is simply not
    // unscheduled from.
    std::weak_ptr<pelora::platform::RunLoop> scheduledOn_;
};
