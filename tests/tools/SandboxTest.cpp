// The sandbox ad server and its inspector over loopback HTTP, the way the SDK, curl and the
// inspector page talk to them: answers, creatives, tracking records, failure slots, inventories,
// the decoded and flagged record a page exports, the live event stream and the control
// endpoints.
#include <gtest/gtest.h>
#include <httplib.h>
#include <unistd.h>

#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <regex>
#include <thread>

#include "Inspector.h"
#include "pelora/sandbox/Sandbox.h"

namespace {

using nlohmann::json;
using pelora::sandbox::Sandbox;
using pelora::sandbox::SandboxOptions;
using Texts = std::vector<std::string>;
namespace fs = std::filesystem;

httplib::Client clientOf(const Sandbox& sandbox, int readTimeoutSeconds = 10) {
    httplib::Client c("127.0.0.1", sandbox.port());
    c.set_connection_timeout(5, 0);
    c.set_read_timeout(readTimeoutSeconds, 0);
    return c;
}

// A tracking URL with every macro filled, as a client that had a value for each would send it.
std::string fillAll(const std::string& url) {
    return std::regex_replace(url, std::regex("__[A-Z_]+__"), "1");
}

// The inspector's record, as the page's export button downloads it.
json exported(const Sandbox& sandbox) {
    auto res = clientOf(sandbox).Get("/sandbox/inspector/export");
    EXPECT_TRUE(res);
    EXPECT_EQ(res->get_header_value("Content-Disposition"),
              "attachment; filename=\"pelora-sandbox-record.json\"");
    return json::parse(res->body);
}

// "<adId> <event>: <flag codes>" for every beacon with a flag.
Texts flagged(const Sandbox& sandbox) {
    Texts out;
    const json record = exported(sandbox);
    for (const auto& b : record["beacons"]) {
        std::string codes;
        for (const auto& f : b["flags"]) codes += " " + f["code"].get<std::string>();
        if (!codes.empty())
            out.push_back(b["adId"].get<std::string>() + " " + b["event"].get<std::string>() + ":" +
                          codes);
    }
    return out;
}

class SandboxTest : public ::testing::Test {
  protected:
    void SetUp() override {
        std::string error;
        ASSERT_TRUE(sandbox.start(SandboxOptions{}, &error)) << error;
    }
    httplib::Client client() { return clientOf(sandbox); }

    // The answer to a fetch for `slot`.
    json fetch(const std::string& slot, const std::string& reqId = "R") {
        json body = {{"slot", {{"slotId", slot}, {"width", 750}, {"height", 1334}}}};
        auto res = client().Post(("/api/v1/advert/fetch?reqId=" + reqId + "&sdkV=1.0").c_str(),
                                 body.dump(), "application/json");
        EXPECT_TRUE(res && res->status == 200 &&
                    res->get_header_value("Content-Type") == "application/json");
        return res ? json::parse(res->body, nullptr, false) : json();
    }
    json ads(const std::string& slot) { return fetch(slot)["data"]["ads"]; }

    // The tracking URL of `type` that the answer gave `ad`, as a path on this server.
    std::string track(const json& ad, int type) {
        for (const auto& t : ad["trackUrls"])
            if (t["trackType"] == type)
                return t["urls"][0].get<std::string>().substr(sandbox.baseUrl().size());
        ADD_FAILURE() << "no tracking URL of type " << type;
        return {};
    }

    void get(const std::string& path) {
        auto res = client().Get(path.c_str());
        ASSERT_TRUE(res) << path;
        EXPECT_EQ(res->status, 204) << path;
    }

