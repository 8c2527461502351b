#include "core/PeloraAdFetch.h"

#include <utility>

#include "core/PeloraNetwork.h"
#include "core/PeloraRequest.h"
#include "pelora/PeloraNativeAd.h"
#include "pelora/PeloraSDKManager.h"
#include "support/PeloraTool.h"

void PeloraFetchAds(const PeloraAdFetchRequest& request, PeloraAdFetchCompletion completion) {
    auto query = PeloraUrlQuery::init();
    auto body = PeloraReqBody::init();
    if (body->slot) {
        body->slot->slotId = request.slotId;
        body->slot->adType = request.kind.adType;
        body->slot->position = request.kind.position;
        if (request.size) {
            body->slot->width = request.size->first;
            body->slot->height = request.size->second;
        } else {
            PeloraTool::screenPixels(body->slot->width, body->slot->height);
        }
    }
    PeloraNetwork::post(
        PeloraConstConfig::urlfetchAd(), std::move(query), std::move(body),
        [timeout = request.timeout](pelora::platform::HttpRequest& http) {
            http.timeoutInterval = timeout;
        },
        [completion = std::move(completion)](int64_t code, std::optional<std::string>,
                                             std::shared_ptr<PeloraRespObject> payload) {
            if (!completion) return;
            if (code != 0) {
                completion(pelora::platform::Error{pelora::platform::kURLErrorDomain, code, {}},
                           nullptr);
                return;
            }
            completion(std::nullopt, std::move(payload));
        });
}

std::vector<std::shared_ptr<PeloraNativeAd>> PeloraNativeAdsOf(const PeloraRespObject* payload) {
    std::vector<std::shared_ptr<PeloraNativeAd>> ads;
    if (!payload || !payload->ads) return ads;
    for (const auto& ad : *payload->ads) {
        auto nativeAd = PeloraNativeAd::init();
        nativeAd->setAd(ad);
        ads.push_back(std::move(nativeAd));
    }
    return ads;
}
