#include "reward/PeloraVideoPlayerVC.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <map>
#include <utility>
#include <vector>

#include "native/PeloraImageDownloader.h"
#include "pelora/platform/Log.h"
#include "support/PeloraTool.h"
#include "support/PeloraYYModel.h"
#include "track/PeloraTrackEvent.h"
#include "track/PeloraTrackReplace.h"

namespace {

// Every video event of the page is sent for scene 3, play type 1.
constexpr int8_t kVideoScene = 3;
constexpr int8_t kVideoPlayType = 1;

using PageHandler = void (PeloraVideoPlayerVC::*)();

const std::map<std::string, PageHandler>& pageHandlersByName() {
    static const std::map<std::string, PageHandler> handlers = {
        {"onStatusWait", &PeloraVideoPlayerVC::onStatusWait},
        {"onStatusIdle", &PeloraVideoPlayerVC::onStatusIdle},
        {"onStatusStart", &PeloraVideoPlayerVC::onStatusStart},
        {"onStatusSuspend", &PeloraVideoPlayerVC::onStatusSuspend},
        {"onStatusResume", &PeloraVideoPlayerVC::onStatusResume},
        {"onStatusPlayError", &PeloraVideoPlayerVC::onStatusPlayError},
        {"onStatusPlayFinish", &PeloraVideoPlayerVC::onStatusPlayFinish},
    };
    return handlers;
}

void show(const std::shared_ptr<pelora::ui::View>& view, bool visible) {
    if (view) view->setHidden(!visible);
}

}  // namespace

int32_t pl_leadingInteger(const std::optional<std::string>& text) {
    if (!text) return 0;
    return static_cast<int32_t>(
        std::clamp<int64_t>(plyy_integerPrefix(*text), INT32_MIN, INT32_MAX));
}

// ---- root controllers ------------------------------------------------------------------------

void PeloraRootViewController::viewWillAppear(bool animated) {
    pelora::ui::ViewController::viewWillAppear(animated);
    if (auto nav = navigationController()) nav->setNavigationBarHidden(hideNavBar_);
}

std::shared_ptr<PeloraRootNavVC> PeloraRootNavVC::initWithRootViewController(
    std::shared_ptr<pelora::ui::ViewController> root) {
    auto nav = std::make_shared<PeloraRootNavVC>();
    if (root) nav->setViewControllers({std::move(root)});
    return nav;
}

// ---- the page --------------------------------------------------------------------------------

PeloraVideoPlayerVC::~PeloraVideoPlayerVC() {
    pelora::platform::log(pelora::platform::LogLevel::Debug, "dealloc " + className());
}

std::shared_ptr<PeloraVideoPlayerVC> PeloraVideoPlayerVC::instance() {
    return std::make_shared<PeloraVideoPlayerVC>();
}

std::shared_ptr<PeloraVideoPlayerVC> PeloraVideoPlayerVC::self() {
    return std::static_pointer_cast<PeloraVideoPlayerVC>(weak_from_this().lock());
}

void PeloraVideoPlayerVC::loadView() {
    PeloraVideoPlayerView::registerWithNibLoader();
    auto root = PeloraTool::loadNib("PeloraVideoPlayerVC");
    if (!root) {
        // Without its interface file the page still works as a black screen with no
        // controls, so the host gets its callbacks instead of a crash.
        pelora::platform::log(pelora::platform::LogLevel::Error,
                              "sdk: interface file PeloraVideoPlayerVC not found in the bundle");
        pelora::ui::ViewController::loadView();
        return;
    }
    bellBtn_ = std::dynamic_pointer_cast<pelora::ui::Button>(root->outlet("bellBtn"));
    timeBtn_ = std::dynamic_pointer_cast<pelora::ui::Button>(root->outlet("timeBtn"));
    skipBtn_ = std::dynamic_pointer_cast<pelora::ui::Button>(root->outlet("skipBtn"));
    closeBtn_ = std::dynamic_pointer_cast<pelora::ui::Button>(root->outlet("closeBtn"));
    endImageV_ = std::dynamic_pointer_cast<pelora::ui::ImageView>(root->outlet("endImageV"));
    endButton_ = std::dynamic_pointer_cast<pelora::ui::Button>(root->outlet("endButton"));
    playerView_ = std::dynamic_pointer_cast<PeloraVideoPlayerView>(root->outlet("playerView"));
    setView(root);
}

