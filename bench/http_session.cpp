// One loopback exchange (650-byte POST, 10 KB answer) through an HttpSession data task,
// against the same exchange on a bare, reused libcurl easy handle. Both talk to the same
// cpp-httplib server on 127.0.0.1 in the same run. Besides the two plain benchmarks, an
// interleaved one alternates the two clients and compares median exchange times, which keeps
// the ratio honest on a loaded machine; its ratio is printed at the end.
#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <vector>

#include "LoopbackServer.h"
#include "pelora/desktop/CurlHttpSession.h"

namespace {

using pelora::testing::LoopbackResponse;
using pelora::testing::LoopbackServer;
using Clock = std::chrono::steady_clock;

constexpr size_t kAnswerBytes = 10 * 1024;

LoopbackServer& server() {
    static LoopbackServer* s = [] {
        auto* srv = new LoopbackServer();
        // An uncompressible type: compressing 10 KB costs the server more than the whole
        // exchange and would hide the client's share of the time.
        LoopbackResponse answer = LoopbackResponse::text(std::string(kAnswerBytes, 'a'));
        answer.contentType = "application/octet-stream";
        srv->on("/api/v1/advert/fetch", answer);
        return srv;
    }();
    return *s;
}

const std::string& requestBody() {
    static const std::string body = "{\"pad\":\"" + std::string(650 - 10, 'b') + "\"}";
    return body;
}

class SessionClient {
  public:
    SessionClient() : session_(factory_.createSession({})) {
        request_.url = server().url("/api/v1/advert/fetch");
        request_.method = "POST";
        request_.setValue("application/json", "Content-Type");
        request_.body = requestBody();
        request_.timeoutInterval = 10;
    }

    bool exchange() {
        {
            std::lock_guard lock(mutex_);
            done_ = false;
        }
        session_
            ->dataTask(request_,
                       [this](std::optional<std::string> data, auto, auto) {
                           std::lock_guard lock(mutex_);
                           received_ = data ? data->size() : 0;
                           done_ = true;
                           cv_.notify_one();
                       })
            ->resume();
        std::unique_lock lock(mutex_);
        cv_.wait_for(lock, std::chrono::seconds(10), [&] { return done_; });
        return done_ && received_ == kAnswerBytes;
    }

  private:
    pelora::desktop::CurlHttpSessionFactory factory_;
    std::shared_ptr<pelora::platform::HttpSession> session_;
    pelora::platform::HttpRequest request_;
    std::mutex mutex_;
    std::condition_variable cv_;
    size_t received_ = 0;
    bool done_ = false;
};

size_t appendBody(char* data, size_t size, size_t count, void* user) {
    static_cast<std::string*>(user)->append(data, size * count);
    return size * count;
}

class BareClient {
  public:
    BareClient() : easy_(curl_easy_init()), url_(server().url("/api/v1/advert/fetch")) {
        headers_ = curl_slist_append(headers_, "Content-Type: application/json");
        headers_ = curl_slist_append(headers_, "Expect:");
        curl_easy_setopt(easy_, CURLOPT_URL, url_.c_str());
        curl_easy_setopt(easy_, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(easy_, CURLOPT_HTTPHEADER, headers_);
        curl_easy_setopt(easy_, CURLOPT_POSTFIELDS, requestBody().data());
        curl_easy_setopt(easy_, CURLOPT_POSTFIELDSIZE_LARGE,
                         static_cast<curl_off_t>(requestBody().size()));
        curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION, &appendBody);
        curl_easy_setopt(easy_, CURLOPT_WRITEDATA, &body_);
        curl_easy_setopt(easy_, CURLOPT_TIMEOUT_MS, 10000L);
        // The same request line and headers as the session sends.
        curl_easy_setopt(easy_, CURLOPT_ACCEPT_ENCODING, "");
    }
    ~BareClient() {
        curl_slist_free_all(headers_);
        curl_easy_cleanup(easy_);
    }

    bool exchange() {
        body_.clear();
        return curl_easy_perform(easy_) == CURLE_OK && body_.size() == kAnswerBytes;
    }

  private:
    CURL* easy_;
    curl_slist* headers_ = nullptr;
    std::string url_;
    std::string body_;
};

double interleavedRatio = 0;
double interleavedSessionUs = 0;
double interleavedBareUs = 0;

void BM_BareCurlEasy(benchmark::State& state) {
    BareClient client;
    for (auto _ : state) {
        if (!client.exchange()) state.SkipWithError("bad answer");
    }
}

void BM_SessionDataTask(benchmark::State& state) {
    SessionClient client;
    for (auto _ : state) {
        if (!client.exchange()) state.SkipWithError("bad answer");
    }
}

double median(std::vector<double> v) {
    if (v.empty()) return 0;
    std::nth_element(v.begin(), v.begin() + static_cast<long>(v.size() / 2), v.end());
    return v[v.size() / 2];
}

void BM_InterleavedRatio(benchmark::State& state) {
    SessionClient session;
    BareClient bare;
    std::vector<double> sessionTimes, bareTimes;
    for (auto _ : state) {
        auto t0 = Clock::now();
        bool ok = session.exchange();
        auto t1 = Clock::now();
        ok = bare.exchange() && ok;
        auto t2 = Clock::now();
        if (!ok) state.SkipWithError("bad answer");
        sessionTimes.push_back(std::chrono::duration<double, std::micro>(t1 - t0).count());
        bareTimes.push_back(std::chrono::duration<double, std::micro>(t2 - t1).count());
    }
    interleavedSessionUs = median(sessionTimes);
    interleavedBareUs = median(bareTimes);
    interleavedRatio = interleavedBareUs > 0 ? interleavedSessionUs / interleavedBareUs : 0;
    state.counters["session_us"] = interleavedSessionUs;
    state.counters["bare_us"] = interleavedBareUs;
    state.counters["ratio"] = interleavedRatio;
}

BENCHMARK(BM_BareCurlEasy)->UseRealTime();
BENCHMARK(BM_SessionDataTask)->UseRealTime();
BENCHMARK(BM_InterleavedRatio)->UseRealTime()->MinTime(2.0);

}  // namespace

int main(int argc, char** argv) {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    if (interleavedRatio > 0) {
        std::printf(
            "median exchange: session %.1f us, bare easy handle %.1f us, ratio %.2f "
            "(target <= 1.30)\n",
            interleavedSessionUs, interleavedBareUs, interleavedRatio);
    }
    benchmark::Shutdown();
    server().stop();
    return 0;
}
