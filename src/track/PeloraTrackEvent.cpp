#include "track/PeloraTrackEvent.h"

#include <cmath>
#include <limits>

#include "core/PeloraNetwork.h"
#include "pelora/platform/Log.h"
#include "pelora/platform/Services.h"
#include "support/PeloraTool.h"

namespace {

// Truncation toward zero that cannot overflow: geometry is a double and may be anything.
template <class Int>
Int truncated(double v) {
    if (std::isnan(v)) return 0;
    const double t = std::trunc(v);
    if (t <= static_cast<double>(std::numeric_limits<Int>::min()))
        return std::numeric_limits<Int>::min();
    if (t >= static_cast<double>(std::numeric_limits<Int>::max()))
        return std::numeric_limits<Int>::max();
    return static_cast<Int>(t);
}

bool isPostMethod(const std::optional<std::string>& method) {
    if (!method || method->size() != 4) return false;
    static const char kPost[] = "POST";
    for (size_t i = 0; i < 4; ++i) {
        char c = (*method)[i];
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
        if (c != kPost[i]) return false;
    }
    return true;
}

PeloraRequestModifier contentTypeModifier(const std::optional<std::string>& contentType) {
    return [contentType](pelora::platform::HttpRequest& request) {
        if (PeloraTool::stringIsEmpty(contentType)) return;
        // The type comes from the ad server: one that would break the header line (and so
        // add headers of its own) is dropped, and the request goes without it.
        if (contentType->find_first_of(std::string("\r\n\0", 3)) != std::string::npos) {
            pelora::platform::log(pelora::platform::LogLevel::Warning,
                                  "sdk: tracking content type with a line break ignored");
            return;
        }
        request.setValue(*contentType, "Content-Type");
    };
}

}  // namespace

std::shared_ptr<PeloraTrackEvent> PeloraTrackEvent::init() {
    auto tracker = std::make_shared<PeloraTrackEvent>();
    tracker->interact_ = std::make_shared<PeloraInterInteractHandle>();
    tracker->interact_->setEventTrack(tracker);
    return tracker;
}

void PeloraTrackEvent::bindAd(std::shared_ptr<PeloraApiAd> ad,
                              const std::shared_ptr<pelora::ui::View>& container,
                              const std::vector<std::shared_ptr<pelora::ui::View>>& clickViewList) {
    adView_ = container;
    ad_ = std::move(ad);

    std::weak_ptr<PeloraTrackEvent> weakSelf = weak_from_this();
    for (const auto& view : clickViewList) {
        if (!view) continue;
        bool marked = false;
        for (const auto& r : view->gestureRecognizers())
            if (dynamic_cast<_PeloraApiTapGesture*>(r.get())) marked = true;
        // A view keeps the recognizer (and so the tracker) it got first.
        if (marked) continue;
        auto tap = std::make_shared<_PeloraApiTapGesture>(
            [weakSelf](pelora::ui::TapGestureRecognizer& recognizer) {
                if (auto self = weakSelf.lock()) self->_handleAdClick(recognizer);
            });
        view->addGestureRecognizer(tap);
        view->setUserInteractionEnabled(true);
    }

    // Exposure is decided here and only here.
    if (ad_ && !ad_->exposed_upload && container && !container->hidden() &&
        container->alpha() >= 0.2) {
        sendImpression();
        ad_->exposed_upload = true;
    }
}

void PeloraTrackEvent::sendImpression() {
    auto track = getTrackVOByEvent(PeloraTrackType::kImpression);
    if (!track) return;
    auto replace = defalutReplace();
    stamp(*replace);
    replaceUrlUploadTrack(track, *replace);
    if (onAdExposed_) onAdExposed_(ad_);
}

void PeloraTrackEvent::triggerInteraction() {
    onInteractClick();
}

