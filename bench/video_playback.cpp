// Rewarded video playback against a bare GStreamer pipeline playing the same cached 720p
// H.264 file, in the same run:
//  - BM_FirstFrameRatio: from showAdFromRootViewController to the first decoded frame in the
//    page's drawing layer, against a bare uridecodebin → videoconvert → appsink pipeline
//    reaching its first RGBA frame. The two alternate, and the figure is the ratio of their
//    medians (target <= 1.5).
//  - BM_PlaybackCpuRatio: process CPU time over 10 seconds of real-time playback, the SDK's
//    page against the bare pipeline pulling every frame (target <= 1.2).
// The file is made at start-up into a temporary caches directory (GStreamer's x264enc).

#include <benchmark/benchmark.h>
#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "BenchPlatform.h"
#include "pelora/PeloraRewardVideoAdManager.h"
#include "pelora/desktop/DesktopFileSystem.h"
#include "pelora/desktop/GstMediaPlayer.h"
#include "pelora/ui/UI.h"
#include "reward/PeloraAdCache.h"
#include "reward/PeloraRewardVideoAdManagerInternal.h"
#include "reward/PeloraVideoPlayerVC.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

const char* kVideoUrl = "https://cdn.example/bench-720p.mp4";

struct World {
    fs::path root;
    std::string file;
    std::shared_ptr<pelora::platform::RunLoop> loop;
    std::shared_ptr<pelora::platform::Clock> clock;
    std::shared_ptr<pelora::ui::Window> window;
    std::shared_ptr<pelora::ui::ViewController> rootController;
    std::shared_ptr<PeloraRewardVideoAdManager> manager;
};

