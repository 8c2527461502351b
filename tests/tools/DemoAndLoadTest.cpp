// The `pelora demo` and `pelora load` programs end to end, against the sandbox ad server.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "pelora/sandbox/Sandbox.h"

namespace {

struct Run {
    int status = -1;
    std::vector<nlohmann::json> lines;  // stdout, one JSON value per line
    std::string raw;
};

std::string binary() {
    return std::string(PELORA_BINARY_DIR) + "/tools/pelora";
}

Run run(const std::string& args, const std::string& prefix = "") {
    Run out;
    // `timeout` bounds the child in real time whatever happens to it.
    std::string cmd = prefix + "timeout 60 " + binary() + " " + args + " 2>/dev/null";
    FILE* pipe = ::popen(cmd.c_str(), "r");
    if (!pipe) return out;
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) out.raw.append(buffer, n);
    int status = ::pclose(pipe);
    out.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    std::istringstream in(out.raw);
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty()) continue;
        out.lines.push_back(nlohmann::json::parse(line, nullptr, false));
    }
    return out;
}

class ProgramTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!std::filesystem::exists(binary())) GTEST_SKIP() << "pelora is not built";
        // Downloaded videos go to the programs' caches directory: keep it the test's own.
        cache_ = std::filesystem::temp_directory_path() /
                 ("pelora-cli-cache-" + std::to_string(::getpid()));
        std::filesystem::create_directories(cache_);
        ::setenv("XDG_CACHE_HOME", cache_.c_str(), 1);
    }
    void TearDown() override {
        std::error_code ec;
        if (!cache_.empty()) std::filesystem::remove_all(cache_, ec);
    }
    std::filesystem::path cache_;
};

// The events of the demo's timeline with the given source, as "event" texts.
std::vector<std::string> events(const Run& r, const std::string& source) {
    std::vector<std::string> out;
    for (const auto& l : r.lines)
        if (l.is_object() && l.value("source", "") == source) out.push_back(l.value("event", ""));
    return out;
}

std::vector<nlohmann::json> tracking(const Run& r, const std::string& slot, int64_t type) {
    std::vector<nlohmann::json> out;
    for (const auto& l : r.lines)
        if (l.is_object() && l.value("source", "") == "server" && l.value("slot", "") == slot &&
            l.value("trackType", int64_t(0)) == type)
            out.push_back(l);
    return out;
}

TEST_F(ProgramTest, DemoWatchesTheSplashToTheEndThenShowsAndTapsANativeAd) {
    auto r = run("demo --fast --json");
    ASSERT_EQ(r.status, 0) << r.raw;
    ASSERT_FALSE(r.lines.empty());
    const auto& summary = r.lines.back();
    ASSERT_TRUE(summary.contains("summary")) << r.raw;
    EXPECT_TRUE(summary["ok"].get<bool>());

    EXPECT_EQ(events(r, "splash"),
              (std::vector<std::string>{"splashAdDidLoad", "countdown 5", "splashAdDidShow",
                                        "countdown 4", "countdown 3", "countdown 2", "countdown 1",
                                        "countdown 0", "splashAdTimeOver"}));
    EXPECT_EQ(events(r, "native"),
              (std::vector<std::string>{"dataFlowAdManagerDidSuccessLoad", "nativeAdDidDidShow",
                                        "nativeAdDidClickWithView"}));

    // What the server received: the splash impression with the request's slot size in
    // pixels, the native impression by POST with its body rewritten, one native click with
    // the touch point inside the container.
    auto splashImp = tracking(r, "splash-demo", 1);
    ASSERT_EQ(splashImp.size(), 1u);
    EXPECT_NE(splashImp[0]["url"].get<std::string>().find("rw=750&rh=1334"), std::string::npos);
    EXPECT_TRUE(tracking(r, "splash-demo", 2).empty());

    auto nativeImp = tracking(r, "native-demo", 1);
    ASSERT_EQ(nativeImp.size(), 1u);
    EXPECT_EQ(nativeImp[0]["method"], "POST");
    auto body = nlohmann::json::parse(nativeImp[0]["body"].get<std::string>(), nullptr, false);
    ASSERT_TRUE(body.is_object()) << nativeImp[0]["body"];
    EXPECT_EQ(body["adId"], "native-001");
    EXPECT_EQ(body["rw"], 686);
    EXPECT_EQ(body["w"], 343);

    auto nativeClicks = tracking(r, "native-demo", 2);
    ASSERT_EQ(nativeClicks.size(), 1u);
    EXPECT_NE(nativeClicks[0]["url"].get<std::string>().find("dx=171&dy=152"), std::string::npos);

    // Images came down for the splash and the native card.
    EXPECT_EQ(events(r, "image").size(), 3u);
}

