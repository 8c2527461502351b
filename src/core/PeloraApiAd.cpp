#include <pelora/PeloraApiAd.h>

#include <algorithm>

#include "support/PeloraYYModel.h"

// ---- PeloraRespTrackObject -------------------------------------------------------------------

std::map<std::string, std::type_index> PeloraRespTrackObject::modelContainerPropertyGenericClass() {
    return {{"urls", typeid(std::string)}};
}

_PeloraYYModelSchema PeloraRespTrackObject::plyy_schema() {
    using T = PeloraRespTrackObject;
    return plyy_makeSchema<T>({PLYY_PROPERTY(T, trackType), PLYY_PROPERTY(T, urls),
                               PLYY_PROPERTY(T, method), PLYY_PROPERTY(T, contentType),
                               PLYY_PROPERTY(T, content), PLYY_PROPERTY(T, clicked_upload)},
                              "PeloraRespTrackObject");
}

// ---- PeloraRespVideoObject -------------------------------------------------------------------

std::map<std::string, std::type_index> PeloraRespVideoObject::modelContainerPropertyGenericClass() {
    return {{"coverUrls", typeid(std::string)}};
}

_PeloraYYModelSchema PeloraRespVideoObject::plyy_schema() {
    using T = PeloraRespVideoObject;
    return plyy_makeSchema<T>(
        {PLYY_PROPERTY(T, videoUrl), PLYY_PROPERTY(T, videoDuration), PLYY_PROPERTY(T, size),
         PLYY_PROPERTY(T, width), PLYY_PROPERTY(T, height), PLYY_PROPERTY(T, coverUrls),
         PLYY_PROPERTY(T, buttonText), PLYY_PROPERTY(T, endImgUrl), PLYY_PROPERTY(T, endHtml),
         PLYY_PROPERTY(T, autoLanding), PLYY_PROPERTY(T, prefetch), PLYY_PROPERTY(T, clickAble),
         PLYY_PROPERTY(T, skipSeconds)},
        "PeloraRespVideoObject");
}

// ---- PeloraApiAd -----------------------------------------------------------------------------

std::shared_ptr<PeloraApiAd> PeloraApiAd::init() {
    auto ad = std::make_shared<PeloraApiAd>();
    ad->uploadEventTypes = {};
    return ad;
}

void PeloraApiAd::markUploaded(int64_t eventType) {
    uploadEventTypes.push_back(eventType);
}

bool PeloraApiAd::isUploaded(int64_t eventType) const {
    return std::find(uploadEventTypes.begin(), uploadEventTypes.end(), eventType) !=
           uploadEventTypes.end();
}

std::map<std::string, std::type_index> PeloraApiAd::modelContainerPropertyGenericClass() {
    return {{"videos", typeid(PeloraRespVideoObject)},
            {"trackUrls", typeid(PeloraRespTrackObject)},
            {"images", typeid(std::string)},
            {"icons", typeid(std::string)}};
}

_PeloraYYModelSchema PeloraApiAd::plyy_schema() {
    using T = PeloraApiAd;
    // Only the server's keys are mapped; the transport's and tracker's marks stay out of the
    // wire format. The tracking list is reached through its setter and adTrackVO(), because
    // the public trackUrls() getter answers an empty list on purpose.
    return plyy_makeSchema<T>(
        {PLYY_PROPERTY(T, adId), PLYY_PROPERTY(T, creativeType), PLYY_PROPERTY(T, interactionType),
         PLYY_PROPERTY(T, title), PLYY_PROPERTY(T, desc), PLYY_PROPERTY(T, source),
         PLYY_PROPERTY(T, icons), PLYY_PROPERTY(T, images), PLYY_PROPERTY(T, videos),
         PLYY_PROPERTY(T, deeplink), PLYY_PROPERTY(T, clickAdUrl), PLYY_PROPERTY(T, appName),
         PLYY_PROPERTY(T, packageName), PLYY_PROPERTY(T, downloadUrl),
         PLYY_ACCESSOR(T, trackUrls, adTrackVO, setTrackUrls)},
        "PeloraApiAd");
}

// ---- PeloraRespObject ------------------------------------------------------------------------

std::map<std::string, std::type_index> PeloraRespObject::modelContainerPropertyGenericClass() {
    return {{"ads", typeid(PeloraApiAd)}};
}

_PeloraYYModelSchema PeloraRespObject::plyy_schema() {
    using T = PeloraRespObject;
    return plyy_makeSchema<T>(
        {PLYY_PROPERTY(T, reqId), PLYY_PROPERTY(T, provider), PLYY_PROPERTY(T, ads)},
        "PeloraRespObject");
}

// ---- PeloraRespData --------------------------------------------------------------------------

std::map<std::string, std::string> PeloraRespData::modelCustomPropertyMapper() {
    return {{"rData", "data"}};
}

_PeloraYYModelSchema PeloraRespData::plyy_schema() {
    using T = PeloraRespData;
    return plyy_makeSchema<T>({PLYY_PROPERTY(T, code), PLYY_PROPERTY(T, rData)}, "PeloraRespData");
}
