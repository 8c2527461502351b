// The transport on the fake network: the request as the server receives it, what each answer
// becomes, where completions run and where downloads land. Certificate checks over HTTPS are
// tests/tools' (`pelora fetch --ca-file`, through this transport and the libcurl sessions).

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "FakeServer.h"
#include "LoopbackServer.h"
#include "TestPlatform.h"
#include "core/PeloraAdFetch.h"
#include "core/PeloraNetwork.h"
#include "core/PeloraRequest.h"
#include "pelora/PeloraApiAd.h"
#include "pelora/PeloraSDKManager.h"
#include "pelora/platform/Services.h"

namespace {

using nlohmann::json;
using pelora::platform::HttpRequest;
using pelora::testing::FakeDeviceInfo;
using pelora::testing::LoopbackResponse;
using pelora::testing::TestPlatform;
namespace URLError = pelora::platform::URLError;

constexpr const char* kFetchPath = "/api/v1/advert/fetch";
constexpr const char* kTwoAds =
    R"({"code":0,"data":{"reqId":"R1","provider":"p","ads":[{"adId":"a1","title":"first"},)"
    R"({"adId":"a2","trackUrls":[{"trackType":1,"urls":["http://127.0.0.1/t"]}]}]}})";

// What a completion delivered, and how often.
struct Result {
    int calls = 0;
    bool onLoop = false;
    int64_t code = 1;  // 1: nothing arrived yet
    std::optional<std::string> msg, body;
    std::shared_ptr<PeloraRespObject> resp;
    size_t ads() const { return resp && resp->ads ? resp->ads->size() : 0; }
};

void arrived(Result& r, int64_t code, std::optional<std::string> msg = {}) {
    ++r.calls;
    r.onLoop = pelora::platform::services().mainRunLoop->isLoopThread();
    r.code = code;
    r.msg = std::move(msg);
}

class TransportTest : public ::testing::Test {
  protected:
    // Runs the loop until `r` completed; then checks it ran once, on the loop, and never inside
    // the call that started it.
    Result finish(const std::shared_ptr<Result>& r) {
        EXPECT_EQ(r->calls, 0) << "completion ran inside the call";
        platform.pump();
        EXPECT_EQ(r->calls, 1);
        EXPECT_TRUE(r->onLoop);
        return *r;
    }

    Result fetch(const std::optional<std::string>& url) {
        auto r = std::make_shared<Result>();
        PeloraNetwork::post(url, PeloraUrlQuery::init(), PeloraReqBody::init(), {},
                            [r](int64_t code, auto msg, auto resp) {
                                arrived(*r, code, msg);
                                r->resp = resp;
                            });
        return finish(r);
    }

    Result fetchAds(const PeloraAdFetchRequest& request) {
        auto r = std::make_shared<Result>();
        PeloraFetchAds(request, [r](auto error, auto payload) {
            arrived(*r, error ? error->code : 0);
            r->resp = payload;
        });
        return finish(r);
    }

    PeloraNetwork::ReportCompletion into(std::shared_ptr<Result> r) {
        return [r](int64_t code, auto msg, auto body) {
            arrived(*r, code, msg);
            r->body = body;
        };
    }

    Result report(const std::string& url) {
        auto r = std::make_shared<Result>();
        PeloraNetwork::get(url, nullptr, {}, into(r));
        return finish(r);
    }

    std::optional<std::string> download(const std::string& path) {
        auto r = std::make_shared<Result>();
        PeloraNetwork::downloadTaskWithUrl(server.url(path), {}, std::nullopt,
                                           [r](auto location, auto, auto error) {
                                               arrived(*r, error ? error->code : 0);
                                               r->body = location;
                                           });
        EXPECT_EQ(finish(r).code, 0);
        return r->body;
    }

