// The network status the ad request reports, and the change announcement, driven through a
// scripted reachability handle and a device whose system version and radio a test picks.

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pelora/PeloraNetReachable.h"
#include "pelora/desktop/EventRunLoop.h"
#include "pelora/platform/Device.h"
#include "pelora/platform/NotificationCenter.h"
#include "pelora/platform/Reachability.h"
#include "pelora/platform/Services.h"
#include "pelora/testing/ManualClock.h"

namespace {

using namespace pelora::platform;

struct HandleState {
    uint32_t flags = 0;
    bool readable = true;
    std::function<void(uint32_t)> callback;
    RunLoop* scheduledOn = nullptr;
    int unscheduleCount = 0;
};

class ScriptedHandle : public ReachabilityHandle {
  public:
    explicit ScriptedHandle(std::shared_ptr<HandleState> state) : state_(std::move(state)) {}
    bool getFlags(uint32_t& flags) override {
        if (!state_->readable) return false;
        flags = state_->flags;
        return true;
    }
    bool setCallback(std::function<void(uint32_t)> callback) override {
        state_->callback = std::move(callback);
        return true;
    }
    bool scheduleWithRunLoop(RunLoop& loop) override {
        state_->scheduledOn = &loop;
        return true;
    }
    void unscheduleFromRunLoop(RunLoop& loop) override {
        if (state_->scheduledOn == &loop) state_->scheduledOn = nullptr;
        ++state_->unscheduleCount;
    }

  private:
    std::shared_ptr<HandleState> state_;
};

class ScriptedReachability : public ReachabilityService {
  public:
    std::shared_ptr<HandleState> state = std::make_shared<HandleState>();
    std::vector<std::string> names;
    std::optional<SocketAddressRecord> lastAddress;
    bool refuse = false;

    std::unique_ptr<ReachabilityHandle> createWithName(const std::string& hostName) override {
        names.push_back(hostName);
        if (refuse) return nullptr;
        return std::make_unique<ScriptedHandle>(state);
    }
    std::unique_ptr<ReachabilityHandle> createWithAddress(const SocketAddressRecord& a) override {
        lastAddress = a;
        if (refuse) return nullptr;
        return std::make_unique<ScriptedHandle>(state);
    }
};

// Only the two values the cellular rule reads matter here.
class RadioDevice : public DeviceInfo {
  public:
    std::string version = "14.2";
    std::optional<std::string> radio;
    std::optional<std::string> identifierForVendor() override { return std::nullopt; }
    std::string advertisingIdentifier() override { return "00000000-0000-0000-0000-000000000000"; }
    std::string systemVersion() override { return version; }
    std::string model() override { return "iPhone"; }
    Rect screenBounds() override { return makeRect(0, 0, 375, 667); }
    double screenScale() override { return 2; }
    int64_t statusBarOrientation() override { return 1; }
    std::optional<std::string> infoValue(const std::string&) override { return std::nullopt; }
    std::string makeUUID() override { return "00000000-0000-0000-0000-000000000001"; }
    std::optional<std::string> mobileCountryCode() override { return std::nullopt; }
    std::optional<std::string> mobileNetworkCode() override { return std::nullopt; }
    std::optional<std::string> currentRadioAccessTechnology() override { return radio; }
    std::string mainBundlePath() override { return "."; }
};

class ReachabilityTest : public ::testing::Test {
  protected:
    void SetUp() override {
        auto clock = std::make_shared<pelora::testing::ManualClock>();
        loop = std::make_shared<pelora::desktop::EventRunLoop>(clock);
        Services s;
        s.clock = clock;
        s.mainRunLoop = loop;
        s.device = device;
        s.reachability = reach;
        installServices(s);
    }
    void TearDown() override { installServices(Services{}); }

    PeloraNetworkStatus cellular(std::optional<std::string> radio, std::string version = "14.2") {
        device->radio = std::move(radio);
        device->version = std::move(version);
        return PeloraNetReachable::networkStatusForFlags(ReachabilityFlags::kReachable |
                                                         ReachabilityFlags::kIsWWAN);
    }

