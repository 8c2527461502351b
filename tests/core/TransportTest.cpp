// The transport on the fake network: what the server receives, every row of the result
// table, where completions run, and where downloads land. Only the HTTPS case talks to a
// real server on 127.0.0.1: certificate checks are the point there.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <thread>
#include <tuple>

#include "FakeServer.h"
#include "LoopbackServer.h"
#include "TestPlatform.h"
#include "core/PeloraNetwork.h"
#include "core/PeloraRequest.h"
#include "pelora/PeloraApiAd.h"
#include "pelora/PeloraSDKManager.h"
#include "pelora/desktop/CurlHttpSession.h"
#include "pelora/platform/Log.h"
#include "pelora/platform/Services.h"

namespace {

using pelora::platform::HttpRequest;
using pelora::testing::FakeServer;
using pelora::testing::LoopbackResponse;
using pelora::testing::LoopbackServer;
using pelora::testing::TestPlatform;
namespace fs = std::filesystem;

constexpr const char* kFetchPath = "/api/v1/advert/fetch";
constexpr const char* kTwoAds =
    R"({"code":0,"data":{"reqId":"R1","provider":"p","ads":[{"adId":"a1","title":"first"},)"
    R"({"adId":"a2","trackUrls":[{"trackType":1,"urls":["http://127.0.0.1/t"]}]}]}})";

struct FetchResult {
    bool called = false;
    int calls = 0;
    bool onLoopThread = false;
    int64_t code = 0;
    std::optional<std::string> msg;
    std::shared_ptr<PeloraRespObject> resp;
};

struct ReportResult {
    bool called = false;
    int64_t code = 0;
    std::optional<std::string> msg;
    std::optional<std::string> resp;
};

class TransportTest : public ::testing::Test {
  protected:
    void SetUp() override {
        caches = platform.cachesDirectory();
        PeloraNetwork::resetSessionsForTesting();
    }

    void TearDown() override { PeloraNetwork::resetSessionsForTesting(); }

    // Runs the main loop until `done` holds, moving the manual clock a second at a time (a
    // simulated time-out is due once the request's time passed), for at most two minutes.
    bool waitFor(const std::function<bool()>& done) {
        platform.pump();
        for (int second = 0; second < 120 && !done(); ++second) platform.advance(1);
        return done();
    }

    std::shared_ptr<PeloraReqBody> bodyWithSlot(int64_t w, int64_t h) {
        auto body = PeloraReqBody::init();
        body->slot->slotId = "slot-1";
        body->slot->adType = 5;
        body->slot->position = 3;
        body->slot->width = w;
        body->slot->height = h;
        return body;
    }

    FetchResult fetch(const std::optional<std::string>& url, PeloraRequestModifier modifier = {},
                      std::shared_ptr<PeloraReqBody> body = nullptr) {
        auto result = std::make_shared<FetchResult>();
        auto loop = pelora::platform::services().mainRunLoop;
        PeloraNetwork::post(url, PeloraUrlQuery::init(), body ? body : bodyWithSlot(320, 50),
                            std::move(modifier),
                            [result, loop](int64_t code, std::optional<std::string> msg,
                                           std::shared_ptr<PeloraRespObject> resp) {
                                result->called = true;
                                ++result->calls;
                                result->onLoopThread = loop->isLoopThread();
                                result->code = code;
                                result->msg = std::move(msg);
                                result->resp = std::move(resp);
                            });
        EXPECT_FALSE(result->called) << "completion must never run inside the call";
        EXPECT_TRUE(waitFor([&] { return result->called; }));
        return *result;
    }

    std::shared_ptr<ReportResult> reportCompletion(PeloraNetwork::ReportCompletion& out) {
        auto result = std::make_shared<ReportResult>();
        out = [result](int64_t code, std::optional<std::string> msg,
                       std::optional<std::string> resp) {
            result->called = true;
            result->code = code;
            result->msg = std::move(msg);
            result->resp = std::move(resp);
        };
        return result;
    }

