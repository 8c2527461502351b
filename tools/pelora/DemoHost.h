#pragma once

// What the parts of `pelora demo` share: the timeline it prints and the checks it sums up
// (Demo), the loop it turns (DemoRun), the options it was given, and the host's window and
// controller with the user's taps and the screenshots (DemoHost). Each ad kind's part lives in
// a file of its own (demo_splash.cpp, demo_native.cpp, demo_reward.cpp); demo_command.cpp
// sets the platform up and plays them in turn. Public headers only, like any host.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "pelora/desktop/DesktopWindow.h"
#include "pelora/desktop/ViewRenderer.h"
#include "pelora/platform/Clock.h"
#include "pelora/platform/RunLoop.h"
#include "pelora/platform/Services.h"
#include "pelora/sandbox/Sandbox.h"
#include "pelora/ui/UI.h"

namespace pelora::cli::demo {

using nlohmann::json;
namespace ui = pelora::ui;

inline constexpr const char* kSplashSlot = "splash-demo";
inline constexpr const char* kNativeSlot = "native-demo";
inline constexpr const char* kRewardSlot = "reward-demo";
// The reward-demo slot's video opens its skip button at this second.
inline constexpr int64_t kRewardSkipSeconds = 5;

// --fast: a clock only the demo moves, one countdown second per step.
class DemoClock final : public pelora::platform::Clock {
  public:
    DemoClock() {
        wallStart_ =
            std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
                .count();
    }
    double monotonicSeconds() const override { return now_.load(); }
    double wallSeconds() const override { return wallStart_ + now_.load(); }
    void advance(double seconds) { now_.store(now_.load() + seconds); }

  private:
    std::atomic<double> now_{0};
    double wallStart_ = 0;
};

// Tokens still in a tracking request. The click id is never known on the device, so the SDK
// always leaves "__CLICK_ID__" for the ad server to fill in; a video's end time is known only
// when it completes, so every other video event leaves "__VIDEO_END_TIME__". Every other
// token must be gone.
bool macrosLeft(const std::string& text, int64_t trackType = 0);

// What was printed, and everything the checks at the end look at.
class Demo {
  public:
    Demo(bool jsonOutput, const pelora::platform::Clock* clock)
        : json_(jsonOutput), clock_(clock), start_(clock->monotonicSeconds()) {}

    // One line of the timeline (one JSON object with --json).
    void note(const std::string& source, const std::string& event, const std::string& text,
              json details = json::object());

    // Things arriving from other threads (the server's records, log lines), shown from the
    // main loop so the timeline stays in order.
    void queueRecord(const pelora::sandbox::TrackingRecord& record) {
        std::lock_guard lock(mutex_);
        pendingRecords_.push_back(record);
    }
    void queueLog(std::string line) {
        std::lock_guard lock(mutex_);
        pendingLogs_.push_back(std::move(line));
    }
    void drain();

    const pelora::sandbox::TrackingRecord* record(const std::string& slot, int64_t type) const {
        for (const auto& r : records_)
            if (r.slot == slot && r.trackType == type) return &r;
        return nullptr;
    }
    size_t count(const std::string& slot, int64_t type) const {
        size_t n = 0;
        for (const auto& r : records_) n += r.slot == slot && r.trackType == type;
        return n;
    }

    struct Step {
        std::string name;
        bool ok;
        std::string detail;
    };
    void check(const std::string& name, bool ok, const std::string& detail = {}) {
        steps_.push_back({name, ok, detail});
    }
    void screenshot(const std::string& path) { screenshots_.push_back(path); }
    // Prints every check and the screenshots; true when every check passed.
    bool summary() const;

  private:
    bool json_;
    const pelora::platform::Clock* clock_;
    double start_;
    std::mutex mutex_;
    std::vector<pelora::sandbox::TrackingRecord> pendingRecords_;
    std::vector<std::string> pendingLogs_;
    std::vector<pelora::sandbox::TrackingRecord> records_;
    std::vector<Step> steps_;
    std::vector<std::string> screenshots_;
};

// Image views whose downloads the timeline reports once they arrive.
struct WatchedImage {
    std::string name;
    std::weak_ptr<ui::ImageView> view;
    bool reported = false;
};

class DemoRun {
  public:
    DemoRun(Demo& demo, pelora::platform::RunLoop& loop, std::shared_ptr<DemoClock> fastClock)
        : demo_(demo), loop_(loop), fast_(std::move(fastClock)) {}

    // Runs the loop until `done` holds or `realSeconds` of real time passed. The wait is in
    // real time in both modes: the network answers in real time even when the countdown's
    // clock is the demo's own.
    bool pumpUntil(const std::function<bool()>& done, double realSeconds);

    // One pass: due work, then what the timeline and the scripted user look at.
    void step();

    // --fast: one second of the countdown.
    void tick() {
        if (fast_) fast_->advance(1.0);
        step();
    }

    std::vector<WatchedImage> images;
    std::function<void()> onStep;
    // The person closed the window: every wait ends at once.
    std::function<bool()> interrupted;

  private:
    Demo& demo_;
    pelora::platform::RunLoop& loop_;
    std::shared_ptr<DemoClock> fast_;
};

struct DemoOptions {
    std::optional<int64_t> skipAt, tapAt;  // splash: seconds left on the countdown
    std::optional<int64_t> rewardSkipAt;   // rewarded video: second of playback
    std::optional<int64_t> rewardMuteAt;
    bool json = false;
    bool fast = false;
    bool window = false;      // a person plays the host in a real window
    bool serve = false;       // keep the sandbox and its inspector up after the summary
    std::string screenshots;  // directory for a PNG at each step of the timeline
};

// 0 when the options are usable, otherwise the usage error's exit status.
int parseDemoOptions(const std::vector<std::string>& args, DemoOptions& out);

// What every part of the demo shares: the timeline, the loop, the window and its controller.
struct DemoHost {
    Demo& demo;
    DemoRun& run;
    const DemoOptions& options;
    const pelora::platform::Services& services;
    std::shared_ptr<ui::Window> window;
    std::shared_ptr<ui::ViewController> root;
    // A person plays the host in a real window: the scripted user only does what the options
    // ask for, and the demo waits for the person's taps.
    bool person = false;
    std::unique_ptr<pelora::desktop::ViewRenderer> shots;  // --screenshots
    std::string shotsDirectory;

    // A PNG of the whole window, listed on the timeline and in the summary.
    void screenshot(const std::string& name);

    // A tap in the middle of `view`, told on the timeline first.
    void tapCenter(const std::shared_ptr<ui::View>& view, const std::string& what,
                   const std::string& when = {});
};

// --window: the host's window on the screen, for a person to play the host. Sets `closed` when
// the person closes it, and makes every wait end then. Null (with the reason) when no window
// opens.
std::unique_ptr<pelora::desktop::DesktopWindow> openPersonWindow(DemoHost& host, bool& closed,
                                                                 std::string* why);
// --screenshots: the directory, made now, and the renderer. False (with the reason) when the
// directory cannot be made.
bool startScreenshots(DemoHost& host, const std::string& directory, std::string* why);

// The three parts, in the order the demo plays them; each adds its checks to the summary.
void runSplashPart(DemoHost& host);
void runNativePart(DemoHost& host);
void runRewardPart(DemoHost& host);

}  // namespace pelora::cli::demo
