#include "pelora/PeloraNetReachable.h"

#include <charconv>
#include <cstring>

#include "pelora/platform/Device.h"
#include "pelora/platform/NotificationCenter.h"
#include "pelora/platform/Reachability.h"
#include "pelora/platform/RunLoop.h"
#include "pelora/platform/Services.h"

namespace {

namespace Flags = pelora::platform::ReachabilityFlags;
namespace Radio = pelora::platform::RadioAccessTechnology;

bool anyOf(const std::string& tech, std::initializer_list<const char*> names) {
    for (const char* name : names) {
        if (tech == name) return true;
    }
    return false;
}

// Reads a version text the way the phone platform's doubleValue does: leading whitespace,
// then the longest numeric prefix; 0 when there is none ("14.2" -> 14.2, "6.1.3" -> 6.1).
double leadingDouble(const std::string& text) {
    size_t i = 0;
    while (i < text.size() && (text[i] == ' ' || text[i] == '\t' || text[i] == '\n')) ++i;
    double value = 0;
    const char* begin = text.data() + i;
    if (i < text.size() && text[i] == '+') ++begin;
    auto result = std::from_chars(begin, text.data() + text.size(), value);
    if (result.ec != std::errc()) return 0;
    return value;
}

}  // namespace

PeloraNetReachable::PeloraNetReachable(PrivateTag,
                                       std::unique_ptr<pelora::platform::ReachabilityHandle> ref)
    : reachabilityRef_(std::move(ref)) {}

PeloraNetReachable::~PeloraNetReachable() {
    stopNotifier();
}

std::shared_ptr<PeloraNetReachable> PeloraNetReachable::reachabilityWithHostName(
    const std::string& hostName) {
    if (!pelora::platform::hasServices()) return nullptr;
    const auto& service = pelora::platform::services().reachability;
    if (!service) return nullptr;
    auto handle = service->createWithName(hostName);
    if (!handle) return nullptr;
    return std::make_shared<PeloraNetReachable>(PrivateTag{}, std::move(handle));
}

std::shared_ptr<PeloraNetReachable> PeloraNetReachable::reachabilityWithAddress(
    const pelora::platform::SocketAddressRecord& address) {
    if (!pelora::platform::hasServices()) return nullptr;
    const auto& service = pelora::platform::services().reachability;
    if (!service) return nullptr;
    auto handle = service->createWithAddress(address);
    if (!handle) return nullptr;
    return std::make_shared<PeloraNetReachable>(PrivateTag{}, std::move(handle));
}

std::shared_ptr<PeloraNetReachable> PeloraNetReachable::reachabilityForInternetConnection() {
    pelora::platform::SocketAddressRecord any;
    any.length = 16;
    any.family = 2;
    any.port = 0;
    std::memset(any.address, 0, sizeof any.address);
    return reachabilityWithAddress(any);
}

bool PeloraNetReachable::startNotifier() {
    if (!reachabilityRef_) return false;
    // The callback must not keep the monitor alive: a released monitor announces nothing.
    std::weak_ptr<PeloraNetReachable> weakSelf = weak_from_this();
    bool registered = reachabilityRef_->setCallback([weakSelf](uint32_t) {
        auto self = weakSelf.lock();
        if (!self) return;
        pelora::platform::NotificationCenter::defaultCenter().post(
            kPeloraNetChangeNotify, std::static_pointer_cast<void>(self));
    });
    if (!registered) return false;
    if (!pelora::platform::hasServices()) return false;
    auto loop = pelora::platform::services().mainRunLoop;
    if (!loop || !reachabilityRef_->scheduleWithRunLoop(*loop)) return false;
    scheduledOn_ = loop;
    return true;
}

void PeloraNetReachable::stopNotifier() {
    if (!reachabilityRef_) return;
    if (auto loop = scheduledOn_.lock()) reachabilityRef_->unscheduleFromRunLoop(*loop);
    scheduledOn_.reset();
}

PeloraNetworkStatus PeloraNetReachable::currentReachabilityStatus() const {
    uint32_t flags = 0;
    if (reachabilityRef_ && reachabilityRef_->getFlags(flags)) return networkStatusForFlags(flags);
    return PeloraNetworkStatusNotReachable;
}

PeloraNetworkStatus PeloraNetReachable::networkStatusForFlags(uint32_t flags) {
    if ((flags & Flags::kReachable) == 0) return PeloraNetworkStatusNotReachable;

    if ((flags & Flags::kIsWWAN) == 0) {
        if ((flags & Flags::kConnectionRequired) == 0) return PeloraNetworkStatusWiFi;
        bool onDemandOrTraffic =
            (flags & (Flags::kConnectionOnTraffic | Flags::kConnectionOnDemand)) != 0;
        if (onDemandOrTraffic && (flags & Flags::kInterventionRequired) == 0) {
            return PeloraNetworkStatusWiFi;
        }
        return PeloraNetworkStatusNotReachable;
    }

    // Cellular: the generation is only known from the radio technology, which older systems
    // do not report.
    PeloraNetworkStatus status = PeloraNetworkStatusUnknown;
    if (!pelora::platform::hasServices()) return status;
    const auto& device = pelora::platform::services().device;
    if (!device || leadingDouble(device->systemVersion()) < 7.0) return status;
    auto tech = device->currentRadioAccessTechnology();
    if (!tech) return status;
    if (anyOf(*tech, {Radio::kLTE})) return PeloraNetworkStatus4G;
    if (anyOf(*tech, {Radio::kHSDPA, Radio::kWCDMA, Radio::kHSUPA, Radio::kCDMAEVDORev0,
                      Radio::kCDMAEVDORevA, Radio::kCDMAEVDORevB, Radio::keHRPD})) {
        return PeloraNetworkStatus3G;
    }
    if (anyOf(*tech, {Radio::kEdge, Radio::kGPRS, Radio::kCDMA1x})) return PeloraNetworkStatus2G;
    return status;
}

std::string PeloraNetReachable::textForStatus(PeloraNetworkStatus status) {
    switch (status) {
        case PeloraNetworkStatusNotReachable:
            return "无法连接";
        case PeloraNetworkStatus2G:
            return "2g";
        case PeloraNetworkStatus3G:
            return "3g";
        case PeloraNetworkStatus4G:
            return "4g";
        case PeloraNetworkStatusWiFi:
            return "wifi";
        default:
            return "未知";
    }
}

std::string PeloraNetReachable::localizeCurrentReachabilityStatus() const {
    return textForStatus(currentReachabilityStatus());
}