    TestPlatform platform{TestPlatform::NetworkKind::Fake};
    FakeServer server{platform};
    fs::path caches;
};

std::set<std::string> split(const std::string& text, char sep) {
    std::set<std::string> out;
    std::stringstream in(text);
    std::string piece;
    while (std::getline(in, piece, sep)) out.insert(piece);
    return out;
}

// ---- the ad fetch: result table ------------------------------------------------------------

TEST_F(TransportTest, AnswerWithDataIsSuccessAndEveryAdCarriesTheSlotSize) {
    server.on(kFetchPath, LoopbackResponse::json(kTwoAds));
    auto r = fetch(server.url(kFetchPath), {}, bodyWithSlot(640, 100));
    EXPECT_EQ(r.calls, 1);
    EXPECT_TRUE(r.onLoopThread);
    EXPECT_EQ(r.code, 0);
    EXPECT_FALSE(r.msg);
    ASSERT_TRUE(r.resp);
    EXPECT_EQ(r.resp->reqId, "R1");
    ASSERT_TRUE(r.resp->ads);
    ASSERT_EQ(r.resp->ads->size(), 2u);
    for (const auto& ad : *r.resp->ads) {
        EXPECT_EQ(ad->reqSlotW, 640);
        EXPECT_EQ(ad->reqSlotH, 100);
    }
    EXPECT_EQ((*r.resp->ads)[0]->title, "first");
    ASSERT_TRUE((*r.resp->ads)[1]->adTrackVO());
    EXPECT_EQ((*r.resp->ads)[1]->adTrackVO()->size(), 1u);
}

TEST(TransportOverTls, FetchOverHttpsVerifiesTheServer) {
    PeloraNetwork::resetSessionsForTesting();
    TestPlatform platform;  // the real libcurl sessions
    LoopbackServer tls(LoopbackServer::Options{2, pelora::testing::TestTls::certificateFile(),
                                               pelora::testing::TestTls::keyFile()});
    tls.on(kFetchPath, LoopbackResponse::json(kTwoAds));
    auto fetch = [&]() {
        auto result = std::make_shared<FetchResult>();
        auto body = PeloraReqBody::init();
        body->slot->slotId = "slot-1";
        PeloraNetwork::post(tls.url(kFetchPath), PeloraUrlQuery::init(), body, {},
                            [result](int64_t code, std::optional<std::string>,
                                     std::shared_ptr<PeloraRespObject> resp) {
                                result->called = true;
                                result->code = code;
                                result->resp = std::move(resp);
                            });
        EXPECT_TRUE(platform.waitFor([&] { return result->called; }, 10));
        return *result;
    };
    // Without the test authority the certificate is not trusted and nothing is sent.
    auto refused = fetch();
    EXPECT_EQ(refused.code, pelora::platform::URLError::kServerCertificateUntrusted);
    EXPECT_FALSE(refused.resp);
    EXPECT_EQ(tls.requestCount(), 0u);

    PeloraNetwork::resetSessionsForTesting();
    platform.http = std::make_shared<pelora::desktop::CurlHttpSessionFactory>(
        pelora::testing::TestTls::authorityFile());
    platform.install();
    auto r = fetch();
    EXPECT_EQ(r.code, 0);
    ASSERT_TRUE(r.resp && r.resp->ads);
    EXPECT_EQ(r.resp->ads->size(), 2u);
    ASSERT_EQ(tls.requestsTo(kFetchPath).size(), 1u);
    EXPECT_EQ(tls.requestsTo(kFetchPath)[0].header("Content-Type"), "application/json");
    PeloraNetwork::resetSessionsForTesting();
    tls.stop();
}

TEST_F(TransportTest, FetchWritesItsResultCodeToTheLog) {
    std::vector<std::string> lines;
    std::mutex linesLock;  // backends may log from their own threads
    pelora::platform::setLogSink([&](pelora::platform::LogLevel, std::string_view m) {
        std::lock_guard g(linesLock);
        lines.emplace_back(m);
    });
    server.on(kFetchPath, LoopbackResponse::json(kTwoAds));
    fetch(server.url(kFetchPath));
    server.on(kFetchPath, LoopbackResponse::json(R"({"code":0})"));
    fetch(server.url(kFetchPath));
    pelora::platform::setLogSink(nullptr);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "0"), 1);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "-1"), 1);
}

