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
#include <mutex>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <thread>

#include "Inspector.h"
#include "pelora/sandbox/Sandbox.h"

namespace {

using nlohmann::json;
using pelora::sandbox::Sandbox;
using pelora::sandbox::SandboxOptions;
using Texts = std::vector<std::string>;
namespace fs = std::filesystem;

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

httplib::Client clientOf(const Sandbox& sandbox, int readTimeoutSeconds = 10) {
    httplib::Client c("127.0.0.1", sandbox.port());
    c.set_connection_timeout(5, 0);
    c.set_read_timeout(readTimeoutSeconds, 0);
    return c;
}

// Fills every macro the way the SDK does for an event of `type`.
std::string fill(std::string url, int type) {
    auto set = [&](const std::string& macro, const std::string& value) {
        for (size_t p; (p = url.find(macro)) != std::string::npos;)
            url.replace(p, macro.size(), value);
    };
    for (const char* m : {"__TS__", "__EVENT_TIME_START__", "__EVENT_TIME_END__"})
        set(m, "1700000000123");
    for (const char* m : {"__WIDTH__", "__HEIGHT__", "__REQ_WIDTH__", "__REQ_HEIGHT__"})
        set(m, "320");
    for (const char* m : {"__DOWN_X__", "__DOWN_Y__", "__UP_X__", "__UP_Y__"})
        set(m, type == 2 ? "12" : "-999");
    if (type == 2) {
        set("__OFFSET_X__", "12");
        set("__OFFSET_Y__", "12");
    }
    set("__VIDEO_TIME__", "10");
    if (type == 35) set("__VIDEO_END_TIME__", "10");
    for (const char* m : {"__VIDEO_BEHAVIOR__", "__VIDEO_START_TIME__", "__VIDEO_PLAY_LAST_FRAME__",
                          "__VIDEO_STATUS__"})
        set(m, "0");
    set("__VIDEO_PLAY_FIRSR_FRAME__", "1");
    set("__VIDEO_SCENE__", "3");
    set("__VIDEO_PLAY_TYPE__", "1");
    return url;
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

    json exported() {
        auto res = client().Get("/sandbox/inspector/export");
        EXPECT_TRUE(res);
        EXPECT_EQ(res->get_header_value("Content-Disposition"),
                  "attachment; filename=\"pelora-sandbox-record.json\"");
        return json::parse(res->body);
    }

    // "<adId> <event>: <flag codes>" for every beacon with a flag.
    Texts flagged() {
        Texts out;
        const json record = exported();
        for (const auto& b : record["beacons"]) {
            std::string codes;
            for (const auto& f : b["flags"]) codes += " " + f["code"].get<std::string>();
            if (!codes.empty())
                out.push_back(b["adId"].get<std::string>() + " " + b["event"].get<std::string>() +
                              ":" + codes);
        }
        return out;
    }

    Sandbox sandbox;
};

TEST_F(SandboxTest, AnswersFromTheInventoryAndKeepsTheRequest) {
    json answer = fetch("splash-demo", "0123456789ABCDEF0123456789ABCDEF");
    EXPECT_EQ(answer["code"], 0);
    EXPECT_EQ(answer["data"]["reqId"], "0123456789ABCDEF0123456789ABCDEF");
    EXPECT_EQ(answer["data"]["provider"], "pelora-sandbox");
    ASSERT_EQ(answer["data"]["ads"].size(), 1u);
    const json& ad = answer["data"]["ads"][0];
    EXPECT_EQ(ad["adId"], "splash-001");
    EXPECT_EQ(ad["images"][0], sandbox.baseUrl() + "/creatives/splash-demo.png");
    // Every tracking URL points back at this server and still carries its macros.
    std::set<int> types;
    for (const auto& t : ad["trackUrls"]) {
        types.insert(t["trackType"].get<int>());
        for (const std::string u : t["urls"]) {
            EXPECT_EQ(u.rfind(sandbox.baseUrl() + "/track/splash-demo/splash-001/", 0), 0u) << u;
            EXPECT_NE(u.find("ts=__TS__"), std::string::npos) << u;
            EXPECT_NE(u.find("rw=__REQ_WIDTH__"), std::string::npos) << u;
            EXPECT_EQ(u.find("{{"), std::string::npos) << u;
        }
    }
    EXPECT_EQ(types, (std::set<int>{1, 2, 16, 17}));
    auto fetches = sandbox.fetchRecords();
    ASSERT_EQ(fetches.size(), 1u);
    EXPECT_EQ(fetches[0].slotId, "splash-demo");
    EXPECT_EQ(fetches[0].params.at("sdkV"), "1.0");
    EXPECT_EQ(fetches[0].contentType, "application/json");
    EXPECT_EQ(json::parse(fetches[0].body)["slot"]["width"], 750);
    EXPECT_EQ(fetches[0].status, 200);

    // The native slot keeps its order and expands its POST template.
    json native = ads("native-demo");
    ASSERT_EQ(native.size(), 5u);
    for (size_t i = 0; i < native.size(); ++i) {
        EXPECT_EQ(native[i]["adId"], "native-00" + std::to_string(i + 1));
        EXPECT_EQ(native[i]["icons"].size(), 1u);
        EXPECT_EQ(native[i]["images"].size(), 1u);
    }
    const json& post = native[0]["trackUrls"][0];
    EXPECT_EQ(post["trackType"], 1);
    EXPECT_EQ(post["method"], "POST");
    EXPECT_EQ(post["contentType"], "application/json");
    EXPECT_NE(post["content"].get<std::string>().find("\"adId\":\"native-001\""),
              std::string::npos);
    EXPECT_NE(post["content"].get<std::string>().find("__TS__"), std::string::npos);
    EXPECT_EQ(post["urls"][0], sandbox.baseUrl() + "/track/native-demo/native-001/1?via=post");
}

TEST_F(SandboxTest, ServesItsFilesFromTheirFoldersOnly) {
    auto c = client();
    for (const std::string slot : {"splash-demo", "native-demo"}) {
        for (const auto& ad : ads(slot)) {
            for (const char* list : {"images", "icons"}) {
                for (const std::string url : ad.value(list, json::array())) {
                    const std::string path = url.substr(sandbox.baseUrl().size());
                    auto res = c.Get(path.c_str());
                    ASSERT_TRUE(res) << path;
                    EXPECT_EQ(res->status, 200) << path;
                    EXPECT_EQ(res->body, readFile(Sandbox::defaultCreativesDir() +
                                                  path.substr(std::string("/creatives").size())));
                    EXPECT_EQ(res->get_header_value("Content-Type").rfind("image/", 0), 0u);
                }
            }
        }
    }
    auto page = c.Get("/inspector/");
    ASSERT_TRUE(page);
    EXPECT_EQ(page->status, 200);
    EXPECT_EQ(page->get_header_value("Content-Type"), "text/html; charset=utf-8");
    EXPECT_NE(page->body.find("inspector.js"), std::string::npos);
    EXPECT_EQ(c.Get("/inspector")->status, 302);
    for (const char* file : {"index.html", "inspector.js", "inspector.css"}) {
        auto res = c.Get((std::string("/inspector/") + file).c_str());
        ASSERT_TRUE(res) << file;
        EXPECT_EQ(res->status, 200) << file;
        // Nothing is loaded from another machine.
        for (const char* outside : {"http://", "https://", "url(//", "src=\"//", "href=\"//"})
            EXPECT_EQ(res->body.find(outside), std::string::npos) << file << " holds " << outside;
    }
    EXPECT_EQ(c.Get("/inspector/inspector.js")->get_header_value("Content-Type"),
              "text/javascript; charset=utf-8");
    for (const char* path :
         {"/creatives/../inventory/default.json", "/creatives/a/../../x.png",
          "/creatives/%2e%2e/inventory/default.json", "/inspector/../inventory/default.json",
          "/inspector/%2e%2e/inventory/default.json",
          "/inspector/a/../../creatives/splash-demo.png"}) {
        auto res = c.Get(path);
        ASSERT_TRUE(res) << path;
        EXPECT_NE(res->status, 200) << path;
        EXPECT_EQ(res->body.find("\"slots\""), std::string::npos) << path;
    }
    EXPECT_EQ(c.Get("/creatives/no-such-file.png")->status, 404);
    EXPECT_EQ(c.Get("/inspector/missing.js")->status, 404);
}

TEST_F(SandboxTest, RecordsTrackingRequestsAndServesThemAsJson) {
    // The observer runs on a server thread; the answer reaching the client orders it before the
    // checks below only through the socket, which ThreadSanitizer cannot see.
    std::mutex observedMutex;
    Texts observed;
    sandbox.setTrackingObserver([&](const pelora::sandbox::TrackingRecord& r) {
        std::lock_guard lock(observedMutex);
        observed.push_back(r.adId);
    });
    auto c = client();
    const std::string get = "/track/splash-demo/splash-001/2?ts=1700000000123&dx=12&dy=-999&w=375";
    const std::string body = "{\"event\":\"impression\",\"w\":320}";
    EXPECT_EQ(c.Get(get.c_str())->status, 204);
    EXPECT_EQ(c.Post("/track/native-demo/native-001/1?via=post", body, "application/json")->status,
              204);
    ASSERT_TRUE(sandbox.waitForTrackingRecords(2, std::chrono::seconds(5)));

    auto records = sandbox.trackingRecords();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].method, "GET");
    EXPECT_EQ(records[0].slot, "splash-demo");
    EXPECT_EQ(records[0].adId, "splash-001");
    EXPECT_EQ(records[0].trackType, 2);
    EXPECT_EQ(records[0].params.at("ts"), "1700000000123");
    EXPECT_EQ(records[0].params.at("dy"), "-999");
    EXPECT_EQ(records[0].url, sandbox.baseUrl() + get);
    EXPECT_EQ(records[1].method, "POST");
    EXPECT_EQ(records[1].contentType, "application/json");
    EXPECT_EQ(records[1].body, body);
    EXPECT_EQ(records[1].query, "via=post");
    {
        std::lock_guard lock(observedMutex);
        EXPECT_EQ(observed, (Texts{"splash-001", "native-001"}));
    }
    json list = json::parse(c.Get("/sandbox/records")->body)["records"];
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0]["params"]["dx"], "12");
    EXPECT_EQ(list[1]["body"], body);

    EXPECT_EQ(c.Delete("/sandbox/records")->status, 204);
    EXPECT_TRUE(sandbox.trackingRecords().empty());
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

