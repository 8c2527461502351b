// The sandbox ad server, exercised over loopback HTTP the way the SDK and curl talk to it.
#include <gtest/gtest.h>
#include <httplib.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <thread>

#include "pelora/sandbox/Sandbox.h"

namespace {

using nlohmann::json;
using pelora::sandbox::Sandbox;
using pelora::sandbox::SandboxOptions;
namespace fs = std::filesystem;

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

class SandboxServerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        std::string error;
        ASSERT_TRUE(sandbox.start(SandboxOptions{}, &error)) << error;
        ASSERT_GT(sandbox.port(), 0);
    }

    httplib::Client client(int readTimeoutSeconds = 10) {
        httplib::Client c("127.0.0.1", sandbox.port());
        c.set_connection_timeout(5, 0);
        c.set_read_timeout(readTimeoutSeconds, 0);
        return c;
    }

    httplib::Result fetch(const std::string& slot, const std::string& reqId = "REQ1",
                          int readTimeoutSeconds = 10) {
        json body = {{"slot", {{"slotId", slot}, {"width", 750}, {"height", 1334}}},
                     {"device", {{"os", "iOS"}}}};
        return client(readTimeoutSeconds)
            .Post(("/api/v1/advert/fetch?reqId=" + reqId + "&sdkV=1.0").c_str(), body.dump(),
                  "application/json");
    }

    // A path relative to the server from one of the absolute URLs it handed out.
    std::string pathOf(const std::string& url) {
        const std::string base = sandbox.baseUrl();
        EXPECT_EQ(url.rfind(base, 0), 0u) << url << " does not point at " << base;
        return url.substr(base.size());
    }

    Sandbox sandbox;
};

TEST_F(SandboxServerTest, AnswersTheFetchFromTheInventoryAndEchoesTheRequestId) {
    auto res = fetch("splash-demo", "0123456789ABCDEF0123456789ABCDEF");
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, 200);
    EXPECT_EQ(res->get_header_value("Content-Type"), "application/json");
    json answer = json::parse(res->body);
    EXPECT_EQ(answer["code"], 0);
    EXPECT_EQ(answer["data"]["reqId"], "0123456789ABCDEF0123456789ABCDEF");
    EXPECT_EQ(answer["data"]["provider"], "pelora-sandbox");
    ASSERT_EQ(answer["data"]["ads"].size(), 1u);
    const json& ad = answer["data"]["ads"][0];
    EXPECT_EQ(ad["adId"], "splash-001");
    EXPECT_EQ(ad["images"][0], sandbox.baseUrl() + "/creatives/splash-demo.png");

    // Every tracking URL points back at this server and still carries its macros.
    std::set<int> types;
    for (const auto& track : ad["trackUrls"]) {
        types.insert(track["trackType"].get<int>());
        for (const auto& url : track["urls"]) {
            const std::string u = url.get<std::string>();
            EXPECT_EQ(u.rfind(sandbox.baseUrl() + "/track/splash-demo/splash-001/", 0), 0u) << u;
            EXPECT_NE(u.find("ts=__TS__"), std::string::npos) << u;
            EXPECT_NE(u.find("rw=__REQ_WIDTH__"), std::string::npos) << u;
            EXPECT_EQ(u.find("{{"), std::string::npos) << u;
        }
    }
    EXPECT_EQ(types, (std::set<int>{1, 2, 16, 17}));

    // The request is kept exactly as the client sent it.
    auto fetches = sandbox.fetchRecords();
    ASSERT_EQ(fetches.size(), 1u);
    EXPECT_EQ(fetches[0].slotId, "splash-demo");
    EXPECT_EQ(fetches[0].params.at("sdkV"), "1.0");
    EXPECT_EQ(fetches[0].contentType, "application/json");
    EXPECT_EQ(json::parse(fetches[0].body)["slot"]["width"], 750);
    EXPECT_EQ(fetches[0].status, 200);
}

