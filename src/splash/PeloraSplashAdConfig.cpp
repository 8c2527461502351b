#include "splash/PeloraSplashAdConfig.h"

#include <utility>

#include "core/PeloraAdFetch.h"
#include "core/PeloraApiAdSchema.h"
#include "support/PeloraTool.h"

void PeloraSplashAdConfig::loadSplashAd(const std::shared_ptr<PeloraSplashSlot>& slot) {
    PeloraAdFetchRequest request{PeloraAdKind::kSplash, slot ? slot->slotId : std::nullopt,
                                 std::nullopt,
                                 static_cast<double>(slot ? slot->requestTimeout : 0)};
    std::weak_ptr<PeloraSplashAdConfig> weakSelf = weak_from_this();
    PeloraFetchAds(request, [weakSelf](std::optional<pelora::platform::Error> error,
                                       std::shared_ptr<PeloraRespObject> response) {
        auto self = weakSelf.lock();
        if (!self) return;
        if (error && error->code == pelora::platform::URLError::kTimedOut) {
            PeloraTool::safeTarget(self->delegate_,
                                   &PeloraSplashAdConfigDelegate::pl_onConfigTimeout, self);
            return;
        }
        if (error) {
            PeloraTool::safeTarget(self->delegate_,
                                   &PeloraSplashAdConfigDelegate::pl_onConfigFetchError, self,
                                   *error);
            return;
        }
        if (!response) return;
        auto splashAd = std::make_shared<PeloraSplashAd>();
        if (response->ads && !response->ads->empty()) splashAd->ad = response->ads->front();
        PeloraTool::safeTarget(self->delegate_, &PeloraSplashAdConfigDelegate::pl_onConfigFetchData,
                               self, splashAd);
    });
}
