#pragma once

#include "pelora/platform/Export.h"

// The ad server's answer as records: the envelope, its payload, the ads, their tracking
// instructions and their videos. Fields are named as the wire keys (except where a record
// renames one through modelCustomPropertyMapper).

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <typeindex>
#include <vector>

// Mapping schema of a record; defined by the mapping layer (internal).

struct PeloraRespObject;
struct PeloraApiAd;

// One tracking instruction: which URLs to call for one event type, and how.
struct PELORA_EXPORT PeloraRespTrackObject {
    int64_t trackType = 0;
    std::optional<std::vector<std::string>> urls;
    std::optional<std::string> method;
    std::optional<std::string> contentType;
    std::optional<std::string> content;
    // Set once the click instruction has been sent; never expected from the server.
    bool clicked_upload = false;

    static std::map<std::string, std::type_index> modelContainerPropertyGenericClass();
};

// One video creative of an ad.
struct PELORA_EXPORT PeloraRespVideoObject {
    std::optional<std::string> videoUrl;
    std::optional<std::string> videoDuration;
    int64_t size = 0;
    int64_t width = 0;
    int64_t height = 0;
    std::optional<std::vector<std::string>> coverUrls;
    std::optional<std::string> buttonText;
    std::optional<std::string> endImgUrl;
    std::optional<std::string> endHtml;
    bool autoLanding = false;
    bool prefetch = false;
    bool clickAble = false;
    int64_t skipSeconds = 0;

    static std::map<std::string, std::type_index> modelContainerPropertyGenericClass();
};

// One ad as delivered, plus what the transport and the tracker add to it.
struct PELORA_EXPORT PeloraApiAd {
    std::optional<std::string> adId;
    int64_t creativeType = 0;
    int64_t interactionType = 0;
    std::optional<std::string> title;
    std::optional<std::string> desc;
    std::optional<std::string> source;
    std::optional<std::vector<std::string>> icons;
    std::optional<std::vector<std::string>> images;
    std::optional<std::vector<std::shared_ptr<PeloraRespVideoObject>>> videos;
    std::optional<std::string> deeplink;
    std::optional<std::string> clickAdUrl;
    std::optional<std::string> appName;
    std::optional<std::string> packageName;
    std::optional<std::string> downloadUrl;

    // Size of the slot that asked for this ad, stamped by the transport after parsing.
    int32_t reqSlotW = 0;
    int32_t reqSlotH = 0;
    // Once-only marks of the tracker; they only ever go from unset to set.
    bool exposed_upload = false;
    std::vector<int64_t> uploadEventTypes;

    // Always an empty list, whatever the server sent: tracking instructions are read through
    // adTrackVO() only, so nothing else can fire them by accident.
    std::vector<std::shared_ptr<PeloraRespTrackObject>> trackUrls() const { return {}; }
    void setTrackUrls(std::optional<std::vector<std::shared_ptr<PeloraRespTrackObject>>> v) {
        trackUrls_ = std::move(v);
    }
    // The parsed tracking instructions (absent when the server sent none).
    const std::optional<std::vector<std::shared_ptr<PeloraRespTrackObject>>>& adTrackVO() const {
        return trackUrls_;
    }

    // Duplicates are not prevented; isUploaded() only asks whether the type is present.
    void markUploaded(int64_t eventType);
    bool isUploaded(int64_t eventType) const;

    static std::shared_ptr<PeloraApiAd> init();
    static std::map<std::string, std::type_index> modelContainerPropertyGenericClass();

  private:
    std::optional<std::vector<std::shared_ptr<PeloraRespTrackObject>>> trackUrls_;
};

// The payload of an answer: the ads in server order.
struct PELORA_EXPORT PeloraRespObject {
    std::optional<std::string> reqId;
    std::optional<std::string> provider;
    std::optional<std::vector<std::shared_ptr<PeloraApiAd>>> ads;

    static std::map<std::string, std::type_index> modelContainerPropertyGenericClass();
};

// The envelope of an answer; the presence of rData (JSON key "data") decides success.
struct PELORA_EXPORT PeloraRespData {
    int64_t code = 0;
    std::shared_ptr<PeloraRespObject> rData;

    static std::map<std::string, std::string> modelCustomPropertyMapper();
};
