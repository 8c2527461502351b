// From a host's first SDK call to its first ad request on the wire: the time and the memory
// that PeloraSDKManager::setAppID and a native load cost a host that starts up, on the real
// Linux platform (event loop, libcurl) against a loopback server.
//
// setAppID creates the SDK's process-wide state once, so each process measures one start:
// run the program several times (docs/PERFORMANCE.md has the loop) and take the median.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>

#include "LoopbackServer.h"
#include "pelora/Pelora.h"
#include "pelora/desktop/DesktopPlatform.h"
#include "pelora/platform/Log.h"

namespace {

using Clock = std::chrono::steady_clock;

// Resident memory of this process in kilobytes.
long residentKB() {
    std::ifstream statm("/proc/self/statm");
    long size = 0, resident = 0;
    statm >> size >> resident;
    return resident * (::sysconf(_SC_PAGESIZE) / 1024);
}

void BM_SetAppIDToFirstAdRequest(benchmark::State& state) {
    pelora::testing::LoopbackServer server(pelora::testing::LoopbackServer::Options{});
    std::atomic<int64_t> arrivedNs{0};
    server.on("/api/v1/advert/fetch", [&](const pelora::testing::RecordedRequest&) {
        arrivedNs = Clock::now().time_since_epoch().count();
        return pelora::testing::LoopbackResponse::json(R"({"code":0,"data":{"ads":[]}})");
    });
    pelora::desktop::DesktopOptions options;
    options.cachesDirectory = "/tmp/pelora-bench-startup";
    options.bundleInfo = {{pelora::platform::kCFBundleIdentifier, "com.example.startup"}};
    options.sdk.serverOrigin = server.baseUrl();
    auto services = pelora::desktop::installDesktopPlatform(options);
    pelora::platform::setLogSink([](pelora::platform::LogLevel, std::string_view) {});
    auto& loop = *services.mainRunLoop;

    for (auto _ : state) {
        const long rssBefore = residentKB();
        const auto start = Clock::now();
        PeloraSDKManager::setAppID("startup-bench");
        auto slot = std::make_shared<PeloraDataFlowSlot>();
        slot->slotId = "native-demo";
        auto manager = PeloraDataFlowAdManager::initWithSlot(slot);
        manager->loadAdData();
        loop.runUntil([&] { return arrivedNs.load() != 0; }, loop.clock().monotonicSeconds() + 10);
        const long rssAfter = residentKB();
        if (arrivedNs == 0) {
            state.SkipWithError("the request never arrived");
            return;
        }
        const double seconds = std::chrono::duration<double>(
                                   Clock::time_point(Clock::duration(arrivedNs.load())) - start)
                                   .count();
        state.SetIterationTime(seconds);
        state.counters["rss_growth_kB"] = static_cast<double>(rssAfter - rssBefore);
        state.counters["rss_after_kB"] = static_cast<double>(rssAfter);
    }
}
// One start per process: see the note at the top.
BENCHMARK(BM_SetAppIDToFirstAdRequest)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
