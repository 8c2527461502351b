#pragma once

// The ad request: URL query parameters (PeloraUrlQuery) and the JSON body (PeloraReqBody with
// its device, slot and app parts). Each record fills itself when created through init();
// configInit() refills it and may be called again.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

struct PeloraYYModelSchema;

struct PeloraUrlQuery {
    std::optional<std::string> reqId;
    int64_t reqTs = 0;
    std::optional<std::string> sdkV;
    int64_t sdkVc = 0;
    std::optional<std::string> appId;
    std::optional<std::string> appV;
    int64_t appVc = 0;
    std::optional<std::string> os;
    std::optional<std::string> udid;
    std::optional<std::string> sdkN;

    static std::shared_ptr<PeloraUrlQuery> init();
    void configInit();
    static PeloraYYModelSchema plyy_schema();
};

struct PeloraReqAppObject {
    double lng = 0.0;
    double lat = 0.0;
    std::optional<std::string> gpsType;
    bool hasD = false;
    int64_t cost = 0;
    std::optional<std::string> appId;

    static std::shared_ptr<PeloraReqAppObject> init();
    void configInit();
    static PeloraYYModelSchema plyy_schema();
};

struct PeloraReqDeviceObject {
    std::optional<std::string> deviceId;
    std::optional<std::string> imei;
    std::optional<std::string> os;
    std::optional<std::string> osVersion;
    std::optional<std::string> net;
    std::optional<std::string> vendor;
    std::optional<std::string> model;
    std::optional<std::string> language;
    int64_t screenWidth = 0;
    int64_t screenHeight = 0;
    std::optional<std::string> mac;
    int64_t orientation = 0;
    std::optional<std::string> imsi;
    std::optional<std::string> userAgent;
    std::optional<std::string> extra;
    int64_t dpi = 0;
    std::optional<std::string> oaid;

    static std::shared_ptr<PeloraReqDeviceObject> init();
    void configInit();
    static PeloraYYModelSchema plyy_schema();
};

struct PeloraReqSlotObject {
    std::optional<std::string> slotId;
    int64_t adType = 0;
    int64_t position = 0;
    int64_t acceptedCreativeTypes = 0;
    int64_t acceptedInteractionType = 0;
    int64_t width = 0;
    int64_t height = 0;

    static std::shared_ptr<PeloraReqSlotObject> init();
    void configInit();
    static PeloraYYModelSchema plyy_schema();
};

struct PeloraReqBody {
    std::shared_ptr<PeloraReqDeviceObject> device;
    std::shared_ptr<PeloraReqSlotObject> slot;
    std::shared_ptr<PeloraReqAppObject> appInfo;

    static std::shared_ptr<PeloraReqBody> init();
    void configInit();
    static PeloraYYModelSchema plyy_schema();
};