void PeloraVideoPlayerVC::viewDidLoad() {
    PeloraRootViewController::viewDidLoad();
    view()->setBackgroundColor(pelora::ui::Color::black());
    configUI();
    hideControlView();
    // The manager's call may have come before the view existed.
    if (auto video = this->video()) _real_loadVideo(video, nad(), store(), fileCache_);
}

void PeloraVideoPlayerVC::viewWillAppear(bool animated) {
    PeloraRootViewController::viewWillAppear(animated);
    auto player = playerView();
    if (player && !player->isPlaying()) player->play();
}

void PeloraVideoPlayerVC::viewWillDisappear(bool animated) {
    PeloraRootViewController::viewWillDisappear(animated);
    auto player = playerView();
    if (player && player->isPlaying()) player->pause();
}

void PeloraVideoPlayerVC::wireButton(const std::shared_ptr<pelora::ui::Button>& button,
                                     void (PeloraVideoPlayerVC::*action)()) {
    if (!button) return;
    std::weak_ptr<PeloraVideoPlayerVC> weakSelf = self();
    button->addTarget(
        [weakSelf, action](pelora::ui::Button&) {
            // Held for the whole action: closing releases the page from inside it.
            if (auto strong = weakSelf.lock()) ((*strong).*action)();
        },
        pelora::ui::ControlEvent::TouchUpInside);
}

void PeloraVideoPlayerVC::configUI() {
    if (auto button = endButton()) button->setCornerRadius(10.0);
    mute_ = false;
    if (auto bell = bellBtn()) {
        bell->setImage(PeloraTool::imageWithName("bu_voice@2x.png"),
                       pelora::ui::ControlState::Normal);
        wireButton(bell, &PeloraVideoPlayerVC::onBellTap);
    }
    if (auto time = timeBtn())
        time->setTitleColor(pelora::ui::Color::white(), pelora::ui::ControlState::Normal);
    // Skip and close share the splash ad's close image.
    if (auto skip = skipBtn()) {
        skip->setImage(PeloraTool::imageWithName("bu_splashClose@2x.png"),
                       pelora::ui::ControlState::Normal);
        wireButton(skip, &PeloraVideoPlayerVC::onSkipTap);
    }
    if (auto close = closeBtn()) {
        close->setImage(PeloraTool::imageWithName("bu_splashClose@2x.png"),
                        pelora::ui::ControlState::Normal);
        wireButton(close, &PeloraVideoPlayerVC::onCloseTap);
    }
}

void PeloraVideoPlayerVC::hideControlView() {
    hideAllBtn();
}

void PeloraVideoPlayerVC::hideAllBtn() {
    show(bellBtn(), false);
    show(timeBtn(), false);
    show(skipBtn(), false);
    show(closeBtn(), false);
    show(endButton(), false);
    show(endImageV(), false);
    show(endWebView_, false);
}

std::shared_ptr<pelora::ui::WebView> PeloraVideoPlayerVC::endWebView() {
    if (!endWebView_ && isViewLoaded()) {
        auto root = view();
        auto web = std::make_shared<pelora::ui::WebView>(root->bounds());
        auto player = playerView();
        const auto& subs = root->subviews();
        size_t index = subs.size();
        for (size_t i = 0; i < subs.size(); ++i)
            if (player && subs[i] == player) index = i + 1;
        root->insertSubview(web, index);
        // Not kept: every call makes another, and the page never loads anything into them.
    }
    return endWebView_;
}

// ---- loading ---------------------------------------------------------------------------------

void PeloraVideoPlayerVC::loadVideo(const std::shared_ptr<PeloraRespVideoObject>& video,
                                    const std::shared_ptr<PeloraNativeAd>& ad,
                                    const std::shared_ptr<PeloraPluginStatusStore>& store,
                                    const std::optional<std::string>& hadCacheFile) {
    hideControlView();
    video_ = video;
    nad_ = ad;
    store_ = store;
    fileCache_ = hadCacheFile;
    if (isViewLoaded()) _real_loadVideo(video, ad, store, hadCacheFile);
}