void PeloraTrackEvent::triggerTrackAdVideo(const std::shared_ptr<PeloraRespVideoObject>& video,
                                           const ReplaceModifier& modifier, int64_t event) {
    if (event == PeloraTrackType::kClick || !ad_ || !video) return;
    bool ofThisAd = false;
    if (ad_->videos)
        for (const auto& v : *ad_->videos)
            if (v == video) ofThisAd = true;
    if (!ofThisAd) return;
    if (ad_->isUploaded(event)) return;
    // Not marked when missing: the object may still come with a later answer.
    auto track = getTrackVOByEvent(event);
    if (!track) return;
    auto replace = defalutReplace();
    stamp(*replace);
    if (modifier) modifier(*replace);
    replaceUrlUploadTrack(track, *replace);
    ad_->markUploaded(event);
}

std::shared_ptr<PeloraRespTrackObject> PeloraTrackEvent::getTrackVOByEvent(int64_t event) const {
    if (!ad_) return nullptr;
    const auto& list = ad_->adTrackVO();
    if (!list) return nullptr;
    for (const auto& track : *list)
        if (track && track->trackType == event) return track;
    return nullptr;
}

std::shared_ptr<PeloraTrackReplace> PeloraTrackEvent::defalutReplace() const {
    auto replace = std::make_shared<PeloraTrackReplace>();
    if (ad_) {
        replace->__REQ_WIDTH__ = ad_->reqSlotW;
        replace->__REQ_HEIGHT__ = ad_->reqSlotH;
    }
    auto container = adView();
    replace->__WIDTH__ = container ? truncated<int32_t>(container->bounds().width()) : 0;
    replace->__HEIGHT__ = container ? truncated<int32_t>(container->bounds().height()) : 0;
    return replace;
}

void PeloraTrackEvent::stamp(PeloraTrackReplace& replace) const {
    const int64_t now =
        truncated<int64_t>(pelora::platform::services().clock->wallSeconds() * 1000.0);
    replace.__TS__ = now;
    replace.__EVENT_TIME_START__ = now;
    replace.__EVENT_TIME_END__ = now;
    replace.__ACTION_ID__ = -1;
    replace.__CLICK_ID__ = "-1";
}

void PeloraTrackEvent::replaceUrlUploadTrack(const std::shared_ptr<PeloraRespTrackObject>& track,
                                             const PeloraTrackReplace& replace) {
    if (!track) return;
    static const std::vector<std::string> kNoUrls;
    const auto& urls = track->urls ? *track->urls : kNoUrls;
    if (isPostMethod(track->method)) {
        const std::string body =
            track->content ? replace.replacedString(*track->content) : std::string();
        for (const auto& url : urls)
            post(replace.replacedString(url), track->contentType, body, track->trackType);
    } else {
        for (const auto& url : urls)
            get(replace.replacedString(url), track->contentType, track->trackType);
    }
}

void PeloraTrackEvent::get(const std::string& url, const std::optional<std::string>& contentType,
                           int64_t trackType) {
    std::weak_ptr<PeloraTrackEvent> weakSelf = weak_from_this();
    PeloraNetwork::get(url, nullptr, contentTypeModifier(contentType),
                       [weakSelf, trackType, url](int64_t code, std::optional<std::string>,
                                                  std::optional<std::string> resp) {
                           if (auto self = weakSelf.lock())
                               self->onResponse(resp, code, trackType, url);
                       });
}

void PeloraTrackEvent::post(const std::string& url, const std::optional<std::string>& contentType,
                            std::string body, int64_t trackType) {
    std::weak_ptr<PeloraTrackEvent> weakSelf = weak_from_this();
    PeloraNetwork::post(url, std::optional<std::string>(std::move(body)),
                        contentTypeModifier(contentType),
                        [weakSelf, trackType, url](int64_t code, std::optional<std::string>,
                                                   std::optional<std::string> resp) {
                            if (auto self = weakSelf.lock())
                                self->onResponse(resp, code, trackType, url);
                        });
}