TEST_F(SandboxServerTest, NativeSlotKeepsItsOrderAndExpandsPostTemplates) {
    auto res = fetch("native-demo");
    ASSERT_TRUE(res);
    json ads = json::parse(res->body)["data"]["ads"];
    ASSERT_EQ(ads.size(), 5u);
    for (size_t i = 0; i < ads.size(); ++i) {
        EXPECT_EQ(ads[i]["adId"], "native-00" + std::to_string(i + 1));
        EXPECT_EQ(ads[i]["icons"].size(), 1u);
        EXPECT_EQ(ads[i]["images"].size(), 1u);
    }
    const json& post = ads[0]["trackUrls"][0];
    EXPECT_EQ(post["trackType"], 1);
    EXPECT_EQ(post["method"], "POST");
    EXPECT_EQ(post["contentType"], "application/json");
    const std::string content = post["content"];
    EXPECT_NE(content.find("\"adId\":\"native-001\""), std::string::npos) << content;
    EXPECT_NE(content.find("__TS__"), std::string::npos) << content;
    const std::string url = post["urls"][0];
    EXPECT_EQ(url, sandbox.baseUrl() + "/track/native-demo/native-001/1?via=post");
}

TEST_F(SandboxServerTest, ServesEveryCreativeItHandsOut) {
    for (const std::string slot : {"splash-demo", "native-demo"}) {
        json ads = json::parse(fetch(slot)->body)["data"]["ads"];
        for (const auto& ad : ads) {
            for (const char* list : {"images", "icons"}) {
                if (!ad.contains(list)) continue;
                for (const auto& url : ad[list]) {
                    const std::string path = pathOf(url);
                    auto res = client().Get(path.c_str());
                    ASSERT_TRUE(res) << path;
                    EXPECT_EQ(res->status, 200) << path;
                    const std::string file = Sandbox::defaultCreativesDir() +
                                             path.substr(std::string("/creatives").size());
                    EXPECT_EQ(res->body, readFile(file)) << path;
                    EXPECT_EQ(res->get_header_value("Content-Type").rfind("image/", 0), 0u);
                }
            }
        }
    }
}

TEST_F(SandboxServerTest, RefusesCreativePathsOutsideItsFolder) {
    auto c = client();
    for (const char* path : {"/creatives/../inventory/default.json", "/creatives/a/../../x.png",
                             "/creatives/%2e%2e/inventory/default.json"}) {
        auto res = c.Get(path);
        ASSERT_TRUE(res) << path;
        EXPECT_NE(res->status, 200) << path;
        EXPECT_EQ(res->body.find("\"slots\""), std::string::npos) << path;
    }
    auto missing = c.Get("/creatives/no-such-file.png");
    ASSERT_TRUE(missing);
    EXPECT_EQ(missing->status, 404);
}