TEST_F(TransportTest, ServerErrorStatusWithDataIsStillSuccess) {
    server.on(kFetchPath, LoopbackResponse::json(R"({"code":500,"data":{"ads":[]}})", 500));
    auto r = fetch(server.url(kFetchPath));
    EXPECT_EQ(r.code, 0);
    EXPECT_FALSE(r.msg);
    ASSERT_TRUE(r.resp);
    ASSERT_TRUE(r.resp->ads);
    EXPECT_TRUE(r.resp->ads->empty());
}

TEST_F(TransportTest, EmptyBodyIsResponseError) {
    server.on(kFetchPath, LoopbackResponse::json("", 200));
    auto r = fetch(server.url(kFetchPath));
    EXPECT_EQ(r.code, -1);
    EXPECT_EQ(r.msg, "response error");
    EXPECT_FALSE(r.resp);
}

TEST_F(TransportTest, BodyWithoutDataIsFailureWithoutMessage) {
    for (const char* body : {"[1,2,3]", R"({"code":0})", "not json at all", R"({"data":[1]})",
                             R"({"data":null})", "{\"data\":"}) {
        server.on(kFetchPath, LoopbackResponse::json(body));
        auto r = fetch(server.url(kFetchPath));
        EXPECT_EQ(r.code, -1) << body;
        EXPECT_FALSE(r.msg) << body;
        EXPECT_FALSE(r.resp) << body;
    }
}

TEST_F(TransportTest, AnswersPastTheHostsLimitFailWithTheSizeCodeAndMapNothing) {
    const auto defaults = PeloraConstConfig::limits();
    EXPECT_EQ(defaults.answerBytes, 1u << 20);
    auto limits = defaults;
    limits.answerBytes = std::string(kTwoAds).size() - 1;
    PeloraConstConfig::setLimits(limits);
    server.on(kFetchPath, LoopbackResponse::json(kTwoAds));
    auto over = fetch(server.url(kFetchPath));
    EXPECT_EQ(over.code, pelora::platform::URLError::kDataLengthExceedsMaximum);
    EXPECT_TRUE(over.msg);
    EXPECT_FALSE(over.resp);
    // The limit travels with the request, so a backend that never saw the configuration
    // still enforces it.
    EXPECT_EQ(platform.fake->requests().back().request.maxBodyBytes, limits.answerBytes);

    limits.answerBytes = std::string(kTwoAds).size();
    PeloraConstConfig::setLimits(limits);
    auto atLimit = fetch(server.url(kFetchPath));
    PeloraConstConfig::setLimits(defaults);
    EXPECT_EQ(atLimit.code, 0);
    ASSERT_TRUE(atLimit.resp && atLimit.resp->ads);
    EXPECT_EQ(atLimit.resp->ads->size(), 2u);
}

TEST_F(TransportTest, SilentServerTimesOutUnderTheModifiersTimeout) {
    platform.fake->setSimulateTimeouts(true);
    server.on(kFetchPath, LoopbackResponse::hang());
    auto r = fetch(server.url(kFetchPath), [](HttpRequest& req) { req.timeoutInterval = 7; });
    EXPECT_EQ(platform.fake->requests().at(0).request.timeoutInterval, 7.0);
    EXPECT_EQ(r.code, pelora::platform::URLError::kTimedOut);
    ASSERT_TRUE(r.msg);
    EXPECT_FALSE(r.msg->empty());
    EXPECT_FALSE(r.resp);
}

