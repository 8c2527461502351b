#include "pelora/PeloraSDKManager.h"

#include <mutex>

#include "core/PeloraAppExt.h"
#include "pelora/PeloraNetReachable.h"
#include "pelora/platform/Device.h"
#include "pelora/platform/Log.h"
#include "pelora/platform/Services.h"
#include "support/PeloraThreadCheck.h"

#ifndef PELORA_BASE_URL
#define PELORA_BASE_URL "https://ads.pelora.example"
#endif
#ifndef PELORA_REACHABILITY_HOST
#define PELORA_REACHABILITY_HOST "www.example.com"
#endif

namespace {

// Lives until the process ends: never destroyed, so nothing tears the monitor down while a
// late completion might still read it during exit.
std::shared_ptr<PeloraSDKManager>& sharedInstance() {
    static auto* instance = new std::shared_ptr<PeloraSDKManager>();
    return *instance;
}

std::once_flag& sharedOnce() {
    static std::once_flag once;
    return once;
}

std::mutex& sharedLock() {
    static std::mutex lock;
    return lock;
}

std::mutex& baseUrlLock() {
    static std::mutex lock;
    return lock;
}

PeloraConstConfig::Limits& currentLimits() {
    static PeloraConstConfig::Limits limits;
    return limits;
}

std::optional<std::string>& baseUrlOverride() {
    static std::optional<std::string> origin;
    return origin;
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
    // The once-guard alone would do; the inner lock keeps creation safe even if the guard is
    // ever replaced by a plain check.
    std::call_once(sharedOnce(), [] {
        std::lock_guard lock(sharedLock());
        if (!sharedInstance()) sharedInstance() = _init();
    });
    return sharedInstance();
}

std::shared_ptr<PeloraSDKManager> PeloraSDKManager::_init() {
    auto manager = std::make_shared<PeloraSDKManager>(PrivateTag{});
    manager->reachable_ = PeloraNetReachable::reachabilityWithHostName(PELORA_REACHABILITY_HOST);
    if (manager->reachable_) manager->reachable_->startNotifier();
    return manager;
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
    std::lock_guard lock(baseUrlLock());
    if (baseUrlOverride()) return *baseUrlOverride();
    return PELORA_BASE_URL;
}

std::string PeloraConstConfig::urlfetchAd() {
    return baseUrl() + "/api/v1/advert/fetch";
}

void PeloraConstConfig::setBaseUrlOverride(std::optional<std::string> origin) {
    std::lock_guard lock(baseUrlLock());
    baseUrlOverride() = std::move(origin);
}

void PeloraConstConfig::setLimits(const Limits& limits) {
    std::lock_guard lock(baseUrlLock());
    currentLimits() = limits;
}

PeloraConstConfig::Limits PeloraConstConfig::limits() {
    std::lock_guard lock(baseUrlLock());
    return currentLimits();
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
