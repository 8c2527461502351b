// `pelora load`: runs the SDK's real loader of one ad kind against an ad server and prints
// every delegate callback it receives as one JSON object per line.

#include <atomic>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "Command.h"
#include "pelora/PeloraDataFlowAdManager.h"
#include "pelora/PeloraRewardVideoAdManager.h"
#include "pelora/PeloraSDKManager.h"
#include "pelora/PeloraSplashAdView.h"
#include "pelora/desktop/DesktopPlatform.h"
#include "pelora/platform/Services.h"
#include "pelora/testing/CountingHttpSession.h"

namespace {

using nlohmann::json;
using pelora::platform::Error;

// Exit status of the command: 0 loaded, 1 a failure callback (or no outcome at all).
struct Outcome {
    bool done = false;
    int status = 1;
};

void emit(const json& line) {
    std::cout << line.dump() << std::endl;
}

json errorLine(const std::string& callback, const Error& error) {
    return json{{"callback", callback}, {"domain", error.domain}, {"code", error.code}};
}

class SplashPrinter : public PeloraSplashAdViewDelegate {
  public:
    explicit SplashPrinter(Outcome& outcome) : outcome_(outcome) {}

    void splashAdDidLoad(std::shared_ptr<PeloraSplashAdView> view) override {
        // The ad is bound while rendering, right after this callback returns; name it once
        // the rendering (and with it a possible show) is over.
        pendingLoad_ = true;
        std::weak_ptr<PeloraSplashAdView> weak = view;
        pelora::platform::services().mainRunLoop->post([this, weak] {
            json line{{"callback", "splashAdDidLoad"}, {"adId", nullptr}};
            if (auto v = weak.lock()) {
                if (v->adData() && v->adData()->adId) line["adId"] = *v->adData()->adId;
            }
            emit(line);
            for (const auto& held : held_) emit(held);
            held_.clear();
            pendingLoad_ = false;
            outcome_.status = 0;
            outcome_.done = true;
        });
    }
    void splashAdDidFailWithError(std::shared_ptr<PeloraSplashAdView>, const Error& e) override {
        print(errorLine("splashAdDidFailWithError", e));
        outcome_.status = 1;
        outcome_.done = true;
    }
    void splashAdDidShow(std::shared_ptr<PeloraSplashAdView>) override {
        print({{"callback", "splashAdDidShow"}});
    }
    void splashAdDidClick(std::shared_ptr<PeloraSplashAdView>) override {
        print({{"callback", "splashAdDidClick"}});
    }
    void splashAdDidClickSkip(std::shared_ptr<PeloraSplashAdView>) override {
        print({{"callback", "splashAdDidClickSkip"}});
    }
    void splashAdTimeOver(std::shared_ptr<PeloraSplashAdView>) override {
        print({{"callback", "splashAdTimeOver"}});
    }

  private:
    void print(const json& line) {
        if (pendingLoad_) {
            held_.push_back(line);
        } else {
            emit(line);
        }
    }
    Outcome& outcome_;
    bool pendingLoad_ = false;
    std::vector<json> held_;
};

class NativePrinter : public PeloraDataFlowAdManagerDelegate {
  public:
    explicit NativePrinter(Outcome& outcome) : outcome_(outcome) {}
    void dataFlowAdManagerDidSuccessLoad(
        std::shared_ptr<PeloraDataFlowAdManager>,
        std::vector<std::shared_ptr<PeloraNativeAd>> ads) override {
        json ids = json::array();
        for (const auto& ad : ads) {
            auto data = ad ? ad->adData() : nullptr;
            ids.push_back(data && data->adId ? json(*data->adId) : json(nullptr));
        }
        emit({{"callback", "dataFlowAdManagerDidSuccessLoad"}, {"ads", ids}});
        outcome_.status = 0;
        outcome_.done = true;
    }
    void dataFlowAdManagerDidFailWithError(std::shared_ptr<PeloraDataFlowAdManager>,
                                           const Error& error) override {
        emit(errorLine("dataFlowAdManagerDidFailWithError", error));
        outcome_.status = 1;
        outcome_.done = true;
    }

