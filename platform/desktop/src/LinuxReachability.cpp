#include "pelora/desktop/LinuxReachability.h"

#include <arpa/inet.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "pelora/platform/RunLoop.h"

namespace pelora::desktop {

namespace fs = std::filesystem;
using platform::ReachabilityFlags::kIsDirect;
using platform::ReachabilityFlags::kIsLocalAddress;
using platform::ReachabilityFlags::kIsWWAN;
using platform::ReachabilityFlags::kReachable;

namespace {

constexpr unsigned kRouteUp = 0x1;        // RTF_UP
constexpr unsigned kRouteGateway = 0x2;   // RTF_GATEWAY
constexpr unsigned kRouteReject = 0x200;  // RTF_REJECT
constexpr unsigned kIfUp = 0x1;           // IFF_UP
constexpr unsigned kIfLoopback = 0x8;     // IFF_LOOPBACK
constexpr unsigned kIfRunning = 0x40;     // IFF_RUNNING

std::vector<std::string> splitWords(const std::string& line) {
    std::istringstream in(line);
    std::vector<std::string> words;
    for (std::string w; in >> w;) words.push_back(w);
    return words;
}

bool parseHex(const std::string& text, unsigned long long& out) {
    if (text.empty() || text.size() > 16) return false;
    try {
        size_t used = 0;
        out = std::stoull(text, &used, 16);
        return used == text.size();
    } catch (...) {
        return false;
    }
}

std::string readText(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return {};
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

bool matches(const NetRoute& route, const ReachabilityTarget& target) {
    if (route.family != target.family) return false;
    int bits = route.prefixLength;
    for (size_t i = 0; bits > 0 && i < 16; ++i, bits -= 8) {
        uint8_t mask = bits >= 8 ? 0xFF : static_cast<uint8_t>(0xFF << (8 - bits));
        if ((route.destination[i] & mask) != (target.address[i] & mask)) return false;
    }
    return true;
}

bool isLoopbackAddress(const ReachabilityTarget& t) {
    if (t.family == 4) return t.address[0] == 127;
    static const std::array<uint8_t, 16> one = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    return t.address == one;
}

bool isAnyAddress(const ReachabilityTarget& t) {
    size_t n = t.family == 4 ? 4 : 16;
    return std::all_of(t.address.begin(), t.address.begin() + static_cast<long>(n),
                       [](uint8_t b) { return b == 0; });
}

bool validHostName(const std::string& name) {
    if (name.empty() || name.size() > 253) return false;
    return std::all_of(name.begin(), name.end(), [](unsigned char c) {
        return std::isalnum(c) || c == '.' || c == '-' || c == '_' || c == ':';
    });
}

}  // namespace

std::vector<NetRoute> parseProcNetRoute(std::string_view text) {
    std::vector<NetRoute> routes;
    std::istringstream lines{std::string(text)};
    std::string line;
    std::getline(lines, line);  // header
    while (std::getline(lines, line)) {
        auto w = splitWords(line);
        if (w.size() < 8) continue;
        unsigned long long dest, flags, metric, mask;
        if (!parseHex(w[1], dest) || !parseHex(w[3], flags) || !parseHex(w[7], mask)) continue;
        metric = std::strtoull(w[6].c_str(), nullptr, 10);
        if (!(flags & kRouteUp) || (flags & kRouteReject)) continue;
        NetRoute r;
        r.interface = w[0];
        r.family = 4;
        // The table prints the address words in host byte order, as stored in memory.
        uint32_t d = static_cast<uint32_t>(dest);
        std::memcpy(r.destination.data(), &d, 4);
        r.prefixLength = std::popcount(static_cast<uint32_t>(mask));
        r.viaGateway = flags & kRouteGateway;
        r.metric = static_cast<uint32_t>(metric);
        routes.push_back(r);
    }
    return routes;
}

std::vector<NetRoute> parseProcIpv6Route(std::string_view text) {
    std::vector<NetRoute> routes;
    std::istringstream lines{std::string(text)};
    for (std::string line; std::getline(lines, line);) {
        auto w = splitWords(line);
        if (w.size() < 10 || w[0].size() != 32) continue;
        unsigned long long plen, metric, flags;
        if (!parseHex(w[1], plen) || !parseHex(w[5], metric) || !parseHex(w[8], flags)) continue;
        if (!(flags & kRouteUp) || (flags & kRouteReject) || plen > 128) continue;
        NetRoute r;
        r.interface = w[9];
        r.family = 6;
        bool ok = true;
        for (size_t i = 0; i < 16 && ok; ++i) {
            unsigned long long byte = 0;
            ok = parseHex(w[0].substr(2 * i, 2), byte);
            r.destination[i] = static_cast<uint8_t>(byte);
        }
        if (!ok) continue;
        r.prefixLength = static_cast<int>(plen);
        r.viaGateway = flags & kRouteGateway;
        r.metric = static_cast<uint32_t>(metric);
        routes.push_back(r);
    }
    return routes;
}

NetInterface makeInterface(const std::string& name, std::string_view flagsText,
                           std::string_view ueventText) {
    NetInterface iface;
    iface.name = name;
    std::string flagsWord(flagsText);
    flagsWord.erase(std::remove_if(flagsWord.begin(), flagsWord.end(),
                                   [](unsigned char c) { return std::isspace(c); }),
                    flagsWord.end());
    if (flagsWord.starts_with("0x")) flagsWord = flagsWord.substr(2);
    unsigned long long flags = 0;
    parseHex(flagsWord, flags);
    iface.up = flags & kIfUp;
    iface.running = flags & kIfRunning;
    iface.loopback = flags & kIfLoopback;
    iface.wwan =
        name.starts_with("wwan") || ueventText.find("DEVTYPE=wwan") != std::string_view::npos;
    return iface;
}

NetworkSnapshot readKernelNetwork() {
    NetworkSnapshot snap;
    std::error_code ec;
    for (fs::directory_iterator it("/sys/class/net", ec), end; !ec && it != end; it.increment(ec)) {
        std::string name = it->path().filename().string();
        snap.interfaces.push_back(
            makeInterface(name, readText(it->path() / "flags"), readText(it->path() / "uevent")));
    }
    snap.routes = parseProcNetRoute(readText("/proc/net/route"));
    auto v6 = parseProcIpv6Route(readText("/proc/net/ipv6_route"));
    snap.routes.insert(snap.routes.end(), v6.begin(), v6.end());
    return snap;
}

uint32_t reachabilityFlagsFor(const NetworkSnapshot& network, const ReachabilityTarget& target) {
    auto findInterface = [&](const std::string& name) -> const NetInterface* {
        for (const auto& i : network.interfaces) {
            if (i.name == name) return &i;
        }
        return nullptr;
    };

    const bool byName = target.hostName.has_value();
    if (!byName && isLoopbackAddress(target)) {
        for (const auto& i : network.interfaces) {
            if (i.loopback && i.up) return kReachable | kIsLocalAddress | kIsDirect;
        }
        return 0;
    }

    const NetRoute* best = nullptr;
    for (const auto& route : network.routes) {
        const NetInterface* iface = findInterface(route.interface);
        if (!iface || !iface->up || !iface->running || iface->loopback) continue;
        if (byName || isAnyAddress(target)) {
            // Without resolving the name, any default route counts; it is where the traffic
            // for a public host would go.
            if (route.prefixLength != 0) continue;
        } else if (!matches(route, target)) {
            continue;
        }
        if (!best || route.prefixLength > best->prefixLength ||
            (route.prefixLength == best->prefixLength && route.metric < best->metric)) {
            best = &route;
        }
    }
    if (!best) return 0;
    uint32_t flags = kReachable;
    if (findInterface(best->interface)->wwan) flags |= kIsWWAN;
    if (!byName && !isAnyAddress(target) && !best->viaGateway) flags |= kIsDirect;
    return flags;
}

namespace {

class LinuxReachabilityHandle final : public platform::ReachabilityHandle {
  public:
    LinuxReachabilityHandle(ReachabilityTarget target, LinuxReachabilityService::Options options)
        : target_(std::move(target)), options_(std::move(options)) {}
    ~LinuxReachabilityHandle() override { stop(); }

