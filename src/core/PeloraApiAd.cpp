#include <algorithm>

#include "core/PeloraApiAdSchema.h"
#include "support/PeloraYYModel.h"

// ---- PeloraRespTrackObject -------------------------------------------------------------------

std::map<std::string, std::type_index> PeloraRespTrackObject::modelContainerPropertyGenericClass() {
    return {{"urls", typeid(std::string)}};
}

_PeloraYYModelSchema plyy_schema(const PeloraRespTrackObject*) {
    using T = PeloraRespTrackObject;
    return plyy_makeSchema<T>(
        {PLYY_PROPERTIES(T, trackType, urls, method, contentType, content, clicked_upload)},
        "PeloraRespTrackObject");
}

// ---- PeloraRespVideoObject -------------------------------------------------------------------

std::map<std::string, std::type_index> PeloraRespVideoObject::modelContainerPropertyGenericClass() {
    return {{"coverUrls", typeid(std::string)}};
}

_PeloraYYModelSchema plyy_schema(const PeloraRespVideoObject*) {
    using T = PeloraRespVideoObject;
    return plyy_makeSchema<T>(
        {PLYY_PROPERTIES(T, videoUrl, videoDuration, size, width, height, coverUrls, buttonText,
                         endImgUrl, endHtml, autoLanding, prefetch, clickAble, skipSeconds)},
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

_PeloraYYModelSchema plyy_schema(const PeloraApiAd*) {
    using T = PeloraApiAd;
    // Only the server's keys are mapped; the transport's and tracker's marks stay out of the
    // wire format. The tracking list is reached through its setter and adTrackVO(), because
    // the public trackUrls() getter answers an empty list on purpose.
    return plyy_makeSchema<T>(
        {PLYY_PROPERTIES(T, adId, creativeType, interactionType, title, desc, source, icons, images,
                         videos, deeplink, clickAdUrl, appName, packageName, downloadUrl),
         PLYY_ACCESSOR(T, trackUrls, adTrackVO, setTrackUrls)},
        "PeloraApiAd");
}

// ---- PeloraRespObject ------------------------------------------------------------------------

std::map<std::string, std::type_index> PeloraRespObject::modelContainerPropertyGenericClass() {
    return {{"ads", typeid(PeloraApiAd)}};
}

_PeloraYYModelSchema plyy_schema(const PeloraRespObject*) {
    using T = PeloraRespObject;
    return plyy_makeSchema<T>({PLYY_PROPERTIES(T, reqId, provider, ads)}, "PeloraRespObject");
}

// ---- PeloraRespData --------------------------------------------------------------------------

std::map<std::string, std::string> PeloraRespData::modelCustomPropertyMapper() {
    return {{"rData", "data"}};
}

_PeloraYYModelSchema plyy_schema(const PeloraRespData*) {
    using T = PeloraRespData;
    return plyy_makeSchema<T>({PLYY_PROPERTIES(T, code, rData)}, "PeloraRespData");
}
