#include "reward/PeloraUnplayableMedia.h"

#include <functional>
#include <map>
#include <string>
#include <utility>

#include "pelora/platform/Log.h"
#include "pelora/platform/Services.h"

namespace {

using namespace pelora::platform;

class UnplayableItem final : public PlayerItem,
                             public std::enable_shared_from_this<UnplayableItem> {
  public:
    explicit UnplayableItem(std::string url) : url_(std::move(url)) {}

    const std::string& url() const override { return url_; }
    PlayerItemStatus status() const override { return status_; }
    std::optional<Error> error() const override { return error_; }
    MediaTime duration() const override { return {}; }
    MediaTime assetDuration() const override { return {}; }

    std::shared_ptr<MediaObservation> observeStatus(std::function<void()> changed,
                                                    bool initial) override {
        return statusObservers_.add(std::move(changed), initial);
    }

    // Fails on the next turn of the main run loop, once.
    void load() {
        if (loading_ || !hasServices() || !services().mainRunLoop) return;
        loading_ = true;
        std::weak_ptr<UnplayableItem> weak = weak_from_this();
        services().mainRunLoop->post([weak] {
            auto item = weak.lock();
            if (!item) return;
            item->status_ = PlayerItemStatus::Failed;
            item->error_ = Error{kMediaErrorDomain, MediaError::kDecoderNotFound,
                                 "no media player is installed on this platform"};
            log(LogLevel::Error, "sdk: cannot play " + item->url_ + ": no media player installed");
            item->statusObservers_.notify();
        });
    }

  private:
    std::string url_;
    PlayerItemStatus status_ = PlayerItemStatus::Unknown;
    std::optional<Error> error_;
    StatusObservers statusObservers_;
    bool loading_ = false;
};

class UnplayablePlayer final : public Player {
  public:
    explicit UnplayablePlayer(std::shared_ptr<PlayerItem> item) {
        replaceCurrentItem(std::move(item));
    }

    std::shared_ptr<PlayerItem> currentItem() const override { return item_; }
    void replaceCurrentItem(std::shared_ptr<PlayerItem> item) override {
        item_ = std::move(item);
        if (auto unplayable = std::dynamic_pointer_cast<UnplayableItem>(item_)) unplayable->load();
    }
    void play() override {}
    void pause() override {}
    double rate() const override { return 0; }
    void setRate(double) override {}
    TimeControlStatus timeControlStatus() const override { return TimeControlStatus::Paused; }
    bool muted() const override { return muted_; }
    void setMuted(bool muted) override { muted_ = muted; }
    MediaTime currentTime() const override { return {}; }
    std::shared_ptr<MediaObservation> addPeriodicTimeObserver(
        MediaTime, std::function<void(MediaTime)>) override {
        return std::make_shared<CallbackObservation>(nullptr);
    }
    void setVideoOutput(std::function<void(std::shared_ptr<const VideoFrame>)>) override {}

  private:
    std::shared_ptr<PlayerItem> item_;
    bool muted_ = false;
};

class UnplayableService final : public MediaPlayerService {
  public:
    std::shared_ptr<PlayerItem> createItem(const std::string& url) override {
        return std::make_shared<UnplayableItem>(url);
    }
    std::shared_ptr<Player> createPlayer(std::shared_ptr<PlayerItem> item) override {
        return std::make_shared<UnplayablePlayer>(std::move(item));
    }
};

}  // namespace

std::shared_ptr<pelora::platform::MediaPlayerService> unplayableMediaService() {
    static auto service = std::make_shared<UnplayableService>();
    return service;
}
