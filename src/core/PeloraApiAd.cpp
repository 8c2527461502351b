#include <algorithm>

#include "core/PeloraApiAdSchema.h"
#include "support/PeloraYYModel.h"

// ---- PeloraRespTrackObject -------------------------------------------------------------------

std::map<std::string, std::type_index> PeloraRespTrackObject::modelContainerPropertyGenericClass() {
    return {{"urls", typeid(std::string)}};
}

PeloraYYModelSchema plyy_schema(const PeloraRespTrackObject*) {
    using T = PeloraRespTrackObject;
    return plyy_makeSchema<T>(
        {PLYY_PROPERTIES(T, trackType, urls, method, contentType, content, clicked_upload)},
        "PeloraRespTrackObject");
}

// ---- PeloraRespVideoObject -------------------------------------------------------------------

std::map<std::string, std::type_index> PeloraRespVideoObject::modelContainerPropertyGenericClass() {
    return {{"coverUrls", typeid(std::string)}};
}

PeloraYYModelSchema plyy_schema(const PeloraRespVideoObject*) {
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

namespace {

// The wire's "trackUrls": read into the tracker's list through the setter, written from the
// public getter, which answers an empty list on purpose. An ad written back to JSON therefore
// carries no tracking instructions, as a host reading trackUrls() sees none.
struct TrackUrlsField {
    using Value = std::optional<std::vector<std::shared_ptr<PeloraRespTrackObject>>>;
    static const Value& get(const void*) {
        static const Value none = Value::value_type{};
        return none;
    }
    static void set(void* o, Value&& v) {
        static_cast<PeloraApiAd*>(o)->setTrackUrls(std::move(v));
    }
};

}  // namespace

PeloraYYModelSchema plyy_schema(const PeloraApiAd*) {
    using T = PeloraApiAd;
    // Only the server's keys are mapped; the transport's and tracker's marks stay out of the
    // wire format.
    return plyy_makeSchema<T>(
        {PLYY_PROPERTIES(T, adId, creativeType, interactionType, title, desc, source, icons, images,
                         videos, deeplink, clickAdUrl, appName, packageName, downloadUrl),
         plyy_detail::declare<TrackUrlsField>("trackUrls")},
        "PeloraApiAd");
}

// ---- PeloraRespObject ------------------------------------------------------------------------

std::map<std::string, std::type_index> PeloraRespObject::modelContainerPropertyGenericClass() {
    return {{"ads", typeid(PeloraApiAd)}};
}

PeloraYYModelSchema plyy_schema(const PeloraRespObject*) {
    using T = PeloraRespObject;
    return plyy_makeSchema<T>({PLYY_PROPERTIES(T, reqId, provider, ads)}, "PeloraRespObject");
}

// ---- PeloraRespData --------------------------------------------------------------------------

std::map<std::string, std::string> PeloraRespData::modelCustomPropertyMapper() {
    return {{"rData", "data"}};
}

PeloraYYModelSchema plyy_schema(const PeloraRespData*) {
    using T = PeloraRespData;
    return plyy_makeSchema<T>({PLYY_PROPERTIES(T, code, rData)}, "PeloraRespData");
}