TEST_F(SandboxTest, AnSdkThatCountsOnceAndFillsItsMacrosRaisesNoFlag) {
    json splash = ads("splash-demo")[0];
    get(fill(track(splash, 1), 1));
    get(fill(track(splash, 2), 2));  // the click id stays as written: no device knows it
    get(fill(track(splash, 16), 16));
    get(fill(track(ads("splash-demo")[0], 1), 1));  // each serving counts on its own
    json reward = ads("reward-demo")[0];
    for (int type : {1, 31, 32, 33, 34, 35, 8}) get(fill(track(reward, type), type));
    EXPECT_EQ(flagged(), Texts{});

    // The checklist: what came, and what never did.
    json served = exported()["ads"];
    ASSERT_EQ(served.size(), 3u);
    EXPECT_EQ(served[0]["adId"], "splash-001");
    EXPECT_EQ(served[0]["missing"], json({"deep link opened"}));
    EXPECT_EQ(served[1]["missing"], json({"click", "deep link failed", "deep link opened"}));
    EXPECT_NE(served[0]["id"], served[1]["id"]);
    EXPECT_NE(served[0]["fetch"], served[1]["fetch"]);
    EXPECT_EQ(served[2]["missing"], json({"click", "deep link failed", "deep link opened", "skip",
                                          "play error", "mute"}));
    for (const auto& e : served[2]["events"]) {
        if (e["event"] != "video complete") continue;
        ASSERT_EQ(e["sent"].size(), 1u);
        EXPECT_GT(e["sent"][0]["timeMs"].get<int64_t>(), 0);
    }
}

