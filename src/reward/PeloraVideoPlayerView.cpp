#include "reward/PeloraVideoPlayerView.h"

#include <cmath>
#include <mutex>
#include <utility>

#include "native/PeloraImageDownloader.h"
#include "pelora/platform/Log.h"
#include "pelora/platform/Services.h"
#include "pelora/ui/NibLoader.h"
#include "reward/PeloraUnplayableMedia.h"
#include "support/PeloraTool.h"

using pelora::platform::MediaTime;
using pelora::platform::PlayerItemStatus;
using pelora::platform::TimeControlStatus;

namespace {

// Whole seconds of a media time, truncated toward zero; an unknown or odd time scale counts
// as 1 so an unknown time reads 0.
double secondsOf(MediaTime time) {
    double scale = static_cast<double>(time.timescale);
    if (scale < 1.0) scale = 1.0;
    return static_cast<double>(time.value) / scale;
}

using Handler = void (PeloraVideoPlayerView::*)();

const std::map<std::string, Handler>& handlersByName() {
    static const std::map<std::string, Handler> handlers = {
        {"onStatusWait", &PeloraVideoPlayerView::onStatusWait},
        {"onStatusIdle", &PeloraVideoPlayerView::onStatusIdle},
        {"onStatusStart", &PeloraVideoPlayerView::onStatusStart},
        {"onStatusSuspend", &PeloraVideoPlayerView::onStatusSuspend},
        {"onStatusResume", &PeloraVideoPlayerView::onStatusResume},
        {"onStatusPlayError", &PeloraVideoPlayerView::onStatusPlayError},
        {"onStatusPlayFinish", &PeloraVideoPlayerView::onStatusPlayFinish},
    };
    return handlers;
}

}  // namespace

PeloraVideoPlayerView::PeloraVideoPlayerView() {
    configInit();
}

PeloraVideoPlayerView::PeloraVideoPlayerView(pelora::platform::Rect frame)
    : pelora::ui::View(frame) {
    configInit();
}

PeloraVideoPlayerView::~PeloraVideoPlayerView() {
    if (player_) removePlayerObserverForItem(player_->currentItem());
    // Observations of replaced items end with their handles.
    for (auto& [item, observation] : itemObservers_)
        if (observation) observation->invalidate();
    itemObservers_.clear();
    removeNotify();
    pelora::platform::log(pelora::platform::LogLevel::Debug, "dealloc " + className());
}

void PeloraVideoPlayerView::registerWithNibLoader() {
    static std::once_flag once;
    std::call_once(once, [] {
        pelora::ui::NibLoader::registerClass("PeloraVideoPlayerView", [] {
            return std::static_pointer_cast<pelora::ui::View>(
                std::make_shared<PeloraVideoPlayerView>());
        });
    });
}

std::shared_ptr<PeloraVideoPlayerView> PeloraVideoPlayerView::self() {
    return std::static_pointer_cast<PeloraVideoPlayerView>(weak_from_this().lock());
}

void PeloraVideoPlayerView::configInit() {
    autoPlay_ = true;
    apiMapper_ = {
        {PeloraPlayerStatusWait, "onStatusWait"},
        {PeloraPlayerStatusIdle, "onStatusIdle"},
        {PeloraPlayerStatusStart, "onStatusStart"},
        {PeloraPlayerStatusSuspend, "onStatusSuspend"},
        {PeloraPlayerStatusResume, "onStatusResume"},
        {PeloraPlayerStatusPlayError, "onStatusPlayError"},
        {PeloraPlayerStatusPlayFinish, "onStatusPlayFinish"},
    };
    addNotify();
}

