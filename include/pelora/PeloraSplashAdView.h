#pragma once

#include "pelora/platform/Export.h"

// The splash ad: a full-screen view the host puts over its launch screen. It loads one ad,
// shows its image (or its title), counts down five seconds next to a skip button, reports
// exposure and clicks, and tells its delegate what happens. It never removes itself: the host
// removes it after the countdown ended, after a skip or after a click.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "pelora/PeloraApiAd.h"
#include "pelora/platform/Error.h"
#include "pelora/platform/Geometry.h"
#include "pelora/ui/Button.h"
#include "pelora/ui/ImageView.h"
#include "pelora/ui/Label.h"
#include "pelora/ui/View.h"
#include "pelora/ui/ViewController.h"

class PeloraSplashAdView;

// Callbacks of the splash view, all on the main thread and synchronous. Override the ones you
// need; the others do nothing.
class PELORA_EXPORT PeloraSplashAdViewDelegate {
  public:
    virtual ~PeloraSplashAdViewDelegate() = default;
    // An ad arrived; rendering (countdown, image, exposure) starts right after this returns.
    virtual void splashAdDidLoad(std::shared_ptr<PeloraSplashAdView> /*splashAd*/) {}
    // Time-out, transport or server failure, or an answer without a usable ad.
    virtual void splashAdDidFailWithError(std::shared_ptr<PeloraSplashAdView> /*splashAd*/,
                                          const pelora::platform::Error& /*error*/) {}
    // The ad was counted as exposed (at most once, while rendering).
    virtual void splashAdDidShow(std::shared_ptr<PeloraSplashAdView> /*splashAd*/) {}
    // The user tapped the ad; the countdown has stopped. Comes for every tap.
    virtual void splashAdDidClick(std::shared_ptr<PeloraSplashAdView> /*splashAd*/) {}
    // The user tapped skip; the countdown has stopped.
    virtual void splashAdDidClickSkip(std::shared_ptr<PeloraSplashAdView> /*splashAd*/) {}
    // The countdown reached 0.
    virtual void splashAdTimeOver(std::shared_ptr<PeloraSplashAdView> /*splashAd*/) {}
};

class PeloraSplashAdViewInternal;

class PELORA_EXPORT PeloraSplashAdView final : public pelora::ui::View {
    struct PrivateTag {
        explicit PrivateTag() = default;
    };

  public:
    // Made by initWithSlotID() (or initWithFrame()) only.
    PeloraSplashAdView(PrivateTag, pelora::platform::Rect frame);
    ~PeloraSplashAdView() override;

    // Loads the interface file "PeloraSplashAdView" from the SDK's resource bundle and sets
    // the slot and frame. Null when the bundle or the file is missing.
    static std::shared_ptr<PeloraSplashAdView> initWithSlotID(const std::string& slotID,
                                                              pelora::platform::Rect frame);
    // A bare view with no sub-views and no set-up: not a working splash view.
    static std::shared_ptr<PeloraSplashAdView> initWithFrame(pelora::platform::Rect frame);

    std::string className() const override { return "PeloraSplashAdView"; }

    // Starts the load. The time-out is the ad request's only limit; the image download
    // that follows the load is not bounded by it.
    void loadAdData();

    // --- properties ----------------------------------------------------------------------
    const std::optional<std::string>& slotID() const;
    void setSlotID(std::optional<std::string> slotID);
    // Seconds; truncated to whole seconds when the load starts (2.9 gives 2).
    double tolerateTimeout() const;
    void setTolerateTimeout(double seconds);
    std::shared_ptr<PeloraSplashAdViewDelegate> delegate() const;
    void setDelegate(const std::shared_ptr<PeloraSplashAdViewDelegate>& delegate);
    // The controller click destinations (landing pages) are presented from; held weakly.
    std::shared_ptr<pelora::ui::ViewController> rootViewController() const;
    void setRootViewController(const std::shared_ptr<pelora::ui::ViewController>& controller);
    bool hideSkipButton() const;
    // Hides or shows the countdown label, the skip button and their container together.
    void setHideSkipButton(bool hide);
    int64_t countDown() const;
    void setCountDown(int64_t seconds);
    // The ad the view shows (after splashAdDidLoad), read-only; null before.
    std::shared_ptr<const PeloraApiAd> adData() const;

    // Sub-views from the interface file (owned by the view tree).
    std::shared_ptr<pelora::ui::ImageView> imageV() const;
    std::shared_ptr<pelora::ui::Label> titleL() const;
    std::shared_ptr<pelora::ui::Label> countL() const;
    std::shared_ptr<pelora::ui::Button> skipBtn() const;
    std::shared_ptr<pelora::ui::View> skipCV() const;

    // --- interface file (called by the loader) -------------------------------------------
    void awakeFromNib() override;
    void setOutlet(const std::string& name, std::shared_ptr<pelora::ui::View> view) override;
    std::string describeDetails() const override;

  private:
    friend class PeloraSplashAdViewInternal;
    std::shared_ptr<PeloraSplashAdViewInternal> impl_;
};