TEST_F(SandboxServerTest, RecordsTrackingRequestsAndServesThemAsJson) {
    // The observer runs on a server thread; the answer reaching the client orders it before the
    // checks below only through the socket, which ThreadSanitizer cannot see.
    std::mutex observedMutex;
    std::vector<std::string> observed;
    sandbox.setTrackingObserver([&](const pelora::sandbox::TrackingRecord& r) {
        std::lock_guard lock(observedMutex);
        observed.push_back(r.adId);
    });
    auto c = client();
    auto get = c.Get("/track/splash-demo/splash-001/2?ts=1700000000123&dx=12&dy=-999&w=375");
    ASSERT_TRUE(get);
    EXPECT_EQ(get->status, 204);
    auto post = c.Post("/track/native-demo/native-001/1?via=post",
                       "{\"event\":\"impression\",\"w\":320}", "application/json");
    ASSERT_TRUE(post);
    EXPECT_EQ(post->status, 204);
    ASSERT_TRUE(sandbox.waitForTrackingRecords(2, std::chrono::seconds(5)));

    auto records = sandbox.trackingRecords();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].method, "GET");
    EXPECT_EQ(records[0].slot, "splash-demo");
    EXPECT_EQ(records[0].adId, "splash-001");
    EXPECT_EQ(records[0].trackType, 2);
    EXPECT_EQ(records[0].params.at("ts"), "1700000000123");
    EXPECT_EQ(records[0].params.at("dy"), "-999");
    EXPECT_EQ(
        records[0].url,
        sandbox.baseUrl() + "/track/splash-demo/splash-001/2?ts=1700000000123&dx=12&dy=-999&w=375");
    EXPECT_EQ(records[1].method, "POST");
    EXPECT_EQ(records[1].contentType, "application/json");
    EXPECT_EQ(records[1].body, "{\"event\":\"impression\",\"w\":320}");
    EXPECT_EQ(records[1].query, "via=post");
    {
        std::lock_guard lock(observedMutex);
        EXPECT_EQ(observed, (std::vector<std::string>{"splash-001", "native-001"}));
    }

    auto served = c.Get("/sandbox/records");
    ASSERT_TRUE(served);
    json list = json::parse(served->body)["records"];
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0]["params"]["dx"], "12");
    EXPECT_EQ(list[1]["body"], "{\"event\":\"impression\",\"w\":320}");

    auto cleared = c.Delete("/sandbox/records");
    ASSERT_TRUE(cleared);
    EXPECT_EQ(cleared->status, 204);
    EXPECT_TRUE(sandbox.trackingRecords().empty());
    EXPECT_EQ(json::parse(c.Get("/sandbox/records")->body)["records"].size(), 0u);
}

TEST_F(SandboxServerTest, FailureSlotsAnswerAsDocumented) {
    auto status500 = fetch("fail-500");
    ASSERT_TRUE(status500);
    EXPECT_EQ(status500->status, 500);
    json body500 = json::parse(status500->body);
    EXPECT_EQ(body500["code"], 500);
    EXPECT_FALSE(body500.contains("data"));

    auto empty = fetch("fail-empty");
    ASSERT_TRUE(empty);
    EXPECT_EQ(empty->status, 200);
    EXPECT_TRUE(empty->body.empty());

    auto malformed = fetch("fail-malformed");
    ASSERT_TRUE(malformed);
    EXPECT_EQ(malformed->status, 200);
    EXPECT_FALSE(malformed->body.empty());
    EXPECT_TRUE(json::parse(malformed->body, nullptr, false).is_discarded());

    auto nodata = fetch("fail-nodata");
    ASSERT_TRUE(nodata);
    json nodataBody = json::parse(nodata->body);
    EXPECT_EQ(nodataBody["code"], 0);
    EXPECT_FALSE(nodataBody.contains("data"));

    for (const char* slot : {"fail-noads", "no-such-slot"}) {
        auto noads = fetch(slot, "R2");
        ASSERT_TRUE(noads) << slot;
        json answer = json::parse(noads->body);
        EXPECT_EQ(answer["data"]["reqId"], "R2") << slot;
        EXPECT_TRUE(answer["data"]["ads"].is_array()) << slot;
        EXPECT_TRUE(answer["data"]["ads"].empty()) << slot;
    }
}

TEST_F(SandboxServerTest, DelayedSlotOutlastsAShortClientTimeout) {
    auto res = fetch("fail-delay", "D1", /*readTimeoutSeconds=*/1);
    EXPECT_FALSE(res);
    EXPECT_EQ(res.error(), httplib::Error::Read);
}

