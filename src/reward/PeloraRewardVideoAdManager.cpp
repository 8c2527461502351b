#include <cmath>
#include <utility>

#include "core/PeloraAdFetch.h"
#include "core/PeloraApiAdSchema.h"
#include "pelora/platform/Log.h"
#include "pelora/platform/Services.h"
#include "reward/PeloraAdCache.h"
#include "reward/PeloraRewardVideoAdManagerInternal.h"
#include "reward/PeloraVideoPlayerVC.h"
#include "support/PeloraThreadCheck.h"
#include "support/PeloraTool.h"
#include "track/PeloraPluginStatusStore.h"

using pelora::platform::Error;

namespace {

Error dataError() {
    return Error{kPeloraDataErrorDomain, -1, {}};
}

}  // namespace

PeloraRewardVideoAdManager::PeloraRewardVideoAdManager(PrivateTag)
    : impl_(std::make_shared<PeloraRewardVideoAdManagerInternal>()) {}

PeloraRewardVideoAdManager::~PeloraRewardVideoAdManager() = default;

std::shared_ptr<PeloraRewardVideoAdManager> PeloraRewardVideoAdManager::initWithSlot(
    std::shared_ptr<PeloraRewardVideoSlot> slot) {
    auto manager = init();
    auto& in = *manager->impl_;
    in.adSlot_ = std::move(slot);
    in.fDownloader_ = PeloraFileDownloader::init();
    in.fCache_ = PeloraAdCache::init();
    in.autoPlay_ = true;
    return manager;
}

std::shared_ptr<PeloraRewardVideoAdManager> PeloraRewardVideoAdManager::init() {
    auto manager = std::make_shared<PeloraRewardVideoAdManager>(PrivateTag{});
    manager->impl_->owner_ = manager;
    return manager;
}

std::shared_ptr<PeloraRewardVideoAdManagerDelegate> PeloraRewardVideoAdManager::delegate() const {
    return impl_->delegate_.lock();
}
void PeloraRewardVideoAdManager::setDelegate(
    const std::shared_ptr<PeloraRewardVideoAdManagerDelegate>& delegate) {
    impl_->delegate_ = delegate;
}
bool PeloraRewardVideoAdManager::autoPlay() const {
    return impl_->autoPlay_;
}
void PeloraRewardVideoAdManager::setAutoPlay(bool autoPlay) {
    impl_->autoPlay_ = autoPlay;
}
const std::shared_ptr<PeloraRewardVideoSlot>& PeloraRewardVideoAdManager::adSlot() const {
    return impl_->adSlot_;
}
void PeloraRewardVideoAdManager::setAdSlot(std::shared_ptr<PeloraRewardVideoSlot> slot) {
    impl_->adSlot_ = std::move(slot);
}
std::shared_ptr<pelora::ui::ViewController> PeloraRewardVideoAdManager::rootViewController() const {
    return impl_->rootViewController_.lock();
}
void PeloraRewardVideoAdManager::setRootViewController(
    const std::shared_ptr<pelora::ui::ViewController>& controller) {
    impl_->rootViewController_ = controller;
}
const std::shared_ptr<PeloraNativeAd>& PeloraRewardVideoAdManager::toShowAd() const {
    return impl_->toShowAd_;
}
const std::shared_ptr<PeloraRespVideoObject>& PeloraRewardVideoAdManager::toShowVideo() const {
    return impl_->toShowVideo_;
}

std::optional<std::string> PeloraRewardVideoAdManager::cachedVideoPath() const {
    const auto& in = *impl_;
    if (!in.fCache_ || !in.toShowVideo_) return std::nullopt;
    return in.fCache_->filePathForRequestUrl(in.toShowVideo_->videoUrl);
}

// ---- loading ---------------------------------------------------------------------------------