TEST_F(SandboxTest, FlagsEachFaultOnTheBeaconThatShowsIt) {
    json splash = ads("splash-demo")[0];
    const std::string impression = fill(track(splash, 1), 1);
    get(impression);
    get(impression);  // twice
    get("/track/splash-demo/ghost-001/1?ts=1");
    get("/track/splash-demo/ghost-001/1?ts=2");  // never served, and twice
    json native = ads("native-demo");
    get(fill(track(native[1], 2), 2));  // click, no impression
    std::string noTs = track(native[2], 2);
    noTs = fill(noTs.replace(noTs.find("__TS__"), 6, "__KEEP__"), 2);
    get(noTs.replace(noTs.find("__KEEP__"), 8, "__TS__"));  // the SDK always has a time
    json reward = ads("reward-demo")[0];
    get(fill(track(reward, 35), 35));
    get(fill(track(reward, 33), 33));  // a quartile after completion
    get(track(reward, 34));            // ... with nothing filled at all

    EXPECT_EQ(flagged(),
              (Texts{"splash-001 impression: duplicate", "ghost-001 impression: never-served",
                     "ghost-001 impression: never-served duplicate",
                     "native-002 click: click-without-impression",
                     "native-003 click: macro-left click-without-impression",
                     "reward-001 video 50%: quartile-after-complete",
                     "reward-001 video 75%: macro-left quartile-after-complete"}));
    // Only macros the SDK knows for the event count: an unfilled video end time on a 75% beacon
    // is normal, its time and sizes are not.
    EXPECT_EQ(exported()["beacons"].back()["leftMacros"],
              json({"__HEIGHT__", "__REQ_HEIGHT__", "__REQ_WIDTH__", "__TS__", "__VIDEO_BEHAVIOR__",
                    "__VIDEO_PLAY_FIRSR_FRAME__", "__VIDEO_PLAY_LAST_FRAME__",
                    "__VIDEO_PLAY_TYPE__", "__VIDEO_SCENE__", "__VIDEO_START_TIME__",
                    "__VIDEO_STATUS__", "__VIDEO_TIME__", "__WIDTH__"}));
}

