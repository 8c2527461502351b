// Building an ad request (query and body records filled from the platform) and turning it
// into what goes on the wire (query string and JSON body), plus the query escaping alone.

#include <benchmark/benchmark.h>

#include <memory>

#include "BenchPlatform.h"
#include "core/PeloraNetwork.h"
#include "core/PeloraRequest.h"
#include "support/PeloraYYModel.h"

namespace {

void BM_BuildAndSerializeRequest(benchmark::State& state) {
    bench::installBenchPlatform(bench::Network::None);
    const std::string url = PeloraConstConfig::urlfetchAd();
    PeloraRequestModifier modifier = [](pelora::platform::HttpRequest& r) {
        r.timeoutInterval = 3;
    };
    size_t bytes = 0;
    for (auto _ : state) {
        auto query = PeloraUrlQuery::init();
        auto body = PeloraReqBody::init();
        body->slot->slotId = "native-slot-1";
        body->slot->adType = 5;
        body->slot->position = 3;
        body->slot->width = 640;
        body->slot->height = 360;
        auto request = PeloraNetwork::adFetchRequest(url, query.get(), body.get(), modifier);
        bytes = request.url.size() + request.body.size();
        benchmark::DoNotOptimize(request);
    }
    state.counters["wire_bytes"] = static_cast<double>(bytes);
}
BENCHMARK(BM_BuildAndSerializeRequest);

// The same work split in its parts, to tell where the time goes.
void BM_BuildRecordsOnly(benchmark::State& state) {
    bench::installBenchPlatform(bench::Network::None);
    for (auto _ : state) {
        auto query = PeloraUrlQuery::init();
        auto body = PeloraReqBody::init();
        benchmark::DoNotOptimize(query);
        benchmark::DoNotOptimize(body);
    }
}
BENCHMARK(BM_BuildRecordsOnly);

void BM_SerializeOnly(benchmark::State& state) {
    bench::installBenchPlatform(bench::Network::None);
    auto query = PeloraUrlQuery::init();
    auto body = PeloraReqBody::init();
    const std::string url = PeloraConstConfig::urlfetchAd();
    for (auto _ : state) {
        auto request = PeloraNetwork::adFetchRequest(url, query.get(), body.get(), {});
        benchmark::DoNotOptimize(request);
    }
}
BENCHMARK(BM_SerializeOnly);

void BM_QueryEncodingOnly(benchmark::State& state) {
    bench::installBenchPlatform(bench::Network::None);
    auto dict = plyy_modelToJSONObject(*PeloraUrlQuery::init());
    for (auto _ : state) {
        auto encoded = PeloraNetwork::urlEncodeQuryWithDictionary(dict);
        benchmark::DoNotOptimize(encoded);
    }
}
BENCHMARK(BM_QueryEncodingOnly);

void BM_PercentEscape300ByteUrl(benchmark::State& state) {
    std::string url =
        "https://track.example.com/v1/impression?adId=AD-000123&slot=native slot&w=__WIDTH__"
        "&h=__HEIGHT__&ts=__TS__&down_x=__DOWN_X__&down_y=__DOWN_Y__&up_x=__UP_X__&up_y=__UP_Y__"
        "&redirect=https://landing.example.com/path/to/page?utm_source=pelora&utm_medium=native"
        "&utm_campaign=spring sale 2026&sig=3F2A9C0B77E1D4A5B6C7D8E9F0A1B2C3";
    url.resize(300, 'x');
    for (auto _ : state) {
        auto escaped = pl_AFPercentEscapedStringFromString(url);
        benchmark::DoNotOptimize(escaped);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 300);
}
BENCHMARK(BM_PercentEscape300ByteUrl);

}  // namespace

BENCHMARK_MAIN();