TEST_F(ProgramTest, DemoSkipsOrTapsWhenToldAndReportsTheClick) {
    auto skip = run("demo --fast --json --skip-at 3");
    ASSERT_EQ(skip.status, 0) << skip.raw;
    auto splash = events(skip, "splash");
    ASSERT_FALSE(splash.empty());
    EXPECT_EQ(splash.back(), "splashAdDidClickSkip");
    EXPECT_EQ(splash[splash.size() - 2], "countdown 3");

    auto tap = run("demo --fast --json --tap-at 4");
    ASSERT_EQ(tap.status, 0) << tap.raw;
    auto tapped = events(tap, "splash");
    EXPECT_EQ(tapped.back(), "splashAdDidClick");
    EXPECT_EQ(std::count(tapped.begin(), tapped.end(), "splashAdTimeOver"), 0);
    auto clicks = tracking(tap, "splash-demo", 2);
    ASSERT_EQ(clicks.size(), 1u);
    EXPECT_NE(clicks[0]["url"].get<std::string>().find("dx=187&dy=333"), std::string::npos);
}

TEST_F(ProgramTest, DemoShowsTheRewardedVideoToTheEndAndEachBeaconGoesOutOnce) {
    auto r = run("demo --fast --json --reward-mute-at 2");
    ASSERT_EQ(r.status, 0) << r.raw;
    EXPECT_EQ(events(r, "reward"),
              (std::vector<std::string>{
                  "rewardVideoAdManagerDidSuccessLoad", "rewardVideoAdManagerVideoDidLoad",
                  "rewardVideoAdManagerDidShow", "rewardVideoAdManagerDidPlayFinish",
                  "rewardVideoAdManagerDidClose"}));
    for (int64_t type : {1, 31, 32, 33, 34, 35, 8, 41}) {
        auto beacons = tracking(r, "reward-demo", type);
        ASSERT_EQ(beacons.size(), 1u) << "track type " << type;
        const std::string url = beacons[0]["url"];
        EXPECT_NE(url.find(type == 1 ? "rw=750" : "vt=10&vb=0"), std::string::npos) << url;
    }
    EXPECT_NE(
        tracking(r, "reward-demo", 35)[0]["url"].get<std::string>().find("vet=10&vff=1&vlf=1"),
        std::string::npos);
    EXPECT_TRUE(tracking(r, "reward-demo", 36).empty());
    auto page = events(r, "page");
    EXPECT_NE(std::find(page.begin(), page.end(), "end page"), page.end());
    EXPECT_EQ(page.back(), "dismissed and released");
}

TEST_F(ProgramTest, DemoSkipsTheRewardedVideoWhenTold) {
    auto r = run("demo --fast --json --reward-skip-at 6");
    ASSERT_EQ(r.status, 0) << r.raw;
    auto reward = events(r, "reward");
    ASSERT_FALSE(reward.empty());
    EXPECT_EQ(reward.back(), "rewardVideoAdManagerDidClickSkip");
    EXPECT_EQ(std::count(reward.begin(), reward.end(), "rewardVideoAdManagerDidPlayFinish"), 0);
    EXPECT_EQ(tracking(r, "reward-demo", 36).size(), 1u);
    EXPECT_TRUE(tracking(r, "reward-demo", 35).empty());
    EXPECT_TRUE(tracking(r, "reward-demo", 8).empty());
}

TEST_F(ProgramTest, DemoRefusesBadOptions) {
    EXPECT_EQ(run("demo --skip-at 0").status, 2);
    EXPECT_EQ(run("demo --skip-at 2 --tap-at 3").status, 2);
    EXPECT_EQ(run("demo --tap-at soon").status, 2);
    EXPECT_EQ(run("demo extra").status, 2);
    EXPECT_EQ(run("demo --reward-skip-at 4").status, 2) << "skipping opens at 5";
    EXPECT_EQ(run("demo --reward-mute-at 0").status, 2);
    EXPECT_EQ(run("demo --window --fast").status, 2) << "a person watches real time";
    // Without a display the window cannot open: a clear failure, not a hang or a crash.
    EXPECT_EQ(run("demo --window", "env -u DISPLAY -u WAYLAND_DISPLAY ").status, 1);
}

