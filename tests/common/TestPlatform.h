#pragma once

#include <functional>
#include <memory>
#include <string>

#include "pelora/desktop/DesktopFileSystem.h"
#include "pelora/desktop/EventRunLoop.h"
#include "pelora/platform/Services.h"
#include "pelora/testing/FakeDeviceInfo.h"
#include "pelora/testing/FakeHttpSession.h"
#include "pelora/testing/FakeReachability.h"
#include "pelora/testing/ManualClock.h"
#include "pelora/testing/ManualRunLoop.h"
#include "pelora/testing/RecordingUrlOpener.h"
#include "pelora/testing/ScriptedMediaPlayer.h"

namespace pelora::testing {

// A complete set of platform services for one test, installed by the constructor.
//
// With NetworkKind::Fake (what SDK tests use) everything is deterministic and on one thread:
//  - clock: a ManualClock; mainRunLoop: a ManualRunLoop on it (`manualLoop`);
//  - http: `fake`, a FakeHttpSessionFactory (answers by URL, pending requests, the requests
//    as sent), whose completions arrive through the loop.
// With NetworkKind::Loopback (the backends' own tests and end-to-end flows):
//  - clock: a ManualClock (default) or the system clock;
//  - mainRunLoop: an EventRunLoop on that clock;
//  - http: the real libcurl session factory (talk only to a LoopbackServer).
// Both:
//  - files: DesktopFileSystem rooted in a fresh temporary directory, removed at destruction;
//  - device: FakeDeviceInfo with realistic defaults; reachability: FakeReachabilityService;
//  - imageDecoder: the stb decoder; urlOpener: a RecordingUrlOpener; a test may replace
//    either and call install() again;
//  - mediaPlayer: a ScriptedMediaPlayerService on the loop.
// Nothing is restored at destruction: every test installs its own set.
//
// Waiting: with a manual clock, time moves only through advance(); network completions
// arrive in real time. waitFor() pumps the loop and waits on its wake descriptor, bounded in
// real seconds and independent of the manual clock, so a test can both wait for a server's
// answer and keep full control of timers.
class TestPlatform {
  public:
    enum class ClockKind { Manual, System };
    enum class NetworkKind { Loopback, Fake };

    explicit TestPlatform(ClockKind clock = ClockKind::Manual,
                          NetworkKind network = NetworkKind::Loopback);
    explicit TestPlatform(NetworkKind network) : TestPlatform(ClockKind::Manual, network) {}
    ~TestPlatform();
    TestPlatform(const TestPlatform&) = delete;
    TestPlatform& operator=(const TestPlatform&) = delete;

    // Re-installs the members as the platform services (after a test replaced one).
    void install();
    platform::Services services() const;

    // Runs the loop until `predicate` holds or `realSeconds` of real time passed; true when
    // the predicate holds. Does not move a manual clock.
    bool waitFor(const std::function<bool()>& predicate, double realSeconds = 5.0);
    bool runUntil(const std::function<bool()>& predicate, double realSeconds = 5.0) {
        return waitFor(predicate, realSeconds);
    }
    // Moves the manual clock forward by `seconds`, stopping at every timer's due time and
    // pumping the loop there, so timers fire in order and see the time they were due at.
    // With the system clock it only pumps. Returns the number of tasks and timers run.
    size_t advance(double seconds);
    // Runs whatever is due now.
    size_t pump();
    // Runs what is due; true when the fake network holds no unanswered request.
    bool settle();

    std::string rootDirectory() const { return root_; }
    std::string cachesDirectory() const { return root_ + "/Caches"; }

    std::shared_ptr<ManualClock> manualClock;  // null with ClockKind::System
    std::shared_ptr<platform::Clock> clock;
    std::shared_ptr<platform::RunLoop> loop;
    std::shared_ptr<ManualRunLoop> manualLoop;           // NetworkKind::Fake only
    std::shared_ptr<platform::HttpSessionFactory> http;  // `traffic` or `fake`
    std::shared_ptr<FakeHttpSessionFactory> fake;        // NetworkKind::Fake only
    std::shared_ptr<desktop::DesktopFileSystem> files;
    std::shared_ptr<FakeDeviceInfo> device;
    std::shared_ptr<FakeReachabilityService> reachability;
    // Set by the fixtures of the features that need them.
    // urlOpener starts as `opener`, a RecordingUrlOpener on this loop (success by default).
    std::shared_ptr<RecordingUrlOpener> opener;
    std::shared_ptr<platform::UrlOpener> urlOpener;
    std::shared_ptr<platform::ImageDecoder> imageDecoder;
    std::shared_ptr<ScriptedMediaPlayerService> mediaPlayer;

  private:
    std::string root_;
};

}  // namespace pelora::testing
