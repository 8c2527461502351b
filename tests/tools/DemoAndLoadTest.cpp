// The `pelora demo`, `render` and `load` programs end to end, against the sandbox ad server.

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "Program.h"
#include "pelora/desktop/StbImageDecoder.h"
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

// The demo's timeline: the events with `source`, and the track types the server received for
// `slot`.
Texts events(const Run& r, const std::string& source) {
    Texts out;
    for (const auto& l : r.lines())
        if (l.is_object() && l.value("source", "") == source) out.push_back(l.value("event", ""));
    return out;
}
std::multiset<int64_t> beacons(const Run& r, const std::string& slot) {
    std::multiset<int64_t> out;
    for (const auto& l : r.lines())
        if (l.is_object() && l.value("source", "") == "server" && l.value("slot", "") == slot)
            out.insert(l.value("trackType", int64_t(0)));
    return out;
}

// The size in pixels of the PNG file at `path`, or {0, 0} when it does not decode.
std::pair<int, int> pngSize(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    auto image = pelora::desktop::StbImageDecoder().decode(
        std::string(std::istreambuf_iterator<char>(in), {}));
    return image ? std::pair(image->pixelWidth, image->pixelHeight) : std::pair(0, 0);
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

    // Each beacon once; what they carry is checked by the demo itself (its summary) and by the
    // SDK's own tests.
    using Types = std::multiset<int64_t>;
    EXPECT_EQ(beacons(r, "splash-demo"), Types{1});
    EXPECT_EQ(beacons(r, "native-demo"), (Types{1, 2, 16}));
    EXPECT_EQ(beacons(r, "reward-demo"), (Types{1, 8, 31, 32, 33, 34, 35, 41}));
    Texts expected;
    for (const char* name : {"splash-5", "splash-4", "native", "video-playing", "end-page"})
        expected.push_back((dir / (std::string(name) + ".png")).string());
    EXPECT_EQ(summary.value("screenshots", Texts{}), expected);
    for (const auto& path : expected)  // 375x667 points at the screen scale, 2
        EXPECT_EQ(pngSize(path), std::pair(750, 1334)) << path;
}

TEST_F(ProgramTest, DemoSkipsOrTapsWhenTold) {
    const Texts shown = {"splashAdDidLoad", "countdown 5", "splashAdDidShow", "countdown 4"};
    auto skip = runLine("demo --fast --json --skip-at 3 --reward-skip-at 6");
    ASSERT_EQ(skip.status, 0) << skip.out;
    Texts splash = shown;
    splash.insert(splash.end(), {"countdown 3", "splashAdDidClickSkip"});
    EXPECT_EQ(events(skip, "splash"), splash);
    EXPECT_EQ(events(skip, "reward"),
              (Texts{"rewardVideoAdManagerDidSuccessLoad", "rewardVideoAdManagerVideoDidLoad",
                     "rewardVideoAdManagerDidShow", "rewardVideoAdManagerDidClickSkip"}));
    EXPECT_EQ(beacons(skip, "reward-demo"), (std::multiset<int64_t>{1, 31, 32, 33, 36}));

    auto tap = runLine("demo --fast --json --tap-at 4");
    ASSERT_EQ(tap.status, 0) << tap.out;
    splash = shown;
    splash.push_back("splashAdDidClick");
    EXPECT_EQ(events(tap, "splash"), splash);
    EXPECT_EQ(beacons(tap, "splash-demo").count(2), 1u);
    EXPECT_NE(tap.out.find("dx=187&dy=333"), std::string::npos) << "the tap's point in the ad";

    // Without a display the window cannot open: a clear failure, not a hang or a crash.
    EXPECT_EQ(runLine("demo --window", kNoDisplay).status, 1);
}