TEST_F(SandboxTest, DecodesMacrosWhereTheServedTemplatePutThem) {
    json native = ads("native-demo")[0];
    // native-001 reports its impression by POST with the macros in a JSON body.
    ASSERT_TRUE(client().Post(track(native, 1).c_str(), fill(native["trackUrls"][0]["content"], 1),
                              "application/json"));
    get(fill(track(native, 2), 2));

    json record = exported();
    ASSERT_EQ(record["beacons"].size(), 2u);
    std::map<std::string, json> impression, click;
    for (const auto& m : record["beacons"][0]["macros"]) impression[m["macro"]] = m;
    for (const auto& m : record["beacons"][1]["macros"]) click[m["macro"]] = m;
    EXPECT_EQ(impression["__TS__"]["where"], "body");
    EXPECT_EQ(impression["__TS__"]["text"], "2023-11-14 22:13:20.123 UTC");
    EXPECT_EQ(impression["__REQ_WIDTH__"]["text"], "320 px requested");
    EXPECT_EQ(record["beacons"][0]["bodyJson"]["event"], "impression");
    EXPECT_EQ(click["__DOWN_X__"]["where"], "url dx");
    EXPECT_EQ(click["__DOWN_X__"]["text"], "12 pt in the ad");
    EXPECT_EQ(click["__CLICK_ID__"]["state"], "unset");
    // The fetch itself: the request and the answer as trees.
    ASSERT_EQ(record["fetches"].size(), 1u);
    EXPECT_EQ(record["fetches"][0]["bodyJson"]["slot"]["slotId"], "native-demo");
    EXPECT_EQ(record["fetches"][0]["answerJson"]["data"]["ads"].size(), 5u);
    EXPECT_EQ(record["fetches"][0]["params"]["reqId"], "R");

    using pelora::sandbox::decodeMacro;
    EXPECT_EQ(decodeMacro("__TS__", "0")["text"], "1970-01-01 00:00:00.000 UTC");
    EXPECT_EQ(decodeMacro("__TS__", "abc")["state"], "bad");
    EXPECT_EQ(decodeMacro("__DOWN_Y__", "-999")["state"], "fallback");
    EXPECT_EQ(decodeMacro("__OFFSET_Y__", "0")["text"], "0 pt in the ad");
    EXPECT_EQ(decodeMacro("__VIDEO_STATUS__", "2")["text"], "2: play error");
    EXPECT_EQ(decodeMacro("__VIDEO_BEHAVIOR__", "1")["text"], "1: not auto-played");
    EXPECT_EQ(decodeMacro("__VIDEO_TIME__", "__VIDEO_TIME__")["state"], "left");
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
    explicit Stream(int port) {
        thread_ = std::thread([this, port] {
            httplib::Client c("127.0.0.1", port);
            c.set_read_timeout(30, 0);
            auto res = c.Get("/sandbox/inspector/events", [&](const char* data, size_t size) {
                std::lock_guard lock(mutex_);
                text_.append(data, size);
                changed_.notify_all();
                return true;
            });
            std::lock_guard lock(mutex_);
            status_ = res ? res->status : -1;
            ended_ = true;
            changed_.notify_all();
        });
    }
    // The feed ends when the server stops: stop it before a Stream goes out of scope.
    ~Stream() { thread_.join(); }
    // True once the stream holds `needle` (or, with an empty needle, has ended; bounded wait).
    bool waitFor(const std::string& needle) {
        std::unique_lock lock(mutex_);
        auto seen = [&] {
            return needle.empty() ? ended_ : text_.find(needle) != std::string::npos;
        };
        return changed_.wait_for(lock, std::chrono::seconds(10), [&] {
            return seen() || ended_;
        }) && seen();
    }
    int status() {
        std::lock_guard lock(mutex_);
        return status_;
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::string text_;
    bool ended_ = false;
    int status_ = 0;
    std::thread thread_;
};

// Bytes that are not text (a query escape, a binary body, a request id) reach the page, the
// export and the records as well.
TEST_F(SandboxTest, PagesGetASnapshotThenEachEntryAndStopNeverWaitsForThem) {
    Stream page(sandbox.port());
    ASSERT_TRUE(page.waitFor("event: snapshot\n"));
    json splash = fetch("splash-demo", "%FF")["data"]["ads"][0];
    ASSERT_TRUE(page.waitFor("event: fetch\n"));
    ASSERT_TRUE(page.waitFor("event: ad\n"));
    get(fill(track(splash, 1), 1));
    ASSERT_TRUE(page.waitFor("\"event\":\"impression\""));
    get("/track/splash-demo/splash-001/1?ts=%FF%FE");
    ASSERT_TRUE(client().Post("/track/splash-demo/splash-001/2", std::string("\xff\x00\xfe", 3),
                              "application/octet-stream"));
    json record = exported();
    EXPECT_EQ(record["beacons"].size(), 3u);
    EXPECT_EQ(record["fetches"].size(), 1u);
    EXPECT_EQ(json::parse(client().Get("/sandbox/records")->body)["records"].size(), 3u);

    ASSERT_TRUE(client().Put("/sandbox/slots/splash-demo/simulate", R"({"status":500})",
                             "application/json"));
    ASSERT_TRUE(page.waitFor("event: slots\n"));
    ASSERT_TRUE(client().Post("/sandbox/records/clear"));
    ASSERT_TRUE(page.waitFor("event: reset\n"));

    // More pages than the bound are turned away; the ones open do not keep fetches waiting.
    Stream second(sandbox.port()), third(sandbox.port()), fourth(sandbox.port());
    for (Stream* s : {&second, &third, &fourth}) ASSERT_TRUE(s->waitFor("event: snapshot\n"));
    EXPECT_EQ(client().Get("/sandbox/inspector/events")->status, 503);
    EXPECT_EQ(ads("native-demo").size(), 5u);

    sandbox.stop();
    for (Stream* s : {&page, &second, &third, &fourth}) EXPECT_TRUE(s->waitFor(""));
    EXPECT_EQ(page.status(), 200);
}

TEST_F(SandboxTest, SlotSimulationsChangeLiveAndRefuseWhatTheyCannotUse) {
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

    auto set = c.Put("/sandbox/slots/splash-demo/simulate",
                     R"({"status":500,"body":"nodata","code":500})", "application/json");
    ASSERT_TRUE(set);
    EXPECT_EQ(set->status, 200);
    EXPECT_EQ(json::parse(set->body)["changed"], true);
    auto failing =
        c.Post("/api/v1/advert/fetch", R"({"slot":{"slotId":"splash-demo"}})", "application/json");
    ASSERT_TRUE(failing);
    EXPECT_EQ(failing->status, 500);
    EXPECT_EQ(json::parse(failing->body), json({{"code", 500}, {"msg", "no data (simulated)"}}));
    EXPECT_EQ(json::parse(c.Get("/sandbox/slots")->body)["splash-demo"]["status"], 500);

    auto reset = c.Delete("/sandbox/slots/splash-demo/simulate");
    ASSERT_TRUE(reset);
    EXPECT_EQ(json::parse(reset->body)["changed"], false);
    EXPECT_EQ(ads("splash-demo").size(), 1u);
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

TEST_F(SandboxInventoryTest, RejectsUnusableInventories) {
    const std::pair<std::string, std::string> cases[] = {
        {"missing.json", ""},
        {"garbage.json", "{\"slots\": ["},
        {"noslots.json", "{\"provider\": \"x\"}"},
        {"badstatus.json", "{\"slots\": {\"a\": {\"simulate\": {\"status\": \"500\"}}}}"},
        {"badbody.json", "{\"slots\": {\"a\": {\"simulate\": {\"body\": \"weird\"}}}}"},
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
    const std::string path = fill(url.substr(sandbox.baseUrl().size()), 1);
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(c.Get(path.c_str()));
    json beacons = json::parse(c.Get("/sandbox/inspector/export")->body)["beacons"];
    ASSERT_EQ(beacons.size(), 3u);
    EXPECT_TRUE(beacons[0]["flags"].empty());
    EXPECT_TRUE(beacons[1]["flags"].empty());
    ASSERT_EQ(beacons[2]["flags"].size(), 1u);
    EXPECT_EQ(beacons[2]["flags"][0]["code"], "duplicate");

    // A second server cannot take a port that is in use.
    Sandbox second;
    EXPECT_FALSE(second.start({.port = sandbox.port(), .inventoryPath = inventory}, &error));
}

}  // namespace
