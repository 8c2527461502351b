#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "TestPlatform.h"
#include "pelora/desktop/LinuxReachability.h"

namespace {

using namespace pelora::desktop;
namespace Flags = pelora::platform::ReachabilityFlags;

// Kernel tables as a machine prints them (x86: words in little-endian order).
const std::string kRouteHeader =
    "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n";
const std::string kRouteEthDefault =
    kRouteHeader +
    "eth0\t00000000\t0100A8C0\t0003\t0\t0\t100\t00000000\t0\t0\t0\n"
    "eth0\t0000A8C0\t00000000\t0001\t0\t0\t100\t00FFFFFF\t0\t0\t0\n";
// A modem's default route, dearer than the wired one.
std::string modemRoute(const std::string& iface) {
    return kRouteHeader + iface + "\t00000000\t01000A0A\t0003\t0\t0\t700\t00000000\t0\t0\t0\n";
}
const char* kIpv6Routes =
    // A reject route on lo for ::/0 (kernels print one; here at the lowest metric, so that
    // only dropping it leaves the real default) and a real default on eth0.
    "00000000000000000000000000000000 00 00000000000000000000000000000000 00 "
    "00000000000000000000000000000000 00000000 00000001 00000000 00200200       lo\n"
    "00000000000000000000000000000000 00 00000000000000000000000000000000 00 "
    "fe800000000000000000000000000001 00000400 00000001 00000000 00450003     eth0\n";

NetInterface up(const std::string& name) {
    return makeInterface(name, "0x1043\n", "");  // UP | RUNNING | (multicast)
}

NetworkSnapshot network(std::vector<NetInterface> ifaces, const std::string& routes,
                        const char* v6 = "") {
    NetworkSnapshot s;
    s.interfaces = std::move(ifaces);
    s.interfaces.push_back(makeInterface("lo", "0x9\n", ""));  // UP | LOOPBACK
    s.routes = parseProcNetRoute(routes);
    auto six = parseProcIpv6Route(v6);
    s.routes.insert(s.routes.end(), six.begin(), six.end());
    return s;
}

// The flags the SDK reads (reachable, cellular) for the targets it probes: a host name and the
// any-address.
TEST(ReachabilityFlagsTest, FollowTheRouteThatWouldCarryTheTraffic) {
    const ReachabilityTarget www{.hostName = "www.example.com"};
    struct Case {
        const char* name;
        NetworkSnapshot net;
        ReachabilityTarget target;
        uint32_t flags;
    } cases[] = {
        {"ethernet", network({up("eth0")}, kRouteEthDefault), www, Flags::kReachable},
        {"any address", network({up("eth0")}, kRouteEthDefault),
         ReachabilityTarget{.address = {0, 0, 0, 0}}, Flags::kReachable},
        {"a modem by its device type",
         network({makeInterface("usb0", "0x1043", "DEVTYPE=wwan\n")}, modemRoute("usb0")), www,
         Flags::kReachable | Flags::kIsWWAN},
        {"the cheaper default route",
         network({up("wwan0"), up("eth0")}, modemRoute("wwan0") + kRouteEthDefault), www,
         Flags::kReachable},
        {"IPv6 default alone", network({up("eth0")}, kRouteHeader, kIpv6Routes), www,
         Flags::kReachable},
        {"loopback only", network({}, kRouteHeader), www, 0},
        {"cable out", network({makeInterface("eth0", "0x1003", "")}, kRouteEthDefault), www, 0},
        {"route via an unknown interface", network({}, kRouteEthDefault), www, 0}};
    for (const auto& c : cases) EXPECT_EQ(reachabilityFlagsFor(c.net, c.target), c.flags) << c.name;
}

// The service and its handles on an injected network and change descriptor.
class LinuxReachabilityServiceTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(::pipe2(pipeFds, O_NONBLOCK | O_CLOEXEC), 0);
        service = std::make_unique<LinuxReachabilityService>(LinuxReachabilityService::Options{
            .snapshot = [this] { return current; },
            .openChangeDescriptor = [this] { return ::dup(pipeFds[0]); }});
    }
    void TearDown() override {
        ::close(pipeFds[0]);
        ::close(pipeFds[1]);
    }
    void kernelSaysSomethingChanged() { ASSERT_EQ(::write(pipeFds[1], "x", 1), 1); }

    pelora::testing::TestPlatform platform;
    int pipeFds[2] = {-1, -1};
    NetworkSnapshot current = network({up("eth0")}, kRouteEthDefault);
    std::unique_ptr<LinuxReachabilityService> service;
};

TEST_F(LinuxReachabilityServiceTest, ChangesReachTheCallbackOnTheLoopOnlyWhenFlagsChange) {
    auto handle = service->createWithName("www.example.com");
    uint32_t flags = 0;
    ASSERT_TRUE(handle && handle->getFlags(flags));
    EXPECT_EQ(flags, Flags::kReachable);
    std::vector<uint32_t> reported;
    bool onLoop = true;
    handle->setCallback([&](uint32_t f) {
        onLoop = onLoop && platform.loop->isLoopThread();
        reported.push_back(f);
    });
    ASSERT_TRUE(handle->scheduleWithRunLoop(*platform.loop));
    current = network({up("wwan0")}, modemRoute("wwan0"));
    kernelSaysSomethingChanged();
    EXPECT_TRUE(platform.waitFor([&] { return !reported.empty(); }));
    kernelSaysSomethingChanged();  // an address change that moves nothing: no report
    platform.pump();
    current = network({}, kRouteHeader);
    kernelSaysSomethingChanged();
    EXPECT_TRUE(platform.waitFor([&] { return reported.size() == 2; }));
    EXPECT_EQ(reported, (std::vector<uint32_t>{Flags::kReachable | Flags::kIsWWAN, 0}));
    EXPECT_TRUE(onLoop);
    handle->unscheduleFromRunLoop(*platform.loop);
    current = network({up("eth0")}, kRouteEthDefault);
    kernelSaysSomethingChanged();
    platform.pump();
    EXPECT_EQ(reported.size(), 2u);
}

}  // namespace