    TestPlatform platform{TestPlatform::NetworkKind::Fake};
    pelora::testing::FakeServer server{platform};
};

// ---- the ad fetch ---------------------------------------------------------------------------

TEST_F(TransportTest, AnswersBecomeTheCodeMessageAndPayload) {
    struct Case {
        std::string body;
        int status;
        int64_t code;
        std::optional<std::string> msg;
        int ads;  // -1: no payload
    };
    const Case cases[] = {
        {kTwoAds, 200, 0, std::nullopt, 2},
        {R"({"code":500,"data":{"ads":[]}})", 500, 0, std::nullopt, 0},  // data is what counts
        {"", 200, -1, "response error", -1},
        {R"({"code":0})", 200, -1, std::nullopt, -1},
        {"not json at all", 200, -1, std::nullopt, -1},
        {R"({"data":[1]})", 200, -1, std::nullopt, -1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.body);
        server.on(kFetchPath, LoopbackResponse::json(c.body, c.status));
        const Result r = fetch(server.url(kFetchPath));
        EXPECT_EQ(r.code, c.code);
        EXPECT_EQ(r.msg, c.msg);
        EXPECT_EQ(r.resp ? static_cast<int>(r.ads()) : -1, c.ads);
    }
    // Without a URL the platform refuses the request and the caller hears its code; without a
    // completion the fetch still goes out.
    const Result refused = fetch(std::nullopt);
    EXPECT_LT(refused.code, -1);
    EXPECT_TRUE(refused.msg);
    PeloraNetwork::post(server.url(kFetchPath), PeloraUrlQuery::init(), PeloraReqBody::init(), {},
                        nullptr);
    platform.pump();
    EXPECT_EQ(server.requestCount(), std::size(cases) + 1);
}

TEST_F(TransportTest, AnswersPastTheHostsLimitFailWithTheSizeCodeAndMapNothing) {
    server.on(kFetchPath, LoopbackResponse::json(kTwoAds));
    const size_t size = std::string(kTwoAds).size();
    for (size_t limit : {size - 1, size}) {
        platform.options.limits.answerBytes = limit;
        platform.install();
        auto r = fetch(server.url(kFetchPath));
        // The limit travels with the request: a backend that never saw the options keeps it.
        EXPECT_EQ(platform.fake->requests().back().request.maxBodyBytes, limit);
        EXPECT_EQ(r.code, limit < size ? URLError::kDataLengthExceedsMaximum : 0) << limit;
        EXPECT_EQ(r.msg.has_value(), limit < size);
        EXPECT_EQ(r.ads(), limit < size ? 0u : 2u);
    }
}

// The whole request as the server receives it (each kind's slot and time-out are its loader's
// tests), and its ads stamped with the slot's size: the screen's pixels when the kind gives none.
TEST_F(TransportTest, TheRequestAsTheServerReceivesIt) {
    platform.options.serverOrigin = server.baseUrl();
    platform.install();
    server.on(kFetchPath, LoopbackResponse::json(kTwoAds));
    fetchAds({PeloraAdKind::kRewardVideo, "S", std::nullopt, 3});
    PeloraSDKManager::setAppID(std::string("app id&1"));
    const Result r = fetchAds({PeloraAdKind::kRewardVideo, "S", std::nullopt, 3});
    ASSERT_EQ(r.ads(), 2u);
    for (const auto& ad : *r.resp->ads) {
        EXPECT_EQ(std::pair(ad->reqSlotW, ad->reqSlotH), std::pair(750, 1334));
    }
    const auto sent = server.requestsTo(kFetchPath);
    ASSERT_EQ(sent.size(), 2u);
    // Without an app id neither the query nor the body names one.
    EXPECT_FALSE(sent[0].param("appId"));
    EXPECT_FALSE(json::parse(sent[0].body)["appInfo"].contains("appId"));
    EXPECT_NE(sent[0].param("reqId"), sent[1].param("reqId"));

    const auto& got = sent[1];
    EXPECT_EQ(got.method, "POST");
    EXPECT_EQ(got.header("Content-Type"), "application/json");
    std::string reqId = platform.device->issuedUUIDs().back();
    std::erase(reqId, '-');
    const auto ms = static_cast<int64_t>(platform.clock->wallSeconds() * 1000.0);
    std::set<std::string> pairs;  // in no particular order
    std::stringstream query(got.query);
    for (std::string pair; std::getline(query, pair, '&');) pairs.insert(pair);
    EXPECT_EQ(pairs, (std::set<std::string>{"reqId=" + reqId, "reqTs=" + std::to_string(ms),
                                            "sdkV=1.0", "sdkVc=1", "appId=app%20id%261",
                                            "appV=2.5.0", "appVc=123", "os=iOS", "sdkN=PeloraSDK",
                                            std::string("udid=") + FakeDeviceInfo::kVendorId}));
    // dump() sorts keys and tells 0 from 0.0, so the value types are compared too.
    const auto body = json::parse(got.body);
    EXPECT_EQ(body.size(), 3u);
    EXPECT_EQ(body["appInfo"].dump(),
              R"({"appId":"app id&1","cost":0,"hasD":false,"lat":0.0,"lng":0.0})");
    EXPECT_EQ(body["device"].dump(),
              R"({"deviceId":"00000000-0000-0000-0000-000000000000","dpi":0,)"
              R"x("imsi":"(null)(null)","model":"iPhone","net":"wifi","orientation":1,"os":"iOS",)x"
              R"("osVersion":"14.2","screenHeight":1334,"screenWidth":750,"vendor":"Apple"})");
}

// ---- reports -------------------------------------------------------------------------------

TEST_F(TransportTest, ReportStatusBecomesTheCode) {
    struct Case {
        int status;
        std::string body;
        int64_t code;  // 0 for the whole 2xx range, the status otherwise
    };
    const Case cases[] = {{199, "a", 199}, {200, "b", 0},      {204, "", 0},   {299, "c", 0},
                          {300, "d", 300}, {404, "gone", 404}, {500, "e", 500}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.status);
        const std::string path = "/r" + std::to_string(c.status);
        server.on(path, LoopbackResponse::text(c.body, c.status));
        auto r = report(server.url(path));
        EXPECT_EQ(r.code, c.code);
        EXPECT_FALSE(r.msg);
        EXPECT_EQ(r.body.value_or(""), c.body);
    }
    server.failWith(URLError::kCannotConnectToHost);
    auto failed = report(server.url("/r200"));
    EXPECT_EQ(failed.code, URLError::kCannotConnectToHost);
    EXPECT_EQ(failed.msg, "sdk: upload error");
    EXPECT_FALSE(failed.body);
}

