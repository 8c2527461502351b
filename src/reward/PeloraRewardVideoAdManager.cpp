#include <cmath>
#include <utility>

#include "core/PeloraAdKinds.h"
#include "core/PeloraNetwork.h"
#include "core/PeloraRequest.h"
#include "track/PeloraPluginStatusStore.h"
#include "pelora/platform/Log.h"
#include "pelora/platform/Services.h"
#include "reward/PeloraAdCache.h"
#include "reward/PeloraRewardVideoAdManagerInternal.h"
#include "reward/PeloraVideoPlayerVC.h"
#include "support/PeloraThreadCheck.h"
#include "support/PeloraTool.h"

using pelora::platform::Error;

namespace {

Error dataError() {
    return Error{kPeloraDataErrorDomain, -1, {}};
}

}  // namespace

PeloraRewardVideoAdManager::~PeloraRewardVideoAdManager() = default;

std::shared_ptr<PeloraRewardVideoAdManager> PeloraRewardVideoAdManager::initWithSlot(
    std::shared_ptr<PeloraRewardVideoSlot> slot) {
    auto manager = std::make_shared<PeloraRewardVideoAdManagerInternal>();
    manager->adSlot_ = std::move(slot);
    manager->fDownloader_ = PeloraFileDownloader::init();
    manager->fCache_ = PeloraAdCache::init();
    manager->autoPlay_ = true;
    return manager;
}

std::shared_ptr<PeloraRewardVideoAdManager> PeloraRewardVideoAdManager::init() {
    return std::make_shared<PeloraRewardVideoAdManagerInternal>();
}

std::optional<std::string> PeloraRewardVideoAdManager::cachedVideoPath() const {
    const auto& cache = PeloraRewardVideoAdManagerInternal::of(*this).fCache();
    if (!cache || !toShowVideo_) return std::nullopt;
    return cache->filePathForRequestUrl(toShowVideo_->videoUrl);
}

// ---- loading ---------------------------------------------------------------------------------

void PeloraRewardVideoAdManager::loadAdData() {
    PELORA_DCHECK_ON_MAIN_THREAD("PeloraRewardVideoAdManager::loadAdData");
    auto query = PeloraUrlQuery::init();
    auto body = PeloraReqBody::init();
    if (body->slot) {
        body->slot->slotId = adSlot_ ? adSlot_->slotId : std::nullopt;
        body->slot->adType = PeloraAdKind::kRewardVideo.adType;
        body->slot->position = PeloraAdKind::kRewardVideo.position;
        PeloraTool::screenPixels(body->slot->width, body->slot->height);
    }

    std::weak_ptr<PeloraRewardVideoAdManagerInternal> weakSelf =
        PeloraRewardVideoAdManagerInternal::of(*this).self();
    PeloraNetwork::post(
        PeloraConstConfig::urlfetchAd(), query, body,
        [slot = adSlot_](pelora::platform::HttpRequest& request) {
            request.timeoutInterval = static_cast<double>(slot ? slot->tolerateTimeout : 0);
        },
        [weakSelf](int64_t code, std::optional<std::string>,
                   std::shared_ptr<PeloraRespObject> response) {
            auto self = weakSelf.lock();
            if (!self) return;
            if (code != 0) {
                self->onAdLoadError(Error{pelora::platform::kURLErrorDomain, code, {}});
                return;
            }
            if (!response) {
                self->onAdLoadError(dataError());
                return;
            }
            std::vector<std::shared_ptr<PeloraNativeAd>> ads;
            if (response->ads) {
                for (const auto& ad : *response->ads) {
                    auto nativeAd = PeloraNativeAd::init();
                    nativeAd->setAd(ad);
                    ads.push_back(std::move(nativeAd));
                }
            }
            if (ads.empty()) {
                self->onAdLoadError(dataError());
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
    auto self = shared_from_this();
    PeloraTool::safeTarget(
        delegate_, &PeloraRewardVideoAdManagerDelegate::rewardVideoAdManagerDidSuccessLoad, self);

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
    std::weak_ptr<PeloraRewardVideoAdManagerInternal> weakSelf = this->self();
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
    PeloraTool::safeTarget(delegate_,
                           &PeloraRewardVideoAdManagerDelegate::rewardVideoAdManagerVideoDidLoad,
                           shared_from_this());
}

void PeloraRewardVideoAdManagerInternal::onAdLoadError(std::optional<Error> error) {
    PeloraTool::safeTarget(
        delegate_, &PeloraRewardVideoAdManagerDelegate::rewardVideoAdManagerDidFailWithError,
        shared_from_this(), std::move(error));
}

// ---- showing ---------------------------------------------------------------------------------

bool PeloraRewardVideoAdManager::showAdFromRootViewController(
    const std::shared_ptr<pelora::ui::ViewController>& controller) {
    PELORA_DCHECK_ON_MAIN_THREAD("PeloraRewardVideoAdManager::showAdFromRootViewController");
    if (!toShowAd_ || !toShowVideo_) return false;
    auto& in = PeloraRewardVideoAdManagerInternal::of(*this);
    rootViewController_ = controller;
    auto page = in.videoPage_.lock();
    if (!page) {
        page = PeloraVideoPlayerVC::instance();
        in.videoPage_ = page;
        auto nav = PeloraRootNavVC::initWithRootViewController(page);
        // Over full screen, so the host's content stays beneath the page.
        nav->setModalPresentationStyle(pelora::ui::ModalPresentationStyle::OverFullScreen);
        if (controller) controller->presentViewController(nav, true, nullptr);
    }
    page->setAutoPlay(autoPlay_);
    in.store_ = in.getStatusStore();
    std::optional<std::string> fileURL;
    if (in.fCache_) {
        auto path = in.fCache_->filePathForRequestUrl(toShowVideo_->videoUrl);
        if (!PeloraTool::stringIsEmpty(path)) fileURL = pl_fileURLWithPath(*path);
    }
    page->loadVideo(toShowVideo_, toShowAd_, in.store_, fileURL);
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
    PeloraTool::safeTarget(delegate_,
                           &PeloraRewardVideoAdManagerDelegate::rewardVideoAdManagerDidPlayFinish,
                           shared_from_this());
}

void PeloraRewardVideoAdManagerInternal::onAdExpose() {
    PeloraTool::safeTarget(delegate_,
                           &PeloraRewardVideoAdManagerDelegate::rewardVideoAdManagerDidShow,
                           shared_from_this());
}

void PeloraRewardVideoAdManagerInternal::onAdClick() {
    PeloraTool::safeTarget(delegate_,
                           &PeloraRewardVideoAdManagerDelegate::rewardVideoAdManagerDidClick,
                           shared_from_this());
}

void PeloraRewardVideoAdManagerInternal::onAdTapClose() {
    PeloraTool::safeTarget(delegate_,
                           &PeloraRewardVideoAdManagerDelegate::rewardVideoAdManagerDidClose,
                           shared_from_this());
}

void PeloraRewardVideoAdManagerInternal::onAdTapSkip() {
    PeloraTool::safeTarget(delegate_,
                           &PeloraRewardVideoAdManagerDelegate::rewardVideoAdManagerDidClickSkip,
                           shared_from_this());
}
