// The sandbox's inspector over loopback HTTP: the decoded and flagged record a page exports,
// the live event stream, the control endpoints and the page's files.
#include <gtest/gtest.h>
#include <httplib.h>

#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "Inspector.h"
#include "pelora/sandbox/Sandbox.h"

namespace {

using nlohmann::json;
using pelora::sandbox::Sandbox;
using pelora::sandbox::SandboxOptions;

class SandboxInspectorTest : public ::testing::Test {
  protected:
    void SetUp() override {
        std::string error;
        ASSERT_TRUE(sandbox.start(SandboxOptions{}, &error)) << error;
    }

    httplib::Client client() {
        httplib::Client c("127.0.0.1", sandbox.port());
        c.set_connection_timeout(5, 0);
        c.set_read_timeout(10, 0);
        return c;
    }

    // The ads a fetch for `slot` returned.
    json fetch(const std::string& slot) {
        json body = {{"slot", {{"slotId", slot}, {"width", 750}, {"height", 1334}}}};
        auto res = client().Post("/api/v1/advert/fetch?reqId=R", body.dump(), "application/json");
        EXPECT_TRUE(res);
        if (!res) return json::array();
        json answer = json::parse(res->body, nullptr, false);
        return answer.contains("data") ? answer["data"]["ads"] : json::array();
    }

    // The tracking URL of `type` that the answer gave `ad`, as a path on this server.
    std::string track(const json& ad, int type) {
        for (const auto& t : ad["trackUrls"])
            if (t["trackType"] == type)
                return t["urls"][0].get<std::string>().substr(sandbox.baseUrl().size());
        ADD_FAILURE() << "no tracking URL of type " << type;
        return {};
    }

