// `pelora request`, `fetch`, `map`, `expand` and the escaping commands as a user runs them: the
// built program's standard output and exit status and, for fetch, what a server received.
// Every command's refusal of bad arguments is here too.

#include <gtest/gtest.h>

#include <utility>

#include "LoopbackServer.h"
#include "Program.h"

namespace {

using nlohmann::json;
using pelora::testing::LoopbackResponse;
using pelora::testing::LoopbackServer;
using pelora::testing::TestTls;
using pelora_program::run;
using pelora_program::runLine;

class Cli : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(std::filesystem::exists(pelora_program::path()))
            << "build the pelora_cli target first";
    }
};

// The request a load would send, printed and not sent: the options go into the slot and the
// query; splash and reward ask for the whole screen in pixels.
TEST_F(Cli, RequestShowsTheSlotsRequestWithoutSending) {
    auto r = run({"request", "--kind", "native", "--slot", "S-1", "--width", "600", "--height",
                  "300", "--app-id", "app 1"});
    ASSERT_EQ(r.status, 0) << r.err;
    auto j = r.json();
    EXPECT_EQ(j["method"], "POST");
    EXPECT_EQ(j["headers"], json({{"Content-Type", "application/json"}}));
    const std::string url = j["url"];
    EXPECT_NE(url.find("/api/v1/advert/fetch?appId=app%201&"), std::string::npos) << url;
    EXPECT_EQ(j["body"]["appInfo"]["appId"], "app 1");
    const std::string accepted = R"("acceptedCreativeTypes":2,"acceptedInteractionType":1,)";
    for (auto [args, slot] :
         {std::pair{"native --slot S-1 --width 600 --height 300",
                    R"("adType":5,"height":300,"position":3,"slotId":"S-1","width":600})"},
          {"splash --slot S", R"("adType":0,"height":1334,"position":5,"slotId":"S","width":750})"},
          {"reward --slot S",
           R"("adType":4,"height":1334,"position":5,"slotId":"S","width":750})"}}) {
        auto body = runLine(std::string("request --kind ") + args).json()["body"];
        EXPECT_EQ(body["slot"].dump(), "{" + accepted + slot) << args;
        EXPECT_EQ(body["appInfo"].contains("appId"), false) << args;
    }
}

TEST_F(Cli, BadArgumentsPrintUsageAndExitTwo) {
    for (const char* line :
         {"request",
          "request --kind native",
          "request --kind banner --slot S",
          "request --kind splash --slot S --width 10",
          "request --kind native --slot S --width wide",
          "request --kind native --slot S --timeout 0",
          "request --kind native --slot",
          "request --kind native --slot S --base-url http://127.0.0.1:1",
          "fetch --kind splash --slot S --base-url file:///etc",
          "escape",
          "escape a b",
          "map",
          "map a b",
          "urlencode",
          "expand",
          "expand x __NOPE__=1",
          "expand x __TS__=12abc",
          "expand x __TS__",
          "demo --skip-at 0",
          "demo --skip-at 2 --tap-at 3",
          "demo --tap-at soon",
          "demo extra",
          "demo --reward-skip-at 4",
          "demo --reward-mute-at 0",
          "demo --window --fast",
          "load --kind video --slot x --base-url http://127.0.0.1:1",
          "load --kind splash --slot x",
          "load --kind native --base-url http://127.0.0.1:1",
          "load --kind native --slot x --width wide --base-url http://127.0.0.1:1",
          "render x.json",
          "render x.json --scale 0 --out a.png"}) {
        auto r = runLine(line);
        EXPECT_EQ(r.status, 2) << line;
        EXPECT_TRUE(r.out.empty()) << line;
        const std::string command = std::string(line).substr(0, std::string(line).find(' '));
        EXPECT_NE(r.err.find("usage: pelora " + command), std::string::npos) << line << r.err;
    }
}

