// Main-thread cost of an ad-fetch completion (parse, map, stamp the slot size) for realistic
// answers, next to a bare parse of the same bytes. The ratio counter is what to watch: the
// mapping should stay within a small multiple of the parse.

#include <benchmark/benchmark.h>
#include <pelora/PeloraApiAd.h>
#include <simdjson.h>

#include <chrono>
#include <map>

#include "AdAnswerFixtures.h"
#include "core/PeloraNetwork.h"
#include "support/PeloraYYModel.h"

namespace {

const std::string& answer(int ads) {
    static std::map<int, std::string> bodies;
    auto& body = bodies[ads];
    if (body.empty()) body = pelora::fixtures::adAnswer(ads);
    return body;
}

void BM_RawParse(benchmark::State& state) {
    const std::string& body = answer(static_cast<int>(state.range(0)));
    simdjson::dom::parser parser;
    for (auto _ : state) {
        simdjson::dom::element root;
        if (parser.parse(body).get(root)) state.SkipWithError("parse failed");
        benchmark::DoNotOptimize(root);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * body.size()));
    state.counters["bytes"] = static_cast<double>(body.size());
}

// Each iteration parses the body bare and then runs the completion on it, timing both, so
// the two figures share the machine's state and the ratio survives a busy machine.
void BM_FetchCompletion(benchmark::State& state) {
    const std::string& body = answer(static_cast<int>(state.range(0)));
    simdjson::dom::parser parser;
    double parseNs = 0;
    double completionNs = 0;
    double releaseNs = 0;
    for (auto _ : state) {
        const auto t0 = std::chrono::steady_clock::now();
        simdjson::dom::element root;
        if (parser.parse(body).get(root)) state.SkipWithError("parse failed");
        benchmark::DoNotOptimize(root);
        const auto t1 = std::chrono::steady_clock::now();
        auto envelope = PeloraNetwork::mapAdFetchAnswer(body, 750, 1334);
        benchmark::DoNotOptimize(envelope);
        const auto t2 = std::chrono::steady_clock::now();
        envelope.reset();  // later, when the loader lets go of the ads; reported apart
        const auto t3 = std::chrono::steady_clock::now();
        parseNs += std::chrono::duration<double, std::nano>(t1 - t0).count();
        completionNs += std::chrono::duration<double, std::nano>(t2 - t1).count();
        releaseNs += std::chrono::duration<double, std::nano>(t3 - t2).count();
    }
    const auto n = static_cast<double>(state.iterations());
    state.counters["parse_us"] = parseNs / n / 1000.0;
    state.counters["completion_us"] = completionNs / n / 1000.0;
    state.counters["release_us"] = releaseNs / n / 1000.0;
    state.counters["ratio_to_parse"] = parseNs > 0 ? completionNs / parseNs : 0.0;
}

void BM_MapFromDictionary(benchmark::State& state) {
    const nlohmann::json dict = nlohmann::json::parse(answer(static_cast<int>(state.range(0))));
    for (auto _ : state) {
        auto envelope = plyy_modelWithDictionary<PeloraRespData>(dict);
        benchmark::DoNotOptimize(envelope);
    }
}

void BM_WriteBack(benchmark::State& state) {
    auto envelope = plyy_modelWithJSON<PeloraRespData>(answer(static_cast<int>(state.range(0))));
    for (auto _ : state) {
        auto bytes = plyy_modelToJSONData(*envelope);
        benchmark::DoNotOptimize(bytes);
    }
}

BENCHMARK(BM_RawParse)->Arg(1)->Arg(5)->Arg(20);
BENCHMARK(BM_FetchCompletion)->Arg(1)->Arg(5)->Arg(20);
BENCHMARK(BM_MapFromDictionary)->Arg(1)->Arg(5)->Arg(20);
BENCHMARK(BM_WriteBack)->Arg(20);

}  // namespace

BENCHMARK_MAIN();
