#pragma once

// The platform services the SDK benchmarks run on, installed once per program: a fake device
// and a reachable network (so figures do not depend on the machine), the SDK's application
// id set, and the log discarded (the transport logs each fetch's code; a host keeps such
// lines off the terminal, and writing them to one would measure the terminal).

#include <memory>
#include <string>
#include <string_view>

#include "pelora/PeloraSDKManager.h"
#include "pelora/desktop/CurlHttpSession.h"
#include "pelora/desktop/EventRunLoop.h"
#include "pelora/platform/Log.h"
#include "pelora/platform/Services.h"
#include "pelora/testing/FakeDeviceInfo.h"
#include "pelora/testing/FakeReachability.h"
#include "pelora/testing/ManualClock.h"

namespace bench {

enum class Network { None, Loopback };

// Returns the main run loop. `Loopback` adds the libcurl sessions and runs on the system
// clock; `None` stays on a manual clock. The first call decides the services for the whole
// program; each call installs them with its SDK options.
inline std::shared_ptr<pelora::platform::RunLoop> installBenchPlatform(
    Network network, pelora::platform::SdkOptions options = {}) {
    static std::shared_ptr<pelora::platform::RunLoop> loop;
    static pelora::platform::Services s;
    if (loop) {
        s.options = std::move(options);
        pelora::platform::installServices(s);
        return loop;
    }
    s.options = std::move(options);
    std::shared_ptr<pelora::platform::Clock> clock;
    if (network == Network::Loopback) {
        clock = std::make_shared<pelora::platform::SystemClock>();
    } else {
        clock = std::make_shared<pelora::testing::ManualClock>();
    }
    s.clock = clock;
    loop = std::make_shared<pelora::desktop::EventRunLoop>(clock);
    s.mainRunLoop = loop;
    if (network == Network::Loopback) {
        s.http = std::make_shared<pelora::desktop::CurlHttpSessionFactory>();
    }
    s.device = std::make_shared<pelora::testing::FakeDeviceInfo>();
    auto reach = std::make_shared<pelora::testing::FakeReachabilityService>();
    reach->setFlags(pelora::platform::ReachabilityFlags::kReachable);
    s.reachability = reach;
    pelora::platform::installServices(s);
    PeloraSDKManager::setAppID(std::string("bench-app-0001"));
    pelora::platform::setLogSink([](pelora::platform::LogLevel, std::string_view) {});
    return loop;
}

}  // namespace bench
