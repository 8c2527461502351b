// Rewriting one tracking URL: the one-scan replacedString against 24 replace-all passes.
// The ratio is reported by BM_ReplacedString_Ratio in the same run.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "track/PeloraTrackReplace.h"
#include "track/PeloraTrackReplaceReference.h"

namespace {

// About 300 bytes with six tokens, shaped like the URLs ad servers send.
std::string trackingUrl() {
    std::string url =
        "https://track.ads.example.com/v2/event/impression?adid=8f3c2a91d7e44b0f9a6c"
        "&slot=splash-home-01&rw=__REQ_WIDTH__&rh=__REQ_HEIGHT__&w=__WIDTH__&h=__HEIGHT__"
        "&ts=__TS__&dx=__DOWN_X__&sdk=1.0&os=ios&osv=14.2&model=iPhone&net=wifi"
        "&sign=0a1b2c3d4e5f60718293a4b5c6d7e8f90a1b2c3d4e5f6071&cb=9347211&v=2";
    return url;
}

PeloraTrackReplace record() {
    PeloraTrackReplace r;
    r.__REQ_WIDTH__ = 750;
    r.__REQ_HEIGHT__ = 1334;
    r.__WIDTH__ = 375;
    r.__HEIGHT__ = 667;
    r.__TS__ = 1767225600123;
    r.__EVENT_TIME_START__ = r.__TS__;
    r.__EVENT_TIME_END__ = r.__TS__;
    r.__ACTION_ID__ = -1;
    return r;
}

void BM_ReplacedString_OneScan(benchmark::State& state) {
    const auto url = trackingUrl();
    const auto r = record();
    for (auto _ : state) benchmark::DoNotOptimize(r.replacedString(url));
    state.SetLabel(std::to_string(url.size()) + " bytes");
}
BENCHMARK(BM_ReplacedString_OneScan);

void BM_ReplacedString_24Passes(benchmark::State& state) {
    const auto url = trackingUrl();
    const auto r = record();
    for (auto _ : state) benchmark::DoNotOptimize(replacedStringByPasses(r, url));
}
BENCHMARK(BM_ReplacedString_24Passes);

// Both ways timed back to back in one benchmark, so the ratio comes from the same run.
void BM_ReplacedString_Ratio(benchmark::State& state) {
    const auto url = trackingUrl();
    const auto r = record();
    if (r.replacedString(url) != replacedStringByPasses(r, url)) {
        state.SkipWithError("outputs differ");
        return;
    }
    using clock = std::chrono::steady_clock;
    constexpr int kInner = 2000;
    double fast = 0, slow = 0;
    for (auto _ : state) {
        auto t0 = clock::now();
        for (int i = 0; i < kInner; ++i) benchmark::DoNotOptimize(r.replacedString(url));
        auto t1 = clock::now();
        for (int i = 0; i < kInner; ++i) benchmark::DoNotOptimize(replacedStringByPasses(r, url));
        auto t2 = clock::now();
        fast += std::chrono::duration<double>(t1 - t0).count();
        slow += std::chrono::duration<double>(t2 - t1).count();
    }
    state.counters["one_scan_ns"] = fast / static_cast<double>(state.iterations()) / kInner * 1e9;
    state.counters["passes_ns"] = slow / static_cast<double>(state.iterations()) / kInner * 1e9;
    state.counters["speedup"] = slow / fast;
}
BENCHMARK(BM_ReplacedString_Ratio)->Iterations(50);

}  // namespace

BENCHMARK_MAIN();
