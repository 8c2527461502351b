#include "splash/PeloraSplashAdConfig.h"

#include <cmath>
#include <utility>

#include "core/PeloraAdKinds.h"
#include "core/PeloraNetwork.h"
#include "core/PeloraRequest.h"
#include "pelora/platform/Error.h"
#include "pelora/platform/Services.h"
#include "support/PeloraTool.h"

void PeloraSplashAdConfig::loadSplashAd(const std::shared_ptr<PeloraSplashSlot>& slot) {
    auto query = PeloraUrlQuery::init();
    auto body = PeloraReqBody::init();
    if (body->slot) {
        body->slot->slotId = slot ? slot->slotId : std::nullopt;
        body->slot->adType = PeloraAdKind::kSplash.adType;
        body->slot->position = PeloraAdKind::kSplash.position;
        PeloraTool::screenPixels(body->slot->width, body->slot->height);
    }

    std::weak_ptr<PeloraSplashAdConfig> weakSelf = weak_from_this();
    PeloraNetwork::post(
        PeloraConstConfig::urlfetchAd(), query, body,
        [slot](pelora::platform::HttpRequest& request) {
            request.timeoutInterval = static_cast<double>(slot ? slot->requestTimeout : 0);
        },
        [weakSelf](int64_t code, std::optional<std::string>,
                   std::shared_ptr<PeloraRespObject> response) {
            auto self = weakSelf.lock();
            if (!self) return;
            if (code == pelora::platform::URLError::kTimedOut) {
                PeloraTool::safeTarget(self->delegate_,
                                       &PeloraSplashAdConfigDelegate::pl_onConfigTimeout, self);
                return;
            }
            if (code != 0) {
                pelora::platform::Error error{pelora::platform::kURLErrorDomain, code, {}};
                PeloraTool::safeTarget(self->delegate_,
                                       &PeloraSplashAdConfigDelegate::pl_onConfigFetchError, self,
                                       error);
                return;
            }
            if (!response) return;
            auto splashAd = std::make_shared<PeloraSplashAd>();
            if (response->ads && !response->ads->empty()) splashAd->ad = response->ads->front();
            PeloraTool::safeTarget(self->delegate_,
                                   &PeloraSplashAdConfigDelegate::pl_onConfigFetchData, self,
                                   splashAd);
        });
}
