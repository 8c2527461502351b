#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pelora/platform/Export.h"
#include "pelora/platform/Reachability.h"

namespace pelora::desktop {

// What the kernel says about interfaces and routes, reduced to what reachability needs.
struct PELORA_EXPORT NetInterface {
    std::string name;
    bool up = false;
    bool running = false;
    bool loopback = false;
    bool wwan = false;  // a cellular modem (name "wwan*" or DEVTYPE=wwan)
};

struct PELORA_EXPORT NetRoute {
    std::string interface;
    int family = 4;                         // 4 or 6
    std::array<uint8_t, 16> destination{};  // network byte order; IPv4 uses the first 4 bytes
    int prefixLength = 0;
    bool viaGateway = false;
    uint32_t metric = 0;
};

struct PELORA_EXPORT NetworkSnapshot {
    std::vector<NetInterface> interfaces;
    std::vector<NetRoute> routes;
};

// Parsers for the kernel's text tables, kept apart so tests can feed any network they like.
PELORA_EXPORT std::vector<NetRoute> parseProcNetRoute(std::string_view text);  // /proc/net/route
PELORA_EXPORT std::vector<NetRoute> parseProcIpv6Route(
    std::string_view text);  // /proc/net/ipv6_route
// One interface from its /sys/class/net/<name>/flags text ("0x1003") and uevent text.
PELORA_EXPORT NetInterface makeInterface(const std::string& name, std::string_view flagsText,
                                         std::string_view ueventText);
// The live view: /proc/net/route, /proc/net/ipv6_route and /sys/class/net.
PELORA_EXPORT NetworkSnapshot readKernelNetwork();

// What a reachability handle asks about: a host name (not resolved: the answer follows the
// default route) or a literal address.
struct PELORA_EXPORT ReachabilityTarget {
    std::optional<std::string> hostName;
    int family = 4;
    std::array<uint8_t, 16> address{};
};

// The flag bits for a target in a snapshot. A target is Reachable when a route covering it
// (for host names and the "any" address: a default route) goes through an interface that is
// up, running and not loopback; IsWWAN is added when that interface is a cellular modem. Loopback
// addresses are Reachable, IsLocalAddress and IsDirect while "lo" is up. Routes are chosen by
// longest prefix, then lowest metric. Everything else gives 0.
PELORA_EXPORT uint32_t reachabilityFlagsFor(const NetworkSnapshot& network,
                                            const ReachabilityTarget& target);

// Reachability on Linux: flags from the kernel's interfaces and routes, changes announced from
// a NETLINK_ROUTE socket watched on the run loop (or by polling every `pollInterval` seconds
// when the loop cannot watch descriptors).
class PELORA_EXPORT LinuxReachabilityService final : public platform::ReachabilityService {
  public:
    struct Options {
        // Reads the network; defaults to readKernelNetwork.
        std::function<NetworkSnapshot()> snapshot;
        // Opens a non-blocking descriptor that turns readable when the network changes, or
        // returns -1. Defaults to a NETLINK_ROUTE socket; the handle owns and closes it.
        std::function<int()> openChangeDescriptor;
        double pollInterval = 2.0;
    };

    LinuxReachabilityService();
    explicit LinuxReachabilityService(Options options);

    // Absent for an empty name, one longer than 253 characters or one with characters that
    // cannot occur in a host name or address literal.
    std::unique_ptr<platform::ReachabilityHandle> createWithName(
        const std::string& hostName) override;
    // Absent unless the record is IPv4 (family 2) or IPv6 (family 10).
    std::unique_ptr<platform::ReachabilityHandle> createWithAddress(
        const platform::SocketAddressRecord& address) override;

    // A NETLINK_ROUTE socket subscribed to link, address and route changes, or -1.
    static int openNetlinkChangeSocket();

  private:
    Options options_;
};

}  // namespace pelora::desktop
