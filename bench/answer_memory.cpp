// What one ad load costs in memory for each byte of answer it receives, and what a body that
// never ends costs before the answer limit cuts it off.
//
// Each measurement runs in a fresh process (this program started again with
// PELORA_MEMORY_CHILD set), so that memory freed by earlier loads cannot hide a new peak:
// the child serves the answer on loopback from memory it holds before measuring, makes one
// small load to warm the transport up, resets the kernel's high-water mark of its resident
// set, makes the measured load through the SDK's transport and mapping, and reports the peak
// resident set above where it stood before the load.
//
//   peak_per_body_byte  peak growth / answer bytes (the figure with a target: below 4)
//   peak_MiB            peak growth in MiB

#include <benchmark/benchmark.h>
#include <httplib.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "AdAnswerFixtures.h"
#include "BenchPlatform.h"
#include "core/PeloraNetwork.h"
#include "core/PeloraRequest.h"
#include "pelora/PeloraApiAd.h"

extern char** environ;

namespace {

constexpr const char* kChildVariable = "PELORA_MEMORY_CHILD";

// "VmRSS" or "VmHWM" of this process, in bytes.
int64_t statusBytes(const char* field) {
    std::ifstream in("/proc/self/status");
    std::string line;
    const std::string prefix = std::string(field) + ":";
    while (std::getline(in, line)) {
        if (line.rfind(prefix, 0) == 0) return std::atoll(line.c_str() + prefix.size()) * 1024;
    }
    return -1;
}

// An answer of about `bytes` bytes made of realistic ads (about 14 KB each).
std::string answerOfAbout(int64_t bytes) {
    const int perAd = static_cast<int>(pelora::fixtures::adAnswer(1).size());
    const int count = std::max<int>(1, static_cast<int>(bytes / perAd));
    return pelora::fixtures::adAnswer(count);
}

// The measured side: prints "<answer bytes> <peak growth bytes> <code>" on stdout.
int runChild(const std::string& spec) {
    const bool endless = spec.rfind("endless:", 0) == 0;
    const int64_t size = std::atoll(spec.c_str() + (endless ? 8 : 0));
    const std::string answer = endless ? std::string() : answerOfAbout(size);
    const std::string warmup = pelora::fixtures::adAnswer(1);

    httplib::Server http;
    bool first = true;
    http.Post("/api/v1/advert/fetch", [&](const httplib::Request&, httplib::Response& res) {
        const std::string* body = first ? &warmup : &answer;
        const bool stream = !first && endless;
        first = false;
        if (stream) {
            // Filler bytes for as long as the client reads them.
            res.set_chunked_content_provider("application/octet-stream",
                                             [](size_t, httplib::DataSink& sink) {
                                                 static const std::string chunk(64 * 1024, ' ');
                                                 return sink.write(chunk.data(), chunk.size());
                                             });
            return;
        }
        // Served from the bytes already held, without a copy per request.
        res.set_content_provider(body->size(), "application/octet-stream",
                                 [body](size_t offset, size_t length, httplib::DataSink& sink) {
                                     return sink.write(body->data() + offset, length);
                                 });
    });
    const int port = http.bind_to_any_port("127.0.0.1");
    std::thread serving([&] { http.listen_after_bind(); });

    pelora::platform::SdkOptions options;
    options.limits.answerBytes = endless ? static_cast<uint64_t>(size) : answer.size() + 1;
    options.serverOrigin = "http://127.0.0.1:" + std::to_string(port);
    auto loop = bench::installBenchPlatform(bench::Network::Loopback, options);

    auto load = [&](int64_t* code) {
        auto body = PeloraReqBody::init();
        body->slot->slotId = "native-slot-1";
        body->slot->adType = 5;
        bool done = false;
        std::shared_ptr<PeloraRespObject> kept;
        PeloraNetwork::post(
            PeloraConstConfig::urlfetchAd(), PeloraUrlQuery::init(), body,
            [](pelora::platform::HttpRequest& r) { r.timeoutInterval = 60; },
            [&](int64_t c, std::optional<std::string>, std::shared_ptr<PeloraRespObject> resp) {
                *code = c;
                kept = std::move(resp);
                done = true;
            });
        loop->runUntil([&] { return done; }, loop->clock().monotonicSeconds() + 60);
        // The mapped ads are part of the load's cost: read the peak while they are alive.
        return statusBytes("VmHWM");
    };

    int64_t code = 1;
    load(&code);
    const int64_t before = statusBytes("VmRSS");
    { std::ofstream("/proc/self/clear_refs") << "5"; }
    const int64_t peak = load(&code);
    serving.detach();  // the server's keep-alive wait would only slow the exit down
    std::printf("%zu %lld %lld\n", endless ? static_cast<size_t>(size) : answer.size(),
                static_cast<long long>(peak - before), static_cast<long long>(code));
    std::fflush(stdout);
    std::_Exit(0);  // the SDK's sessions are process-wide; nothing to tear down here
}

struct ChildResult {
    int64_t answerBytes = 0;
    int64_t peakGrowth = 0;
    int64_t code = 0;
};

std::optional<ChildResult> measureInChild(const std::string& spec) {
    int out[2];
    if (pipe(out) != 0) return std::nullopt;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    const std::string variable = std::string(kChildVariable) + "=" + spec;
    std::vector<char*> env;
    for (char** e = environ; *e; ++e) env.push_back(*e);
    env.push_back(const_cast<char*>(variable.c_str()));
    env.push_back(nullptr);
    char exe[] = "/proc/self/exe";
    char* argv[] = {exe, nullptr};
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, exe, &actions, nullptr, argv, env.data());
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    if (spawned != 0) {
        close(out[0]);
        return std::nullopt;
    }
    std::string text;
    char buffer[256];
    ssize_t n = 0;
    while ((n = read(out[0], buffer, sizeof buffer)) > 0)
        text.append(buffer, static_cast<size_t>(n));
    close(out[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    ChildResult result;
    long long a = 0, p = 0, c = 0;
    if (std::sscanf(text.c_str(), "%lld %lld %lld", &a, &p, &c) != 3) return std::nullopt;
    result.answerBytes = a;
    result.peakGrowth = p;
    result.code = c;
    return result;
}

void report(benchmark::State& state, const std::string& spec, int64_t expectedCode) {
    ChildResult worst;
    for (auto _ : state) {
        auto result = measureInChild(spec);
        if (!result || result->code != expectedCode) {
            state.SkipWithError("the measured load did not end as expected");
            return;
        }
        if (result->peakGrowth > worst.peakGrowth) worst = *result;
    }
    state.counters["answer_MiB"] = static_cast<double>(worst.answerBytes) / (1 << 20);
    state.counters["peak_MiB"] = static_cast<double>(worst.peakGrowth) / (1 << 20);
    state.counters["peak_per_body_byte"] =
        static_cast<double>(worst.peakGrowth) / static_cast<double>(worst.answerBytes);
}

// One load of an answer of the given size, with the answer limit raised just enough for it.
void BM_AnswerPeakMemory(benchmark::State& state) {
    report(state, std::to_string(state.range(0)), 0);
}
BENCHMARK(BM_AnswerPeakMemory)
    ->Arg(256 << 10)
    ->Arg(1 << 20)
    ->Arg(8 << 20)
    ->Arg(32 << 20)
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// A chunked body that never ends, against an answer limit of the given size: the load fails
// with -1103 once the limit is passed; "per body byte" is per byte of the limit.
void BM_EndlessBodyPeakMemory(benchmark::State& state) {
    report(state, "endless:" + std::to_string(state.range(0)), -1103);
}
BENCHMARK(BM_EndlessBodyPeakMemory)
    ->Arg(1 << 20)
    ->Arg(16 << 20)
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    if (const char* spec = std::getenv(kChildVariable)) return runChild(spec);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
