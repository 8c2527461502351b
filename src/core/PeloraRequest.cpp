#include "core/PeloraRequest.h"

#include <pelora/PeloraNetReachable.h>
#include <pelora/PeloraSDKManager.h>
#include <pelora/platform/Services.h>

#include <algorithm>
#include <cmath>

#include "core/PeloraAppExt.h"
#include "support/PeloraTool.h"
#include "support/PeloraYYModel.h"

namespace {

pelora::platform::DeviceInfo* device() {
    if (!pelora::platform::hasServices()) return nullptr;
    return pelora::platform::services().device.get();
}

int64_t truncated(double value) {
    if (!std::isfinite(value)) return 0;
    return static_cast<int64_t>(value);
}

}  // namespace

// ---- PeloraUrlQuery --------------------------------------------------------------------------

std::shared_ptr<PeloraUrlQuery> PeloraUrlQuery::init() {
    auto query = std::make_shared<PeloraUrlQuery>();
    query->configInit();
    return query;
}

void PeloraUrlQuery::configInit() {
    auto* info = device();
    if (info) {
        std::string uuid = info->makeUUID();
        std::erase(uuid, '-');
        std::transform(uuid.begin(), uuid.end(), uuid.begin(),
                       [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
        reqId = std::move(uuid);
    }
    if (pelora::platform::hasServices() && pelora::platform::services().clock) {
        reqTs = truncated(pelora::platform::services().clock->wallSeconds() * 1000.0);
    }
    sdkV = PeloraSDKManager::sdkVersion();
    sdkVc = PeloraSDKManager::sdkBuildVersion();
    appId = PeloraSDKManager::appID();
    appV = PeloraAppExt::appVersion();
    appVc = PeloraTool::toInt(PeloraAppExt::appBuildVersion());
    os = "iOS";
    udid = info ? info->identifierForVendor() : std::nullopt;
    sdkN = PeloraSDKManager::sdkName();
}

PeloraYYModelSchema PeloraUrlQuery::plyy_schema() {
    using T = PeloraUrlQuery;
    return plyy_makeSchema<T>(
        {PLYY_PROPERTIES(T, reqId, reqTs, sdkV, sdkVc, appId, appV, appVc, os, udid, sdkN)},
        "PeloraUrlQuery");
}

// ---- PeloraReqAppObject ----------------------------------------------------------------------

std::shared_ptr<PeloraReqAppObject> PeloraReqAppObject::init() {
    auto app = std::make_shared<PeloraReqAppObject>();
    app->configInit();
    return app;
}

void PeloraReqAppObject::configInit() {
    appId = PeloraSDKManager::appID();
}

PeloraYYModelSchema PeloraReqAppObject::plyy_schema() {
    using T = PeloraReqAppObject;
    return plyy_makeSchema<T>({PLYY_PROPERTIES(T, lng, lat, gpsType, hasD, cost, appId)},
                              "PeloraReqAppObject");
}

// ---- PeloraReqDeviceObject -------------------------------------------------------------------

std::shared_ptr<PeloraReqDeviceObject> PeloraReqDeviceObject::init() {
    auto object = std::make_shared<PeloraReqDeviceObject>();
    object->configInit();
    return object;
}

void PeloraReqDeviceObject::configInit() {
    if (auto* info = device()) {
        deviceId = info->advertisingIdentifier();
        os = "iOS";
        osVersion = info->systemVersion();
        vendor = "Apple";
        model = info->model();
        // Pixels of the screen whichever way the device is held.
        const auto bounds = info->screenBounds();
        const double scale = info->screenScale();
        const double shorter = std::min(bounds.width(), bounds.height());
        const double longer = std::max(bounds.width(), bounds.height());
        screenWidth = truncated(shorter * scale);
        screenHeight = truncated(longer * scale);
        switch (info->statusBarOrientation()) {
            case pelora::platform::InterfaceOrientation::kPortrait:
            case pelora::platform::InterfaceOrientation::kPortraitUpsideDown:
                orientation = 1;
                break;
            case pelora::platform::InterfaceOrientation::kLandscapeLeft:
            case pelora::platform::InterfaceOrientation::kLandscapeRight:
                orientation = 2;
                break;
            default:
                orientation = 0;
                break;
        }
    } else {
        os = "iOS";
        vendor = "Apple";
    }
    const auto reachable = PeloraSDKManager::shareManager()->reachable();
    net = reachable ? std::optional<std::string>(reachable->localizeCurrentReachabilityStatus())
                    : std::nullopt;
    imsi = PeloraTool::imsi();
}

PeloraYYModelSchema PeloraReqDeviceObject::plyy_schema() {
    using T = PeloraReqDeviceObject;
    return plyy_makeSchema<T>({PLYY_PROPERTIES(T, deviceId, imei, os, osVersion, net, vendor, model,
                                               language, screenWidth, screenHeight, mac,
                                               orientation, imsi, userAgent, extra, dpi, oaid)},
                              "PeloraReqDeviceObject");
}

// ---- PeloraReqSlotObject ---------------------------------------------------------------------

std::shared_ptr<PeloraReqSlotObject> PeloraReqSlotObject::init() {
    auto slot = std::make_shared<PeloraReqSlotObject>();
    slot->configInit();
    return slot;
}

void PeloraReqSlotObject::configInit() {
    slotId = std::nullopt;
    adType = 0;
    position = 0;
    acceptedCreativeTypes = 2;
    acceptedInteractionType = 1;
    width = 0;
    height = 0;
}

PeloraYYModelSchema PeloraReqSlotObject::plyy_schema() {
    using T = PeloraReqSlotObject;
    return plyy_makeSchema<T>({PLYY_PROPERTIES(T, slotId, adType, position, acceptedCreativeTypes,
                                               acceptedInteractionType, width, height)},
                              "PeloraReqSlotObject");
}

// ---- PeloraReqBody ---------------------------------------------------------------------------

std::shared_ptr<PeloraReqBody> PeloraReqBody::init() {
    auto body = std::make_shared<PeloraReqBody>();
    body->configInit();
    return body;
}

void PeloraReqBody::configInit() {
    device = PeloraReqDeviceObject::init();
    appInfo = PeloraReqAppObject::init();
    slot = PeloraReqSlotObject::init();
}

PeloraYYModelSchema PeloraReqBody::plyy_schema() {
    using T = PeloraReqBody;
    return plyy_makeSchema<T>({PLYY_PROPERTIES(T, device, slot, appInfo)}, "PeloraReqBody");
}
