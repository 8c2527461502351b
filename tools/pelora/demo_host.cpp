// What the parts of `pelora demo` share: printing the timeline and the summary, turning the
// loop, the options, the window, the taps and the screenshots.

#include <poll.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <regex>

#include "Command.h"
#include "DemoHost.h"
#include "TrackTypeNames.h"

namespace pelora::cli::demo {

using pelora::tools::trackTypeName;

bool macrosLeft(const std::string& text, int64_t trackType) {
    static const std::regex token("__[A-Z0-9_]+__");
    for (auto it = std::sregex_iterator(text.begin(), text.end(), token);
         it != std::sregex_iterator(); ++it) {
        if (it->str() == "__CLICK_ID__") continue;
        if (it->str() == "__VIDEO_END_TIME__" && trackType != 35) continue;
        return true;
    }
    return false;
}

// ---- printing --------------------------------------------------------------------------------

void Demo::note(const std::string& source, const std::string& event, const std::string& text,
                json details) {
    double t = clock_->monotonicSeconds() - start_;
    if (json_) {
        details["t"] = std::round(t * 1000) / 1000;
        details["source"] = source;
        details["event"] = event;
        std::cout << details.dump() << "\n";
    } else {
        char stamp[32];
        std::snprintf(stamp, sizeof stamp, "[%6.3fs]", t);
        std::cout << stamp << " " << source
                  << std::string(8 - std::min<size_t>(7, source.size()), ' ') << event
                  << (text.empty() ? "" : "  " + text) << "\n";
    }
    std::cout.flush();
}

void Demo::drain() {
    std::vector<pelora::sandbox::TrackingRecord> records;
    std::vector<std::string> logs;
    {
        std::lock_guard lock(mutex_);
        records.swap(pendingRecords_);
        logs.swap(pendingLogs_);
    }
    for (const auto& line : logs) note("sdk", "log: " + line, "", {{"line", line}});
    for (const auto& r : records) {
        std::string text = r.method + " " + r.url;
        if (!r.body.empty()) text += "  body " + r.body;
        note("server",
             "tracking " + trackTypeName(r.trackType) + " (" + r.slot + "/" + r.adId + ")", text,
             {{"method", r.method},
              {"url", r.url},
              {"body", r.body},
              {"contentType", r.contentType},
              {"slot", r.slot},
              {"adId", r.adId},
              {"trackType", r.trackType}});
        records_.push_back(r);
    }
}

bool Demo::summary() const {
    bool all = true;
    for (const auto& s : steps_) all = all && s.ok;
    if (json_) {
        json list = json::array();
        for (const auto& s : steps_)
            list.push_back({{"step", s.name}, {"ok", s.ok}, {"detail", s.detail}});
        std::cout << json{{"summary", list}, {"screenshots", screenshots_}, {"ok", all}}.dump()
                  << "\n";
    } else {
        std::cout << "\nSummary\n";
        for (const auto& s : steps_)
            std::cout << "  " << (s.ok ? "[ok]   " : "[FAIL] ") << s.name
                      << (s.detail.empty() ? "" : "  (" + s.detail + ")") << "\n";
        if (!screenshots_.empty()) {
            std::cout << "\nScreenshots\n";
            for (const auto& path : screenshots_) std::cout << "  " << path << "\n";
        }
        std::cout << (all ? "\nEvery expected step happened.\n"
                          : "\nSome expected steps did not happen.\n");
    }
    std::cout.flush();
    return all;
}

// ---- the loop --------------------------------------------------------------------------------

bool DemoRun::pumpUntil(const std::function<bool()>& done, double realSeconds) {
    auto deadline = std::chrono::steady_clock::now() +
                    std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                        std::chrono::duration<double>(realSeconds));
    for (;;) {
        step();
        if (done()) return true;
        if (interrupted && interrupted()) return false;
        auto now = std::chrono::steady_clock::now();
        if (now >= deadline) return false;
        double wait = std::min(0.05, std::chrono::duration<double>(deadline - now).count());
        if (!fast_) {
            double timer = loop_.nextTimerDelay();
            if (timer >= 0) wait = std::min(wait, timer);
        }
        pollfd p{loop_.wakeFd(), POLLIN, 0};
        ::poll(&p, 1, static_cast<int>(wait * 1000) + 1);
    }
}

void DemoRun::step() {
    loop_.pump();
    demo_.drain();
    for (auto& w : images) {
        auto view = w.view.lock();
        if (!w.reported && view && view->image()) {
            w.reported = true;
            demo_.note("image", "downloaded " + w.name,
                       std::to_string(view->image()->pixelWidth) + "x" +
                           std::to_string(view->image()->pixelHeight) + " px",
                       {{"image", w.name},
                        {"width", view->image()->pixelWidth},
                        {"height", view->image()->pixelHeight}});
        }
    }
    if (onStep) onStep();
}