    // Fills every macro the way the SDK does for an event of `type`.
    static std::string fill(std::string url, int type) {
        auto set = [&](const std::string& macro, const std::string& value) {
            for (size_t p; (p = url.find(macro)) != std::string::npos;)
                url.replace(p, macro.size(), value);
        };
        set("__TS__", "1700000000123");
        set("__EVENT_TIME_START__", "1700000000123");
        set("__EVENT_TIME_END__", "1700000000123");
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
        for (const char* m : {"__VIDEO_BEHAVIOR__", "__VIDEO_START_TIME__",
                              "__VIDEO_PLAY_LAST_FRAME__", "__VIDEO_STATUS__"})
            set(m, "0");
        set("__VIDEO_PLAY_FIRSR_FRAME__", "1");
        set("__VIDEO_SCENE__", "3");
        set("__VIDEO_PLAY_TYPE__", "1");
        return url;
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
    std::vector<std::string> flagged() {
        std::vector<std::string> out;
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

TEST_F(SandboxInspectorTest, AnSdkThatCountsOnceAndFillsItsMacrosRaisesNoFlag) {
    json splash = fetch("splash-demo")[0];
    get(fill(track(splash, 1), 1));
    get(fill(track(splash, 2), 2));  // the click id stays as written: no device knows it
    get(fill(track(splash, 16), 16));
    json reward = fetch("reward-demo")[0];
    for (int type : {1, 31, 32, 33, 34, 35, 8}) get(fill(track(reward, type), type));
    EXPECT_EQ(flagged(), std::vector<std::string>{});

    // The checklist: what came, and what never did.
    json ads = exported()["ads"];
    ASSERT_EQ(ads.size(), 2u);
    EXPECT_EQ(ads[0]["adId"], "splash-001");
    EXPECT_EQ(ads[0]["missing"], json({"deep link opened"}));
    EXPECT_EQ(ads[1]["missing"], json({"click", "deep link failed", "deep link opened", "skip",
                                       "play error", "mute"}));
    for (const auto& e : ads[1]["events"]) {
        if (e["event"] == "video complete") {
            ASSERT_EQ(e["sent"].size(), 1u);
            EXPECT_EQ(e["sent"][0]["timeMs"].get<int64_t>() > 0, true);
        }
    }
}

TEST_F(SandboxInspectorTest, FlagsEachFaultOnTheBeaconThatShowsIt) {
    json splash = fetch("splash-demo")[0];
    const std::string impression = fill(track(splash, 1), 1);
    get(impression);
    get(impression);  // twice
    get("/track/splash-demo/ghost-001/1?ts=1");
    get("/track/splash-demo/ghost-001/1?ts=2");  // never served, and twice
    json native = fetch("native-demo");
    get(fill(track(native[1], 2), 2));  // click, no impression
    std::string noTs = track(native[2], 2);
    noTs = fill(noTs.replace(noTs.find("__TS__"), 6, "__KEEP__"), 2);
    get(noTs.replace(noTs.find("__KEEP__"), 8, "__TS__"));  // the SDK always has a time
    json reward = fetch("reward-demo")[0];
    get(fill(track(reward, 35), 35));
    get(fill(track(reward, 33), 33));  // a quartile after completion
    get(track(reward, 34));            // ... with nothing filled at all

    EXPECT_EQ(flagged(), (std::vector<std::string>{
                             "splash-001 impression: duplicate",
                             "ghost-001 impression: never-served",
                             "ghost-001 impression: never-served duplicate",
                             "native-002 click: click-without-impression",
                             "native-003 click: macro-left click-without-impression",
                             "reward-001 video 50%: quartile-after-complete",
                             "reward-001 video 75%: macro-left quartile-after-complete",
                         }));
    json beacons = exported()["beacons"];
    // Only macros the SDK knows for the event count: an unfilled video end time on a 75% beacon
    // is normal, its time and sizes are not.
    const json& last = beacons.back();
    EXPECT_EQ(last["leftMacros"],
              json({"__HEIGHT__", "__REQ_HEIGHT__", "__REQ_WIDTH__", "__TS__", "__VIDEO_BEHAVIOR__",
                    "__VIDEO_PLAY_FIRSR_FRAME__", "__VIDEO_PLAY_LAST_FRAME__",
                    "__VIDEO_PLAY_TYPE__", "__VIDEO_SCENE__", "__VIDEO_START_TIME__",
                    "__VIDEO_STATUS__", "__VIDEO_TIME__", "__WIDTH__"}));
}

TEST_F(SandboxInspectorTest, AnEventWithTheSameUrlTwiceIsCalledTwiceWithoutADouble) {
    std::string dir = ::testing::TempDir() + "pelora-inspector-twice";
    std::filesystem::create_directories(dir);
    std::ofstream(dir + "/inv.json") << R"({"slots": {"s": {"ads": [{"adId": "a", "trackUrls": [
        {"trackType": 1, "urls": ["{{track}}", "{{track}}"]}]}]}}})";
    Sandbox own;
    std::string error;
    ASSERT_TRUE(own.start({.inventoryPath = dir + "/inv.json"}, &error)) << error;
    httplib::Client c("127.0.0.1", own.port());
    auto res = c.Post("/api/v1/advert/fetch", R"({"slot":{"slotId":"s"}})", "application/json");
    ASSERT_TRUE(res);
    const std::string url = json::parse(res->body)["data"]["ads"][0]["trackUrls"][0]["urls"][0];
    const std::string path = fill(url.substr(own.baseUrl().size()), 1);
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(c.Get(path.c_str()));
    json beacons = json::parse(c.Get("/sandbox/inspector/export")->body)["beacons"];
    ASSERT_EQ(beacons.size(), 3u);
    EXPECT_TRUE(beacons[0]["flags"].empty());
    EXPECT_TRUE(beacons[1]["flags"].empty());
    ASSERT_EQ(beacons[2]["flags"].size(), 1u);
    EXPECT_EQ(beacons[2]["flags"][0]["code"], "duplicate");
    own.stop();
    std::filesystem::remove_all(dir);
}