TEST_F(ProgramTest, RenderDrawsAnInterfaceFileAndRefusesBadOnes) {
    const std::string bundle =
        std::string(PELORA_SOURCE_DIR) + "/resources/PeloraSDKBundle.bundle/";
    const auto out = (cache_ / "out.png").string();
    for (auto [args, size] :
         {std::pair{"PeloraSplashAdView.json", std::pair(750, 1334)},
          {"PeloraVideoPlayerVC.json --scale 1 --show closeBtn", std::pair(375, 667)}}) {
        EXPECT_EQ(runLine("render " + bundle + args + " --out " + out).status, 0) << args;
        EXPECT_EQ(pngSize(out), size) << args;
    }
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

// What each load prints ($BASE the sandbox, $CACHE the caches directory) and its exit status;
// failures print one line with their domain and code.
TEST_F(LoadProgramTest, EachKindPrintsItsCallbacksAndStopsAfterTheLoad) {
    const std::tuple<const char*, int, const char*> cases[] = {
        {"splash --slot splash-demo", 0,
         R"({"adId":"splash-001","callback":"splashAdDidLoad"}
{"callback":"splashAdDidShow"}
)"},
        {"native --slot native-demo --width 600 --height 300", 0,
         R"({"ads":["native-001","native-002","native-003","native-004","native-005"],"callback":"dataFlowAdManagerDidSuccessLoad"}
)"},
        {"reward --slot reward-short", 0,
         R"({"adId":"reward-short-001","callback":"rewardVideoAdManagerDidSuccessLoad","prefetch":true,"videoUrl":"$BASE/creatives/reward-3s.mp4"}
{"callback":"rewardVideoAdManagerVideoDidLoad","path":"$CACHE/pelora.host/Pelora/reward-3s.mp4"}
)"},
        {"reward --slot reward-stream", 0,
         R"({"adId":"reward-stream-001","callback":"rewardVideoAdManagerDidSuccessLoad","prefetch":false,"videoUrl":"$BASE/creatives/reward-3s.mp4?stream=1"}
{"callback":"rewardVideoAdManagerVideoDidLoad","path":null}
)"},
        {"splash --slot fail-noads", 1,
         R"({"callback":"splashAdDidFailWithError","code":-1,"domain":"sdk.data.error"}
)"},
        {"splash --slot fail-malformed", 1,
         R"({"callback":"splashAdDidFailWithError","code":-1,"domain":"NSURLErrorDomain"}
)"},
        {"splash --slot fail-delay --timeout 1", 1,
         R"({"callback":"splashAdDidFailWithError","code":-1001,"domain":"NSURLErrorDomain"}
)"},
        {"native --slot fail-500", 1,
         R"({"callback":"dataFlowAdManagerDidFailWithError","code":-1,"domain":"NSURLErrorDomain"}
)"},
        {"reward --slot reward-novideo-first", 1,
         R"({"callback":"rewardVideoAdManagerDidFailWithError","code":-1,"domain":"sdk.data.err"}
)"}};
    for (const auto& [args, status, expected] : cases) {
        auto r = load(std::string("--kind ") + args);
        EXPECT_EQ(r.status, status) << args;
        for (auto [from, to] : {std::pair{sandbox.baseUrl(), "$BASE"}, {cache_.string(), "$CACHE"}})
            for (size_t p; (p = r.out.find(from)) != std::string::npos;)
                r.out.replace(p, from.size(), to);
        EXPECT_EQ(r.out, expected) << args;
    }
    // The native slot's size went out as given; the video arrived whole.
    const json slot = json::parse(sandbox.fetchRecords()[1].body)["slot"];
    EXPECT_EQ(slot["width"], 600);
    EXPECT_EQ(slot["height"], 300);
    EXPECT_EQ(std::filesystem::file_size(cache_ / "pelora.host/Pelora/reward-3s.mp4"),
              std::filesystem::file_size(std::string(PELORA_SOURCE_DIR) +
                                         "/tools/sandbox/creatives/reward-3s.mp4"));
}

}  // namespace