    Sandbox sandbox;
};

TEST_F(SandboxTest, ServesFilesFromTheirFoldersOnly) {
    auto c = client();
    EXPECT_EQ(c.Get("/creatives/splash-demo.png")->status, 200);
    EXPECT_EQ(c.Get("/inspector/inspector.js")->status, 200);
    for (const char* path :
         {"/creatives/../inventory/default.json", "/creatives/a/../../x.png",
          "/creatives/%2e%2e/inventory/default.json", "/inspector/../inventory/default.json",
          "/inspector/%2e%2e/inventory/default.json",
          "/inspector/a/../../creatives/splash-demo.png", "/creatives/no-such-file.png",
          "/inspector/missing.js"}) {
        auto res = c.Get(path);
        ASSERT_TRUE(res) << path;
        EXPECT_NE(res->status, 200) << path;
        EXPECT_EQ(res->body.find("\"slots\""), std::string::npos) << path;
    }
}

// Tracking calls and fetches are kept as received (the demo's test shows the calls reaching the
// observer, and the load and demo tests the inventory's answers), bytes that are not text
// included, and served as JSON until cleared.
TEST_F(SandboxTest, RecordsTrackingRequestsAndServesThemAsJson) {
    auto c = client();
    const std::string get = "/track/splash-demo/splash-001/2?ts=1700000000123&dx=12&dy=-999&w=375";
    const std::string body = "{\"event\":\"impression\",\"w\":320}";
    EXPECT_EQ(c.Get(get.c_str())->status, 204);
    EXPECT_EQ(c.Post("/track/native-demo/native-001/1?via=post", body, "application/json")->status,
              204);
    // Bytes that are not text, in a query and a body, and in a fetch's request id.
    EXPECT_EQ(c.Post("/track/splash-demo/splash-001/2?ts=%FF%FE", std::string("\xff\x00\xfe", 3),
                     "application/octet-stream")
                  ->status,
              204);
    EXPECT_EQ(fetch("splash-demo", "%FF")["code"], 0);
    ASSERT_TRUE(sandbox.waitForTrackingRecords(3, std::chrono::seconds(5)));
    // The fetch is kept too (its body as received is the load test's).
    const auto fetches = sandbox.fetchRecords();
    ASSERT_EQ(fetches.size(), 1u);
    EXPECT_EQ(fetches[0].slotId, "splash-demo");
    EXPECT_EQ(fetches[0].params.at("sdkV"), "1.0");
    EXPECT_EQ(fetches[0].status, 200);

    auto records = sandbox.trackingRecords();
    ASSERT_EQ(records.size(), 3u);
    // Slot and track type as the demo's test reads them, the ad's id as the flags do.
    EXPECT_EQ(records[0].url, sandbox.baseUrl() + get);
    EXPECT_EQ(records[1].contentType, "application/json");
    EXPECT_EQ(records[1].query, "via=post");
    json list = json::parse(c.Get("/sandbox/records")->body)["records"];
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(list[0]["params"]["dy"], "-999");
    EXPECT_EQ(list[1]["method"], "POST");
    EXPECT_EQ(list[1]["body"], body);
    const json record = exported(sandbox);
    EXPECT_EQ(record["beacons"].size(), 3u);
    EXPECT_EQ(record["fetches"].size(), 1u);

    EXPECT_EQ(c.Delete("/sandbox/records")->status, 204);
    EXPECT_EQ(json::parse(c.Get("/sandbox/records")->body)["records"].size(), 0u);
}

TEST_F(SandboxTest, NoAnswerSlotHoldsUntilTheClientGivesUpOrTheServerStops) {
    const std::string body = R"({"slot":{"slotId":"fail-noanswer"}})";
    EXPECT_FALSE(clientOf(sandbox, 1).Post("/api/v1/advert/fetch", body, "application/json"));
    ASSERT_TRUE(sandbox.waitForFetchRecords(1, std::chrono::seconds(5)));
    EXPECT_EQ(sandbox.fetchRecords()[0].slotId, "fail-noanswer");
    EXPECT_EQ(sandbox.fetchRecords()[0].status, 0);

    // A second held request is still pending when the server stops: stop() must release it.
    std::thread pending(
        [&] { clientOf(sandbox, 60).Post("/api/v1/advert/fetch", body, "application/json"); });
    ASSERT_TRUE(sandbox.waitForFetchRecords(2, std::chrono::seconds(5)));
    sandbox.stop();
    pending.join();
    EXPECT_FALSE(sandbox.running());
    sandbox.stop();  // idempotent
}

// ---- the inspector ----------------------------------------------------------------------------

// The page's own test shows the common flags; these are the rules it does not reach: a repeat
// of an ad never served is both, and only macros the SDK knows for the event count as left (an
// unfilled video end time on a 75% beacon is normal, its time and sizes are not).
TEST_F(SandboxTest, FlagsEachFaultOnTheBeaconThatShowsIt) {
    get("/track/splash-demo/ghost-001/1?ts=1");
    get("/track/splash-demo/ghost-001/1?ts=2");
    json reward = ads("reward-demo")[0];
    get(fillAll(track(reward, 35)));
    get(track(reward, 34));  // a quartile after completion, with nothing filled at all
    EXPECT_EQ(
        flagged(sandbox),
        (Texts{"ghost-001 impression: never-served", "ghost-001 impression: never-served duplicate",
               "reward-001 video 75%: macro-left quartile-after-complete"}));
    EXPECT_EQ(exported(sandbox)["beacons"].back()["leftMacros"],
              json({"__HEIGHT__", "__REQ_HEIGHT__", "__REQ_WIDTH__", "__TS__", "__VIDEO_BEHAVIOR__",
                    "__VIDEO_PLAY_FIRSR_FRAME__", "__VIDEO_PLAY_LAST_FRAME__",
                    "__VIDEO_PLAY_TYPE__", "__VIDEO_SCENE__", "__VIDEO_START_TIME__",
                    "__VIDEO_STATUS__", "__VIDEO_TIME__", "__WIDTH__"}));
}

// How the inspector reads a macro's value and finds the values in a URL made from a template.
// (The page's tests read the times, sizes, video values and macros left on real beacons.)
TEST(SandboxInspectorDecoding, MacroValuesReadAsAPersonWould) {
    using pelora::sandbox::decodeMacro;
    EXPECT_EQ(decodeMacro("__TS__", "abc")["state"], "bad");
    EXPECT_EQ(decodeMacro("__DOWN_Y__", "-999")["state"], "fallback");
    using pelora::sandbox::matchTemplate;
    auto values = matchTemplate("/t?a=__TS__&b=x__WIDTH__y", "/t?a=17&b=x320y");
    ASSERT_TRUE(values);
    EXPECT_EQ(*values, (std::vector<std::pair<std::string, std::string>>{{"__TS__", "17"},
                                                                         {"__WIDTH__", "320"}}));
    EXPECT_FALSE(matchTemplate("/t?a=__TS__&b=1", "/t?a=17&b=2"));
    EXPECT_FALSE(matchTemplate("/u?a=__TS__", "/t?a=17"));
    EXPECT_EQ(matchTemplate("/t?a=__ts__", "/t?a=__ts__")->size(), 0u);  // lower case: no macro
}

// Reads the event stream of one page on its own thread.
class Stream {
  public:
    explicit Stream(int port) : client_("127.0.0.1", port) {
        client_.set_read_timeout(30, 0);
        thread_ = std::thread([this] {
            client_.Get("/sandbox/inspector/events", [&](const char* data, size_t size) {
                std::lock_guard lock(mutex_);
                text_.append(data, size);
                changed_.notify_all();
                return true;
            });
            std::lock_guard lock(mutex_);
            ended_ = true;
            changed_.notify_all();
        });
    }
    // The feed ends when the server stops; a test that failed before stopping it closes the
    // connection here instead of waiting for the read time-out.
    ~Stream() {
        if (!waitForEnd(std::chrono::seconds(0))) client_.stop();
        thread_.join();
    }
    // True once the text so far `holds` (bounded wait; false when the feed ends first).
    bool waitFor(const std::function<bool(const std::string&)>& holds) {
        std::unique_lock lock(mutex_);
        auto seen = [&] { return holds(text_); };
        return changed_.wait_for(lock, std::chrono::seconds(10), [&] {
            return seen() || ended_;
        }) && seen();
    }
    bool waitFor(const std::string& needle) {
        return waitFor(
            [&](const std::string& text) { return text.find(needle) != std::string::npos; });
    }
    bool waitForEnd(std::chrono::seconds bound = std::chrono::seconds(10)) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, bound, [&] { return ended_; });
    }

  private:
    httplib::Client client_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::string text_;
    bool ended_ = false;
    std::thread thread_;
};

