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
                PeloraSplashAdView::initWithFrame(Rect{}));
        });
    });
}

PeloraSplashAdView::PeloraSplashAdView(PrivateTag, Rect frame)
    : pelora::ui::View(frame), impl_(std::make_shared<PeloraSplashAdViewInternal>()) {}

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
    auto view = std::make_shared<PeloraSplashAdView>(PrivateTag{}, frame);
    view->impl_->view_ = view;
    return view;
}

// ---- properties -----------------------------------------------------------------------------

const std::optional<std::string>& PeloraSplashAdView::slotID() const {
    return impl_->slotID_;
}
void PeloraSplashAdView::setSlotID(std::optional<std::string> slotID) {
    impl_->slotID_ = std::move(slotID);
}
double PeloraSplashAdView::tolerateTimeout() const {
    return impl_->tolerateTimeout_;
}
void PeloraSplashAdView::setTolerateTimeout(double seconds) {
    impl_->tolerateTimeout_ = seconds;
}
std::shared_ptr<PeloraSplashAdViewDelegate> PeloraSplashAdView::delegate() const {
    return impl_->delegate_.lock();
}
void PeloraSplashAdView::setDelegate(const std::shared_ptr<PeloraSplashAdViewDelegate>& delegate) {
    impl_->delegate_ = delegate;
}
std::shared_ptr<pelora::ui::ViewController> PeloraSplashAdView::rootViewController() const {
    return impl_->rootViewController_.lock();
}
void PeloraSplashAdView::setRootViewController(
    const std::shared_ptr<pelora::ui::ViewController>& controller) {
    impl_->rootViewController_ = controller;
}
bool PeloraSplashAdView::hideSkipButton() const {
    return impl_->hideSkipButton_;
}
int64_t PeloraSplashAdView::countDown() const {
    return impl_->countDown_;
}
void PeloraSplashAdView::setCountDown(int64_t seconds) {
    impl_->countDown_ = seconds;
}
std::shared_ptr<pelora::ui::ImageView> PeloraSplashAdView::imageV() const {
    return impl_->imageV_.lock();
}
std::shared_ptr<pelora::ui::Label> PeloraSplashAdView::titleL() const {
    return impl_->titleL_.lock();
}
std::shared_ptr<pelora::ui::Label> PeloraSplashAdView::countL() const {
    return impl_->countL_.lock();
}
std::shared_ptr<pelora::ui::Button> PeloraSplashAdView::skipBtn() const {
    return impl_->skipBtn_.lock();
}
std::shared_ptr<pelora::ui::View> PeloraSplashAdView::skipCV() const {
    return impl_->skipCV_.lock();
}

std::shared_ptr<const PeloraApiAd> PeloraSplashAdView::adData() const {
    const auto& track = impl_->trackEvent_;
    return track ? track->ad() : nullptr;
}

// ---- interface file -------------------------------------------------------------------------

void PeloraSplashAdView::setOutlet(const std::string& name,
                                   std::shared_ptr<pelora::ui::View> view) {
    // The tree owns the sub-views; the view only points at them.
    auto& in = *impl_;
    if (name == "imageV") {
        in.imageV_ = std::dynamic_pointer_cast<pelora::ui::ImageView>(view);
    } else if (name == "titleL") {
        in.titleL_ = std::dynamic_pointer_cast<pelora::ui::Label>(view);
    } else if (name == "countL") {
        in.countL_ = std::dynamic_pointer_cast<pelora::ui::Label>(view);
    } else if (name == "skipBtn") {
        in.skipBtn_ = std::dynamic_pointer_cast<pelora::ui::Button>(view);
    } else if (name == "skipCV") {
        in.skipCV_ = view;
    } else {
        pelora::ui::View::setOutlet(name, std::move(view));
    }
}

void PeloraSplashAdView::awakeFromNib() {
    pelora::ui::View::awakeFromNib();
    impl_->configInit();
}

void PeloraSplashAdViewInternal::configInit() {
    countDown_ = 5;
    tolerateTimeout_ = static_cast<double>(kPeloraDefaultTolerateTimeout);

    trackEvent_ = PeloraTrackEvent::init();
    config_ = PeloraSplashAdConfig::init();
    config_->setDelegate(shared_from_this());

    std::weak_ptr<PeloraSplashAdViewInternal> weakSelf = weak_from_this();
    if (auto button = skipBtn_.lock()) {
        button->addTarget(
            [weakSelf](pelora::ui::Button& sender) {
                if (auto strong = weakSelf.lock()) strong->onSkipHandle(sender);
            },
            pelora::ui::ControlEvent::TouchUpInside);
    }
    if (auto container = skipCV_.lock()) {
        container->setCornerRadius(container->frame().height() * 0.5);
    }
}