TEST_F(SandboxInspectorTest, EachServingOfAnAdHasItsOwnOnceOnlyEvents) {
    for (int load = 0; load < 2; ++load) {
        json splash = fetch("splash-demo")[0];
        get(fill(track(splash, 1), 1));
    }
    EXPECT_EQ(flagged(), std::vector<std::string>{});
    json ads = exported()["ads"];
    ASSERT_EQ(ads.size(), 2u);
    EXPECT_NE(ads[0]["id"], ads[1]["id"]);
    EXPECT_NE(ads[0]["fetch"], ads[1]["fetch"]);
}

TEST_F(SandboxInspectorTest, DecodesMacrosWhereTheServedTemplatePutThem) {
    json native = fetch("native-demo")[0];
    // native-001 reports its impression by POST with the macros in a JSON body.
    std::string body = fill(native["trackUrls"][0]["content"], 1);
    auto res = client().Post(track(native, 1).c_str(), body, "application/json");
    ASSERT_TRUE(res);
    get(fill(track(native, 2), 2));

    json beacons = exported()["beacons"];
    ASSERT_EQ(beacons.size(), 2u);
    std::map<std::string, json> impression, click;
    for (const auto& m : beacons[0]["macros"]) impression[m["macro"]] = m;
    for (const auto& m : beacons[1]["macros"]) click[m["macro"]] = m;
    EXPECT_EQ(impression["__TS__"]["where"], "body");
    EXPECT_EQ(impression["__TS__"]["text"], "2023-11-14 22:13:20.123 UTC");
    EXPECT_EQ(impression["__REQ_WIDTH__"]["text"], "320 px requested");
    EXPECT_EQ(beacons[0]["bodyJson"]["event"], "impression");
    EXPECT_EQ(click["__DOWN_X__"]["where"], "url dx");
    EXPECT_EQ(click["__DOWN_X__"]["text"], "12 pt in the ad");
    EXPECT_EQ(click["__CLICK_ID__"]["state"], "unset");

    // The fetch itself: the request and the answer as trees.
    json fetches = exported()["fetches"];
    ASSERT_EQ(fetches.size(), 1u);
    EXPECT_EQ(fetches[0]["bodyJson"]["slot"]["slotId"], "native-demo");
    EXPECT_EQ(fetches[0]["answerJson"]["data"]["ads"].size(), 5u);
    EXPECT_EQ(fetches[0]["params"]["reqId"], "R");
}

TEST(SandboxInspectorDecoding, MacroValuesReadAsAPersonWould) {
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
    // Lower case and lone underscores are no macros.
    EXPECT_EQ(matchTemplate("/t?a=__ts__", "/t?a=__ts__")->size(), 0u);
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
    ~Stream() {
        if (thread_.joinable()) thread_.join();
    }
    // True once the stream holds `needle` (bounded wait).
    bool waitFor(const std::string& needle) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(10), [&] {
            return text_.find(needle) != std::string::npos || ended_;
        }) && text_.find(needle) != std::string::npos;
    }
    bool waitEnded() {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(10), [&] { return ended_; });
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

TEST_F(SandboxInspectorTest, PagesGetASnapshotThenEachEntryAndStopNeverWaitsForThem) {
    Stream page(sandbox.port());
    ASSERT_TRUE(page.waitFor("event: snapshot\n"));
    json splash = fetch("splash-demo")[0];
    ASSERT_TRUE(page.waitFor("event: fetch\n"));
    ASSERT_TRUE(page.waitFor("event: ad\n"));
    get(fill(track(splash, 1), 1));
    ASSERT_TRUE(page.waitFor("\"event\":\"impression\""));
    auto set = client().Put("/sandbox/slots/splash-demo/simulate", R"({"status":500})",
                            "application/json");
    ASSERT_TRUE(set);
    ASSERT_TRUE(page.waitFor("event: slots\n"));
    ASSERT_TRUE(client().Post("/sandbox/records/clear"));
    ASSERT_TRUE(page.waitFor("event: reset\n"));

    // More pages than the bound are turned away; the ones open do not keep fetches waiting.
    Stream second(sandbox.port()), third(sandbox.port()), fourth(sandbox.port());
    for (Stream* s : {&second, &third, &fourth}) ASSERT_TRUE(s->waitFor("event: snapshot\n"));
    auto fifth = client().Get("/sandbox/inspector/events");
    ASSERT_TRUE(fifth);
    EXPECT_EQ(fifth->status, 503);
    EXPECT_EQ(fetch("native-demo").size(), 5u);

    sandbox.stop();
    for (Stream* s : {&page, &second, &third, &fourth}) EXPECT_TRUE(s->waitEnded());
    EXPECT_EQ(page.status(), 200);
}