void PeloraVideoPlayerView::awakeFromNib() {
    pelora::ui::View::awakeFromNib();
    // Outlets go to the interface file's root view; the player view finds its own parts by
    // their names.
    playBtn_ =
        std::dynamic_pointer_cast<pelora::ui::Button>(viewWithAccessibilityIdentifier("playBtn"));
    coverImgV_ = std::dynamic_pointer_cast<pelora::ui::ImageView>(
        viewWithAccessibilityIdentifier("coverImgV"));
    auto button = playBtn();
    if (button && !buttonWired_) {
        buttonWired_ = true;
        std::weak_ptr<PeloraVideoPlayerView> weakSelf = self();
        button->addTarget(
            [weakSelf](pelora::ui::Button& sender) {
                if (auto strong = weakSelf.lock()) strong->onPlayBtnTap(&sender);
            },
            pelora::ui::ControlEvent::TouchUpInside);
        button->setImage(PeloraTool::imageWithName("bu_play@2x.png"),
                         pelora::ui::ControlState::Normal);
    }
}

void PeloraVideoPlayerView::setFrame(pelora::platform::Rect frame) {
    pelora::ui::View::setFrame(frame);
    if (playerLayer_) playerLayer_->setFrame(bounds());
}

std::string PeloraVideoPlayerView::describeDetails() const {
    return "status=" + std::to_string(static_cast<int64_t>(status_));
}

// ---- status ------------------------------------------------------------------------------------

void PeloraVideoPlayerView::setStatus(PeloraPlayerStatus status) {
    if (status == status_) return;
    // The owner's callback may drop the page and with it this view; finish the change first.
    auto keepAlive = self();
    status_ = status;
    // The owner hears of an error only when the retry rule gives up (onStatusPlayError).
    if (status != PeloraPlayerStatusPlayError) triggerStatusChange();
    onStatus(status);
}

void PeloraVideoPlayerView::onStatus(PeloraPlayerStatus status) {
    auto it = apiMapper_.find(status);
    if (it == apiMapper_.end() || it->second.empty()) return;
    performHandler(it->second);
}

void PeloraVideoPlayerView::performHandler(const std::string& name) {
    const auto& handlers = handlersByName();
    auto it = handlers.find(name);
    if (it != handlers.end()) (this->*(it->second))();
}

void PeloraVideoPlayerView::triggerStatusChange() {
    if (statusChange_) {
        auto callback = statusChange_;
        callback();
    }
}

void PeloraVideoPlayerView::hideAllSubView() {
    // The drawing layer is not one of the view's parts: it stays, as a layer would.
    for (const auto& sub : subviews())
        if (sub != playerLayer_) sub->setHidden(true);
}

// ---- playback ----------------------------------------------------------------------------------

void PeloraVideoPlayerView::loadVideoUrl(const std::optional<std::string>& url) {
    hideAllSubView();
    if (!url) return;
    playUrl_ = url;
    configPlayer(*url);
    if (autoPlay_) {
        setStatus(PeloraPlayerStatusIdle);
        if (player_) player_->play();
        return;
    }
    setStatus(PeloraPlayerStatusWait);
    // Wait again on the next turn, through a status the owner ignores, so the owner is told
    // of Wait even when it already was; the player is held still until the button is tapped.
    std::weak_ptr<PeloraVideoPlayerView> weakSelf = self();
    if (!pelora::platform::hasServices() || !pelora::platform::services().mainRunLoop) return;
    pelora::platform::services().mainRunLoop->post([weakSelf] {
        auto strong = weakSelf.lock();
        if (!strong) return;
        strong->setStatus(PeloraPlayerStatusRearm);
        strong->setStatus(PeloraPlayerStatusWait);
        if (strong->player_) {
            strong->player_->setRate(0);
            strong->player_->pause();
        }
    });
}