    std::shared_ptr<pelora::desktop::EventRunLoop> loop;
    std::shared_ptr<RadioDevice> device = std::make_shared<RadioDevice>();
    std::shared_ptr<ScriptedReachability> reach = std::make_shared<ScriptedReachability>();
};

TEST_F(ReachabilityTest, NonCellularFlagTable) {
    EXPECT_EQ(PeloraNetReachable::networkStatusForFlags(0x2), 9);
    EXPECT_EQ(PeloraNetReachable::networkStatusForFlags(0x2 | 0x4), 0);
    EXPECT_EQ(PeloraNetReachable::networkStatusForFlags(0x2 | 0x4 | 0x20), 9);
    EXPECT_EQ(PeloraNetReachable::networkStatusForFlags(0x2 | 0x4 | 0x8), 9);
    EXPECT_EQ(PeloraNetReachable::networkStatusForFlags(0x2 | 0x4 | 0x20 | 0x10), 0);
    EXPECT_EQ(PeloraNetReachable::networkStatusForFlags(0x2 | 0x10), 9);
}

TEST_F(ReachabilityTest, WithoutTheReachableBitNothingElseCounts) {
    device->radio = "LTE";
    EXPECT_EQ(PeloraNetReachable::networkStatusForFlags(0), 0);
    EXPECT_EQ(PeloraNetReachable::networkStatusForFlags(0x40000), 0);
    EXPECT_EQ(PeloraNetReachable::networkStatusForFlags(0xFFFFFFFFu & ~0x2u), 0);
}

TEST_F(ReachabilityTest, CellularGenerationComesFromTheRadioTechnology) {
    EXPECT_EQ(cellular("LTE"), 4);
    for (const char* t :
         {"HSDPA", "WCDMA", "HSUPA", "CDMAEVDORev0", "CDMAEVDORevA", "CDMAEVDORevB", "eHRPD"}) {
        EXPECT_EQ(cellular(t), 3) << t;
    }
    for (const char* t : {"Edge", "GPRS", "CDMA1x"}) EXPECT_EQ(cellular(t), 2) << t;
    EXPECT_EQ(cellular("NR"), 1);
    EXPECT_EQ(cellular(std::nullopt), 1);
    // ConnectionRequired is not looked at on cellular.
    device->radio = "LTE";
    EXPECT_EQ(PeloraNetReachable::networkStatusForFlags(0x2 | 0x4 | 0x40000), 4);
}

TEST_F(ReachabilityTest, OldSystemsReportUnknownGenerationWhateverTheRadio) {
    EXPECT_EQ(cellular("LTE", "6.1"), 1);
    EXPECT_EQ(cellular("LTE", "7.0"), 4);
    EXPECT_EQ(cellular("LTE", "6.9.9"), 1);
    EXPECT_EQ(cellular("LTE", "garbage"), 1);
}

TEST_F(ReachabilityTest, StatusTextsAsTheServerReceivesThem) {
    auto monitor = PeloraNetReachable::reachabilityWithHostName("probe.example");
    ASSERT_TRUE(monitor);
    EXPECT_EQ(reach->names, std::vector<std::string>{"probe.example"});

    reach->state->flags = 0x2;
    EXPECT_EQ(monitor->currentReachabilityStatus(), PeloraNetworkStatusWiFi);
    EXPECT_EQ(monitor->localizeCurrentReachabilityStatus(), "wifi");
    reach->state->flags = 0x2 | 0x40000;
    device->radio = "LTE";
    EXPECT_EQ(monitor->localizeCurrentReachabilityStatus(), "4g");
    device->radio = "WCDMA";
    EXPECT_EQ(monitor->localizeCurrentReachabilityStatus(), "3g");
    device->radio = "GPRS";
    EXPECT_EQ(monitor->localizeCurrentReachabilityStatus(), "2g");
    device->radio = "unlisted";
    EXPECT_EQ(monitor->localizeCurrentReachabilityStatus(), "\u672a\u77e5");
    reach->state->flags = 0;
    EXPECT_EQ(monitor->localizeCurrentReachabilityStatus(), "\u65e0\u6cd5\u8fde\u63a5");
    // A flag read that fails reads as not reachable.
    reach->state->flags = 0x2;
    reach->state->readable = false;
    EXPECT_EQ(monitor->currentReachabilityStatus(), PeloraNetworkStatusNotReachable);
    // Values outside the table have the unknown text.
    EXPECT_EQ(PeloraNetReachable::textForStatus(static_cast<PeloraNetworkStatus>(7)),
              "\u672a\u77e5");
}

TEST_F(ReachabilityTest, RefusedHandleGivesNoMonitor) {
    reach->refuse = true;
    EXPECT_EQ(PeloraNetReachable::reachabilityWithHostName(""), nullptr);
    EXPECT_EQ(PeloraNetReachable::reachabilityForInternetConnection(), nullptr);
}

TEST_F(ReachabilityTest, InternetConnectionProbesTheIpv4AnyAddress) {
    ASSERT_TRUE(PeloraNetReachable::reachabilityForInternetConnection());
    ASSERT_TRUE(reach->lastAddress);
    EXPECT_EQ(reach->lastAddress->length, 16);
    EXPECT_EQ(reach->lastAddress->family, 2);
    EXPECT_EQ(reach->lastAddress->port, 0);
    for (uint8_t b : reach->lastAddress->address) EXPECT_EQ(b, 0);
}

TEST_F(ReachabilityTest, ChangesAreAnnouncedWithTheMonitorAsObject) {
    auto monitor = PeloraNetReachable::reachabilityWithHostName("probe.example");
    ASSERT_TRUE(monitor);
    ASSERT_TRUE(monitor->startNotifier());
    EXPECT_EQ(reach->state->scheduledOn, loop.get());

    std::vector<void*> objects;
    auto& center = NotificationCenter::defaultCenter();
    auto token = center.addObserver(
        kPeloraNetChangeNotify, [&](const Notification& n) { objects.push_back(n.object.get()); });
    ASSERT_TRUE(reach->state->callback);
    reach->state->callback(0x2);
    reach->state->callback(0);
    EXPECT_EQ(objects, (std::vector<void*>{monitor.get(), monitor.get()}));

    // The callback does not keep the monitor alive, and a released monitor announces nothing.
    auto callback = reach->state->callback;
    monitor->stopNotifier();
    EXPECT_EQ(reach->state->scheduledOn, nullptr);
    monitor.reset();
    callback(0x2);
    EXPECT_EQ(objects.size(), 2u);
    center.removeObserver(token);
}

TEST_F(ReachabilityTest, DestructionUnschedules) {
    auto monitor = PeloraNetReachable::reachabilityWithHostName("probe.example");
    ASSERT_TRUE(monitor->startNotifier());
    monitor.reset();
    EXPECT_EQ(reach->state->scheduledOn, nullptr);
    EXPECT_EQ(reach->state->unscheduleCount, 1);
}

}  // namespace
