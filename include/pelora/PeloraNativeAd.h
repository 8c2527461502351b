#pragma once

#include "pelora/platform/Export.h"

// One native ad handed to the host: the ad's data for the host to render in its own views,
// and the binding of those views for exposure and click tracking.

#include <memory>
#include <string>
#include <vector>

#include "pelora/PeloraApiAd.h"
#include "pelora/ui/View.h"
#include "pelora/ui/ViewController.h"

class PeloraNativeAd;
class PeloraTrackEvent;

// Callbacks of a native ad, on the main thread. Override the ones you need.
class PELORA_EXPORT PeloraNativeAdDelegate {
  public:
    virtual ~PeloraNativeAdDelegate() = default;
    // The ad was counted as exposed. The doubled "Did" is the callback's real name.
    virtual void nativeAdDidDidShow(std::shared_ptr<PeloraNativeAd> /*nativeAd*/) {}
    // The user tapped one of the registered views; comes for every tap.
    virtual void nativeAdDidClickWithView(std::shared_ptr<PeloraNativeAd> /*nativeAd*/,
                                          std::shared_ptr<pelora::ui::View> /*view*/) {}
};

class PELORA_EXPORT PeloraNativeAd final : public std::enable_shared_from_this<PeloraNativeAd> {
  public:
    // Use init(): the tracker's handlers point back to the native ad.
    PeloraNativeAd() = default;
    static std::shared_ptr<PeloraNativeAd> init();

    // The ad as delivered; adData() is the host's read-only view of the same object.
    const std::shared_ptr<PeloraApiAd>& ad() const { return ad_; }
    void setAd(std::shared_ptr<PeloraApiAd> ad) { ad_ = std::move(ad); }
    std::shared_ptr<const PeloraApiAd> adData() const { return ad_; }

    // The controller click destinations are presented from. Set it before registering.
    std::shared_ptr<pelora::ui::ViewController> rootViewController() const {
        return rootViewController_.lock();
    }
    void setRootViewController(const std::shared_ptr<pelora::ui::ViewController>& controller) {
        rootViewController_ = controller;
    }
    std::shared_ptr<PeloraNativeAdDelegate> delegate() const { return delegate_.lock(); }
    void setDelegate(const std::shared_ptr<PeloraNativeAdDelegate>& delegate) {
        delegate_ = delegate;
    }

    // Binds the ad to the host's container and tappable views. Exposure is decided now, once
    // per ad: a container that is hidden or has alpha below 0.2 at this moment is not counted
    // (register again later to re-check). Taps on the views open the ad's destination, send
    // the click tracking (once per ad) and call nativeAdDidClickWithView. Registering the
    // same views again adds no second tap handler.
    void registerContainer(const std::shared_ptr<pelora::ui::View>& container,
                           const std::vector<std::shared_ptr<pelora::ui::View>>& clickableViews);

  private:
    friend struct PeloraNativeAdInternal;  // the SDK's own access to the tracker
    std::shared_ptr<PeloraApiAd> ad_;
    std::shared_ptr<PeloraTrackEvent> trackEvent_;
    std::weak_ptr<pelora::ui::ViewController> rootViewController_;
    std::weak_ptr<PeloraNativeAdDelegate> delegate_;
};

// A plain view hosts may use as the container of a native ad; any view serves as well.
class PELORA_EXPORT PeloraNativeRenderView : public pelora::ui::View {
  public:
    using pelora::ui::View::View;
    ~PeloraNativeRenderView() override;
    std::string className() const override { return "PeloraNativeRenderView"; }
};