void PeloraRewardVideoAdManager::loadAdData() {
    PELORA_DCHECK_ON_MAIN_THREAD("PeloraRewardVideoAdManager::loadAdData");
    const auto& slot = impl_->adSlot_;
    PeloraAdFetchRequest request{PeloraAdKind::kRewardVideo, slot ? slot->slotId : std::nullopt,
                                 std::nullopt,
                                 static_cast<double>(slot ? slot->tolerateTimeout : 0)};
    std::weak_ptr<PeloraRewardVideoAdManagerInternal> weakSelf = impl_;
    PeloraFetchAds(request, [weakSelf](std::optional<Error> error,
                                       std::shared_ptr<PeloraRespObject> response) {
        auto self = weakSelf.lock();
        if (!self) return;
        auto ads = PeloraNativeAdsOf(response.get());
        if (error || ads.empty()) {
            self->onAdLoadError(error ? *error : dataError());
            return;
        }
        self->onAdLoadSuccess(ads);
    });
}

std::shared_ptr<PeloraNativeAd> PeloraRewardVideoAdManagerInternal::bestAdForShow(
    const std::vector<std::shared_ptr<PeloraNativeAd>>& ads) {
    // The server's order decides; no other ad is considered, even one with a video.
    return ads.empty() ? nullptr : ads.front();
}

void PeloraRewardVideoAdManagerInternal::onAdLoadSuccess(
    const std::vector<std::shared_ptr<PeloraNativeAd>>& ads) {
    toShowAd_ = bestAdForShow(ads);
    toShowVideo_.reset();
    if (toShowAd_ && toShowAd_->ad() && toShowAd_->ad()->videos &&
        !toShowAd_->ad()->videos->empty())
        toShowVideo_ = toShowAd_->ad()->videos->front();
    if (!toShowVideo_ || PeloraTool::stringIsEmpty(toShowVideo_->videoUrl)) {
        onAdLoadError(dataError());
        return;
    }
    PeloraTool::safeTarget(delegate_,
                           &PeloraRewardVideoAdManagerDelegate::rewardVideoAdManagerDidSuccessLoad,
                           owner());

    const std::string url = *toShowVideo_->videoUrl;
    const bool downloaded = fCache_ && fCache_->isDownloadUrl(url);
    if (downloaded || !toShowVideo_->prefetch) {
        // Already here, or meant to be streamed at show time.
        onVideoDidLoad();
        return;
    }
    if (downloadTask_) downloadTask_->cancel();
    downloadTask_.reset();
    if (!fDownloader_) {
        pelora::platform::log(pelora::platform::LogLevel::Warning,
                              "sdk: a reward video manager made with init() cannot download; "
                              "use initWithSlot()");
        return;
    }
    std::weak_ptr<PeloraRewardVideoAdManagerInternal> weakSelf = self();
    pelora::platform::log(
        pelora::platform::LogLevel::Info,
        "sdk: downloading video " + (url.size() > 200 ? url.substr(0, 200) + "..." : url));
    downloadTask_ = fDownloader_->downloadTaskWithUrl(
        url,
        [weakSelf, url](const std::string& fileURL) {
            auto strong = weakSelf.lock();
            if (!strong) return;
            if (strong->fCache_) strong->fCache_->storeFilePath(pl_pathOfFileURL(fileURL), url);
            strong->onVideoDidLoad();
        },
        [weakSelf](int64_t code, std::optional<std::string>) {
            auto strong = weakSelf.lock();
            if (!strong) return;
            strong->onAdLoadError(Error{kPeloraDownloadErrorDomain, code, {}});
        });
}

void PeloraRewardVideoAdManagerInternal::onVideoDidLoad() {
    PeloraTool::safeTarget(
        delegate_, &PeloraRewardVideoAdManagerDelegate::rewardVideoAdManagerVideoDidLoad, owner());
}

void PeloraRewardVideoAdManagerInternal::onAdLoadError(std::optional<Error> error) {
    PeloraTool::safeTarget(
        delegate_, &PeloraRewardVideoAdManagerDelegate::rewardVideoAdManagerDidFailWithError,
        owner(), std::move(error));
}

// ---- showing ---------------------------------------------------------------------------------

