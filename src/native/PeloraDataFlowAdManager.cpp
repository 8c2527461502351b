#include "pelora/PeloraDataFlowAdManager.h"

#include <utility>

#include "core/PeloraAdFetch.h"
#include "core/PeloraApiAdSchema.h"
#include "core/PeloraConfig.h"
#include "support/PeloraThreadCheck.h"
#include "support/PeloraTool.h"

using pelora::platform::Error;

// What a manager holds; a loader object, so its release is logged like every loader's.
class PeloraDataFlowAdManagerImpl final : public PeloraConfig {
  public:
    PeloraDataFlowAdManagerImpl() : PeloraConfig("PeloraDataFlowAdManager") {}
    std::shared_ptr<PeloraDataFlowSlot> adSlot;
    std::weak_ptr<PeloraDataFlowAdManagerDelegate> delegate;
};

PeloraDataFlowAdManager::PeloraDataFlowAdManager(PrivateTag)
    : impl_(std::make_unique<PeloraDataFlowAdManagerImpl>()) {
    impl_->configInit();
}

PeloraDataFlowAdManager::~PeloraDataFlowAdManager() = default;

std::shared_ptr<PeloraDataFlowAdManager> PeloraDataFlowAdManager::initWithSlot(
    std::shared_ptr<PeloraDataFlowSlot> slot) {
    auto manager = std::make_shared<PeloraDataFlowAdManager>(PrivateTag{});
    manager->impl_->adSlot = std::move(slot);
    return manager;
}

std::shared_ptr<PeloraDataFlowAdManager> PeloraDataFlowAdManager::init() {
    return std::make_shared<PeloraDataFlowAdManager>(PrivateTag{});
}

const std::shared_ptr<PeloraDataFlowSlot>& PeloraDataFlowAdManager::adSlot() const {
    return impl_->adSlot;
}

std::shared_ptr<PeloraDataFlowAdManagerDelegate> PeloraDataFlowAdManager::delegate() const {
    return impl_->delegate.lock();
}

void PeloraDataFlowAdManager::setDelegate(
    const std::shared_ptr<PeloraDataFlowAdManagerDelegate>& delegate) {
    impl_->delegate = delegate;
}

void PeloraDataFlowAdManager::loadAdData() {
    PELORA_DCHECK_ON_MAIN_THREAD("PeloraDataFlowAdManager::loadAdData");
    // A manager made without a slot asks with empty values, as a nil slot would.
    const auto& slot = impl_->adSlot;
    PeloraAdFetchRequest request{
        PeloraAdKind::kNative, slot ? slot->slotId : std::nullopt,
        std::make_pair(slot ? slot->slotWidth : 0, slot ? slot->slotHeight : 0),
        slot ? static_cast<double>(slot->tolerateTimeout) : 0.0};
    std::weak_ptr<PeloraDataFlowAdManager> weakSelf = weak_from_this();
    PeloraFetchAds(request, [weakSelf](std::optional<Error> error,
                                       std::shared_ptr<PeloraRespObject> response) {
        auto self = weakSelf.lock();
        if (!self) return;
        auto nativeAds = PeloraNativeAdsOf(response.get());
        if (!error && nativeAds.empty()) error = Error{kPeloraDataErrorDomain, -1, {}};
        if (error) {
            PeloraTool::safeTarget(
                self->impl_->delegate,
                &PeloraDataFlowAdManagerDelegate::dataFlowAdManagerDidFailWithError, self, *error);
            return;
        }
        PeloraTool::safeTarget(self->impl_->delegate,
                               &PeloraDataFlowAdManagerDelegate::dataFlowAdManagerDidSuccessLoad,
                               self, std::move(nativeAds));
    });
}
