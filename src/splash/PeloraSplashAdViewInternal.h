#pragma once

// The working part of the splash view: the loader's callbacks, the countdown timer, the
// tracker and the steps between them. Hosts see only PeloraSplashAdView.

#include <memory>
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

// Every PeloraSplashAdView is one of these: the interface file and initWithFrame make them.
class PeloraSplashAdViewInternal final : public PeloraSplashAdView,
                                         public PeloraSplashAdConfigDelegate {
  public:
    PeloraSplashAdViewInternal() = default;
    explicit PeloraSplashAdViewInternal(pelora::platform::Rect frame) : PeloraSplashAdView(frame) {}

    static PeloraSplashAdViewInternal& of(PeloraSplashAdView& view) {
        return static_cast<PeloraSplashAdViewInternal&>(view);
    }
    static const PeloraSplashAdViewInternal& of(const PeloraSplashAdView& view) {
        return static_cast<const PeloraSplashAdViewInternal&>(view);
    }
    // The interface file names the public class; this makes the loader build this one.
    static void registerWithNibLoader();

    const std::shared_ptr<pelora::platform::Timer>& timer() const { return timer_; }
    const std::shared_ptr<PeloraTrackEvent>& trackEvent() const { return trackEvent_; }
    const std::shared_ptr<PeloraSplashAdConfig>& config() const { return config_; }

    // --- the loader's callbacks ----------------------------------------------------------
    void pl_onConfigTimeout(std::shared_ptr<PeloraSplashAdConfig> config) override;
    void pl_onConfigFetchError(std::shared_ptr<PeloraSplashAdConfig> config,
                               const pelora::platform::Error& error) override;
    void pl_onConfigFetchData(std::shared_ptr<PeloraSplashAdConfig> config,
                              std::shared_ptr<PeloraSplashAd> splashAd) override;

    // --- interface file ------------------------------------------------------------------
    void awakeFromNib() override;
    void setOutlet(const std::string& name, std::shared_ptr<pelora::ui::View> view) override;

    // --- the steps -----------------------------------------------------------------------
    void configInit();
    void render(const std::shared_ptr<PeloraSplashAd>& splashAd);
    void startTimer();
    void stopTimer();
    void onTimerTrigger();
    void onSkipHandle(pelora::ui::Button& sender);
    void onTimerOver();

    std::string describeDetails() const override;

  private:
    friend class PeloraSplashAdView;
    std::shared_ptr<PeloraSplashAdViewInternal> self();

    std::shared_ptr<pelora::platform::Timer> timer_;
    std::shared_ptr<PeloraTrackEvent> trackEvent_;
    std::shared_ptr<PeloraSplashAdConfig> config_;
};
