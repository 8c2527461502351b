#pragma once

// The full-screen page a rewarded video plays on: the player view, a row of controls (mute,
// countdown, skip after the ad's delay, close at the end) and the end page. It tracks the ad
// (exposure, clicks, video events) and fires named events that its manager listens to.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "pelora/PeloraApiAd.h"
#include "pelora/PeloraNativeAd.h"
#include "track/PeloraPluginStatusStore.h"
#include "pelora/ui/Button.h"
#include "pelora/ui/ImageView.h"
#include "pelora/ui/ViewController.h"
#include "pelora/ui/WebView.h"
#include "reward/PeloraVideoPlayerView.h"

class PeloraTrackEvent;

// Base of the SDK's full-screen pages: hides the navigation bar of its container.
class PeloraRootViewController : public pelora::ui::ViewController {
  public:
    PeloraRootViewController() { configInit(); }
    std::string className() const override { return "PeloraRootViewController"; }

    bool hideNavBar() const { return hideNavBar_; }
    void setHideNavBar(bool hide) { hideNavBar_ = hide; }

    void viewWillAppear(bool animated) override;

  private:
    void configInit() { hideNavBar_ = true; }
    bool hideNavBar_ = false;
};

// The navigation container the page is presented in; nothing of its own.
class PeloraRootNavVC : public pelora::ui::NavigationController {
  public:
    static std::shared_ptr<PeloraRootNavVC> initWithRootViewController(
        std::shared_ptr<pelora::ui::ViewController> root);
    std::string className() const override { return "PeloraRootNavVC"; }
};

class PeloraVideoPlayerVC : public PeloraRootViewController {
  public:
    PeloraVideoPlayerVC() = default;
    ~PeloraVideoPlayerVC() override;
    std::string className() const override { return "PeloraVideoPlayerVC"; }

    // A new page whose view comes from the bundle's interface file of the same name.
    static std::shared_ptr<PeloraVideoPlayerVC> instance();

    bool autoPlay() const { return autoPlay_; }
    void setAutoPlay(bool autoPlay) { autoPlay_ = autoPlay; }

    // The manager's entry point. The last argument is the downloaded file's URL (absent:
    // stream the video's own URL). The page holds the video, the ad and the store weakly.
    void loadVideo(const std::shared_ptr<PeloraRespVideoObject>& video,
                   const std::shared_ptr<PeloraNativeAd>& ad,
                   const std::shared_ptr<PeloraPluginStatusStore>& store,
                   const std::optional<std::string>& hadCacheFile);
    std::optional<pelora::platform::Error> playItemError() const;

    // ---- parts (from the interface file) ----------------------------------------------------
    std::shared_ptr<pelora::ui::Button> bellBtn() const { return bellBtn_.lock(); }
    std::shared_ptr<pelora::ui::Button> timeBtn() const { return timeBtn_.lock(); }
    std::shared_ptr<pelora::ui::Button> skipBtn() const { return skipBtn_.lock(); }
    std::shared_ptr<pelora::ui::Button> closeBtn() const { return closeBtn_.lock(); }
    std::shared_ptr<pelora::ui::ImageView> endImageV() const { return endImageV_.lock(); }
    std::shared_ptr<pelora::ui::Button> endButton() const { return endButton_.lock(); }
    std::shared_ptr<PeloraVideoPlayerView> playerView() const { return playerView_.lock(); }
    // Makes a blank web view above the player view on every call while none is stored, and
    // returns the stored one, which stays absent: the end page's HTML is never loaded.
    std::shared_ptr<pelora::ui::WebView> endWebView();

    std::shared_ptr<PeloraRespVideoObject> video() const { return video_.lock(); }
    std::shared_ptr<PeloraNativeAd> nad() const { return nad_.lock(); }
    std::shared_ptr<PeloraPluginStatusStore> store() const { return store_.lock(); }
    const std::optional<std::string>& fileCache() const { return fileCache_; }
    const std::shared_ptr<PeloraTrackEvent>& trackEvent() const { return trackEvent_; }
    bool mute() const { return mute_; }

    // ---- view controller --------------------------------------------------------------------
    void loadView() override;
    void viewDidLoad() override;
    void viewWillAppear(bool animated) override;
    void viewWillDisappear(bool animated) override;

    // ---- internal steps ---------------------------------------------------------------------
    void configUI();
    void _real_loadVideo(const std::shared_ptr<PeloraRespVideoObject>& video,
                         const std::shared_ptr<PeloraNativeAd>& ad,
                         const std::shared_ptr<PeloraPluginStatusStore>& store,
                         const std::optional<std::string>& hadCacheFile);
    void onVideoStatusChange();
    void onVideoPlayTime(int64_t total, int64_t current);
    void hideControlView();
    void hideAllBtn();
    void jumpToEndPage();
    void realClose();
    void triggerName(const std::string& name);
    void onBellTap();
    void onSkipTap();
    void onCloseTap();
    void onAdExpose();
    void onAdClick();
    void onStatusWait();
    void onStatusIdle();
    void onStatusStart();
    void onStatusSuspend();
    void onStatusResume();
    void onStatusPlayError();
    void onStatusPlayFinish();
    void uploadTrackEvent(int64_t event, int8_t PLAY_FIRSR_FRAME, int8_t PLAY_LAST_FRAME,
                          int8_t VIDEO_SCENE, int8_t playType, int8_t playStatus);

  private:
    std::shared_ptr<PeloraVideoPlayerVC> self();
    void wireButton(const std::shared_ptr<pelora::ui::Button>& button,
                    void (PeloraVideoPlayerVC::*action)());

    bool autoPlay_ = false;
    std::weak_ptr<pelora::ui::Button> bellBtn_;
    std::weak_ptr<pelora::ui::Button> timeBtn_;
    std::weak_ptr<pelora::ui::Button> skipBtn_;
    std::weak_ptr<pelora::ui::Button> closeBtn_;
    std::weak_ptr<pelora::ui::ImageView> endImageV_;
    std::weak_ptr<pelora::ui::Button> endButton_;
    std::shared_ptr<pelora::ui::WebView> endWebView_;
    std::weak_ptr<PeloraVideoPlayerView> playerView_;
    std::weak_ptr<PeloraRespVideoObject> video_;
    std::weak_ptr<PeloraNativeAd> nad_;
    std::weak_ptr<PeloraPluginStatusStore> store_;
    std::optional<std::string> fileCache_;
    std::shared_ptr<PeloraTrackEvent> trackEvent_;
    bool mute_ = false;
};

// The leading decimal number of a text (blanks and a sign allowed before it), 0 without one;
// clamped to 32 bits. How the server's video duration text is read.
int32_t pl_leadingInteger(const std::optional<std::string>& text);