void PeloraVideoPlayerView::configPlayer(const std::string& url) {
    std::shared_ptr<pelora::platform::MediaPlayerService> media;
    if (pelora::platform::hasServices()) media = pelora::platform::services().mediaPlayer;
    if (!media) media = unplayableMediaService();
    auto item = media->createItem(url);
    if (!playerLayer_) {
        player_ = media->createPlayer(item);
        playerLayer_ = pelora::ui::PlayerLayer::playerLayerWithPlayer(player_);
        playerLayer_->setFrame(bounds());
        playerLayer_->setAutoresizingMask(pelora::ui::AutoresizingFlexibleWidth |
                                          pelora::ui::AutoresizingFlexibleHeight);
        // Lowest, so the cover and the play button lie above the picture.
        insertSubview(playerLayer_, 0);
    } else {
        player_->replaceCurrentItem(item);
    }
    addPlayerObserverForItem(item);
}

void PeloraVideoPlayerView::addPlayerObserverForItem(
    const std::shared_ptr<pelora::platform::PlayerItem>& item) {
    // Asks to stop watching the item about to be watched, not the one it replaces: the old
    // item keeps its status observation until the view goes away.
    removePlayerObserverForItem(item);
    std::weak_ptr<PeloraVideoPlayerView> weakSelf = self();
    if (item) {
        auto observation = item->observeStatus(
            [weakSelf] {
                if (auto strong = weakSelf.lock()) strong->onPlayerStatusChange();
            },
            true);
        itemObservers_.emplace_back(item, std::move(observation));
    }
    if (player_) {
        timeObserver_ =
            player_->addPeriodicTimeObserver(MediaTime{1, 1}, [weakSelf](MediaTime time) {
                if (auto strong = weakSelf.lock()) strong->onPlayerTimeTo(time);
            });
    }
    addedObserver_ = true;
}

void PeloraVideoPlayerView::removePlayerObserverForItem(
    const std::shared_ptr<pelora::platform::PlayerItem>& item) {
    if (!addedObserver_) return;
    bool found = false;
    for (auto it = itemObservers_.begin(); it != itemObservers_.end(); ++it) {
        if (!item || it->first.lock() != item) continue;
        if (it->second) it->second->invalidate();
        itemObservers_.erase(it);
        found = true;
        break;
    }
    if (!found && item) {
        log("removePlayerObserverForItem", std::string("item was never observed"));
    }
    if (timeObserver_) timeObserver_->invalidate();
    timeObserver_.reset();
    addedObserver_ = false;
}

void PeloraVideoPlayerView::onPlayerStatusChange() {
    auto item = player_ ? player_->currentItem() : nullptr;
    PlayerItemStatus status = item ? item->status() : PlayerItemStatus::Unknown;
    auto error = item ? item->error() : std::nullopt;
    log("onPlayerStatusChange", std::to_string(static_cast<int>(status)) + " " +
                                    (error ? error->description : std::string("(null)")));
    if (status == PlayerItemStatus::Failed) {
        setStatus(PeloraPlayerStatusPlayError);
    } else if (status == PlayerItemStatus::ReadyToPlay) {
        // A ready item in a paused player is the no-auto-play path: it waits for the button.
        if (player_ && player_->timeControlStatus() != TimeControlStatus::Paused)
            setStatus(PeloraPlayerStatusStart);
    }
}

void PeloraVideoPlayerView::onPlayerTimeTo(MediaTime time) {
    auto keepAlive = self();
    const int64_t current = static_cast<int64_t>(std::trunc(secondsOf(time)));
    int64_t total = 0;
    if (player_) {
        if (auto item = player_->currentItem())
            total = static_cast<int64_t>(std::trunc(secondsOf(item->assetDuration())));
    }
    if (playTimeChange_) {
        auto callback = playTimeChange_;
        callback(total, current);
    }
    // Whole seconds on both sides: the video counts as finished as soon as the current whole
    // second reaches the total, which can be up to a second before its true end.
    if (total > 0 && static_cast<double>(current) >= static_cast<double>(total) - 0.5)
        setStatus(PeloraPlayerStatusPlayFinish);
    log("onPlayerTimeTo", std::to_string(current));
}

void PeloraVideoPlayerView::play() {
    if (player_) player_->play();
}

