// An ad fetch over loopback, end to end (request built, sent, answered with one ad, mapped,
// completion run on the main run loop), against a bare reused libcurl easy handle sending the
// same bytes to the same server. The figure that matters is the ratio of the two.

#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "AdAnswerFixtures.h"
#include "BenchPlatform.h"
#include "core/PeloraNetwork.h"
#include "core/PeloraRequest.h"
#include "pelora/PeloraApiAd.h"

namespace {

struct Server {
    httplib::Server http;
    std::thread thread;
    int port = 0;
    // A realistic one-ad answer: texts, icons, images, a video with end-page HTML and 13
    // tracking objects of long macro URLs.
    std::string answer = pelora::fixtures::adAnswer(1);
    Server() {
        http.Post("/api/v1/advert/fetch", [this](const httplib::Request&, httplib::Response& res) {
            // A type the server does not compress: the desktop session accepts gzip and
            // brotli, and compressing 14 KB per answer would measure the server, not us.
            res.set_content(answer, "application/octet-stream");
        });
        // Without this the answer waits on Nagle and delayed ACKs (tens of milliseconds).
        http.set_tcp_nodelay(true);
        // Keep connections for the whole run, as an ad server would: the server's default of
        // five requests per connection adds a reconnect to one exchange in five, at random.
        http.set_keep_alive_max_count(1000000);
        port = http.bind_to_any_port("127.0.0.1");
        thread = std::thread([this] { http.listen_after_bind(); });
    }
    ~Server() {
        http.stop();
        thread.join();
    }
};

Server& server() {
    static Server* s = new Server();
    return *s;
}

pelora::platform::SdkOptions localServer() {
    pelora::platform::SdkOptions options;
    options.serverOrigin = "http://127.0.0.1:" + std::to_string(server().port);
    return options;
}

// One ad fetch through the SDK, waited for on the main run loop.
class SdkFetch {
  public:
    SdkFetch() : loop_(bench::installBenchPlatform(bench::Network::Loopback, localServer())) {
        url_ = PeloraConstConfig::urlfetchAd();
    }
    // False when no completion came within 5 s; a completion without the one ad counts as a
    // failure.
    bool run() {
        auto query = PeloraUrlQuery::init();
        auto body = PeloraReqBody::init();
        body->slot->slotId = "native-slot-1";
        body->slot->adType = 5;
        body->slot->position = 3;
        body->slot->width = 640;
        body->slot->height = 360;
        bool done = false;
        PeloraNetwork::post(
            url_, query, body, [](pelora::platform::HttpRequest& r) { r.timeoutInterval = 3; },
            [&](int64_t code, std::optional<std::string>, std::shared_ptr<PeloraRespObject> resp) {
                if (code != 0 || !resp || !resp->ads || resp->ads->size() != 1) ++failures;
                done = true;
            });
        return loop_->runUntil([&] { return done; }, loop_->clock().monotonicSeconds() + 5);
    }
    int64_t failures = 0;

  private:
    std::shared_ptr<pelora::platform::RunLoop> loop_;
    std::string url_;
};

size_t collect(char* data, size_t size, size_t count, void* out) {
    static_cast<std::string*>(out)->append(data, size * count);
    return size * count;
}

// The same exchange on a reused libcurl easy handle: the very bytes the transport sends.
class BareFetch {
  public:
    BareFetch() {
        bench::installBenchPlatform(bench::Network::Loopback, localServer());
        auto query = PeloraUrlQuery::init();
        auto body = PeloraReqBody::init();
        body->slot->width = 640;
        body->slot->height = 360;
        request_ = PeloraNetwork::adFetchRequest(PeloraConstConfig::urlfetchAd(), query.get(),
                                                 body.get(), {});
        easy_ = curl_easy_init();
        headers_ = curl_slist_append(nullptr, "Content-Type: application/json");
        curl_easy_setopt(easy_, CURLOPT_URL, request_.url.c_str());
        curl_easy_setopt(easy_, CURLOPT_HTTPHEADER, headers_);
        curl_easy_setopt(easy_, CURLOPT_POSTFIELDS, request_.body.c_str());
        curl_easy_setopt(easy_, CURLOPT_POSTFIELDSIZE, static_cast<long>(request_.body.size()));
        curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION, collect);
        curl_easy_setopt(easy_, CURLOPT_WRITEDATA, &answer_);
        curl_easy_setopt(easy_, CURLOPT_TIMEOUT_MS, 3000L);
    }
    ~BareFetch() {
        curl_slist_free_all(headers_);
        curl_easy_cleanup(easy_);
    }
    BareFetch(const BareFetch&) = delete;
    BareFetch& operator=(const BareFetch&) = delete;
    bool run() {
        answer_.clear();
        return curl_easy_perform(easy_) == CURLE_OK && !answer_.empty();
    }

  private:
    pelora::platform::HttpRequest request_;
    CURL* easy_ = nullptr;
    curl_slist* headers_ = nullptr;
    std::string answer_;
};

void BM_AdFetchEndToEnd(benchmark::State& state) {
    SdkFetch fetch;
    for (auto _ : state) {
        if (!fetch.run()) {
            state.SkipWithError("no completion within 5 s");
            break;
        }
    }
    state.counters["failures"] = static_cast<double>(fetch.failures);
}
BENCHMARK(BM_AdFetchEndToEnd)->UseRealTime();

void BM_BareCurlRoundTrip(benchmark::State& state) {
    BareFetch bare;
    for (auto _ : state) {
        if (!bare.run()) {
            state.SkipWithError("bare round trip failed");
            break;
        }
    }
}
BENCHMARK(BM_BareCurlRoundTrip)->UseRealTime();

double median(std::vector<double> v) {
    if (v.empty()) return 0;
    std::nth_element(v.begin(), v.begin() + static_cast<long>(v.size() / 2), v.end());
    return v[v.size() / 2];
}

struct Medians {
    double sdkUs = 0;
    double bareUs = 0;
};
Medians interleaved;

// The two alternate exchange by exchange, so whatever else the machine does at the moment
// weighs on both alike; the ratio is of the median exchange times.
void BM_InterleavedRatio(benchmark::State& state) {
    using Clock = std::chrono::steady_clock;
    SdkFetch fetch;
    BareFetch bare;
    std::vector<double> sdkTimes, bareTimes;
    for (auto _ : state) {
        const auto t0 = Clock::now();
        bool ok = fetch.run();
        const auto t1 = Clock::now();
        ok = bare.run() && ok;
        const auto t2 = Clock::now();
        if (!ok) {
            state.SkipWithError("an exchange failed");
            break;
        }
        sdkTimes.push_back(std::chrono::duration<double, std::micro>(t1 - t0).count());
        bareTimes.push_back(std::chrono::duration<double, std::micro>(t2 - t1).count());
    }
    const double sdk = median(sdkTimes);
    const double plain = median(bareTimes);
    interleaved = {sdk, plain};
    state.counters["sdk_us"] = sdk;
    state.counters["bare_us"] = plain;
    state.counters["ratio"] = plain > 0 ? sdk / plain : 0;
    state.counters["failures"] = static_cast<double>(fetch.failures);
}
BENCHMARK(BM_InterleavedRatio)->UseRealTime()->MinTime(2.0);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    if (interleaved.bareUs > 0) {
        std::printf(
            "median exchange: SDK ad fetch %.1f us, bare libcurl %.1f us, ratio %.2f "
            "(target <= 2.00)\n",
            interleaved.sdkUs, interleaved.bareUs, interleaved.sdkUs / interleaved.bareUs);
    }
    benchmark::Shutdown();
    return 0;
}
