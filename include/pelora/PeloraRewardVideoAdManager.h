#pragma once

#include "pelora/platform/Export.h"

// Rewarded video ads: the manager loads the ads of one slot, picks the first, downloads its
// video ahead of time when the server asks for it, and shows it on a full-screen page with
// mute, countdown, skip, close and an end page. Everything the page does reaches the host
// through the delegate, on the main run loop.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pelora/PeloraApiAd.h"
#include "pelora/PeloraNativeAd.h"
#include "pelora/PeloraSDKManager.h"
#include "pelora/platform/Error.h"
#include "pelora/platform/Http.h"
#include "pelora/ui/ViewController.h"

class PeloraRewardVideoAdManagerInternal;

// The slot the host asks a rewarded video for.
struct PELORA_EXPORT PeloraRewardVideoSlot {
    std::optional<std::string> slotId;
    // Whole seconds; the ad request's time-out.
    int64_t tolerateTimeout = kPeloraDefaultTolerateTimeout;
};

class PeloraRewardVideoAdManager;

// Callbacks of the manager, on the main thread. Override the ones you need.
//
// A typical showing: DidSuccessLoad, VideoDidLoad, then after showAdFromRootViewController
// DidShow, DidPlayFinish (the one signal that the video was watched: give the reward here)
// and DidClose. A skip replaces finish and close by DidClickSkip. DidClick may come at any
// time the page is up, once per tap.
class PELORA_EXPORT PeloraRewardVideoAdManagerDelegate {
  public:
    virtual ~PeloraRewardVideoAdManagerDelegate() = default;
    // An ad was chosen and its video has a URL.
    virtual void rewardVideoAdManagerDidSuccessLoad(
        std::shared_ptr<PeloraRewardVideoAdManager> /*manager*/) {}
    // The video can be shown: downloaded, already downloaded, or meant to be streamed.
    virtual void rewardVideoAdManagerVideoDidLoad(
        std::shared_ptr<PeloraRewardVideoAdManager> /*manager*/) {}
    // Transport failures keep the URL error domain and code (-1001 for a time-out); an
    // unusable answer gives "sdk.data.err" -1; a failed video download "sdk.data.err.download"
    // with the download's code (-999 when a newer load cancelled it); a playback that failed
    // for good the player's error, which may be absent.
    virtual void rewardVideoAdManagerDidFailWithError(
        std::shared_ptr<PeloraRewardVideoAdManager> /*manager*/,
        std::optional<pelora::platform::Error> /*error*/) {}
    virtual void rewardVideoAdManagerDidShow(
        std::shared_ptr<PeloraRewardVideoAdManager> /*manager*/) {}
    virtual void rewardVideoAdManagerDidClick(
        std::shared_ptr<PeloraRewardVideoAdManager> /*manager*/) {}
    virtual void rewardVideoAdManagerDidPlayFinish(
        std::shared_ptr<PeloraRewardVideoAdManager> /*manager*/) {}
    virtual void rewardVideoAdManagerDidClose(
        std::shared_ptr<PeloraRewardVideoAdManager> /*manager*/) {}
    virtual void rewardVideoAdManagerDidClickSkip(
        std::shared_ptr<PeloraRewardVideoAdManager> /*manager*/) {}
};

// The host's handle on one rewarded video slot. Keep it alive while a load or a showing is
// under way: completions and the page's events hold it weakly, and once it is gone the page
// plays on but nobody hears of it.
class PELORA_EXPORT PeloraRewardVideoAdManager final
    : public std::enable_shared_from_this<PeloraRewardVideoAdManager> {
    struct PrivateTag {
        explicit PrivateTag() = default;
    };

  public:
    // Made by initWithSlot() (or the inert init()) only.
    explicit PeloraRewardVideoAdManager(PrivateTag);
    ~PeloraRewardVideoAdManager();
    PeloraRewardVideoAdManager(const PeloraRewardVideoAdManager&) = delete;
    PeloraRewardVideoAdManager& operator=(const PeloraRewardVideoAdManager&) = delete;

    // The manager for one slot, with auto-play on.
    static std::shared_ptr<PeloraRewardVideoAdManager> initWithSlot(
        std::shared_ptr<PeloraRewardVideoSlot> slot);
    // Deliberately inert: no downloader, no cache, auto-play off. Not a way to make a working
    // manager.
    static std::shared_ptr<PeloraRewardVideoAdManager> init();

    std::shared_ptr<PeloraRewardVideoAdManagerDelegate> delegate() const;
    void setDelegate(const std::shared_ptr<PeloraRewardVideoAdManagerDelegate>& delegate);
    // When off, the video waits for a tap on the play button.
    bool autoPlay() const;
    void setAutoPlay(bool autoPlay);
    const std::shared_ptr<PeloraRewardVideoSlot>& adSlot() const;
    void setAdSlot(std::shared_ptr<PeloraRewardVideoSlot> slot);
    // The controller the page was last presented from.
    std::shared_ptr<pelora::ui::ViewController> rootViewController() const;
    void setRootViewController(const std::shared_ptr<pelora::ui::ViewController>& controller);

    // Starts one fetch; the outcome arrives through the delegate.
    void loadAdData();
    // Presents the page over `controller` (over full screen, so the host's content stays
    // beneath) and plays the chosen video: the downloaded file when there is one, otherwise
    // the video's URL. False when no ad or video was chosen yet. A page that is still up from
    // an earlier showing is reused.
    bool showAdFromRootViewController(
        const std::shared_ptr<pelora::ui::ViewController>& controller);

    // What was chosen, for hosts that show details before the video (title, cover).
    const std::shared_ptr<PeloraNativeAd>& toShowAd() const;
    const std::shared_ptr<PeloraRespVideoObject>& toShowVideo() const;
    // The local path of the chosen video's downloaded file, when there is one.
    std::optional<std::string> cachedVideoPath() const;

  private:
    friend class PeloraRewardVideoAdManagerInternal;
    std::shared_ptr<PeloraRewardVideoAdManagerInternal> impl_;
};