  private:
    Outcome& outcome_;
};

// A rewarded video load ends when the video is ready (downloaded, found in the cache, or
// to be streamed) or when a failure comes; the line for the ready video names the file.
class RewardPrinter : public PeloraRewardVideoAdManagerDelegate {
  public:
    explicit RewardPrinter(Outcome& outcome) : outcome_(outcome) {}
    void rewardVideoAdManagerDidSuccessLoad(
        std::shared_ptr<PeloraRewardVideoAdManager> manager) override {
        json line{{"callback", "rewardVideoAdManagerDidSuccessLoad"}, {"adId", nullptr}};
        auto ad = manager->toShowAd() ? manager->toShowAd()->adData() : nullptr;
        if (ad && ad->adId) line["adId"] = *ad->adId;
        auto video = manager->toShowVideo();
        line["videoUrl"] = video && video->videoUrl ? json(*video->videoUrl) : json(nullptr);
        line["prefetch"] = video && video->prefetch;
        emit(line);
    }
    void rewardVideoAdManagerVideoDidLoad(
        std::shared_ptr<PeloraRewardVideoAdManager> manager) override {
        auto path = manager->cachedVideoPath();
        emit({{"callback", "rewardVideoAdManagerVideoDidLoad"},
              {"path", path ? json(*path) : json(nullptr)}});
        outcome_.status = 0;
        outcome_.done = true;
    }
    void rewardVideoAdManagerDidFailWithError(std::shared_ptr<PeloraRewardVideoAdManager>,
                                              std::optional<Error> error) override {
        if (error) {
            emit(errorLine("rewardVideoAdManagerDidFailWithError", *error));
        } else {
            emit({{"callback", "rewardVideoAdManagerDidFailWithError"},
                  {"domain", nullptr},
                  {"code", nullptr}});
        }
        outcome_.status = 1;
        outcome_.done = true;
    }