void PeloraTrackEvent::onResponse(const std::optional<std::string>&, int64_t, int64_t,
                                  const std::string&) {}

void PeloraTrackEvent::onInteractClick() {
    auto replace = defalutReplace();
    stamp(*replace);
    onInteractClickWithReplace(replace);
}

void PeloraTrackEvent::onInteractClickWithReplace(
    const std::shared_ptr<PeloraTrackReplace>& replace) {
    if (!ad_) return;
    if (!PeloraTool::stringIsEmpty(ad_->deeplink)) {
        _onInteractDeepLink(*ad_->deeplink, replace);
    } else if (!PeloraTool::stringIsEmpty(ad_->clickAdUrl)) {
        _onInteractLandPage(ad_->clickAdUrl);
    }
}

void PeloraTrackEvent::_onInteractDeepLink(const std::string& deeplink,
                                           const std::shared_ptr<PeloraTrackReplace>& replace) {
    std::weak_ptr<PeloraTrackEvent> weakSelf = weak_from_this();
    interact_->openDeepLink(deeplink, [weakSelf, replace](bool success) {
        auto self = weakSelf.lock();
        if (!self) return;
        if (!success) {
            self->_onInteractLandPage(self->ad_ ? self->ad_->clickAdUrl : std::nullopt);
            self->trackDeepLinkFailWithReplace(replace);
        } else {
            self->trackDeepLinkSuccessWithReplace(replace);
        }
    });
}

void PeloraTrackEvent::_onInteractLandPage(const std::optional<std::string>& url) {
    if (PeloraTool::stringIsEmpty(url) || !ad_) return;
    if (ad_->interactionType == 2)
        interact_->openWebView(*url);
    else
        interact_->openSafari(*url);
}

void PeloraTrackEvent::trackDeepLinkFailWithReplace(
    const std::shared_ptr<PeloraTrackReplace>& replace) {
    trackDeepLinkOutcome(PeloraTrackType::kDeepLinkFailed, replace);
}

void PeloraTrackEvent::trackDeepLinkSuccessWithReplace(
    const std::shared_ptr<PeloraTrackReplace>& replace) {
    trackDeepLinkOutcome(PeloraTrackType::kDeepLinkOpened, replace);
}

void PeloraTrackEvent::trackDeepLinkOutcome(int64_t code,
                                            const std::shared_ptr<PeloraTrackReplace>& replace) {
    auto track = getTrackVOByEvent(code);
    if (!track || !ad_ || ad_->isUploaded(code)) return;
    replaceUrlUploadTrack(track, replace ? *replace : PeloraTrackReplace());
    ad_->markUploaded(code);
}

void PeloraTrackEvent::_handleAdClick(pelora::ui::TapGestureRecognizer& recognizer) {
    auto tapped = recognizer.view();
    if (!tapped) return;
    auto replace = defalutReplace();
    auto container = adView();
    // Measured in the container, whichever bound view was tapped.
    auto location = recognizer.locationInView(container.get());
    const int32_t x = truncated<int32_t>(location.x);
    const int32_t y = truncated<int32_t>(location.y);
    replace->__DOWN_X__ = x;
    replace->__UP_X__ = x;
    replace->__DOWN_Y__ = y;
    replace->__UP_Y__ = y;
    stamp(*replace);
    replace->__OFFSET_X__ = x;
    replace->__OFFSET_Y__ = y;

    onInteractClickWithReplace(replace);

    auto track = getTrackVOByEvent(PeloraTrackType::kClick);
    if (track && !track->clicked_upload) {
        replaceUrlUploadTrack(track, *replace);
        track->clicked_upload = true;
    }
    if (onAdClicked_) onAdClicked_(tapped, ad_);
}

std::shared_ptr<void> PeloraTrackEvent::performSelector(const std::string&, std::shared_ptr<void>) {
    return nullptr;
}
