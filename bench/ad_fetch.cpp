// An ad fetch over loopback, end to end (request built, sent, answered with one ad, mapped,
// completion run on the main run loop), against a bare reused libcurl easy handle sending the
// same bytes to the same server. The figure that matters is the ratio of the two.

#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <httplib.h>

#include <memory>
#include <string>
#include <thread>

#include "AdAnswerFixtures.h"
#include "core/PeloraNetwork.h"
#include "core/PeloraRequest.h"
#include "pelora/PeloraApiAd.h"
#include "pelora/PeloraSDKManager.h"
#include "pelora/desktop/CurlHttpSession.h"
#include "pelora/desktop/EventRunLoop.h"
#include "pelora/platform/Services.h"
#include "pelora/testing/FakeDeviceInfo.h"
#include "pelora/testing/FakeReachability.h"

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

std::shared_ptr<pelora::platform::RunLoop> installServices() {
    static std::shared_ptr<pelora::platform::RunLoop> loop;
    if (loop) return loop;
    auto clock = std::make_shared<pelora::platform::SystemClock>();
    pelora::platform::Services s;
    s.clock = clock;
    loop = std::make_shared<pelora::desktop::EventRunLoop>(clock);
    s.mainRunLoop = loop;
    s.http = std::make_shared<pelora::desktop::CurlHttpSessionFactory>();
    s.device = std::make_shared<pelora::testing::FakeDeviceInfo>();
    auto reach = std::make_shared<pelora::testing::FakeReachabilityService>();
    reach->setFlags(pelora::platform::ReachabilityFlags::kReachable);
    s.reachability = reach;
    pelora::platform::installServices(s);
    PeloraSDKManager::setAppID(std::string("bench-app-0001"));
    return loop;
}

void BM_AdFetchEndToEnd(benchmark::State& state) {
    auto loop = installServices();
    PeloraConstConfig::setBaseUrlOverride("http://127.0.0.1:" + std::to_string(server().port));
    const std::string url = PeloraConstConfig::urlfetchAd();
    PeloraRequestModifier modifier = [](pelora::platform::HttpRequest& r) {
        r.timeoutInterval = 3;
    };
    int64_t failures = 0;
    for (auto _ : state) {
        auto query = PeloraUrlQuery::init();
        auto body = PeloraReqBody::init();
        body->slot->slotId = "native-slot-1";
        body->slot->adType = 5;
        body->slot->position = 3;
        body->slot->width = 640;
        body->slot->height = 360;
        bool done = false;
        PeloraNetwork::post(
            url, query, body, modifier,
            [&](int64_t code, std::optional<std::string>, std::shared_ptr<PeloraRespObject> resp) {
                if (code != 0 || !resp || !resp->ads || resp->ads->size() != 1) {
                    ++failures;
                }
                done = true;
            });
        if (!loop->runUntil([&] { return done; }, loop->clock().monotonicSeconds() + 5)) {
            state.SkipWithError("no completion within 5 s");
            break;
        }
    }
    state.counters["failures"] = static_cast<double>(failures);
}
BENCHMARK(BM_AdFetchEndToEnd)->UseRealTime();

size_t collect(char* data, size_t size, size_t count, void* out) {
    static_cast<std::string*>(out)->append(data, size * count);
    return size * count;
}

void BM_BareCurlRoundTrip(benchmark::State& state) {
    installServices();
    PeloraConstConfig::setBaseUrlOverride("http://127.0.0.1:" + std::to_string(server().port));
    // The very bytes the transport sends.
    auto query = PeloraUrlQuery::init();
    auto body = PeloraReqBody::init();
    body->slot->width = 640;
    body->slot->height = 360;
    auto request =
        PeloraNetwork::adFetchRequest(PeloraConstConfig::urlfetchAd(), query.get(), body.get(), {});

    CURL* easy = curl_easy_init();
    curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
    std::string answer;
    curl_easy_setopt(easy, CURLOPT_URL, request.url.c_str());
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, request.body.c_str());
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE, static_cast<long>(request.body.size()));
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, collect);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &answer);
    curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, 3000L);
    for (auto _ : state) {
        answer.clear();
        if (curl_easy_perform(easy) != CURLE_OK || answer.empty()) {
            state.SkipWithError("bare round trip failed");
            break;
        }
        benchmark::DoNotOptimize(answer);
    }
    curl_slist_free_all(headers);
    curl_easy_cleanup(easy);
}
BENCHMARK(BM_BareCurlRoundTrip)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