  private:
    Outcome& outcome_;
};

struct LoadOptions {
    std::string kind, slot, baseUrl, caFile;
    double timeout = 3;
    int64_t width = 0, height = 0;
};

// 0 when the arguments are usable, otherwise the usage error's exit status.
int parseLoadOptions(const std::vector<std::string>& args, LoadOptions& out) {
    using namespace pelora::cli;
    auto parsed =
        parseArgs(args, {"kind", "slot", "base-url", "timeout", "width", "height", "ca-file"});
    if (!parsed.error.empty()) return usageError("load", parsed.error);
    if (!parsed.positional.empty())
        return usageError("load", "unexpected argument " + parsed.positional[0]);
    out.kind = parsed.has("kind") ? parsed.options["kind"] : "";
    if (out.kind != "splash" && out.kind != "native" && out.kind != "reward")
        return usageError("load", "--kind must be splash, native or reward");
    if (!parsed.has("slot")) return usageError("load", "--slot is required");
    if (!parsed.has("base-url")) return usageError("load", "--base-url is required");
    out.slot = parsed.options["slot"];
    out.baseUrl = parsed.options["base-url"];
    if (parsed.has("timeout") &&
        (!parseDouble(parsed.options["timeout"], out.timeout) || out.timeout < 0))
        return usageError("load", "--timeout needs a number of seconds");
    if (parsed.has("width") && !parseInt64(parsed.options["width"], out.width))
        return usageError("load", "--width needs an integer");
    if (parsed.has("height") && !parseInt64(parsed.options["height"], out.height))
        return usageError("load", "--height needs an integer");
    std::error_code ec;
    if (parsed.has("ca-file")) {
        out.caFile = parsed.options["ca-file"];
        if (!std::filesystem::is_regular_file(out.caFile, ec))
            return usageError("load", "--ca-file must name a readable PEM file");
    }
    return 0;
}

// The loader of one kind with its printing delegate; both live until the command ends.
struct Loader {
    std::shared_ptr<PeloraSplashAdView> splash;
    std::shared_ptr<PeloraDataFlowAdManager> native;
    std::shared_ptr<PeloraRewardVideoAdManager> reward;
    std::shared_ptr<void> printer;
};

// Starts the load; false when it could not start (the reason is printed).
bool startLoad(const LoadOptions& o, const pelora::platform::Services& services, Outcome& outcome,
               Loader& loader) {
    const auto seconds = static_cast<int64_t>(std::trunc(o.timeout));
    if (o.kind == "splash") {
        loader.splash = PeloraSplashAdView::initWithSlotID(o.slot, services.device->screenBounds());
        if (!loader.splash) {
            std::cerr << "pelora: the splash view's interface file was not found (is "
                         "PeloraSDKBundle.bundle beside the program?)\n";
            return false;
        }
        auto printer = std::make_shared<SplashPrinter>(outcome);
        loader.printer = printer;
        loader.splash->setDelegate(printer);
        loader.splash->setTolerateTimeout(o.timeout);
        loader.splash->loadAdData();
    } else if (o.kind == "reward") {
        auto slot = std::make_shared<PeloraRewardVideoSlot>();
        slot->slotId = o.slot;
        slot->tolerateTimeout = seconds;
        loader.reward = PeloraRewardVideoAdManager::initWithSlot(slot);
        auto printer = std::make_shared<RewardPrinter>(outcome);
        loader.printer = printer;
        loader.reward->setDelegate(printer);
        loader.reward->loadAdData();
    } else {
        auto slot = std::make_shared<PeloraDataFlowSlot>();
        slot->slotId = o.slot;
        slot->tolerateTimeout = seconds;
        slot->slotWidth = o.width;
        slot->slotHeight = o.height;
        loader.native = PeloraDataFlowAdManager::initWithSlot(slot);
        auto printer = std::make_shared<NativePrinter>(outcome);
        loader.printer = printer;
        loader.native->setDelegate(printer);
        loader.native->loadAdData();
    }
    return true;
}

int runLoad(const std::vector<std::string>& args) {
    LoadOptions o;
    if (int status = parseLoadOptions(args, o)) return status;

    pelora::desktop::DesktopOptions options;
    options.caBundlePath = o.caFile;
    options.sdk.serverOrigin = o.baseUrl;
    auto services = pelora::desktop::makeDesktopServices(options);
    auto requests = std::make_shared<pelora::testing::CountingHttpSessionFactory>(
        services.http, services.mainRunLoop);
    services.http = requests;
    pelora::platform::installServices(services);

    Outcome outcome;
    Loader loader;
    if (!startLoad(o, services, outcome, loader)) return 1;

    // The request's own time-out ends every load; the margin covers a platform that rounds
    // a time-out of 0 up to its default, and a video download.
    auto& loop = *services.mainRunLoop;
    double limit = std::max(o.timeout, 1.0) + 65.0;
    loop.runUntil([&] { return outcome.done; }, loop.clock().monotonicSeconds() + limit);
    if (!outcome.done) {
        std::cerr << "pelora: the load reported nothing in time\n";
        return 1;
    }
    // Reports are fire-and-forget for the SDK; here they finish (or time out) before the end.
    loop.runUntil([&] { return requests->inFlight() == 0; },
                  loop.clock().monotonicSeconds() + 65.0);
    // Release a loaded splash, as a host does to end its countdown: the command ends with the
    // load's outcome.
    if (loader.splash) {
        loader.splash->removeFromSuperview();
        loader.splash.reset();
    }
    return outcome.status;
}

const bool registered = pelora::cli::registerCommand({
    "load",
    "load --kind splash|native|reward --slot ID --base-url URL [--timeout S] [--width W] [--height "
    "H] "
    "[--ca-file PEM]",
    "run the SDK's splash, native or rewarded video loader against a server and print each "
    "callback as JSON (a rewarded video is downloaded too)",
    runLoad,
});

}  // namespace
