#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "TestPlatform.h"
#include "pelora/desktop/LinuxReachability.h"

namespace {

using namespace pelora::desktop;
namespace Flags = pelora::platform::ReachabilityFlags;

// Kernel tables as a machine prints them (x86: words in little-endian order).
const char* kRouteEthDefault =
    "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n"
    "eth0\t00000000\t0100A8C0\t0003\t0\t0\t100\t00000000\t0\t0\t0\n"
    "eth0\t0000A8C0\t00000000\t0001\t0\t0\t100\t00FFFFFF\t0\t0\t0\n";
const char* kRouteWwanOnly =
    "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n"
    "wwan0\t00000000\t01000A0A\t0003\t0\t0\t700\t00000000\t0\t0\t0\n";
const char* kRouteHeaderOnly =
    "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n";
const char* kIpv6Routes =
    // A reject route on lo for ::/0 (kernels print one) and a real default on eth0.
    "00000000000000000000000000000000 00 00000000000000000000000000000000 00 "
    "00000000000000000000000000000000 ffffffff 00000001 00000000 00200200       lo\n"
    "00000000000000000000000000000000 00 00000000000000000000000000000000 00 "
    "fe800000000000000000000000000001 00000400 00000001 00000000 00450003     eth0\n";

NetInterface up(const std::string& name, const std::string& uevent = "") {
    return makeInterface(name, "0x1043\n", uevent);  // UP | RUNNING | (multicast)
}

NetworkSnapshot network(std::vector<NetInterface> ifaces, const char* routes, const char* v6 = "") {
    NetworkSnapshot s;
    s.interfaces = std::move(ifaces);
    s.interfaces.push_back(makeInterface("lo", "0x9\n", ""));  // UP | LOOPBACK
    s.routes = parseProcNetRoute(routes);
    auto six = parseProcIpv6Route(v6);
    s.routes.insert(s.routes.end(), six.begin(), six.end());
    return s;
}

ReachabilityTarget host(const std::string& name) {
    ReachabilityTarget t;
    t.hostName = name;
    return t;
}

ReachabilityTarget ipv4(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
    ReachabilityTarget t;
    t.address = {a, b, c, d};
    return t;
}

TEST(KernelTablesTest, RouteTablesParseIntoNetworkOrderPrefixes) {
    auto v4 = parseProcNetRoute(kRouteEthDefault);
    ASSERT_EQ(v4.size(), 2u);
    EXPECT_EQ(v4[0].interface, "eth0");
    EXPECT_EQ(v4[0].prefixLength, 0);
    EXPECT_TRUE(v4[0].viaGateway);
    EXPECT_EQ(v4[0].metric, 100u);
    EXPECT_EQ(v4[1].prefixLength, 24);
    EXPECT_EQ(v4[1].destination[0], 192);
    EXPECT_EQ(v4[1].destination[1], 168);
    EXPECT_FALSE(v4[1].viaGateway);

    auto v6 = parseProcIpv6Route(kIpv6Routes);
    ASSERT_EQ(v6.size(), 1u);  // the reject route is dropped
    EXPECT_EQ(v6[0].interface, "eth0");
    EXPECT_EQ(v6[0].family, 6);

    EXPECT_TRUE(parseProcNetRoute("garbage\nmore garbage\n\t\t\n").empty());
    EXPECT_TRUE(parseProcIpv6Route("zz 00\n").empty());
}

TEST(KernelTablesTest, InterfacesReadTheirFlagsAndModemType) {
    auto eth = makeInterface("eth0", "0x1003\n", "INTERFACE=eth0\n");
    EXPECT_TRUE(eth.up);
    EXPECT_FALSE(eth.running);  // 0x40 missing: cable out
    EXPECT_FALSE(eth.wwan);
    EXPECT_TRUE(makeInterface("usb0", "0x1043", "DEVTYPE=wwan\nINTERFACE=usb0\n").wwan);
    EXPECT_TRUE(makeInterface("wwan0", "0x1043", "").wwan);
    EXPECT_TRUE(makeInterface("lo", "0x9", "").loopback);
}

TEST(ReachabilityFlagsTest, EthernetWithDefaultRouteIsReachableWithoutWwan) {
    auto net = network({up("eth0")}, kRouteEthDefault);
    EXPECT_EQ(reachabilityFlagsFor(net, host("www.example.com")), Flags::kReachable);
    EXPECT_EQ(reachabilityFlagsFor(net, ipv4(0, 0, 0, 0)), Flags::kReachable);
    // On the local subnet: a direct route.
    EXPECT_EQ(reachabilityFlagsFor(net, ipv4(192, 168, 0, 7)),
              Flags::kReachable | Flags::kIsDirect);
}

TEST(ReachabilityFlagsTest, ModemOnlyIsReachableOverWwan) {
    auto net = network({up("wwan0")}, kRouteWwanOnly);
    EXPECT_EQ(reachabilityFlagsFor(net, host("www.example.com")),
              Flags::kReachable | Flags::kIsWWAN);
}

TEST(ReachabilityFlagsTest, LoopbackOnlyOrDownInterfacesGiveNothing) {
    auto loOnly = network({}, kRouteHeaderOnly);
    EXPECT_EQ(reachabilityFlagsFor(loOnly, host("www.example.com")), 0u);
    EXPECT_EQ(reachabilityFlagsFor(loOnly, ipv4(127, 0, 0, 1)),
              Flags::kReachable | Flags::kIsLocalAddress | Flags::kIsDirect);

    auto cableOut = network({makeInterface("eth0", "0x1003", "")}, kRouteEthDefault);
    EXPECT_EQ(reachabilityFlagsFor(cableOut, host("www.example.com")), 0u);
    // A route through an interface the snapshot does not know is no route at all.
    auto unknown = network({}, kRouteEthDefault);
    EXPECT_EQ(reachabilityFlagsFor(unknown, host("www.example.com")), 0u);
}

TEST(ReachabilityFlagsTest, IPv6DefaultRouteAloneIsEnough) {
    auto net = network({up("eth0")}, kRouteHeaderOnly, kIpv6Routes);
    EXPECT_EQ(reachabilityFlagsFor(net, host("www.example.com")), Flags::kReachable);
}

TEST(ReachabilityFlagsTest, TheCheaperDefaultRouteDecidesBetweenWifiAndModem) {
    auto net = network({up("wwan0"), up("eth0")}, kRouteWwanOnly);
    auto eth = parseProcNetRoute(kRouteEthDefault);
    net.routes.insert(net.routes.end(), eth.begin(), eth.end());
    EXPECT_EQ(reachabilityFlagsFor(net, host("www.example.com")), Flags::kReachable);
}

// Service and handles with an injected network and change descriptor.
class LinuxReachabilityServiceTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(::pipe2(pipeFds, O_NONBLOCK | O_CLOEXEC), 0);
        LinuxReachabilityService::Options o;
        o.snapshot = [this] { return current; };
        o.openChangeDescriptor = [this] { return ::dup(pipeFds[0]); };
        service = std::make_unique<LinuxReachabilityService>(o);
        current = network({up("eth0")}, kRouteEthDefault);
    }
    void TearDown() override {
        ::close(pipeFds[0]);
        ::close(pipeFds[1]);
    }
    void kernelSaysSomethingChanged() { ASSERT_EQ(::write(pipeFds[1], "x", 1), 1); }

    pelora::testing::TestPlatform platform;
    int pipeFds[2] = {-1, -1};
    NetworkSnapshot current;
    std::unique_ptr<LinuxReachabilityService> service;
};