// A body goes as given, with no type of its own, under the default time-out; without a URL
// nothing happens at all (not even the modifier), without a completion the report still goes
// out. (What tracking sends, with its types, is TrackEventTest's.)
TEST_F(TransportTest, ReportsAsTheServerReceivesThem) {
    server.on("/t", LoopbackResponse::text("x"));
    auto post = std::make_shared<Result>();
    PeloraNetwork::post(server.url("/t"), std::string("k=v"), {}, into(post));
    finish(post);
    auto never = std::make_shared<Result>();
    auto touch = [&](HttpRequest&) { ++never->calls; };
    PeloraNetwork::get(std::nullopt, nullptr, touch, into(never));
    PeloraNetwork::post(std::nullopt, std::string("x"), touch, into(never));
    PeloraNetwork::get(server.url("/t"), nullptr, {}, nullptr);
    platform.pump();
    EXPECT_EQ(never->calls, 0);

    const auto sent = server.requestsTo("/t");
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0].method, "POST");
    EXPECT_EQ(sent[0].body, "k=v");
    EXPECT_FALSE(sent[0].header("Content-Type"));
    EXPECT_EQ(platform.fake->requests()[0].request.timeoutInterval, 60.0);
    EXPECT_EQ(sent[1].method, "GET");
}

// ---- downloads -----------------------------------------------------------------------------

// By the URL's last path component into <caches>/Pelora, replacing a file of that name; a
// name that would leave the directory is never used.
TEST_F(TransportTest, DownloadNeverNamesAFileOutsideItsDirectory) {
    const std::string caches = platform.cachesDirectory();
    const std::pair<std::string, std::optional<std::string>> cases[] = {
        {"/media/clip.mp4", "clip.mp4"},
        {"/other/clip.mp4", "clip.mp4"},
        {"/media/", "media"},
        {"/media/..", std::nullopt},
    };
    for (const auto& [path, name] : cases) {
        SCOPED_TRACE(path);
        server.on(path, LoopbackResponse::text("from " + path));
        auto location = download(path);
        if (!name) {
            EXPECT_TRUE(!location || location->rfind(caches, 0) != 0) << *location;
            continue;
        }
        ASSERT_EQ(location, caches + "/Pelora/" + *name);
        std::ifstream in(*location);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "from " + path);
    }
    for (const auto& entry : std::filesystem::directory_iterator(caches)) {
        EXPECT_EQ(entry.path().filename(), "Pelora");
    }
}

}  // namespace
