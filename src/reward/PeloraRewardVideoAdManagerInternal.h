#pragma once

// The working part of the rewarded video manager: the steps its completions and the video
// page's events call, and the downloader, cache and page it keeps. Hosts see only
// PeloraRewardVideoAdManager.

#include <memory>
#include <optional>
#include <vector>

#include "pelora/PeloraRewardVideoAdManager.h"

class PeloraRewardVideoAdManagerInternal final : public PeloraRewardVideoAdManager {
  public:
    PeloraRewardVideoAdManagerInternal() = default;

    static PeloraRewardVideoAdManagerInternal& of(PeloraRewardVideoAdManager& manager) {
        return static_cast<PeloraRewardVideoAdManagerInternal&>(manager);
    }
    static const PeloraRewardVideoAdManagerInternal& of(const PeloraRewardVideoAdManager& manager) {
        return static_cast<const PeloraRewardVideoAdManagerInternal&>(manager);
    }

    // ---- the steps (called by completions and the page's events) ----------------------------
    void onAdLoadSuccess(const std::vector<std::shared_ptr<PeloraNativeAd>>& ads);
    void onAdLoadError(std::optional<pelora::platform::Error> error);
    static std::shared_ptr<PeloraNativeAd> bestAdForShow(
        const std::vector<std::shared_ptr<PeloraNativeAd>>& ads);
    void onVideoDidLoad();
    std::shared_ptr<PeloraPluginStatusStore> getStatusStore();
    void onVideoPlayStart();
    void onVideoPlayError();
    void onVideoPlayFinish();
    void onAdExpose();
    void onAdClick();
    void onAdTapClose();
    void onAdTapSkip();

    const std::shared_ptr<PeloraFileDownloader>& fDownloader() const { return fDownloader_; }
    const std::shared_ptr<PeloraAdCache>& fCache() const { return fCache_; }
    std::shared_ptr<PeloraVideoPlayerVC> videoPage() const { return videoPage_.lock(); }
    const std::shared_ptr<PeloraPluginStatusStore>& store() const { return store_; }
    const std::shared_ptr<pelora::platform::HttpTask>& downloadTask() const {
        return downloadTask_;
    }

  private:
    friend class PeloraRewardVideoAdManager;
    std::shared_ptr<PeloraRewardVideoAdManagerInternal> self() {
        return std::static_pointer_cast<PeloraRewardVideoAdManagerInternal>(
            weak_from_this().lock());
    }

    std::shared_ptr<PeloraFileDownloader> fDownloader_;
    std::shared_ptr<PeloraAdCache> fCache_;
    std::weak_ptr<PeloraVideoPlayerVC> videoPage_;
    std::shared_ptr<PeloraPluginStatusStore> store_;
    std::shared_ptr<pelora::platform::HttpTask> downloadTask_;
};
