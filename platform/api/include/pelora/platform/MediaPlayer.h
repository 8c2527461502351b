#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pelora/platform/Error.h"
#include "pelora/platform/Export.h"

namespace pelora::platform {

// A time on a media timeline: value / timescale seconds. A timescale of 0 means the time is
// not known (an item whose duration has not been read yet).
struct PELORA_EXPORT MediaTime {
    int64_t value = 0;
    int32_t timescale = 0;

    static MediaTime fromSeconds(double seconds, int32_t timescale = 1000);
    // value / timescale, with a timescale below 1 counted as 1 (so an unknown time reads 0).
    double seconds() const;
    bool isKnown() const { return timescale > 0; }
    bool operator==(const MediaTime&) const = default;
};

// Errors of the media player's own (decoding, containers, files). Network failures of a
// streamed item keep the URL error domain and its codes; a URL the player refuses to open
// (a scheme other than http, https or file, or a file outside the SDK's caches directory)
// is URLError::kUnsupportedURL in the URL error domain.
inline constexpr const char* kMediaErrorDomain = "pelora.media";
namespace MediaError {
inline constexpr int64_t kUnknown = -11800;
inline constexpr int64_t kDecoderNotFound = -11833;
inline constexpr int64_t kDecodeFailed = -11821;
inline constexpr int64_t kFormatNotRecognized = -11828;
inline constexpr int64_t kCannotOpen = -11829;
}  // namespace MediaError

// Values as the phone platform numbers them.
enum class PlayerItemStatus : int { Unknown = 0, ReadyToPlay = 1, Failed = 2 };
enum class TimeControlStatus : int { Paused = 0, WaitingToPlayAtSpecifiedRate = 1, Playing = 2 };

// One decoded video frame: 8-bit RGBA, row-major, rows `stride` bytes apart.
struct PELORA_EXPORT VideoFrame {
    int width = 0;
    int height = 0;
    int stride = 0;
    std::vector<uint8_t> rgba;
    MediaTime presentationTime;
    uint64_t sequence = 0;  // 1 for an item's first frame, then counting up
};

// Ends an observation when invalidated or destroyed. Invalidating twice is harmless.
class PELORA_EXPORT MediaObservation {
  public:
    virtual ~MediaObservation() = default;
    virtual void invalidate() = 0;
};

// An observation that runs `end` once, when invalidated or destroyed.
class PELORA_EXPORT CallbackObservation final : public MediaObservation {
  public:
    explicit CallbackObservation(std::function<void()> end) : end_(std::move(end)) {}
    ~CallbackObservation() override { invalidate(); }
    void invalidate() override;

  private:
    std::function<void()> end_;
};

// The status observers of an item, for the implementations of PlayerItem: observers run in
// the order they were added; one removed while others run is not called any more. Main run
// loop only.
class PELORA_EXPORT StatusObservers {
  public:
    StatusObservers();
    // Adds an observer (calling it at once when `initial`); it stays until the returned
    // observation ends or this list is gone.
    std::shared_ptr<MediaObservation> add(std::function<void()> changed, bool initial);
    void notify();

  private:
    struct State;
    std::shared_ptr<State> state_;
};

// What a player plays: one URL (a local file path as "file://..." or an http/https URL).
// An item loads only once a player has it as its current item. Main run loop only.
class PELORA_EXPORT PlayerItem {
  public:
    virtual ~PlayerItem() = default;

    virtual const std::string& url() const = 0;
    virtual PlayerItemStatus status() const = 0;
    // Set when status() is Failed.
    virtual std::optional<Error> error() const = 0;
    // The item's duration as the player knows it (unknown until the item is ready).
    virtual MediaTime duration() const = 0;
    // The duration read from the asset's container; like duration() it is unknown (timescale
    // 0) until the container has been read.
    virtual MediaTime assetDuration() const = 0;

    // Observes the item's status: `changed` runs on the main run loop after every change,
    // and once at once (inside this call) when `initial` is set, the way a key-value observer
    // with the initial and new options is called. The observation lasts until the returned
    // handle is invalidated or released.
    virtual std::shared_ptr<MediaObservation> observeStatus(std::function<void()> changed,
                                                            bool initial) = 0;
};

// Plays one item at a time. Main run loop only; every report (status changes, time
// observations, frames) is delivered on the main run loop.
class PELORA_EXPORT Player {
  public:
    virtual ~Player() = default;

    virtual std::shared_ptr<PlayerItem> currentItem() const = 0;
    // The new item starts loading; the old one is dropped (its observations stay the
    // observer's business).
    virtual void replaceCurrentItem(std::shared_ptr<PlayerItem> item) = 0;

    // play() is setRate(1); pause() is setRate(0).
    virtual void play() = 0;
    virtual void pause() = 0;
    virtual double rate() const = 0;
    virtual void setRate(double rate) = 0;
    // Paused when the rate is 0; waiting while the rate is set but the item is not yet
    // playing (loading, buffering); playing once frames and time move. At the item's end the
    // player pauses itself (rate 0).
    virtual TimeControlStatus timeControlStatus() const = 0;

    virtual bool muted() const = 0;
    virtual void setMuted(bool muted) = 0;

    // The playback position of the current item (0 without one).
    virtual MediaTime currentTime() const = 0;

    // Calls `block` with the current time every `interval` of the main run loop's clock
    // while the player's time control status is not Paused, and once more when the item
    // plays to its end (with the end time). Until the handle is invalidated or released.
    virtual std::shared_ptr<MediaObservation> addPeriodicTimeObserver(
        MediaTime interval, std::function<void(MediaTime)> block) = 0;

    // Decoded frames of the current item, delivered on the main run loop as they are due.
    // One consumer (the drawing layer); setting another replaces it; null stops delivery.
    virtual void setVideoOutput(std::function<void(std::shared_ptr<const VideoFrame>)> output) = 0;
};

// Makes items and players. Installed with the other platform services.
class PELORA_EXPORT MediaPlayerService {
  public:
    virtual ~MediaPlayerService() = default;
    // An item for a URL. Never null: a URL that cannot be played gives an item that fails
    // (with the reason as its error) once a player loads it.
    virtual std::shared_ptr<PlayerItem> createItem(const std::string& url) = 0;
    // A player whose current item is `item` (which may be null).
    virtual std::shared_ptr<Player> createPlayer(std::shared_ptr<PlayerItem> item) = 0;
};

// The application's life-cycle notifications, posted on the main run loop through
// NotificationCenter::defaultCenter() (the desktop backend posts them when the host calls
// pelora::desktop::applicationDidEnterBackground() / applicationWillEnterForeground()).
inline constexpr const char* kApplicationDidEnterBackgroundNotification =
    "ApplicationDidEnterBackgroundNotification";
inline constexpr const char* kApplicationWillEnterForegroundNotification =
    "ApplicationWillEnterForegroundNotification";

}  // namespace pelora::platform
