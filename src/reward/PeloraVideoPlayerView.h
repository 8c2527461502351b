#pragma once

// The view that plays a rewarded video: it wraps the platform's player, shows a cover image
// and a play button while nothing plays, and keeps a small status that its owner (the video
// page) follows through one callback.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pelora/platform/MediaPlayer.h"
#include "pelora/platform/NotificationCenter.h"
#include "pelora/ui/Button.h"
#include "pelora/ui/ImageView.h"
#include "pelora/ui/PlayerLayer.h"
#include "pelora/ui/View.h"

// The player's status as the view and its owner dispatch on it. Negative values are the
// states before playback.
enum PeloraPlayerStatus : int64_t {
    PeloraPlayerStatusNone = 0,
    PeloraPlayerStatusWait = -1,
    PeloraPlayerStatusIdle = -2,
    PeloraPlayerStatusRearm = -3,
    PeloraPlayerStatusStart = 1,
    PeloraPlayerStatusSuspend = 2,
    PeloraPlayerStatusResume = 3,
    PeloraPlayerStatusPlayError = 4,
    PeloraPlayerStatusPlayFinish = 5,
};

class PeloraVideoPlayerView : public pelora::ui::View {
  public:
    using StatusChange = std::function<void()>;
    using PlayTimeChange = std::function<void(int64_t total, int64_t current)>;

    PeloraVideoPlayerView();
    explicit PeloraVideoPlayerView(pelora::platform::Rect frame);
    ~PeloraVideoPlayerView() override;

    std::string className() const override { return "PeloraVideoPlayerView"; }
    // Lets interface files name the class.
    static void registerWithNibLoader();

    // ---- state ------------------------------------------------------------------------------
    PeloraPlayerStatus status() const { return status_; }
    void setStatus(PeloraPlayerStatus status);
    const StatusChange& statusChange() const { return statusChange_; }
    void setStatusChange(StatusChange callback) { statusChange_ = std::move(callback); }
    const PlayTimeChange& playTimeChange() const { return playTimeChange_; }
    void setPlayTimeChange(PlayTimeChange callback) { playTimeChange_ = std::move(callback); }
    bool autoPlay() const { return autoPlay_; }
    void setAutoPlay(bool autoPlay) { autoPlay_ = autoPlay; }
    bool mute() const { return mute_; }
    void setMute(bool mute);
    const std::optional<std::string>& coverImagUrl() const { return coverImagUrl_; }
    void setCoverImagUrl(std::optional<std::string> url) { coverImagUrl_ = std::move(url); }
    // Status code -> name of the handler for it; the page dispatches through the same table.
    const std::map<int64_t, std::string>& apiMapper() const { return apiMapper_; }

    std::shared_ptr<pelora::ui::Button> playBtn() const { return playBtn_.lock(); }
    std::shared_ptr<pelora::ui::ImageView> coverImgV() const { return coverImgV_.lock(); }
    const std::optional<std::string>& playUrl() const { return playUrl_; }
    const std::shared_ptr<pelora::platform::Player>& player() const { return player_; }
    const std::shared_ptr<pelora::ui::PlayerLayer>& playerLayer() const { return playerLayer_; }
    bool addedObserver() const { return addedObserver_; }
    int32_t retryTimes() const { return retryTimes_; }
    bool frontToPlay() const { return frontToPlay_; }

    // ---- operations -------------------------------------------------------------------------
    // Starts a new playback of a local file URL or a remote URL; absent hides everything and
    // leaves the player as it is.
    void loadVideoUrl(const std::optional<std::string>& url);
    void play();
    void pause();
    // Waiting to play counts as playing.
    bool isPlaying() const;
    std::optional<pelora::platform::Error> playItemError() const;
    // Whole seconds of the current item, 0 without one or while unknown.
    int32_t playItemDuration() const;

    void onStatus(PeloraPlayerStatus status);
    void triggerStatusChange();
    void hideAllSubView();
    void onPlayBtnTap(pelora::ui::Button* sender);
    void configPlayer(const std::string& url);
    void addPlayerObserverForItem(const std::shared_ptr<pelora::platform::PlayerItem>& item);
    void removePlayerObserverForItem(const std::shared_ptr<pelora::platform::PlayerItem>& item);
    void onPlayerStatusChange();
    void onPlayerTimeTo(pelora::platform::MediaTime time);
    void addNotify();
    void removeNotify();
    void didEnterBackgroud();
    void willEnterForeground();
    // A diagnostic hook, deliberately empty.
    void log(const std::string& operation, const std::optional<std::string>& msg) const;

    // Status handlers named by apiMapper.
    void onStatusWait();
    void onStatusIdle();
    void onStatusStart();
    void onStatusSuspend();
    void onStatusResume();
    void onStatusPlayError();
    void onStatusPlayFinish();

    // ---- view tree --------------------------------------------------------------------------
    void awakeFromNib() override;
    // Keeps the drawing layer the size of the view.
    void setFrame(pelora::platform::Rect frame) override;
    std::string describeDetails() const override;

  private:
    void configInit();
    void performHandler(const std::string& name);
    std::shared_ptr<PeloraVideoPlayerView> self();

    PeloraPlayerStatus status_ = PeloraPlayerStatusNone;
    StatusChange statusChange_;
    PlayTimeChange playTimeChange_;
    bool autoPlay_ = false;
    bool mute_ = false;
    std::optional<std::string> coverImagUrl_;
    std::map<int64_t, std::string> apiMapper_;
    std::weak_ptr<pelora::ui::Button> playBtn_;
    std::weak_ptr<pelora::ui::ImageView> coverImgV_;
    std::optional<std::string> playUrl_;
    std::shared_ptr<pelora::platform::Player> player_;
    std::shared_ptr<pelora::ui::PlayerLayer> playerLayer_;
    std::shared_ptr<pelora::platform::MediaObservation> timeObserver_;
    // Status observations by the item they watch; an item being replaced keeps its own.
    std::vector<std::pair<std::weak_ptr<pelora::platform::PlayerItem>,
                          std::shared_ptr<pelora::platform::MediaObservation>>>
        itemObservers_;
    bool addedObserver_ = false;
    int32_t retryTimes_ = 0;
    bool frontToPlay_ = false;
    std::vector<pelora::platform::NotificationCenter::Token> notifyTokens_;
    bool buttonWired_ = false;
};