void PeloraVideoPlayerVC::_real_loadVideo(const std::shared_ptr<PeloraRespVideoObject>& video,
                                          const std::shared_ptr<PeloraNativeAd>& ad,
                                          const std::shared_ptr<PeloraPluginStatusStore>& /*store*/,
                                          const std::optional<std::string>& hadCacheFile) {
    auto page = self();
    std::weak_ptr<PeloraVideoPlayerVC> weakSelf = page;
    trackEvent_ = PeloraTrackEvent::init();
    trackEvent_->setAdRootVC(page);

    std::vector<std::shared_ptr<pelora::ui::View>> clickViews;
    if (auto image = endImageV()) clickViews.push_back(image);
    if (auto button = endButton()) clickViews.push_back(button);
    auto player = playerView();
    if (player && video && video->clickAble) clickViews.push_back(player);
    // The handlers go in before the binding: exposure is decided while binding.
    trackEvent_->setOnAdExposed([weakSelf](std::shared_ptr<PeloraApiAd>) {
        if (auto strong = weakSelf.lock()) strong->onAdExpose();
    });
    trackEvent_->setOnAdClicked(
        [weakSelf](std::shared_ptr<pelora::ui::View>, std::shared_ptr<PeloraApiAd>) {
            if (auto strong = weakSelf.lock()) strong->onAdClick();
        });
    trackEvent_->bindAd(ad ? ad->ad() : nullptr, view(), clickViews);
    if (!player) return;
    player->setStatusChange([weakSelf] {
        if (auto strong = weakSelf.lock()) strong->onVideoStatusChange();
    });
    player->setPlayTimeChange([weakSelf](int64_t total, int64_t current) {
        if (auto strong = weakSelf.lock()) strong->onVideoPlayTime(total, current);
    });
    player->setAutoPlay(autoPlay_);
    std::optional<std::string> cover;
    if (video && video->coverUrls && !video->coverUrls->empty()) cover = video->coverUrls->front();
    player->setCoverImagUrl(cover);
    std::optional<std::string> url = hadCacheFile;
    if (!url && video) url = video->videoUrl;
    player->loadVideoUrl(url);
}

std::optional<pelora::platform::Error> PeloraVideoPlayerVC::playItemError() const {
    auto player = playerView();
    return player ? player->playItemError() : std::nullopt;
}

// ---- the player's reports --------------------------------------------------------------------

void PeloraVideoPlayerVC::onVideoStatusChange() {
    auto player = playerView();
    if (!player) return;
    const auto& mapper = player->apiMapper();
    auto it = mapper.find(player->status());
    if (it == mapper.end() || it->second.empty()) return;
    const auto& handlers = pageHandlersByName();
    auto handler = handlers.find(it->second);
    if (handler != handlers.end()) (this->*(handler->second))();
}

void PeloraVideoPlayerVC::onVideoPlayTime(int64_t total, int64_t current) {
    if (auto time = timeBtn()) {
        int64_t left = total - current;
        time->setTitle(std::to_string(left < 0 ? 0 : left), pelora::ui::ControlState::Normal);
    }
    auto video = this->video();
    if (video && video->skipSeconds >= 1 && video->skipSeconds <= current) show(skipBtn(), true);
    // Only the highest quartile reached is named; one skipped over between two ticks is
    // never sent. A total of 0 gives infinity (or no number at all at 0).
    const double progress = static_cast<double>(current) / static_cast<double>(total);
    if (progress >= 0.75) {
        uploadTrackEvent(PeloraTrackType::kVideoThirdQuartile, 1, 0, kVideoScene, kVideoPlayType,
                         0);
    } else if (progress >= 0.5) {
        uploadTrackEvent(PeloraTrackType::kVideoMidpoint, 1, 0, kVideoScene, kVideoPlayType, 0);
    } else if (progress >= 0.25) {
        uploadTrackEvent(PeloraTrackType::kVideoFirstQuartile, 1, 0, kVideoScene, kVideoPlayType,
                         0);
    }
}

void PeloraVideoPlayerVC::onStatusWait() {
    hideAllBtn();
}

void PeloraVideoPlayerVC::onStatusIdle() {
    hideAllBtn();
}

void PeloraVideoPlayerVC::onStatusStart() {
    show(bellBtn(), true);
    show(timeBtn(), true);
    triggerName(kPlayerStatusStart);
    uploadTrackEvent(PeloraTrackType::kVideoStart, 1, 0, kVideoScene, kVideoPlayType, 0);
}

void PeloraVideoPlayerVC::onStatusSuspend() {}

void PeloraVideoPlayerVC::onStatusResume() {}

void PeloraVideoPlayerVC::onStatusPlayError() {
    triggerName(kPlayerStatusPlayError);
    uploadTrackEvent(PeloraTrackType::kPlayError, 1, 0, kVideoScene, kVideoPlayType, 2);
}

void PeloraVideoPlayerVC::onStatusPlayFinish() {
    show(closeBtn(), true);
    jumpToEndPage();
    triggerName(kPlayerStatusPlayFinish);
    uploadTrackEvent(PeloraTrackType::kVideoComplete, 1, 1, kVideoScene, kVideoPlayType, 0);
}