// The size a PNG file declares in its header, or {0, 0}.
std::pair<uint32_t, uint32_t> pngSize(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    unsigned char header[24] = {};
    if (!in.read(reinterpret_cast<char*>(header), sizeof header)) return {0, 0};
    if (header[1] != 'P' || header[2] != 'N' || header[3] != 'G') return {0, 0};
    auto be = [&](int at) {
        return (uint32_t{header[at]} << 24) | (uint32_t{header[at + 1]} << 16) |
               (uint32_t{header[at + 2]} << 8) | uint32_t{header[at + 3]};
    };
    return {be(16), be(20)};
}

TEST_F(ProgramTest, DemoScreenshotsEveryStepWithoutADisplay) {
    const auto dir = cache_ / "shots";
    auto r = run("demo --fast --json --screenshots " + dir.string(),
                 "env -u DISPLAY -u WAYLAND_DISPLAY ");
    ASSERT_EQ(r.status, 0) << r.raw;
    ASSERT_FALSE(r.lines.empty());
    const auto& summary = r.lines.back();
    std::vector<std::string> listed = summary.value("screenshots", std::vector<std::string>{});
    std::vector<std::string> expected;
    for (const char* name : {"splash-5", "splash-4", "native", "video-playing", "end-page"})
        expected.push_back((dir / (std::string(name) + ".png")).string());
    EXPECT_EQ(listed, expected);
    for (const auto& path : expected) {
        auto size = pngSize(path);
        EXPECT_EQ(size.first, 750u) << path;  // 375x667 points at the screen scale, 2
        EXPECT_EQ(size.second, 1334u) << path;
    }
}

TEST_F(ProgramTest, RenderDrawsAnInterfaceFileAndRefusesBadOnes) {
    const std::string bundle =
        std::string(PELORA_SOURCE_DIR) + "/resources/PeloraSDKBundle.bundle/";
    const auto out = cache_ / "splash.png";
    EXPECT_EQ(run("render " + bundle + "PeloraSplashAdView.json --out " + out.string()).status, 0);
    EXPECT_EQ(pngSize(out), std::make_pair(750u, 1334u));
    const auto page = cache_ / "page.png";
    EXPECT_EQ(run("render " + bundle + "PeloraVideoPlayerVC.json --scale 1 --show closeBtn --out " +
                  page.string())
                  .status,
              0);
    EXPECT_EQ(pngSize(page), std::make_pair(375u, 667u));

    EXPECT_EQ(run("render " + bundle + "PeloraVideoPlayerVC.json --show nothingSuch --out " +
                  (cache_ / "x.png").string())
                  .status,
              1);
    EXPECT_EQ(run("render " + bundle + "missing.json --out " + (cache_ / "x.png").string()).status,
              1);
    const auto broken = cache_ / "broken.json";
    std::ofstream(broken) << "{\"objects\": [";
    EXPECT_EQ(run("render " + broken.string() + " --out " + (cache_ / "x.png").string()).status, 1);
    EXPECT_FALSE(std::filesystem::exists(cache_ / "x.png"));
    EXPECT_EQ(run("render " + bundle + "PeloraSplashAdView.json").status, 2) << "no --out";
    EXPECT_EQ(run("render " + bundle + "PeloraSplashAdView.json --scale 0 --out a.png").status, 2);
}

class LoadProgramTest : public ProgramTest {
  protected:
    void SetUp() override {
        ProgramTest::SetUp();
        if (IsSkipped()) return;
        ASSERT_TRUE(sandbox.start(pelora::sandbox::SandboxOptions{}));
    }
    std::string load(const std::string& args) {
        return "load --base-url " + sandbox.baseUrl() + " " + args;
    }
    pelora::sandbox::Sandbox sandbox;
};

TEST_F(LoadProgramTest, SplashPrintsItsCallbacksAndStopsAfterTheLoad) {
    auto r = run(load("--kind splash --slot splash-demo"));
    ASSERT_EQ(r.status, 0) << r.raw;
    ASSERT_EQ(r.lines.size(), 2u) << r.raw;
    EXPECT_EQ(r.lines[0],
              (nlohmann::json{{"callback", "splashAdDidLoad"}, {"adId", "splash-001"}}));
    EXPECT_EQ(r.lines[1], (nlohmann::json{{"callback", "splashAdDidShow"}}));
}

