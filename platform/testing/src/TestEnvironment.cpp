#include "pelora/testing/TestEnvironment.h"

#include <stdlib.h>

#include <filesystem>

#include "pelora/PeloraSDKManager.h"
#include "pelora/desktop/DesktopFileSystem.h"
#include "pelora/desktop/StbImageDecoder.h"

namespace pelora::testing {

TestEnvironment::TestEnvironment(platform::SdkOptions sdkOptions) : options(std::move(sdkOptions)) {
    std::string templ = (std::filesystem::temp_directory_path() / "pelora-test-XXXXXX").string();
    if (::mkdtemp(templ.data())) root_ = templ;
    std::filesystem::create_directories(root_ + "/tmp");

    manualClock = std::make_shared<ManualClock>();
    clock = manualClock;
    manualLoop = std::make_shared<ManualRunLoop>(manualClock);
    loop = manualLoop;
    fake = std::make_shared<FakeHttpSessionFactory>(loop, root_ + "/tmp");
    http = fake;
    desktop::DesktopFileSystem::Options fileOptions;
    fileOptions.bundleIdentifier = "com.example.demohost";
    fileOptions.cachesDirectoryOverride = cachesDirectory();
    fileOptions.temporaryDirectoryOverride = root_ + "/tmp";
    files = std::make_shared<desktop::DesktopFileSystem>(fileOptions);
    device = std::make_shared<FakeDeviceInfo>();
    device->bundlePath = root_ + "/Bundle";
    reachability = std::make_shared<FakeReachabilityService>();
    opener = std::make_shared<RecordingUrlOpener>(loop);
    urlOpener = opener;
    imageDecoder = std::make_shared<desktop::StbImageDecoder>();
    mediaPlayer = std::make_shared<ScriptedMediaPlayerService>(loop);
    install();
}

TestEnvironment::~TestEnvironment() {
    // Answers still queued in the loop hold completions that hold the loop: let them run, and
    // the cancellations the shutdown queues too.
    loop->pump();
    PeloraSDKManager::shutdown();
    loop->pump();
    // The services stay (objects released after this may still post to the loop), with the
    // SDK's options back to their defaults.
    options = {};
    install();
    std::error_code ec;
    if (!root_.empty()) std::filesystem::remove_all(root_, ec);
}

platform::Services TestEnvironment::services() const {
    platform::Services s;
    s.clock = clock;
    s.mainRunLoop = loop;
    s.http = http;
    s.files = files;
    s.device = device;
    s.reachability = reachability;
    s.urlOpener = urlOpener;
    s.imageDecoder = imageDecoder;
    s.mediaPlayer = mediaPlayer;
    s.options = options;
    return s;
}

void TestEnvironment::install() {
    platform::installServices(services());
}

size_t TestEnvironment::pump() {
    return loop->pump();
}

size_t TestEnvironment::advance(double seconds) {
    return manualLoop->advance(seconds);
}

bool TestEnvironment::settle() {
    loop->pump();
    return !fake || fake->pendingCount() == 0;
}

}  // namespace pelora::testing