TEST_F(LinuxReachabilityServiceTest, RefusesNamesThatCannotBeHosts) {
    EXPECT_FALSE(service->createWithName(""));
    EXPECT_FALSE(service->createWithName("bad host"));
    EXPECT_FALSE(service->createWithName("a/b"));
    EXPECT_FALSE(service->createWithName(std::string(254, 'a')));
    EXPECT_TRUE(service->createWithName("www.example.com"));
    EXPECT_TRUE(service->createWithName("10.0.0.1"));
    pelora::platform::SocketAddressRecord unix{};
    unix.family = 1;
    EXPECT_FALSE(service->createWithAddress(unix));
    EXPECT_TRUE(service->createWithAddress(pelora::platform::SocketAddressRecord{}));
}

TEST_F(LinuxReachabilityServiceTest, ChangesReachTheCallbackOnTheLoopOnlyWhenFlagsChange) {
    auto handle = service->createWithName("www.example.com");
    ASSERT_TRUE(handle);
    uint32_t flags = 0;
    ASSERT_TRUE(handle->getFlags(flags));
    EXPECT_EQ(flags, Flags::kReachable);

    std::vector<uint32_t> reported;
    bool onLoop = true;
    handle->setCallback([&](uint32_t f) {
        onLoop = onLoop && platform.loop->isLoopThread();
        reported.push_back(f);
    });
    ASSERT_TRUE(handle->scheduleWithRunLoop(*platform.loop));

    current = network({up("wwan0")}, kRouteWwanOnly);
    kernelSaysSomethingChanged();
    EXPECT_TRUE(platform.waitFor([&] { return !reported.empty(); }));
    EXPECT_EQ(reported, (std::vector<uint32_t>{Flags::kReachable | Flags::kIsWWAN}));

    kernelSaysSomethingChanged();  // an address change that moves nothing: no report
    platform.pump();
    current = network({}, kRouteHeaderOnly);
    kernelSaysSomethingChanged();
    EXPECT_TRUE(platform.waitFor([&] { return reported.size() == 2; }));
    EXPECT_EQ(reported.back(), 0u);
    EXPECT_TRUE(onLoop);

    handle->unscheduleFromRunLoop(*platform.loop);
    current = network({up("eth0")}, kRouteEthDefault);
    kernelSaysSomethingChanged();
    platform.pump();
    EXPECT_EQ(reported.size(), 2u);
}

TEST(FakeReachabilityTest, FiredChangesArriveThroughTheLoopOfScheduledHandlesOnly) {
    pelora::testing::TestPlatform platform;
    auto& fake = *platform.reachability;
    auto scheduled = fake.createWithName("probe.example.com");
    auto idle = fake.createWithName("other.example.com");
    std::vector<uint32_t> seen, idleSeen;
    scheduled->setCallback([&](uint32_t f) { seen.push_back(f); });
    idle->setCallback([&](uint32_t f) { idleSeen.push_back(f); });
    ASSERT_TRUE(scheduled->scheduleWithRunLoop(*platform.loop));

    fake.setFlags(Flags::kReachable | Flags::kIsWWAN);
    EXPECT_EQ(fake.fireChange(), 1u);
    EXPECT_TRUE(seen.empty());  // not before the loop runs
    platform.pump();
    EXPECT_EQ(seen, (std::vector<uint32_t>{Flags::kReachable | Flags::kIsWWAN}));
    EXPECT_TRUE(idleSeen.empty());

    fake.fireChange();
    scheduled.reset();  // destroyed before delivery: nothing runs
    platform.pump();
    EXPECT_EQ(seen.size(), 1u);
    EXPECT_EQ(fake.requestedTargets(),
              (std::vector<std::string>{"probe.example.com", "other.example.com"}));
    fake.setRefuseCreation(true);
    EXPECT_FALSE(fake.createWithName("x"));
}

}  // namespace
