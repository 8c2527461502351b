#include "pelora/PeloraDataFlowAdManager.h"

#include <utility>

#include "core/PeloraAdKinds.h"
#include "core/PeloraNetwork.h"
#include "core/PeloraRequest.h"
#include "support/PeloraThreadCheck.h"
#include "support/PeloraTool.h"

using pelora::platform::Error;

std::shared_ptr<PeloraDataFlowAdManager> PeloraDataFlowAdManager::initWithSlot(
    std::shared_ptr<PeloraDataFlowSlot> slot) {
    auto manager = PeloraConfig::initAs<PeloraDataFlowAdManager>();
    manager->adSlot_ = std::move(slot);
    return manager;
}

std::shared_ptr<PeloraDataFlowAdManager> PeloraDataFlowAdManager::init() {
    return std::make_shared<PeloraDataFlowAdManager>();
}

void PeloraDataFlowAdManager::loadAdData() {
    PELORA_DCHECK_ON_MAIN_THREAD("PeloraDataFlowAdManager::loadAdData");
    auto query = PeloraUrlQuery::init();
    auto body = PeloraReqBody::init();
    // A manager made without a slot asks with empty values, as a nil slot would.
    std::shared_ptr<PeloraDataFlowSlot> slot = adSlot_;
    if (body->slot) {
        body->slot->slotId = slot ? slot->slotId : std::nullopt;
        body->slot->adType = PeloraAdKind::kNative.adType;
        body->slot->position = PeloraAdKind::kNative.position;
        body->slot->width = slot ? slot->slotWidth : 0;
        body->slot->height = slot ? slot->slotHeight : 0;
    }
    double timeout = slot ? static_cast<double>(slot->tolerateTimeout) : 0.0;

    std::weak_ptr<PeloraDataFlowAdManager> weakSelf = weak_from_this();
    PeloraNetwork::post(
        PeloraConstConfig::urlfetchAd(), query, body,
        [timeout](pelora::platform::HttpRequest& request) { request.timeoutInterval = timeout; },
        [weakSelf](int64_t code, std::optional<std::string>,
                   std::shared_ptr<PeloraRespObject> response) {
            auto self = weakSelf.lock();
            if (!self) return;
            if (code != 0) {
                Error error{pelora::platform::kURLErrorDomain, code, {}};
                PeloraTool::safeTarget(
                    self->delegate_,
                    &PeloraDataFlowAdManagerDelegate::dataFlowAdManagerDidFailWithError, self,
                    error);
                return;
            }
            std::vector<std::shared_ptr<PeloraNativeAd>> nativeAds;
            if (response && response->ads) {
                for (const auto& ad : *response->ads) {
                    auto nativeAd = PeloraNativeAd::init();
                    nativeAd->setAd(ad);
                    nativeAds.push_back(std::move(nativeAd));
                }
            }
            if (nativeAds.empty()) {
                Error error{kPeloraDataErrorDomain, -1, {}};
                PeloraTool::safeTarget(
                    self->delegate_,
                    &PeloraDataFlowAdManagerDelegate::dataFlowAdManagerDidFailWithError, self,
                    error);
                return;
            }
            PeloraTool::safeTarget(
                self->delegate_, &PeloraDataFlowAdManagerDelegate::dataFlowAdManagerDidSuccessLoad,
                self, std::move(nativeAds));
        });
}
