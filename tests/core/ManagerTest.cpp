// The host's first point of contact: one manager, made with its reachability monitor, until the
// SDK shuts down; and the network status every ad request carries ("net"), with its change
// announcement, on the test platform's reachability and a device whose system version and
// radio a test picks.

#include <gtest/gtest.h>

#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "core/PeloraNetwork.h"
#include "pelora/PeloraNetReachable.h"
#include "pelora/PeloraSDKManager.h"
#include "pelora/platform/NotificationCenter.h"
#include "pelora/testing/TestEnvironment.h"

namespace {

TEST(Manager, OneManagerWithItsMonitorKeepsTheAppIdUntilShutdown) {
    pelora::testing::TestEnvironment env;
    EXPECT_FALSE(PeloraSDKManager::appID());
    auto manager = PeloraSDKManager::shareManager();
    EXPECT_EQ(manager, PeloraSDKManager::shareManager());
    ASSERT_TRUE(manager->reachable());
    EXPECT_EQ(env.reachability->requestedTargets().size(), 1u);
    EXPECT_EQ(env.reachability->scheduledHandleCount(), 1u);
    PeloraSDKManager::setAppID(std::string("app-1"));
    PeloraSDKManager::setAppID(std::string("app-2"));
    EXPECT_EQ(manager->instanceAppID(), "app-2");

    // Shutting down cancels what is in flight, stops the monitor and forgets the manager.
    int64_t code = 0;
    PeloraNetwork::get(std::string("http://ads.test/never"), nullptr, {},
                       [&](int64_t c, auto, auto) { code = c; });
    env.pump();
    ASSERT_EQ(env.fake->pendingCount(), 1u);
    PeloraSDKManager::shutdown();
    env.pump();
    EXPECT_EQ(code, pelora::platform::URLError::kCancelled);
    EXPECT_EQ(env.fake->pendingCount(), 0u);
    EXPECT_EQ(env.reachability->scheduledHandleCount(), 0u);
    EXPECT_FALSE(PeloraSDKManager::appID());
    EXPECT_NE(PeloraSDKManager::shareManager(), manager);
}

TEST(Manager, TwoThreadsAtOnceGetTheSameManager) {
    pelora::testing::TestEnvironment env;
    std::shared_ptr<PeloraSDKManager> seen[2];
    std::latch go(1);
    auto get = [&](int i) {
        go.wait();
        seen[i] = PeloraSDKManager::shareManager();
    };
    {
        std::jthread first(get, 0), second(get, 1);
        go.count_down();
    }
    EXPECT_TRUE(seen[0] && seen[0] == seen[1]);
}

namespace Flags = pelora::platform::ReachabilityFlags;

constexpr uint32_t R = Flags::kReachable;
constexpr uint32_t CR = Flags::kConnectionRequired;
constexpr uint32_t W = R | Flags::kIsWWAN;

TEST(Reachability, StatusAndTextFollowTheFlagsTheSystemAndTheRadio) {
    pelora::testing::TestEnvironment env;
    auto monitor = PeloraNetReachable::reachabilityWithHostName("probe.example");
    ASSERT_TRUE(monitor);
    const std::string kNone = "\u65e0\u6cd5\u8fde\u63a5", kUnknown = "\u672a\u77e5";
    struct Case {
        uint32_t flags;
        std::optional<std::string> radio;
        std::string text;  // as the request carries it
        const char* version = "14.2";
    };
    std::vector<Case> cases = {
        // Not cellular: Wi-Fi, unless a connection is required that cannot come by itself.
        {R, {}, "wifi"},
        {R | CR, {}, kNone},
        {R | CR | Flags::kConnectionOnDemand, {}, "wifi"},
        {R | CR | Flags::kConnectionOnTraffic, {}, "wifi"},
        {R | CR | Flags::kConnectionOnDemand | Flags::kInterventionRequired, {}, kNone},
        {R | Flags::kInterventionRequired, {}, "wifi"},
        // Without the reachable bit nothing else counts.
        {~R, "LTE", kNone},
        // Cellular: the generation comes from the radio; a required connection is not looked at.
        {W, "LTE", "4g"},
        {W | CR, "LTE", "4g"},
        {W, "NR", kUnknown},
        {W, {}, kUnknown},
        // Systems before 7 report no radio.
        {W, "LTE", kUnknown, "6.9.9"},
        {W, "LTE", "4g", "7.0"},
        {W, "LTE", kUnknown, "garbage"},
    };
    for (const char* radio :
         {"HSDPA", "WCDMA", "HSUPA", "CDMAEVDORev0", "CDMAEVDORevA", "CDMAEVDORevB", "eHRPD"}) {
        cases.push_back({W, radio, "3g"});
    }
    for (const char* radio : {"Edge", "GPRS", "CDMA1x"}) cases.push_back({W, radio, "2g"});
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.flags) + " " + c.radio.value_or("-") + " " + c.version);
        env.reachability->setFlags(c.flags);
        env.device->radioTechnology = c.radio;
        env.device->version = c.version;
        EXPECT_EQ(monitor->localizeCurrentReachabilityStatus(), c.text);
    }
    // A flag read that fails reads as not reachable; a status outside the table as unknown.
    env.reachability->setFlags(R);
    env.reachability->setFlagsReadable(false);
    EXPECT_EQ(monitor->currentReachabilityStatus(), PeloraNetworkStatusNotReachable);
    EXPECT_EQ(PeloraNetReachable::textForStatus(static_cast<PeloraNetworkStatus>(7)), kUnknown);
}

TEST(Reachability, MonitorsProbeTheirTargetAndAnnounceChangesOnTheLoop) {
    pelora::testing::TestEnvironment env;
    auto& reach = *env.reachability;
    EXPECT_TRUE(PeloraNetReachable::reachabilityForInternetConnection());
    auto monitor = PeloraNetReachable::reachabilityWithHostName("probe.example");
    ASSERT_TRUE(monitor && monitor->startNotifier());
    EXPECT_EQ(reach.requestedTargets(), (std::vector<std::string>{"2:0:0.0.0.0", "probe.example"}));

    std::vector<void*> objects;
    auto& center = pelora::platform::NotificationCenter::defaultCenter();
    auto token = center.addObserver(kPeloraNetChangeNotify,
                                    [&](const auto& n) { objects.push_back(n.object.get()); });
    EXPECT_EQ(reach.fireChange(), 1u);
    EXPECT_TRUE(objects.empty()) << "announced on the loop, not from the handle's call";
    env.pump();
    EXPECT_EQ(objects, std::vector<void*>{monitor.get()});

    monitor->stopNotifier();
    EXPECT_EQ(reach.scheduledHandleCount(), 0u);
    // The handle's callback does not keep the monitor alive: released, it is gone and
    // leaves nothing scheduled.
    ASSERT_TRUE(monitor->startNotifier());
    std::weak_ptr<PeloraNetReachable> weak = monitor;
    monitor.reset();
    EXPECT_TRUE(weak.expired());
    EXPECT_EQ(reach.scheduledHandleCount(), 0u);
    center.removeObserver(token);

    reach.setRefuseCreation(true);
    EXPECT_EQ(PeloraNetReachable::reachabilityWithHostName("probe.example"), nullptr);
    EXPECT_EQ(PeloraNetReachable::reachabilityForInternetConnection(), nullptr);
}

}  // namespace
