// `pelora request`, `fetch` and `escape` as a user runs them: the built program, its stdout
// JSON, its exit status, and (for fetch) what a loopback server received.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "LoopbackServer.h"

namespace {

using pelora::testing::LoopbackResponse;
using pelora::testing::LoopbackServer;

struct Run {
    int status = -1;
    std::string out;
    std::string err;
};

std::string quote(const std::string& arg) {
    std::string q = "'";
    for (char c : arg) {
        if (c == '\'') {
            q += "'\\''";
        } else {
            q += c;
        }
    }
    return q + "'";
}

Run runPelora(const std::vector<std::string>& args) {
    std::string binary = std::string(PELORA_BINARY_DIR) + "/tools/pelora";
    std::string errFile = (std::filesystem::temp_directory_path() /
                           ("pelora-cli-core-" + std::to_string(::getpid()) + ".err"))
                              .string();
    std::string cmd = quote(binary);
    for (const auto& a : args) cmd += " " + quote(a);
    cmd += " 2>" + quote(errFile);
    Run run;
    FILE* pipe = ::popen(cmd.c_str(), "r");
    if (!pipe) return run;
    std::array<char, 4096> buf{};
    size_t n = 0;
    while ((n = std::fread(buf.data(), 1, buf.size(), pipe)) > 0) run.out.append(buf.data(), n);
    int raw = ::pclose(pipe);
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    std::ifstream err(errFile);
    run.err.assign(std::istreambuf_iterator<char>(err), {});
    std::filesystem::remove(errFile);
    return run;
}

nlohmann::json parsed(const Run& run) {
    auto j = nlohmann::json::parse(run.out, nullptr, false);
    EXPECT_FALSE(j.is_discarded()) << "stdout is not JSON: " << run.out << "\n" << run.err;
    return j;
}

class CliCore : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!std::filesystem::exists(std::string(PELORA_BINARY_DIR) + "/tools/pelora")) {
            GTEST_FAIL() << "build the pelora_cli target first";
        }
    }
};

TEST_F(CliCore, RequestShowsTheNativeSlotsRequestWithoutSending) {
    auto run = runPelora({"request", "--kind", "native", "--slot", "S-1", "--width", "600",
                          "--height", "300", "--app-id", "app 1"});
    ASSERT_EQ(run.status, 0) << run.err;
    auto j = parsed(run);
    EXPECT_EQ(j.size(), 4u);
    EXPECT_EQ(j.at("method"), "POST");
    std::string url = j.at("url");
    EXPECT_NE(url.find("/api/v1/advert/fetch?"), std::string::npos) << url;
    EXPECT_NE(url.find("appId=app%201"), std::string::npos) << url;
    EXPECT_EQ(j.at("headers"), nlohmann::json({{"Content-Type", "application/json"}}));
    const auto& slot = j.at("body").at("slot");
    EXPECT_EQ(slot.at("slotId"), "S-1");
    EXPECT_EQ(slot.at("adType"), 5);
    EXPECT_EQ(slot.at("position"), 3);
    EXPECT_EQ(slot.at("width"), 600);
    EXPECT_EQ(slot.at("height"), 300);
    EXPECT_EQ(j.at("body").at("appInfo").at("appId"), "app 1");
    EXPECT_TRUE(j.at("body").at("device").is_object());
}

TEST_F(CliCore, SplashAndRewardUseTheFullScreenInPixels) {
    for (auto [kind, adType] : {std::pair{"splash", 0}, std::pair{"reward", 4}}) {
        auto run = runPelora({"request", "--kind", kind, "--slot", "S"});
        ASSERT_EQ(run.status, 0) << run.err;
        auto j = parsed(run);
        const auto& slot = j.at("body").at("slot");
        EXPECT_EQ(slot.at("adType"), adType) << kind;
        EXPECT_EQ(slot.at("position"), 5) << kind;
        EXPECT_GT(slot.at("width").get<int64_t>(), 0) << kind;
        EXPECT_GT(slot.at("height").get<int64_t>(), 0) << kind;
        EXPECT_FALSE(j.at("body").at("appInfo").contains("appId"));
    }
}

