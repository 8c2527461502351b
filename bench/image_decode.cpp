// What receiving a downloaded image costs the thread that receives it (the decoder reads the
// header and keeps the bytes) against decoding its pixels, which happens when something first
// draws it. Images: the sandbox's full-screen splash creative and a native feed image.

#include <benchmark/benchmark.h>

#include <fstream>
#include <sstream>
#include <string>

#include "pelora/desktop/StbImageDecoder.h"

namespace {

std::string readCreative(const char* name) {
    std::ifstream in(std::string(PELORA_SOURCE_DIR) + "/tools/sandbox/creatives/" + name,
                     std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

const char* const kCreatives[] = {"splash-demo.png", "native-image-1.png"};

void BM_ImageArrives(benchmark::State& state) {
    const std::string bytes = readCreative(kCreatives[state.range(0)]);
    pelora::desktop::StbImageDecoder decoder;
    for (auto _ : state) {
        auto image = decoder.decode(bytes);
        if (!image) {
            state.SkipWithError("creative did not decode");
            break;
        }
        benchmark::DoNotOptimize(image);
    }
    state.SetLabel(kCreatives[state.range(0)]);
}
BENCHMARK(BM_ImageArrives)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

void BM_ImagePixelsDecoded(benchmark::State& state) {
    const std::string bytes = readCreative(kCreatives[state.range(0)]);
    pelora::desktop::StbImageDecoder decoder;
    for (auto _ : state) {
        auto image = decoder.decode(bytes);
        if (!image || image->rgba().empty()) {
            state.SkipWithError("creative did not decode");
            break;
        }
        benchmark::DoNotOptimize(image->rgba().data());
    }
    state.SetLabel(kCreatives[state.range(0)]);
}
BENCHMARK(BM_ImagePixelsDecoded)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