TEST_F(TransportTest, RefusedConnectionGivesThePlatformCode) {
    server.failWith(pelora::platform::URLError::kCannotConnectToHost);
    auto r = fetch(server.url(kFetchPath));
    EXPECT_EQ(r.code, pelora::platform::URLError::kCannotConnectToHost);
    ASSERT_TRUE(r.msg);
    EXPECT_FALSE(r.msg->empty());
    EXPECT_FALSE(r.resp);
}

TEST_F(TransportTest, AbsentFetchUrlIsReportedByThePlatform) {
    // Unlike reports, the ad fetch has no guard: the platform refuses the empty URL.
    auto r = fetch(std::nullopt);
    EXPECT_LT(r.code, -1);
    ASSERT_TRUE(r.msg);
    EXPECT_FALSE(r.resp);
    EXPECT_EQ(server.requestCount(), 0u);
}

TEST_F(TransportTest, MissingCompletionStillSendsAndDoesNotCrash) {
    server.on(kFetchPath, LoopbackResponse::json(kTwoAds));
    PeloraNetwork::post(server.url(kFetchPath), PeloraUrlQuery::init(), bodyWithSlot(1, 1), {},
                        nullptr);
    ASSERT_TRUE((platform.pump(), server.requestCount() >= 1));
    // A report sent afterwards completes after the fetch's answer was handled.
    PeloraNetwork::ReportCompletion done;
    auto sentinel = reportCompletion(done);
    PeloraNetwork::get(server.url("/sentinel"), nullptr, {}, done);
    EXPECT_TRUE(waitFor([&] { return sentinel->called; }));
}

// ---- the ad fetch: the request as the server sees it ---------------------------------------

TEST_F(TransportTest, RequestCarriesEscapedQueryJsonBodyAndContentType) {
    PeloraSDKManager::setAppID(std::string("app id&1"));
    server.on(kFetchPath, LoopbackResponse::json(kTwoAds));
    HttpRequest seenByModifier;
    auto r = fetch(server.url(kFetchPath), [&](HttpRequest& req) { seenByModifier = req; });
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(seenByModifier.timeoutInterval, 3.0);
    EXPECT_EQ(seenByModifier.method, "POST");

    auto requests = server.requestsTo(kFetchPath);
    ASSERT_EQ(requests.size(), 1u);
    const auto& got = requests[0];
    EXPECT_EQ(got.method, "POST");
    EXPECT_EQ(got.header("Content-Type"), "application/json");

    // Query: ten pairs, values percent-escaped, order free.
    auto pairs = split(got.query, '&');
    std::set<std::string> keys;
    for (const auto& p : pairs) keys.insert(p.substr(0, p.find('=')));
    EXPECT_EQ(keys, (std::set<std::string>{"reqId", "reqTs", "sdkV", "sdkVc", "appId", "appV",
                                           "appVc", "os", "udid", "sdkN"}));
    EXPECT_TRUE(pairs.count("appId=app%20id%261"));
    EXPECT_TRUE(pairs.count("sdkV=1.0"));
    EXPECT_TRUE(pairs.count("sdkVc=1"));
    EXPECT_TRUE(pairs.count("os=iOS"));
    EXPECT_TRUE(pairs.count("sdkN=PeloraSDK"));
    EXPECT_TRUE(pairs.count("appV=2.5.0"));
    EXPECT_TRUE(pairs.count("appVc=123"));
    ASSERT_TRUE(got.param("reqId"));
    EXPECT_EQ(got.param("reqId")->size(), 32u);

    // Body: the three parts, keys and value types.
    auto body = nlohmann::json::parse(got.body);
    ASSERT_TRUE(body.is_object());
    EXPECT_EQ(body.size(), 3u);
    const auto& slot = body.at("slot");
    EXPECT_EQ(slot.at("slotId"), "slot-1");
    for (const char* k : {"adType", "position", "acceptedCreativeTypes", "acceptedInteractionType",
                          "width", "height"}) {
        EXPECT_TRUE(slot.at(k).is_number_integer()) << k;
    }
    EXPECT_EQ(slot.at("width"), 320);
    const auto& device = body.at("device");
    for (const char* k : {"screenWidth", "screenHeight", "orientation", "dpi"}) {
        EXPECT_TRUE(device.at(k).is_number_integer()) << k;
    }
    for (const char* k : {"deviceId", "os", "osVersion", "vendor", "model", "imsi"}) {
        EXPECT_TRUE(device.at(k).is_string()) << k;
    }
    for (const char* k : {"imei", "language", "mac", "userAgent", "extra", "oaid"}) {
        EXPECT_FALSE(device.contains(k)) << k << " is never set and must be left out";
    }
    const auto& app = body.at("appInfo");
    EXPECT_TRUE(app.at("hasD").is_boolean());
    EXPECT_TRUE(app.at("lng").is_number());
    EXPECT_TRUE(app.at("cost").is_number_integer());
    EXPECT_FALSE(app.contains("gpsType"));
    EXPECT_EQ(app.at("appId"), "app id&1");
}

