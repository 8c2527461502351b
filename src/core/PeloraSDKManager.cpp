#include "pelora/PeloraSDKManager.h"

#include <mutex>

#include "core/PeloraAppExt.h"
#include "core/PeloraConfig.h"
#include "core/PeloraNetwork.h"
#include "pelora/PeloraNetReachable.h"
#include "pelora/platform/Device.h"
#include "pelora/platform/Log.h"
#include "pelora/platform/Services.h"
#include "reward/PeloraAdCache.h"
#include "support/PeloraResourceBundle.h"
#include "support/PeloraThreadCheck.h"

#ifndef PELORA_BASE_URL
#define PELORA_BASE_URL "https://ads.pelora.example"
#endif
#ifndef PELORA_REACHABILITY_HOST
#define PELORA_REACHABILITY_HOST "www.example.com"
#endif

namespace {

// Lives until shutdown() releases it. The slot itself is never destroyed, so no exit-time
// destructor tears the monitor down while a late completion might still read it.
std::shared_ptr<PeloraSDKManager>& sharedInstance() {
    static auto* instance = new std::shared_ptr<PeloraSDKManager>();
    return *instance;
}

std::mutex& sharedLock() {
    static std::mutex lock;
    return lock;
}

std::optional<std::string> infoValue(const char* key) {
    if (!pelora::platform::hasServices()) return std::nullopt;
    const auto& device = pelora::platform::services().device;
    if (!device) return std::nullopt;
    return device->infoValue(key);
}

}  // namespace

// ---- PeloraSDKManager ------------------------------------------------------------------

std::shared_ptr<PeloraSDKManager> PeloraSDKManager::shareManager() {
    // Made again after a shutdown, so a plain check under the lock rather than a once-guard.
    std::lock_guard lock(sharedLock());
    if (!sharedInstance()) sharedInstance() = _init();
    return sharedInstance();
}

std::shared_ptr<PeloraSDKManager> PeloraSDKManager::_init() {
    auto manager = std::make_shared<PeloraSDKManager>(PrivateTag{});
    manager->reachable_ = PeloraNetReachable::reachabilityWithHostName(PELORA_REACHABILITY_HOST);
    if (manager->reachable_) manager->reachable_->startNotifier();
    return manager;
}

void PeloraSDKManager::shutdown() {
    PELORA_DCHECK_ON_MAIN_THREAD("PeloraSDKManager::shutdown");
    // Cancels what is in flight and joins the sessions' threads.
    PeloraNetwork::shutdownSessions();
    PeloraResetApiBundleCache();
    plFileCaches().clear();
    std::shared_ptr<PeloraSDKManager> manager;
    {
        std::lock_guard lock(sharedLock());
        manager = std::move(sharedInstance());
        sharedInstance().reset();
    }
    if (manager && manager->reachable_) manager->reachable_->stopNotifier();
    pelora::platform::log(pelora::platform::LogLevel::Info, "sdk: shut down");
}

std::shared_ptr<PeloraSDKManager> PeloraSDKManager::init() {
    return std::make_shared<PeloraSDKManager>(PrivateTag{});
}

void PeloraSDKManager::setAppID(const std::optional<std::string>& appID) {
    PELORA_DCHECK_ON_MAIN_THREAD("PeloraSDKManager::setAppID");
    shareManager()->setInstanceAppID(appID);
}

std::optional<std::string> PeloraSDKManager::appID() {
    return shareManager()->instanceAppID();
}

std::string PeloraSDKManager::sdkVersion() {
    return "1.0";
}

int64_t PeloraSDKManager::sdkBuildVersion() {
    return 1;
}

std::string PeloraSDKManager::sdkName() {
    return "PeloraSDK";
}

// ---- PeloraConstConfig -------------------------------------------------------------------

std::string PeloraConstConfig::baseUrl() {
    if (pelora::platform::hasServices()) {
        const auto& origin = pelora::platform::services().options.serverOrigin;
        if (origin) return *origin;
    }
    return PELORA_BASE_URL;
}

std::string PeloraConstConfig::urlfetchAd() {
    return baseUrl() + "/api/v1/advert/fetch";
}

PeloraConstConfig::Limits PeloraConstConfig::limits() {
    if (!pelora::platform::hasServices()) return {};
    return pelora::platform::services().options.limits;
}

// ---- PeloraAppExt --------------------------------------------------------------------------

std::optional<std::string> PeloraAppExt::appBundleName() {
    return infoValue(pelora::platform::kCFBundleName);
}

std::optional<std::string> PeloraAppExt::appBundleID() {
    return infoValue(pelora::platform::kCFBundleIdentifier);
}

std::optional<std::string> PeloraAppExt::appVersion() {
    return infoValue(pelora::platform::kCFBundleShortVersionString);
}

std::optional<std::string> PeloraAppExt::appBuildVersion() {
    return infoValue(pelora::platform::kCFBundleVersion);
}

// ---- PeloraConfig --------------------------------------------------------------------------

std::shared_ptr<PeloraConfig> PeloraConfig::init() {
    std::shared_ptr<PeloraConfig> config(new PeloraConfig());
    config->configInit();
    return config;
}

PeloraConfig::~PeloraConfig() {
    pelora::platform::log(pelora::platform::LogLevel::Debug, "dealloc: " + className_);
}
