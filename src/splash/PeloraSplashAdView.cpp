#include <cmath>
#include <mutex>
#include <utility>
#include <vector>

#include "native/PeloraImageDownloader.h"
#include "pelora/platform/Log.h"
#include "pelora/platform/Services.h"
#include "pelora/ui/NibLoader.h"
#include "splash/PeloraSplashAdConfig.h"
#include "splash/PeloraSplashAdViewInternal.h"
#include "support/PeloraThreadCheck.h"
#include "support/PeloraTool.h"
#include "track/PeloraTrackEvent.h"

using pelora::platform::Error;
using pelora::platform::Rect;

void PeloraSplashAdViewInternal::registerWithNibLoader() {
    static std::once_flag once;
    std::call_once(once, [] {
        pelora::ui::NibLoader::registerClass("PeloraSplashAdView", [] {
            return std::static_pointer_cast<pelora::ui::View>(
                std::make_shared<PeloraSplashAdViewInternal>());
        });
    });
}

PeloraSplashAdView::PeloraSplashAdView() = default;

PeloraSplashAdView::PeloraSplashAdView(Rect frame) : pelora::ui::View(frame) {}

PeloraSplashAdView::~PeloraSplashAdView() {
    // A running timer is left alone on purpose: its ticks hold the view weakly, and the first
    // tick that finds the view gone does nothing but end the timer, so a released splash
    // leaves nothing in the run loop a second later.
    pelora::platform::log(pelora::platform::LogLevel::Debug, "dealloc " + className());
}

std::shared_ptr<PeloraSplashAdView> PeloraSplashAdView::initWithSlotID(const std::string& slotID,
                                                                       Rect frame) {
    PeloraSplashAdViewInternal::registerWithNibLoader();
    auto view =
        std::dynamic_pointer_cast<PeloraSplashAdView>(PeloraTool::loadNib("PeloraSplashAdView"));
    if (!view) return nullptr;
    view->setSlotID(slotID);
    view->setFrame(frame);
    return view;
}

std::shared_ptr<PeloraSplashAdView> PeloraSplashAdView::initWithFrame(Rect frame) {
    return std::make_shared<PeloraSplashAdViewInternal>(frame);
}

std::shared_ptr<const PeloraApiAd> PeloraSplashAdView::adData() const {
    const auto& track = PeloraSplashAdViewInternal::of(*this).trackEvent();
    return track ? track->ad() : nullptr;
}

std::shared_ptr<PeloraSplashAdViewInternal> PeloraSplashAdViewInternal::self() {
    // Empty for a view that is not owned by a shared_ptr: callbacks then carry no view.
    return std::static_pointer_cast<PeloraSplashAdViewInternal>(weak_from_this().lock());
}

// ---- interface file -------------------------------------------------------------------------

void PeloraSplashAdViewInternal::setOutlet(const std::string& name,
                                           std::shared_ptr<pelora::ui::View> view) {
    // The tree owns the sub-views; the view only points at them.
    if (name == "imageV") {
        imageV_ = std::dynamic_pointer_cast<pelora::ui::ImageView>(view);
    } else if (name == "titleL") {
        titleL_ = std::dynamic_pointer_cast<pelora::ui::Label>(view);
    } else if (name == "countL") {
        countL_ = std::dynamic_pointer_cast<pelora::ui::Label>(view);
    } else if (name == "skipBtn") {
        skipBtn_ = std::dynamic_pointer_cast<pelora::ui::Button>(view);
    } else if (name == "skipCV") {
        skipCV_ = view;
    } else {
        pelora::ui::View::setOutlet(name, std::move(view));
    }
}

void PeloraSplashAdViewInternal::awakeFromNib() {
    pelora::ui::View::awakeFromNib();
    configInit();
}

void PeloraSplashAdViewInternal::configInit() {
    countDown_ = 5;
    tolerateTimeout_ = static_cast<double>(kPeloraDefaultTolerateTimeout);

    trackEvent_ = PeloraTrackEvent::init();
    config_ = PeloraSplashAdConfig::init();
    config_->setDelegate(std::static_pointer_cast<PeloraSplashAdConfigDelegate>(self()));

    std::weak_ptr<PeloraSplashAdViewInternal> weakSelf = self();
    if (auto button = skipBtn()) {
        button->addTarget(
            [weakSelf](pelora::ui::Button& sender) {
                if (auto strong = weakSelf.lock()) strong->onSkipHandle(sender);
            },
            pelora::ui::ControlEvent::TouchUpInside);
    }
    if (auto container = skipCV()) {
        container->setCornerRadius(container->frame().height() * 0.5);
    }
}

void PeloraSplashAdView::setHideSkipButton(bool hide) {
    hideSkipButton_ = hide;
    if (auto label = countL()) label->setHidden(hide);
    if (auto button = skipBtn()) button->setHidden(hide);
    if (auto container = skipCV()) container->setHidden(hide);
}

// ---- loading --------------------------------------------------------------------------------