TEST_F(SandboxInspectorTest, SlotSimulationsChangeLiveAndRefuseWhatTheyCannotUse) {
    auto c = client();
    const std::pair<std::string, int> refused[] = {
        {"not json", 400},
        {R"([1])", 400},
        {R"({"status": "500"})", 400},
        {R"({"status": 99})", 400},
        {R"({"delayMs": -1})", 400},
        {R"({"body": "weird"})", 400},
        {R"({"statsu": 500})", 400},
    };
    for (const auto& [body, status] : refused) {
        auto res = c.Put("/sandbox/slots/splash-demo/simulate", body, "application/json");
        ASSERT_TRUE(res) << body;
        EXPECT_EQ(res->status, status) << body;
        EXPECT_FALSE(json::parse(res->body)["error"].get<std::string>().empty()) << body;
    }
    auto unknown = c.Put("/sandbox/slots/no-such-slot/simulate", "{}", "application/json");
    ASSERT_TRUE(unknown);
    EXPECT_EQ(unknown->status, 404);
    EXPECT_EQ(fetch("splash-demo").size(), 1u);  // nothing refused took effect

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
    EXPECT_EQ(fetch("splash-demo").size(), 1u);
}

TEST_F(SandboxInspectorTest, ServesThePageFromItsOwnFolderOnly) {
    auto c = client();
    auto page = c.Get("/inspector/");
    ASSERT_TRUE(page);
    EXPECT_EQ(page->status, 200);
    EXPECT_EQ(page->get_header_value("Content-Type"), "text/html; charset=utf-8");
    EXPECT_NE(page->body.find("inspector.js"), std::string::npos);
    auto redirect = c.Get("/inspector");
    ASSERT_TRUE(redirect);
    EXPECT_EQ(redirect->status, 302);
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
         {"/inspector/../inventory/default.json", "/inspector/%2e%2e/inventory/default.json",
          "/inspector/a/../../creatives/splash-demo.png"}) {
        auto res = c.Get(path);
        ASSERT_TRUE(res) << path;
        EXPECT_NE(res->status, 200) << path;
    }
    EXPECT_EQ(c.Get("/inspector/missing.js")->status, 404);
}

TEST_F(SandboxInspectorTest, BytesThatAreNotTextStillReachThePageAndTheExport) {
    Stream page(sandbox.port());
    ASSERT_TRUE(page.waitFor("event: snapshot\n"));
    get("/track/splash-demo/splash-001/1?ts=%FF%FE");
    auto post = client().Post("/track/splash-demo/splash-001/2", std::string("\xff\x00\xfe", 3),
                              "application/octet-stream");
    ASSERT_TRUE(post);
    auto fetched = client().Post("/api/v1/advert/fetch?reqId=%FF",
                                 "{\"slot\":{\"slotId\":\"splash-demo\"}}", "application/json");
    ASSERT_TRUE(fetched);
    EXPECT_EQ(fetched->status, 200);
    ASSERT_TRUE(page.waitFor("event: fetch\n"));
    json record = exported();
    EXPECT_EQ(record["beacons"].size(), 2u);
    EXPECT_EQ(record["fetches"].size(), 1u);
    auto records = client().Get("/sandbox/records");
    ASSERT_TRUE(records);
    EXPECT_EQ(json::parse(records->body)["records"].size(), 2u);
    sandbox.stop();  // ends the page's feed
}

}  // namespace