// ---- options ---------------------------------------------------------------------------------

int parseDemoOptions(const std::vector<std::string>& args, DemoOptions& out) {
    auto parsed =
        parseArgs(args, {"skip-at", "tap-at", "reward-skip-at", "reward-mute-at", "screenshots"},
                  {"json", "fast", "window", "serve"});
    if (!parsed.error.empty()) return usageError("demo", parsed.error);
    if (!parsed.positional.empty())
        return usageError("demo", "unexpected argument " + parsed.positional[0]);
    struct Range {
        const char* name;
        std::optional<int64_t>* target;
        int64_t low, high;
        const char* meaning;
    };
    const Range ranges[] = {
        {"skip-at", &out.skipAt, 1, 5, "a second from 5 down to 1"},
        {"tap-at", &out.tapAt, 1, 5, "a second from 5 down to 1"},
        {"reward-skip-at", &out.rewardSkipAt, kRewardSkipSeconds, 10,
         "a second of the video from 5 (when skipping opens) to 10"},
        {"reward-mute-at", &out.rewardMuteAt, 1, 9, "a second of the video from 1 to 9"},
    };
    for (const auto& r : ranges) {
        if (!parsed.has(r.name)) continue;
        int64_t v = 0;
        if (!parseInt64(parsed.options[r.name], v) || v < r.low || v > r.high)
            return usageError("demo", std::string("--") + r.name + " takes " + r.meaning);
        *r.target = v;
    }
    if (out.skipAt && out.tapAt) return usageError("demo", "give --skip-at or --tap-at, not both");
    out.json = parsed.hasFlag("json");
    out.fast = parsed.hasFlag("fast");
    out.window = parsed.hasFlag("window");
    out.serve = parsed.hasFlag("serve");
    if (parsed.has("screenshots")) out.screenshots = parsed.options["screenshots"];
    if (out.window && out.fast)
        return usageError("demo",
                          "--fast moves the clock for a scripted user; a person in a "
                          "--window watches real time");
    return 0;
}

// ---- the host's window -----------------------------------------------------------------------

void DemoHost::screenshot(const std::string& name) {
    if (!shots) return;
    const std::string path = shotsDirectory + "/" + name + ".png";
    std::string error;
    if (shots->writePNG(*window, path, &error)) {
        demo.note("host", "screenshot " + name, path, {{"path", path}});
        demo.screenshot(path);
    } else {
        demo.note("host", "screenshot " + name + " failed", error);
    }
}

void DemoHost::tapCenter(const std::shared_ptr<ui::View>& view, const std::string& what,
                         const std::string& when) {
    auto b = view->bounds();
    auto point = view->convertPointToView({b.width() / 2, b.height() / 2}, nullptr);
    demo.note("user", what,
              (when.empty() ? "" : when + " ") + "at (" + std::to_string(int(point.x)) + ", " +
                  std::to_string(int(point.y)) + ")");
    window->sendTap(point);
}

std::unique_ptr<pelora::desktop::DesktopWindow> openPersonWindow(DemoHost& host, bool& closed,
                                                                 std::string* why) {
    const double scale = host.services.device->screenScale();
    pelora::desktop::DesktopWindowOptions windowOptions;
    windowOptions.title = "Pelora demo";
    windowOptions.renderScale = scale;
    auto desktopWindow = pelora::desktop::DesktopWindow::open(
        host.window, *host.services.mainRunLoop, windowOptions, why);
    if (!desktopWindow) return nullptr;
    desktopWindow->setQuitHandler([&host, &closed] {
        closed = true;
        host.demo.note("user", "closes the window", "");
    });
    host.run.interrupted = [&closed] { return closed; };
    host.person = true;
    host.demo.note("host", "window open",
                   std::to_string(int(host.window->bounds().width())) + "x" +
                       std::to_string(int(host.window->bounds().height())) +
                       " points, one screen pixel per point; drawn at scale " +
                       std::to_string(int(scale)),
                   {{"windowId", desktopWindow->nativeWindowId()}});
    return desktopWindow;
}

bool startScreenshots(DemoHost& host, const std::string& directory, std::string* why) {
    std::error_code ec;
    std::filesystem::create_directories(directory, ec);
    if (ec) {
        if (why) *why = ec.message();
        return false;
    }
    host.shots =
        std::make_unique<pelora::desktop::ViewRenderer>(host.services.device->screenScale());
    host.shotsDirectory = directory;
    return true;
}

}  // namespace pelora::cli::demo