TEST_F(LoadProgramTest, NativeListsTheAdsInServerOrderWithTheSlotSize) {
    auto r = run(load("--kind native --slot native-demo --width 600 --height 300"));
    ASSERT_EQ(r.status, 0) << r.raw;
    ASSERT_EQ(r.lines.size(), 1u);
    EXPECT_EQ(r.lines[0]["callback"], "dataFlowAdManagerDidSuccessLoad");
    EXPECT_EQ(r.lines[0]["ads"], (nlohmann::json{"native-001", "native-002", "native-003",
                                                 "native-004", "native-005"}));
    auto fetches = sandbox.fetchRecords();
    ASSERT_EQ(fetches.size(), 1u);
    auto body = nlohmann::json::parse(fetches[0].body, nullptr, false);
    EXPECT_EQ(body["slot"]["width"], 600);
    EXPECT_EQ(body["slot"]["height"], 300);
}

TEST_F(LoadProgramTest, RewardDownloadsTheVideoAndNamesTheFile) {
    auto r = run(load("--kind reward --slot reward-short"));
    ASSERT_EQ(r.status, 0) << r.raw;
    ASSERT_EQ(r.lines.size(), 2u) << r.raw;
    EXPECT_EQ(r.lines[0]["callback"], "rewardVideoAdManagerDidSuccessLoad");
    EXPECT_EQ(r.lines[0]["adId"], "reward-short-001");
    EXPECT_EQ(r.lines[1]["callback"], "rewardVideoAdManagerVideoDidLoad");
    const std::string path = r.lines[1]["path"];
    EXPECT_EQ(path.rfind(cache_.string() + "/", 0), 0u) << path;
    EXPECT_NE(path.find("/Pelora/reward-3s.mp4"), std::string::npos) << path;
    EXPECT_EQ(std::filesystem::file_size(path),
              std::filesystem::file_size(std::string(PELORA_SOURCE_DIR) +
                                         "/tools/sandbox/creatives/reward-3s.mp4"));

    auto streamed = run(load("--kind reward --slot reward-stream"));
    ASSERT_EQ(streamed.status, 0) << streamed.raw;
    ASSERT_EQ(streamed.lines.size(), 2u);
    EXPECT_TRUE(streamed.lines[1]["path"].is_null());

    auto novideo = run(load("--kind reward --slot reward-novideo-first"));
    EXPECT_EQ(novideo.status, 1);
    ASSERT_EQ(novideo.lines.size(), 1u);
    EXPECT_EQ(novideo.lines[0],
              (nlohmann::json{{"callback", "rewardVideoAdManagerDidFailWithError"},
                              {"domain", "sdk.data.err"},
                              {"code", -1}}));
}

TEST_F(LoadProgramTest, FailuresPrintTheirDomainAndCodeAndExitOne) {
    auto noads = run(load("--kind splash --slot fail-noads"));
    EXPECT_EQ(noads.status, 1);
    ASSERT_EQ(noads.lines.size(), 1u);
    EXPECT_EQ(noads.lines[0], (nlohmann::json{{"callback", "splashAdDidFailWithError"},
                                              {"domain", "sdk.data.error"},
                                              {"code", -1}}));

    auto native = run(load("--kind native --slot fail-noads"));
    EXPECT_EQ(native.status, 1);
    ASSERT_EQ(native.lines.size(), 1u);
    EXPECT_EQ(native.lines[0]["domain"], "sdk.data.err");

    auto server = run(load("--kind native --slot fail-500"));
    EXPECT_EQ(server.status, 1);
    ASSERT_EQ(server.lines.size(), 1u);
    EXPECT_EQ(server.lines[0]["domain"], "NSURLErrorDomain");
    EXPECT_EQ(server.lines[0]["code"], -1);

    auto hung = run(load("--kind splash --slot fail-noanswer --timeout 1"));
    EXPECT_EQ(hung.status, 1);
    ASSERT_EQ(hung.lines.size(), 1u);
    EXPECT_EQ(hung.lines[0], (nlohmann::json{{"callback", "splashAdDidFailWithError"},
                                             {"domain", "NSURLErrorDomain"},
                                             {"code", -1001}}));
}

TEST_F(LoadProgramTest, BadArgumentsExitTwo) {
    EXPECT_EQ(run(load("--kind video --slot x")).status, 2);
    EXPECT_EQ(run("load --kind splash --slot x").status, 2);
    EXPECT_EQ(run(load("--kind native")).status, 2);
    EXPECT_EQ(run(load("--kind native --slot x --width wide")).status, 2);
}

}  // namespace