double processCpuSeconds() {
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

double median(std::vector<double> v) {
    if (v.empty()) return 0;
    std::nth_element(v.begin(), v.begin() + static_cast<long>(v.size() / 2), v.end());
    return v[v.size() / 2];
}

// 12 seconds of 1280x720 H.264 at 30 frames a second, no audio, in an MP4.
bool makeVideo(const std::string& path) {
    std::string description =
        "videotestsrc num-buffers=360 pattern=ball motion=sweep ! "
        "video/x-raw,width=1280,height=720,framerate=30/1 ! "
        "x264enc speed-preset=veryfast bitrate=2500 key-int-max=60 ! h264parse ! "
        "mp4mux faststart=true ! filesink location=\"" +
        path + "\"";
    GError* error = nullptr;
    GstElement* pipeline = gst_parse_launch(description.c_str(), &error);
    if (!pipeline) {
        std::fprintf(stderr, "bench: %s\n", error ? error->message : "no pipeline");
        if (error) g_error_free(error);
        return false;
    }
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    GstBus* bus = gst_element_get_bus(pipeline);
    GstMessage* message = gst_bus_timed_pop_filtered(
        bus, 120 * GST_SECOND, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    const bool ok = message && GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS;
    if (message) gst_message_unref(message);
    gst_object_unref(bus);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
    return ok;
}

World& world() {
    static World w = [] {
        World w;
        w.root = fs::temp_directory_path() / ("pelora-bench-video-" + std::to_string(::getpid()));
        fs::create_directories(w.root / "Caches" / "Pelora");
        w.file = (w.root / "Caches" / "Pelora" / "bench-720p.mp4").string();
        gst_init(nullptr, nullptr);
        if (!makeVideo(w.file)) std::fprintf(stderr, "bench: could not make the video\n");

        w.loop = bench::installBenchPlatform(bench::Network::Loopback);
        auto services = pelora::platform::services();
        w.clock = services.clock;
        pelora::desktop::DesktopFileSystem::Options files;
        files.cachesDirectoryOverride = (w.root / "Caches").string();
        files.temporaryDirectoryOverride = (w.root / "tmp").string();
        fs::create_directories(w.root / "tmp");
        services.files = std::make_shared<pelora::desktop::DesktopFileSystem>(files);
        auto device = std::make_shared<pelora::testing::FakeDeviceInfo>();
        device->bundlePath = PELORA_SOURCE_DIR "/resources";
        services.device = device;
        services.mediaPlayer = std::make_shared<pelora::desktop::GstMediaPlayerService>(
            w.loop, (w.root / "Caches").string());
        pelora::platform::installServices(services);

        w.window = std::make_shared<pelora::ui::Window>(pelora::platform::makeRect(0, 0, 375, 667));
        w.rootController = std::make_shared<pelora::ui::ViewController>();
        w.window->setRootViewController(w.rootController);
        // A manager that chose an ad whose video was downloaded already.
        auto slot = std::make_shared<PeloraRewardVideoSlot>();
        slot->slotId = "bench";
        w.manager = PeloraRewardVideoAdManager::initWithSlot(slot);
        auto video = std::make_shared<PeloraRespVideoObject>();
        video->videoUrl = kVideoUrl;
        video->prefetch = true;
        video->videoDuration = "12";
        auto ad = PeloraApiAd::init();
        ad->adId = "bench-ad";
        ad->videos = std::vector<std::shared_ptr<PeloraRespVideoObject>>{video};
        auto nativeAd = PeloraNativeAd::init();
        nativeAd->setAd(ad);
        plFileCaches()[kVideoUrl] = w.file;
        PeloraRewardVideoAdManagerInternal::of(*w.manager).onAdLoadSuccess({nativeAd});
        return w;
    }();
    return w;
}

// ---- the SDK's page ------------------------------------------------------------------------

// Shows the page and runs the loop until `done`; returns the page (still presented).
std::shared_ptr<PeloraVideoPlayerVC> showUntil(
    const std::function<bool(PeloraVideoPlayerVC&)>& done, double seconds) {
    auto& w = world();
    w.manager->showAdFromRootViewController(w.rootController);
    auto page = PeloraRewardVideoAdManagerInternal::of(*w.manager).videoPage();
    if (!page) return nullptr;
    w.loop->runUntil([&] { return done(*page); }, w.clock->monotonicSeconds() + seconds);
    return page;
}

void closePage(std::shared_ptr<PeloraVideoPlayerVC> page) {
    if (page) page->realClose();
    page.reset();
    world().loop->pump();
}

bool hasFrame(PeloraVideoPlayerVC& page) {
    auto view = page.playerView();
    return view && view->playerLayer() && view->playerLayer()->latestFrame();
}

// ---- the bare pipeline ---------------------------------------------------------------------

struct Bare {
    GstElement* pipeline = nullptr;
    GstElement* sink = nullptr;
    explicit Bare(const std::string& file, bool sync) {
        gchar* uri = gst_filename_to_uri(file.c_str(), nullptr);
        std::string description = std::string("uridecodebin uri=\"") + uri +
                                  "\" ! videoconvert ! appsink name=sink caps=video/x-raw,"
                                  "format=RGBA max-buffers=2 sync=" +
                                  (sync ? "true" : "false");
        g_free(uri);
        pipeline = gst_parse_launch(description.c_str(), nullptr);
        sink = gst_bin_get_by_name(GST_BIN(pipeline), "sink");
    }
    ~Bare() {
        gst_element_set_state(pipeline, GST_STATE_NULL);
        gst_object_unref(sink);
        gst_object_unref(pipeline);
    }
    bool firstFrame() {
        gst_element_set_state(pipeline, GST_STATE_PAUSED);
        GstSample* sample = gst_app_sink_try_pull_preroll(GST_APP_SINK(sink), 10 * GST_SECOND);
        if (!sample) return false;
        gst_sample_unref(sample);
        return true;
    }
    void playFor(double seconds) {
        gst_element_set_state(pipeline, GST_STATE_PLAYING);
        const auto end = Clock::now() + std::chrono::duration<double>(seconds);
        while (Clock::now() < end) {
            GstSample* sample = gst_app_sink_try_pull_sample(GST_APP_SINK(sink), GST_SECOND / 10);
            if (sample) gst_sample_unref(sample);
        }
    }
};

struct Figures {
    double sdk = 0;
    double bare = 0;
};
Figures firstFrame, cpu;

void BM_FirstFrameRatio(benchmark::State& state) {
    auto& w = world();
    std::vector<double> sdkTimes, bareTimes;
    for (auto _ : state) {
        const auto t0 = Clock::now();
        auto page = showUntil(hasFrame, 10);
        const auto t1 = Clock::now();
        const bool sdkOk = page && hasFrame(*page);
        closePage(std::move(page));
        const auto t2 = Clock::now();
        bool bareOk = false;
        {
            Bare bare(w.file, true);
            bareOk = bare.firstFrame();
        }
        const auto t3 = Clock::now();
        if (!sdkOk || !bareOk) {
            state.SkipWithError("no first frame");
            break;
        }
        sdkTimes.push_back(std::chrono::duration<double, std::milli>(t1 - t0).count());
        bareTimes.push_back(std::chrono::duration<double, std::milli>(t3 - t2).count());
    }
    firstFrame = {median(sdkTimes), median(bareTimes)};
    state.counters["sdk_ms"] = firstFrame.sdk;
    state.counters["bare_ms"] = firstFrame.bare;
    state.counters["ratio"] = firstFrame.bare > 0 ? firstFrame.sdk / firstFrame.bare : 0;
}
BENCHMARK(BM_FirstFrameRatio)->UseRealTime()->Iterations(15);

void BM_PlaybackCpuRatio(benchmark::State& state) {
    auto& w = world();
    for (auto _ : state) {
        const double c0 = processCpuSeconds();
        const double until = w.clock->monotonicSeconds() + 10.0;
        auto page = showUntil([&](PeloraVideoPlayerVC&) { return false; }, 10.0);
        (void)until;
        const double c1 = processCpuSeconds();
        closePage(std::move(page));
        const double c2 = processCpuSeconds();
        {
            Bare bare(w.file, true);
            bare.playFor(10.0);
        }
        const double c3 = processCpuSeconds();
        cpu = {c1 - c0, c3 - c2};
    }
    state.counters["sdk_cpu_s"] = cpu.sdk;
    state.counters["bare_cpu_s"] = cpu.bare;
    state.counters["ratio"] = cpu.bare > 0 ? cpu.sdk / cpu.bare : 0;
}
BENCHMARK(BM_PlaybackCpuRatio)->UseRealTime()->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    if (firstFrame.bare > 0) {
        std::printf(
            "median first frame: SDK show %.1f ms, bare pipeline %.1f ms, ratio %.2f "
            "(target <= 1.50)\n",
            firstFrame.sdk, firstFrame.bare, firstFrame.sdk / firstFrame.bare);
    }
    if (cpu.bare > 0) {
        std::printf(
            "CPU over 10 s of playback: SDK %.2f s, bare pipeline %.2f s, ratio %.2f "
            "(target <= 1.20)\n",
            cpu.sdk, cpu.bare, cpu.sdk / cpu.bare);
    }
    benchmark::Shutdown();
    std::error_code ec;
    fs::remove_all(world().root, ec);
    return 0;
}
