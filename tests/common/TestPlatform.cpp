#include "TestPlatform.h"

#include <poll.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>

#include "pelora/desktop/CurlHttpSession.h"
#include "pelora/desktop/EventRunLoop.h"

namespace pelora::testing {

TestPlatform::TestPlatform(ClockKind kind, NetworkKind network, platform::SdkOptions sdkOptions)
    : TestEnvironment(std::move(sdkOptions)) {
    if (network == NetworkKind::Fake) return;
    if (kind == ClockKind::System) {
        manualClock.reset();
        clock = std::make_shared<platform::SystemClock>();
    }
    manualLoop.reset();
    fake.reset();
    loop = std::make_shared<desktop::EventRunLoop>(clock);
    http = std::make_shared<desktop::CurlHttpSessionFactory>();
    opener = std::make_shared<RecordingUrlOpener>(loop);
    urlOpener = opener;
    mediaPlayer = std::make_shared<ScriptedMediaPlayerService>(loop);
    install();
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
    if (manualLoop) return TestEnvironment::advance(seconds);
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
