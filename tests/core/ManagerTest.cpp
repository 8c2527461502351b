// The host's first point of contact: one manager per process, the inert public init, the
// identity constants, the fetch URL and the loader base's diagnostic line.

#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "core/PeloraAppExt.h"
#include "pelora/PeloraNetReachable.h"
#include "pelora/PeloraSDKManager.h"
#include "pelora/desktop/EventRunLoop.h"
#include "pelora/platform/Device.h"
#include "pelora/platform/Log.h"
#include "pelora/platform/Reachability.h"
#include "pelora/platform/Services.h"
#include "pelora/testing/ManualClock.h"

namespace {

using namespace pelora::platform;

class CountingHandle : public ReachabilityHandle {
  public:
    explicit CountingHandle(int* scheduled) : scheduled_(scheduled) {}
    bool getFlags(uint32_t& flags) override {
        flags = ReachabilityFlags::kReachable;
        return true;
    }
    bool setCallback(std::function<void(uint32_t)>) override { return true; }
    bool scheduleWithRunLoop(RunLoop&) override {
        ++*scheduled_;
        return true;
    }
    void unscheduleFromRunLoop(RunLoop&) override {}

  private:
    int* scheduled_;
};

class CountingReachability : public ReachabilityService {
  public:
    std::vector<std::string> names;
    int scheduled = 0;
    std::unique_ptr<ReachabilityHandle> createWithName(const std::string& hostName) override {
        names.push_back(hostName);
        return std::make_unique<CountingHandle>(&scheduled);
    }
    std::unique_ptr<ReachabilityHandle> createWithAddress(const SocketAddressRecord&) override {
        return nullptr;
    }
};

class BundleDevice : public DeviceInfo {
  public:
    std::optional<std::string> identifierForVendor() override { return std::nullopt; }
    std::string advertisingIdentifier() override { return "00000000-0000-0000-0000-000000000000"; }
    std::string systemVersion() override { return "14.2"; }
    std::string model() override { return "iPhone"; }
    Rect screenBounds() override { return makeRect(0, 0, 375, 667); }
    double screenScale() override { return 2; }
    int64_t statusBarOrientation() override { return 1; }
    std::optional<std::string> infoValue(const std::string& key) override {
        if (key == kCFBundleName) return "DemoHost";
        if (key == kCFBundleIdentifier) return "com.example.demohost";
        if (key == kCFBundleShortVersionString) return "2.5.0";
        return std::nullopt;  // no CFBundleVersion
    }
    std::string makeUUID() override { return "00000000-0000-0000-0000-000000000001"; }
    std::optional<std::string> mobileCountryCode() override { return std::nullopt; }
    std::optional<std::string> mobileNetworkCode() override { return std::nullopt; }
    std::optional<std::string> currentRadioAccessTechnology() override { return std::nullopt; }
    std::string mainBundlePath() override { return "."; }
};

std::shared_ptr<CountingReachability> installFakes() {
    auto clock = std::make_shared<pelora::testing::ManualClock>();
    auto reach = std::make_shared<CountingReachability>();
    Services s;
    s.clock = clock;
    s.mainRunLoop = std::make_shared<pelora::desktop::EventRunLoop>(clock);
    s.device = std::make_shared<BundleDevice>();
    s.reachability = reach;
    installServices(s);
    return reach;
}

// These checks need a process in which nothing has touched the singleton yet; the
// "threadsafe" style runs the statement in a freshly started copy of this program.
class FreshProcess : public ::testing::Test {
  protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(FreshProcess, AppIDIsAbsentUntilSetAndThenReplaced) {
    EXPECT_EXIT(
        {
            installFakes();
            if (PeloraSDKManager::appID().has_value()) std::exit(1);
            PeloraSDKManager::setAppID(std::string("app-1"));
            if (PeloraSDKManager::appID() != "app-1") std::exit(2);
            PeloraSDKManager::setAppID(std::string("app-2"));
            if (PeloraSDKManager::shareManager()->instanceAppID() != "app-2") std::exit(3);
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(FreshProcess, FirstUseStartsOneMonitorForTheProbeHost) {
    EXPECT_EXIT(
        {
            auto reach = installFakes();
            auto a = PeloraSDKManager::shareManager();
            auto b = PeloraSDKManager::shareManager();
            if (a != b || !a->reachable()) std::exit(1);
            if (reach->names.size() != 1 || reach->names[0].empty()) std::exit(2);
            if (reach->scheduled != 1) std::exit(3);
            if (a->reachable()->localizeCurrentReachabilityStatus() != "wifi") std::exit(4);
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(FreshProcess, TwoThreadsAtOnceGetTheSameManager) {
    EXPECT_EXIT(
        {
            installFakes();
            std::shared_ptr<PeloraSDKManager> seen[2];
            std::mutex gate;
            gate.lock();
            std::thread t1([&] {
                std::lock_guard g(gate);
                seen[0] = PeloraSDKManager::shareManager();
            });
            std::thread t2([&] {
                { std::lock_guard g(gate); }
                seen[1] = PeloraSDKManager::shareManager();
            });
            gate.unlock();
            t1.join();
            t2.join();
            std::exit(seen[0] && seen[0] == seen[1] ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(Manager, PublicInitIsInert) {
    auto reach = installFakes();
    auto own = PeloraSDKManager::init();
    ASSERT_TRUE(own);
    EXPECT_EQ(own->reachable(), nullptr);
    EXPECT_FALSE(own->instanceAppID().has_value());
    EXPECT_NE(own, PeloraSDKManager::shareManager());
    own->setInstanceAppID(std::string("mine"));
    EXPECT_NE(PeloraSDKManager::appID(), std::optional<std::string>("mine"));
    installServices(Services{});
}

TEST(ConstConfig, FetchUrlIsTheOriginPlusTheFetchPath) {
    std::string origin = PeloraConstConfig::baseUrl();
    EXPECT_EQ(origin.rfind("https://", 0), 0u);
    EXPECT_EQ(origin.find('/', 8), std::string::npos) << "origin must carry no path";
    EXPECT_EQ(PeloraConstConfig::urlfetchAd(), origin + "/api/v1/advert/fetch");

    PeloraConstConfig::setBaseUrlOverride(std::string("http://127.0.0.1:8080"));
    EXPECT_EQ(PeloraConstConfig::urlfetchAd(), "http://127.0.0.1:8080/api/v1/advert/fetch");
    PeloraConstConfig::setBaseUrlOverride(std::nullopt);
    EXPECT_EQ(PeloraConstConfig::baseUrl(), origin);
}

TEST(AppExt, BundleValuesArePassedThroughUnchanged) {
    installFakes();
    EXPECT_EQ(PeloraAppExt::appBundleName(), "DemoHost");
    EXPECT_EQ(PeloraAppExt::appBundleID(), "com.example.demohost");
    EXPECT_EQ(PeloraAppExt::appVersion(), "2.5.0");
    EXPECT_FALSE(PeloraAppExt::appBuildVersion().has_value());
    installServices(Services{});
}

class RecordingLoader : public PeloraConfig {
  public:
    RecordingLoader() : PeloraConfig("RecordingLoader") {}
    void configInit() override { configured = true; }
    bool configured = false;
};

TEST(Config, InitRunsConfigInitAndDestructionLogsTheClassName) {
    std::vector<std::string> lines;
    std::mutex m;
    setLogSink([&](LogLevel, std::string_view message) {
        std::lock_guard g(m);
        lines.emplace_back(message);
    });
    {
        auto base = PeloraConfig::init();
        auto loader = PeloraConfig::initAs<RecordingLoader>();
        EXPECT_TRUE(loader->configured);
        loader->requestData();  // empty hooks do nothing
        loader->requestQuery(nullptr, nullptr);
    }
    setLogSink(nullptr);
    EXPECT_EQ(lines,
              (std::vector<std::string>{"dealloc: RecordingLoader", "dealloc: PeloraConfig"}));
}

}  // namespace
