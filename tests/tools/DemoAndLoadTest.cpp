// The `pelora demo`, `render` and `load` programs end to end, against the sandbox ad server.

#include <gtest/gtest.h>

#include <algorithm>

#include "Program.h"
#include "pelora/sandbox/Sandbox.h"

namespace {

using nlohmann::json;
using pelora_program::Run;
using pelora_program::runLine;
using Texts = std::vector<std::string>;

const std::string kNoDisplay = "env -u DISPLAY -u WAYLAND_DISPLAY";

class ProgramTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(std::filesystem::exists(pelora_program::path())) << "pelora is not built";
        // Downloaded videos go to the programs' caches directory: keep it the test's own.
        cache_ = std::filesystem::temp_directory_path() /
                 ("pelora-cli-cache-" + std::to_string(::getpid()));
        std::filesystem::create_directories(cache_);
        ::setenv("XDG_CACHE_HOME", cache_.c_str(), 1);
    }
    void TearDown() override { std::filesystem::remove_all(cache_); }
    std::filesystem::path cache_;
};

// The demo's timeline: the events with `source`, and what the server received of `type`.
Texts events(const Run& r, const std::string& source) {
    Texts out;
    for (const auto& l : r.lines())
        if (l.is_object() && l.value("source", "") == source) out.push_back(l.value("event", ""));
    return out;
}
Texts beacons(const Run& r, const std::string& slot, int64_t type) {
    Texts out;
    for (const auto& l : r.lines())
        if (l.is_object() && l.value("source", "") == "server" && l.value("slot", "") == slot &&
            l.value("trackType", int64_t(0)) == type)
            out.push_back(l.value("method", "") + " " + l.value("url", "") + " " +
                          l.value("body", ""));
    return out;
}
bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// The size a PNG file declares in its header, or {0, 0}.
std::pair<uint32_t, uint32_t> pngSize(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    unsigned char h[24] = {};
    if (!in.read(reinterpret_cast<char*>(h), sizeof h) || h[1] != 'P' || h[2] != 'N') return {};
    auto be = [&](int at) {
        return uint32_t{h[at]} << 24 | uint32_t{h[at + 1]} << 16 | uint32_t{h[at + 2]} << 8 |
               uint32_t{h[at + 3]};
    };
    return {be(16), be(20)};
}

// Splash watched to the end, a native ad shown and tapped, the rewarded video muted and watched
// to the end, with a screenshot of each step and no display.
TEST_F(ProgramTest, DemoWatchesEveryAdToTheEndAndEachBeaconGoesOutOnce) {
    const auto dir = cache_ / "shots";
    auto r =
        runLine("demo --fast --json --reward-mute-at 2 --screenshots " + dir.string(), kNoDisplay);
    ASSERT_EQ(r.status, 0) << r.out;
    const auto summary = r.lines().back();
    EXPECT_TRUE(summary.value("ok", false)) << r.out;

    EXPECT_EQ(events(r, "splash"), (Texts{"splashAdDidLoad", "countdown 5", "splashAdDidShow",
                                          "countdown 4", "countdown 3", "countdown 2",
                                          "countdown 1", "countdown 0", "splashAdTimeOver"}));
    EXPECT_EQ(events(r, "native"), (Texts{"dataFlowAdManagerDidSuccessLoad", "nativeAdDidDidShow",
                                          "nativeAdDidClickWithView"}));
    EXPECT_EQ(events(r, "reward"),
              (Texts{"rewardVideoAdManagerDidSuccessLoad", "rewardVideoAdManagerVideoDidLoad",
                     "rewardVideoAdManagerDidShow", "rewardVideoAdManagerDidPlayFinish",
                     "rewardVideoAdManagerDidClose"}));
    EXPECT_EQ(events(r, "image").size(), 3u);  // the splash image, the native icon and image
    const auto page = events(r, "page");
    EXPECT_NE(std::find(page.begin(), page.end(), "end page"), page.end());
    EXPECT_EQ(page.back(), "dismissed and released");

    // The splash impression with the request's slot size in pixels; the native impression by
    // POST with its body rewritten; one native click measured inside the container.
    auto splash = beacons(r, "splash-demo", 1);
    ASSERT_EQ(splash.size(), 1u);
    EXPECT_TRUE(has(splash[0], "rw=750&rh=1334")) << splash[0];
    EXPECT_TRUE(beacons(r, "splash-demo", 2).empty());
    auto native = beacons(r, "native-demo", 1);
    ASSERT_EQ(native.size(), 1u);
    EXPECT_TRUE(has(native[0], "POST ") && has(native[0], R"("adId":"native-001")") &&
                has(native[0], R"("rw":686)") && has(native[0], R"("w":343)"))
        << native[0];
    auto click = beacons(r, "native-demo", 2);
    ASSERT_EQ(click.size(), 1u);
    EXPECT_TRUE(has(click[0], "dx=171&dy=152")) << click[0];
    for (int64_t type : {1, 31, 32, 33, 34, 35, 8, 41}) {
        auto sent = beacons(r, "reward-demo", type);
        ASSERT_EQ(sent.size(), 1u) << "track type " << type;
        EXPECT_TRUE(has(sent[0], type == 1 ? "rw=750" : "vt=10&vb=0")) << sent[0];
    }
    EXPECT_TRUE(has(beacons(r, "reward-demo", 35)[0], "vet=10&vff=1&vlf=1"));
    EXPECT_TRUE(beacons(r, "reward-demo", 36).empty());

    Texts expected;
    for (const char* name : {"splash-5", "splash-4", "native", "video-playing", "end-page"})
        expected.push_back((dir / (std::string(name) + ".png")).string());
    EXPECT_EQ(summary.value("screenshots", Texts{}), expected);
    for (const auto& path : expected)  // 375x667 points at the screen scale, 2
        EXPECT_EQ(pngSize(path), std::make_pair(750u, 1334u)) << path;
}

