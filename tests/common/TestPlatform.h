#pragma once

#include <functional>
#include <memory>
#include <string>

#include "pelora/desktop/EventRunLoop.h"
#include "pelora/platform/Services.h"
#include "pelora/testing/TestEnvironment.h"

namespace pelora::testing {

// The SDK's own tests' platform: TestEnvironment (fake network, manual clock, everything
// deterministic, the SDK shut down at destruction), or, with NetworkKind::Loopback (the
// backends' own tests and end-to-end flows), the same with an EventRunLoop on a manual clock
// (default) or the system clock, and the real libcurl sessions (talk only to a
// LoopbackServer).
//
// Waiting: with a manual clock, time moves only through advance(); network completions
// arrive in real time. waitFor() pumps the loop and waits on its wake descriptor, bounded in
// real seconds and independent of the manual clock, so a test can both wait for a server's
// answer and keep full control of timers.
class TestPlatform : public TestEnvironment {
  public:
    enum class ClockKind { Manual, System };
    enum class NetworkKind { Loopback, Fake };

    explicit TestPlatform(ClockKind clock = ClockKind::Manual,
                          NetworkKind network = NetworkKind::Loopback,
                          platform::SdkOptions options = {});
    explicit TestPlatform(NetworkKind network, platform::SdkOptions options = {})
        : TestPlatform(ClockKind::Manual, network, std::move(options)) {}

    // Runs the loop until `predicate` holds or `realSeconds` of real time passed; true when
    // the predicate holds. Does not move a manual clock.
    bool waitFor(const std::function<bool()>& predicate, double realSeconds = 5.0);
    bool runUntil(const std::function<bool()>& predicate, double realSeconds = 5.0) {
        return waitFor(predicate, realSeconds);
    }
    // As TestEnvironment::advance; with a real run loop it steps the manual clock from timer to
    // timer itself, and with the system clock it only pumps.
    size_t advance(double seconds);
};

}  // namespace pelora::testing