// Pages receive a snapshot, then each entry as it comes; more pages than the bound are turned
// away, the ones open keep no fetch waiting, and stopping ends every feed.
TEST_F(SandboxTest, PagesGetASnapshotThenEachEntryAndStopNeverWaitsForThem) {
    Stream page(sandbox.port());
    ASSERT_TRUE(page.waitFor("event: snapshot\n"));
    get(track(ads("splash-demo")[0], 1));
    for (const char* entry : {"event: fetch\n", "event: ad\n", "\"event\":\"impression\""})
        ASSERT_TRUE(page.waitFor(entry)) << entry;
    ASSERT_TRUE(client().Post("/sandbox/records/clear"));
    // A page hears the clear as a reset, or, when it had not been sent every entry before the
    // clear yet, as a fresh snapshot.
    ASSERT_TRUE(page.waitFor([](const std::string& text) {
        const auto first = text.find("event: snapshot\n");
        return text.find("event: reset\n") != std::string::npos ||
               text.find("event: snapshot\n", first + 1) != std::string::npos;
    }));

    Stream second(sandbox.port()), third(sandbox.port()), fourth(sandbox.port());
    for (Stream* s : {&second, &third, &fourth}) ASSERT_TRUE(s->waitFor("event: snapshot\n"));
    EXPECT_EQ(client().Get("/sandbox/inspector/events")->status, 503);
    EXPECT_EQ(ads("native-demo").size(), 5u);
    sandbox.stop();
    for (Stream* s : {&page, &second, &third, &fourth}) EXPECT_TRUE(s->waitForEnd());
}

