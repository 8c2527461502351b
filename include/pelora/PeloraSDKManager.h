#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "pelora/platform/Export.h"

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
class PELORA_EXPORT PeloraSDKManager : public std::enable_shared_from_this<PeloraSDKManager> {
    struct PrivateTag {};

  public:
    explicit PeloraSDKManager(PrivateTag) {}
    PeloraSDKManager(const PeloraSDKManager&) = delete;
    PeloraSDKManager& operator=(const PeloraSDKManager&) = delete;

    // The singleton, created (with its monitor started) on the first call from any thread.
    // Install the platform services before that first call: the monitor is made from them,
    // and a manager created without them has no monitor for the life of the process.
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

    // Deliberately inert: a manager made this way has no monitor and no id, so the singleton
    // cannot be duplicated in working order. SDK code always goes through shareManager().
    static std::shared_ptr<PeloraSDKManager> init();

  private:
    // The real initialiser, used only by shareManager().
    static std::shared_ptr<PeloraSDKManager> _init();

    std::shared_ptr<PeloraNetReachable> reachable_;
    std::optional<std::string> appID_;
};

// The ad server's address. The origin is compiled in; tools and tests may point the SDK at
// a local server with setBaseUrlOverride().
class PELORA_EXPORT PeloraConstConfig {
  public:
    PeloraConstConfig() = delete;
    // Scheme plus host, no trailing slash.
    static std::string baseUrl();
    // baseUrl() + "/api/v1/advert/fetch", concatenated as is.
    static std::string urlfetchAd();
    // An empty optional restores the compiled-in origin. Set it before loading ads; it is
    // not meant to change while requests are being built on other threads.
    static void setBaseUrlOverride(std::optional<std::string> origin);

    // Where the SDK's resource bundle ("PeloraSDKBundle.bundle": interface files, button
    // artwork) is, as a path to the bundle directory itself. Without one the SDK looks beside
    // the host's executable (its main bundle), then where the SDK was installed
    // (<prefix>/share/pelora). A missing bundle is logged once; the views that need it are
    // then not made (initWithSlotID returns null).
    static void setResourceBundlePath(std::optional<std::string> path);

    // The most one exchange may bring in. A body past its bound is cut off as it arrives and
    // the exchange fails with the transport's "data length exceeds maximum" error (-1103), so
    // a broken or hostile server cannot make one ad load cost more than a small multiple of
    // these in memory (answers and images are held in memory, videos go to a file).
    struct Limits {
        uint64_t answerBytes = 1024 * 1024;          // an ad answer, a tracking reply
        uint64_t imageBytes = 16 * 1024 * 1024;      // one image
        uint64_t videoBytes = 256ull * 1024 * 1024;  // one video file, on disk
    };
    // Set before loading ads: the SDK's two HTTP sessions take the limits when they are
    // made, on the first exchange of each, and keep them.
    static void setLimits(const Limits& limits);
    static Limits limits();
};

// Base of the loader objects. init() fills defaults through configInit(); the other hooks
// are empty and exist to be overridden. Destruction writes "dealloc: <class name>" to the
// log, which is how leaks of loaders show up in the field.
class PELORA_EXPORT PeloraConfig {
  public:
    virtual ~PeloraConfig();
    PeloraConfig(const PeloraConfig&) = delete;
    PeloraConfig& operator=(const PeloraConfig&) = delete;

    static std::shared_ptr<PeloraConfig> init();
    // Construct a subclass and run its configInit(), the pattern every loader follows.
    template <class T, class... Args>
    static std::shared_ptr<T> initAs(Args&&... args) {
        auto object = std::make_shared<T>(std::forward<Args>(args)...);
        object->configInit();
        return object;
    }

    virtual void configInit() {}
    virtual void requestData() {}
    virtual void requestQuery(std::shared_ptr<PeloraUrlQuery> query,
                              std::shared_ptr<PeloraReqBody> body) {
        (void)query;
        (void)body;
    }

    const std::string& className() const { return className_; }

  protected:
    // Subclasses pass their own class name: the destructor of the base cannot ask for it.
    explicit PeloraConfig(std::string className = "PeloraConfig")
        : className_(std::move(className)) {}

  private:
    std::string className_;
};
