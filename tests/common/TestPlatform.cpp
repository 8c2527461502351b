#include "TestPlatform.h"

#include <poll.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>

#include "pelora/desktop/CurlHttpSession.h"
#include "pelora/desktop/StbImageDecoder.h"

namespace pelora::testing {

TestPlatform::TestPlatform(ClockKind kind, NetworkKind network) {
    std::string templ = (std::filesystem::temp_directory_path() / "pelora-test-XXXXXX").string();
    if (::mkdtemp(templ.data())) root_ = templ;

    if (kind == ClockKind::Manual || network == NetworkKind::Fake) {
        manualClock = std::make_shared<ManualClock>();
        clock = manualClock;
    } else {
        clock = std::make_shared<platform::SystemClock>();
    }
    if (network == NetworkKind::Fake) {
        manualLoop = std::make_shared<ManualRunLoop>(manualClock);
        loop = manualLoop;
        fake = std::make_shared<FakeHttpSessionFactory>(loop, root_ + "/tmp");
        http = fake;
    } else {
        loop = std::make_shared<desktop::EventRunLoop>(clock);
        http = std::make_shared<desktop::CurlHttpSessionFactory>();
    }
    desktop::DesktopFileSystem::Options fileOptions;
    fileOptions.bundleIdentifier = "com.example.demohost";
    fileOptions.cachesDirectoryOverride = cachesDirectory();
    fileOptions.temporaryDirectoryOverride = root_ + "/tmp";
    std::filesystem::create_directories(root_ + "/tmp");
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

TestPlatform::~TestPlatform() {
    // Answers still queued in the loop hold completions that hold the loop: let them run.
    if (manualLoop) manualLoop->pump();
    std::error_code ec;
    if (!root_.empty()) std::filesystem::remove_all(root_, ec);
}

platform::Services TestPlatform::services() const {
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
    return s;
}

void TestPlatform::install() {
    platform::installServices(services());
}

size_t TestPlatform::pump() {
    return loop->pump();
}

bool TestPlatform::settle() {
    loop->pump();
    return !fake || fake->pendingCount() == 0;
}

bool TestPlatform::waitFor(const std::function<bool()>& predicate, double realSeconds) {
    if (manualLoop) {
        // Nothing here happens in real time: what is due has run once the loop is pumped.
        manualLoop->pump();
        return predicate();
    }
    using std::chrono::steady_clock;
    const auto deadline = steady_clock::now() + std::chrono::duration_cast<steady_clock::duration>(
                                                    std::chrono::duration<double>(realSeconds));
    for (;;) {
        loop->pump();
        if (predicate()) return true;
        const auto now = steady_clock::now();
        if (now >= deadline) return false;
        double wait = std::chrono::duration<double>(deadline - now).count();
        if (!manualClock) {
            double timer = loop->nextTimerDelay();
            if (timer >= 0) wait = std::min(wait, timer);
        }
        // The predicate may watch state outside the loop (a server's request list), so the
        // wait is also capped to re-check it regularly.
        wait = std::min(wait, 0.01);
        pollfd pfd{loop->wakeFd(), POLLIN, 0};
        ::poll(&pfd, 1, static_cast<int>(std::ceil(wait * 1000.0)));
    }
}

size_t TestPlatform::advance(double seconds) {
    if (manualLoop) return manualLoop->advance(seconds);
    size_t ran = loop->pump();
    if (!manualClock) return ran;
    double remaining = seconds;
    // Bounded so that a timer rescheduling itself at zero delay cannot hold the test forever.
    for (int steps = 0; steps < 1000000; ++steps) {
        double next = loop->nextTimerDelay();
        if (next < 0 || next > remaining) {
            manualClock->advance(remaining);
            ran += loop->pump();
            return ran;
        }
        manualClock->advance(next);
        remaining -= next;
        ran += loop->pump();
    }
    return ran;
}

}  // namespace pelora::testing