TEST_F(TransportTest, AbsentAppIdIsLeftOutOfQueryAndBody) {
    PeloraSDKManager::setAppID(std::nullopt);
    server.on(kFetchPath, LoopbackResponse::json(kTwoAds));
    fetch(server.url(kFetchPath));
    auto got = server.requestsTo(kFetchPath).at(0);
    EXPECT_FALSE(got.param("appId"));
    EXPECT_EQ(got.query.find("appId"), std::string::npos);
    EXPECT_FALSE(nlohmann::json::parse(got.body).at("appInfo").contains("appId"));
}

TEST_F(TransportTest, ExistingQueryIsExtendedWithAmpersand) {
    server.on(kFetchPath, LoopbackResponse::json(kTwoAds));
    fetch(server.url(std::string(kFetchPath) + "?channel=x"));
    auto got = server.requestsTo(kFetchPath).at(0);
    EXPECT_EQ(got.query.rfind("channel=x&", 0), 0u) << got.query;
    EXPECT_EQ(got.query.find('?'), std::string::npos);
    EXPECT_TRUE(got.param("reqId"));
}

// ---- reports and raw data tasks --------------------------------------------------------------

TEST_F(TransportTest, ReportStatusBecomesTheCode) {
    server.on("/ok", LoopbackResponse::text("", 204));
    server.on("/missing", LoopbackResponse::text("gone", 404));
    server.on("/fine", LoopbackResponse::text("fine", 200));

    PeloraNetwork::ReportCompletion c1, c2, c3;
    auto r1 = reportCompletion(c1);
    auto r2 = reportCompletion(c2);
    auto r3 = reportCompletion(c3);
    HttpRequest seen;
    PeloraNetwork::get(
        server.url("/ok"), nullptr, [&](HttpRequest& r) { seen = r; }, c1);
    PeloraNetwork::get(server.url("/missing"), nullptr, {}, c2);
    PeloraNetwork::post(server.url("/fine"), std::string("k=v"), {}, c3);
    EXPECT_FALSE(r1->called || r2->called || r3->called);
    ASSERT_TRUE(waitFor([&] { return r1->called && r2->called && r3->called; }));

    EXPECT_EQ(seen.timeoutInterval, 60.0);
    EXPECT_EQ(seen.method, "GET");
    EXPECT_EQ(r1->code, 0);
    EXPECT_FALSE(r1->msg);
    EXPECT_EQ(r2->code, 404);
    EXPECT_FALSE(r2->msg);
    EXPECT_EQ(r2->resp, "gone");
    EXPECT_EQ(r3->code, 0);
    EXPECT_EQ(r3->resp, "fine");

    auto gets = server.requestsTo("/ok");
    ASSERT_EQ(gets.size(), 1u);
    EXPECT_EQ(gets[0].target, "/ok") << "no query model, so no '?' at all";
    auto posts = server.requestsTo("/fine");
    ASSERT_EQ(posts.size(), 1u);
    EXPECT_EQ(posts[0].method, "POST");
    EXPECT_EQ(posts[0].body, "k=v");
}

