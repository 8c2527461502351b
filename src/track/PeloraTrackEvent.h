#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pelora/PeloraApiAd.h"
#include "pelora/ui/GestureRecognizer.h"
#include "pelora/ui/View.h"
#include "pelora/ui/ViewController.h"
#include "track/PeloraInterInteractHandle.h"
#include "track/PeloraTrackReplace.h"

// Marks a recognizer as the tracker's by its class alone.
class _PeloraApiTapGesture : public pelora::ui::TapGestureRecognizer {
  public:
    using pelora::ui::TapGestureRecognizer::TapGestureRecognizer;
    std::string className() const override { return "_PeloraApiTapGesture"; }
};

// Track type codes.
namespace PeloraTrackType {
inline constexpr int64_t kImpression = 1;
inline constexpr int64_t kClick = 2;
inline constexpr int64_t kClose = 8;
inline constexpr int64_t kDeepLinkFailed = 16;
inline constexpr int64_t kDeepLinkOpened = 17;
inline constexpr int64_t kVideoStart = 31;
inline constexpr int64_t kVideoFirstQuartile = 32;
inline constexpr int64_t kVideoMidpoint = 33;
inline constexpr int64_t kVideoThirdQuartile = 34;
inline constexpr int64_t kVideoComplete = 35;
inline constexpr int64_t kSkip = 36;
inline constexpr int64_t kPlayError = 40;
inline constexpr int64_t kMute = 41;
}  // namespace PeloraTrackType

// The per-ad tracker: binds an ad to its container and clickable views, decides exposure
// once, turns exposure, clicks, deep-link outcomes and video events into tracking requests,
// opens click destinations and tells its owner about exposure and clicks. Tracking is fire
// and forget. The once-only marks live on the ad, so a second tracker of the same ad object
// repeats nothing. Main thread only.
class PeloraTrackEvent : public std::enable_shared_from_this<PeloraTrackEvent> {
  public:
    using AdExposedHandler = std::function<void(std::shared_ptr<PeloraApiAd> ad)>;
    using AdClickedHandler = std::function<void(std::shared_ptr<pelora::ui::View> view,
                                                std::shared_ptr<PeloraApiAd> ad)>;
    using ReplaceModifier = std::function<void(PeloraTrackReplace& replace)>;

    // Use init(): the interaction handler points back to the tracker.
    PeloraTrackEvent() = default;
    static std::shared_ptr<PeloraTrackEvent> init();

    const AdExposedHandler& onAdExposed() const { return onAdExposed_; }
    void setOnAdExposed(AdExposedHandler handler) { onAdExposed_ = std::move(handler); }
    const AdClickedHandler& onAdClicked() const { return onAdClicked_; }
    void setOnAdClicked(AdClickedHandler handler) { onAdClicked_ = std::move(handler); }
    std::shared_ptr<pelora::ui::ViewController> adRootVC() const { return adRootVC_.lock(); }
    void setAdRootVC(const std::shared_ptr<pelora::ui::ViewController>& vc) { adRootVC_ = vc; }
    const std::shared_ptr<PeloraInterInteractHandle>& interact() const { return interact_; }
    std::shared_ptr<pelora::ui::View> adView() const { return adView_.lock(); }
    const std::shared_ptr<PeloraApiAd>& ad() const { return ad_; }

    void bindAd(std::shared_ptr<PeloraApiAd> ad, const std::shared_ptr<pelora::ui::View>& container,
                const std::vector<std::shared_ptr<pelora::ui::View>>& clickViewList);
    void sendImpression();
    void triggerInteraction();
    void triggerTrackAdVideo(const std::shared_ptr<PeloraRespVideoObject>& video,
                             const ReplaceModifier& modifier, int64_t event);

    std::shared_ptr<PeloraRespTrackObject> getTrackVOByEvent(int64_t event) const;
    std::shared_ptr<PeloraTrackReplace> defalutReplace() const;
    void replaceUrlUploadTrack(const std::shared_ptr<PeloraRespTrackObject>& track,
                               const PeloraTrackReplace& replace);
    void get(const std::string& url, const std::optional<std::string>& contentType,
             int64_t trackType);
    void post(const std::string& url, const std::optional<std::string>& contentType,
              std::string body, int64_t trackType);
    // Completion of every tracking request: answers are not looked at.
    void onResponse(const std::optional<std::string>& response, int64_t code, int64_t trackType,
                    const std::string& req);

    void onInteractClick();
    void onInteractClickWithReplace(const std::shared_ptr<PeloraTrackReplace>& replace);
    void _onInteractDeepLink(const std::string& deeplink,
                             const std::shared_ptr<PeloraTrackReplace>& replace);
    void _onInteractLandPage(const std::optional<std::string>& url);
    void trackDeepLinkFailWithReplace(const std::shared_ptr<PeloraTrackReplace>& replace);
    void trackDeepLinkSuccessWithReplace(const std::shared_ptr<PeloraTrackReplace>& replace);
    void _handleAdClick(pelora::ui::TapGestureRecognizer& recognizer);

    // Operations are never invoked by name from outside: this does nothing and returns null.
    std::shared_ptr<void> performSelector(const std::string& selector,
                                          std::shared_ptr<void> object);

  private:
    void stamp(PeloraTrackReplace& replace) const;
    void trackDeepLinkOutcome(int64_t code, const std::shared_ptr<PeloraTrackReplace>& replace);

    AdExposedHandler onAdExposed_;
    AdClickedHandler onAdClicked_;
    std::weak_ptr<pelora::ui::ViewController> adRootVC_;
    std::shared_ptr<PeloraInterInteractHandle> interact_;
    std::weak_ptr<pelora::ui::View> adView_;
    std::shared_ptr<PeloraApiAd> ad_;
};
