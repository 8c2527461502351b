#pragma once

#include <memory>
#include <string>

#include "pelora/desktop/DesktopFileSystem.h"
#include "pelora/platform/Export.h"
#include "pelora/platform/Services.h"
#include "pelora/testing/FakeDeviceInfo.h"
#include "pelora/testing/FakeHttpSession.h"
#include "pelora/testing/FakeReachability.h"
#include "pelora/testing/ManualClock.h"
#include "pelora/testing/ManualRunLoop.h"
#include "pelora/testing/RecordingUrlOpener.h"
#include "pelora/testing/ScriptedMediaPlayer.h"

namespace pelora::testing {

// The one-line set-up of a test that uses the SDK: a complete, deterministic platform,
// installed by the constructor with the SDK options given.
//  - clock: `manualClock`, a ManualClock; mainRunLoop: `manualLoop`, a ManualRunLoop on it;
//    time moves only through advance();
//  - http: `fake`, a FakeHttpSessionFactory (answers by URL, pending requests, the requests as
//    sent), whose completions arrive through the loop;
//  - files: the Linux file system rooted in a fresh scratch directory (caches in
//    rootDirectory() + "/Caches"); imageDecoder: the Linux (stb) decoder;
//  - device: FakeDeviceInfo; reachability: FakeReachabilityService; urlOpener: `opener`, a
//    RecordingUrlOpener on the loop; mediaPlayer: a ScriptedMediaPlayerService on the loop.
// A test may replace a member and call install() again.
//
// The destructor lets queued work run, shuts the SDK down (PeloraSDKManager::shutdown():
// sessions, the manager singleton, the resource bundle and the video cache index), puts the
// SDK options back to their defaults and removes the scratch directory, so the next test
// starts from nothing.
class PELORA_EXPORT TestEnvironment {
  public:
    explicit TestEnvironment(platform::SdkOptions options = {});
    virtual ~TestEnvironment();
    TestEnvironment(const TestEnvironment&) = delete;
    TestEnvironment& operator=(const TestEnvironment&) = delete;

    // Installs the members (and `options`) as the platform services.
    void install();
    platform::Services services() const;

    // Moves the manual clock forward by `seconds`, stopping at every timer's due time and
    // pumping the loop there. Returns the number of tasks and timers run.
    size_t advance(double seconds);
    // Runs whatever is due now.
    size_t pump();
    // Runs what is due; true when the fake network holds no unanswered request.
    bool settle();

    std::string rootDirectory() const { return root_; }
    std::string cachesDirectory() const { return root_ + "/Caches"; }

    platform::SdkOptions options;
    std::shared_ptr<ManualClock> manualClock;
    std::shared_ptr<platform::Clock> clock;
    std::shared_ptr<platform::RunLoop> loop;
    std::shared_ptr<ManualRunLoop> manualLoop;
    std::shared_ptr<platform::HttpSessionFactory> http;
    std::shared_ptr<FakeHttpSessionFactory> fake;
    std::shared_ptr<desktop::DesktopFileSystem> files;
    std::shared_ptr<FakeDeviceInfo> device;
    std::shared_ptr<FakeReachabilityService> reachability;
    std::shared_ptr<RecordingUrlOpener> opener;
    std::shared_ptr<platform::UrlOpener> urlOpener;
    std::shared_ptr<platform::ImageDecoder> imageDecoder;
    std::shared_ptr<ScriptedMediaPlayerService> mediaPlayer;

  private:
    std::string root_;
};

}  // namespace pelora::testing