void PeloraVideoPlayerView::pause() {
    if (player_) player_->pause();
}

bool PeloraVideoPlayerView::isPlaying() const {
    return player_ && player_->timeControlStatus() != TimeControlStatus::Paused;
}

std::optional<pelora::platform::Error> PeloraVideoPlayerView::playItemError() const {
    if (!player_) return std::nullopt;
    auto item = player_->currentItem();
    return item ? item->error() : std::nullopt;
}

int32_t PeloraVideoPlayerView::playItemDuration() const {
    if (!player_) return 0;
    auto item = player_->currentItem();
    if (!item) return 0;
    MediaTime duration = item->duration();
    int64_t scale = duration.timescale < 1 ? 1 : duration.timescale;
    return static_cast<int32_t>(duration.value / scale);
}

void PeloraVideoPlayerView::setMute(bool mute) {
    mute_ = mute;
    if (player_) player_->setMuted(mute);
}

void PeloraVideoPlayerView::onPlayBtnTap(pelora::ui::Button* /*sender*/) {
    if (!playUrl_) return;
    if (player_) {
        player_->setRate(1.0);
        player_->play();
    }
    // Start at the tap, without waiting for the player.
    setStatus(PeloraPlayerStatusStart);
}

// ---- status handlers ---------------------------------------------------------------------------

void PeloraVideoPlayerView::onStatusWait() {
    if (auto button = playBtn()) button->setHidden(false);
    if (auto cover = coverImgV()) {
        cover->setHidden(false);
        pl_setImageUrl(*cover, coverImagUrl_);
    }
}

void PeloraVideoPlayerView::onStatusIdle() {
    if (auto cover = coverImgV()) {
        cover->setHidden(false);
        pl_setImageUrl(*cover, coverImagUrl_);
    }
}

void PeloraVideoPlayerView::onStatusStart() {
    if (auto button = playBtn()) button->setHidden(true);
    if (auto cover = coverImgV()) cover->setHidden(true);
    retryTimes_ = 0;
}

void PeloraVideoPlayerView::onStatusSuspend() {}

void PeloraVideoPlayerView::onStatusResume() {}

void PeloraVideoPlayerView::onStatusPlayError() {
    retryTimes_ += 1;
    // Only the third entry since the last start reaches the owner; before that, try again.
    if (retryTimes_ > 2) {
        triggerStatusChange();
    } else if (player_) {
        player_->play();
    }
}

void PeloraVideoPlayerView::onStatusPlayFinish() {}

// ---- application life cycle --------------------------------------------------------------------

void PeloraVideoPlayerView::addNotify() {
    removeNotify();
    auto& center = pelora::platform::NotificationCenter::defaultCenter();
    // Created before any shared_ptr owns the view, so the observers cannot hold it weakly;
    // removeNotify() in the destructor ends them before the view goes.
    notifyTokens_.push_back(
        center.addObserver(pelora::platform::kApplicationDidEnterBackgroundNotification,
                           [this](const pelora::platform::Notification&) { didEnterBackgroud(); }));
    notifyTokens_.push_back(center.addObserver(
        pelora::platform::kApplicationWillEnterForegroundNotification,
        [this](const pelora::platform::Notification&) { willEnterForeground(); }));
}

void PeloraVideoPlayerView::removeNotify() {
    auto& center = pelora::platform::NotificationCenter::defaultCenter();
    for (auto token : notifyTokens_) center.removeObserver(token);
    notifyTokens_.clear();
}

void PeloraVideoPlayerView::didEnterBackgroud() {
    frontToPlay_ = false;
    // The player is not paused here: only remembered, so the return can resume it.
    if (isPlaying()) frontToPlay_ = true;
}

void PeloraVideoPlayerView::willEnterForeground() {
    if (frontToPlay_) onPlayBtnTap(nullptr);
}

void PeloraVideoPlayerView::log(const std::string& /*operation*/,
                                const std::optional<std::string>& /*msg*/) const {}