    bool getFlags(uint32_t& flags) override {
        flags = reachabilityFlagsFor(options_.snapshot(), target_);
        return true;
    }

    bool setCallback(std::function<void(uint32_t)> callback) override {
        callback_ = std::move(callback);
        return true;
    }

    bool scheduleWithRunLoop(platform::RunLoop& loop) override {
        if (loop_) return loop_ == &loop;
        getFlags(lastFlags_);
        fd_ = options_.openChangeDescriptor ? options_.openChangeDescriptor() : -1;
        if (fd_ >= 0) watch_ = loop.watchFd(fd_, [this] { onChange(); });
        if (!watch_) {
            // The loop cannot watch descriptors (or there is no netlink): poll instead.
            if (fd_ >= 0) ::close(fd_);
            fd_ = -1;
            watch_ = loop.scheduleTimer(options_.pollInterval, true,
                                        [this](platform::Timer&) { recheck(); });
        }
        loop_ = &loop;
        return watch_ != nullptr;
    }

    void unscheduleFromRunLoop(platform::RunLoop& loop) override {
        if (loop_ == &loop) stop();
    }

  private:
    void stop() {
        if (watch_) watch_->invalidate();
        watch_.reset();
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
        loop_ = nullptr;
    }

    void onChange() {
        char buffer[8192];
        // Drain everything queued; the messages themselves do not matter, only that
        // something changed, after which the whole view is read again.
        for (int i = 0; i < 64; ++i) {
            ssize_t n = ::read(fd_, buffer, sizeof buffer);
            if (n <= 0) break;
        }
        recheck();
    }