bool PeloraRewardVideoAdManager::showAdFromRootViewController(
    const std::shared_ptr<pelora::ui::ViewController>& controller) {
    PELORA_DCHECK_ON_MAIN_THREAD("PeloraRewardVideoAdManager::showAdFromRootViewController");
    auto& in = *impl_;
    if (!in.toShowAd_ || !in.toShowVideo_) return false;
    in.rootViewController_ = controller;
    auto page = in.videoPage_.lock();
    if (!page) {
        page = PeloraVideoPlayerVC::instance();
        in.videoPage_ = page;
        auto nav = PeloraRootNavVC::initWithRootViewController(page);
        // Over full screen, so the host's content stays beneath the page.
        nav->setModalPresentationStyle(pelora::ui::ModalPresentationStyle::OverFullScreen);
        if (controller) controller->presentViewController(nav, true, nullptr);
    }
    page->setAutoPlay(in.autoPlay_);
    in.store_ = in.getStatusStore();
    std::optional<std::string> fileURL;
    if (in.fCache_) {
        auto path = in.fCache_->filePathForRequestUrl(in.toShowVideo_->videoUrl);
        if (!PeloraTool::stringIsEmpty(path)) fileURL = pl_fileURLWithPath(*path);
    }
    page->loadVideo(in.toShowVideo_, in.toShowAd_, in.store_, fileURL);
    return true;
}

std::shared_ptr<PeloraPluginStatusStore> PeloraRewardVideoAdManagerInternal::getStatusStore() {
    auto store = PeloraPluginStatusStore::init();
    std::weak_ptr<PeloraRewardVideoAdManagerInternal> weakSelf = self();
    auto task = [weakSelf](void (PeloraRewardVideoAdManagerInternal::*handler)()) {
        return [weakSelf, handler] {
            if (auto strong = weakSelf.lock()) ((*strong).*handler)();
        };
    };
    store->addEvent(kPlayerStatusStart,
                    task(&PeloraRewardVideoAdManagerInternal::onVideoPlayStart));
    store->addEvent(kPlayerStatusPlayError,
                    task(&PeloraRewardVideoAdManagerInternal::onVideoPlayError));
    store->addEvent(kPlayerStatusPlayFinish,
                    task(&PeloraRewardVideoAdManagerInternal::onVideoPlayFinish));
    store->addEvent(kAdExpose, task(&PeloraRewardVideoAdManagerInternal::onAdExpose));
    store->addEvent(kAdClick, task(&PeloraRewardVideoAdManagerInternal::onAdClick));
    store->addEvent(kAdTapClose, task(&PeloraRewardVideoAdManagerInternal::onAdTapClose));
    store->addEvent(kAdTapSkip, task(&PeloraRewardVideoAdManagerInternal::onAdTapSkip));
    return store;
}

// ---- the page's events -----------------------------------------------------------------------

void PeloraRewardVideoAdManagerInternal::onVideoPlayStart() {
    // Deliberately silent: the host hears of the start through nothing.
}

void PeloraRewardVideoAdManagerInternal::onVideoPlayError() {
    std::optional<Error> error;
    if (auto page = videoPage_.lock()) error = page->playItemError();
    onAdLoadError(std::move(error));
}

void PeloraRewardVideoAdManagerInternal::onVideoPlayFinish() {
    PeloraTool::safeTarget(
        delegate_, &PeloraRewardVideoAdManagerDelegate::rewardVideoAdManagerDidPlayFinish, owner());
}

void PeloraRewardVideoAdManagerInternal::onAdExpose() {
    PeloraTool::safeTarget(
        delegate_, &PeloraRewardVideoAdManagerDelegate::rewardVideoAdManagerDidShow, owner());
}

void PeloraRewardVideoAdManagerInternal::onAdClick() {
    PeloraTool::safeTarget(
        delegate_, &PeloraRewardVideoAdManagerDelegate::rewardVideoAdManagerDidClick, owner());
}

void PeloraRewardVideoAdManagerInternal::onAdTapClose() {
    PeloraTool::safeTarget(
        delegate_, &PeloraRewardVideoAdManagerDelegate::rewardVideoAdManagerDidClose, owner());
}

void PeloraRewardVideoAdManagerInternal::onAdTapSkip() {
    PeloraTool::safeTarget(
        delegate_, &PeloraRewardVideoAdManagerDelegate::rewardVideoAdManagerDidClickSkip, owner());
}