void PeloraSplashAdView::loadAdData() {
    PELORA_DCHECK_ON_MAIN_THREAD("PeloraSplashAdView::loadAdData");
    auto slot = std::make_shared<PeloraSplashSlot>();
    slot->slotId = slotID_;
    slot->requestTimeout = static_cast<int64_t>(std::trunc(tolerateTimeout_));
    auto& self = PeloraSplashAdViewInternal::of(*this);
    if (self.config_) self.config_->loadSplashAd(slot);
}

void PeloraSplashAdViewInternal::pl_onConfigTimeout(std::shared_ptr<PeloraSplashAdConfig>) {
    Error error{pelora::platform::kURLErrorDomain, pelora::platform::URLError::kTimedOut, {}};
    PeloraTool::safeTarget(delegate_, &PeloraSplashAdViewDelegate::splashAdDidFailWithError, self(),
                           error);
}

void PeloraSplashAdViewInternal::pl_onConfigFetchError(std::shared_ptr<PeloraSplashAdConfig>,
                                                       const Error& error) {
    PeloraTool::safeTarget(delegate_, &PeloraSplashAdViewDelegate::splashAdDidFailWithError, self(),
                           error);
}

void PeloraSplashAdViewInternal::pl_onConfigFetchData(std::shared_ptr<PeloraSplashAdConfig>,
                                                      std::shared_ptr<PeloraSplashAd> splashAd) {
    auto keepAlive = self();
    if (splashAd && splashAd->ad && splashAd->ad->adId) {
        PeloraTool::safeTarget(delegate_, &PeloraSplashAdViewDelegate::splashAdDidLoad, keepAlive);
        render(splashAd);
        return;
    }
    Error error{kPeloraSplashDataErrorDomain, -1, {}};
    PeloraTool::safeTarget(delegate_, &PeloraSplashAdViewDelegate::splashAdDidFailWithError,
                           keepAlive, error);
}

// ---- showing --------------------------------------------------------------------------------

void PeloraSplashAdViewInternal::render(const std::shared_ptr<PeloraSplashAd>& splashAd) {
    auto keepAlive = self();
    startTimer();
    onTimerTrigger();

    std::shared_ptr<PeloraApiAd> ad = splashAd ? splashAd->ad : nullptr;
    if (!ad) return;

    auto title = titleL();
    auto image = imageV();
    if (ad->creativeType == 1) {
        if (title) {
            title->setText(ad->title);
            title->setHidden(false);
        }
    } else {
        if (title) title->setHidden(true);
        std::optional<std::string> first;
        if (ad->images && !ad->images->empty()) first = ad->images->front();
        if (image) pl_setImageUrl(*image, first);
    }

    if (!trackEvent_) return;
    trackEvent_->setAdRootVC(rootViewController());
    std::weak_ptr<PeloraSplashAdViewInternal> weakSelf = keepAlive;
    trackEvent_->setOnAdClicked(
        [weakSelf](std::shared_ptr<pelora::ui::View>, std::shared_ptr<PeloraApiAd>) {
            auto strong = weakSelf.lock();
            if (!strong) return;
            strong->stopTimer();
            PeloraTool::safeTarget(strong->delegate_, &PeloraSplashAdViewDelegate::splashAdDidClick,
                                   strong);
        });
    trackEvent_->setOnAdExposed([weakSelf](std::shared_ptr<PeloraApiAd>) {
        auto strong = weakSelf.lock();
        if (!strong) return;
        PeloraTool::safeTarget(strong->delegate_, &PeloraSplashAdViewDelegate::splashAdDidShow,
                               strong);
    });

    std::vector<std::shared_ptr<pelora::ui::View>> clickViews;
    if (image) clickViews.push_back(image);
    if (title) clickViews.push_back(title);
    trackEvent_->bindAd(ad, keepAlive, clickViews);
}

// ---- countdown ------------------------------------------------------------------------------

void PeloraSplashAdViewInternal::startTimer() {
    stopTimer();
    std::weak_ptr<PeloraSplashAdViewInternal> weakSelf = self();
    timer_ = pelora::platform::services().mainRunLoop->scheduleTimer(
        1.0, true, [weakSelf](pelora::platform::Timer& timer) {
            auto strong = weakSelf.lock();
            if (!strong) {
                timer.invalidate();
                return;
            }
            strong->countDown_ -= 1;
            strong->onTimerTrigger();
        });
}

void PeloraSplashAdViewInternal::stopTimer() {
    if (timer_) timer_->invalidate();
    timer_.reset();
}

void PeloraSplashAdViewInternal::onTimerTrigger() {
    if (auto label = countL()) label->setText(std::to_string(countDown_));
    if (countDown_ < 1) {
        stopTimer();
        onTimerOver();
    }
}

void PeloraSplashAdViewInternal::onTimerOver() {
    PeloraTool::safeTarget(delegate_, &PeloraSplashAdViewDelegate::splashAdTimeOver, self());
}

void PeloraSplashAdViewInternal::onSkipHandle(pelora::ui::Button&) {
    stopTimer();
    PeloraTool::safeTarget(delegate_, &PeloraSplashAdViewDelegate::splashAdDidClickSkip, self());
}

std::string PeloraSplashAdViewInternal::describeDetails() const {
    std::string out =
        " slotID=" + slotID_.value_or("(null)") + " countDown=" + std::to_string(countDown_);
    if (timer_) out += " counting";
    return out;
}