TEST_F(ProgramTest, DemoSkipsOrTapsWhenTold) {
    auto skip = runLine("demo --fast --json --skip-at 3 --reward-skip-at 6");
    ASSERT_EQ(skip.status, 0) << skip.out;
    auto splash = events(skip, "splash");
    ASSERT_GE(splash.size(), 2u);
    EXPECT_EQ(splash.back(), "splashAdDidClickSkip");
    EXPECT_EQ(splash[splash.size() - 2], "countdown 3");
    auto reward = events(skip, "reward");
    ASSERT_FALSE(reward.empty());
    EXPECT_EQ(reward.back(), "rewardVideoAdManagerDidClickSkip");
    EXPECT_EQ(std::count(reward.begin(), reward.end(), "rewardVideoAdManagerDidPlayFinish"), 0);
    EXPECT_EQ(beacons(skip, "reward-demo", 36).size(), 1u);
    EXPECT_TRUE(beacons(skip, "reward-demo", 35).empty());
    EXPECT_TRUE(beacons(skip, "reward-demo", 8).empty());

    auto tap = runLine("demo --fast --json --tap-at 4");
    ASSERT_EQ(tap.status, 0) << tap.out;
    auto tapped = events(tap, "splash");
    EXPECT_EQ(tapped.back(), "splashAdDidClick");
    EXPECT_EQ(std::count(tapped.begin(), tapped.end(), "splashAdTimeOver"), 0);
    auto clicks = beacons(tap, "splash-demo", 2);
    ASSERT_EQ(clicks.size(), 1u);
    EXPECT_TRUE(has(clicks[0], "dx=187&dy=333")) << clicks[0];

    // Without a display the window cannot open: a clear failure, not a hang or a crash.
    EXPECT_EQ(runLine("demo --window", kNoDisplay).status, 1);
}

TEST_F(ProgramTest, RenderDrawsAnInterfaceFileAndRefusesBadOnes) {
    const std::string bundle =
        std::string(PELORA_SOURCE_DIR) + "/resources/PeloraSDKBundle.bundle/";
    const auto out = (cache_ / "out.png").string();
    EXPECT_EQ(runLine("render " + bundle + "PeloraSplashAdView.json --out " + out).status, 0);
    EXPECT_EQ(pngSize(out), std::make_pair(750u, 1334u));
    EXPECT_EQ(runLine("render " + bundle +
                      "PeloraVideoPlayerVC.json --scale 1 --show closeBtn --out " + out)
                  .status,
              0);
    EXPECT_EQ(pngSize(out), std::make_pair(375u, 667u));
    std::filesystem::remove(out);

    const auto broken = cache_ / "broken.json";
    std::ofstream(broken) << "{\"objects\": [";
    for (const std::string& file : {bundle + "PeloraVideoPlayerVC.json --show nothingSuch",
                                    bundle + "missing.json", broken.string()})
        EXPECT_EQ(runLine("render " + file + " --out " + out).status, 1) << file;
    EXPECT_FALSE(std::filesystem::exists(out));
}

