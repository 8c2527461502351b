#include "pelora/PeloraRewardVideoAdManager.h"

#include <cmath>
#include <utility>

#include "core/PeloraAdKinds.h"
#include "core/PeloraNetwork.h"
#include "core/PeloraRequest.h"
#include "pelora/PeloraPluginStatusStore.h"
#include "pelora/platform/Log.h"
#include "pelora/platform/Services.h"
#include "reward/PeloraAdCache.h"
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
    auto manager = std::make_shared<PeloraRewardVideoAdManager>();
    manager->adSlot_ = std::move(slot);
    manager->fDownloader_ = PeloraFileDownloader::init();
    manager->fCache_ = PeloraAdCache::init();
    manager->autoPlay_ = true;
    return manager;
}

std::shared_ptr<PeloraRewardVideoAdManager> PeloraRewardVideoAdManager::init() {
    return std::make_shared<PeloraRewardVideoAdManager>();
}

std::optional<std::string> PeloraRewardVideoAdManager::cachedVideoPath() const {
    if (!fCache_ || !toShowVideo_) return std::nullopt;
    return fCache_->filePathForRequestUrl(toShowVideo_->videoUrl);
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

    std::weak_ptr<PeloraRewardVideoAdManager> weakSelf = weak_from_this();
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

std::shared_ptr<PeloraNativeAd> PeloraRewardVideoAdManager::bestAdForShow(
    const std::vector<std::shared_ptr<PeloraNativeAd>>& ads) {
    // The server's order decides; no other ad is considered, even one with a video.
    return ads.empty() ? nullptr : ads.front();
}

void PeloraRewardVideoAdManager::onAdLoadSuccess(
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
    std::weak_ptr<PeloraRewardVideoAdManager> weakSelf = self;
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

void PeloraRewardVideoAdManager::onVideoDidLoad() {
    PeloraTool::safeTarget(delegate_,
                           &PeloraRewardVideoAdManagerDelegate::rewardVideoAdManagerVideoDidLoad,
                           shared_from_this());
}

void PeloraRewardVideoAdManager::onAdLoadError(std::optional<Error> error) {
    PeloraTool::safeTarget(
        delegate_, &PeloraRewardVideoAdManagerDelegate::rewardVideoAdManagerDidFailWithError,
        shared_from_this(), std::move(error));
}

// ---- showing ---------------------------------------------------------------------------------

bool PeloraRewardVideoAdManager::showAdFromRootViewController(
    const std::shared_ptr<pelora::ui::ViewController>& controller) {
    PELORA_DCHECK_ON_MAIN_THREAD("PeloraRewardVideoAdManager::showAdFromRootViewController");
    if (!toShowAd_ || !toShowVideo_) return false;
    rootViewController_ = controller;
    auto page = videoPage_.lock();
    if (!page) {
        page = PeloraVideoPlayerVC::instance();
        videoPage_ = page;
        auto nav = PeloraRootNavVC::initWithRootViewController(page);
        // Over full screen, so the host's content stays beneath the page.
        nav->setModalPresentationStyle(pelora::ui::ModalPresentationStyle::OverFullScreen);
        if (controller) controller->presentViewController(nav, true, nullptr);
    }
    page->setAutoPlay(autoPlay_);
    store_ = getStatusStore();
    std::optional<std::string> fileURL;
    if (fCache_) {
        auto path = fCache_->filePathForRequestUrl(toShowVideo_->videoUrl);
        if (!PeloraTool::stringIsEmpty(path)) fileURL = pl_fileURLWithPath(*path);
    }
    page->loadVideo(toShowVideo_, toShowAd_, store_, fileURL);
    return true;
}

std::shared_ptr<PeloraPluginStatusStore> PeloraRewardVideoAdManager::getStatusStore() {
    auto store = PeloraPluginStatusStore::init();
    std::weak_ptr<PeloraRewardVideoAdManager> weakSelf = weak_from_this();
    auto task = [weakSelf](void (PeloraRewardVideoAdManager::*handler)()) {
        return [weakSelf, handler] {
            if (auto strong = weakSelf.lock()) ((*strong).*handler)();
        };
    };
    store->addEvent(kPlayerStatusStart, task(&PeloraRewardVideoAdManager::onVideoPlayStart));
    store->addEvent(kPlayerStatusPlayError, task(&PeloraRewardVideoAdManager::onVideoPlayError));
    store->addEvent(kPlayerStatusPlayFinish, task(&PeloraRewardVideoAdManager::onVideoPlayFinish));
    store->addEvent(kAdExpose, task(&PeloraRewardVideoAdManager::onAdExpose));
    store->addEvent(kAdClick, task(&PeloraRewardVideoAdManager::onAdClick));
    store->addEvent(kAdTapClose, task(&PeloraRewardVideoAdManager::onAdTapClose));
    store->addEvent(kAdTapSkip, task(&PeloraRewardVideoAdManager::onAdTapSkip));
    return store;
}

// ---- the page's events -----------------------------------------------------------------------

void PeloraRewardVideoAdManager::onVideoPlayStart() {
    // Deliberately silent: the host hears of the start through nothing.
}

void PeloraRewardVideoAdManager::onVideoPlayError() {
    std::optional<Error> error;
    if (auto page = videoPage_.lock()) error = page->playItemError();
    onAdLoadError(std::move(error));
}

void PeloraRewardVideoAdManager::onVideoPlayFinish() {
    PeloraTool::safeTarget(delegate_,
                           &PeloraRewardVideoAdManagerDelegate::rewardVideoAdManagerDidPlayFinish,
                           shared_from_this());
}

void PeloraRewardVideoAdManager::onAdExpose() {
    PeloraTool::safeTarget(delegate_,
                           &PeloraRewardVideoAdManagerDelegate::rewardVideoAdManagerDidShow,
                           shared_from_this());
}

void PeloraRewardVideoAdManager::onAdClick() {
    PeloraTool::safeTarget(delegate_,
                           &PeloraRewardVideoAdManagerDelegate::rewardVideoAdManagerDidClick,
                           shared_from_this());
}

void PeloraRewardVideoAdManager::onAdTapClose() {
    PeloraTool::safeTarget(delegate_,
                           &PeloraRewardVideoAdManagerDelegate::rewardVideoAdManagerDidClose,
                           shared_from_this());
}

void PeloraRewardVideoAdManager::onAdTapSkip() {
    PeloraTool::safeTarget(delegate_,
                           &PeloraRewardVideoAdManagerDelegate::rewardVideoAdManagerDidClickSkip,
                           shared_from_this());
}