void PeloraSplashAdView::setHideSkipButton(bool hide) {
    impl_->hideSkipButton_ = hide;
    if (auto label = countL()) label->setHidden(hide);
    if (auto button = skipBtn()) button->setHidden(hide);
    if (auto container = skipCV()) container->setHidden(hide);
}

// ---- loading --------------------------------------------------------------------------------

void PeloraSplashAdView::loadAdData() {
    PELORA_DCHECK_ON_MAIN_THREAD("PeloraSplashAdView::loadAdData");
    auto slot = std::make_shared<PeloraSplashSlot>();
    slot->slotId = impl_->slotID_;
    slot->requestTimeout = static_cast<int64_t>(std::trunc(impl_->tolerateTimeout_));
    if (impl_->config_) impl_->config_->loadSplashAd(slot);
}

void PeloraSplashAdViewInternal::pl_onConfigTimeout(std::shared_ptr<PeloraSplashAdConfig>) {
    Error error{pelora::platform::kURLErrorDomain, pelora::platform::URLError::kTimedOut, {}};
    PeloraTool::safeTarget(delegate_, &PeloraSplashAdViewDelegate::splashAdDidFailWithError, view(),
                           error);
}

void PeloraSplashAdViewInternal::pl_onConfigFetchError(std::shared_ptr<PeloraSplashAdConfig>,
                                                       const Error& error) {
    PeloraTool::safeTarget(delegate_, &PeloraSplashAdViewDelegate::splashAdDidFailWithError, view(),
                           error);
}

void PeloraSplashAdViewInternal::pl_onConfigFetchData(std::shared_ptr<PeloraSplashAdConfig>,
                                                      std::shared_ptr<PeloraSplashAd> splashAd) {
    auto keepAlive = view();
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
    auto keepAlive = view();
    startTimer();
    onTimerTrigger();

    std::shared_ptr<PeloraApiAd> ad = splashAd ? splashAd->ad : nullptr;
    if (!ad) return;

    auto title = titleL_.lock();
    auto image = imageV_.lock();
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
    trackEvent_->setAdRootVC(rootViewController_.lock());
    std::weak_ptr<PeloraSplashAdViewInternal> weakSelf = weak_from_this();
    trackEvent_->setOnAdClicked(
        [weakSelf](std::shared_ptr<pelora::ui::View>, std::shared_ptr<PeloraApiAd>) {
            auto strong = weakSelf.lock();
            if (!strong) return;
            strong->stopTimer();
            PeloraTool::safeTarget(strong->delegate_, &PeloraSplashAdViewDelegate::splashAdDidClick,
                                   strong->view());
        });
    trackEvent_->setOnAdExposed([weakSelf](std::shared_ptr<PeloraApiAd>) {
        auto strong = weakSelf.lock();
        if (!strong) return;
        PeloraTool::safeTarget(strong->delegate_, &PeloraSplashAdViewDelegate::splashAdDidShow,
                               strong->view());
    });

    std::vector<std::shared_ptr<pelora::ui::View>> clickViews;
    if (image) clickViews.push_back(image);
    if (title) clickViews.push_back(title);
    trackEvent_->bindAd(ad, keepAlive, clickViews);
}

// ---- countdown ------------------------------------------------------------------------------

void PeloraSplashAdViewInternal::startTimer() {
    stopTimer();
    std::weak_ptr<PeloraSplashAdViewInternal> weakSelf = weak_from_this();
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
    if (auto label = countL_.lock()) label->setText(std::to_string(countDown_));
    if (countDown_ < 1) {
        stopTimer();
        onTimerOver();
    }
}

void PeloraSplashAdViewInternal::onTimerOver() {
    PeloraTool::safeTarget(delegate_, &PeloraSplashAdViewDelegate::splashAdTimeOver, view());
}

void PeloraSplashAdViewInternal::onSkipHandle(pelora::ui::Button&) {
    stopTimer();
    PeloraTool::safeTarget(delegate_, &PeloraSplashAdViewDelegate::splashAdDidClickSkip, view());
}

std::string PeloraSplashAdView::describeDetails() const {
    const auto& in = *impl_;
    std::string out =
        " slotID=" + in.slotID_.value_or("(null)") + " countDown=" + std::to_string(in.countDown_);
    if (in.timer_) out += " counting";
    return out;
}