class LoadProgramTest : public ProgramTest {
  protected:
    void SetUp() override {
        ProgramTest::SetUp();
        ASSERT_TRUE(sandbox.start(pelora::sandbox::SandboxOptions{}));
    }
    pelora_program::Run load(const std::string& args) {
        return runLine("load --base-url " + sandbox.baseUrl() + " " + args);
    }
    pelora::sandbox::Sandbox sandbox;
};

TEST_F(LoadProgramTest, EachKindPrintsItsCallbacksAndStopsAfterTheLoad) {
    auto splash = load("--kind splash --slot splash-demo");
    ASSERT_EQ(splash.status, 0) << splash.out;
    EXPECT_EQ(splash.lines(),
              (std::vector<json>{{{"callback", "splashAdDidLoad"}, {"adId", "splash-001"}},
                                 {{"callback", "splashAdDidShow"}}}));

    auto native = load("--kind native --slot native-demo --width 600 --height 300");
    ASSERT_EQ(native.status, 0) << native.out;
    ASSERT_EQ(native.lines().size(), 1u);
    EXPECT_EQ(native.lines()[0]["callback"], "dataFlowAdManagerDidSuccessLoad");
    EXPECT_EQ(native.lines()[0]["ads"],
              json({"native-001", "native-002", "native-003", "native-004", "native-005"}));
    auto fetches = sandbox.fetchRecords();
    ASSERT_EQ(fetches.size(), 2u);
    auto body = json::parse(fetches[1].body, nullptr, false);
    EXPECT_EQ(body["slot"]["width"], 600);
    EXPECT_EQ(body["slot"]["height"], 300);

    auto reward = load("--kind reward --slot reward-short");
    ASSERT_EQ(reward.status, 0) << reward.out;
    auto lines = reward.lines();
    ASSERT_EQ(lines.size(), 2u) << reward.out;
    EXPECT_EQ(lines[0]["callback"], "rewardVideoAdManagerDidSuccessLoad");
    EXPECT_EQ(lines[0]["adId"], "reward-short-001");
    EXPECT_EQ(lines[1]["callback"], "rewardVideoAdManagerVideoDidLoad");
    const std::string path = lines[1]["path"];
    EXPECT_EQ(path.rfind(cache_.string() + "/", 0), 0u) << path;
    EXPECT_TRUE(has(path, "/Pelora/reward-3s.mp4")) << path;
    EXPECT_EQ(std::filesystem::file_size(path),
              std::filesystem::file_size(std::string(PELORA_SOURCE_DIR) +
                                         "/tools/sandbox/creatives/reward-3s.mp4"));
    auto streamed = load("--kind reward --slot reward-stream");
    ASSERT_EQ(streamed.lines().size(), 2u) << streamed.out;
    EXPECT_TRUE(streamed.lines()[1]["path"].is_null());
}

// Every failure slot of the sandbox, as the SDK reports it: one line and exit status 1.
TEST_F(LoadProgramTest, FailuresPrintTheirDomainAndCodeAndExitOne) {
    const std::pair<const char*, const char*> cases[] = {
        {"splash --slot fail-noads", "splashAdDidFailWithError sdk.data.error -1"},
        {"splash --slot fail-nodata", "splashAdDidFailWithError NSURLErrorDomain -1"},
        {"splash --slot fail-empty", "splashAdDidFailWithError NSURLErrorDomain -1"},
        {"splash --slot fail-malformed", "splashAdDidFailWithError NSURLErrorDomain -1"},
        {"splash --slot fail-noanswer --timeout 1",
         "splashAdDidFailWithError NSURLErrorDomain -1001"},
        {"splash --slot fail-delay --timeout 1", "splashAdDidFailWithError NSURLErrorDomain -1001"},
        {"native --slot fail-noads", "dataFlowAdManagerDidFailWithError sdk.data.err -1"},
        {"native --slot fail-500", "dataFlowAdManagerDidFailWithError NSURLErrorDomain -1"},
        {"reward --slot reward-novideo-first",
         "rewardVideoAdManagerDidFailWithError sdk.data.err -1"}};
    for (const auto& [args, expected] : cases) {
        auto r = load(std::string("--kind ") + args);
        EXPECT_EQ(r.status, 1) << args;
        auto lines = r.lines();
        ASSERT_EQ(lines.size(), 1u) << args << "\n" << r.out;
        EXPECT_EQ(lines[0].value("callback", "") + " " + lines[0].value("domain", "") + " " +
                      std::to_string(lines[0].value("code", 0)),
                  expected)
            << args;
    }
}

}  // namespace
