#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "pelora/platform/Export.h"
#include "pelora/platform/MediaPlayer.h"
#include "pelora/platform/RunLoop.h"

namespace pelora::testing {

// How one URL plays on the scripted player. Times are seconds of the run loop's clock (a
// manual clock in tests), so a 30-second video plays in microseconds.
struct PELORA_EXPORT MediaScript {
    // Length of the video. Playback ends here: the player pauses itself and reports the end
    // time to its time observers once more.
    double duration = 10.0;
    // Whether the item tells its duration once ready; when false duration() and
    // assetDuration() stay unknown although the video still ends at `duration`.
    bool durationKnown = true;
    // From the moment the item becomes a player's current item (or is retried after a
    // failure) to ReadyToPlay. 0 means on the next turn of the run loop.
    double timeToReady = 0.0;
    // The item fails instead of becoming ready.
    bool failToLoad = false;
    // play() calls (counted per item from 1) that make the item fail on the next turn.
    // A later play() on the failed item loads it again (timeToReady) and plays on.
    std::set<int> failOnPlay;
    // At each playback position (seconds), the player waits this many seconds with its time
    // standing still (time control status "waiting") before it plays on.
    std::map<double, double> stalls;
    // Frames per second of playback delivered to the video output (each a small RGBA frame).
    double frameRate = 4.0;
    // The error of a failed item.
    platform::Error error{platform::kMediaErrorDomain, platform::MediaError::kDecodeFailed,
                          "scripted decoding failure"};
};

class ScriptedPlayer;

// A media player service for tests on the manual clock: items play by script (by URL, or
// the default script), every report arrives through the run loop like a real player's, and
// everything asked of it is recorded.
class PELORA_EXPORT ScriptedMediaPlayerService final : public platform::MediaPlayerService {
  public:
    // `loop` null means the installed services' main run loop at the time of each call.
    explicit ScriptedMediaPlayerService(std::shared_ptr<platform::RunLoop> loop = nullptr);

    void setDefaultScript(MediaScript script) { defaultScript_ = std::move(script); }
    void setScript(const std::string& url, MediaScript script) {
        scripts_[url] = std::move(script);
    }

    std::shared_ptr<platform::PlayerItem> createItem(const std::string& url) override;
    std::shared_ptr<platform::Player> createPlayer(
        std::shared_ptr<platform::PlayerItem> item) override;

    // --- record ---------------------------------------------------------------------------
    const std::vector<std::string>& itemURLs() const { return itemURLs_; }
    size_t playersCreated() const { return playersCreated_; }
    // The player made last, while it is alive.
    std::shared_ptr<ScriptedPlayer> lastPlayer() const { return lastPlayer_.lock(); }

    platform::RunLoop& loop() const;

  private:
    std::shared_ptr<platform::RunLoop> loop_;
    MediaScript defaultScript_;
    std::map<std::string, MediaScript> scripts_;
    std::vector<std::string> itemURLs_;
    size_t playersCreated_ = 0;
    std::weak_ptr<ScriptedPlayer> lastPlayer_;
};

class ScriptedItem;

class PELORA_EXPORT ScriptedPlayer final : public platform::Player,
                                           public std::enable_shared_from_this<ScriptedPlayer> {
  public:
    ScriptedPlayer(const ScriptedMediaPlayerService& service);
    ~ScriptedPlayer() override;

    std::shared_ptr<platform::PlayerItem> currentItem() const override;
    void replaceCurrentItem(std::shared_ptr<platform::PlayerItem> item) override;
    void play() override;
    void pause() override;
    double rate() const override { return rate_; }
    void setRate(double rate) override;
    platform::TimeControlStatus timeControlStatus() const override;
    bool muted() const override { return muted_; }
    void setMuted(bool muted) override { muted_ = muted; }
    platform::MediaTime currentTime() const override;
    std::shared_ptr<platform::MediaObservation> addPeriodicTimeObserver(
        platform::MediaTime interval, std::function<void(platform::MediaTime)> block) override;
    void setVideoOutput(
        std::function<void(std::shared_ptr<const platform::VideoFrame>)> output) override;

    // --- record ---------------------------------------------------------------------------
    int playCalls() const { return playCalls_; }
    int pauseCalls() const { return pauseCalls_; }
    uint64_t framesDelivered() const { return framesDelivered_; }
    size_t liveTimeObservers() const { return timeObservers_.size(); }
    // Playback position in seconds.
    double position() const;

    // The item's load finished (ready or failed): called by the item on the loop.
    void itemSettled(ScriptedItem& item);

  private:
    friend class ScriptedItem;
    struct TimeObserver {
        int64_t intervalMicros;
        std::function<void(platform::MediaTime)> block;
    };

    int64_t nowMicros() const;
    bool advancing() const;
    void settlePosition();
    void reschedule();
    void onTimer();
    void reachEnd();
    void deliverFrame();
    void notifyTime();

    const ScriptedMediaPlayerService& service_;
    std::shared_ptr<ScriptedItem> item_;
    double rate_ = 0;
    bool muted_ = false;
    int playCalls_ = 0;
    int pauseCalls_ = 0;
    uint64_t framesDelivered_ = 0;
    // Position in microseconds at anchorMicros_ of the clock.
    int64_t positionMicros_ = 0;
    int64_t anchorMicros_ = 0;
    int64_t stallUntilMicros_ = -1;
    std::set<int64_t> stallsDone_;
    int64_t nextFrameMicros_ = 0;
    std::map<uint64_t, TimeObserver> timeObservers_;
    uint64_t nextObserverId_ = 1;
    std::function<void(std::shared_ptr<const platform::VideoFrame>)> output_;
    std::shared_ptr<platform::Timer> timer_;
    uint64_t timerGeneration_ = 0;
};

}  // namespace pelora::testing