    void recheck() {
        uint32_t flags = 0;
        getFlags(flags);
        if (flags == lastFlags_) return;
        lastFlags_ = flags;
        if (callback_) callback_(flags);
    }

    ReachabilityTarget target_;
    LinuxReachabilityService::Options options_;
    std::function<void(uint32_t)> callback_;
    platform::RunLoop* loop_ = nullptr;
    std::shared_ptr<platform::Timer> watch_;
    int fd_ = -1;
    uint32_t lastFlags_ = 0;
};

}  // namespace

LinuxReachabilityService::LinuxReachabilityService() : LinuxReachabilityService(Options{}) {}

LinuxReachabilityService::LinuxReachabilityService(Options options) : options_(std::move(options)) {
    if (!options_.snapshot) options_.snapshot = readKernelNetwork;
    if (!options_.openChangeDescriptor) options_.openChangeDescriptor = openNetlinkChangeSocket;
    if (!(options_.pollInterval > 0)) options_.pollInterval = 2.0;
}

int LinuxReachabilityService::openNetlinkChangeSocket() {
    int fd = ::socket(AF_NETLINK, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (fd < 0) return -1;
    sockaddr_nl addr{};
    addr.nl_family = AF_NETLINK;
    addr.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE |
                     RTMGRP_IPV6_ROUTE;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

std::unique_ptr<platform::ReachabilityHandle> LinuxReachabilityService::createWithName(
    const std::string& hostName) {
    if (!validHostName(hostName)) return nullptr;
    ReachabilityTarget target;
    // Address literals are answered by their routes; names follow the default route.
    if (::inet_pton(AF_INET, hostName.c_str(), target.address.data()) == 1) {
        target.family = 4;
    } else if (::inet_pton(AF_INET6, hostName.c_str(), target.address.data()) == 1) {
        target.family = 6;
    } else if (hostName == "localhost") {
        target.family = 4;
        target.address = {127, 0, 0, 1};
    } else {
        target.hostName = hostName;
    }
    return std::make_unique<LinuxReachabilityHandle>(std::move(target), options_);
}

std::unique_ptr<platform::ReachabilityHandle> LinuxReachabilityService::createWithAddress(
    const platform::SocketAddressRecord& address) {
    ReachabilityTarget target;
    if (address.family == AF_INET) {
        target.family = 4;
        std::copy(address.address, address.address + 4, target.address.begin());
    } else if (address.family == AF_INET6 || address.family == 30) {
        // 30 is the IPv6 family number of the platform the record layout comes from.
        target.family = 6;
        std::copy(address.address, address.address + 16, target.address.begin());
    } else {
        return nullptr;
    }
    return std::make_unique<LinuxReachabilityHandle>(std::move(target), options_);
}

}  // namespace pelora::desktop
