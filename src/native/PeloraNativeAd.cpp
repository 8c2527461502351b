#include "pelora/PeloraNativeAd.h"

#include <utility>

#include "pelora/platform/Log.h"
#include "support/PeloraThreadCheck.h"
#include "support/PeloraTool.h"
#include "track/PeloraTrackEvent.h"

std::shared_ptr<PeloraNativeAd> PeloraNativeAd::init() {
    auto nativeAd = std::make_shared<PeloraNativeAd>();
    nativeAd->trackEvent_ = PeloraTrackEvent::init();

    // The tracker belongs to the native ad, so its handlers must not keep the ad alive.
    std::weak_ptr<PeloraNativeAd> weakAd = nativeAd;
    nativeAd->trackEvent_->setOnAdClicked([weakAd](std::shared_ptr<pelora::ui::View> view,
                                                   std::shared_ptr<PeloraApiAd>) {
        auto strong = weakAd.lock();
        if (!strong) return;
        PeloraTool::safeTarget(strong->delegate_, &PeloraNativeAdDelegate::nativeAdDidClickWithView,
                               strong, std::move(view));
    });
    nativeAd->trackEvent_->setOnAdExposed([weakAd](std::shared_ptr<PeloraApiAd>) {
        auto strong = weakAd.lock();
        if (!strong) return;
        PeloraTool::safeTarget(strong->delegate_, &PeloraNativeAdDelegate::nativeAdDidDidShow,
                               strong);
    });
    return nativeAd;
}

void PeloraNativeAd::registerContainer(
    const std::shared_ptr<pelora::ui::View>& container,
    const std::vector<std::shared_ptr<pelora::ui::View>>& clickableViews) {
    PELORA_DCHECK_ON_MAIN_THREAD("PeloraNativeAd::registerContainer");
    if (!trackEvent_) return;
    trackEvent_->setAdRootVC(rootViewController());
    trackEvent_->bindAd(ad_, container, clickableViews);
}

PeloraNativeRenderView::~PeloraNativeRenderView() {
    pelora::platform::log(pelora::platform::LogLevel::Debug, "dealloc " + className());
}