TEST_F(TransportTest, ReportModifierSetsHeadersAndGetAppendsTheQuery) {
    server.on("/t", LoopbackResponse::text("x"));
    PeloraNetwork::ReportCompletion c;
    auto r = reportCompletion(c);
    auto query = PeloraUrlQuery::init();
    PeloraNetwork::get(
        server.url("/t?a=1"), query,
        [](HttpRequest& req) { req.setValue("text/plain", "Content-Type"); }, c);
    ASSERT_TRUE(waitFor([&] { return r->called; }));
    auto got = server.requestsTo("/t").at(0);
    EXPECT_EQ(got.header("Content-Type"), "text/plain");
    EXPECT_EQ(got.query.rfind("a=1&", 0), 0u) << got.query;
    EXPECT_EQ(got.param("sdkN"), "PeloraSDK");
}

TEST_F(TransportTest, AbsentUrlDoesNothingAtAll) {
    server.on("/sentinel", LoopbackResponse::text("s"));
    PeloraNetwork::ReportCompletion never1, never2, done;
    auto n1 = reportCompletion(never1);
    auto n2 = reportCompletion(never2);
    auto sentinel = reportCompletion(done);
    bool modifierCalled = false;
    PeloraNetwork::get(
        std::nullopt, nullptr, [&](HttpRequest&) { modifierCalled = true; }, never1);
    PeloraNetwork::post(
        std::nullopt, std::string("x"), [&](HttpRequest&) { modifierCalled = true; }, never2);
    PeloraNetwork::get(server.url("/sentinel"), nullptr, {}, done);
    ASSERT_TRUE(waitFor([&] { return sentinel->called; }));
    EXPECT_FALSE(n1->called);
    EXPECT_FALSE(n2->called);
    EXPECT_FALSE(modifierCalled);
    EXPECT_EQ(server.requestCount(), 1u);
}

TEST_F(TransportTest, FailedReportCarriesUploadError) {
    PeloraNetwork::ReportCompletion c;
    auto r = reportCompletion(c);
    server.failWith(pelora::platform::URLError::kCannotConnectToHost);
    PeloraNetwork::get(server.url("/t"), nullptr, {}, c);
    ASSERT_TRUE(waitFor([&] { return r->called; }));
    EXPECT_EQ(r->code, pelora::platform::URLError::kCannotConnectToHost);
    EXPECT_EQ(r->msg, "sdk: upload error");
    EXPECT_FALSE(r->resp);
}

TEST_F(TransportTest, RawDataTaskIsStartedAndMappedLikeAReport) {
    server.on("/img.png", LoopbackResponse::text("PNGDATA", 200));
    PeloraNetwork::ReportCompletion c;
    auto r = reportCompletion(c);
    HttpRequest req;
    req.url = server.url("/img.png");
    auto task = PeloraNetwork::dataTaskWithRequest(req, c);
    ASSERT_TRUE(task);
    ASSERT_TRUE(waitFor([&] { return r->called; }));
    EXPECT_EQ(r->code, 0);
    EXPECT_EQ(r->resp, "PNGDATA");
}