// Switching a slot live and back is the page's own test; here, what the control refuses.
TEST_F(SandboxTest, SlotSimulationsRefuseWhatTheyCannotUse) {
    auto c = client();
    for (const char* body : {"not json", "[1]", R"({"status": "500"})", R"({"status": 99})",
                             R"({"delayMs": -1})", R"({"body": "weird"})", R"({"statsu": 500})"}) {
        auto res = c.Put("/sandbox/slots/splash-demo/simulate", body, "application/json");
        ASSERT_TRUE(res) << body;
        EXPECT_EQ(res->status, 400) << body;
        EXPECT_FALSE(json::parse(res->body)["error"].get<std::string>().empty()) << body;
    }
    EXPECT_EQ(c.Put("/sandbox/slots/no-such-slot/simulate", "{}", "application/json")->status, 404);
    EXPECT_EQ(ads("splash-demo").size(), 1u);  // nothing refused took effect
}

// ---- inventories ------------------------------------------------------------------------------

class SandboxInventoryTest : public ::testing::Test {
  protected:
    void SetUp() override { fs::create_directories(dir); }
    void TearDown() override { fs::remove_all(dir); }
    std::string write(const std::string& name, const std::string& text) {
        std::ofstream(dir / name) << text;
        return (dir / name).string();
    }
    const fs::path dir = fs::temp_directory_path() /
                         ("pelora-sandbox-test-" + std::to_string(::getpid()) + "-" +
                          ::testing::UnitTest::GetInstance()->current_test_info()->name());
};

// What a slot's simulation may hold is the control's test (one parser reads both).
TEST_F(SandboxInventoryTest, RejectsUnusableInventories) {
    const std::pair<std::string, std::string> cases[] = {
        {"missing.json", ""},
        {"garbage.json", "{\"slots\": ["},
        {"noslots.json", "{\"provider\": \"x\"}"},
        {"badstatus.json", "{\"slots\": {\"a\": {\"simulate\": {\"status\": \"500\"}}}}"},
        {"badads.json", "{\"slots\": {\"a\": {\"ads\": {}}}}"}};
    for (const auto& [name, text] : cases) {
        const std::string path = text.empty() ? (dir / name).string() : write(name, text);
        Sandbox sandbox;
        std::string error;
        EXPECT_FALSE(sandbox.start({.inventoryPath = path}, &error)) << name;
        EXPECT_FALSE(error.empty()) << name;
        EXPECT_FALSE(sandbox.running()) << name;
    }
}

// An event whose URL is listed twice is called twice per showing without counting as a double.
TEST_F(SandboxInventoryTest, CustomInventoryAndCreativesFolder) {
    write("logo.png", "not really a png");
    auto inventory = write("inv.json", R"({
      "provider": "custom",
      "slots": {"s1": {"simulate": {"code": 7},
                       "ads": [{"adId": "a{{slot}}", "images": ["{{creatives}}/logo.png"],
                                "clickAdUrl": "{{base}}/landing/{{slot}}/{{adId}}"}]},
                "twice": {"ads": [{"adId": "a", "trackUrls": [
                       {"trackType": 1, "urls": ["{{track}}", "{{track}}"]}]}]}}
    })");
    Sandbox sandbox;
    std::string error;
    ASSERT_TRUE(sandbox.start({.inventoryPath = inventory, .creativesDir = dir.string()}, &error))
        << error;
    auto c = clientOf(sandbox);
    auto res = c.Post("/api/v1/advert/fetch", R"({"slot":{"slotId":"s1"}})", "application/json");
    ASSERT_TRUE(res);
    json answer = json::parse(res->body);
    EXPECT_EQ(answer["code"], 7);
    EXPECT_EQ(answer["data"]["provider"], "custom");
    EXPECT_EQ(answer["data"]["reqId"], "");
    EXPECT_EQ(answer["data"]["ads"][0]["adId"], "as1");
    EXPECT_EQ(answer["data"]["ads"][0]["clickAdUrl"], sandbox.baseUrl() + "/landing/s1/as1");
    EXPECT_EQ(c.Get("/creatives/logo.png")->body, "not really a png");

    res = c.Post("/api/v1/advert/fetch", R"({"slot":{"slotId":"twice"}})", "application/json");
    ASSERT_TRUE(res);
    const std::string url = json::parse(res->body)["data"]["ads"][0]["trackUrls"][0]["urls"][0];
    const std::string path = fillAll(url.substr(sandbox.baseUrl().size()));
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(c.Get(path.c_str()));
    EXPECT_EQ(flagged(sandbox), Texts{"a impression: duplicate"});

    // A second server cannot take a port that is in use.
    Sandbox second;
    EXPECT_FALSE(second.start({.port = sandbox.port(), .inventoryPath = inventory}, &error));
}

}  // namespace