// What each text command prints for its arguments and standard input, and its exit status; a
// refusal prints nothing on standard output and says why on standard error.
TEST_F(Cli, TextCommandsPrintJson) {
    struct Case {
        std::vector<std::string> args;
        std::string input;
        int status;
        std::string out;  // for a refusal, what standard error says
    };
    const Case cases[] = {
        {{"escape", "a b&c=d:/?é"}, "", 0, R"("a%20b%26c%3Dd%3A/?%C3%A9")"},
        {{"urlencode", "a b&c=\xC3\xA9"}, "", 0, R"("a%20b&c=%C3%A9")"},
        {{"urldecode", "a+b%20c"}, "", 0, R"("a+b c")"},
        {{"urldecode", "100%"}, "", 1, ""},
        // Values narrowed to their field: 65535 is a 16-bit -1 (unset), 258 an 8-bit 2.
        {{"expand",
          "https://t/"
          "x?dx=__DOWN_X__&uy=__UP_Y__&c=__CLICK_ID__&sc=__VIDEO_SCENE__&s=__VIDEO_STATUS__",
          "__DOWN_X__=12", "__CLICK_ID__=a\"b", "__VIDEO_SCENE__=65535", "__VIDEO_STATUS__=258"},
         "",
         0,
         R"("https://t/x?dx=12&uy=-999&c=a\"b&sc=__VIDEO_SCENE__&s=2")"},
        // An answer as the SDK maps it (its keys and coercions are RecordsTest's), with the
        // tracking instructions beside each ad; "FILE" reads the input from a file.
        {{"map", "FILE"},
         R"({"code":"5","extra":1,"data":{"ads":[{"adId":7,)"
         R"("trackUrls":[{"trackType":1,"urls":["u"]}]}]}})",
         0,
         R"({"code":5,"data":{"ads":[{"adId":"7","adTrackVO":[{"clicked_upload":false,)"
         R"("trackType":1,"urls":["u"]}],"creativeType":0,"interactionType":0,"trackUrls":[]}]}})"},
        {{"map", "-"}, "[{\"code\":0}]", 1, "not an object"},
        {{"map", "-"}, "{\"code\":", 1, "JSON"},
        {{"map", "/nonexistent/answer.json"}, "", 1, ""}};
    const std::string file = (std::filesystem::temp_directory_path() /
                              ("pelora-cli-" + std::to_string(::getpid()) + ".json"))
                                 .string();
    for (auto c : cases) {
        SCOPED_TRACE(c.args[1] + " " + c.input);
        if (c.args.back() == "FILE") {
            c.args.back() = file;
            std::ofstream(file, std::ios::binary) << std::exchange(c.input, {});  // not on stdin
        }
        auto r = run(c.args, c.input);
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.out, c.status == 0 ? c.out + "\n" : "");
        if (c.status != 0) {
            EXPECT_NE(r.err.find(c.out), std::string::npos) << r.err;
        }
    }
    std::filesystem::remove(file);
}

TEST_F(Cli, FetchSendsToTheGivenServerAndPrintsTheResult) {
    LoopbackServer server;
    server.on("/api/v1/advert/fetch",
              LoopbackResponse::json(R"({"code":0,"data":{"reqId":"R","ads":[{"adId":"a1"}]}})"));
    auto r = runLine("fetch --kind native --slot N --width 300 --height 250 --base-url " +
                     server.baseUrl());
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.json(), json::parse(R"({"code":0,"message":null,"payload":{"reqId":"R","ads":[)"
                                    R"({"adId":"a1","creativeType":0,"interactionType":0,)"
                                    R"("trackUrls":[]}]}})"));
    auto got = server.requestsTo("/api/v1/advert/fetch");
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(json::parse(got[0].body)["slot"]["width"], 300);

    // An answer without a payload: JSON on stdout all the same, and exit 1. (Transport errors
    // and their codes are the core and platform tests'.)
    server.on("/api/v1/advert/fetch", LoopbackResponse::json(R"({"code":1})"));
    auto empty = runLine("fetch --kind splash --slot S --base-url " + server.baseUrl() + "/");
    EXPECT_EQ(empty.status, 1) << empty.err;
    EXPECT_EQ(empty.json(), R"({"code":-1,"message":null,"payload":null})"_json);
}

TEST_F(Cli, FetchOverHttpsTrustsTheNamedAuthorityOnly) {
    LoopbackServer server(
        LoopbackServer::Options{2, TestTls::certificateFile(), TestTls::keyFile()});
    server.on("/api/v1/advert/fetch", LoopbackResponse::json(R"({"code":0,"data":{"ads":[]}})"));
    const std::string fetch = "fetch --kind splash --slot S --base-url " + server.baseUrl();
    auto trusted = runLine(fetch + " --ca-file " + TestTls::authorityFile());
    EXPECT_EQ(trusted.status, 0) << trusted.err;
    EXPECT_EQ(trusted.json()["code"], 0);
    auto untrusted = runLine(fetch);
    EXPECT_EQ(untrusted.status, 1);
    EXPECT_EQ(untrusted.json()["code"], -1202);
    EXPECT_EQ(server.requestsTo("/api/v1/advert/fetch").size(), 1u);
    auto missing = runLine(fetch + " --ca-file /nonexistent/ca.pem");
    EXPECT_EQ(missing.status, 2);
    EXPECT_NE(missing.err.find("--ca-file"), std::string::npos) << missing.err;
}

}  // namespace