// ---- end page and closing --------------------------------------------------------------------

void PeloraVideoPlayerVC::jumpToEndPage() {
    hideAllBtn();
    show(closeBtn(), true);
    if (auto player = playerView()) player->pause();
    auto video = this->video();
    if (!video) return;
    if (!PeloraTool::stringIsEmpty(video->endHtml)) {
        // Two accessor calls, two blank web views: the HTML never reaches a view.
        if (auto web = endWebView()) web->setHidden(false);
        if (auto web = endWebView()) web->loadHTMLString(*video->endHtml, std::nullopt);
    }
    if (!PeloraTool::stringIsEmpty(video->buttonText)) {
        if (auto button = endButton()) {
            button->setHidden(false);
            button->setTitle(video->buttonText, pelora::ui::ControlState::Normal);
        }
    }
    if (!PeloraTool::stringIsEmpty(video->endImgUrl)) {
        if (auto image = endImageV()) {
            image->setHidden(false);
            pl_setImageUrl(*image, video->endImgUrl);
        }
    }
    if (video->autoLanding && trackEvent_) trackEvent_->triggerInteraction();
}

void PeloraVideoPlayerVC::realClose() {
    if (auto nav = navigationController()) nav->dismissViewControllerAnimated(true, nullptr);
}

void PeloraVideoPlayerVC::triggerName(const std::string& name) {
    if (auto store = this->store()) store->triggerEvent(name);
}

void PeloraVideoPlayerVC::onBellTap() {
    mute_ = !mute_;
    if (auto player = playerView()) player->setMute(mute_);
    if (auto bell = bellBtn()) {
        bell->setImage(
            PeloraTool::imageWithName(mute_ ? "bu_voice_silent@2x.png" : "bu_voice@2x.png"),
            pelora::ui::ControlState::Normal);
    }
    uploadTrackEvent(PeloraTrackType::kMute, 1, 0, kVideoScene, kVideoPlayType, 0);
}

void PeloraVideoPlayerVC::onSkipTap() {
    uploadTrackEvent(PeloraTrackType::kSkip, 1, 0, kVideoScene, kVideoPlayType, 0);
    realClose();
    triggerName(kAdTapSkip);
}

void PeloraVideoPlayerVC::onCloseTap() {
    uploadTrackEvent(PeloraTrackType::kClose, 1, 0, kVideoScene, kVideoPlayType, 0);
    realClose();
    triggerName(kAdTapClose);
}

void PeloraVideoPlayerVC::onAdExpose() {
    triggerName(kAdExpose);
}

void PeloraVideoPlayerVC::onAdClick() {
    triggerName(kAdClick);
}

void PeloraVideoPlayerVC::uploadTrackEvent(int64_t event, int8_t PLAY_FIRSR_FRAME,
                                           int8_t PLAY_LAST_FRAME, int8_t VIDEO_SCENE,
                                           int8_t playType, int8_t playStatus) {
    if (!trackEvent_) return;
    std::weak_ptr<PeloraVideoPlayerVC> weakSelf = self();
    auto modifier = [weakSelf, event, PLAY_FIRSR_FRAME, PLAY_LAST_FRAME, VIDEO_SCENE, playType,
                     playStatus](PeloraTrackReplace& replace) {
        auto page = weakSelf.lock();
        if (!page) return;
        int32_t duration = 0;
        if (auto player = page->playerView()) duration = player->playItemDuration();
        if (duration == 0) {
            // The player does not know yet: the server's figure stands in.
            if (auto video = page->video()) duration = pl_leadingInteger(video->videoDuration);
        }
        replace.__VIDEO_TIME__ = duration;
        replace.__VIDEO_BEHAVIOR__ = page->autoPlay_ ? 0 : 1;
        replace.__VIDEO_PLAY_FIRSR_FRAME__ = PLAY_FIRSR_FRAME;
        replace.__VIDEO_PLAY_LAST_FRAME__ = PLAY_LAST_FRAME;
        replace.__VIDEO_SCENE__ = VIDEO_SCENE;
        replace.__VIDEO_PLAY_TYPE__ = playType;
        replace.__VIDEO_STATUS__ = playStatus;
        if (event == PeloraTrackType::kVideoComplete) replace.__VIDEO_END_TIME__ = duration;
    };
    trackEvent_->triggerTrackAdVideo(video(), modifier, event);
}
