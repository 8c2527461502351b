#pragma once

// The working part of the rewarded video manager: its state, the steps its completions and the
// video page's events call, and the downloader, cache and page it keeps. Each manager owns one;
// hosts see only PeloraRewardVideoAdManager.

#include <memory>
#include <optional>
#include <vector>

#include "core/PeloraConfig.h"
#include "pelora/PeloraRewardVideoAdManager.h"

class PeloraAdCache;
class PeloraFileDownloader;
class PeloraPluginStatusStore;
class PeloraVideoPlayerVC;

class PeloraRewardVideoAdManagerInternal final
    : public PeloraConfig,
      public std::enable_shared_from_this<PeloraRewardVideoAdManagerInternal> {
  public:
    PeloraRewardVideoAdManagerInternal() : PeloraConfig("PeloraRewardVideoAdManager") {}

    static PeloraRewardVideoAdManagerInternal& of(const PeloraRewardVideoAdManager& manager) {
        return *manager.impl_;
    }
    // The manager this belongs to; null while it is being released.
    std::shared_ptr<PeloraRewardVideoAdManager> owner() const { return owner_.lock(); }

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
    std::shared_ptr<PeloraRewardVideoAdManagerInternal> self() { return shared_from_this(); }

    std::weak_ptr<PeloraRewardVideoAdManager> owner_;
    std::weak_ptr<PeloraRewardVideoAdManagerDelegate> delegate_;
    std::weak_ptr<pelora::ui::ViewController> rootViewController_;
    bool autoPlay_ = false;
    std::shared_ptr<PeloraRewardVideoSlot> adSlot_;
    std::shared_ptr<PeloraNativeAd> toShowAd_;
    std::shared_ptr<PeloraRespVideoObject> toShowVideo_;

    std::shared_ptr<PeloraFileDownloader> fDownloader_;
    std::shared_ptr<PeloraAdCache> fCache_;
    std::weak_ptr<PeloraVideoPlayerVC> videoPage_;
    std::shared_ptr<PeloraPluginStatusStore> store_;
    std::shared_ptr<pelora::platform::HttpTask> downloadTask_;
};