TEST_F(CliCore, BadArgumentsPrintUsageAndExitTwo) {
    const std::vector<std::vector<std::string>> bad = {
        {"request"},
        {"request", "--kind", "native"},
        {"request", "--kind", "banner", "--slot", "S"},
        {"request", "--kind", "splash", "--slot", "S", "--width", "10"},
        {"request", "--kind", "native", "--slot", "S", "--width", "wide"},
        {"request", "--kind", "native", "--slot", "S", "--timeout", "0"},
        {"request", "--kind", "native", "--slot", "S", "--base-url", "http://127.0.0.1:1"},
        {"request", "--kind", "native", "--slot"},
        {"fetch", "--kind", "splash", "--slot", "S", "--base-url", "file:///etc"},
        {"escape"},
        {"escape", "a", "b"},
    };
    for (const auto& args : bad) {
        auto run = runPelora(args);
        std::string shown;
        for (const auto& a : args) shown += a + " ";
        EXPECT_EQ(run.status, 2) << shown;
        EXPECT_TRUE(run.out.empty()) << shown;
        EXPECT_NE(run.err.find("usage: pelora " + args[0]), std::string::npos) << shown << run.err;
    }
}

TEST_F(CliCore, EscapePrintsAJsonString) {
    auto run = runPelora({"escape", "a b&c=d:/?é"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(parsed(run), "a%20b%26c%3Dd%3A/?%C3%A9");
}

TEST_F(CliCore, FetchSendsToTheGivenServerAndPrintsTheResult) {
    LoopbackServer server;
    server.on("/api/v1/advert/fetch",
              LoopbackResponse::json(
                  R"({"code":0,"data":{"reqId":"R","ads":[{"adId":"a1","title":"T"}]}})"));
    auto run = runPelora({"fetch", "--kind", "native", "--slot", "N", "--width", "300", "--height",
                          "250", "--base-url", server.baseUrl()});
    ASSERT_EQ(run.status, 0) << run.err;
    auto j = parsed(run);
    EXPECT_EQ(j.at("code"), 0);
    EXPECT_TRUE(j.at("message").is_null());
    const auto& ads = j.at("payload").at("ads");
    ASSERT_EQ(ads.size(), 1u);
    EXPECT_EQ(ads[0].at("adId"), "a1");

    auto got = server.requestsTo("/api/v1/advert/fetch");
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].method, "POST");
    auto body = nlohmann::json::parse(got[0].body);
    EXPECT_EQ(body.at("slot").at("slotId"), "N");
    EXPECT_EQ(body.at("slot").at("width"), 300);
}

TEST_F(CliCore, FetchReportsFailuresAsJsonWithExitOne) {
    LoopbackServer server;
    server.on("/api/v1/advert/fetch", LoopbackResponse::json(R"({"code":1})"));
    auto run = runPelora(
        {"fetch", "--kind", "splash", "--slot", "S", "--base-url", server.baseUrl() + "/"});
    EXPECT_EQ(run.status, 1) << run.err;
    auto j = parsed(run);
    EXPECT_EQ(j.at("code"), -1);
    EXPECT_TRUE(j.at("message").is_null());
    EXPECT_TRUE(j.at("payload").is_null());

    auto timedOut =
        runPelora({"fetch", "--kind", "splash", "--slot", "S", "--timeout", "1", "--base-url",
                   "http://127.0.0.1:" + std::to_string(LoopbackServer::unusedPort())});
    EXPECT_EQ(timedOut.status, 1);
    auto k = parsed(timedOut);
    EXPECT_EQ(k.at("code"), -1004);
    EXPECT_TRUE(k.at("message").is_string());
}

TEST_F(CliCore, FetchOverHttpsTrustsTheNamedAuthorityOnly) {
    LoopbackServer server(LoopbackServer::Options{2, pelora::testing::TestTls::certificateFile(),
                                                  pelora::testing::TestTls::keyFile()});
    server.on("/api/v1/advert/fetch", LoopbackResponse::json(R"({"code":0,"data":{"ads":[]}})"));
    auto trusted =
        runPelora({"fetch", "--kind", "splash", "--slot", "S", "--base-url", server.baseUrl(),
                   "--ca-file", pelora::testing::TestTls::authorityFile()});
    EXPECT_EQ(trusted.status, 0) << trusted.err;
    EXPECT_EQ(parsed(trusted).at("code"), 0);
    EXPECT_EQ(server.requestsTo("/api/v1/advert/fetch").size(), 1u);

    auto untrusted =
        runPelora({"fetch", "--kind", "splash", "--slot", "S", "--base-url", server.baseUrl()});
    EXPECT_EQ(untrusted.status, 1);
    EXPECT_EQ(parsed(untrusted).at("code"), -1202);
    EXPECT_EQ(server.requestsTo("/api/v1/advert/fetch").size(), 1u);

    auto missing = runPelora({"fetch", "--kind", "splash", "--slot", "S", "--base-url",
                              server.baseUrl(), "--ca-file", "/nonexistent/ca.pem"});
    EXPECT_EQ(missing.status, 2);
    EXPECT_NE(missing.err.find("--ca-file"), std::string::npos) << missing.err;
}

}  // namespace
