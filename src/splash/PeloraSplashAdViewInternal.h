#pragma once

// The working part of the splash view: the loader's callbacks, the countdown timer, the
// tracker and the steps between them. Hosts see only PeloraSplashAdView.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "pelora/PeloraSplashAdView.h"
#include "pelora/platform/RunLoop.h"

class PeloraSplashAdConfig;
struct PeloraSplashAd;
class PeloraTrackEvent;

// What the splash loader tells its owner (the splash view implements it).
class PeloraSplashAdConfigDelegate {
  public:
    virtual ~PeloraSplashAdConfigDelegate() = default;
    // The request timed out (-1001).
    virtual void pl_onConfigTimeout(std::shared_ptr<PeloraSplashAdConfig> /*config*/) {}
    // Any other failure, as an error of the URL error domain with the transport's code.
    virtual void pl_onConfigFetchError(std::shared_ptr<PeloraSplashAdConfig> /*config*/,
                                       const pelora::platform::Error& /*error*/) {}
    // Success; the splash ad's `ad` is null when the answer held no ad.
    virtual void pl_onConfigFetchData(std::shared_ptr<PeloraSplashAdConfig> /*config*/,
                                      std::shared_ptr<PeloraSplashAd> /*splashAd*/) {}
};

// What each PeloraSplashAdView owns: its state, the loader's callbacks, the countdown timer,
// the tracker and the steps between them.
class PeloraSplashAdViewInternal final
    : public PeloraSplashAdConfigDelegate,
      public std::enable_shared_from_this<PeloraSplashAdViewInternal> {
  public:
    static PeloraSplashAdViewInternal& of(const PeloraSplashAdView& view) { return *view.impl_; }
    // The interface file names the public class; this makes the loader build it.
    static void registerWithNibLoader();

    // The view this belongs to; null while it is being released.
    std::shared_ptr<PeloraSplashAdView> view() const { return view_.lock(); }
    const std::shared_ptr<pelora::platform::Timer>& timer() const { return timer_; }
    const std::shared_ptr<PeloraTrackEvent>& trackEvent() const { return trackEvent_; }
    const std::shared_ptr<PeloraSplashAdConfig>& config() const { return config_; }

    // --- the loader's callbacks ----------------------------------------------------------
    void pl_onConfigTimeout(std::shared_ptr<PeloraSplashAdConfig> config) override;
    void pl_onConfigFetchError(std::shared_ptr<PeloraSplashAdConfig> config,
                               const pelora::platform::Error& error) override;
    void pl_onConfigFetchData(std::shared_ptr<PeloraSplashAdConfig> config,
                              std::shared_ptr<PeloraSplashAd> splashAd) override;

    // --- the steps -----------------------------------------------------------------------
    void configInit();
    void render(const std::shared_ptr<PeloraSplashAd>& splashAd);
    void startTimer();
    void stopTimer();
    void onTimerTrigger();
    void onSkipHandle(pelora::ui::Button& sender);
    void onTimerOver();

  private:
    friend class PeloraSplashAdView;

    std::weak_ptr<PeloraSplashAdView> view_;
    std::optional<std::string> slotID_;
    double tolerateTimeout_ = 0;
    std::weak_ptr<PeloraSplashAdViewDelegate> delegate_;
    std::weak_ptr<pelora::ui::ViewController> rootViewController_;
    bool hideSkipButton_ = false;
    int64_t countDown_ = 0;
    std::weak_ptr<pelora::ui::ImageView> imageV_;
    std::weak_ptr<pelora::ui::Label> titleL_;
    std::weak_ptr<pelora::ui::Label> countL_;
    std::weak_ptr<pelora::ui::Button> skipBtn_;
    std::weak_ptr<pelora::ui::View> skipCV_;

    std::shared_ptr<pelora::platform::Timer> timer_;
    std::shared_ptr<PeloraTrackEvent> trackEvent_;
    std::shared_ptr<PeloraSplashAdConfig> config_;
};