TEST(UploadResult, MappingWithoutNetwork) {
    std::vector<std::tuple<int64_t, std::optional<std::string>, std::optional<std::string>>> calls;
    PeloraNetwork::ReportCompletion record = [&](int64_t c, std::optional<std::string> m,
                                                 std::optional<std::string> d) {
        calls.emplace_back(c, m, d);
    };
    pelora::platform::HttpResponse status;
    for (int64_t s : {199, 200, 299, 300, 500}) {
        status.statusCode = s;
        PeloraNetwork::onUploadResp(std::string("d"), status, std::nullopt, record);
    }
    PeloraNetwork::onUploadResp(std::nullopt, std::nullopt,
                                pelora::platform::Error{"NSURLErrorDomain", -1001, "t"}, record);
    PeloraNetwork::onUploadResp(std::string("d"), status, std::nullopt, nullptr);  // no completion
    ASSERT_EQ(calls.size(), 6u);
    EXPECT_EQ(std::get<0>(calls[0]), 199);
    EXPECT_EQ(std::get<0>(calls[1]), 0);
    EXPECT_EQ(std::get<0>(calls[2]), 0);
    EXPECT_EQ(std::get<0>(calls[3]), 300);
    EXPECT_EQ(std::get<0>(calls[4]), 500);
    EXPECT_EQ(std::get<2>(calls[4]), "d");
    EXPECT_EQ(calls[5],
              std::make_tuple(int64_t{-1001}, std::optional<std::string>("sdk: upload error"),
                              std::optional<std::string>()));
}

// ---- downloads -------------------------------------------------------------------------------

TEST_F(TransportTest, DownloadLandsInTheCachesSubdirectoryByLastPathComponent) {
    server.on("/media/clip.mp4", LoopbackResponse::text("first video"));
    server.on("/other/clip.mp4", LoopbackResponse::text("second video"));

    auto download = [&](const std::string& path) {
        std::optional<std::string> location;
        std::optional<pelora::platform::Error> error;
        bool done = false;
        auto loop = pelora::platform::services().mainRunLoop;
        bool onLoop = false;
        auto task = PeloraNetwork::downloadTaskWithUrl(
            server.url(path), {}, std::nullopt,
            [&](std::optional<std::string> l, std::optional<pelora::platform::HttpResponse>,
                std::optional<pelora::platform::Error> e) {
                location = l;
                error = e;
                onLoop = loop->isLoopThread();
                done = true;
            });
        EXPECT_TRUE(task);
        EXPECT_FALSE(done);
        EXPECT_TRUE(waitFor([&] { return done; }));
        EXPECT_TRUE(onLoop);
        EXPECT_FALSE(error);
        return location;
    };

    std::string expected = (caches / "Pelora" / "clip.mp4").string();
    EXPECT_EQ(download("/media/clip.mp4"), expected);
    std::ifstream in(expected);
    std::string content((std::istreambuf_iterator<char>(in)), {});
    EXPECT_EQ(content, "first video");

    // Same last component: the second download replaces the first.
    EXPECT_EQ(download("/other/clip.mp4"), expected);
    std::ifstream again(expected);
    std::string replaced((std::istreambuf_iterator<char>(again)), {});
    EXPECT_EQ(replaced, "second video");
}

TEST_F(TransportTest, DownloadNeverNamesAFileOutsideItsDirectory) {
    server.on("/", LoopbackResponse::text("root"));
    server.on("/media/", LoopbackResponse::text("dir"));
    for (const char* path : {"/media/..", "/media/"}) {
        std::optional<std::string> location;
        bool done = false;
        PeloraNetwork::downloadTaskWithUrl(
            server.url(path), {}, std::nullopt,
            [&](std::optional<std::string> l, std::optional<pelora::platform::HttpResponse>,
                std::optional<pelora::platform::Error>) {
                location = l;
                done = true;
            });
        ASSERT_TRUE(waitFor([&] { return done; }));
        if (location && location->rfind(caches.string(), 0) == 0) {
            fs::path p = fs::weakly_canonical(*location);
            EXPECT_EQ(p.parent_path(), fs::weakly_canonical(caches / "Pelora")) << path;
        }
    }
    // Nothing but the Pelora directory appeared in the caches directory.
    for (const auto& entry : fs::directory_iterator(caches)) {
        EXPECT_EQ(entry.path().filename(), "Pelora");
    }
}

}  // namespace