TEST_F(SandboxServerTest, NoAnswerSlotHoldsUntilTheClientGivesUpOrTheServerStops) {
    auto res = fetch("fail-noanswer", "N1", /*readTimeoutSeconds=*/1);
    EXPECT_FALSE(res);
    ASSERT_TRUE(sandbox.waitForFetchRecords(1, std::chrono::seconds(5)));
    EXPECT_EQ(sandbox.fetchRecords()[0].slotId, "fail-noanswer");
    EXPECT_EQ(sandbox.fetchRecords()[0].status, 0);

    // A second held request is still pending when the server stops: stop() must release it.
    std::thread pending([this] { fetch("fail-noanswer", "N2", /*readTimeoutSeconds=*/60); });
    ASSERT_TRUE(sandbox.waitForFetchRecords(2, std::chrono::seconds(5)));
    sandbox.stop();
    pending.join();
    EXPECT_FALSE(sandbox.running());
    sandbox.stop();  // idempotent
}

class SandboxInventoryTest : public ::testing::Test {
  protected:
    void SetUp() override {
        dir = fs::temp_directory_path() /
              ("pelora-sandbox-test-" + std::to_string(::getpid()) + "-" +
               ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::create_directories(dir);
    }
    void TearDown() override { fs::remove_all(dir); }

    std::string write(const std::string& name, const std::string& text) {
        auto path = (dir / name).string();
        std::ofstream(path) << text;
        return path;
    }

    fs::path dir;
};

TEST_F(SandboxInventoryTest, RejectsUnusableInventories) {
    const std::pair<std::string, std::string> cases[] = {
        {"missing.json", ""},
        {"garbage.json", "{\"slots\": ["},
        {"noslots.json", "{\"provider\": \"x\"}"},
        {"badstatus.json", "{\"slots\": {\"a\": {\"simulate\": {\"status\": \"500\"}}}}"},
        {"badbody.json", "{\"slots\": {\"a\": {\"simulate\": {\"body\": \"weird\"}}}}"},
        {"badads.json", "{\"slots\": {\"a\": {\"ads\": {}}}}"},
    };
    for (const auto& [name, text] : cases) {
        std::string path = (dir / name).string();
        if (!text.empty()) path = write(name, text);
        Sandbox sandbox;
        std::string error;
        EXPECT_FALSE(sandbox.start({.inventoryPath = path}, &error)) << name;
        EXPECT_FALSE(error.empty()) << name;
        EXPECT_FALSE(sandbox.running()) << name;
    }
}

TEST_F(SandboxInventoryTest, CustomInventoryAndCreativesFolder) {
    write("logo.png", "not really a png");
    auto inventory = write("inv.json", R"({
      "provider": "custom",
      "slots": {"s1": {"simulate": {"code": 7},
                       "ads": [{"adId": "a{{slot}}", "images": ["{{creatives}}/logo.png"],
                                "clickAdUrl": "{{base}}/landing/{{slot}}/{{adId}}"}]}}
    })");
    Sandbox sandbox;
    std::string error;
    ASSERT_TRUE(sandbox.start({.inventoryPath = inventory, .creativesDir = dir.string()}, &error))
        << error;
    httplib::Client c("127.0.0.1", sandbox.port());
    c.set_read_timeout(10, 0);
    auto res = c.Post("/api/v1/advert/fetch", R"({"slot":{"slotId":"s1"}})", "application/json");
    ASSERT_TRUE(res);
    json answer = json::parse(res->body);
    EXPECT_EQ(answer["code"], 7);
    EXPECT_EQ(answer["data"]["provider"], "custom");
    EXPECT_EQ(answer["data"]["reqId"], "");
    EXPECT_EQ(answer["data"]["ads"][0]["adId"], "as1");
    EXPECT_EQ(answer["data"]["ads"][0]["clickAdUrl"], sandbox.baseUrl() + "/landing/s1/as1");
    auto logo = c.Get("/creatives/logo.png");
    ASSERT_TRUE(logo);
    EXPECT_EQ(logo->body, "not really a png");

    // A second server cannot take a port that is in use.
    Sandbox second;
    EXPECT_FALSE(second.start({.port = sandbox.port(), .inventoryPath = inventory}, &error));
}

}  // namespace
