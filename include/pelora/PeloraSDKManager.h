#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "pelora/platform/Export.h"
#include "pelora/platform/Services.h"

class PeloraNetReachable;
struct PeloraUrlQuery;
struct PeloraReqBody;

// The time limit of an ad request when the slot does not set one, in whole seconds.
inline constexpr int64_t kPeloraDefaultTolerateTimeout = 3;

// Error domains of the SDK's own failures (code -1 unless said otherwise). Transport
// failures keep "NSURLErrorDomain" and the platform's code.
inline constexpr const char kPeloraSplashDataErrorDomain[] = "sdk.data.error";  // splash
inline constexpr const char kPeloraDataErrorDomain[] = "sdk.data.err";          // native, reward
// A rewarded video's download failed; the code is the download's.
inline constexpr const char kPeloraDownloadErrorDomain[] = "sdk.data.err.download";

// The host's first point of contact: the application id and the SDK's identity values, plus
// the one process-wide reachability monitor whose status every ad request carries.
class PELORA_EXPORT PeloraSDKManager final : public std::enable_shared_from_this<PeloraSDKManager> {
    struct PrivateTag {
        explicit PrivateTag() = default;
    };

  public:
    explicit PeloraSDKManager(PrivateTag) {}
    PeloraSDKManager(const PeloraSDKManager&) = delete;
    PeloraSDKManager& operator=(const PeloraSDKManager&) = delete;

    // The singleton, created (with its monitor started) on the first call from any thread, and
    // again on the first call after shutdown(). Install the platform services before that
    // call: the monitor is made from them, and a manager created without them has none until
    // the SDK is shut down.
    static std::shared_ptr<PeloraSDKManager> shareManager();

    // Stores the id on the singleton; requests built afterwards carry it. No validation.
    static void setAppID(const std::optional<std::string>& appID);
    // The singleton's id (absent until setAppID); creates the singleton as a side effect.
    static std::optional<std::string> appID();

    static std::string sdkVersion();   // "1.0"
    static int64_t sdkBuildVersion();  // 1
    static std::string sdkName();      // "PeloraSDK"

    // Plain accessors of the instance. The class operations above keep the short names
    // because they are what a host calls.
    std::optional<std::string> instanceAppID() const { return appID_; }
    void setInstanceAppID(const std::optional<std::string>& appID) { appID_ = appID; }
    // The monitor object (not a flag); empty when the platform refused the probe host.
    std::shared_ptr<PeloraNetReachable> reachable() const { return reachable_; }
    void setReachable(std::shared_ptr<PeloraNetReachable> reachable) {
        reachable_ = std::move(reachable);
    }

    // Stops the SDK: every HTTP exchange is cancelled and the sessions' threads joined, the
    // reachability monitor stopped, the cached resource bundle and video cache index dropped,
    // and the singleton (with its application id) released. Call on the main thread, after
    // releasing your ad objects; a completion already queued on the main run loop still runs,
    // with a cancelled error. The SDK starts afresh on the next call, from the services then
    // installed (so a host can shut down, install other options, and go on).
    static void shutdown();

    // Deliberately inert: a manager made this way has no monitor and no id, so the singleton
    // cannot be duplicated in working order. SDK code always goes through shareManager().
    static std::shared_ptr<PeloraSDKManager> init();

  private:
    // The real initialiser, used only by shareManager().
    static std::shared_ptr<PeloraSDKManager> _init();

    std::shared_ptr<PeloraNetReachable> reachable_;
    std::optional<std::string> appID_;
};

// The ad server's address and the SDK's limits, as the installed platform's options give them
// (pelora::platform::SdkOptions: set them when installing the platform).
class PELORA_EXPORT PeloraConstConfig final {
  public:
    PeloraConstConfig() = delete;
    // Scheme plus host, no trailing slash: the options' server origin, else the compiled-in one.
    static std::string baseUrl();
    // baseUrl() + "/api/v1/advert/fetch", concatenated as is.
    static std::string urlfetchAd();

    using Limits = pelora::platform::Limits;
    // The installed options' limits (the defaults before any platform is installed).
    static Limits limits();
};
