// `pelora request`, `pelora fetch` and `pelora escape`: what an ad request looks like on the
// wire, what the server answers to it, and how the transport escapes query text.

#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "Command.h"
#include "core/PeloraNetwork.h"
#include "core/PeloraRequest.h"
#include "pelora/PeloraApiAd.h"
#include "pelora/PeloraSDKManager.h"
#include "pelora/desktop/DesktopPlatform.h"
#include "pelora/platform/Log.h"
#include "pelora/platform/Services.h"
#include "support/PeloraYYModel.h"

namespace pelora::cli {
namespace {

constexpr const char* kRequestUsage =
    "request --kind splash|native|reward --slot ID [--width W] [--height H] [--timeout S] "
    "[--app-id ID]";
constexpr const char* kFetchUsage =
    "fetch --kind splash|native|reward --slot ID [--width W] [--height H] [--timeout S] "
    "[--app-id ID] [--base-url URL] [--ca-file PEM] [--max-answer-bytes N]";

struct SlotRequest {
    std::string kind;
    std::string slotId;
    int64_t width = 0;
    int64_t height = 0;
    int64_t timeout = 3;  // whole seconds, as every slot carries it
    std::optional<std::string> appId;
    std::optional<std::string> baseUrl;
    std::string caFile;          // extra trusted certificates for an https base URL
    int64_t maxAnswerBytes = 0;  // 0: the SDK's own limit
};

// Reads the options shared by `request` and `fetch`; an empty result means usage was printed.
std::optional<SlotRequest> parseSlotRequest(const std::string& command,
                                            const std::vector<std::string>& args, bool allowBaseUrl,
                                            int& status) {
    std::vector<std::string> names = {"kind", "slot", "width", "height", "timeout", "app-id"};
    if (allowBaseUrl) {
        names.push_back("base-url");
        names.push_back("ca-file");
        names.push_back("max-answer-bytes");
    }
    ParsedArgs parsed = parseArgs(args, names);
    auto fail = [&](const std::string& message) {
        status = usageError(command, message);
        return std::nullopt;
    };
    if (!parsed.error.empty()) return fail(parsed.error);
    if (!parsed.positional.empty()) return fail("unexpected argument " + parsed.positional[0]);
    if (!parsed.has("kind")) return fail("--kind is required");
    if (!parsed.has("slot")) return fail("--slot is required");

    SlotRequest req;
    req.kind = parsed.options["kind"];
    if (req.kind != "splash" && req.kind != "native" && req.kind != "reward") {
        return fail("--kind must be splash, native or reward");
    }
    req.slotId = parsed.options["slot"];
    if ((parsed.has("width") || parsed.has("height")) && req.kind != "native") {
        return fail("--width and --height apply to --kind native only");
    }
    if (parsed.has("width") && !parseInt64(parsed.options["width"], req.width)) {
        return fail("--width must be an integer");
    }
    if (parsed.has("height") && !parseInt64(parsed.options["height"], req.height)) {
        return fail("--height must be an integer");
    }
    if (parsed.has("timeout") &&
        (!parseInt64(parsed.options["timeout"], req.timeout) || req.timeout <= 0)) {
        return fail("--timeout must be a whole number of seconds above 0");
    }
    if (parsed.has("app-id")) req.appId = parsed.options["app-id"];
    if (parsed.has("base-url")) {
        req.baseUrl = parsed.options["base-url"];
        if (!platform::isFetchableURL(*req.baseUrl)) {
            return fail("--base-url must be an http or https URL");
        }
        // The origin is concatenated with the fetch path as is.
        while (!req.baseUrl->empty() && req.baseUrl->back() == '/') req.baseUrl->pop_back();
    }
    if (parsed.has("ca-file")) {
        req.caFile = parsed.options["ca-file"];
        std::error_code ec;
        if (!std::filesystem::is_regular_file(req.caFile, ec)) {
            return fail("--ca-file must name a readable PEM file");
        }
    }
    if (parsed.has("max-answer-bytes") &&
        (!parseInt64(parsed.options["max-answer-bytes"], req.maxAnswerBytes) ||
         req.maxAnswerBytes <= 0)) {
        return fail("--max-answer-bytes must be a whole number above 0");
    }
    return req;
}

struct BuiltRequest {
    std::shared_ptr<PeloraUrlQuery> query;
    std::shared_ptr<PeloraReqBody> body;
    PeloraRequestModifier modifier;
};

// Fills the slot exactly as the loader of that kind does before it sends.
BuiltRequest buildRequest(const SlotRequest& req) {
    if (req.appId) PeloraSDKManager::setAppID(req.appId);
    BuiltRequest built;
    built.query = PeloraUrlQuery::init();
    built.body = PeloraReqBody::init();
    auto& slot = *built.body->slot;
    slot.slotId = req.slotId;
    const auto& device = platform::services().device;
    auto bounds = device->screenBounds();
    double scale = device->screenScale();
    if (req.kind == "splash") {
        slot.adType = 0;
        slot.position = 5;
        slot.width = static_cast<int64_t>(bounds.width() * scale);
        slot.height = static_cast<int64_t>(bounds.height() * scale);
    } else if (req.kind == "native") {
        slot.adType = 5;
        slot.position = 3;
        slot.width = req.width;
        slot.height = req.height;
    } else {
        slot.adType = 4;
        slot.position = 5;
        slot.width = static_cast<int64_t>(bounds.width() * scale);
        slot.height = static_cast<int64_t>(bounds.height() * scale);
    }
    double timeout = static_cast<double>(req.timeout);
    built.modifier = [timeout](platform::HttpRequest& r) { r.timeoutInterval = timeout; };
    return built;
}

void prepare(const SlotRequest& req) {
    // stdout carries the JSON answer; the transport's diagnostic lines are not wanted there
    // or on the terminal.
    platform::setMinimumLogLevel(platform::LogLevel::Warning);
    desktop::DesktopOptions options;
    options.caBundlePath = req.caFile;
    if (req.maxAnswerBytes > 0)
        options.sdk.limits.answerBytes = static_cast<uint64_t>(req.maxAnswerBytes);
    if (req.baseUrl) options.sdk.serverOrigin = req.baseUrl;
    desktop::installDesktopPlatform(options);
}

int runRequest(const std::vector<std::string>& args) {
    int status = 0;
    auto req = parseSlotRequest("request", args, false, status);
    if (!req) return status;
    prepare(*req);
    BuiltRequest built = buildRequest(*req);
    platform::HttpRequest http = PeloraNetwork::adFetchRequest(
        PeloraConstConfig::urlfetchAd(), built.query.get(), built.body.get(), built.modifier);

    nlohmann::json headers = nlohmann::json::object();
    for (const auto& [name, value] : http.headers) headers[name] = value;
    nlohmann::json body = nlohmann::json::parse(http.body, nullptr, false);
    nlohmann::json out = {
        {"method", http.method}, {"url", http.url}, {"headers", headers}, {"body", body}};
    std::cout << out.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
    return 0;
}

int runFetch(const std::vector<std::string>& args) {
    int status = 0;
    auto req = parseSlotRequest("fetch", args, true, status);
    if (!req) return status;
    prepare(*req);
    BuiltRequest built = buildRequest(*req);

    bool done = false;
    int64_t code = 0;
    std::optional<std::string> message;
    std::shared_ptr<PeloraRespObject> payload;
    PeloraNetwork::post(
        PeloraConstConfig::urlfetchAd(), built.query, built.body, built.modifier,
        [&](int64_t c, std::optional<std::string> m, std::shared_ptr<PeloraRespObject> p) {
            code = c;
            message = std::move(m);
            payload = std::move(p);
            done = true;
        });
    // The platform gives up at the slot's time-out; the margin only covers scheduling.
    auto loop = platform::services().mainRunLoop;
    double deadline = loop->clock().monotonicSeconds() + static_cast<double>(req->timeout) + 5.0;
    if (!loop->runUntil([&] { return done; }, deadline)) {
        std::cerr << "pelora: no answer within " << req->timeout + 5 << " seconds\n";
        return 1;
    }
    nlohmann::json out = {
        {"code", code},
        {"message", message ? nlohmann::json(*message) : nlohmann::json()},
        {"payload", payload ? plyy_modelToJSONObject(*payload) : nlohmann::json()}};
    std::cout << out.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
    return code == 0 ? 0 : 1;
}

int runEscape(const std::vector<std::string>& args) {
    if (args.size() != 1) return usageError("escape", "expected exactly one TEXT");
    std::cout << nlohmann::json(pl_AFPercentEscapedStringFromString(args[0])).dump() << "\n";
    return 0;
}

const bool registered = [] {
    registerCommand({"request", kRequestUsage,
                     "print the ad request a slot of that kind would send (nothing is sent)",
                     runRequest});
    registerCommand({"fetch", kFetchUsage,
                     "send that ad request and print the result triple (code, message, payload)",
                     runFetch});
    registerCommand({"escape", "escape TEXT",
                     "percent-escape TEXT as the transport does for query keys and values",
                     runEscape});
    return true;
}();

}  // namespace
}  // namespace pelora::cli
